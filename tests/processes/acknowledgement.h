// What the program `threads` tells the test that kills it, record by record over a pipe.
#pragma once

#include <type_traits>

enum class Acknowledged : int {
  run,      ///< the run `id` is stored
  samples,  ///< the signal `id` has `count` samples: sample k at time k with value 2k + id
  work,     ///< something else was done
  busy,     ///< refused since another unit did not end in time
  fault,    ///< a promise was broken; `id` says which (see threads.cpp)
};

struct Acknowledgement {
  Acknowledged what;
  int thread;
  int file;
  int id;
  int count;
};
static_assert(std::is_trivially_copyable_v<Acknowledgement>);

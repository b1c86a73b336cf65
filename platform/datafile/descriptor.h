// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace datafile {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  operator int() const { return number_; }
  /// Whoever takes it closes it.
  int release() { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

}  // namespace datafile

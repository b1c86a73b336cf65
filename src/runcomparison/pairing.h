// Finds for every leaf signal of a run its like in another.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "objects/signal.h"

namespace vela {

/// A signal of the baseline, its like of the compared run, or both.
struct SignalPair {
  boost::shared_ptr<Signal> baseline;
  boost::shared_ptr<Signal> compareTo;
  std::wstring name;   ///< with its subscripts where it is an element
  std::wstring path;   ///< the names above it and its own, joined by "."
  std::wstring label;  ///< the name, or the path where several pairs have the name
};

/// In the order of the baseline's signals, then what only the other has. Equal are leaves with
/// equal keys below signals of equal names; the first of several goes with the first.
///
/// \param pattern  a shell pattern for the name or path; empty for all
std::vector<SignalPair> pairLeaves(Set& baseline, Set& compareTo, const std::string& pattern);

/// The name of a signal; of an element of a vector or matrix with its subscripts: "m(1,2)".
std::wstring nameWithSubscripts(const Signal& signal);
/// Name and path of a signal as a pair has them.
void describe(const Signal& signal, SignalPair& pair);

}  // namespace vela

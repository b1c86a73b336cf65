// The family of a comparison: its parts, and how they are made.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "objects/signal.h"

namespace vela {

/// Children of a comparison signal, by what they are; 0 where there is none.
struct ComparisonFamily {
  int baseline = 0;
  int compareTo = 0;
  std::vector<int> differences;
  std::vector<int> tolerances;
};

/// \throws "nexstore:nex:InvalidData" when the signal is no comparison
ComparisonFamily familyOf(const Signal& comparison);

/// A comparison signal of the run, named and described like `original`, without children.
boost::shared_ptr<Signal> addComparison(Set& run, Signal& original, bool isWithinTol,
                                        const std::wstring& alignedBy);
/// A copy of an input, with its parts and samples, below the comparison; its name says which of
/// the two it is.
boost::shared_ptr<Signal> addInput(const boost::shared_ptr<Signal>& comparison,
                                   Signal& original, Signal::SourceType type,
                                   const std::wstring& name);
/// A difference or tolerance signal without samples, described like `compareTo`; of no run yet.
boost::shared_ptr<Signal> newResult(Signal& compareTo, Signal::SourceType type,
                                    const std::wstring& name);
/// Puts a new difference or tolerance signal below the comparison, in place of those in `old`
/// and on their plots.
void replaceResults(const boost::shared_ptr<Signal>& comparison, const std::vector<int>& old,
                    const boost::shared_ptr<Signal>& result);

}  // namespace vela

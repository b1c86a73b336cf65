// The scalar signals that hold the samples of one that is more than a scalar.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <vector>

#include "objects/signal.h"

namespace vela::scripting {

/// The signal itself or, where it was expanded, the signals below it: one for each element of
/// a sample, first dimension fastest, and for its real and its imaginary part.
struct Streams {
  std::vector<boost::shared_ptr<Signal>> leaves;
  std::vector<std::size_t> dims;  ///< of one sample; empty for a scalar
  bool isComplex = false;

  /// Whether the signal holds its samples itself.
  bool isPlain() const { return dims.empty() && !isComplex; }
};

/// \throws "nexstore:nex:InvalidData" when what is below an expanded signal no longer makes its
///         samples: elements or parts are missing, or its dimensions are others
Streams streamsOf(const boost::shared_ptr<Signal>& signal);

}  // namespace vela::scripting

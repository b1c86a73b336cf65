// Creates signals with the children their shape asks for.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/tuple/tuple.hpp>
#include <vector>

#include "objects/signal.h"

namespace vela {

/// What the children of an expanded signal are. // Values are handed to scripts; never
/// renumber.
enum class ContainerType : int {
  Complex = 0,   ///< the real and the imaginary part
  Channels = 1,  ///< one for each element, first dimension fastest
};

/// Creates signals so that every leaf is a real scalar stream. Each creation is one unit of
/// work: on any failure nothing of it remains.
class SignalCreationUtil {
 public:
  /// One expansion: the signal, its children in order, what they are.
  using Expansion = boost::tuple<long long, std::vector<long long>, ContainerType>;

  /// A signal of that shape and type, "linear" when continuous, else "zoh". Of a built-in type,
  /// or an alias of one, it is expanded: more than one element into a child each, then what is
  /// complex into a real and an imaginary part. Element children keep the signal's dimensions
  /// and say in "Channel", with 1-based subscripts, which element they are.
  ///
  /// \param parentID  the signal to put it below, and into whose run; may be null
  /// \param dims      empty for a scalar
  /// \param created   receives the expansions, a parent's before its children's
  /// \throws "nexstore:nex:InvalidDimensions" for no element or more than 10^6;
  ///         "nexstore:nex:InvalidData" for an unknown parent or data type
  static boost::shared_ptr<Signal> createSignal(
      ObjectManager& manager, const long long* parentID, dimsMode mode,
      const std::vector<unsigned>& dims, complexity complexity, sampleTimeContinuity continuity,
      long long dataTypeID, std::vector<Expansion>& created);

  /// The root of a composite signal, without a type. \returns its ID
  static long long createHierarchicalSignal(ObjectManager& manager, const long long* parentID,
                                            dimsMode mode, const std::vector<unsigned>& dims);

  /// Names what createSignal made below `top` after it: elements share its name, real and
  /// imaginary parts say which they are.
  static void nameParts(Signal& top);
};

}  // namespace vela

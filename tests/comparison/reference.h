// A slow, plain comparison in exact rational arithmetic, written from the definitions.
#pragma once

#include <boost/multiprecision/cpp_int.hpp>
#include <vector>

#include "comparison/options.h"
#include "samples.h"

namespace comparison::test {

using Rational = boost::multiprecision::cpp_rational;

/// A value without rounding. Values found by interpolation carry how far the rounded
/// computation may be from them.
struct Exact {
  enum class Kind { finite, nan, plusInfinity, minusInfinity };
  Kind kind = Kind::finite;
  Rational value;
  Rational slack;
  double precision = 0;  ///< the step to the next number of its kind
  bool isWide = false;   ///< of a series of 64-bit integers

  bool isFinite() const { return kind == Kind::finite; }
};

/// What a row must be. Where exact arithmetic is closer to the limit than rounding reaches,
/// either verdict is right.
struct ReferenceRow {
  enum class Verdict { passes, fails, either };
  double time = 0;
  Exact baseline;
  Exact compareTo;
  Exact difference;
  Exact tolerance;  ///< what the tolerance series must show
  Verdict verdict = Verdict::either;
};

std::vector<ReferenceRow> referenceRows(const Samples& baseline, const Samples& compareTo,
                                        const Options& options);

/// Whether the double is the exact number within its slack, correctly rounded where there is
/// none.
bool agrees(const Exact& exact, double computed);

}  // namespace comparison::test

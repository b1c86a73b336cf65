// Aligns two series, applies tolerances and gives the verdict.
#pragma once

#include "comparison/options.h"
#include "comparison/report.h"
#include "comparison/series.h"

namespace comparison {

/// Compares `compareTo`, C, with `baseline`, B, in one sweep: O(n) time; memory for a block of
/// each series, the samples within the time tolerance, and the samples of one time.
///
/// **Events.** The samples of one time are an event (t, L, R, m): first value, last value,
/// number. m >= 2 marks a jump: L arrives, R leaves.
///
/// **Values** exist in [first time, last time]; nothing is extrapolated.
///
///     held    right(t) = R of the last event <= t
///             left(t)  = L of an event at t with m >= 2, else R of the event before
///                        (R itself at the first)
///     linear  at an event left = L and right = R; between events (t1, R1) and (t2, L2)
///             R1 + (L2 - R1) (t - t1) / (t2 - t1), and R1 where R1 = L2
///
/// A straight piece between different ends of which one or both are not finite has one value
/// throughout: NaN when an end is NaN or both are infinite, else the infinite one. So a number
/// beside a missing sample never stands in for it.
///
/// Integers of 64 bits are carried exactly. Between them a value is a double up to 2^53, beyond
/// that a whole number and a fraction.
///
/// **Matching.** An event of B and one of C are at the same time when
///
///     |tb - tc| <= max(4 ulp(max(|tb|, |tc|)), timeMatch * h)
///
/// with h the smallest of the gaps to the events before and behind them in their own series.
/// Each event matches at most once, and an event whose successor is nearer to its partner
/// leaves that to the successor. Matched events are compared at B's time.
///
/// **Times.** "union": every event inside the other's span. "intersection": matched events.
/// "uniform": t_k = a + (z - a) (k / N), k = 0..N, where a and z are the first and last time of
/// the union and N + 1 is `count`, or the number of events inside [a, z] of the series that
/// has more of them; with a step h, t_k = min(a + k h, z), N = floor((z - a) / h + 1e-9). A
/// grid time that matches an event (h includes the grid's step) is evaluated as that event.
///
/// **Rows.** One row (right, right) a time. When a side has m >= 2 there: equal m pair one by
/// one, otherwise (left, left) and (right, right).
///
/// **Difference.** D = c - b, rounded once; 0 for equal values, for two NaN and for equal
/// infinities; NaN when one is NaN.
///
/// **Tolerance.** tol(b) = max(absTol, relTol |b|), 0 where b is not finite and for
/// enumerations: NaN passes beside NaN only, an infinity beside the same one. A row passes when
/// D = 0; or when b and c are finite, tol > 0 and
///
///     |D| <= tol + s,   s = (p(b) + p(c) + relTol p(b)) / 2 + ulp(tol)
///
/// s is the rounding already in decimal inputs: 1.1 against 1.0 with 0.1 passes, in single
/// precision too. p is the precision of the data: the ulp of a sample in its own type, single
/// or double, 0 for integers; between samples the largest of both ends', of ulp(L2 - R1), and
/// of the ulp of a value that is a double. With zero tolerance only equality passes.
///
/// **Time tolerance** d > 0: a row passes too when c lies between the extremes of the values
/// b_i that B takes in [t - d', t + d'], d' = d + 4 ulp(|t| + d), each widened by its own
/// tolerance and s:
///
///     V = min(b_i - tol(b_i)),  U = max(b_i + tol(b_i)),  V - s <= c <= U + s
///
/// The b_i are L and R of the events in the window and the values at its ends, clipped to B's
/// span; b + tol(b) is convex and b - tol(b) concave in b, so that no point of a straight piece
/// lies outside them. Only the finite b_i bound a finite c. A c that is NaN, infinite or an
/// enumeration must equal one of the b_i.
///
/// **Tolerance series.** T = tol(b); with a time tolerance U - b where D >= 0, b - V where
/// D < 0, so that a row that passes reads |D| <= T up to s. T = |D| where only equality counts
/// and the row passes.
///
/// **Verdict.** Within when there is at least one row, all rows pass, and, where the spans
/// have to agree, first times and last times match or differ by at most d.
///
/// Different units are not compared. Different scalar types are, and noted.
///
/// \throws "nexstore:nex:InvalidSetting" for bad options, before anything is read;
///         "nexstore:nex:InvalidData" for times that are not finite or decrease, for values
///         that do not fit the times, and for a step that makes more than 10^9 rows
Report compare(const Series& baseline, const Series& compareTo, const Options& options,
               const Sink& sink = {});

}  // namespace comparison

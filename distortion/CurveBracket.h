// Finding the interval of a curve table that brackets a value, the way the
// curve lookups define it: the first k with (x - xs[k]) * (x - xs[k+1]) <= 0.
// A linear scan answers for any table; bisection gives the same answer, in
// ten steps instead of up to a thousand, on the tables that allow it.
#pragma once

#include "distortion/CDistortionFilter.h"

// The first k below `intervals` with (x - xs[k]) * (x - xs[k+1]) <= 0, or
// -1; the products of four intervals are formed and tested at once.
int FirstBracket(const CurveTable& xs, float x, int intervals);

// Whether BisectBracket gives FirstBracket's answer for every x in
// [xs[0], xs[1023]] and NaN, with 1023 or 1024 intervals: xs[0 .. 1023]
// finite and strictly increasing, xs[1] > 0, and the smallest gap times the
// float spacing at xs[1] at least 2^-126. Then for x above an interval both
// differences are positive and their product, at least that bound, cannot
// round to zero: the first bracketing interval is the first whose upper end
// is not below x.
bool Bisectable(const CurveTable& xs);

// FirstBracket of x on a table for which Bisectable holds.
int BisectBracket(const CurveTable& xs, float x);

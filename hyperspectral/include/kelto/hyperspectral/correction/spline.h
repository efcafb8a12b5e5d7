// The cubic spline solver behind the not-a-knot kind of SplineInterpolation: second derivatives
// of a spline through given knots, from a pentadiagonal system.
//
// spline_cubic_set ends the process on a grid that has fewer than two knots or does not rise
// strictly; that is its contract. SplineInterpolation, its only caller in this library, checks
// every grid first and throws std::invalid_argument instead, so that no file a host program reads
// can end the process. Other callers must check their grids the same way.
// Thread-safety: no shared state; safe from any thread on separate arrays.
#pragma once

#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

// The second derivatives M[0..n-1] at the knots t of the spline through (t, y), as a new array
// that the caller releases with delete[]. Only the not-a-knot condition (ibcbeg = ibcend = 3) is
// supported; the end values ybcbeg and ybcend are then ignored, and any other condition throws
// std::invalid_argument. Two knots give the straight line, M = 0; three knots give NaN, as the
// condition at both ends is then the same equation and the system is singular.
//
// With n < 2, or knots that are not strictly increasing, writes a message to standard error and
// ends the process with exit status 1.
KELTO_HYPERSPECTRAL_EXPORT double* spline_cubic_set(int n, const double* t, const double* y,
                                                    int ibcbeg, double ybcbeg, int ibcend,
                                                    double ybcend);

// Solves a pentadiagonal system of n >= 2 equations by Gaussian elimination without pivoting.
// Row i reads a1[i] x[i-2] + a2[i] x[i-1] + a3[i] x[i] + a4[i] x[i+1] + a5[i] x[i+2] = b[i].
// The arrays are overwritten. The solution is a new array that the caller releases with delete[].
KELTO_HYPERSPECTRAL_EXPORT double* penta(int n, double* a1, double* a2, double* a3, double* a4,
                                         double* a5, double* b);

}  // namespace kelto::hyperspectral

// Curve routines beside spline_cubic_set, for callers that draw and resample curves: evaluation of
// the cubic spline that spline_cubic_set prepares, Bezier, B-spline, Hermite, Overhauser and PCHIP
// curves, and least-squares splines and polynomials. Nothing in the library calls them.
//
// Common rules. Counts are ints and arrays are read only up to the counts given. Abscissae
// ("knots") must be finite and rise strictly unless a routine says otherwise. A set-up routine
// returns a new array that the caller releases with delete[]. An evaluation routine takes ne
// targets and writes ne results to each output array the caller provides; outputs marked optional
// may be null. Targets need not be sorted: each is placed by binary search. Whatever a routine
// cannot handle (too few points, abscissae or knots that do not rise, a target outside a domain
// that has one, a degree it cannot fit, a null array that is needed) throws std::invalid_argument
// with a text that names the routine; nothing ends the process.
//
// "Interval i" is [x[i], x[i+1]]; a target equal to an inner knot belongs to the interval that
// starts there. Routines that extrapolate continue the first and the last piece's polynomial.
// Thread-safety: no shared state; safe from any thread on separate arrays.
#pragma once

#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

// Value, first and second derivative at the targets te of the cubic spline through (t, y) whose
// second derivatives at the knots are ypp, as spline_cubic_set returns them. On interval i, with
// h = t[i+1] - t[i] and u = te - t[i], the spline is the cubic
//   y[i] + u ((y[i+1] - y[i]) / h - (2 ypp[i] + ypp[i+1]) h / 6) + u^2 ypp[i] / 2
//        + u^3 (ypp[i+1] - ypp[i]) / (6 h).
// Defined for every real target: beyond the knots the first and last cubic continue. n >= 2;
// first and second are optional.
KELTO_HYPERSPECTRAL_EXPORT void spline_cubic_val(int n, const double* t, const double* y,
                                                 const double* ypp, int ne, const double* te,
                                                 double* value, double* first, double* second);

// The cubic Bezier curve of the four control values p[0..3] at the parameters t:
//   B(t) = (1 - t)^3 p[0] + 3 (1 - t)^2 t p[1] + 3 (1 - t) t^2 p[2] + t^3 p[3],  0 <= t <= 1.
// It starts at p[0] and ends at p[3], tangent there to p[1] - p[0] and p[3] - p[2]. Parameters
// outside [0, 1] (or NaN) are refused. A curve in the plane takes one call per coordinate.
KELTO_HYPERSPECTRAL_EXPORT void spline_bezier_val(const double* p, int ne, const double* t,
                                                  double* value);

// The piecewise cubic Bezier curve of n = 3k + 1 control values (k >= 1) at the global parameters
// s in [0, k]: segment j is the cubic Bezier curve of p[3j..3j+3] with local parameter s - j, and
// an integer s = j < k belongs to segment j. Consecutive segments share p[3j], so the curve is
// continuous; its derivative is continuous at the joint 3j only where p[3j] lies midway between
// p[3j-1] and p[3j+1]. Parameters outside [0, k] (or NaN) are refused.
KELTO_HYPERSPECTRAL_EXPORT void spline_bezier_piecewise_val(int n, const double* p, int ne,
                                                            const double* s, double* value);

// The clamped cubic B-spline function sum_j c[j] B_j(x) on the breakpoints b[0..n-1], n >= 2:
// its knot vector repeats b[0] and b[n-1] four times and takes b[1..n-2] once each as interior
// knots, n + 6 knots in all, so there are n + 2 coefficients c[0..n+1]. It starts at c[0], ends
// at c[n+1], is twice continuously differentiable at the interior knots and does not in general
// pass through its coefficients. Defined on [b[0], b[n-1]] only; other targets (or NaN) are
// refused.
KELTO_HYPERSPECTRAL_EXPORT void spline_bspline_val(int n, const double* b, const double* c, int ne,
                                                   const double* xe, double* value);

// Set-up of the cubic Hermite interpolant through (x[i], y[i]) with first derivatives yp[i],
// n >= 2: on interval i it is the one cubic with those values and derivatives at both ends. The
// result holds 4 (n - 1) coefficients, those of interval i at 4i..4i+3, of the powers 0 to 3 of
// u = x - x[i]. It is continuous with a continuous first derivative; nothing more is imposed.
KELTO_HYPERSPECTRAL_EXPORT double* spline_hermite_set(int n, const double* x, const double* y,
                                                      const double* yp);

// Value and first derivative at the targets xe of the Hermite interpolant whose coefficients c
// spline_hermite_set made on the same n knots x. Beyond the knots the first and last cubic
// continue. first is optional.
KELTO_HYPERSPECTRAL_EXPORT void spline_hermite_val(int n, const double* x, const double* c, int ne,
                                                   const double* xe, double* value, double* first);

// The Overhauser curve through (x[i], y[i]), n >= 3, at the targets xe. On an inner interval
// i (1 <= i <= n - 3) it is the linear blend (1 - s) L(x) + s R(x), s = (x - x[i]) / (x[i+1] -
// x[i]), of the parabola L through the points i - 1, i, i + 1 and the parabola R through i, i + 1,
// i + 2. On the first interval it is the parabola through the first three points, on the last
// interval that through the last three; with three points it is that one parabola everywhere.
// Beyond the knots the end parabolas continue. It passes through every point exactly and has a
// continuous first derivative.
KELTO_HYPERSPECTRAL_EXPORT void spline_overhauser_val(int n, const double* x, const double* y,
                                                      int ne, const double* xe, double* value);

// The slopes d[0..n-1] at the knots of the shape-preserving piecewise cubic Hermite interpolant
// (PCHIP) through (x[i], y[i]), n >= 2. With h[k] = x[k+1] - x[k] and m[k] = (y[k+1] - y[k]) /
// h[k]: at an inner knot k, d[k] = 0 where m[k-1] and m[k] differ in sign or either is zero, and
// otherwise the weighted harmonic mean
//   (w1 + w2) / d[k] = w1 / m[k-1] + w2 / m[k],  w1 = 2 h[k] + h[k-1],  w2 = h[k] + 2 h[k-1].
// At the first knot d[0] = ((2 h[0] + h[1]) m[0] - h[0] m[1]) / (h[0] + h[1]), set to 0 if its sign
// differs from that of m[0], and to 3 m[0] if m[0] and m[1] differ in sign and |d[0]| > 3 |m[0]|;
// the last knot mirrors this. Two points give the straight line. Monotone data give a monotone
// curve, and no piece overshoots its two data values.
KELTO_HYPERSPECTRAL_EXPORT double* spline_pchip_set(int n, const double* x, const double* y);

// Value and first derivative at the targets xe of the piecewise cubic Hermite curve through
// (x[i], y[i]) with slopes d[i], as spline_pchip_set returns them. Beyond the knots the first and
// last cubic continue. first is optional.
KELTO_HYPERSPECTRAL_EXPORT void spline_pchip_val(int n, const double* x, const double* y,
                                                 const double* d, int ne, const double* xe,
                                                 double* value, double* first);

// The coefficients of the cubic spline that fits the n data (x[i], y[i]) best in least squares,
// with the nk interior knots k and the clamped boundary knots x[0] and x[n-1]. x may repeat values
// but must not fall; x[0] < x[n-1]. The knots must rise strictly inside (x[0], x[n-1]). The result
// holds nk + 4 coefficients: evaluate it with spline_bspline_val on the nk + 2 breakpoints x[0],
// k[0..nk-1], x[n-1]. The fit is refused when no choice of distinct data abscissae puts one inside
// the support of every B-spline (Schoenberg-Whitney), as when the knots leave an interval without
// data: the spline would then not be unique.
KELTO_HYPERSPECTRAL_EXPORT double* spline_lsq_set(int n, const double* x, const double* y, int nk,
                                                  const double* k);

// The coefficients a[0..degree] of the polynomial sum_j a[j] (x - centre)^j of the given degree
// that fits the n data (x[i], y[i]) best in least squares. The abscissae, in any order, are
// centred on their mean, which is written to *centre, to keep the powers well scaled. Needs at
// least degree + 1 distinct abscissae; degree >= 0.
KELTO_HYPERSPECTRAL_EXPORT double* polynomial_lsq_set(int n, const double* x, const double* y,
                                                      int degree, double* centre);

// Values at the targets xe of the polynomial sum_j a[j] (x - centre)^j, degree >= 0, as
// polynomial_lsq_set returns it. Defined for every real target.
KELTO_HYPERSPECTRAL_EXPORT void polynomial_lsq_val(int degree, const double* a, double centre,
                                                   int ne, const double* xe, double* value);

}  // namespace kelto::hyperspectral

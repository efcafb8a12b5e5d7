// Resampling of a curve given at sample points to other points by a cubic spline. Measured filter
// responses and component transmissions each come on a grid of their own; peak detection and the
// spectral correction bring them to the grid of the computation with it.
// Thread-safety: no state between calls; one object serves any number of threads.
#pragma once

#include <cstdint>
#include <vector>

#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

// One cubic piece: S(t) = a + b dx + c dx^2 + d dx^3 with dx = t - x. c is half the second
// derivative at x and d a sixth of the third. A spline over n points has n - 1 pieces.
struct SplineSegment {
  double a;
  double b;
  double c;
  double d;
  double x;
};

// Nothing is cached: each call solves the spline anew, in time linear in the point counts. The
// operations could be static but are called on an instance.
//
// Grids are checked before a spline is solved: sample points that do not rise strictly, or too
// few of them, throw std::invalid_argument, so that spline_cubic_set, which would end the process
// on such a grid, only ever sees valid ones.
class KELTO_HYPERSPECTRAL_EXPORT SplineInterpolation {
 public:
  enum eType : std::int32_t {
    // Second derivative zero at both ends.
    IT_TARVIK_NATURAL_CUBIC = 0,
    // Third derivative continuous across the second and the second-to-last point; reproduces
    // any cubic polynomial exactly. Needs four points for a finite result: with three the two end
    // conditions coincide and every segment is NaN. Two points give the straight line.
    IT_NOT_A_KNOT_CUBIC = 1,
  };

  // The n - 1 segments through (x[i], y[i]). Throws std::invalid_argument "Unknown interpolation
  // type." for another type, std::length_error for n = 0 with the natural kind, and
  // std::invalid_argument for fewer than two points or x not rising strictly.
  std::vector<SplineSegment> ComputeSplines(const double* x, const double* y, unsigned long n,
                                            const eType& type) const;
  std::vector<SplineSegment> _ComputeTarvikNaturalCubic(const double* x, const double* y,
                                                        unsigned long n) const;
  std::vector<SplineSegment> _ComputeNotAKnotCubic(const double* x, const double* y,
                                                   unsigned long n) const;

  // out[k] := the spline at xi[k], k < ni. The spline is solved even for ni = 0, so that bad
  // input fails in every case.
  //
  // Targets must rise: one cursor walks forward through the segments and never back, so a target
  // behind it is evaluated on the later segment's cubic. A target equal to a point belongs to the
  // segment that starts there. Below x[0] the result is 0.0 unless extrapolate is set, then it is
  // the first cubic's value. Above x[n-1] it is always the last cubic's value, whatever
  // extrapolate says. With clamp every negative result becomes 0.0 at the end; NaN stays.
  void Process(double* out, const double* x, const double* y, const double* xi, unsigned long n,
               unsigned long ni, const eType& type, const bool& extrapolate,
               const bool& clamp) const;

  // out gets the size of xi. An empty y only resizes out (new elements 0.0) and computes nothing;
  // otherwise new elements start as y[0] and the pointer form fills them when xi is not empty.
  // Throws std::invalid_argument when y is not empty and its size differs from that of x.
  void Process(std::vector<double>& out, const std::vector<double>& x, const std::vector<double>& y,
               const std::vector<double>& xi, const eType& type, const bool& extrapolate,
               const bool& clamp) const;
};

}  // namespace kelto::hyperspectral

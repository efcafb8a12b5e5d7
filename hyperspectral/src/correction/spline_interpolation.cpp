#include <kelto/hyperspectral/correction/spline_interpolation.h>

#include <climits>
#include <memory>
#include <stdexcept>
#include <string>

#include <kelto/common/strings.h>
#include <kelto/hyperspectral/correction/spline.h>

namespace kelto::hyperspectral {

namespace {

using common::Strings::FormatDouble;

// The grid conditions under which both solvers are defined; spline_cubic_set would end the
// process on a grid that breaks them.
void CheckGrid(const double* x, unsigned long n) {
  if (n < 2) {
    throw std::invalid_argument(
        "SplineInterpolation: a spline needs at least 2 sample points, not " + std::to_string(n));
  }
  for (unsigned long i = 0; i + 1 < n; ++i) {
    if (!(x[i] < x[i + 1])) {
      throw std::invalid_argument(
          "SplineInterpolation: the sample points must rise strictly, but x[" + std::to_string(i) +
          "] = " + FormatDouble(x[i]) + " and x[" + std::to_string(i + 1) +
          "] = " + FormatDouble(x[i + 1]));
    }
  }
}

}  // namespace

std::vector<SplineSegment> SplineInterpolation::ComputeSplines(const double* x, const double* y,
                                                               unsigned long n,
                                                               const eType& type) const {
  switch (type) {
    case IT_TARVIK_NATURAL_CUBIC:
      return _ComputeTarvikNaturalCubic(x, y, n);
    case IT_NOT_A_KNOT_CUBIC:
      return _ComputeNotAKnotCubic(x, y, n);
  }
  throw std::invalid_argument("Unknown interpolation type.");
}

std::vector<SplineSegment> SplineInterpolation::_ComputeTarvikNaturalCubic(const double* x,
                                                                           const double* y,
                                                                           unsigned long n) const {
  if (n == 0) {
    // The segment count n - 1 wraps round; this is what sizing a vector by it reports.
    throw std::length_error("cannot create std::vector larger than max_size()");
  }
  CheckGrid(x, n);
  const unsigned long m = n - 1;
  std::vector<double> h(m), alpha(m, 0.0), l(m), mu(m), z(m), b(m), c(n), d(m);
  for (unsigned long i = 0; i < m; ++i) {
    h[i] = x[i + 1] - x[i];
  }
  for (unsigned long i = 1; i < m; ++i) {
    alpha[i] = 3.0 * (y[i + 1] - y[i]) / h[i] - 3.0 * (y[i] - y[i - 1]) / h[i - 1];
  }
  l[0] = 1.0;
  mu[0] = 0.0;
  z[0] = 0.0;
  for (unsigned long i = 1; i < m; ++i) {
    l[i] = 2.0 * (x[i + 1] - x[i - 1]) - h[i - 1] * mu[i - 1];
    mu[i] = h[i] / l[i];
    z[i] = (alpha[i] - h[i - 1] * z[i - 1]) / l[i];
  }
  c[m] = 0.0;
  for (unsigned long j = m; j-- > 0;) {
    c[j] = z[j] - mu[j] * c[j + 1];
    b[j] = (y[j + 1] - y[j]) / h[j] - h[j] * (c[j + 1] + 2.0 * c[j]) / 3.0;
    d[j] = (c[j + 1] - c[j]) / (3.0 * h[j]);
  }
  std::vector<SplineSegment> segments(m);
  for (unsigned long i = 0; i < m; ++i) {
    segments[i] = {y[i], b[i], c[i], d[i], x[i]};
  }
  return segments;
}

std::vector<SplineSegment> SplineInterpolation::_ComputeNotAKnotCubic(const double* x,
                                                                      const double* y,
                                                                      unsigned long n) const {
  CheckGrid(x, n);
  if (n > static_cast<unsigned long>(INT_MAX)) {
    throw std::invalid_argument("SplineInterpolation: too many sample points for a spline: " +
                                std::to_string(n));
  }
  const std::unique_ptr<double[]> m(spline_cubic_set(static_cast<int>(n), x, y, 3, 0.0, 3, 0.0));
  std::vector<SplineSegment> segments(n - 1);
  for (unsigned long i = 0; i + 1 < n; ++i) {
    const double h = x[i + 1] - x[i];
    segments[i] = {y[i], (y[i + 1] - y[i]) / h - (2.0 * m[i] + m[i + 1]) * h / 6.0, m[i] * 0.5,
                   (m[i + 1] - m[i]) / (h * 6.0), x[i]};
  }
  return segments;
}

void SplineInterpolation::Process(double* out, const double* x, const double* y, const double* xi,
                                  unsigned long n, unsigned long ni, const eType& type,
                                  const bool& extrapolate, const bool& clamp) const {
  const std::vector<SplineSegment> segments = ComputeSplines(x, y, n, type);
  std::size_t cursor = 0;
  for (unsigned long k = 0; k < ni; ++k) {
    const double t = xi[k];
    if (!extrapolate && t < segments.front().x) {
      out[k] = 0.0;
      continue;
    }
    while (cursor + 1 < segments.size() && !(t < segments[cursor + 1].x)) {
      ++cursor;
    }
    const SplineSegment& s = segments[cursor];
    const double dx = t - s.x;
    out[k] = (dx * dx * dx) * s.d + ((s.b * dx + s.a) + s.c * (dx * dx));
  }
  if (clamp) {
    for (unsigned long k = 0; k < ni; ++k) {
      if (out[k] < 0.0) {
        out[k] = 0.0;
      }
    }
  }
}

void SplineInterpolation::Process(std::vector<double>& out, const std::vector<double>& x,
                                  const std::vector<double>& y, const std::vector<double>& xi,
                                  const eType& type, const bool& extrapolate,
                                  const bool& clamp) const {
  if (y.empty()) {
    out.resize(xi.size(), 0.0);
    return;
  }
  if (y.size() != x.size()) {
    throw std::invalid_argument("SplineInterpolation: " + std::to_string(y.size()) +
                                " values for " + std::to_string(x.size()) + " sample points");
  }
  out.resize(xi.size(), y[0]);
  if (!xi.empty()) {
    Process(out.data(), x.data(), y.data(), xi.data(), x.size(), xi.size(), type, extrapolate,
            clamp);
  }
}

}  // namespace kelto::hyperspectral

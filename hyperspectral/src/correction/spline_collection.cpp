#include <kelto/hyperspectral/correction/spline_collection.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <Eigen/Dense>

#include <kelto/common/strings.h>

namespace kelto::hyperspectral {
namespace {

[[noreturn]] void Refuse(const char* routine, const std::string& what) {
  throw std::invalid_argument(std::string(routine) + ": " + what);
}

using common::Strings::FormatDouble;

std::string Element(const char* name, std::size_t i, double v) {
  return std::string(name) + "[" + std::to_string(i) + "] = " + FormatDouble(v);
}

void RequireArray(const char* routine, const char* name, const void* array) {
  if (array == nullptr) {
    Refuse(routine, std::string("the array ") + name + " is null");
  }
}

void RequireCount(const char* routine, int n, int least, const char* what) {
  if (n < least) {
    Refuse(routine,
           "needs at least " + std::to_string(least) + " " + what + ", got " + std::to_string(n));
  }
}

void RequireFinite(const char* routine, const char* name, int n, const double* x) {
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    if (!std::isfinite(x[i])) {
      Refuse(routine, "the abscissa " + Element(name, i, x[i]) + " is not finite");
    }
  }
}

// At least `least` finite abscissae in x that rise strictly.
void RequireKnots(const char* routine, const char* name, int n, int least, const double* x) {
  RequireCount(routine, n, least, "points");
  RequireArray(routine, name, x);
  RequireFinite(routine, name, n, x);
  for (std::size_t i = 0; i + 1 < static_cast<std::size_t>(n); ++i) {
    if (!(x[i] < x[i + 1])) {
      Refuse(routine, std::string("the abscissae ") + name + " must rise strictly, but " +
                          Element(name, i, x[i]) + " is not below " +
                          Element(name, i + 1, x[i + 1]));
    }
  }
}

void RequireTargets(const char* routine, int ne, const double* targets, const double* value) {
  if (ne < 0) {
    Refuse(routine, "the number of targets must not be negative, got " + std::to_string(ne));
  }
  if (ne > 0) {
    RequireArray(routine, "of targets", targets);
    RequireArray(routine, "of values", value);
  }
}

// The interval [x[i], x[i+1]] that evaluates v: the one that starts at or below v, the first for
// targets below the knots and the last for targets at or above the last knot (and for NaN).
std::size_t Interval(int n, const double* x, double v) {
  const auto last = static_cast<std::size_t>(n) - 2;
  const auto above = static_cast<std::size_t>(std::upper_bound(x, x + n, v) - x);
  return above == 0 ? 0 : std::min(above - 1, last);
}

double Bezier(const double* p, double t) {
  const double s = 1.0 - t;
  return s * s * s * p[0] + 3.0 * s * s * t * p[1] + 3.0 * s * t * t * p[2] + t * t * t * p[3];
}

// Coefficients of the powers 0 to 3 of u = x - x[i] of the cubic with values y0, y1 and slopes
// d0, d1 at the ends of an interval of width h.
void HermiteCubic(double h, double y0, double y1, double d0, double d1, double* c) {
  const double slope = (y1 - y0) / h;
  c[0] = y0;
  c[1] = d0;
  c[2] = (3.0 * slope - 2.0 * d0 - d1) / h;
  c[3] = (d0 + d1 - 2.0 * slope) / (h * h);
}

void EvaluateCubic(const double* c, double u, double* value, double* first) {
  *value = c[0] + u * (c[1] + u * (c[2] + u * c[3]));
  if (first != nullptr) {
    *first = c[1] + u * (2.0 * c[2] + 3.0 * u * c[3]);
  }
}

// The knot vector of the clamped cubic B-splines on breakpoints b[0..n-1]: b[0] and b[n-1] four
// times each, the inner breakpoints once.
std::vector<double> ClampedKnots(int n, const double* b) {
  std::vector<double> knots(4, b[0]);
  knots.insert(knots.end(), b + 1, b + n - 1);
  knots.insert(knots.end(), 4, b[n - 1]);
  return knots;
}

// N[r] := B_{l-3+r}(v), r = 0..3: the four cubic B-splines that can be nonzero on the knot span
// [knots[l], knots[l+1]), by the Cox-de Boor recurrence. The span must not be empty.
void CubicBasis(const std::vector<double>& knots, std::size_t l, double v, double* N) {
  double left[4];
  double right[4];
  N[0] = 1.0;
  for (std::size_t j = 1; j <= 3; ++j) {
    left[j] = v - knots[l + 1 - j];
    right[j] = knots[l + j] - v;
    double saved = 0.0;
    for (std::size_t r = 0; r < j; ++r) {
      const double temp = N[r] / (right[r + 1] + left[j - r]);
      N[r] = saved + right[r + 1] * temp;
      saved = left[j - r] * temp;
    }
    N[j] = saved;
  }
}

// The parabola through the points a, a + 1 and a + 2, in Lagrange form: at each of its abscissae
// one weight is exactly 1 and the others exactly 0, so that it reproduces the data bit for bit.
double Parabola(const double* x, const double* y, std::size_t a, double v) {
  const double x0 = x[a];
  const double x1 = x[a + 1];
  const double x2 = x[a + 2];
  const double l0 = ((v - x1) * (v - x2)) / ((x0 - x1) * (x0 - x2));
  const double l1 = ((v - x0) * (v - x2)) / ((x1 - x0) * (x1 - x2));
  const double l2 = ((v - x0) * (v - x1)) / ((x2 - x0) * (x2 - x1));
  return y[a] * l0 + y[a + 1] * l1 + y[a + 2] * l2;
}

int Sign(double v) {
  return (v > 0.0) - (v < 0.0);
}

// The end slope of the PCHIP: the three-point estimate, kept from overshooting.
double PchipEnd(double h0, double h1, double m0, double m1) {
  const double d = ((2.0 * h0 + h1) * m0 - h0 * m1) / (h0 + h1);
  if (Sign(d) != Sign(m0)) {
    return 0.0;
  }
  if (Sign(m0) != Sign(m1) && std::fabs(d) > 3.0 * std::fabs(m0)) {
    return 3.0 * m0;
  }
  return d;
}

}  // namespace

void spline_cubic_val(int n, const double* t, const double* y, const double* ypp, int ne,
                      const double* te, double* value, double* first, double* second) {
  constexpr const char* kName = "spline_cubic_val";
  RequireKnots(kName, "t", n, 2, t);
  RequireArray(kName, "y", y);
  RequireArray(kName, "ypp", ypp);
  RequireTargets(kName, ne, te, value);
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    const std::size_t i = Interval(n, t, te[k]);
    const double h = t[i + 1] - t[i];
    const double u = te[k] - t[i];
    const double slope = (y[i + 1] - y[i]) / h - (2.0 * ypp[i] + ypp[i + 1]) * h / 6.0;
    const double third = (ypp[i + 1] - ypp[i]) / h;
    value[k] = y[i] + u * (slope + u * (0.5 * ypp[i] + u * third / 6.0));
    if (first != nullptr) {
      first[k] = slope + u * (ypp[i] + 0.5 * u * third);
    }
    if (second != nullptr) {
      second[k] = ypp[i] + u * third;
    }
  }
}

void spline_bezier_val(const double* p, int ne, const double* t, double* value) {
  constexpr const char* kName = "spline_bezier_val";
  RequireArray(kName, "p", p);
  RequireTargets(kName, ne, t, value);
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    if (!(t[k] >= 0.0 && t[k] <= 1.0)) {
      Refuse(kName, "the parameter " + Element("t", k, t[k]) + " is outside [0, 1]");
    }
    value[k] = Bezier(p, t[k]);
  }
}

void spline_bezier_piecewise_val(int n, const double* p, int ne, const double* s, double* value) {
  constexpr const char* kName = "spline_bezier_piecewise_val";
  if (n < 4 || (n - 1) % 3 != 0) {
    Refuse(kName, "needs 3k + 1 control values with k >= 1, got " + std::to_string(n));
  }
  RequireArray(kName, "p", p);
  RequireTargets(kName, ne, s, value);
  const int segments = (n - 1) / 3;
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    if (!(s[k] >= 0.0 && s[k] <= segments)) {
      Refuse(kName, "the parameter " + Element("s", k, s[k]) + " is outside [0, " +
                        std::to_string(segments) + "]");
    }
    const int j = std::min(static_cast<int>(s[k]), segments - 1);
    value[k] = Bezier(p + 3 * j, s[k] - j);
  }
}

void spline_bspline_val(int n, const double* b, const double* c, int ne, const double* xe,
                        double* value) {
  constexpr const char* kName = "spline_bspline_val";
  RequireKnots(kName, "b", n, 2, b);
  RequireArray(kName, "c", c);
  RequireTargets(kName, ne, xe, value);
  const std::vector<double> knots = ClampedKnots(n, b);
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    if (!(xe[k] >= b[0] && xe[k] <= b[n - 1])) {
      Refuse(kName, "the target " + Element("xe", k, xe[k]) + " is outside [" + FormatDouble(b[0]) +
                        ", " + FormatDouble(b[n - 1]) + "]");
    }
    const std::size_t i = Interval(n, b, xe[k]);
    double N[4];
    CubicBasis(knots, i + 3, xe[k], N);
    value[k] = c[i] * N[0] + c[i + 1] * N[1] + c[i + 2] * N[2] + c[i + 3] * N[3];
  }
}

double* spline_hermite_set(int n, const double* x, const double* y, const double* yp) {
  constexpr const char* kName = "spline_hermite_set";
  RequireKnots(kName, "x", n, 2, x);
  RequireArray(kName, "y", y);
  RequireArray(kName, "yp", yp);
  auto* c = new double[4 * (static_cast<std::size_t>(n) - 1)];
  for (std::size_t i = 0; i + 1 < static_cast<std::size_t>(n); ++i) {
    HermiteCubic(x[i + 1] - x[i], y[i], y[i + 1], yp[i], yp[i + 1], c + 4 * i);
  }
  return c;
}

void spline_hermite_val(int n, const double* x, const double* c, int ne, const double* xe,
                        double* value, double* first) {
  constexpr const char* kName = "spline_hermite_val";
  RequireKnots(kName, "x", n, 2, x);
  RequireArray(kName, "c", c);
  RequireTargets(kName, ne, xe, value);
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    const std::size_t i = Interval(n, x, xe[k]);
    EvaluateCubic(c + 4 * i, xe[k] - x[i], value + k, first == nullptr ? nullptr : first + k);
  }
}

void spline_overhauser_val(int n, const double* x, const double* y, int ne, const double* xe,
                           double* value) {
  constexpr const char* kName = "spline_overhauser_val";
  RequireKnots(kName, "x", n, 3, x);
  RequireArray(kName, "y", y);
  RequireTargets(kName, ne, xe, value);
  const auto last = static_cast<std::size_t>(n) - 2;
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    const double v = xe[k];
    const std::size_t i = Interval(n, x, v);
    if (i == 0) {
      value[k] = Parabola(x, y, 0, v);
    } else if (i == last) {
      value[k] = Parabola(x, y, last - 1, v);
    } else {
      // s is exactly 0 at x[i] and exactly 1 at x[i+1], so each knot takes the value of the one
      // parabola through it, which is exact there.
      const double s = (v - x[i]) / (x[i + 1] - x[i]);
      value[k] = (1.0 - s) * Parabola(x, y, i - 1, v) + s * Parabola(x, y, i, v);
    }
  }
}

double* spline_pchip_set(int n, const double* x, const double* y) {
  constexpr const char* kName = "spline_pchip_set";
  RequireKnots(kName, "x", n, 2, x);
  RequireArray(kName, "y", y);
  const auto size = static_cast<std::size_t>(n);
  std::vector<double> h(size - 1);
  std::vector<double> m(size - 1);
  for (std::size_t k = 0; k + 1 < size; ++k) {
    h[k] = x[k + 1] - x[k];
    m[k] = (y[k + 1] - y[k]) / h[k];
  }
  auto* d = new double[size];
  if (size == 2) {
    d[0] = d[1] = m[0];
    return d;
  }
  for (std::size_t k = 1; k + 1 < size; ++k) {
    if (Sign(m[k - 1]) != Sign(m[k]) || m[k - 1] == 0.0 || m[k] == 0.0) {
      d[k] = 0.0;
    } else {
      const double w1 = 2.0 * h[k] + h[k - 1];
      const double w2 = h[k] + 2.0 * h[k - 1];
      d[k] = (w1 + w2) / (w1 / m[k - 1] + w2 / m[k]);
    }
  }
  d[0] = PchipEnd(h[0], h[1], m[0], m[1]);
  d[size - 1] = PchipEnd(h[size - 2], h[size - 3], m[size - 2], m[size - 3]);
  return d;
}

void spline_pchip_val(int n, const double* x, const double* y, const double* d, int ne,
                      const double* xe, double* value, double* first) {
  constexpr const char* kName = "spline_pchip_val";
  RequireKnots(kName, "x", n, 2, x);
  RequireArray(kName, "y", y);
  RequireArray(kName, "d", d);
  RequireTargets(kName, ne, xe, value);
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    const std::size_t i = Interval(n, x, xe[k]);
    double c[4];
    HermiteCubic(x[i + 1] - x[i], y[i], y[i + 1], d[i], d[i + 1], c);
    EvaluateCubic(c, xe[k] - x[i], value + k, first == nullptr ? nullptr : first + k);
  }
}

double* spline_lsq_set(int n, const double* x, const double* y, int nk, const double* k) {
  constexpr const char* kName = "spline_lsq_set";
  RequireCount(kName, n, 2, "points");
  RequireArray(kName, "x", x);
  RequireArray(kName, "y", y);
  RequireFinite(kName, "x", n, x);
  const auto size = static_cast<std::size_t>(n);
  for (std::size_t i = 0; i + 1 < size; ++i) {
    if (x[i + 1] < x[i]) {
      Refuse(kName, "the abscissae x must not fall, but " + Element("x", i, x[i]) + " is above " +
                        Element("x", i + 1, x[i + 1]));
    }
  }
  if (!(x[0] < x[size - 1])) {
    Refuse(kName, "the abscissae x must span an interval, but all are " + FormatDouble(x[0]));
  }
  if (nk < 0) {
    Refuse(kName, "the number of interior knots must not be negative, got " + std::to_string(nk));
  }
  std::vector<double> breakpoints{x[0]};
  if (nk > 0) {
    RequireKnots(kName, "k", nk, 1, k);
    if (!(x[0] < k[0] && k[nk - 1] < x[size - 1])) {
      Refuse(kName, "the interior knots must lie inside (" + FormatDouble(x[0]) + ", " +
                        FormatDouble(x[size - 1]) + "), but run from " + FormatDouble(k[0]) +
                        " to " + FormatDouble(k[nk - 1]));
    }
    breakpoints.insert(breakpoints.end(), k, k + nk);
  }
  breakpoints.push_back(x[size - 1]);
  const int nb = nk + 2;
  const std::vector<double> knots = ClampedKnots(nb, breakpoints.data());
  const auto m = static_cast<std::size_t>(nk) + 4;

  // Schoenberg-Whitney: B-spline j needs its own data abscissa, distinct from and above the one
  // of B-spline j - 1, where it is nonzero: inside (knots[j], knots[j+4]), or at the boundary for
  // the first and the last B-spline. The supports move right with j, so taking the first fitting
  // abscissa each time finds such a choice whenever one exists.
  std::size_t p = 0;
  double used = -std::numeric_limits<double>::infinity();
  for (std::size_t j = 0; j < m; ++j) {
    const double low = knots[j];
    const double high = knots[j + 4];
    while (p < size && (x[p] <= used || x[p] < low || (x[p] == low && j != 0))) {
      ++p;
    }
    if (p == size || x[p] > high || (x[p] == high && j + 1 != m)) {
      Refuse(kName, "the B-spline on [" + FormatDouble(low) + ", " + FormatDouble(high) +
                        "] has no data of its own (Schoenberg-Whitney): the knots leave an "
                        "interval with too few distinct abscissae");
    }
    used = x[p++];
  }

  // Least squares by Givens rotations into a banded upper triangle: row j of r holds columns j to
  // j + 3. The rows of the collocation matrix come in rising order of their first column, as x
  // rises, so a rotation never fills in beyond the band and nothing of size n times m is formed.
  std::vector<double> r(4 * m, 0.0);
  std::vector<double> z(m, 0.0);
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t first = Interval(nb, breakpoints.data(), x[i]);
    double row[4];
    CubicBasis(knots, first + 3, x[i], row);
    double rhs = y[i];
    for (std::size_t q = 0; q < 4; ++q) {
      if (row[q] == 0.0) {
        continue;
      }
      const std::size_t j = first + q;
      double* rj = &r[4 * j];
      const double rho = std::hypot(rj[0], row[q]);
      const double cs = rj[0] / rho;
      const double sn = row[q] / rho;
      rj[0] = rho;
      for (std::size_t t = 1; q + t < 4; ++t) {
        const double a = rj[t];
        rj[t] = cs * a + sn * row[q + t];
        row[q + t] = cs * row[q + t] - sn * a;
      }
      const double zj = z[j];
      z[j] = cs * zj + sn * rhs;
      rhs = cs * rhs - sn * zj;
    }
  }
  auto* c = new double[m];
  for (std::size_t j = m; j-- > 0;) {
    double sum = z[j];
    for (std::size_t t = 1; t < 4 && j + t < m; ++t) {
      sum -= r[4 * j + t] * c[j + t];
    }
    c[j] = sum / r[4 * j];
  }
  return c;
}

double* polynomial_lsq_set(int n, const double* x, const double* y, int degree, double* centre) {
  constexpr const char* kName = "polynomial_lsq_set";
  if (degree < 0) {
    Refuse(kName, "the degree must not be negative, got " + std::to_string(degree));
  }
  RequireCount(kName, n, 1, "point");
  RequireArray(kName, "x", x);
  RequireArray(kName, "y", y);
  RequireArray(kName, "centre", centre);
  RequireFinite(kName, "x", n, x);
  std::vector<double> sorted(x, x + n);
  std::sort(sorted.begin(), sorted.end());
  const auto distinct = std::unique(sorted.begin(), sorted.end()) - sorted.begin();
  if (distinct <= degree) {
    Refuse(kName, "a polynomial of degree " + std::to_string(degree) + " needs " +
                      std::to_string(degree + 1) + " distinct abscissae, got " +
                      std::to_string(distinct));
  }

  double mean = 0.0;
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    mean += x[i];
  }
  mean /= n;
  Eigen::MatrixXd powers(n, degree + 1);
  for (Eigen::Index i = 0; i < n; ++i) {
    powers(i, 0) = 1.0;
    for (Eigen::Index j = 1; j <= degree; ++j) {
      powers(i, j) = powers(i, j - 1) * (x[i] - mean);
    }
  }
  const Eigen::VectorXd a =
      powers.colPivHouseholderQr().solve(Eigen::Map<const Eigen::VectorXd>(y, n));
  *centre = mean;
  auto* result = new double[static_cast<std::size_t>(degree) + 1];
  std::copy(a.data(), a.data() + a.size(), result);
  return result;
}

void polynomial_lsq_val(int degree, const double* a, double centre, int ne, const double* xe,
                        double* value) {
  constexpr const char* kName = "polynomial_lsq_val";
  if (degree < 0) {
    Refuse(kName, "the degree must not be negative, got " + std::to_string(degree));
  }
  RequireArray(kName, "a", a);
  RequireTargets(kName, ne, xe, value);
  for (std::size_t k = 0; k < static_cast<std::size_t>(ne); ++k) {
    const double u = xe[k] - centre;
    double sum = a[degree];
    for (int j = degree - 1; j >= 0; --j) {
      sum = sum * u + a[j];
    }
    value[k] = sum;
  }
}

}  // namespace kelto::hyperspectral

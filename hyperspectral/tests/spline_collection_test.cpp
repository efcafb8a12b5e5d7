#include <kelto/hyperspectral/correction/spline_collection.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelto/hyperspectral/correction/spline.h>

#include <kelto/test_support/reference_data.h>

namespace kelto::hyperspectral {
namespace {

using Values = std::vector<double>;
using Owned = std::unique_ptr<double[]>;
using kelto::testing::ReferenceRecord;

// The reference records of one kind ("grid", "least_squares", "bezier") of
// data/spline_collection.txt, computed by SciPy and NumPy (data/make_spline_collection_fixtures.py,
// which says what each row holds).
std::vector<ReferenceRecord> References(const std::string& kind) {
  static const std::vector<ReferenceRecord> all =
      kelto::testing::ReadReferenceRecords(KELTO_TEST_DATA_DIR "/spline_collection.txt");
  std::vector<ReferenceRecord> records;
  std::copy_if(all.begin(), all.end(), std::back_inserter(records),
               [&](const ReferenceRecord& r) { return r.kind == kind; });
  return records;
}

int Count(const Values& v) {
  return static_cast<int>(v.size());
}

double Largest(const Values& v) {
  double largest = 0.0;
  for (double e : v) {
    largest = std::max(largest, std::fabs(e));
  }
  return largest;
}

// Every entry within 1e-12 times scale, by default the largest magnitude of the reference.
void ExpectAgrees(const Values& actual, const Values& expected, const std::string& what,
                  double scale = -1.0) {
  ASSERT_EQ(actual.size(), expected.size()) << what;
  const double tolerance = 1e-12 * (scale < 0.0 ? Largest(expected) : scale);
  for (std::size_t k = 0; k < expected.size(); ++k) {
    EXPECT_NEAR(actual[k], expected[k], tolerance) << what << ", entry " << k;
  }
}

struct Curve {
  Values value, first, second;
};

Curve Cubic(const Values& x, const Values& y, const Values& xi) {
  const Owned ypp(spline_cubic_set(Count(x), x.data(), y.data(), 3, 0.0, 3, 0.0));
  Curve c{Values(xi.size()), Values(xi.size()), Values(xi.size())};
  spline_cubic_val(Count(x), x.data(), y.data(), ypp.get(), Count(xi), xi.data(), c.value.data(),
                   c.first.data(), c.second.data());
  return c;
}

Curve Hermite(const Values& x, const Values& y, const Values& yp, const Values& xi) {
  const Owned coefficients(spline_hermite_set(Count(x), x.data(), y.data(), yp.data()));
  Curve c{Values(xi.size()), Values(xi.size()), {}};
  spline_hermite_val(Count(x), x.data(), coefficients.get(), Count(xi), xi.data(), c.value.data(),
                     c.first.data());
  return c;
}

Values Pchip(const Values& x, const Values& y, const Values& xi, Values* first = nullptr) {
  const Owned d(spline_pchip_set(Count(x), x.data(), y.data()));
  Values value(xi.size());
  if (first != nullptr) {
    first->resize(xi.size());
  }
  spline_pchip_val(Count(x), x.data(), y.data(), d.get(), Count(xi), xi.data(), value.data(),
                   first == nullptr ? nullptr : first->data());
  return value;
}

Values Overhauser(const Values& x, const Values& y, const Values& xi) {
  Values value(xi.size());
  spline_overhauser_val(Count(x), x.data(), y.data(), Count(xi), xi.data(), value.data());
  return value;
}

Values BSpline(const Values& b, const Values& c, const Values& xi) {
  Values value(xi.size());
  spline_bspline_val(Count(b), b.data(), c.data(), Count(xi), xi.data(), value.data());
  return value;
}

// The least-squares spline at xi, evaluated on the breakpoints x[0], knots, x[n-1].
Values LeastSquaresSpline(const Values& x, const Values& y, const Values& knots, const Values& xi) {
  const Owned c(spline_lsq_set(Count(x), x.data(), y.data(), Count(knots), knots.data()));
  Values breakpoints{x.front()};
  breakpoints.insert(breakpoints.end(), knots.begin(), knots.end());
  breakpoints.push_back(x.back());
  return BSpline(breakpoints, Values(c.get(), c.get() + knots.size() + 4), xi);
}

Values LeastSquaresPolynomial(const Values& x, const Values& y, int degree, const Values& xi) {
  double centre = 0.0;
  const Owned a(polynomial_lsq_set(Count(x), x.data(), y.data(), degree, &centre));
  Values value(xi.size());
  polynomial_lsq_val(degree, a.get(), centre, Count(xi), xi.data(), value.data());
  return value;
}

double ResidualNorm(const Values& fit, const Values& y) {
  double sum = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    sum += (fit[i] - y[i]) * (fit[i] - y[i]);
  }
  return std::sqrt(sum);
}

// Reference values from SciPy on irregular grids of 5 to 200 points; the interpolants extrapolate
// to one target on either side of the knots.
TEST(SplineCollectionVersusScipy, InterpolantsAndTheirDerivatives) {
  for (const ReferenceRecord& g : References("grid")) {
    const std::string& name = g.name;
    const Values &x = g.Row("x"), &y = g.Row("y"), &xi = g.Row("xi");
    const double data = Largest(y);
    const Curve cubic = Cubic(x, y, xi);
    ExpectAgrees(cubic.value, g.Row("cubic"), name + " cubic", data);
    ExpectAgrees(cubic.first, g.Row("cubic_first"), name + " cubic first derivative");
    ExpectAgrees(cubic.second, g.Row("cubic_second"), name + " cubic second derivative");

    const Curve hermite = Hermite(x, y, g.Row("yp"), xi);
    ExpectAgrees(hermite.value, g.Row("hermite"), name + " Hermite", data);
    ExpectAgrees(hermite.first, g.Row("hermite_first"), name + " Hermite derivative");

    ExpectAgrees(Overhauser(x, y, xi), g.Row("overhauser"), name + " Overhauser", data);

    const Owned d(spline_pchip_set(Count(x), x.data(), y.data()));
    ExpectAgrees(Values(d.get(), d.get() + x.size()), g.Row("pchip_slopes"),
                 name + " PCHIP slopes");
    Values first;
    ExpectAgrees(Pchip(x, y, xi, &first), g.Row("pchip"), name + " PCHIP", data);
    ExpectAgrees(first, g.Row("pchip_first"), name + " PCHIP derivative");

    ExpectAgrees(BSpline(x, g.Row("bspline_c"), g.Row("bspline_xi")), g.Row("bspline"),
                 name + " B-spline", Largest(g.Row("bspline_c")));
  }
}

TEST(SplineCollectionVersusScipy, LeastSquaresResidualNorms) {
  for (const ReferenceRecord& s : References("least_squares")) {
    const Values &x = s.Row("x"), &y = s.Row("y");
    const Values fit = LeastSquaresSpline(x, y, s.Row("knots"), x);
    const double residual = s.Row("spline_residual").at(0);
    EXPECT_NEAR(ResidualNorm(fit, y), residual, 1e-10 * residual) << s.name;
    ExpectAgrees(fit, s.Row("spline_fit"), s.name + " spline at the data", Largest(y));
    const Values& polynomial_residuals = s.Row("polynomial_residuals");
    for (int degree = 0; degree < Count(polynomial_residuals); ++degree) {
      const double expected = polynomial_residuals[static_cast<std::size_t>(degree)];
      EXPECT_NEAR(ResidualNorm(LeastSquaresPolynomial(x, y, degree, x), y), expected,
                  1e-10 * expected)
          << s.name << ", degree " << degree;
    }
  }
}

// A single cubic and a piecewise one, each passing through its control values at whole t.
TEST(SplineCollectionBezier, AgreesWithDeCasteljauAndStartsAndEndsAtItsControlValues) {
  const std::vector<ReferenceRecord> curves = References("bezier");
  for (std::size_t c = 0; c < 2; ++c) {
    const Values &p = curves[c].Row("p"), &t = curves[c].Row("t");
    Values value(t.size());
    if (c == 0) {
      spline_bezier_val(p.data(), Count(t), t.data(), value.data());
    } else {
      spline_bezier_piecewise_val(Count(p), p.data(), Count(t), t.data(), value.data());
    }
    ExpectAgrees(value, curves[c].Row("value"), curves[c].name, Largest(p));
    for (std::size_t k = 0; k < t.size(); ++k) {
      if (t[k] == std::floor(t[k])) {
        EXPECT_EQ(value[k], p[3 * static_cast<std::size_t>(t[k])]) << c << ", " << k;
      }
    }
  }
}

// What the grids of the references leave out: three points of the Overhauser spline are the one
// parabola, also beyond them; clamped B-splines sum to one and the curve starts and ends at its end
// coefficients; the least-squares polynomial of degree 0 is the mean, whatever the order of the
// data.
TEST(SplineCollectionExactness, SpecialCasesOutsideTheReferences) {
  ExpectAgrees(Overhauser({0.0, 1.0, 3.0}, {1.0, 2.0, 10.0}, {-1.0, 0.5, 2.0, 4.0}),
               {2.0, 1.25, 5.0, 17.0}, "three points");
  const Values x{-2.0, -1.3, -0.2, 0.5, 1.9, 2.4, 4.0};
  const Values inside{-2.0, -1.0, 0.0, 0.3, 1.9, 3.3, 4.0};
  ExpectAgrees(BSpline(x, Values(x.size() + 2, 0.75), inside), Values(inside.size(), 0.75),
               "B-spline partition of unity");
  const Values ends = BSpline(x, {3.0, 1.0, 4.0, 1.0, 5.0, 9.0, 2.0, 6.0, 5.0}, {-2.0, 4.0});
  EXPECT_DOUBLE_EQ(ends[0], 3.0);
  EXPECT_DOUBLE_EQ(ends[1], 5.0);
  ExpectAgrees(LeastSquaresPolynomial({3.0, -1.0, 3.0, 7.0}, {1.0, 2.0, 4.0, 5.0}, 0, {100.0}),
               {3.0}, "polynomial of degree 0");
}

// Each call throws std::invalid_argument with a text that contains the row's text: too few points,
// abscissae that do not rise, missing arrays, targets outside the domain, and least-squares fits
// that the data cannot determine.
TEST(SplineCollectionRefusals, BadInputIsRefusedWithItsReason) {
  const Values tied{0.0, 1.0, 1.0, 2.0};
  const Values four{0.0, 1.0, 2.0, 3.0};
  const Values xi{0.5};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const Values beyond{0.5, 1.5};
  const Values seven(7, 1.0);
  const Values s{2.0, 2.5};
  Values x(11), y(11);
  for (std::size_t i = 0; i < x.size(); ++i) {
    x[i] = static_cast<double>(i);
    y[i] = std::sin(x[i]);
  }
  double centre = 0.0;
  Values out(2);
  // The calls through the helpers above, bound to their arguments.
  const auto over = [&](Values ox, Values oy) { return std::bind(Overhauser, ox, oy, xi); };
  const auto lsq = [&](Values lx, Values knots) {
    return std::bind(LeastSquaresSpline, lx, y, knots, x);
  };
  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {"spline_pchip_set: needs at least 2 points, got 1",
       [&] { Owned(spline_pchip_set(1, tied.data(), y.data())); }},
      {"spline_hermite_set: the abscissae x must rise strictly, but x[1] = 1 is not below x[2] = 1",
       [&] { Owned(spline_hermite_set(4, tied.data(), y.data(), y.data())); }},
      {"spline_overhauser_val: needs at least 3 points, got 2", over({0.0, 1.0}, {0.0, 1.0})},
      {"x[1] = 2 is not below", over({0.0, 2.0, 1.0}, {0.0, 1.0, 2.0})},
      {"x[1] = nan is not finite", std::bind(Pchip, Values{0.0, nan, 2.0}, four, xi, nullptr)},
      {"spline_bspline_val: the abscissa b[1] = inf is not finite",
       std::bind(BSpline, Values{0.0, inf}, four, xi)},
      {"spline_cubic_val: needs at least 2 points, got 1",
       [&] {
         spline_cubic_val(1, tied.data(), y.data(), y.data(), 1, xi.data(), out.data(), 0, 0);
       }},
      {"spline_cubic_val: the abscissae t must rise strictly",
       [&] {
         spline_cubic_val(4, tied.data(), y.data(), y.data(), 1, xi.data(), out.data(), 0, 0);
       }},
      // Missing arrays and targets outside the domain.
      {"spline_hermite_val: the array c is null",
       [&] { spline_hermite_val(4, four.data(), nullptr, 1, four.data(), out.data(), nullptr); }},
      {"spline_pchip_val: the array of targets is null",
       [&] { spline_pchip_val(4, four.data(), four.data(), four.data(), 1, 0, out.data(), 0); }},
      {"spline_overhauser_val: the array of values is null",
       [&] { spline_overhauser_val(4, four.data(), four.data(), 1, four.data(), nullptr); }},
      {"the number of targets must not be negative, got -1",
       [&] { spline_overhauser_val(4, four.data(), four.data(), -1, four.data(), out.data()); }},
      {"spline_bezier_val: the parameter t[1] = 1.5 is outside [0, 1]",
       [&] { spline_bezier_val(four.data(), 2, beyond.data(), out.data()); }},
      {"t[0] = nan", [&] { spline_bezier_val(four.data(), 1, &nan, out.data()); }},
      {"spline_bezier_piecewise_val: the parameter s[1] = 2.5 is outside [0, 2]",
       [&] { spline_bezier_piecewise_val(7, seven.data(), 2, s.data(), out.data()); }},
      {"needs 3k + 1 control values with k >= 1, got 6",
       [&] { spline_bezier_piecewise_val(6, seven.data(), 1, s.data(), out.data()); }},
      {"got 1", [&] { spline_bezier_piecewise_val(1, seven.data(), 1, s.data(), out.data()); }},
      {"spline_bspline_val: the target xe[1] = 3.5 is outside [0, 3]",
       std::bind(BSpline, four, Values(6, 1.0), Values{3.0, 3.5})},
      {"xe[0] = -1.0000000000000001e-09", std::bind(BSpline, four, Values(6, 1.0), Values{-1e-9})},
      // Knots crowded between two data points leave a B-spline without data of its own.
      {"spline_lsq_set: the B-spline on [4.0999999999999996, 4.5] has no data of its own "
       "(Schoenberg-Whitney)",
       lsq(x, {4.1, 4.2, 4.3, 4.4, 4.5})},
      // More B-splines than distinct abscissae.
      {"Schoenberg-Whitney", std::bind(LeastSquaresSpline, Values{0, 1, 1, 2, 3, 4}, Values(6, 1.0),
                                       Values{1.5, 2.5}, x)},
      {"spline_lsq_set: the abscissae k must rise strictly", lsq(x, {5.0, 3.0})},
      {"the interior knots must lie inside (0, 10), but run from 0 to 3", lsq(x, {0.0, 3.0})},
      {"the abscissae x must not fall, but x[1] = 2 is above x[2] = 1", lsq({0, 2, 1, 3}, {})},
      {"must span an interval, but all are 1", lsq(Values(5, 1.0), {})},
      {"the number of interior knots must not be negative, got -1",
       [&] { Owned(spline_lsq_set(11, x.data(), y.data(), -1, nullptr)); }},
      {"polynomial_lsq_set: a polynomial of degree 3 needs 4 distinct abscissae, got 3",
       [&] { Owned(polynomial_lsq_set(4, tied.data(), y.data(), 3, &centre)); }},
      {"the degree must not be negative, got -1",
       [&] { Owned(polynomial_lsq_set(4, tied.data(), y.data(), -1, &centre)); }},
      {"needs at least 1 point, got 0",
       [&] { Owned(polynomial_lsq_set(0, tied.data(), y.data(), 0, &centre)); }},
      {"the array centre is null",
       [&] { Owned(polynomial_lsq_set(4, tied.data(), y.data(), 1, nullptr)); }}};
  for (const auto& [text, call] : cases) {
    try {
      call();
      ADD_FAILURE() << "accepted; expected a refusal with \"" << text << "\"";
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(text), std::string::npos) << e.what();
    }
  }
  // No targets need no arrays for them; empty knot intervals alone leave every B-spline data where
  // it is nonzero; tied abscissae suffice for a lower degree.
  EXPECT_NO_THROW(spline_overhauser_val(4, four.data(), four.data(), 0, nullptr, nullptr));
  EXPECT_NO_THROW(LeastSquaresSpline(x, y, {4.2, 4.4, 4.6}, x));
  EXPECT_NO_THROW(LeastSquaresPolynomial(tied, y, 2, x));
}

}  // namespace
}  // namespace kelto::hyperspectral

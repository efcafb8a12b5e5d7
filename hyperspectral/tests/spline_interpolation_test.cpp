#include <kelto/hyperspectral/correction/spline_interpolation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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

using Type = SplineInterpolation::eType;
using Values = std::vector<double>;
constexpr Type kNatural = SplineInterpolation::IT_TARVIK_NATURAL_CUBIC;
constexpr Type kNotAKnot = SplineInterpolation::IT_NOT_A_KNOT_CUBIC;

// The grids of data/spline_fixtures.txt, computed by SciPy (data/make_spline_fixtures.py): rows
// x, y, the targets xi and the results natural and not_a_knot.
const std::vector<kelto::testing::ReferenceRecord>& SplineFixtures() {
  static const std::vector<kelto::testing::ReferenceRecord> fixtures =
      kelto::testing::ReadReferenceRecords(KELTO_TEST_DATA_DIR "/spline_fixtures.txt");
  return fixtures;
}

Values Resample(const Values& x, const Values& y, const Values& xi, Type type,
                bool extrapolate = true, bool clamp = false) {
  Values out;
  SplineInterpolation().Process(out, x, y, xi, type, extrapolate, clamp);
  return out;
}

std::vector<SplineSegment> Segments(const Values& x, const Values& y, Type type) {
  return SplineInterpolation().ComputeSplines(x.data(), y.data(), x.size(), type);
}

double Evaluate(const SplineSegment& s, double t) {
  const double dx = t - s.x;
  return s.a + s.b * dx + s.c * dx * dx + s.d * dx * dx * dx;
}

void ExpectRelativelyNear(const Values& actual, const Values& expected, const std::string& what) {
  ASSERT_EQ(actual.size(), expected.size()) << what;
  for (std::size_t k = 0; k < expected.size(); ++k) {
    EXPECT_NEAR(actual[k], expected[k], 1e-12 * std::max(1.0, std::fabs(expected[k])))
        << what << ", target " << k;
  }
}

// Reference values from SciPy, on irregular grids, including one target on either side of the
// sample points, which both kinds extrapolate with their end cubics.
TEST(SplineVersusScipy, BothKindsAgreeWithAnIndependentSolver) {
  for (const auto& f : SplineFixtures()) {
    const Values &x = f.Row("x"), &y = f.Row("y"), &xi = f.Row("xi");
    ExpectRelativelyNear(Resample(x, y, xi, kNatural), f.Row("natural"), f.name + " natural");
    ExpectRelativelyNear(Resample(x, y, xi, kNotAKnot), f.Row("not_a_knot"),
                         f.name + " not-a-knot");
  }
}

TEST(SplineSegments, JoinWithContinuousSecondDerivativeAndTwoPointsAreALine) {
  for (Type type : {kNatural, kNotAKnot}) {
    const std::vector<SplineSegment> line = Segments({0.0, 1.0}, {0.0, 1.0}, type);
    ASSERT_EQ(line.size(), 1u);
    EXPECT_EQ((Values{line[0].x, line[0].a, line[0].b, line[0].c, line[0].d}),
              (Values{0.0, 0.0, 1.0, 0.0, 0.0}));

    const Values &x = SplineFixtures()[1].Row("x"), &y = SplineFixtures()[1].Row("y");
    const std::vector<SplineSegment> s = Segments(x, y, type);
    ASSERT_EQ(s.size(), x.size() - 1);
    for (std::size_t i = 0; i + 1 < s.size(); ++i) {
      const double h = s[i + 1].x - s[i].x;
      EXPECT_EQ(s[i].a, y[i]);
      EXPECT_EQ(s[i].x, x[i]);
      EXPECT_NEAR(Evaluate(s[i], s[i + 1].x), s[i + 1].a, 1e-12);
      EXPECT_NEAR(s[i].b + 2.0 * s[i].c * h + 3.0 * s[i].d * h * h, s[i + 1].b, 1e-12);
      EXPECT_NEAR(s[i].c + 3.0 * s[i].d * h, s[i + 1].c, 1e-12);
    }
  }
}

TEST(SplineSegments, EndConditionsOfBothKinds) {
  // Natural: no curvature at either end (c of the last segment is S''/2 at its end).
  const std::vector<SplineSegment> hat = Segments({0.0, 1.0, 2.0}, {0.0, 1.0, 0.0}, kNatural);
  ASSERT_EQ(hat.size(), 2u);
  EXPECT_EQ(hat[0].c, 0.0);
  EXPECT_EQ(hat[1].c + 3.0 * hat[1].d * 1.0, 0.0);
  const Values &x = SplineFixtures()[2].Row("x"), &y = SplineFixtures()[2].Row("y");
  const std::vector<SplineSegment> natural = Segments(x, y, kNatural);
  EXPECT_EQ(natural.front().c, 0.0);
  EXPECT_NEAR(natural.back().c + 3.0 * natural.back().d * (x.back() - natural.back().x), 0.0,
              1e-12);

  // Not-a-knot: the third derivative does not jump at the second and second to last points, as
  // it does elsewhere.
  const std::vector<SplineSegment> s = Segments(x, y, kNotAKnot);
  const std::size_t last = s.size() - 1;
  EXPECT_NEAR(s[0].d, s[1].d, 1e-9 * std::fabs(s[0].d));
  EXPECT_NEAR(s[last - 1].d, s[last].d, 1e-9 * std::fabs(s[last].d));
  EXPECT_GT(std::fabs(s[1].d - s[2].d), 1e-3);
}

TEST(SplineSegments, NotAKnotReproducesACubicAlsoOutsideTheSamplePoints) {
  const auto cubic = [](double t) { return 2.0 * t * t * t - t * t + 0.5 * t - 3.0; };
  const auto of = [&](const Values& t) {
    Values values;
    std::transform(t.begin(), t.end(), std::back_inserter(values), cubic);
    return values;
  };
  const Values xi = {-2.5, -1.0, 0.0, 0.45, 1.0, 1.75, 3.0, 4.5};
  for (const Values& x : {Values{-1.0, 0.3, 0.5, 2.0}, Values{0.0, 0.1, 0.4, 1.7, 1.8, 3.1}}) {
    ExpectRelativelyNear(Resample(x, of(x), xi, kNotAKnot), of(xi),
                         std::to_string(x.size()) + " points");
  }
}

TEST(SplineSegments, NotAKnotOnThreePointsIsNaNBecauseTheSystemIsSingular) {
  const std::vector<SplineSegment> s = Segments({0.0, 1.0, 3.0}, {1.0, 2.0, 0.0}, kNotAKnot);
  ASSERT_EQ(s.size(), 2u);
  for (const SplineSegment& segment : s) {
    EXPECT_TRUE(std::isnan(segment.b) && std::isnan(segment.c) && std::isnan(segment.d));
  }
  // NaN results stay NaN also when clamped.
  for (const double value :
       Resample({0.0, 1.0, 3.0}, {1.0, 2.0, 0.0}, {0.5, 2.0}, kNotAKnot, true, true)) {
    EXPECT_TRUE(std::isnan(value));
  }
  // Four points are the least for a finite result.
  for (const SplineSegment& segment :
       Segments({0.0, 1.0, 3.0, 4.0}, {1.0, 2.0, 0.0, 1.0}, kNotAKnot)) {
    EXPECT_TRUE(std::isfinite(segment.b) && std::isfinite(segment.c) && std::isfinite(segment.d));
  }
}

class SplineProcess : public ::testing::TestWithParam<Type> {
 protected:
  const Values x = {1.0, 2.0, 4.0, 5.0, 7.0};
  const Values y = {0.5, -0.5, 2.0, 1.0, 3.0};
};

TEST_P(SplineProcess, TargetsOutsideOnAKnotBehindTheCursorAndClamped) {
  const std::vector<SplineSegment> s = Segments(x, y, GetParam());
  // Below the first point zero unless extrapolating, above the last always the last cubic.
  EXPECT_EQ(Resample(x, y, {0.0}, GetParam(), false), Values{0.0});
  EXPECT_DOUBLE_EQ(Resample(x, y, {0.0}, GetParam(), true)[0], Evaluate(s.front(), 0.0));
  for (bool extrapolate : {false, true}) {
    const double value = Resample(x, y, {8.0}, GetParam(), extrapolate)[0];
    EXPECT_DOUBLE_EQ(value, Evaluate(s.back(), 8.0));
    EXPECT_NE(value, 0.0);
  }

  // A point on a knot belongs to the segment starting there: dx is then exactly 0, so the result
  // is the sample value itself. The last point has no segment of its own: the last cubic reaches
  // its value only up to rounding.
  Values out = Resample(x, y, x, GetParam(), false);
  EXPECT_EQ(Values(out.begin(), out.end() - 1), Values(y.begin(), y.end() - 1));
  EXPECT_NEAR(out.back(), y.back(), 1e-12);

  // The cursor never moves back: behind it a target is evaluated on the segment of the previous
  // one, not on its own; below the first point the zero rule still applies.
  out = Resample(x, y, {4.5, 1.5, 0.5}, GetParam(), false);
  EXPECT_DOUBLE_EQ(out[0], Evaluate(s[2], 4.5));
  EXPECT_DOUBLE_EQ(out[1], Evaluate(s[2], 1.5));
  EXPECT_NE(out[1], Evaluate(s[0], 1.5));
  EXPECT_EQ(out[2], 0.0);

  // Clamp sets only negative results to zero.
  const Values knots = {-0.5, 0.5};
  const Values xs = {0.0, 1.0};
  EXPECT_EQ(Resample(xs, knots, xs, GetParam(), true, true), (Values{0.0, 0.5}));
  EXPECT_EQ(Resample(xs, knots, xs, GetParam(), true, false), knots);
}

TEST_P(SplineProcess, OutputSizes) {
  // The pointer form writes exactly ni values, and solves even for none.
  Values out = {9.0, 9.0, 9.0};
  const Values xi = {1.5, 6.0};
  SplineInterpolation().Process(out.data(), x.data(), y.data(), xi.data(), x.size(), 2, GetParam(),
                                false, false);
  const Values expected = Resample(x, y, xi, GetParam());
  EXPECT_EQ(out, (Values{expected[0], expected[1], 9.0}));
  const Values falling = {1.0, 0.0};
  EXPECT_THROW(SplineInterpolation().Process(out.data(), falling.data(), y.data(), xi.data(), 2, 0,
                                             GetParam(), false, false),
               std::invalid_argument);

  // The vector form with empty values only resizes: nothing is solved, so a grid that would fail
  // does not. With no targets it empties the output.
  out = {7.0};
  SplineInterpolation().Process(out, x, {}, {1.0, 2.0, 3.0}, GetParam(), true, false);
  EXPECT_EQ(out, (Values{7.0, 0.0, 0.0}));
  SplineInterpolation().Process(out, {}, {}, {1.0}, GetParam(), true, false);
  EXPECT_EQ(out, Values{7.0});
  SplineInterpolation().Process(out, x, y, {}, GetParam(), true, false);
  EXPECT_TRUE(out.empty());
}

TEST_P(SplineProcess, BadInputThrowsInsteadOfEndingTheProcess) {
  Values out;
  EXPECT_THROW(SplineInterpolation().Process(out, x, {1.0, 2.0}, {1.0}, GetParam(), true, false),
               std::invalid_argument);
  const Values one = {1.0};
  EXPECT_THROW(SplineInterpolation().ComputeSplines(one.data(), one.data(), 1, GetParam()),
               std::invalid_argument);
  for (const Values& bad : {Values{0.0, 1.0, 1.0, 2.0}, Values{0.0, 2.0, 1.0, 3.0},
                            Values{0.0, 1.0, std::nan(""), 3.0}}) {
    try {
      SplineInterpolation().ComputeSplines(bad.data(), bad.data(), bad.size(), GetParam());
      ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find("rise strictly, but x[1]"), std::string::npos)
          << error.what();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(BothKinds, SplineProcess, ::testing::Values(kNatural, kNotAKnot));

TEST(SplineErrors, UnknownTypeAndEmptyNaturalGrid) {
  const Values x = {0.0, 1.0, 2.0, 3.0};
  try {
    SplineInterpolation().ComputeSplines(x.data(), x.data(), x.size(), static_cast<Type>(2));
    ADD_FAILURE() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "Unknown interpolation type.");
  }
  EXPECT_THROW(SplineInterpolation().ComputeSplines(x.data(), x.data(), 0, kNatural),
               std::length_error);
  EXPECT_THROW(SplineInterpolation().ComputeSplines(x.data(), x.data(), 0, kNotAKnot),
               std::invalid_argument);
}

TEST(SplinePenta, SolvesABandedSystem) {
  // Diagonally dominant, so that elimination without pivoting is exact up to rounding.
  const int n = 6;
  const Values solution = {1.0, -2.0, 0.5, 3.0, -1.5, 2.0};
  Values a1(n), a2(n), a3(n), a4(n), a5(n), b(n, 0.0);
  for (int i = 0; i < n; ++i) {
    a1[i] = i >= 2 ? 0.5 + 0.1 * i : 0.0;
    a2[i] = i >= 1 ? -1.0 + 0.2 * i : 0.0;
    a3[i] = 8.0 + i;
    a4[i] = i + 1 < n ? 1.5 - 0.3 * i : 0.0;
    a5[i] = i + 2 < n ? -0.7 : 0.0;
    const double row[5] = {a1[i], a2[i], a3[i], a4[i], a5[i]};
    for (int k = -2; k <= 2; ++k) {
      if (i + k >= 0 && i + k < n) {
        b[i] += row[k + 2] * solution[i + k];
      }
    }
  }
  const std::unique_ptr<double[]> x(
      penta(n, a1.data(), a2.data(), a3.data(), a4.data(), a5.data(), b.data()));
  for (int i = 0; i < n; ++i) {
    EXPECT_NEAR(x[i], solution[i], 1e-14) << i;
  }
  EXPECT_THROW(penta(1, a1.data(), a2.data(), a3.data(), a4.data(), a5.data(), b.data()),
               std::invalid_argument);
}

TEST(SplineCubicSet, GivesSecondDerivativesAndRefusesOtherEndConditions) {
  // A cubic has S'' = 6 t on t^3.
  const Values t = {0.0, 0.5, 1.25, 2.0, 3.0};
  Values y;
  for (double v : t) {
    y.push_back(v * v * v);
  }
  const std::unique_ptr<double[]> m(spline_cubic_set(5, t.data(), y.data(), 3, 7.0, 3, -7.0));
  for (std::size_t i = 0; i < t.size(); ++i) {
    EXPECT_NEAR(m[i], 6.0 * t[i], 1e-12) << i;
  }
  EXPECT_THROW(spline_cubic_set(5, t.data(), y.data(), 2, 0.0, 3, 0.0), std::invalid_argument);
  EXPECT_THROW(spline_cubic_set(5, t.data(), y.data(), 3, 0.0, 1, 0.0), std::invalid_argument);
}

TEST(SplineCubicSetDeathTest, TooFewPointsOrKnotsThatDoNotRiseEndTheProcess) {
  const double t[4] = {0.0, 1.5, 1.5, 2.0};
  EXPECT_EXIT(spline_cubic_set(1, t, t, 3, 0.0, 3, 0.0), ::testing::ExitedWithCode(1),
              "\nSPLINE_CUBIC_SET - Fatal error!\n"
              "  The number of data points N must be at least 2\\.\n"
              "  The input value is 1\\.\n");
  EXPECT_EXIT(spline_cubic_set(4, t, t, 3, 0.0, 3, 0.0), ::testing::ExitedWithCode(1),
              "\nSPLINE_CUBIC_SET - Fatal error!\n"
              "  The knots must be strictly increasing, but\n"
              "  T\\(1\\) = 1\\.5\n"
              "  T\\(2\\) = 1\\.5\n");
}

}  // namespace
}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/correction/spline_interpolation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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
  // Two points are a line for both kinds.
  for (Type type : {kNatural, kNotAKnot}) {
    const std::vector<SplineSegment> line = Segments({0.0, 1.0}, {0.0, 1.0}, type);
    ASSERT_EQ(line.size(), 1u);
    EXPECT_EQ((Values{line[0].x, line[0].a, line[0].b, line[0].c, line[0].d}),
              (Values{0.0, 0.0, 1.0, 0.0, 0.0}));
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
  // The banded solver behind it needs two equations.
  Values band(1, 1.0);
  EXPECT_THROW(
      penta(1, band.data(), band.data(), band.data(), band.data(), band.data(), band.data()),
      std::invalid_argument);
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

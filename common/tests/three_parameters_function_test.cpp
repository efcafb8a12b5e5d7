#include <kelto/common/three_parameters_function.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelto::common {
namespace {

struct Shape {
  std::string name;
  std::function<std::unique_ptr<ThreeParametersFunction>()> make;
};

std::ostream& operator<<(std::ostream& stream, const Shape& shape) {
  return stream << shape.name;
}

class PeakShape : public ::testing::TestWithParam<Shape> {
 protected:
  const std::unique_ptr<ThreeParametersFunction> f = GetParam().make();
};

// Widths over six decades, irregularly spaced.
std::vector<double> Widths() {
  std::vector<double> widths;
  for (double w = 1e-3; w < 1e3; w *= 1.37) {
    widths.push_back(w);
  }
  return widths;
}

TEST_P(PeakShape, HeightAtTheCentreHalfOfItAtHalfTheFWHMWhichInvertsExactly) {
  for (double p2 : Widths()) {
    for (const auto& [p1, p3] : {std::pair{550.0, 1.0}, std::pair{-3.0, 0.25}}) {
      const double half = 0.5 * f->ParamToFWHM(p2);
      EXPECT_DOUBLE_EQ((*f)(p1, p2, p3, p1), p3) << p2;
      EXPECT_NEAR((*f)(p1, p2, p3, p1 - half), 0.5 * p3, 1e-12 * p3 * (1.0 + std::fabs(p1) / p2))
          << p2;
      EXPECT_NEAR((*f)(p1, p2, p3, p1 + half), 0.5 * p3, 1e-12 * p3 * (1.0 + std::fabs(p1) / p2))
          << p2;
      // Below the maximum, on both sides alike, and falling outward.
      const double inner = (*f)(p1, p2, p3, p1 + 0.5 * half);
      EXPECT_GT(inner, 0.5 * p3);
      EXPECT_LT(inner, p3);
      EXPECT_LT((*f)(p1, p2, p3, p1 + 1.5 * half), 0.5 * p3);
      EXPECT_DOUBLE_EQ((*f)(p1, p2, p3, p1 - 0.7 * half), (*f)(p1, p2, p3, p1 + 0.7 * half));
    }
  }

  // FWHM and width parameter are exact inverses.
  for (double w : Widths()) {
    EXPECT_DOUBLE_EQ(f->FWHMToParam(f->ParamToFWHM(w)), w);
    EXPECT_DOUBLE_EQ(f->ParamToFWHM(f->FWHMToParam(w)), w);
  }
}

// The amplitude gives one peak (one order of a periodic shape) unit area. The Lorentz curve is
// integrated over +-2000 half widths and its known tail area added.
TEST_P(PeakShape, AmplitudeGivesUnitArea) {
  const std::string& name = GetParam().name;
  const double pi = std::acos(-1.0);
  for (double p2 : {0.5, 7.0}) {
    const double p1 = 600.0;
    const double p3 = f->ParamToAmplitude(p2);
    double reach = 6.0 * f->ParamToFWHM(p2);
    double tail = 0.0;
    if (name == "Lorentz") {
      reach = 2000.0 * p2;
      tail = 1.0 - 2.0 / pi * std::atan(reach / p2);
    } else if (name.rfind("FabryPerot", 0) == 0) {
      reach = 0.5 * p2;
    }
    const int steps = 400000;
    const double h = 2.0 * reach / steps;
    double area = 0.0;
    for (int i = 0; i <= steps; ++i) {
      const double weight = (i == 0 || i == steps) ? 0.5 : 1.0;
      area += weight * (*f)(p1, p2, p3, p1 - reach + i * h);
    }
    EXPECT_NEAR(area * h + tail, 1.0, 1e-6) << p2;
  }
}

TEST_P(PeakShape, EvaluateFillsAndResizesTheOutput) {
  const std::vector<double> x = {500.0, 510.0, 515.0, 520.0, 540.0};
  for (std::vector<double> out : {std::vector<double>(9, -1.0), std::vector<double>()}) {
    f->Evaluate(out, 515.0, 4.0, 2.0, x.begin() + 1, x.end());
    ASSERT_EQ(out.size(), 4u);
    for (std::size_t i = 0; i < out.size(); ++i) {
      EXPECT_EQ(out[i], (*f)(515.0, 4.0, 2.0, x[i + 1]));
    }
  }
  std::vector<double> out(3, 1.0);
  f->Evaluate(out, 515.0, 4.0, 2.0, x.begin(), x.begin());
  EXPECT_TRUE(out.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Distribution, PeakShape,
    ::testing::Values(Shape{"Gauss", [] { return std::make_unique<GaussDistribution>(); }},
                      Shape{"Lorentz", [] { return std::make_unique<LorentzDistribution>(); }},
                      Shape{"FabryPerotSingleOrder",
                            [] { return std::make_unique<FabryPerotDistribution>(true); }},
                      Shape{"FabryPerotPeriodic",
                            [] { return std::make_unique<FabryPerotDistribution>(false); }}),
    [](const ::testing::TestParamInfo<Shape>& info) { return info.param.name; });

TEST(PeakShapeWidth, GaussLorentzAndFabryPerotTakeTheirOwnWidthParameters) {
  const GaussDistribution gauss;
  const LorentzDistribution lorentz;
  EXPECT_DOUBLE_EQ(gauss.ParamToFWHM(1.0), 2.3548200450309493);
  EXPECT_DOUBLE_EQ(gauss(0.0, 2.0, 3.0, 2.0), 3.0 * std::exp(-0.5));
  EXPECT_DOUBLE_EQ(lorentz.ParamToFWHM(3.0), 6.0);
  EXPECT_DOUBLE_EQ(lorentz(0.0, 2.0, 3.0, 4.0), 3.0 * 4.0 / 20.0);

  // Fabry-Perot orders repeat every free spectral range unless single.
  const FabryPerotDistribution single(true);
  const FabryPerotDistribution periodic(false);
  EXPECT_TRUE(single.IsSingleOrder());
  EXPECT_FALSE(periodic.IsSingleOrder());
  const double p1 = 700.0, p2 = 120.0, p3 = 0.8;
  // Finesse about 14: the free spectral range is some 14 FWHM.
  EXPECT_NEAR(p2 / single.ParamToFWHM(p2), 14.2, 0.1);
  EXPECT_NEAR(periodic(p1, p2, p3, p1 + p2), p3, 1e-12);
  EXPECT_NEAR(periodic(p1, p2, p3, p1 - 2.0 * p2), p3, 1e-12);
  EXPECT_EQ(single(p1, p2, p3, p1 + p2), 0.0);
  EXPECT_EQ(single(p1, p2, p3, p1 - 0.51 * p2), 0.0);
  // Between orders the curve reaches zero, so the single order ends without a step.
  EXPECT_NEAR(periodic(p1, p2, p3, p1 + 0.5 * p2), 0.0, 1e-15);
  EXPECT_NEAR(single(p1, p2, p3, p1 + 0.4999 * p2), 0.0, 1e-6);
  EXPECT_EQ(single(p1, p2, p3, p1 + 0.3 * p2), periodic(p1, p2, p3, p1 + 0.3 * p2));
}

}  // namespace
}  // namespace kelto::common

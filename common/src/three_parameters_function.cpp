#include <kelto/common/three_parameters_function.h>

#include <cmath>

namespace kelto::common {

namespace {

constexpr double kPi = 3.14159265358979323846;

// FWHM / p2 of each shape.
const double kGaussWidth = 2.0 * std::sqrt(2.0 * std::log(2.0));
constexpr double kLorentzWidth = 2.0;
const double kFabryPerotWidth =
    2.0 * std::asin(1.0 / std::sqrt(FabryPerotDistribution::kCoefficientOfFinesse + 2.0)) / kPi;

}  // namespace

ThreeParametersFunction::~ThreeParametersFunction() = default;

void ThreeParametersFunction::Evaluate(std::vector<double>& out, const double& p1, const double& p2,
                                       const double& p3, std::vector<double>::const_iterator first,
                                       std::vector<double>::const_iterator last) const {
  out.resize(static_cast<std::size_t>(last - first));
  for (double& value : out) {
    value = (*this)(p1, p2, p3, *first++);
  }
}

double GaussDistribution::operator()(const double& p1, const double& p2, const double& p3,
                                     const double& x) const {
  const double u = (x - p1) / p2;
  return p3 * std::exp(-0.5 * u * u);
}

double GaussDistribution::ParamToAmplitude(const double& p2) const {
  return 1.0 / (p2 * std::sqrt(2.0 * kPi));
}

double GaussDistribution::ParamToFWHM(const double& p2) const {
  return p2 * kGaussWidth;
}

double GaussDistribution::FWHMToParam(const double& fwhm) const {
  return fwhm / kGaussWidth;
}

double LorentzDistribution::operator()(const double& p1, const double& p2, const double& p3,
                                       const double& x) const {
  const double dx = x - p1;
  return p3 * p2 * p2 / (dx * dx + p2 * p2);
}

double LorentzDistribution::ParamToAmplitude(const double& p2) const {
  return 1.0 / (kPi * p2);
}

double LorentzDistribution::ParamToFWHM(const double& p2) const {
  return p2 * kLorentzWidth;
}

double LorentzDistribution::FWHMToParam(const double& fwhm) const {
  return fwhm / kLorentzWidth;
}

FabryPerotDistribution::FabryPerotDistribution(const bool& single_order)
    : single_order_(single_order) {}

double FabryPerotDistribution::operator()(const double& p1, const double& p2, const double& p3,
                                          const double& x) const {
  const double u = (x - p1) / p2;
  if (single_order_ && std::fabs(u) > 0.5) {
    return 0.0;
  }
  const double s = std::sin(kPi * u);
  const double c = std::cos(kPi * u);
  return p3 * c * c / (1.0 + kCoefficientOfFinesse * s * s);
}

double FabryPerotDistribution::ParamToAmplitude(const double& p2) const {
  return kCoefficientOfFinesse / ((std::sqrt(1.0 + kCoefficientOfFinesse) - 1.0) * p2);
}

double FabryPerotDistribution::ParamToFWHM(const double& p2) const {
  return p2 * kFabryPerotWidth;
}

double FabryPerotDistribution::FWHMToParam(const double& fwhm) const {
  return fwhm / kFabryPerotWidth;
}

}  // namespace kelto::common

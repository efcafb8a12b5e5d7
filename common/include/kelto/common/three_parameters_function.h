// Peak shapes with a centre p1, a width parameter p2 of the shape's own and the height p3 at the
// centre. Peak detection fits them to measured band responses, the spectral correction builds its
// target filters from them, and the smoothing of spectra and matrices weighs with the Gaussian.
//
// Every shape has its maximum p3 at x = p1 and falls to exactly p3 / 2 at p1 +- FWHM / 2, where
// FWHM = ParamToFWHM(p2); FWHMToParam is its exact inverse. The width parameter must be
// positive; the shapes do not check it, as they are evaluated millions of times in a fit.
// Thread-safety: the shapes keep no state between calls; one object serves any number of threads.
#pragma once

#include <vector>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT ThreeParametersFunction {
 public:
  virtual ~ThreeParametersFunction();

  // The value at wavelength x.
  virtual double operator()(const double& p1, const double& p2, const double& p3,
                            const double& x) const = 0;
  // out[i] := the value at the i-th wavelength of [first, last); out is resized to fit.
  virtual void Evaluate(std::vector<double>& out, const double& p1, const double& p2,
                        const double& p3, std::vector<double>::const_iterator first,
                        std::vector<double>::const_iterator last) const;
  // The height p3 that gives the peak of width parameter p2 unit area, so that target filters of
  // different widths carry the same energy.
  virtual double ParamToAmplitude(const double& p2) const = 0;
  virtual double ParamToFWHM(const double& p2) const = 0;
  virtual double FWHMToParam(const double& fwhm) const = 0;
};

// p3 exp(-(x - p1)^2 / (2 p2^2)): p2 is the standard deviation sigma, FWHM = 2 sqrt(2 ln 2) p2.
class KELTO_COMMON_EXPORT GaussDistribution final : public ThreeParametersFunction {
 public:
  double operator()(const double& p1, const double& p2, const double& p3,
                    const double& x) const override;
  // 1 / (p2 sqrt(2 pi)).
  double ParamToAmplitude(const double& p2) const override;
  double ParamToFWHM(const double& p2) const override;
  double FWHMToParam(const double& fwhm) const override;
};

// p3 p2^2 / ((x - p1)^2 + p2^2): p2 is the half width at half maximum, FWHM = 2 p2.
class KELTO_COMMON_EXPORT LorentzDistribution final : public ThreeParametersFunction {
 public:
  double operator()(const double& p1, const double& p2, const double& p3,
                    const double& x) const override;
  // 1 / (pi p2).
  double ParamToAmplitude(const double& p2) const override;
  double ParamToFWHM(const double& p2) const override;
  double FWHMToParam(const double& fwhm) const override;
};

// The transmission peak of a Fabry-Perot cavity, as a function of wavelength near its centre:
//
//   p3 cos^2(pi u) / (1 + K sin^2(pi u)),  u = (x - p1) / p2,  K = 4 R / (1 - R)^2 = 80,
//
// p2 being the free spectral range, the distance between neighbouring orders, and K the
// coefficient of finesse of mirrors of reflectance R = 0.8 (finesse about 14), typical of the
// thin-film cavities on the sensors. This is the Airy curve 1 / (1 + K sin^2(pi u)) with its floor
// 1 / (1 + K) between orders removed and scaled back to 1 at the centre: the plain Airy curve never
// reaches zero, so a target filter built from it would carry a background over the whole range.
// Half maximum at sin^2(pi u) = 1 / (K + 2), so FWHM = 2 p2 arcsin(1 / sqrt(K + 2)) / pi, about
// p2 / 14.
//
// single_order true keeps the one order around p1 and is 0 beyond p1 +- p2 / 2, where the curve
// reaches 0 anyway, so the peak stays continuous; that is the form a virtual filter wants, free of
// the neighbouring orders it is meant to remove. false repeats the orders every p2, as a real
// cavity transmits.
class KELTO_COMMON_EXPORT FabryPerotDistribution final : public ThreeParametersFunction {
 public:
  explicit FabryPerotDistribution(const bool& single_order);

  double operator()(const double& p1, const double& p2, const double& p3,
                    const double& x) const override;
  // K / ((sqrt(1 + K) - 1) p2) = 10 / p2: unit area of one order.
  double ParamToAmplitude(const double& p2) const override;
  double ParamToFWHM(const double& p2) const override;
  double FWHMToParam(const double& fwhm) const override;

  bool IsSingleOrder() const { return single_order_; }

  static constexpr double kCoefficientOfFinesse = 80.0;

 private:
  bool single_order_;
};

}  // namespace kelto::common

// Peak detection: turns one band's measured response (quantum efficiency against wavelength) into
// a short list of fitted transmission peaks, the one that explains most of the band's signal
// first. PM_SensorResponseAnalysis owns one and runs it on every band; a caller may also drive one
// directly: SetParameters, Initialize, any number of Process calls, Deallocate.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include <kelto/common/path.h>
#include <kelto/common/processing_module.h>
#include <kelto/common/three_parameters_function.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

// Process finds the local maxima of the curve, keeps the highest ones a minimum distance apart,
// and refines each on a finer grid: the highest point in a window around it, the half-maximum
// width, then a two-level brute-force grid search of the chosen distribution's centre, width and
// height. Each fit is scored by its contribution (the fitted model's share of the response's sum)
// and its fit error (the residual relative to the model's sum).
//
// Thread-safety: Process holds the module's lock for its whole length; a second thread waits.
class KELTO_HYPERSPECTRAL_EXPORT PM_PeakDetection : public common::ProcessingModule {
 public:
  // One fitted peak.
  struct Peak {
    double wavelength = 0.0;    // centre, nm
    double fwhm = 0.0;          // full width at half maximum, nm
    double qe = 0.0;            // height, in the units of the response (0 to 1 for QE)
    double contribution = 0.0;  // share of the response's sum that the fitted peak explains, <= 1
    double fit_error = 0.0;     // root of the summed squared residuals over the fitted sum
  };

  // Greatest contribution first.
  struct PeakContributionComparator {
    bool operator()(const Peak& a, const Peak& b) const { return a.contribution > b.contribution; }
  };
  // Highest first.
  struct PeakQEComparator {
    bool operator()(const Peak& a, const Peak& b) const { return a.qe > b.qe; }
  };

  class KELTO_HYPERSPECTRAL_EXPORT Parameters : public common::ProcessingModule::Parameters {
   public:
    Parameters() = default;
    ~Parameters() override;

    // Configuration.
    bool debug_dump = false;
    common::filesystem::Path debug_dump_dir = "./debug_dump/";
    // Runtime. The distribution takes effect at the next Initialize, the rest at the next Process.
    // The new samples per measured interval of the fitting grid; 1 keeps the measured grid. It
    // has no entry in the parameter container.
    unsigned long filter_interpolation_factor = 5;
    // Peaks lower than this are dropped; inside the fitting window, whose values are scaled by
    // 100, it acts at a hundredth of its value.
    double minimum_peak_qe = 0.0;
    double minimum_peak_distance_nm = 30.0;
    unsigned long maximum_peak_count = 2;
    // The larger half width at half maximum may be at most this times the smaller one; a wider
    // side is replaced by the mirror of the narrower.
    double maximum_asymmetry_factor = 2.0;
    double detection_window_nm = 17.0;
    double minimum_fwhm_nm = 2.0;
    double maximum_fwhm_nm = 35.0;
    double minimum_amplitude_factor = 0.95;
    double maximum_amplitude_factor = 1.05;
    double maximum_wavelength_shift_nm = 3.0;
    unsigned long coarse_iterations = 12;
    unsigned long fine_iterations = 12;
    // 1 Gaussian, 3 Fabry-Perot (one order), any other value Lorentzian.
    Distributions::eDistribution distribution = Distributions::DB_FABRY_PEROT;
  };

  // Wavelength, QE and FWHM of the peaks first found by the last Process (before any fit), in five
  // fixed slots; filled only while debug_dump is on. The FWHM slots stay zero: the width is not
  // known at that point.
  struct DebugRecord {
    std::vector<double> wavelengths;
    std::vector<double> qe;
    std::vector<double> fwhm;
  };
  static constexpr unsigned long kDebugSlots = 5;

  explicit PM_PeakDetection(const Parameters& parameters);
  ~PM_PeakDetection() override;

  // Replaces peaks by the fitted peaks of response (one value per wavelength, wavelengths rising),
  // greatest contribution first. name starts the names of the debug files of this call.
  // A band whose window holds no peak of its own on the finer grid (the maximum on the window's
  // edge) keeps the peak as first found, with fwhm, contribution and fit error 0.
  // Throws std::logic_error before Initialize, std::invalid_argument when the sizes differ or the
  // wavelengths do not rise strictly.
  void Process(std::list<Peak>& peaks, const std::vector<double>& response,
               const std::vector<double>& wavelengths, const std::string& name);

  // A copy of the record of the last Process; see DebugRecord.
  DebugRecord GetDebugRecord() const;

 protected:
  void _GetParameters(common::ParameterizedObject::Parameters& parameters) const override;
  void _CheckParameters(common::ParameterizedObject::Parameters const& parameters) const override;
  void _SetConfigurationParameters(
      common::ParameterizedObject::Parameters const& parameters) override;
  void _SetRuntimeParameters(common::ParameterizedObject::Parameters const& parameters) override;
  // Creates the distribution of the present parameters, and the debug directory when dumping.
  void _Initialize(common::ProcessingModule::InitializationData const& data) override;
  void _Deallocate() override;
  void _Reset() override;

  // The steps of Process, open to tests through a subclass.

  // Local maxima over five samples (strictly above both neighbours on either side), at least
  // minimum_qe high, thinned so that no two lie closer than minimum_distance (the lower of a
  // pair goes; at equal heights the one at the shorter wavelength), the highest maximum_count.
  void _GetBandPeaks(std::list<Peak>& peaks, const std::vector<double>& response,
                     const std::vector<double>& wavelengths, const double& minimum_qe,
                     const double& minimum_distance, const unsigned long& maximum_count) const;
  // The response on a uniform grid of filter_interpolation_factor points per measured interval,
  // by a not-a-knot cubic spline.
  void _Interpolate(std::vector<double>& new_response, std::vector<double>& new_wavelengths,
                    const std::vector<double>& response,
                    const std::vector<double>& wavelengths) const;
  // The samples whose wavelengths lie within centre +- width / 2, both ends inclusive.
  static void _GetWindow(std::vector<double>& window_response,
                         std::vector<double>& window_wavelengths,
                         const std::vector<double>& response,
                         const std::vector<double>& wavelengths, const double& centre,
                         const double& width);
  // Sets the peak's width from its half-maximum points and moves its centre between them.
  void _GetFWHM(Peak& peak, const std::vector<double>& response,
                const std::vector<double>& wavelengths, const double& maximum_asymmetry) const;
  // The half-maximum point of one side of a peak (inputs start at the peak and run outward), or
  // the centroid of the side's samples above half when it never falls to half.
  static double _GetFWHMSingleSide(const std::vector<double>& response,
                                   const std::vector<double>& wavelengths);
  // The grid point (p1 outermost, p3 innermost) whose model, times 100, has the least squared
  // distance to response; the first visited wins a tie. Each axis steps from its minimum by a
  // running sum of its step; a count of 0 leaves the middle of the box.
  void _FitFunctionBruteForce(
      double& p1, double& p2, double& p3, const std::vector<double>& wavelengths,
      const std::vector<double>& response, const common::ThreeParametersFunction& function,
      const double& p1_minimum, const double& p1_maximum, const unsigned long& p1_count,
      const double& p2_minimum, const double& p2_maximum, const unsigned long& p2_count,
      const double& p3_minimum, const double& p3_maximum, const unsigned long& p3_count);
  // Contribution and fit error of the peak's model in a window of three FWHM on the whole
  // response. Plain sums over samples: they rest on the uniform grid of _Interpolate.
  void _GetContributionAndFitError(Peak& peak, const std::vector<double>& response,
                                   const std::vector<double>& wavelengths) const;
  // Columns side by side, ", " between values; an empty set is reported on standard error.
  static void _Dump(const std::vector<std::vector<double>>& columns,
                    const common::filesystem::Path& file);

  const common::ThreeParametersFunction* _GetDistribution() const { return distribution_.get(); }

 private:
  void _SetupParameterContainer();

  bool debug_dump_ = false;
  common::filesystem::Path debug_dump_dir_;
  unsigned long filter_interpolation_factor_ = 0;
  double minimum_peak_qe_ = 0.0;
  double minimum_peak_distance_nm_ = 0.0;
  unsigned long maximum_peak_count_ = 0;
  double maximum_asymmetry_factor_ = 0.0;
  double detection_window_nm_ = 0.0;
  double minimum_fwhm_nm_ = 0.0;
  double maximum_fwhm_nm_ = 0.0;
  double minimum_amplitude_factor_ = 0.0;
  double maximum_amplitude_factor_ = 0.0;
  double maximum_wavelength_shift_nm_ = 0.0;
  unsigned long coarse_iterations_ = 0;
  unsigned long fine_iterations_ = 0;
  Distributions::eDistribution distribution_type_ = Distributions::DB_UNKNOWN;

  std::unique_ptr<common::ThreeParametersFunction> distribution_;  // between Initialize and
                                                                   // Deallocate
  std::string debug_prefix_;
  DebugRecord debug_record_;
  std::vector<double> model_;  // the fit's scratch, reused across evaluations
};

}  // namespace kelto::hyperspectral

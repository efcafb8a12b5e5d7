#include <kelto/hyperspectral/analysis/pm_peak_detection.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <unordered_map>

#include <boost/thread/lock_types.hpp>

#include <kelto/common/logger.h>
#include <kelto/hyperspectral/correction/spline_interpolation.h>

#include "../foundation/fail.h"

namespace kelto::hyperspectral {

namespace {

using common::Logger;
using common::ParameterizedObject;
using common::filesystem::Path;
using eDistribution = Distributions::eDistribution;
using Lock = boost::unique_lock<boost::mutex>;

// The fit compares the model with the window's values times this, for resolution.
constexpr double kWindowScale = 100.0;

// [first, last) of the samples within [low, high]: the first wavelength not below low, and behind
// the last one not above high, searched from the end. Empty when nothing lies inside.
std::pair<std::size_t, std::size_t> WindowBounds(const std::vector<double>& wavelengths, double low,
                                                 double high) {
  std::size_t first = 0;
  while (first < wavelengths.size() && wavelengths[first] < low) {
    ++first;
  }
  std::size_t last = wavelengths.size();
  while (last > first && wavelengths[last - 1] > high) {
    --last;
  }
  return {first, last};
}

}  // namespace

PM_PeakDetection::Parameters::~Parameters() = default;

PM_PeakDetection::PM_PeakDetection(const Parameters& parameters) : ProcessingModule("unnamed") {
  _SetupParameterContainer();
  ProcessingModule::_SetParameters(parameters);
}

PM_PeakDetection::~PM_PeakDetection() = default;

void PM_PeakDetection::_SetupParameterContainer() {
  _SetContainerName("Peak detection");
  _SetContainerDescription("Peak detection parameters");
  static const Parameters p;
  _AddParameter<double, Parameters>(p, p.minimum_peak_qe, "Min. QE",
                                    "Minimum peak QE (value 0 to 1).", "Peaks");
  _AddParameter<double, Parameters>(p, p.minimum_peak_distance_nm, "Min. distance (nm)",
                                    "Minimum distance between two peaks in nanometres.", "Peaks");
  _AddParameter<unsigned long, Parameters>(p, p.maximum_peak_count, "Max. nr. peaks",
                                           "Maximum number of peaks per filter.", "Peaks");
  _AddParameter<double, Parameters>(p, p.maximum_asymmetry_factor, "Max. assymetricity factor",
                                    "Maximum ratio between the HWHM on either side of the peak.",
                                    "Peaks");
  _AddParameter<double, Parameters>(p, p.detection_window_nm, "Detection window (nm)",
                                    "Window around a local maximum in which to select the global "
                                    "maximum as initialization of the filter fit.",
                                    "Filter");
  _AddParameter<double, Parameters>(p, p.minimum_fwhm_nm, "Min. FWHM (nm)",
                                    "Minimum filter FWHM in nanometres.", "Filter");
  _AddParameter<double, Parameters>(p, p.maximum_fwhm_nm, "Max. FWHM (nm)",
                                    "Maximum filter FWHM in nanometres.", "Filter");
  _AddParameter<double, Parameters>(
      p, p.minimum_amplitude_factor, "Min. amplitude factor (nm)",
      "Minimum ratio of the fitted filter's peak to the maximum response.", "Filter");
  _AddParameter<double, Parameters>(
      p, p.maximum_amplitude_factor, "Max. amplitude factor (nm)",
      "Maximum ratio of the fitted filter's peak to the maximum response.", "Filter");
  _AddParameter<double, Parameters>(p, p.maximum_wavelength_shift_nm, "Max. wavelength shift (nm)",
                                    "Maximum shift of the fitted filter from the maximum response.",
                                    "Filter");
  _AddParameter<unsigned long, Parameters>(p, p.coarse_iterations, "Nr. coarse iterations",
                                           "Number of iterations of coarse filter fitting.",
                                           "Fitting");
  _AddParameter<unsigned long, Parameters>(p, p.fine_iterations, "Nr. fine iterations",
                                           "Number of iterations of fine filter fitting.",
                                           "Fitting");
  std::unordered_map<eDistribution, std::string> distributions;
  for (const eDistribution value :
       {Distributions::DB_GAUSSIAN, Distributions::DB_LORENTZIAN, Distributions::DB_FABRY_PEROT}) {
    distributions.emplace(value, Distributions::ToString(value));
  }
  _AddParameter<eDistribution, Parameters>(p, p.distribution, "Distribution",
                                           "Distribution to use for fitting the filter.", "Fitting",
                                           distributions);
  _AddParameter<bool, Parameters>(
      p, p.debug_dump, "Enable debug dump",
      "Flags if intermediate results must be dumped to csv files (true) or not (false).", "Debug");
  _AddParameter<Path, Parameters>(p, p.debug_dump_dir, "Debug dump dir",
                                  "Output directory for the debug dump files.", "Debug");
}

// ---------------------------------------------------------------------------------------------
// Hooks

void PM_PeakDetection::_GetParameters(ParameterizedObject::Parameters& parameters) const {
  auto& own = _CastParameters<Parameters>(parameters);
  own.debug_dump = debug_dump_;
  own.debug_dump_dir = debug_dump_dir_;
  own.filter_interpolation_factor = filter_interpolation_factor_;
  own.minimum_peak_qe = minimum_peak_qe_;
  own.minimum_peak_distance_nm = minimum_peak_distance_nm_;
  own.maximum_peak_count = maximum_peak_count_;
  own.maximum_asymmetry_factor = maximum_asymmetry_factor_;
  own.detection_window_nm = detection_window_nm_;
  own.minimum_fwhm_nm = minimum_fwhm_nm_;
  own.maximum_fwhm_nm = maximum_fwhm_nm_;
  own.minimum_amplitude_factor = minimum_amplitude_factor_;
  own.maximum_amplitude_factor = maximum_amplitude_factor_;
  own.maximum_wavelength_shift_nm = maximum_wavelength_shift_nm_;
  own.coarse_iterations = coarse_iterations_;
  own.fine_iterations = fine_iterations_;
  own.distribution = distribution_type_;
}

// Only what would break the computation outright is refused; a minimum width above the maximum
// or a zero iteration count pass and give a degenerate fit.
void PM_PeakDetection::_CheckParameters(ParameterizedObject::Parameters const& parameters) const {
  const auto& own = _CastParameters<Parameters>(parameters);
  if (own.filter_interpolation_factor == 0) {
    Fail<std::invalid_argument>("filter interpolation factor must be strictly positive");
  }
  if (own.minimum_peak_qe < 0.0) {
    Fail<std::invalid_argument>("minimum peak qe must be positive");
  }
}

void PM_PeakDetection::_SetConfigurationParameters(
    ParameterizedObject::Parameters const& parameters) {
  const auto& own = _CastParameters<Parameters>(parameters);
  debug_dump_ = own.debug_dump;
  debug_dump_dir_ = own.debug_dump_dir;
}

void PM_PeakDetection::_SetRuntimeParameters(ParameterizedObject::Parameters const& parameters) {
  const auto& own = _CastParameters<Parameters>(parameters);
  filter_interpolation_factor_ = own.filter_interpolation_factor;
  minimum_peak_qe_ = own.minimum_peak_qe;
  minimum_peak_distance_nm_ = own.minimum_peak_distance_nm;
  maximum_peak_count_ = own.maximum_peak_count;
  maximum_asymmetry_factor_ = own.maximum_asymmetry_factor;
  detection_window_nm_ = own.detection_window_nm;
  minimum_fwhm_nm_ = own.minimum_fwhm_nm;
  maximum_fwhm_nm_ = own.maximum_fwhm_nm;
  minimum_amplitude_factor_ = own.minimum_amplitude_factor;
  maximum_amplitude_factor_ = own.maximum_amplitude_factor;
  maximum_wavelength_shift_nm_ = own.maximum_wavelength_shift_nm;
  coarse_iterations_ = own.coarse_iterations;
  fine_iterations_ = own.fine_iterations;
  distribution_type_ = own.distribution;
}

void PM_PeakDetection::_Initialize(common::ProcessingModule::InitializationData const&) {
  switch (distribution_type_) {
    case Distributions::DB_GAUSSIAN:
      distribution_ = std::make_unique<common::GaussDistribution>();
      break;
    case Distributions::DB_FABRY_PEROT:
      // One order: a band's neighbouring orders are peaks of their own.
      distribution_ = std::make_unique<common::FabryPerotDistribution>(true);
      break;
    default:
      distribution_ = std::make_unique<common::LorentzDistribution>();
      break;
  }
  if (debug_dump_) {
    common::filesystem::CreateDirectories(debug_dump_dir_);
  }
}

void PM_PeakDetection::_Deallocate() {
  distribution_.reset();
}

void PM_PeakDetection::_Reset() {}

PM_PeakDetection::DebugRecord PM_PeakDetection::GetDebugRecord() const {
  const Lock lock(_GetMutex());
  return debug_record_;
}

// ---------------------------------------------------------------------------------------------
// Process

void PM_PeakDetection::Process(std::list<Peak>& peaks, const std::vector<double>& response,
                               const std::vector<double>& wavelengths, const std::string& name) {
  const Lock lock(_GetMutex());
  if (distribution_ == nullptr) {
    Fail<std::logic_error>("the peak detection is not initialized");
  }
  if (response.size() != wavelengths.size()) {
    Fail<std::invalid_argument>("the response and its wavelengths differ in length");
  }
  peaks.clear();
  debug_prefix_ = name;
  if (wavelengths.empty()) {
    return;
  }
  _GetBandPeaks(peaks, response, wavelengths, minimum_peak_qe_, minimum_peak_distance_nm_,
                maximum_peak_count_);
  if (debug_dump_) {
    debug_record_.wavelengths.assign(kDebugSlots, 0.0);
    debug_record_.qe.assign(kDebugSlots, 0.0);
    debug_record_.fwhm.assign(kDebugSlots, 0.0);
    std::size_t slot = 0;
    for (auto it = peaks.begin(); it != peaks.end() && slot < kDebugSlots; ++it, ++slot) {
      debug_record_.wavelengths[slot] = it->wavelength;
      debug_record_.qe[slot] = it->qe;
      debug_record_.fwhm[slot] = it->fwhm;
    }
  }

  std::vector<double> fine_response;
  std::vector<double> fine_wavelengths;
  _Interpolate(fine_response, fine_wavelengths, response, wavelengths);

  const common::ThreeParametersFunction& distribution = *distribution_;
  unsigned long i = 0;
  for (Peak& entry : peaks) {
    char index[16];
    std::snprintf(index, sizeof index, "%03lu", i++);
    const std::string dump_prefix = name + "peak_" + index + "_";

    std::vector<double> window_response;
    std::vector<double> window_wavelengths;
    _GetWindow(window_response, window_wavelengths, fine_response, fine_wavelengths,
               entry.wavelength, detection_window_nm_);
    for (double& value : window_response) {
      value *= kWindowScale;
    }
    std::list<Peak> local_peaks;
    _GetBandPeaks(local_peaks, window_response, window_wavelengths, minimum_peak_qe_,
                  minimum_peak_distance_nm_, 1);
    if (local_peaks.empty()) {
      // The window's maximum is on its edge: nothing to refine; the peak stays as first found.
      continue;
    }
    Peak local = local_peaks.front();
    _GetFWHM(local, window_response, window_wavelengths, maximum_asymmetry_factor_);

    const double centre = local.wavelength;
    const double amplitude = local.qe / kWindowScale;
    const double box_min[3] = {centre - maximum_wavelength_shift_nm_,
                               distribution.FWHMToParam(minimum_fwhm_nm_),
                               minimum_amplitude_factor_ * amplitude};
    const double box_max[3] = {centre + maximum_wavelength_shift_nm_,
                               distribution.FWHMToParam(maximum_fwhm_nm_),
                               maximum_amplitude_factor_ * amplitude};
    double best[3] = {0.0, 0.0, 0.0};
    debug_prefix_ = dump_prefix + "coarse_";
    _FitFunctionBruteForce(best[0], best[1], best[2], window_wavelengths, window_response,
                           distribution, box_min[0], box_max[0], coarse_iterations_, box_min[1],
                           box_max[1], coarse_iterations_, box_min[2], box_max[2],
                           coarse_iterations_);
    // In unsigned arithmetic, as the count is: one coarse iteration divides by zero, which makes
    // the fine box the whole coarse box, and none gives a vanishing step around the middle.
    const auto divisor = static_cast<double>(coarse_iterations_ - 1);
    debug_prefix_ = dump_prefix + "refinement_";
    double fine_min[3];
    double fine_max[3];
    for (int axis = 0; axis < 3; ++axis) {
      const double step = (box_max[axis] - box_min[axis]) / divisor;
      fine_min[axis] = best[axis] - step > box_min[axis] ? best[axis] - step : box_min[axis];
      fine_max[axis] = best[axis] + step < box_max[axis] ? best[axis] + step : box_max[axis];
    }
    _FitFunctionBruteForce(best[0], best[1], best[2], window_wavelengths, window_response,
                           distribution, fine_min[0], fine_max[0], fine_iterations_, fine_min[1],
                           fine_max[1], fine_iterations_, fine_min[2], fine_max[2],
                           fine_iterations_);
    local.wavelength = best[0];
    local.fwhm = distribution.ParamToFWHM(best[1]);
    local.qe = best[2];

    if (debug_dump_) {
      std::vector<double> model(window_wavelengths.size());
      for (std::size_t j = 0; j < model.size(); ++j) {
        model[j] = distribution(best[0], best[1], best[2], window_wavelengths[j]);
      }
      _Dump({window_wavelengths, window_response, model},
            debug_dump_dir_ / (dump_prefix + "fit_function_brute_force_result.csv"));
    }
    _GetContributionAndFitError(local, fine_response, fine_wavelengths);
    entry = local;
  }
  peaks.sort(PeakContributionComparator());  // std::list::sort is a stable merge sort
}

void PM_PeakDetection::_GetBandPeaks(std::list<Peak>& peaks, const std::vector<double>& response,
                                     const std::vector<double>& wavelengths,
                                     const double& minimum_qe, const double& minimum_distance,
                                     const unsigned long& maximum_count) const {
  peaks.clear();
  const std::size_t n = std::min(response.size(), wavelengths.size());
  if (n < 5) {
    return;
  }
  for (std::size_t i = 2; i + 2 < n; ++i) {
    const double v = response[i];
    if (v > response[i - 2] && v > response[i - 1] && v > response[i + 1] && v > response[i + 2]) {
      Peak peak;
      peak.wavelength = wavelengths[i];
      peak.qe = v;
      peaks.push_back(peak);
    }
  }
  peaks.remove_if([&](const Peak& peak) { return peak.qe < minimum_qe; });

  // Adjacent pairs in wavelength order; the signed distance assumes rising wavelengths.
  if (!peaks.empty()) {
    auto a = peaks.begin();
    auto b = std::next(a);
    while (b != peaks.end()) {
      if (b->wavelength - a->wavelength < minimum_distance) {
        if (a->qe > b->qe) {
          b = peaks.erase(b);
        } else {
          a = peaks.erase(a);  // a now stands on the old b
          b = std::next(a);
        }
      } else {
        a = b;
        ++b;
      }
    }
  }
  peaks.sort(PeakQEComparator());
  if (peaks.size() > maximum_count) {
    peaks.resize(maximum_count);
  }
}

void PM_PeakDetection::_Interpolate(std::vector<double>& new_response,
                                    std::vector<double>& new_wavelengths,
                                    const std::vector<double>& response,
                                    const std::vector<double>& wavelengths) const {
  const std::size_t n = wavelengths.size();
  if (n == 0) {
    return;
  }
  const std::size_t m = (n - 1) * filter_interpolation_factor_ + 1;
  if (m == n) {
    new_wavelengths = wavelengths;
  } else {
    new_wavelengths.resize(m);
    const double step = (wavelengths[n - 1] - wavelengths[0]) / static_cast<double>(m - 1);
    for (std::size_t k = 0; k < m; ++k) {
      new_wavelengths[k] = static_cast<double>(k) * step + wavelengths[0];
    }
  }
  if (n == 1) {
    new_response = response;  // no spline through one point; the grid is that point
  } else {
    SplineInterpolation().Process(new_response, wavelengths, response, new_wavelengths,
                                  SplineInterpolation::IT_NOT_A_KNOT_CUBIC, true, false);
  }
  if (debug_dump_) {
    _Dump({wavelengths, response}, debug_dump_dir_ / (debug_prefix_ + "response.csv"));
    _Dump({new_wavelengths, new_response},
          debug_dump_dir_ / (debug_prefix_ + "response_interp.csv"));
  }
}

void PM_PeakDetection::_GetWindow(std::vector<double>& window_response,
                                  std::vector<double>& window_wavelengths,
                                  const std::vector<double>& response,
                                  const std::vector<double>& wavelengths, const double& centre,
                                  const double& width) {
  const double half = 0.5 * width;
  const auto [first, last] = WindowBounds(wavelengths, centre - half, centre + half);
  const auto begin = static_cast<std::ptrdiff_t>(first);
  const auto end = static_cast<std::ptrdiff_t>(last);
  window_response.assign(response.begin() + begin, response.begin() + end);
  window_wavelengths.assign(wavelengths.begin() + begin, wavelengths.begin() + end);
}

void PM_PeakDetection::_GetFWHM(Peak& peak, const std::vector<double>& response,
                                const std::vector<double>& wavelengths,
                                const double& maximum_asymmetry) const {
  peak.fwhm = 0.0;
  const auto at = std::find(wavelengths.begin(), wavelengths.end(), peak.wavelength);
  if (at == wavelengths.end()) {
    return;  // not a peak of this curve
  }
  const auto k = at - wavelengths.begin();
  const std::vector<double> left_response(std::make_reverse_iterator(response.begin() + k + 1),
                                          response.rend());
  const std::vector<double> left_wavelengths(
      std::make_reverse_iterator(wavelengths.begin() + k + 1), wavelengths.rend());
  double left = _GetFWHMSingleSide(left_response, left_wavelengths);
  double right =
      _GetFWHMSingleSide(std::vector<double>(response.begin() + k, response.end()),
                         std::vector<double>(wavelengths.begin() + k, wavelengths.end()));
  const double right_half = right - peak.wavelength;
  const double left_half = peak.wavelength - left;
  if (left_half > maximum_asymmetry * right_half) {
    left = peak.wavelength - right_half;
  } else if (right_half > maximum_asymmetry * left_half) {
    right = peak.wavelength + left_half;
  }
  peak.wavelength = (right + left) * 0.5;
  peak.fwhm = right - left;
}

double PM_PeakDetection::_GetFWHMSingleSide(const std::vector<double>& response,
                                            const std::vector<double>& wavelengths) {
  const std::size_t n = std::min(response.size(), wavelengths.size());
  if (n == 0) {
    return 0.0;
  }
  const double base = std::min(wavelengths.front(), wavelengths[n - 1]);
  const double top = response[0];
  double weight = 0.0;
  double moment = 0.0;
  for (std::size_t i = 1; i < n; ++i) {
    const double before = response[i - 1] / top;
    const double here = response[i] / top;
    if (before >= 0.5 && here <= 0.5) {
      return wavelengths[i - 1] +
             (wavelengths[i] - wavelengths[i - 1]) * (0.5 - before) / (here - before);
    }
    if (here > 0.5) {
      weight += here;
      moment += (wavelengths[i] - base) * here;
    }
  }
  return moment / weight + base;
}

void PM_PeakDetection::_FitFunctionBruteForce(
    double& p1, double& p2, double& p3, const std::vector<double>& wavelengths,
    const std::vector<double>& response, const common::ThreeParametersFunction& function,
    const double& p1_minimum, const double& p1_maximum, const unsigned long& p1_count,
    const double& p2_minimum, const double& p2_maximum, const unsigned long& p2_count,
    const double& p3_minimum, const double& p3_maximum, const unsigned long& p3_count) {
  const auto step = [](double minimum, double maximum, unsigned long count) {
    return count > 1 ? (maximum - minimum) / static_cast<double>(count - 1) : 0.0;
  };
  const double p1_step = step(p1_minimum, p1_maximum, p1_count);
  const double p2_step = step(p2_minimum, p2_maximum, p2_count);
  const double p3_step = step(p3_minimum, p3_maximum, p3_count);
  double best[3] = {(p1_maximum + p1_minimum) * 0.5, (p2_maximum + p2_minimum) * 0.5,
                    (p3_maximum + p3_minimum) * 0.5};
  double best_error = std::numeric_limits<double>::max();
  const std::size_t n = std::min(wavelengths.size(), response.size());

  double a = p1_minimum;
  for (unsigned long i = 0; i < p1_count; ++i, a += p1_step) {
    double b = p2_minimum;
    for (unsigned long j = 0; j < p2_count; ++j, b += p2_step) {
      double c = p3_minimum;
      for (unsigned long k = 0; k < p3_count; ++k, c += p3_step) {
        function.Evaluate(model_, a, b, c, wavelengths.begin(), wavelengths.end());
        double error = 0.0;
        for (std::size_t s = 0; s < n; ++s) {
          const double d = model_[s] * kWindowScale - response[s];
          error += d * d;
        }
        if (best_error > error) {
          best_error = error;
          best[0] = a;
          best[1] = b;
          best[2] = c;
        }
      }
    }
  }
  p1 = best[0];
  p2 = best[1];
  p3 = best[2];
}

void PM_PeakDetection::_GetContributionAndFitError(Peak& peak, const std::vector<double>& response,
                                                   const std::vector<double>& wavelengths) const {
  peak.contribution = 0.0;
  peak.fit_error = std::numeric_limits<double>::max();
  const double half = 1.5 * peak.fwhm;
  const auto [first, last] =
      WindowBounds(wavelengths, peak.wavelength - half, peak.wavelength + half);
  double total = 0.0;
  for (const double value : response) {
    total += value;
  }
  const double p2 = distribution_->FWHMToParam(peak.fwhm);
  double fitted = 0.0;
  double squares = 0.0;
  for (std::size_t j = first; j < last; ++j) {
    const double model = (*distribution_)(peak.wavelength, p2, peak.qe, wavelengths[j]);
    fitted += model;
    squares += (model - response[j]) * (model - response[j]);
  }
  if (total > 0.0) {
    peak.contribution = fitted / total;
  }
  if (fitted > 0.0) {
    peak.fit_error = std::sqrt(squares) / fitted;
  }
  peak.contribution = std::min(peak.contribution, 1.0);
}

void PM_PeakDetection::_Dump(const std::vector<std::vector<double>>& columns, const Path& file) {
  if (columns.empty() || columns.front().empty()) {
    std::cerr << "cannot dump empty sample set to " << file.ToString() << '\n';
    return;
  }
  std::ofstream out(file.ToString());
  out.imbue(std::locale::classic());
  for (std::size_t row = 0; row < columns.front().size(); ++row) {
    for (std::size_t column = 0; column < columns.size(); ++column) {
      if (column > 0) {
        out << ", ";
      }
      out << (row < columns[column].size() ? columns[column][row] : 0.0);
    }
    out << '\n';
  }
}

}  // namespace kelto::hyperspectral

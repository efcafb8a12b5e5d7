#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <unordered_map>

#include <boost/thread/lock_types.hpp>

#include <kelto/common/logger.h>
#include <kelto/common/three_parameters_function.h>
#include <kelto/common/time.h>
#include <kelto/common/utilities.h>
#include <kelto/hyperspectral/correction/spline_interpolation.h>

#include "../foundation/fail.h"

namespace kelto::hyperspectral {

namespace {

using common::Logger;
using common::ParameterizedObject;
using common::filesystem::Path;
using datatypes::ColumnVector;
using datatypes::Matrix;
using Peak = PM_PeakDetection::Peak;
using VirtualPeak = PM_SpectralCorrectionComputation::PeakInfo;
using Lock = boost::unique_lock<boost::mutex>;
using eMatrixType = CorrectionMatrixTypes::eCorrectionMatrixType;

constexpr unsigned long kCsvPrecision = 6;
// Band selection keeps bands above a third of the mean band energy.
constexpr double kEnergyDivisor = 3.0;
// A gap between first peaks of neighbouring bands this many times the mean gap ends a run.
constexpr double kClusterGapFactor = 10.0;

std::vector<double> ToStdVector(const ColumnVector<double>& vector) {
  return {vector.begin(), vector.end()};
}

std::vector<double> RowOf(const Matrix<double>& matrix, unsigned long row) {
  return {matrix.rows[row], matrix.rows[row] + matrix.column_count};
}

// One row per band, kDebugSlots columns filled from the left.
using Table = std::vector<std::vector<double>>;

void AppendRow(Table& table, const std::list<Peak>& peaks, double Peak::*field) {
  std::vector<double> row(PM_PeakDetection::kDebugSlots, 0.0);
  std::size_t slot = 0;
  for (auto it = peaks.begin(); it != peaks.end() && slot < row.size(); ++it, ++slot) {
    row[slot] = (*it).*field;
  }
  table.push_back(std::move(row));
}

// The debug name of a band, formatted in a buffer of 256 characters as it always was.
std::string BandName(const std::string& matrix_name, unsigned long band) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "corr_matrix_%s_band_%03lu_", matrix_name.c_str(), band);
  return buffer;
}

// Row i of matrix divided by its sum; a row of sum 0 becomes NaN, and stays so.
void NormaliseRows(Matrix<double>& matrix) {
  for (unsigned long i = 0; i < matrix.row_count; ++i) {
    double sum = 0.0;
    for (unsigned long j = 0; j < matrix.column_count; ++j) {
      sum += matrix.rows[i][j];
    }
    for (unsigned long j = 0; j < matrix.column_count; ++j) {
      matrix.rows[i][j] /= sum;
    }
  }
}

}  // namespace

PM_SensorResponseAnalysis::Parameters::~Parameters() = default;
PM_SensorResponseAnalysis::InitializationData::~InitializationData() = default;

PM_SensorResponseAnalysis::PM_SensorResponseAnalysis(const Parameters& parameters)
    : ProcessingModule("unnamed"),
      peak_detection_(std::make_unique<PM_PeakDetection>(PM_PeakDetection::Parameters())),
      correction_computation_(std::make_unique<PM_SpectralCorrectionComputation>(
          PM_SpectralCorrectionComputation::Parameters())) {
  _SetupParameterContainer();
  ProcessingModule::_SetParameters(parameters);
}

PM_SensorResponseAnalysis::~PM_SensorResponseAnalysis() {
  _Reset();
}

void PM_SensorResponseAnalysis::_SetupParameterContainer() {
  _SetContainerInfo("PM_SensorResponseAnalysis", "sensor response analysis",
                    "Parameters used for spectral correction computation");
  static const Parameters p;
  std::unordered_map<eMatrixType, std::string> types;
  for (const eMatrixType value :
       {CorrectionMatrixTypes::CT_REFLECTANCE, CorrectionMatrixTypes::CT_IRRADIANCE}) {
    types.emplace(value, CorrectionMatrixTypes::ToString(value));
  }
  _AddParameter<eMatrixType, Parameters>(p, p.correction_matrix_type, "Correction matrix type",
                                         "Depicts the type of correction matrix.", "Analysis",
                                         types);
  _AddParameter<bool, Parameters>(
      p, p.limit_range, "Limit range",
      "Flags if the wavelength range over which the analysis is done must be constrained to the "
      "region with minimum optical component transmission efficiency (true) or not (false).",
      "Analysis");
  _AddParameter<double, Parameters>(
      p, p.minimum_energy_ratio, "Min. energy ratio",
      "Minimum ratio of the total band energy to the total energy of the strongest band in order "
      "to be used in the correction matrix.",
      "Analysis");
  _AddParameter<double, Parameters>(p, p.minimum_peak_contribution, "Min. peak contribution",
                                    "Minimum contribution of a peak to the band's signal to be "
                                    "selected as base for a virtual filter.",
                                    "Analysis");
  _AddParameter<double, Parameters>(p, p.minimum_contribution_ratio, "Min. contribution ratio",
                                    "Minimum ratio of the contribution of a lower order band to a "
                                    "higher order band (e.g., 1st order to 2nd order).",
                                    "Analysis");
  _AddParameter<bool, Parameters>(p, p.range_extension, "Range extension",
                                  "Flags if higher order peaks may be used to extend the virtual "
                                  "filter range (true) or not (false).",
                                  "Analysis");
  _AddParameter<double, Parameters>(p, p.maximum_peak_fit_error, "Max. peak fit error",
                                    "Write something useful here.", "Analysis");
  _AddParameter<double, Parameters>(p, p.minimum_band_distance, "Min. band distance",
                                    "Minimum distance between optimized bands.", "Analysis");
  _AddParameter<bool, Parameters>(p, p.peak_clustering, "Peak clustering",
                                  "Flags if peak clusters must be located and merged removing "
                                  "overlap (true) or not (false).",
                                  "Analysis");
  _AddParameter<double, Parameters>(p, p.duplicate_peak_distance_nm, "Duplicate peak distance (nm)",
                                    "The distance between any two peaks used to decide if they are "
                                    "at the same location, in nanometers.",
                                    "Analysis");
  _AddParameter<bool, Parameters>(p, p.spectral_resampling, "Enable spectral resampling",
                                  "Flags whether spectral resampling must be done by the "
                                  "correction matrix (true) or not (false).",
                                  "Spectral resampling");
  _AddParameter<bool, Parameters>(
      p, p.debug_dump, "Enable debug dump",
      "Flags if intermediate results must be dumped to csv files (true) or not (false).", "Debug");
  _AddParameter<std::string, Parameters>(p, p.debug_dump_dir, "Debug dump dir",
                                         "Output directory for the debug dump files.", "Debug");

  _LinkParameterizedObject(*peak_detection_, "Peak detection");
  _LinkParameterizedObject(*correction_computation_, "Correction matrix computation");
  // The parent decides these for its children.
  if (_ContainsParameterContainerLink(*peak_detection_)) {
    static const PM_PeakDetection::Parameters d;
    _HideParameter(*peak_detection_, _GetDistance(d, d.distribution));
    _HideParameter(*peak_detection_, _GetDistance(d, d.debug_dump));
    _HideParameter(*peak_detection_, _GetDistance(d, d.debug_dump_dir));
  }
  if (_ContainsParameterContainerLink(*correction_computation_)) {
    static const PM_SpectralCorrectionComputation::Parameters c;
    _HideParameter(*correction_computation_, _GetDistance(c, c.debug_dump));
    _HideParameter(*correction_computation_, _GetDistance(c, c.debug_dump_dir));
  }
}

// ---------------------------------------------------------------------------------------------
// Hooks: a child's structure goes to that child, the module's own is kept here.

common::ProcessingModule* PM_SensorResponseAnalysis::_ChildFor(
    const ParameterizedObject::Parameters& parameters) const {
  if (dynamic_cast<const PM_PeakDetection::Parameters*>(&parameters) != nullptr) {
    return peak_detection_.get();
  }
  if (dynamic_cast<const PM_SpectralCorrectionComputation::Parameters*>(&parameters) != nullptr) {
    return correction_computation_.get();
  }
  return nullptr;
}

void PM_SensorResponseAnalysis::_GetParameters(ParameterizedObject::Parameters& parameters) const {
  if (common::ProcessingModule* child = _ChildFor(parameters)) {
    child->GetParameters(parameters);
    return;
  }
  auto& own = _CastParameters<Parameters>(parameters);
  own.correction_matrix_type = correction_matrix_type_;
  own.limit_range = limit_range_;
  own.minimum_peak_contribution = minimum_peak_contribution_;
  own.minimum_contribution_ratio = minimum_contribution_ratio_;
  own.range_extension = range_extension_;
  own.maximum_peak_fit_error = maximum_peak_fit_error_;
  own.peak_clustering = peak_clustering_;
  own.minimum_band_distance = minimum_band_distance_;
  own.spectral_resampling = spectral_resampling_;
  own.duplicate_peak_distance_nm = duplicate_peak_distance_nm_;
  own.resampling_wavelengths = resampling_wavelengths_;
  own.debug_dump = debug_dump_;
  own.debug_dump_dir = debug_dump_dir_.ToString();
}

// Any value is accepted here; the children check their own, and a negative minimum band distance
// is refused where it would be used.
void PM_SensorResponseAnalysis::_CheckParameters(ParameterizedObject::Parameters const&) const {}

void PM_SensorResponseAnalysis::_SetConfigurationParameters(
    ParameterizedObject::Parameters const& parameters) {
  if (common::ProcessingModule* child = _ChildFor(parameters)) {
    child->SetConfigurationParameters(parameters);
    return;
  }
  const auto& own = _CastParameters<Parameters>(parameters);
  debug_dump_ = own.debug_dump;
  debug_dump_dir_ = Path(own.debug_dump_dir);

  PM_PeakDetection::Parameters detection;
  peak_detection_->GetParameters(detection);
  detection.debug_dump = debug_dump_;
  detection.debug_dump_dir = debug_dump_dir_ / "peak_detection";
  peak_detection_->SetParameters(detection);

  PM_SpectralCorrectionComputation::Parameters correction;
  correction_computation_->GetParameters(correction);
  correction.debug_dump = debug_dump_;
  correction.debug_dump_dir = debug_dump_dir_ / "spectral_correction_computation";
  correction_computation_->SetParameters(correction);
}

void PM_SensorResponseAnalysis::_SetRuntimeParameters(
    ParameterizedObject::Parameters const& parameters) {
  if (common::ProcessingModule* child = _ChildFor(parameters)) {
    child->SetRuntimeParameters(parameters);
    return;
  }
  const auto& own = _CastParameters<Parameters>(parameters);
  correction_matrix_type_ = own.correction_matrix_type;
  limit_range_ = own.limit_range;
  minimum_peak_contribution_ = own.minimum_peak_contribution;
  minimum_contribution_ratio_ = own.minimum_contribution_ratio;
  range_extension_ = own.range_extension;
  maximum_peak_fit_error_ = own.maximum_peak_fit_error;
  peak_clustering_ = own.peak_clustering;
  minimum_band_distance_ = own.minimum_band_distance;
  spectral_resampling_ = own.spectral_resampling;
  duplicate_peak_distance_nm_ = own.duplicate_peak_distance_nm;
  resampling_wavelengths_ = own.resampling_wavelengths;
}

void PM_SensorResponseAnalysis::_Initialize(
    common::ProcessingModule::InitializationData const& data) {
  const auto& own = _CastInitializationData<InitializationData>(data);
  filter_info_.calibration_info = own.filter_info.calibration_info;
  filter_info_.filter_zones = own.filter_info.filter_zones;
  const std::vector<double>& grid = filter_info_.calibration_info.sample_points_nm;
  const unsigned long bands = filter_info_.GetTotalNrBands();
  wavelengths_ = ColumnVector<double>(grid.size(), 0.0);
  std::copy(grid.begin(), grid.end(), wavelengths_.begin());
  responses_ = Matrix<double>(bands, grid.size(), 0.0);
  mask_.assign(bands, false);
  unsigned long row = 0;
  for (const FilterZone& zone : filter_info_.filter_zones) {
    for (const FilterZone::BandInfo& band : zone.bands) {
      // A shorter response leaves zeros behind; a longer one is cut to the grid.
      const std::size_t count = std::min(band.response.size(), grid.size());
      std::copy(band.response.begin(), band.response.begin() + static_cast<std::ptrdiff_t>(count),
                responses_.rows[row]);
      mask_[row] = band.selected;
      ++row;
    }
  }
  if (debug_dump_) {
    common::filesystem::CreateDirectories(debug_dump_dir_);
  }
}

// What Initialize took stays until the next Initialize or the destructor.
void PM_SensorResponseAnalysis::_Deallocate() {}

void PM_SensorResponseAnalysis::_Reset() {}

void PM_SensorResponseAnalysis::SetProgressCallback(ProgressCallback callback) {
  const Lock lock(_GetMutex());
  progress_ = std::move(callback);
}

void PM_SensorResponseAnalysis::_ReportProgress(unsigned long done) const {
  if (progress_) {
    progress_(done, responses_.row_count);
  }
}

// ---------------------------------------------------------------------------------------------
// System and optical response

void PM_SensorResponseAnalysis::_ComputeOpticalComponentsResponse(
    ColumnVector<double>& response, double& range_start, double& range_end,
    const std::deque<OpticalComponent>& first, const std::deque<OpticalComponent>& second) const {
  const unsigned long n = wavelengths_.size;
  response = ColumnVector<double>(n, 1.0);
  if (n == 0) {
    range_start = 0.0;
    range_end = 0.0;
    return;
  }
  const double lowest = wavelengths_[0];
  const double highest = wavelengths_[n - 1];
  range_start = lowest;
  range_end = highest;
  // Fallback limits when the components' ranges do not intersect; they start crossed.
  double low = highest;
  double high = lowest;
  if (first.empty() && second.empty()) {
    if (filter_info_.filter_zones.empty()) {
      // Crossed on purpose: a limit to this range selects nothing.
      range_start = highest;
      range_end = lowest;
      return;
    }
    double a = highest;
    double b = lowest;
    for (const FilterZone& zone : filter_info_.filter_zones) {
      a = std::min(zone.spectral_range_start_nm, a);
      b = std::max(zone.spectral_range_end_nm, b);
    }
    range_start = a;
    range_end = b;
    return;
  }
  const std::vector<double> grid = ToStdVector(wavelengths_);
  std::vector<double> transmission;
  for (const auto* list : {&first, &second}) {
    for (const OpticalComponent& component : *list) {
      SplineInterpolation().Process(transmission, component.sample_points_nm, component.response,
                                    grid, SplineInterpolation::IT_NOT_A_KNOT_CUBIC, false, true);
      for (unsigned long i = 0; i < n; ++i) {
        response[i] *= transmission[i];
      }
      range_start = std::max(component.transmission_range_start_nm, range_start);
      range_end = std::min(component.transmission_range_end_nm, range_end);
      low = std::min(range_start, low);
      if (range_end > high) {
        high = range_end;
      }
    }
  }
  if (range_start >= range_end) {
    range_start = low;
    range_end = high;
  }
}

void PM_SensorResponseAnalysis::_ComputeSystemResponse(Matrix<double>& system,
                                                       ColumnVector<double>& wavelengths,
                                                       const ColumnVector<double>& optical,
                                                       double range_start, double range_end) const {
  unsigned long first = 0;
  unsigned long last = wavelengths_.size;
  if (limit_range_) {
    while (first < wavelengths_.size && wavelengths_[first] < range_start) {
      ++first;
    }
    last = first;
    while (last < wavelengths_.size && !(wavelengths_[last] > range_end)) {
      ++last;
    }
  }
  wavelengths = ColumnVector<double>(wavelengths_.data + first, wavelengths_.data + last, true);
  system = Matrix<double>(responses_.row_count, last - first, 0.0);
  for (unsigned long r = 0; r < system.row_count; ++r) {
    for (unsigned long j = 0; j < system.column_count; ++j) {
      system.rows[r][j] = optical[first + j] * responses_.rows[r][first + j];
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Peaks

void PM_SensorResponseAnalysis::ComputePeaks(FilterInfo& filter,
                                             const std::deque<OpticalComponent>& components) {
  const Lock lock(_GetMutex());
  _ComputePeaks(filter, components);
}

void PM_SensorResponseAnalysis::_ComputePeaks(FilterInfo& filter,
                                              const std::deque<OpticalComponent>& components) {
  const auto start = std::chrono::steady_clock::now();
  if (filter.GetTotalNrBands() != responses_.row_count) {
    Fail<std::invalid_argument>("the filter has " + std::to_string(filter.GetTotalNrBands()) +
                                " bands, the responses given at Initialize " +
                                std::to_string(responses_.row_count));
  }
  peak_detection_->Initialize(common::ProcessingModule::InitializationData());
  PM_PeakDetection::Parameters detection;
  peak_detection_->GetParameters(detection);

  ColumnVector<double> optical;
  double range_start = 0.0;
  double range_end = 0.0;
  _ComputeOpticalComponentsResponse(optical, range_start, range_end, components, {});
  Matrix<double> system;
  ColumnVector<double> wavelengths;
  _ComputeSystemResponse(system, wavelengths, optical, range_start, range_end);
  const std::vector<double> grid = ToStdVector(wavelengths);

  unsigned long base = 0;
  unsigned long z = 0;
  for (FilterZone& zone : filter.filter_zones) {
    FilterZone::SortOnPatternPositionIndex(zone.bands);
    unsigned long k = 0;
    for (FilterZone::BandInfo& band : zone.bands) {
      band.peaks.clear();
      char name[256];
      std::snprintf(name, sizeof name, "zone_%01lu_band_%03lu_", z, band.pattern_position_index);
      std::list<Peak> peaks;
      peak_detection_->Process(peaks, RowOf(system, base + k), grid, name);
      unsigned long order = 1;
      for (const Peak& peak : peaks) {
        if (detection.maximum_peak_count != 0 && order > detection.maximum_peak_count) {
          break;
        }
        FilterZone::BandInfo::PeakInfo info;
        info.shape = detection.distribution;
        info.order = order++;
        info.wavelength_nm = peak.wavelength;
        info.fwhm_nm = peak.fwhm;
        info.quantum_efficiency = peak.qe;
        info.contribution = peak.contribution;
        info.fit_error = peak.fit_error;
        band.peaks.push_back(info);
      }
      ++k;
      _ReportProgress(base + k);
    }
    base += k;
    ++z;
  }
  peak_detection_->Deallocate();
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  Logger::StaticInfo("peak detection took " + std::to_string(elapsed.count()) + "ms\n");
}

// ---------------------------------------------------------------------------------------------
// Band selection

void PM_SensorResponseAnalysis::_SelectVirtualFilterPeaks(std::vector<std::list<Peak>>& peaks,
                                                          std::vector<bool>& selected) const {
  const unsigned long count = peaks.size();
  std::map<unsigned long, double> gaps;
  double sum = 0.0;
  unsigned long last_seen = 0;
  for (unsigned long a = 0, b = 1; b < count; ++b) {
    if (peaks[a].empty()) {
      a = b;
    } else if (!peaks[b].empty()) {
      const double gap = std::fabs(peaks[b].front().wavelength - peaks[a].front().wavelength);
      gaps[a] = gap;
      sum += gap;
      last_seen = b;
      a = b;
    }
  }
  const double mean = sum / static_cast<double>(gaps.size());  // NaN without a pair

  std::deque<unsigned long> starts;
  std::list<PeakCluster> clusters;
  const auto run = [&](unsigned long from, unsigned long to) {
    PeakCluster cluster;
    for (unsigned long band = from; band <= to; ++band) {
      if (!peaks[band].empty()) {
        cluster.peaks[band] = peaks[band].front().wavelength;
      }
    }
    clusters.push_back(std::move(cluster));
  };
  for (const auto& [index, gap] : gaps) {
    if (starts.size() == clusters.size()) {
      starts.push_back(index);
    }
    if (!(gap <= kClusterGapFactor * mean)) {
      run(starts.back(), index);
    }
  }
  if (starts.size() <= clusters.size()) {
    run(last_seen, last_seen);
  } else {
    run(starts.back(), last_seen);
  }
  if (clusters.size() == 1) {
    return;
  }

  // Signed spans: widest first for rising wavelengths. list::sort is a stable merge sort.
  const auto first = [](const PeakCluster& c) { return c.peaks.begin()->second; };
  const auto last = [](const PeakCluster& c) { return c.peaks.rbegin()->second; };
  const auto span = [&](const PeakCluster& c) {
    return c.peaks.empty() ? 0.0 : first(c) - last(c);
  };
  clusters.sort([&](const PeakCluster& a, const PeakCluster& b) { return span(a) < span(b); });

  for (auto a = std::next(clusters.begin()); a != clusters.end(); ++a) {
    for (auto b = clusters.begin(); b != a; ++b) {
      if (b->peaks.empty()) {
        continue;
      }
      for (const auto& [band, wavelength] : a->peaks) {
        if (!peaks[band].empty() && !(wavelength < first(*b)) && !(last(*b) < wavelength)) {
          peaks[band].clear();
          selected[band] = false;
        }
      }
    }
  }
}

// Both sides weigh with energies[i], so for a positive energy this compares contributions.
void PM_SensorResponseAnalysis::_RemoveDuplicatePeaks(std::vector<bool>& selected,
                                                      std::vector<std::list<Peak>>& peaks,
                                                      ColumnVector<double>& energies) const {
  const std::size_t n = selected.size();
  if (n == 1) {
    return;
  }
  for (std::size_t i = 0; i + 1 < n; ++i) {
    if (!selected[i]) {
      continue;
    }
    const double e = energies[i];
    const double w = peaks[i].front().wavelength;
    const double s = peaks[i].front().contribution * e;
    for (std::size_t j = i + 1; j < n; ++j) {
      if (!selected[j]) {
        continue;
      }
      if (std::fabs(peaks[j].front().wavelength - w) < duplicate_peak_distance_nm_) {
        if (peaks[j].front().contribution * e > s) {
          selected[i] = false;
        } else {
          selected[j] = false;
        }
      }
    }
  }
}

void PM_SensorResponseAnalysis::_BandSelection(
    Matrix<double>& selected_responses, ColumnVector<double>& selected_energies,
    std::deque<unsigned long>& selected_bands, std::list<VirtualPeak>& virtual_peaks,
    std::vector<std::list<Peak>>& peaks, const std::vector<bool>& mask, Matrix<double>& system) {
  PM_PeakDetection::Parameters detection;
  peak_detection_->GetParameters(detection);
  const unsigned long bands = system.row_count;
  ColumnVector<double> energy(bands, 0.0);
  double total = 0.0;
  for (unsigned long r = 0; r < bands; ++r) {
    for (unsigned long j = 0; j < system.column_count; ++j) {
      energy[r] += system.rows[r][j];
    }
    total += energy[r];
  }
  const double mean = total / static_cast<double>(bands);

  std::vector<bool> selected = mask;
  for (unsigned long r = 0; r < bands; ++r) {
    if (!selected[r]) {
      peaks[r].clear();
    } else if (peaks[r].empty()) {
      selected[r] = false;
    } else {
      const Peak& p = peaks[r].front();
      const bool keep = energy[r] > mean / kEnergyDivisor &&
                        !(p.contribution < minimum_peak_contribution_) &&
                        !(p.fit_error > maximum_peak_fit_error_);
      if (!keep) {
        selected[r] = false;
        peaks[r].clear();
      }
    }
  }
  if (peak_clustering_) {
    _SelectVirtualFilterPeaks(peaks, selected);
  }
  _RemoveDuplicatePeaks(selected, peaks, energy);

  selected_bands.clear();
  virtual_peaks.clear();
  for (unsigned long r = 0; r < bands; ++r) {
    if (!selected[r]) {
      continue;
    }
    const Peak& p = peaks[r].front();
    VirtualPeak info;
    info.wavelength = p.wavelength;
    info.fwhm = p.fwhm;
    info.row = selected_bands.size();
    info.shape = detection.distribution;
    info.contribution = p.contribution;
    info.fit_error = p.fit_error;
    info.band = r;
    selected_bands.push_back(r);
    virtual_peaks.push_back(info);
  }
  virtual_peaks.sort(PM_SpectralCorrectionComputation::PeakWavelengthComparator());
  if (debug_dump_) {
    std::vector<double> wavelengths;
    std::vector<double> fwhms;
    for (const VirtualPeak& info : virtual_peaks) {
      wavelengths.push_back(info.wavelength);
      fwhms.push_back(info.fwhm);
    }
    common::Utilities::WriteCsv(wavelengths, true, debug_dump_dir_ / "vf_peak_wavelengths.csv",
                                kCsvPrecision);
    common::Utilities::WriteCsv(fwhms, true, debug_dump_dir_ / "vf_peak_fwhms.csv", kCsvPrecision);
  }
  // Reflectance: every response to unit sum, so that a white target gives 1 in every band.
  if (correction_matrix_type_ == CorrectionMatrixTypes::CT_REFLECTANCE) {
    for (unsigned long r = 0; r < bands; ++r) {
      for (unsigned long j = 0; j < system.column_count; ++j) {
        system.rows[r][j] /= energy[r];
      }
    }
  }
  selected_responses = Matrix<double>(selected_bands.size(), system.column_count, 0.0);
  selected_energies = ColumnVector<double>(selected_bands.size(), 0.0);
  for (unsigned long k = 0; k < selected_bands.size(); ++k) {
    std::copy(system.rows[selected_bands[k]], system.rows[selected_bands[k]] + system.column_count,
              selected_responses.rows[k]);
    selected_energies[k] = energy[selected_bands[k]];
  }
}

// Groups are taken around each entry in turn, by distance to that entry; an entry may serve two
// groups. Each group becomes one row, Gaussian-weighted around the entry it was taken for.
void PM_SensorResponseAnalysis::_MatrixCoefficientsSetBandsMinimumDistance(
    std::list<VirtualPeak>& new_peaks, Matrix<double>& new_matrix,
    const std::list<VirtualPeak>& peaks, const Matrix<double>& matrix,
    const double& minimum_distance) {
  const std::vector<VirtualPeak> entries(peaks.begin(), peaks.end());
  const std::size_t n = entries.size();
  const double d = minimum_distance;
  const common::GaussDistribution gauss;
  const double p2 = gauss.FWHMToParam(d);
  std::vector<std::vector<double>> rows;
  new_peaks.clear();
  std::size_t c = 0;
  while (c < n) {
    const double centre = entries[c].wavelength;
    std::size_t start = c;
    while (start > 0 && std::fabs(entries[start - 1].wavelength - centre) < d) {
      --start;
    }
    std::size_t end = c;
    while (end < n && std::fabs(entries[end].wavelength - centre) < d) {
      ++end;
    }
    if (end - start == 1) {
      new_peaks.push_back(entries[c]);
      rows.push_back(RowOf(matrix, c));
      c = c + 1;
      continue;
    }
    std::vector<double> group;
    for (std::size_t i = start; i < end; ++i) {
      group.push_back(entries[i].wavelength);
    }
    std::vector<double> g;
    gauss.Evaluate(g, centre, p2, 1.0, group.begin(), group.end());
    double sum = 0.0;
    for (const double value : g) {
      sum += value;
    }
    const double factor = 1.0 / sum;
    for (double& value : g) {
      value *= factor;
    }
    VirtualPeak merged;
    std::vector<double> row(matrix.column_count, 0.0);
    for (std::size_t i = 0; i < g.size(); ++i) {
      merged.wavelength += g[i] * group[i];
      merged.fwhm += g[i] * entries[start + i].fwhm;
      for (unsigned long column = 0; column < matrix.column_count; ++column) {
        row[column] += g[i] * matrix.rows[start + i][column];
      }
    }
    merged.row = c;
    merged.shape = Distributions::DB_FABRY_PEROT;
    new_peaks.push_back(merged);
    rows.push_back(std::move(row));
    c = std::max(end, c + 1);
  }
  new_matrix = Matrix<double>(rows.size(), matrix.column_count, 0.0);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::copy(rows[i].begin(), rows[i].end(), new_matrix.rows[i]);
  }
}

// ---------------------------------------------------------------------------------------------
// The computation

void PM_SensorResponseAnalysis::ComputeCorrectionMatrix(
    CorrectionMatrix& matrix, const std::deque<OpticalComponent>& components) {
  const Lock lock(_GetMutex());
  _ComputeCorrectionMatrix(matrix, components, mask_);
}

void PM_SensorResponseAnalysis::ComputeCorrectionMatrix(
    CorrectionMatrix& matrix, const std::deque<OpticalComponent>& components,
    const std::vector<bool>& mask) {
  const Lock lock(_GetMutex());
  _ComputeCorrectionMatrix(matrix, components, mask);
}

void PM_SensorResponseAnalysis::_ComputeCorrectionMatrix(
    CorrectionMatrix& matrix, const std::deque<OpticalComponent>& components,
    const std::vector<bool>& mask) {
  const unsigned long bands = responses_.row_count;
  if (mask.size() != bands) {
    Fail<std::invalid_argument>("mask length differs from the number of bands");
  }
  const common::time::TimePoint start = common::time::CurrentUniversalTime();
  matrix.virtual_bands.clear();
  if (debug_dump_) {
    common::filesystem::CreateDirectories(debug_dump_dir_);
  }

  ColumnVector<double> optical;
  double range_start = 0.0;
  double range_end = 0.0;
  _ComputeOpticalComponentsResponse(optical, range_start, range_end, components,
                                    matrix.optical_components);
  if (debug_dump_) {
    // The product of both lists, in spite of the name.
    common::Utilities::WriteCsv(ToStdVector(optical), true,
                                debug_dump_dir_ / "internal_components.csv", kCsvPrecision);
  }
  Matrix<double> system;
  ColumnVector<double> wavelengths;
  _ComputeSystemResponse(system, wavelengths, optical, range_start, range_end);
  if (debug_dump_) {
    for (const char* file :
         {"responses_with_internal_filters.csv", "responses_prio_peak_detection.csv"}) {
      common::Utilities::WriteCsv(system.data, system.row_count, system.column_count,
                                  debug_dump_dir_ / file, kCsvPrecision);
    }
  }

  peak_detection_->Initialize(common::ProcessingModule::InitializationData());
  const std::vector<double> grid = ToStdVector(wavelengths);
  std::vector<std::list<Peak>> peaks(bands);
  Table initial_wavelengths;
  Table initial_qe;
  Table initial_fwhm;
  for (unsigned long b = 0; b < bands; ++b) {
    peak_detection_->Process(peaks[b], RowOf(system, b), grid, BandName(matrix.name, b));
    if (debug_dump_) {
      PM_PeakDetection::DebugRecord record = peak_detection_->GetDebugRecord();
      initial_wavelengths.push_back(std::move(record.wavelengths));
      initial_qe.push_back(std::move(record.qe));
      initial_fwhm.push_back(std::move(record.fwhm));
    }
    _ReportProgress(b + 1);
  }
  peak_detection_->Deallocate();
  if (debug_dump_) {
    Table tables[4];
    for (const auto& list : peaks) {
      AppendRow(tables[0], list, &Peak::wavelength);
      AppendRow(tables[1], list, &Peak::contribution);
      AppendRow(tables[2], list, &Peak::fit_error);
      AppendRow(tables[3], list, &Peak::fwhm);
    }
    const std::pair<const char*, const Table*> files[] = {
        {"initial_peaks_positions.csv", &initial_wavelengths},
        {"initial_peaks_qe.csv", &initial_qe},
        {"initial_peaks_fwhm.csv", &initial_fwhm},
        {"peak_wavelenghts.csv", &tables[0]},
        {"peak_contributions.csv", &tables[1]},
        {"peak_fit_errors.csv", &tables[2]},
        {"peak_fwhms.csv", &tables[3]}};
    for (const auto& [file, table] : files) {
      common::Utilities::WriteCsv(*table, debug_dump_dir_ / file, kCsvPrecision);
    }
  }

  Matrix<double> selected_responses;
  ColumnVector<double> energies;
  std::deque<unsigned long> selected_bands;
  std::list<VirtualPeak> virtual_peaks;
  _BandSelection(selected_responses, energies, selected_bands, virtual_peaks, peaks, mask, system);
  if (!virtual_peaks.empty()) {
    _Invert(matrix, selected_responses, energies, selected_bands, std::move(virtual_peaks),
            wavelengths, optical);
  }
  matrix.created = start;
  matrix.algorithm = CorrectionAlgorithms::CA_M0;
  matrix.algorithm_version = {1, 0};
  const auto ticks = (common::time::CurrentUniversalTime() - start).count();
  // The clock's own ticks (microseconds) under the label "ms".
  Logger::StaticInfo("correction matrix calculation took " + std::to_string(ticks) + "ms\n");
}

void PM_SensorResponseAnalysis::ComputeCorrectionMatrixForPeaks(
    CorrectionMatrix& matrix, const std::deque<OpticalComponent>& components,
    const std::list<VirtualPeak>& virtual_peaks) {
  const Lock lock(_GetMutex());
  const common::time::TimePoint start = common::time::CurrentUniversalTime();
  matrix.virtual_bands.clear();
  ColumnVector<double> optical;
  double range_start = 0.0;
  double range_end = 0.0;
  _ComputeOpticalComponentsResponse(optical, range_start, range_end, components,
                                    matrix.optical_components);
  Matrix<double> system;
  ColumnVector<double> wavelengths;
  _ComputeSystemResponse(system, wavelengths, optical, range_start, range_end);

  ColumnVector<double> energies(system.row_count, 0.0);
  std::deque<unsigned long> all_bands;
  for (unsigned long r = 0; r < system.row_count; ++r) {
    for (unsigned long j = 0; j < system.column_count; ++j) {
      energies[r] += system.rows[r][j];
    }
    all_bands.push_back(r);
  }
  if (correction_matrix_type_ == CorrectionMatrixTypes::CT_REFLECTANCE) {
    for (unsigned long r = 0; r < system.row_count; ++r) {
      for (unsigned long j = 0; j < system.column_count; ++j) {
        system.rows[r][j] /= energies[r];
      }
    }
  }
  std::list<VirtualPeak> sorted = virtual_peaks;
  sorted.sort(PM_SpectralCorrectionComputation::PeakWavelengthComparator());
  if (!sorted.empty() && system.row_count != 0) {
    _Invert(matrix, system, energies, all_bands, std::move(sorted), wavelengths, optical);
  }
  matrix.created = start;
  matrix.algorithm = CorrectionAlgorithms::CA_M0;
  matrix.algorithm_version = {1, 0};
}

void PM_SensorResponseAnalysis::_Invert(CorrectionMatrix& matrix,
                                        const Matrix<double>& selected_responses,
                                        const ColumnVector<double>& energies,
                                        const std::deque<unsigned long>& selected_bands,
                                        std::list<VirtualPeak> virtual_peaks,
                                        const ColumnVector<double>& wavelengths,
                                        const ColumnVector<double>& optical) {
  PM_SpectralCorrectionComputation::Parameters inversion;
  correction_computation_->GetParameters(inversion);
  inversion.inversion_algorithm = InversionOptimizationAlgorithms::IOA_TIKHONOV;
  correction_computation_->SetParameters(inversion);

  PM_SpectralCorrectionComputation::InitializationData data;
  data.responses = selected_responses;
  data.wavelengths = wavelengths;
  data.energies = energies;
  // At the length of the whole grid, also when the range cuts the rest.
  data.optical_response = optical;
  correction_computation_->Initialize(data);
  Matrix<double> result;
  correction_computation_->ComputeCorrectionMatrix(
      result, std::vector<VirtualPeak>(virtual_peaks.begin(), virtual_peaks.end()));
  correction_computation_->Deallocate();

  const double minimum =
      energies.size == 0 ? 0.0 : *std::min_element(energies.begin(), energies.end());
  if (debug_dump_) {
    Matrix<double>::WriteCsv(result, debug_dump_dir_ / "correction_matrix.csv", kCsvPrecision);
  }
  if (minimum_band_distance_ != 0.0) {
    if (!(minimum_band_distance_ > 0.0)) {  // NaN too
      Fail<std::invalid_argument>("minimum band distance must not be negative");
    }
    std::list<VirtualPeak> merged_peaks;
    Matrix<double> merged;
    _MatrixCoefficientsSetBandsMinimumDistance(merged_peaks, merged, virtual_peaks, result,
                                               minimum_band_distance_);
    virtual_peaks = std::move(merged_peaks);
    result = std::move(merged);
    if (debug_dump_) {
      Matrix<double>::WriteCsv(result, debug_dump_dir_ / "new_correction_matrix.csv",
                               kCsvPrecision);
      std::vector<double> merged_wavelengths;
      std::vector<double> merged_fwhms;
      for (const VirtualPeak& info : virtual_peaks) {
        merged_wavelengths.push_back(info.wavelength);
        merged_fwhms.push_back(info.fwhm);
      }
      common::Utilities::WriteCsv(merged_wavelengths, true,
                                  debug_dump_dir_ / "new_vf_peak_wavelengths.csv", kCsvPrecision);
      common::Utilities::WriteCsv(merged_fwhms, true, debug_dump_dir_ / "new_vf_peak_fwhms.csv",
                                  kCsvPrecision);
    }
  }
  if (spectral_resampling_) {
    _Resample(virtual_peaks, result);
  }
  if (correction_matrix_type_ == CorrectionMatrixTypes::CT_REFLECTANCE) {
    NormaliseRows(result);
  }

  const unsigned long bands = responses_.row_count;
  unsigned long i = 0;
  for (const VirtualPeak& info : virtual_peaks) {
    CorrectionMatrix::VirtualBand band;
    band.wavelength_nm = info.wavelength;
    band.fwhm_nm = info.fwhm;
    band.coefficients.assign(bands, 0.0);
    for (unsigned long k = 0; k < selected_bands.size(); ++k) {
      band.coefficients[selected_bands[k]] = result.rows[i][k];
    }
    matrix.virtual_bands.push_back(std::move(band));
    ++i;
  }
  if (debug_dump_) {
    Matrix<double> full(matrix.virtual_bands.size(), bands, 0.0);
    for (unsigned long r = 0; r < full.row_count; ++r) {
      std::copy(matrix.virtual_bands[r].coefficients.begin(),
                matrix.virtual_bands[r].coefficients.end(), full.rows[r]);
    }
    Matrix<double>::WriteCsv(full, debug_dump_dir_ / "full_correction_matrix.csv", kCsvPrecision);
  }
  matrix.type = correction_matrix_type_;
  matrix.minimum_band_energy = minimum;
}

// A cursor walks the rising peaks once, so the targets are expected in rising order; each target
// between two peaks blends their rows linearly, one beyond the ends copies the end row.
void PM_SensorResponseAnalysis::_Resample(std::list<VirtualPeak>& peaks,
                                          Matrix<double>& matrix) const {
  const std::vector<double>& targets = resampling_wavelengths_;
  std::list<VirtualPeak> new_peaks;
  Matrix<double> new_matrix(targets.size(), matrix.column_count, 0.0);
  const auto copy_row = [&](unsigned long to, unsigned long from) {
    std::copy(matrix.rows[from], matrix.rows[from] + matrix.column_count, new_matrix.rows[to]);
  };
  auto c = peaks.begin();
  unsigned long k = 0;
  for (unsigned long i = 0; i < targets.size(); ++i) {
    const double t = targets[i];
    const auto at_cursor = [&]() {
      VirtualPeak entry = *c;
      entry.wavelength = t;
      new_peaks.push_back(entry);
      copy_row(i, k);
    };
    if (c->wavelength > t) {
      at_cursor();
      continue;
    }
    auto d = std::next(c);
    while (d != peaks.end() && t > d->wavelength) {
      c = d;
      ++k;
      d = std::next(c);
    }
    if (d == peaks.end()) {
      at_cursor();
      continue;
    }
    const double u =
        d->wavelength > c->wavelength ? (d->wavelength - t) / (d->wavelength - c->wavelength) : 1.0;
    for (unsigned long j = 0; j < matrix.column_count; ++j) {
      new_matrix.rows[i][j] = (1.0 - u) * matrix.rows[k + 1][j] + u * matrix.rows[k][j];
    }
    VirtualPeak entry = *c;
    entry.wavelength = t;
    entry.fwhm = c->fwhm * u + d->fwhm * (1.0 - u);
    entry.row = u < 0.5 ? d->row : c->row;
    new_peaks.push_back(entry);
  }
  peaks = std::move(new_peaks);
  matrix = std::move(new_matrix);
}

}  // namespace kelto::hyperspectral

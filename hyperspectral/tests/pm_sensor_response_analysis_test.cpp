#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <list>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include <kelto/common/parameter_container.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/correction/utilities.h>

#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>

namespace {

using kelto::common::Logger;
using kelto::common::Parameter;
using kelto::common::ParameterContainer;
using kelto::datatypes::ColumnVector;
using kelto::datatypes::Matrix;
using kelto::hyperspectral::CorrectionAlgorithms;
using kelto::hyperspectral::CorrectionMatrix;
using kelto::hyperspectral::CorrectionMatrixTypes;
using kelto::hyperspectral::Distributions;
using kelto::hyperspectral::FilterInfo;
using kelto::hyperspectral::FilterZone;
using kelto::hyperspectral::OpticalComponent;
using kelto::hyperspectral::PM_PeakDetection;
using kelto::hyperspectral::PM_SpectralCorrectionComputation;
using kelto::hyperspectral::SensorCalibration;
using kelto::testing::LogCapture;
using kelto::testing::TemporaryDirectory;
using Module = kelto::hyperspectral::PM_SensorResponseAnalysis;
using Peak = PM_PeakDetection::Peak;
using PeakInfo = PM_SpectralCorrectionComputation::PeakInfo;
using Peaks = std::vector<std::list<Peak>>;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

class Probe : public Module {
 public:
  using Module::_BandSelection;
  using Module::_ComputeOpticalComponentsResponse;
  using Module::_ComputeSystemResponse;
  using Module::_MatrixCoefficientsSetBandsMinimumDistance;
  using Module::_RemoveDuplicatePeaks;
  using Module::_SelectVirtualFilterPeaks;
  using Module::Module;
};

std::vector<double> Grid(double first, double last, double step) {
  std::vector<double> grid;
  for (double w = first; w <= last + 1e-9; w += step) {
    grid.push_back(w);
  }
  return grid;
}

FilterZone Zone(double start_nm, double end_nm, std::vector<std::vector<double>> responses) {
  FilterZone zone(FilterZone::MOSAIC);
  zone.spectral_range_start_nm = start_nm;
  zone.spectral_range_end_nm = end_nm;
  unsigned long index = 0;
  for (auto& response : responses) {
    FilterZone::BandInfo band;
    band.pattern_position_index = index++;
    band.selected = true;
    band.response = std::move(response);
    zone.bands.push_back(band);
  }
  return zone;
}

Module::InitializationData Data(std::vector<double> grid, std::vector<FilterZone> zones) {
  Module::InitializationData data;
  data.filter_info.calibration_info.sample_points_nm = std::move(grid);
  for (auto& zone : zones) {
    data.filter_info.filter_zones.push_back(std::move(zone));
  }
  return data;
}

// A component passing 1.0 between its sample points (0 before them) with the given range.
OpticalComponent Component(double from_nm, double to_nm, double range_start, double range_end) {
  OpticalComponent component;
  component.sample_points_nm = Grid(from_nm, to_nm, 10.0);
  component.response.assign(component.sample_points_nm.size(), 1.0);
  component.transmission_range_start_nm = range_start;
  component.transmission_range_end_nm = range_end;
  return component;
}

std::list<Peak> OnePeak(double wavelength, double contribution = 0.5, double fit_error = 0.0) {
  Peak peak;
  peak.wavelength = wavelength;
  peak.fwhm = 10.0;
  peak.contribution = contribution;
  peak.fit_error = fit_error;
  return {peak};
}

double Sum(const std::vector<double>& values) {
  return std::accumulate(values.begin(), values.end(), 0.0);
}

SensorCalibration Sample(const std::string& type) {
  SensorCalibration calibration;
  SensorCalibration::ParsingResult result(false, true);
  calibration.ReadFile(result, std::string(KELTO_TEST_DATA_DIR) + "/calibrations/" + type + ".xml");
  return calibration;
}

TEST(SensorResponseAnalysisParameters, ContainerHidesWhatTheParentDecides) {
  const Module module{Module::Parameters()};
  ParameterContainer container;
  module.GetParameters(container);
  EXPECT_EQ(container.GetName(), "sensor response analysis");
  std::vector<std::string> titles;
  for (const Parameter* parameter : container.GetVisibleParameters()) {
    titles.push_back(parameter->GetGroup() + "/" + parameter->GetTitle());
  }
  EXPECT_THAT(titles,
              ElementsAre("Analysis/Correction matrix type", "Analysis/Limit range",
                          "Analysis/Min. energy ratio", "Analysis/Min. peak contribution",
                          "Analysis/Min. contribution ratio", "Analysis/Range extension",
                          "Analysis/Max. peak fit error", "Analysis/Min. band distance",
                          "Analysis/Peak clustering", "Analysis/Duplicate peak distance (nm)",
                          "Spectral resampling/Enable spectral resampling",
                          "Debug/Enable debug dump", "Debug/Debug dump dir"));
  ASSERT_EQ(container.GetChildCount(), 2u);
  EXPECT_EQ(container.GetChildName(0), "Peak detection");
  EXPECT_EQ(container.GetChildName(1), "Correction matrix computation");
  std::vector<std::string> child_titles;
  for (const Parameter* parameter : container.GetChild(0).GetVisibleParameters()) {
    child_titles.push_back(parameter->GetTitle());
  }
  EXPECT_THAT(child_titles, ::testing::Not(::testing::Contains("Distribution")));
  EXPECT_THAT(child_titles, ::testing::Not(::testing::Contains("Enable debug dump")));
  EXPECT_EQ(container.GetChild(1).GetVisibleParameters().size(), 5u);
}

TEST(SensorResponseAnalysisParameters, ForwardedByTypeAndDebugSlavedToTheParent) {
  Module module{Module::Parameters()};
  PM_PeakDetection::Parameters detection;
  module.GetParameters(detection);
  detection.maximum_peak_count = 4;
  module.SetParameters(detection);
  PM_SpectralCorrectionComputation::Parameters inversion;
  module.GetParameters(inversion);
  inversion.tikhonov_alpha = 0.5;
  module.SetParameters(inversion);

  Module::Parameters own;
  module.GetParameters(own);
  own.debug_dump = true;
  own.debug_dump_dir = "d";
  own.minimum_energy_ratio = 0.9;  // acts on nothing and is not kept
  own.duplicate_peak_distance_nm = 3.0;
  own.resampling_wavelengths = {500.0, 510.0};
  module.SetParameters(own);

  PM_PeakDetection::Parameters detection_after;
  module.GetParameters(detection_after);
  EXPECT_EQ(detection_after.maximum_peak_count, 4u);
  EXPECT_TRUE(detection_after.debug_dump);
  EXPECT_EQ(detection_after.debug_dump_dir, kelto::common::filesystem::Path("d/peak_detection"));
  PM_SpectralCorrectionComputation::Parameters inversion_after;
  module.GetParameters(inversion_after);
  EXPECT_EQ(inversion_after.tikhonov_alpha, 0.5);
  EXPECT_EQ(inversion_after.debug_dump_dir,
            kelto::common::filesystem::Path("d/spectral_correction_computation"));
  Module::Parameters fresh;
  module.GetParameters(fresh);
  EXPECT_EQ(fresh.minimum_energy_ratio, 0.15);
  EXPECT_EQ(fresh.duplicate_peak_distance_nm, 3.0);
  EXPECT_THAT(fresh.resampling_wavelengths, ElementsAre(500.0, 510.0));
  EXPECT_EQ(fresh.debug_dump_dir, "d");

  // A child's refusal passes through.
  LogCapture log;
  detection.minimum_peak_qe = -1.0;
  EXPECT_THROW(module.SetParameters(detection), std::invalid_argument);
}

TEST(SensorResponseAnalysisInitialize, ResponsesAndMaskOverAllZones) {
  const TemporaryDirectory directory;
  Module::Parameters parameters;
  parameters.debug_dump = true;
  parameters.debug_dump_dir = (directory.path() / "dump").string();
  Module module{parameters};
  module.Initialize(Data(Grid(400, 440, 10), {}));
  EXPECT_TRUE(std::filesystem::is_directory(directory.path() / "dump"));
  CorrectionMatrix matrix;
  EXPECT_THAT(
      [&] { module.ComputeCorrectionMatrix(matrix, {}, {true}); },
      ThrowsMessage<std::invalid_argument>(StrEq("mask length differs from the number of bands")));

  // A short response leaves zeros: its peak-less band is simply not selected.
  auto data = Data(Grid(400, 440, 10), {Zone(400, 440, {{1, 2, 3, 4, 5}, {1, 2}})});
  data.filter_info.filter_zones[0].bands[1].selected = false;
  module.Initialize(data);
  module.ComputeCorrectionMatrix(matrix, {});
  EXPECT_TRUE(matrix.virtual_bands.empty());
  EXPECT_NO_THROW(module.ComputeCorrectionMatrix(matrix, {}, {true, false}));
}

TEST(SensorResponseAnalysisOptics, RangeFromZonesOrComponents) {
  Probe module{Module::Parameters()};
  const std::vector<double> grid = Grid(400, 1000, 10);
  std::vector<double> flat(grid.size(), 0.5);
  module.Initialize(Data(grid, {Zone(450, 600, {flat}), Zone(550, 900, {flat})}));
  ColumnVector<double> optical;
  double start = 0;
  double end = 0;
  module._ComputeOpticalComponentsResponse(optical, start, end, {}, {});
  EXPECT_EQ(start, 450.0);
  EXPECT_EQ(end, 900.0);
  EXPECT_THAT(std::vector<double>(optical.begin(), optical.end()),
              ::testing::Each(::testing::Eq(1.0)));

  // The ranges intersect; measured only from 500 nm on, the component passes nothing below.
  module._ComputeOpticalComponentsResponse(optical, start, end, {Component(500, 1000, 500, 950)},
                                           {Component(400, 1000, 420, 800)});
  EXPECT_EQ(start, 500.0);
  EXPECT_EQ(end, 800.0);
  EXPECT_EQ(optical[0], 0.0);
  EXPECT_EQ(optical[9], 0.0);
  EXPECT_NEAR(optical[10], 1.0, 1e-12);
  Matrix<double> system;
  ColumnVector<double> wavelengths;
  module._ComputeSystemResponse(system, wavelengths, optical, start, end);
  EXPECT_EQ(system.column_count, grid.size());  // limit_range off: the whole grid
  EXPECT_EQ(system.rows[0][5], 0.0);
  EXPECT_NEAR(system.rows[1][20], 0.5, 1e-12);

  // Disjoint ranges fall back to the lowest running start and the highest running end.
  module._ComputeOpticalComponentsResponse(optical, start, end, {Component(400, 1000, 500, 600)},
                                           {Component(400, 1000, 700, 800)});
  EXPECT_EQ(start, 500.0);
  EXPECT_EQ(end, 600.0);

  Module::Parameters limited;
  limited.limit_range = true;
  module.SetParameters(limited);
  module._ComputeSystemResponse(system, wavelengths, optical, 500.0, 600.0);
  EXPECT_EQ(wavelengths.size, 11u);  // both limits inclusive
  EXPECT_EQ(wavelengths[0], 500.0);

  // Without zones the range comes out crossed, and a limit to it keeps no column.
  module.Initialize(Data(grid, {}));
  module._ComputeOpticalComponentsResponse(optical, start, end, {}, {});
  EXPECT_EQ(start, 1000.0);
  EXPECT_EQ(end, 400.0);
  module._ComputeSystemResponse(system, wavelengths, optical, start, end);
  EXPECT_EQ(system.column_count, 0u);
}

TEST(SensorResponseAnalysisSelection, RunsOfBandsLoseWhatAWiderRunCovers) {
  const Probe module{Module::Parameters()};
  Peaks peaks;
  // A wide run 500..539 nm (bands 0-39, band 4 without a peak, which does not split it), a jump
  // back, and a narrow run 510..512 nm (bands 40-42) inside the wide one.
  for (int i = 0; i < 40; ++i) {
    peaks.push_back(OnePeak(500.0 + i));
  }
  peaks[4].clear();
  for (int i = 0; i < 3; ++i) {
    peaks.push_back(OnePeak(510.0 + i));
  }
  std::vector<bool> selected(peaks.size(), true);
  module._SelectVirtualFilterPeaks(peaks, selected);
  std::vector<bool> expected(43, true);  // what stays selected
  expected[40] = expected[41] = expected[42] = false;
  EXPECT_EQ(selected, expected);
  EXPECT_TRUE(peaks[41].empty());
  EXPECT_FALSE(peaks[39].empty());

  // Two runs of equal span, 500..519 and, after a jump back, 481..500: the later-numbered one
  // loses what overlaps, the ends of the range included.
  peaks.clear();
  for (int i = 0; i < 20; ++i) {
    peaks.push_back(OnePeak(500.0 + i));
  }
  for (int i = 0; i < 20; ++i) {
    peaks.push_back(OnePeak(481.0 + i));
  }
  selected.assign(peaks.size(), true);
  module._SelectVirtualFilterPeaks(peaks, selected);
  expected.assign(40, true);
  expected[39] = false;  // 500 nm, the first wavelength of the first run
  EXPECT_EQ(selected, expected);

  // A single band: no pair, nothing happens.
  Peaks single{OnePeak(500.0)};
  std::vector<bool> one{true};
  module._SelectVirtualFilterPeaks(single, one);
  EXPECT_TRUE(one[0]);
}

TEST(SensorResponseAnalysisSelection, DuplicatesLoseToTheGreaterContribution) {
  Probe module{Module::Parameters()};
  Module::Parameters parameters;
  parameters.duplicate_peak_distance_nm = 5.0;
  module.SetParameters(parameters);
  Peaks peaks{OnePeak(500.0, 0.4), OnePeak(503.0, 0.6), OnePeak(520.0, 0.5),
              OnePeak(522.0, 0.5), OnePeak(540.0, 0.5), OnePeak(545.0, 0.5)};
  std::vector<bool> selected(6, true);
  ColumnVector<double> energies(6, 1.0);
  module._RemoveDuplicatePeaks(selected, peaks, energies);
  // The weaker of the first pair goes; of equal ones the later band; peaks exactly the distance
  // apart are no duplicates.
  EXPECT_THAT(selected, ElementsAre(false, true, true, false, true, true));
  EXPECT_FALSE(peaks[0].empty());  // lists of dropped bands stay

  parameters.duplicate_peak_distance_nm = 0.0;
  module.SetParameters(parameters);
  selected.assign(6, true);
  module._RemoveDuplicatePeaks(selected, peaks, energies);
  EXPECT_THAT(selected, ::testing::Each(true));
}

TEST(SensorResponseAnalysisSelection, BandSelectionLimitsAreInclusiveExceptTheEnergy) {
  Probe module{Module::Parameters()};
  Module::Parameters parameters;
  parameters.minimum_peak_contribution = 0.3;
  parameters.maximum_peak_fit_error = 0.02;
  module.SetParameters(parameters);
  // Energies 1, 2, 3, 6, 3: mean 3, so band 0 (exactly a third) goes.
  Matrix<double> system(5, 2, 0.0);
  const double energies[] = {1, 2, 3, 6, 3};
  for (unsigned long r = 0; r < 5; ++r) {
    system.rows[r][0] = energies[r] / 4.0;
    system.rows[r][1] = 3.0 * energies[r] / 4.0;
  }
  Peaks peaks{OnePeak(610.0), OnePeak(600.0, 0.3), OnePeak(590.0, 0.5, 0.02), OnePeak(580.0, 0.29),
              OnePeak(570.0, 0.5, 0.021)};
  Matrix<double> selected_responses;
  ColumnVector<double> selected_energies;
  std::deque<unsigned long> bands;
  std::list<PeakInfo> virtual_peaks;
  module._BandSelection(selected_responses, selected_energies, bands, virtual_peaks, peaks,
                        std::vector<bool>(5, true), system);
  EXPECT_THAT(bands, ElementsAre(1, 2));
  ASSERT_EQ(virtual_peaks.size(), 2u);
  // Rising wavelength, each with its place among the selected bands.
  EXPECT_EQ(virtual_peaks.front().wavelength, 590.0);
  EXPECT_EQ(virtual_peaks.front().row, 1u);
  EXPECT_EQ(virtual_peaks.front().band, 2u);
  EXPECT_EQ(virtual_peaks.front().shape, Distributions::DB_FABRY_PEROT);
  EXPECT_TRUE(peaks[0].empty());
  EXPECT_TRUE(peaks[3].empty());
  // Reflectance: every row of the system to unit sum; the energies from before.
  EXPECT_THAT(std::vector<double>(selected_energies.begin(), selected_energies.end()),
              ElementsAre(2.0, 3.0));
  for (unsigned long r = 0; r < 5; ++r) {
    EXPECT_DOUBLE_EQ(system.rows[r][0], 0.25);
  }
  EXPECT_DOUBLE_EQ(selected_responses.rows[1][1], 0.75);

  // All masked off: nothing selected.
  peaks = Peaks(5, OnePeak(600.0));
  module._BandSelection(selected_responses, selected_energies, bands, virtual_peaks, peaks,
                        std::vector<bool>(5, false), system);
  EXPECT_TRUE(virtual_peaks.empty());
  EXPECT_EQ(selected_responses.row_count, 0u);
}

TEST(SensorResponseAnalysisPostProcessing, CloseRowsMergeAroundEachEntry) {
  Probe module{Module::Parameters()};
  std::list<PeakInfo> peaks;
  for (const double w : {10.0, 14.0, 18.0, 40.0}) {
    PeakInfo info;
    info.wavelength = w;
    info.fwhm = w / 10.0;
    peaks.push_back(info);
  }
  Matrix<double> matrix(4, 2, 0.0);
  for (unsigned long r = 0; r < 4; ++r) {
    matrix.rows[r][0] = static_cast<double>(r);
    matrix.rows[r][1] = 1.0;
  }
  std::list<PeakInfo> merged;
  Matrix<double> rows;
  module._MatrixCoefficientsSetBandsMinimumDistance(merged, rows, peaks, matrix, 5.0);
  // {10, 14} around 10, {14, 18} around 18, and 40 alone.
  ASSERT_EQ(merged.size(), 3u);
  ASSERT_EQ(rows.row_count, 3u);
  const kelto::common::GaussDistribution gauss;
  const double far = gauss(0.0, gauss.FWHMToParam(5.0), 1.0, 4.0);
  const double near_weight = 1.0 / (1.0 + far);
  auto it = merged.begin();
  EXPECT_NEAR(it->wavelength, near_weight * 10.0 + (1.0 - near_weight) * 14.0, 1e-12);
  EXPECT_NEAR(rows.rows[0][0], (1.0 - near_weight) * 1.0, 1e-12);
  EXPECT_NEAR(rows.rows[0][1], 1.0, 1e-12);
  EXPECT_EQ(it->row, 0u);
  EXPECT_EQ(it->shape, Distributions::DB_FABRY_PEROT);
  ++it;
  EXPECT_NEAR(it->wavelength, (1.0 - near_weight) * 14.0 + near_weight * 18.0, 1e-12);
  EXPECT_NEAR(rows.rows[1][0], (1.0 - near_weight) * 1.0 + near_weight * 2.0, 1e-12);
  EXPECT_EQ(it->row, 2u);
  ++it;
  EXPECT_EQ(it->wavelength, 40.0);
  EXPECT_EQ(rows.rows[2][0], 3.0);
}

// The whole road on a simulated 4x4 mosaic, with the module's parameters near those of its
// parameter document.
class SensorResponseAnalysisSample : public ::testing::Test {
 protected:
  void SetUp() override {
    calibration_ = Sample("VKR9-MZT4x4-470_620");
    Module::Parameters parameters;
    parameters.minimum_peak_contribution = 0.15;
    parameters.maximum_peak_fit_error = 0.03;
    parameters.duplicate_peak_distance_nm = 2.0;
    module_.SetParameters(parameters);
    Module::InitializationData data;
    data.filter_info = calibration_.filter_info;
    module_.Initialize(data);
  }

  CorrectionMatrix Compute(const std::vector<bool>* mask = nullptr) {
    CorrectionMatrix matrix;
    matrix.name = "measured";
    if (mask == nullptr) {
      module_.ComputeCorrectionMatrix(matrix, calibration_.system_info.optical_components);
    } else {
      module_.ComputeCorrectionMatrix(matrix, calibration_.system_info.optical_components, *mask);
    }
    return matrix;
  }

  SensorCalibration calibration_;
  Module module_{Module::Parameters()};
  LogCapture log_;
};

TEST_F(SensorResponseAnalysisSample, ReflectanceMatrixOverAllBandsAndRepeatable) {
  const CorrectionMatrix first = Compute();
  EXPECT_EQ(first.virtual_bands.size(), 16u);
  EXPECT_EQ(first.algorithm, CorrectionAlgorithms::CA_M0);
  EXPECT_EQ(first.algorithm_version, (std::pair<unsigned long, unsigned long>(1, 0)));
  EXPECT_EQ(first.type, CorrectionMatrixTypes::CT_REFLECTANCE);
  EXPECT_GT(first.minimum_band_energy, 0.0);
  double previous = 0.0;
  for (const auto& band : first.virtual_bands) {
    ASSERT_EQ(band.coefficients.size(), 16u);
    EXPECT_NEAR(Sum(band.coefficients), 1.0, 1e-9);
    EXPECT_GT(band.wavelength_nm, previous);
    previous = band.wavelength_nm;
  }
  CorrectionMatrix second = Compute();
  EXPECT_LE(first.created, second.created);
  second.created = first.created;
  EXPECT_TRUE(first == second);
  // Watching the progress changes nothing of the result.
  unsigned long calls = 0;
  module_.SetProgressCallback([&](unsigned long, unsigned long) { ++calls; });
  CorrectionMatrix watched = Compute();
  EXPECT_EQ(calls, 16u);
  watched.created = first.created;
  EXPECT_TRUE(first == watched);
  const auto info = log_.Messages(Logger::eLevel::Info);
  ASSERT_FALSE(info.empty());
  EXPECT_THAT(info.back(),
              ::testing::MatchesRegex("correction matrix calculation took [0-9]+ms\n"));
}

TEST_F(SensorResponseAnalysisSample, MaskedBandsHaveZeroCoefficientsAndNoBandGivesNoMatrix) {
  std::vector<bool> mask(16, true);
  mask[3] = false;
  const CorrectionMatrix matrix = Compute(&mask);
  EXPECT_EQ(matrix.virtual_bands.size(), 15u);
  for (const auto& band : matrix.virtual_bands) {
    EXPECT_EQ(band.coefficients[3], 0.0);
  }

  CorrectionMatrix none;
  none.type = CorrectionMatrixTypes::CT_IRRADIANCE;
  none.minimum_band_energy = 7.0;
  none.virtual_bands.resize(2);
  module_.ComputeCorrectionMatrix(none, {}, std::vector<bool>(16, false));
  EXPECT_TRUE(none.virtual_bands.empty());
  EXPECT_EQ(none.algorithm, CorrectionAlgorithms::CA_M0);
  EXPECT_EQ(none.type, CorrectionMatrixTypes::CT_IRRADIANCE);
  EXPECT_EQ(none.minimum_band_energy, 7.0);
}

TEST_F(SensorResponseAnalysisSample, ResamplingMergingAndIrradiance) {
  Module::Parameters parameters;
  module_.GetParameters(parameters);
  parameters.spectral_resampling = true;
  parameters.resampling_wavelengths = {450.0, 500.0, 550.0, 600.0, 650.0};
  module_.SetParameters(parameters);
  CorrectionMatrix resampled = Compute();
  ASSERT_EQ(resampled.virtual_bands.size(), 5u);
  const CorrectionMatrix plain = [&] {
    parameters.spectral_resampling = false;
    module_.SetParameters(parameters);
    return Compute();
  }();
  // Beyond the ends the end rows are copied (then normalised, which they already are).
  EXPECT_EQ(resampled.virtual_bands[0].wavelength_nm, 450.0);
  EXPECT_EQ(resampled.virtual_bands[0].fwhm_nm, plain.virtual_bands.front().fwhm_nm);
  EXPECT_EQ(resampled.virtual_bands[0].coefficients, plain.virtual_bands.front().coefficients);
  EXPECT_EQ(resampled.virtual_bands[4].coefficients, plain.virtual_bands.back().coefficients);
  EXPECT_NEAR(Sum(resampled.virtual_bands[2].coefficients), 1.0, 1e-9);

  parameters.spectral_resampling = true;
  parameters.resampling_wavelengths.clear();
  module_.SetParameters(parameters);
  EXPECT_TRUE(Compute().virtual_bands.empty());

  parameters.spectral_resampling = false;
  parameters.minimum_band_distance = 25.0;
  module_.SetParameters(parameters);
  EXPECT_LT(Compute().virtual_bands.size(), plain.virtual_bands.size());
  parameters.minimum_band_distance = -1.0;
  module_.SetParameters(parameters);
  EXPECT_THAT([&] { Compute(); }, ThrowsMessage<std::invalid_argument>(
                                      StrEq("minimum band distance must not be negative")));

  parameters.minimum_band_distance = 0.0;
  parameters.correction_matrix_type = CorrectionMatrixTypes::CT_IRRADIANCE;
  module_.SetParameters(parameters);
  const CorrectionMatrix irradiance = Compute();
  EXPECT_EQ(irradiance.type, CorrectionMatrixTypes::CT_IRRADIANCE);
  EXPECT_GT(std::fabs(Sum(irradiance.virtual_bands[5].coefficients) - 1.0), 0.1);
}

TEST_F(SensorResponseAnalysisSample, PeaksOfFirstOrderAndProgressPerBand) {
  std::vector<std::pair<unsigned long, unsigned long>> progress;
  module_.SetProgressCallback(
      [&](unsigned long done, unsigned long total) { progress.emplace_back(done, total); });
  FilterInfo filter = calibration_.filter_info;
  for (auto& zone : filter.filter_zones) {
    for (auto& band : zone.bands) {
      band.peaks.clear();
    }
  }
  module_.ComputePeaks(filter, calibration_.system_info.optical_components);
  ASSERT_EQ(progress.size(), 16u);
  EXPECT_EQ(progress.back(), (std::pair<unsigned long, unsigned long>(16, 16)));
  for (unsigned long b = 0; b < 16; ++b) {
    // How near the truth: SensorResponseAnalysisSamples.
    const auto& fitted = filter.GetBand(b).peaks;
    ASSERT_FALSE(fitted.empty()) << b;
    EXPECT_EQ(fitted.front().order, 1u);
    EXPECT_EQ(fitted.front().shape, Distributions::DB_FABRY_PEROT);
  }
  FilterInfo again = filter;
  module_.ComputePeaks(again, calibration_.system_info.optical_components);
  EXPECT_TRUE(again == filter);
  EXPECT_THAT(log_.Messages(Logger::eLevel::Info).back(),
              ::testing::MatchesRegex("peak detection took [0-9]+ms\n"));

  FilterInfo fewer = filter;
  fewer.filter_zones[0].bands.pop_back();
  EXPECT_THROW(module_.ComputePeaks(fewer, {}), std::invalid_argument);
}

TEST_F(SensorResponseAnalysisSample, MatrixFromKnownPeaksUsesEveryBand) {
  std::list<PeakInfo> peaks;
  for (unsigned long b = 0; b < 16; ++b) {
    const auto& truth = calibration_.filter_info.GetBand(b).peaks.front();
    PeakInfo info;
    info.wavelength = truth.wavelength_nm;
    info.fwhm = truth.fwhm_nm;
    info.shape = Distributions::DB_FABRY_PEROT;
    peaks.push_front(info);  // any order: sorted by wavelength
  }
  CorrectionMatrix matrix;
  module_.ComputeCorrectionMatrixForPeaks(matrix, calibration_.system_info.optical_components,
                                          peaks);
  ASSERT_EQ(matrix.virtual_bands.size(), 16u);
  EXPECT_EQ(matrix.virtual_bands.front().wavelength_nm, 470.0);
  for (const auto& band : matrix.virtual_bands) {
    EXPECT_NEAR(Sum(band.coefficients), 1.0, 1e-9);
  }
}

TEST_F(SensorResponseAnalysisSample, DebugDumpWritesEveryFileUnderItsName) {
  const TemporaryDirectory directory;
  Module::Parameters parameters;
  module_.GetParameters(parameters);
  parameters.debug_dump = true;
  parameters.debug_dump_dir = (directory.path() / "dump").string();
  parameters.minimum_band_distance = 3.0;
  module_.SetParameters(parameters);
  Compute();
  const auto dump = directory.path() / "dump";
  // Those of the two child modules in their own folders.
  std::istringstream names(
      "internal_components responses_with_internal_filters responses_prio_peak_detection "
      "initial_peaks_positions initial_peaks_qe initial_peaks_fwhm peak_wavelenghts "
      "peak_contributions peak_fit_errors peak_fwhms vf_peak_wavelengths vf_peak_fwhms "
      "correction_matrix new_correction_matrix new_vf_peak_wavelengths new_vf_peak_fwhms "
      "full_correction_matrix spectral_correction_computation/tikhonov_divisor "
      "peak_detection/corr_matrix_measured_band_015_response "
      "peak_detection/corr_matrix_measured_band_000_peak_000_fit_function_brute_force_result");
  for (std::string name; names >> name;) {
    EXPECT_TRUE(std::filesystem::is_regular_file(dump / (name + ".csv"))) << name;
  }
}

}  // namespace

namespace {

// On every simulated sample, with its own parameter document, the fitted peak nearest each band's
// true main peak lies within 1 nm of it, with a width within 10 %. Not judged: bands wider than
// the document lets a fit be, and bands whose maximum the detector's cut-off or the grid's end
// moves by more than a nanometre.
TEST(SensorResponseAnalysisSamples, FittedPeaksMatchTheSimulatedOnes) {
  LogCapture log;
  for (const char* type : {"VKR9-MZT4x4-470_620", "VKR9-MZT5x5-600_1000", "VKR9-QL150-470_900",
                           "VKR9-TZT32-600_1000", "TEM480-MZT4x4-1100_1700"}) {
    const SensorCalibration truth = Sample(type);
    Module module{Module::Parameters()};
    kelto::hyperspectral::utilities::SetCorrectionMatrixParameters(module, type);
    PM_PeakDetection::Parameters detection;
    module.GetParameters(detection);
    Module::InitializationData data;
    data.filter_info = truth.filter_info;
    module.Initialize(data);
    FilterInfo fitted = truth.filter_info;
    module.ComputePeaks(fitted, truth.system_info.optical_components);

    const std::vector<double>& grid = truth.filter_info.calibration_info.sample_points_nm;
    // Where the band's response peaks within the main peak's half width; no peak when the half
    // width is not all on the grid.
    const auto maximum_at = [&](const std::vector<double>& response, double centre, double half) {
      if (centre - half < grid.front() || centre + half > grid.back()) {
        return -1.0;
      }
      double best = -1.0;
      double best_value = -1.0;
      for (std::size_t i = 0; i < grid.size(); ++i) {
        if (std::fabs(grid[i] - centre) <= half && response[i] > best_value) {
          best = grid[i];
          best_value = response[i];
        }
      }
      return best;
    };
    unsigned long judged = 0;
    for (unsigned long b = 0; b < truth.filter_info.GetTotalNrBands(); ++b) {
      const auto& band = truth.filter_info.GetBand(b);
      const auto& main = band.peaks.front();
      const double maximum = maximum_at(band.response, main.wavelength_nm, main.fwhm_nm / 2.0);
      if (main.fwhm_nm > detection.maximum_fwhm_nm ||
          std::fabs(maximum - main.wavelength_nm) > 1.0) {
        continue;
      }
      ++judged;
      const auto& peaks = fitted.GetBand(b).peaks;
      ASSERT_FALSE(peaks.empty()) << type << " band " << b;
      const auto nearest =
          std::min_element(peaks.begin(), peaks.end(), [&](const auto& x, const auto& y) {
            return std::fabs(x.wavelength_nm - main.wavelength_nm) <
                   std::fabs(y.wavelength_nm - main.wavelength_nm);
          });
      EXPECT_NEAR(nearest->wavelength_nm, main.wavelength_nm, 1.0) << type << " band " << b;
      EXPECT_NEAR(nearest->fwhm_nm, main.fwhm_nm, 0.1 * main.fwhm_nm) << type << " band " << b;
    }
    // Most bands are judged: the exclusions are the few at the edges of what a sensor sees.
    EXPECT_GE(judged, truth.filter_info.GetTotalNrBands() / 2) << type;
  }
}

}  // namespace

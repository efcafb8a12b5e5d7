// The main computation on two bundled samples, the wedge of 150 bands and the 5x5 mosaic, each
// with its embedded parameter document: ComputePeaks and ComputeCorrectionMatrix, and beside them
//  - the floor that the grid search of the peak fits sets: a bare loop that evaluates the
//    distribution of the document exactly as often, and on windows as long, as the fits do;
//  - the computation with one grid point per axis, which leaves everything but the fits, so that
//    the share of the rest in the whole can be read off.
#include <benchmark/benchmark.h>

#include <list>
#include <string>
#include <vector>

#include <kelto/common/three_parameters_function.h>
#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/correction/utilities.h>

namespace {

using kelto::hyperspectral::CorrectionMatrix;
using kelto::hyperspectral::PM_PeakDetection;
using kelto::hyperspectral::PM_SensorResponseAnalysis;
using kelto::hyperspectral::SensorCalibration;

const char* const kSamples[] = {"VKR9-QL150-470_900", "VKR9-MZT5x5-600_1000"};

SensorCalibration Load(const std::string& type) {
  SensorCalibration calibration;
  SensorCalibration::ParsingResult result(false, true);
  calibration.ReadFile(result, std::string(KELTO_SAMPLE_DIR) + "/calibrations/" + type + ".xml");
  return calibration;
}

// A module with the sample's document; with fits false the grid search tries one point per axis.
struct Analysis {
  Analysis(const std::string& type, bool fits) : calibration(Load(type)) {
    kelto::hyperspectral::utilities::SetCorrectionMatrixParameters(module, type);
    if (!fits) {
      PM_PeakDetection::Parameters detection;
      module.GetParameters(detection);
      detection.coarse_iterations = 1;
      detection.fine_iterations = 1;
      module.SetParameters(detection);
    }
    PM_SensorResponseAnalysis::InitializationData data;
    data.filter_info = calibration.filter_info;
    module.Initialize(data);
  }
  SensorCalibration calibration;
  PM_SensorResponseAnalysis module{PM_SensorResponseAnalysis::Parameters()};
};

void Peaks(benchmark::State& state) {
  Analysis analysis(kSamples[state.range(0)], true);
  for (auto _ : state) {
    auto filter = analysis.calibration.filter_info;
    analysis.module.ComputePeaks(filter, analysis.calibration.system_info.optical_components);
    benchmark::DoNotOptimize(filter);
  }
  state.SetLabel(kSamples[state.range(0)]);
}

void Matrix(benchmark::State& state, bool fits) {
  Analysis analysis(kSamples[state.range(0)], fits);
  for (auto _ : state) {
    CorrectionMatrix matrix;
    analysis.module.ComputeCorrectionMatrix(matrix,
                                            analysis.calibration.system_info.optical_components);
    benchmark::DoNotOptimize(matrix);
  }
  state.SetLabel(kSamples[state.range(0)]);
}

void CorrectionMatrixWhole(benchmark::State& state) {
  Matrix(state, true);
}

void CorrectionMatrixWithoutFits(benchmark::State& state) {
  Matrix(state, false);
}

// The windows of the fits: one per peak first found in a band, as many samples of the refined grid
// as lie within the detection window around it. Read off the peaks of one computation.
std::vector<std::vector<double>> FitWindows(Analysis& analysis, unsigned long& searches) {
  PM_PeakDetection::Parameters detection;
  analysis.module.GetParameters(detection);
  auto filter = analysis.calibration.filter_info;
  analysis.module.ComputePeaks(filter, analysis.calibration.system_info.optical_components);
  const std::vector<double>& grid = filter.calibration_info.sample_points_nm;
  const double step =
      (grid.back() - grid.front()) /
      static_cast<double>((grid.size() - 1) * detection.filter_interpolation_factor);
  std::vector<std::vector<double>> windows;
  for (unsigned long b = 0; b < filter.GetTotalNrBands(); ++b) {
    for (const auto& peak : filter.GetBand(b).peaks) {
      std::vector<double> window;
      for (double x = grid.front(); x <= grid.back(); x += step) {
        if (x >= peak.wavelength_nm - detection.detection_window_nm / 2 &&
            x <= peak.wavelength_nm + detection.detection_window_nm / 2) {
          window.push_back(x);
        }
      }
      windows.push_back(window);
    }
  }
  searches =
      detection.coarse_iterations * detection.coarse_iterations * detection.coarse_iterations +
      detection.fine_iterations * detection.fine_iterations * detection.fine_iterations;
  return windows;
}

void DistributionFloor(benchmark::State& state) {
  Analysis analysis(kSamples[state.range(0)], true);
  unsigned long searches = 0;
  const auto windows = FitWindows(analysis, searches);
  const kelto::common::FabryPerotDistribution distribution(true);
  const double p2 = distribution.FWHMToParam(10.0);
  for (auto _ : state) {
    double sum = 0.0;
    for (const auto& window : windows) {
      for (unsigned long n = 0; n < searches; ++n) {
        const double centre = window[window.size() / 2] + 1e-3 * static_cast<double>(n % 7);
        for (const double x : window) {
          sum += distribution(centre, p2, 0.5, x);
        }
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetLabel(kSamples[state.range(0)]);
}

BENCHMARK(Peaks)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(CorrectionMatrixWhole)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(CorrectionMatrixWithoutFits)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(DistributionFloor)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

}  // namespace

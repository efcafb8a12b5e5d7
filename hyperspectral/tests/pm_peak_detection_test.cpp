#include <kelto/hyperspectral/analysis/pm_peak_detection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <list>
#include <string>
#include <tuple>
#include <vector>

#include <kelto/common/parameter_container.h>

#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>

namespace {

using kelto::common::EnumParameter;
using kelto::common::GaussDistribution;
using kelto::common::Logger;
using kelto::common::Parameter;
using kelto::common::ParameterContainer;
using kelto::common::ProcessingModule;
using kelto::hyperspectral::Distributions;
using kelto::testing::LogCapture;
using kelto::testing::TemporaryDirectory;
using Module = kelto::hyperspectral::PM_PeakDetection;
using Peak = Module::Peak;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

// Opens the steps of Process to the tests.
class Probe : public Module {
 public:
  using Module::_Dump;
  using Module::_FitFunctionBruteForce;
  using Module::_GetBandPeaks;
  using Module::_GetContributionAndFitError;
  using Module::_GetDistribution;
  using Module::_GetFWHM;
  using Module::_GetFWHMSingleSide;
  using Module::_GetWindow;
  using Module::_Interpolate;
  using Module::Module;
};

Module::Parameters With(Distributions::eDistribution distribution) {
  Module::Parameters parameters;
  parameters.distribution = distribution;
  return parameters;
}

std::vector<double> Grid(double first, double last, double step) {
  std::vector<double> grid;
  for (double w = first; w <= last + 1e-9; w += step) {
    grid.push_back(w);
  }
  return grid;
}

// Sum of Gaussian peaks (centre, fwhm, height) on the grid.
std::vector<double> Gaussians(const std::vector<double>& grid,
                              const std::vector<std::array<double, 3>>& peaks) {
  const GaussDistribution gauss;
  std::vector<double> response(grid.size(), 0.0);
  for (std::size_t i = 0; i < grid.size(); ++i) {
    for (const auto& [centre, fwhm, height] : peaks) {
      response[i] += gauss(centre, gauss.FWHMToParam(fwhm), height, grid[i]);
    }
  }
  return response;
}

std::vector<double> Wavelengths(const std::list<Peak>& peaks) {
  std::vector<double> result;
  for (const Peak& peak : peaks) {
    result.push_back(peak.wavelength);
  }
  return result;
}

TEST(PeakDetectionParameters, ContainerListsTheParametersWithTheirTexts) {
  const Module module{Module::Parameters()};
  ParameterContainer container;
  module.GetParameters(container);
  EXPECT_EQ(container.GetName(), "Peak detection");
  EXPECT_EQ(container.GetDescription(), "Peak detection parameters");
  std::vector<std::string> listed;
  for (const Parameter* parameter : container.GetVisibleParameters()) {
    listed.push_back(parameter->GetGroup() + "/" + parameter->GetTitle() + ": " +
                     parameter->GetDescription());
  }
  EXPECT_THAT(
      listed,
      ElementsAre(
          "Peaks/Min. QE: Minimum peak QE (value 0 to 1).",
          "Peaks/Min. distance (nm): Minimum distance between two peaks in nanometres.",
          "Peaks/Max. nr. peaks: Maximum number of peaks per filter.",
          "Peaks/Max. assymetricity factor: Maximum ratio between the HWHM on either side of the "
          "peak.",
          "Filter/Detection window (nm): Window around a local maximum in which to select the "
          "global maximum as initialization of the filter fit.",
          "Filter/Min. FWHM (nm): Minimum filter FWHM in nanometres.",
          "Filter/Max. FWHM (nm): Maximum filter FWHM in nanometres.",
          "Filter/Min. amplitude factor (nm): Minimum ratio of the fitted filter's peak to the "
          "maximum response.",
          "Filter/Max. amplitude factor (nm): Maximum ratio of the fitted filter's peak to the "
          "maximum response.",
          "Filter/Max. wavelength shift (nm): Maximum shift of the fitted filter from the maximum "
          "response.",
          "Fitting/Nr. coarse iterations: Number of iterations of coarse filter fitting.",
          "Fitting/Nr. fine iterations: Number of iterations of fine filter fitting.",
          "Fitting/Distribution: Distribution to use for fitting the filter.",
          "Debug/Enable debug dump: Flags if intermediate results must be dumped to csv files "
          "(true) or not (false).",
          "Debug/Debug dump dir: Output directory for the debug dump files."));
  for (const Parameter* parameter : container.GetVisibleParameters()) {
    if (parameter->GetTitle() == "Distribution") {
      EXPECT_EQ(dynamic_cast<const EnumParameter*>(parameter)->GetValidationCriteria(),
                (EnumParameter::Criteria{{1, "Gaussian"}, {2, "Lorentzian"}, {3, "Fabry-Perot"}}));
    }
  }
}

TEST(PeakDetectionParameters, ChecksRefuseOnlyAZeroFactorAndANegativeQe) {
  Module module{Module::Parameters()};
  LogCapture log;
  Module::Parameters parameters;
  parameters.minimum_peak_qe = -0.001;
  EXPECT_THAT([&] { module.SetParameters(parameters); },
              ThrowsMessage<std::invalid_argument>(StrEq("minimum peak qe must be positive")));
  parameters.minimum_peak_qe = 0.0;
  parameters.filter_interpolation_factor = 0;
  EXPECT_THAT([&] { module.SetParameters(parameters); },
              ThrowsMessage<std::invalid_argument>(
                  StrEq("filter interpolation factor must be strictly positive")));
  EXPECT_EQ(log.Messages(Logger::eLevel::Error).size(), 2u);

  // Nothing of the refused structures arrived; degenerate but harmless values pass.
  Module::Parameters current;
  module.GetParameters(current);
  EXPECT_EQ(current.filter_interpolation_factor, 5u);
  parameters.filter_interpolation_factor = 1;
  parameters.minimum_peak_qe = 3.0;
  parameters.minimum_fwhm_nm = 40.0;
  parameters.coarse_iterations = 0;
  EXPECT_NO_THROW(module.SetParameters(parameters));
  module.GetParameters(current);
  EXPECT_EQ(current.minimum_peak_qe, 3.0);
  EXPECT_EQ(current.coarse_iterations, 0u);
}

TEST(PeakDetectionParameters, DistributionIsChosenAtInitialize) {
  const ProcessingModule::InitializationData data;
  const auto kind = [&](Distributions::eDistribution value) {
    Probe module{With(value)};
    module.Initialize(data);
    const auto* distribution = module._GetDistribution();
    if (dynamic_cast<const kelto::common::GaussDistribution*>(distribution) != nullptr) {
      return std::string("Gauss");
    }
    if (const auto* fp = dynamic_cast<const kelto::common::FabryPerotDistribution*>(distribution)) {
      return fp->IsSingleOrder() ? std::string("Fabry-Perot one order") : std::string("FP");
    }
    return dynamic_cast<const kelto::common::LorentzDistribution*>(distribution) != nullptr
               ? std::string("Lorentz")
               : std::string("none");
  };
  EXPECT_EQ(kind(Distributions::DB_GAUSSIAN), "Gauss");
  EXPECT_EQ(kind(Distributions::DB_LORENTZIAN), "Lorentz");
  EXPECT_EQ(kind(Distributions::DB_NONE), "Lorentz");
  EXPECT_EQ(kind(Distributions::DB_UNKNOWN), "Lorentz");
  EXPECT_EQ(kind(Distributions::DB_FABRY_PEROT), "Fabry-Perot one order");

  // A change takes effect at the next Initialize only; Deallocate drops the object.
  Probe module{With(Distributions::DB_GAUSSIAN)};
  module.Initialize(data);
  module.SetParameters(With(Distributions::DB_LORENTZIAN));
  EXPECT_NE(dynamic_cast<const GaussDistribution*>(module._GetDistribution()), nullptr);
  module.Initialize(data);
  EXPECT_NE(dynamic_cast<const kelto::common::LorentzDistribution*>(module._GetDistribution()),
            nullptr);
  module.Deallocate();
  EXPECT_EQ(module._GetDistribution(), nullptr);
  std::list<Peak> peaks;
  EXPECT_THROW(module.Process(peaks, {1.0}, {500.0}, "x_"), std::logic_error);
}

TEST(PeakDetectionBandPeaks, LocalMaximaOverFiveSamplesThinnedAndCut) {
  const Probe module{Module::Parameters()};
  std::list<Peak> peaks{Peak()};
  const std::vector<double> w = Grid(0.0, 11.0, 1.0);
  // A maximum at 2, a plateau at 5 and 6 (no peak), a maximum at 9.
  const std::vector<double> two{0, 1, 4, 2, 1, 3, 3, 1, 2, 5, 2, 1};
  // Response, height limit, distance, count, and the peaks found, highest first.
  const std::vector<
      std::tuple<std::vector<double>, double, double, unsigned long, std::vector<double>>>
      cases = {{two, 0.0, 0.0, 10, {9.0, 2.0}},
               {two, 4.0, 0.0, 10, {9.0, 2.0}},  // the height limit keeps a peak equal to it
               {two, 4.5, 0.0, 10, {9.0}},
               {two, 0.0, 8.0, 10, {9.0}},  // too close: the lower goes
               // at equal heights the longer wavelength survives
               {{0, 1, 5, 2, 1, 3, 3, 1, 2, 5, 2, 1}, 0.0, 8.0, 10, {9.0}},
               // three in a row, each closer than the distance to the next: the highest stays
               {{0, 0, 3, 0, 0, 6, 0, 0, 2, 0, 0, 0}, 0.0, 4.0, 10, {5.0}},
               {two, 0.0, 0.0, 1, {9.0}},  // the cut
               {two, 0.0, 0.0, 0, {}}};    // a count of 0 empties the list
  for (const auto& [response, height, distance, count, expected] : cases) {
    module._GetBandPeaks(peaks, response, w, height, distance, count);
    EXPECT_EQ(Wavelengths(peaks), expected) << height << ", " << distance << ", " << count;
  }
  module._GetBandPeaks(peaks, two, w, 0.0, 0.0, 10);
  EXPECT_EQ(peaks.front().qe, 5.0);
  EXPECT_EQ(peaks.front().fwhm, 0.0);
  // Fewer than five samples hold no peak.
  module._GetBandPeaks(peaks, {0, 1, 4, 1}, {0, 1, 2, 3}, 0.0, 0.0, 10);
  EXPECT_TRUE(peaks.empty());
}

TEST(PeakDetectionWidth, HalfMaximumPointsAndTheirFallbacks) {
  // Reaches half exactly at the second sample; falls from 1 to 0.25 between 10 and 11.
  EXPECT_DOUBLE_EQ(Probe::_GetFWHMSingleSide({2.0, 1.0, 0.5, 0.1}, {9.0, 10.0, 11.0, 12.0}), 10.0);
  EXPECT_DOUBLE_EQ(Probe::_GetFWHMSingleSide({4.0, 4.0, 1.0}, {9.0, 10.0, 11.0}),
                   10.0 + (0.5 - 1.0) / (0.25 - 1.0));
  // Never falls to half: the centroid of the samples above half, without the first.
  EXPECT_DOUBLE_EQ(Probe::_GetFWHMSingleSide({1.0, 0.8, 0.6}, {0.0, 1.0, 2.0}),
                   (1.0 * 0.8 + 2.0 * 0.6) / (0.8 + 0.6));
  // The same on a side that runs towards shorter wavelengths.
  EXPECT_DOUBLE_EQ(Probe::_GetFWHMSingleSide({1.0, 0.8, 0.6}, {2.0, 1.0, 0.0}),
                   (1.0 * 0.8 + 0.0 * 0.6) / (0.8 + 0.6));
  EXPECT_EQ(Probe::_GetFWHMSingleSide({}, {}), 0.0);

  const Probe module{Module::Parameters()};
  const std::vector<double> w = Grid(0.0, 10.0, 1.0);
  // Response, then the width and the centre found for a peak first placed at 5.
  const std::vector<std::tuple<std::vector<double>, double, double>> cases = {
      // Symmetric triangle: half points at 4 and 6.
      {{0, 0, 0, 0, 0.5, 1, 0.5, 0, 0, 0, 0}, 2.0, 5.0},
      // The right side falls to half only after 4 nm, more than twice the left's 1 nm: it is
      // replaced by the mirror of the left, and the centre stays.
      {{0, 0, 0, 0, 0.5, 1, 0.9, 0.8, 0.7, 0.6, 0.5}, 2.0, 5.0},
      // Within the factor, the centre moves between the half points.
      {{0, 0, 0, 0, 0.5, 1, 0.75, 0.5, 0, 0, 0}, 3.0, 5.5}};
  for (const auto& [response, fwhm, centre] : cases) {
    Peak peak;
    peak.wavelength = 5.0;
    module._GetFWHM(peak, response, w, 2.0);
    EXPECT_DOUBLE_EQ(peak.fwhm, fwhm) << fwhm << ", " << centre;
    EXPECT_DOUBLE_EQ(peak.wavelength, centre) << fwhm << ", " << centre;
  }
}

TEST(PeakDetectionWindow, BothEndsInclusive) {
  std::vector<double> response;
  std::vector<double> wavelengths;
  Probe::_GetWindow(response, wavelengths, {0, 1, 2, 3, 4, 5}, {10, 11, 12, 13, 14, 15}, 12.0, 2.0);
  EXPECT_THAT(wavelengths, ElementsAre(11, 12, 13));
  EXPECT_THAT(response, ElementsAre(1, 2, 3));
  Probe::_GetWindow(response, wavelengths, {0, 1}, {10, 11}, 30.0, 2.0);
  EXPECT_TRUE(wavelengths.empty());
}

TEST(PeakDetectionFit, GridSearchFindsTheGridPointOfTheCurve) {
  Probe module{With(Distributions::DB_GAUSSIAN)};
  const GaussDistribution gauss;
  const std::vector<double> w = Grid(480.0, 520.0, 0.5);
  // The curve in the window's units, times 100, made from a point of the 5 x 5 x 5 grid below.
  std::vector<double> response;
  for (const double x : w) {
    response.push_back(100.0 * gauss(501.0, 4.0, 0.5, x));
  }
  // Per row the counts of the three parameters and what they find. All 5: the grid point of the
  // curve. One count: only the lower corner is tried. No count: the middle of the box.
  const std::vector<std::pair<std::array<int, 3>, std::array<double, 3>>> cases = {
      {{5, 5, 5}, {501.0, 4.0, 0.5}},
      {{1, 1, 1}, {499.0, 2.0, 0.3}},
      {{0, 5, 5}, {501.0, 4.0, 0.5}}};
  for (const auto& [counts, expected] : cases) {
    double p1 = 0;
    double p2 = 0;
    double p3 = 0;
    module._FitFunctionBruteForce(p1, p2, p3, w, response, gauss, 499.0, 503.0, counts[0], 2.0, 6.0,
                                  counts[1], 0.3, 0.7, counts[2]);
    EXPECT_NEAR(p1, expected[0], 1e-12) << counts[0];
    EXPECT_NEAR(p2, expected[1], 1e-12) << counts[0];
    EXPECT_NEAR(p3, expected[2], 1e-12) << counts[0];
  }
}

TEST(PeakDetectionScore, ContributionIsCappedAndAnEmptyWindowScoresNothing) {
  Probe module{With(Distributions::DB_GAUSSIAN)};
  module.Initialize(ProcessingModule::InitializationData());
  const std::vector<double> w = Grid(400.0, 600.0, 0.2);
  const std::vector<double> response = Gaussians(w, {{{500.0, 10.0, 0.4}}});
  Peak peak;
  peak.wavelength = 500.0;
  peak.fwhm = 10.0;
  peak.qe = 0.4;
  module._GetContributionAndFitError(peak, response, w);
  // Three FWHM of a Gaussian hold all but about 0.1 % of its sum.
  EXPECT_NEAR(peak.contribution, 0.999, 0.001);
  EXPECT_LT(peak.fit_error, 1e-12);

  // Twice and three times the response: the model's sum exceeds the response's. The residual is
  // once and twice the response, over twice and three times its sum.
  peak.qe = 0.8;
  module._GetContributionAndFitError(peak, response, w);
  EXPECT_EQ(peak.contribution, 1.0);
  const double twice = peak.fit_error;
  peak.qe = 1.2;
  module._GetContributionAndFitError(peak, response, w);
  EXPECT_EQ(peak.contribution, 1.0);
  EXPECT_NEAR(peak.fit_error / twice, (2.0 / 3.0) / (1.0 / 2.0), 1e-12);

  peak.wavelength = 900.0;  // nothing of the grid in the window
  module._GetContributionAndFitError(peak, response, w);
  EXPECT_EQ(peak.contribution, 0.0);
  EXPECT_EQ(peak.fit_error, std::numeric_limits<double>::max());
}

TEST(PeakDetectionProcess, FitsTwoPeaksAndOrdersThemByContribution) {
  Module::Parameters parameters = With(Distributions::DB_GAUSSIAN);
  Module module{parameters};
  module.Initialize(ProcessingModule::InitializationData());
  const std::vector<double> w = Grid(400.0, 700.0, 1.0);
  // The higher peak is narrower: the lower one, three times as wide, explains more.
  const std::vector<double> response = Gaussians(w, {{{480.3, 6.0, 0.5}}, {{600.6, 18.0, 0.3}}});
  std::list<Peak> peaks{Peak(), Peak(), Peak()};
  module.Process(peaks, response, w, "band_");
  ASSERT_EQ(peaks.size(), 2u);
  const Peak& first = peaks.front();
  const Peak& second = peaks.back();
  EXPECT_NEAR(first.wavelength, 600.6, 0.1);
  EXPECT_NEAR(first.fwhm, 18.0, 0.5);
  EXPECT_NEAR(first.qe, 0.3, 0.01);
  EXPECT_NEAR(second.wavelength, 480.3, 0.1);
  // The fine grid steps the width by about 0.5 nm; the height makes up for the difference.
  EXPECT_NEAR(second.fwhm, 6.0, 0.3);
  EXPECT_NEAR(second.qe, 0.5, 0.03);
  EXPECT_NEAR(first.contribution + second.contribution, 1.0, 0.01);
  EXPECT_GT(first.contribution, second.contribution);
  EXPECT_LT(first.fit_error, 0.01);

  // A second call starts afresh and gives the same.
  std::list<Peak> again;
  module.Process(again, response, w, "band_");
  ASSERT_EQ(again.size(), 2u);
  EXPECT_EQ(again.front().wavelength, first.wavelength);
  EXPECT_EQ(again.back().contribution, second.contribution);
}

TEST(PeakDetectionProcess, EdgeCasesKeepTheListSound) {
  Module module{Module::Parameters()};
  module.Initialize(ProcessingModule::InitializationData());
  std::list<Peak> peaks{Peak()};
  // Fewer than five samples: empty, after interpolating (one sample has no spline).
  module.Process(peaks, {0.1, 0.3, 0.2}, {500, 501, 502}, "");
  EXPECT_TRUE(peaks.empty());
  module.Process(peaks, {0.1}, {500}, "");
  EXPECT_TRUE(peaks.empty());
  module.Process(peaks, {}, {}, "");
  EXPECT_TRUE(peaks.empty());
  EXPECT_THROW(module.Process(peaks, {0.1, 0.2}, {500}, ""), std::invalid_argument);
  EXPECT_THROW(module.Process(peaks, {0.1, 0.2, 0.3, 0.2, 0.1}, {500, 501, 501, 502, 503}, ""),
               std::invalid_argument);

  // A window too narrow to hold a peak of its own: the peak stays as first found.
  Module::Parameters narrow;
  narrow.detection_window_nm = 0.3;
  module.SetParameters(narrow);
  const std::vector<double> w = Grid(400.0, 600.0, 1.0);
  module.Process(peaks, Gaussians(w, {{{500.0, 10.0, 0.5}}}), w, "");
  ASSERT_EQ(peaks.size(), 1u);
  EXPECT_EQ(peaks.front().wavelength, 500.0);
  EXPECT_EQ(peaks.front().qe, 0.5);
  EXPECT_EQ(peaks.front().fwhm, 0.0);
  EXPECT_EQ(peaks.front().contribution, 0.0);
}

TEST(PeakDetectionDebug, DumpsTheCurvesAndTheFitAndRecordsFiveSlots) {
  const TemporaryDirectory directory;
  Module::Parameters parameters = With(Distributions::DB_GAUSSIAN);
  parameters.debug_dump = true;
  parameters.debug_dump_dir = (directory.path() / "pd").string();
  parameters.maximum_peak_count = 7;
  parameters.minimum_peak_distance_nm = 10.0;
  Module module{parameters};
  module.Initialize(ProcessingModule::InitializationData());
  EXPECT_TRUE(std::filesystem::is_directory(directory.path() / "pd"));

  const std::vector<double> w = Grid(400.0, 700.0, 1.0);
  std::vector<std::array<double, 3>> shapes;
  for (int i = 0; i < 6; ++i) {
    shapes.push_back({420.0 + 45.0 * i, 8.0, 0.2 + 0.05 * i});
  }
  std::list<Peak> peaks;
  module.Process(peaks, Gaussians(w, shapes), w, "x_");
  EXPECT_EQ(peaks.size(), 6u);
  const Module::DebugRecord record = module.GetDebugRecord();
  // The five highest as first found, before any fit; the sixth has no slot.
  EXPECT_THAT(record.wavelengths, ElementsAre(645, 600, 555, 510, 465));
  EXPECT_NEAR(record.qe[0], 0.45, 1e-9);
  EXPECT_THAT(record.fwhm, ElementsAre(0, 0, 0, 0, 0));

  for (const char* name :
       {"x_response.csv", "x_response_interp.csv", "x_peak_000_fit_function_brute_force_result.csv",
        "x_peak_005_fit_function_brute_force_result.csv"}) {
    EXPECT_TRUE(std::filesystem::is_regular_file(directory.path() / "pd" / name)) << name;
  }
  std::ifstream fit(directory.path() / "pd" / "x_peak_000_fit_function_brute_force_result.csv");
  std::string line;
  std::getline(fit, line);
  // Wavelength, window value (times 100) and model (without the factor), ", " apart.
  EXPECT_THAT(line, ::testing::MatchesRegex("6[0-9.]+, [0-9.e-]+, [0-9.e-]+"));
  std::ifstream interpolated(directory.path() / "pd" / "x_response_interp.csv");
  std::size_t lines = 0;
  while (std::getline(interpolated, line)) {
    ++lines;
  }
  EXPECT_EQ(lines, (w.size() - 1) * 5 + 1);

  testing::internal::CaptureStderr();
  Probe::_Dump({}, directory.path() / "empty.csv");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cannot dump empty sample set to " + (directory.path() / "empty.csv").string() + "\n");
}

TEST(PeakDetectionInterpolation, FactorOneKeepsTheGridAndOthersRefineIt) {
  Module::Parameters parameters;
  parameters.filter_interpolation_factor = 1;
  Probe module{parameters};
  std::vector<double> response;
  std::vector<double> wavelengths;
  module._Interpolate(response, wavelengths, {1, 2, 4, 8, 16}, {10, 11, 12, 13, 14});
  EXPECT_THAT(wavelengths, ElementsAre(10, 11, 12, 13, 14));
  EXPECT_THAT(response, ElementsAre(1, 2, 4, 8, 16));
  parameters.filter_interpolation_factor = 4;
  module.SetParameters(parameters);
  // A cubic is reproduced exactly by the not-a-knot spline.
  const auto cubic = [](double x) { return 0.5 * x * x * x - x + 2.0; };
  module._Interpolate(response, wavelengths, {cubic(0), cubic(1), cubic(2), cubic(3), cubic(4)},
                      {0, 1, 2, 3, 4});
  ASSERT_EQ(wavelengths.size(), 17u);
  for (std::size_t k = 0; k < wavelengths.size(); ++k) {
    EXPECT_DOUBLE_EQ(wavelengths[k], 0.25 * static_cast<double>(k));
    EXPECT_NEAR(response[k], cubic(wavelengths[k]), 1e-12);
  }
}

}  // namespace

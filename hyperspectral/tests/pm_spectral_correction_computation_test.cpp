#include <kelto/hyperspectral/correction/pm_spectral_correction_computation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <boost/thread/lock_guard.hpp>

#include <kelto/common/logger.h>
#include <kelto/common/parameter_container.h>

#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>

namespace {

using kelto::common::EnumParameter;
using kelto::common::IntegerParameter;
using kelto::common::Logger;
using kelto::common::Parameter;
using kelto::common::ParameterContainer;
using kelto::common::PathParameter;
using kelto::common::ProcessingModule;
using kelto::common::RealParameter;
using kelto::common::filesystem::Path;
using kelto::datatypes::ColumnVector;
using kelto::datatypes::Matrix;
using kelto::datatypes::RowVector;
using kelto::hyperspectral::Distributions;
using kelto::hyperspectral::InversionOptimizationAlgorithms;
using kelto::testing::LogCapture;
using kelto::testing::TemporaryDirectory;
using Module = kelto::hyperspectral::PM_SpectralCorrectionComputation;
using PeakInfo = Module::PeakInfo;
using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Calls = std::vector<std::function<void()>>;
using Maximum = std::pair<unsigned long, double>;
using ::testing::DoubleEq;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

const double kPi = std::acos(-1.0);

// A Gaussian of full width at half maximum fwhm, 1 at d = 0.
double Gauss(double d, double fwhm) {
  return std::exp(-4.0 * std::log(2.0) * d * d / (fwhm * fwhm));
}

// Reaches what the module keeps to itself: its lock, the response lookup, the former solver and
// the rows for ready-made filters.
class Probe : public Module {
 public:
  using Module::_ComputeCorrectionCoefficients_TikhonovInverse;
  using Module::_GetResponse;
  using Module::Module;
  boost::mutex& Mutex() { return _GetMutex(); }
  void ReadyMadeMatrix(Matrix<double>& matrix, const std::vector<ColumnVector<double>>& filters,
                       const std::vector<PeakInfo>& peaks) {
    _ComputeCorrectionMatrix(matrix, filters, peaks);
  }
};

ColumnVector<double> Column(const std::vector<double>& values) {
  std::vector<double> copy = values;
  return ColumnVector<double>(copy.data(), copy.data() + copy.size(), true);
}

std::vector<double> Values(const RowVector<double>& vector) {
  return std::vector<double>(vector.begin(), vector.end());
}

std::vector<double> Row(const Matrix<double>& matrix, unsigned long row) {
  return std::vector<double>(matrix.rows[row], matrix.rows[row] + matrix.column_count);
}

Eigen::MatrixXd ToEigen(const Matrix<double>& matrix) {
  return Eigen::Map<const RowMajor>(matrix.data, static_cast<Eigen::Index>(matrix.row_count),
                                    static_cast<Eigen::Index>(matrix.column_count));
}

PeakInfo Peak(double wavelength, double fwhm, Distributions::eDistribution shape) {
  PeakInfo peak;
  peak.wavelength = wavelength;
  peak.fwhm = fwhm;
  peak.shape = shape;
  return peak;
}

Module::Parameters WithAlpha(double alpha) {
  Module::Parameters parameters;
  parameters.tikhonov_alpha = alpha;
  return parameters;
}

// F the 2 by 2 identity on two samples.
Module::InitializationData Identity() {
  Module::InitializationData data;
  data.responses = Matrix<double>(2, 2, 0.0);
  data.responses.rows[0][0] = 1.0;
  data.responses.rows[1][1] = 1.0;
  data.wavelengths = Column({500.0, 510.0});
  data.energies = Column({1.0, 1.0});
  data.optical_response = Column({1.0, 1.0});
  return data;
}

std::vector<double> Coefficients(Module& module, const std::vector<double>& filter) {
  RowVector<double> coefficients;
  module.ComputeCorrectionCoefficients(coefficients, Column(filter), PeakInfo());
  return Values(coefficients);
}

// ---------------------------------------------------------------------------------------------
// The Tikhonov solution

// One module through every row: a new alpha between two filters of one computation is used, a
// change of its sign changes nothing, and neither do the algorithm and its bounds.
TEST(SpectralCorrectionTikhonov, IdentityResponsesShrinkByOnePlusAlphaSquared) {
  Module::Parameters vardell = WithAlpha(0.5);
  vardell.inversion_algorithm = InversionOptimizationAlgorithms::IOA_VARDELL;
  vardell.upper_variation = 0.0;
  vardell.lower_variation = 3.0;
  Module module(WithAlpha(0.01));
  module.Initialize(Identity());
  const std::vector<std::pair<Module::Parameters, double>> cases = {
      {WithAlpha(0.01), 1.0001}, {WithAlpha(0.5), 1.25}, {WithAlpha(-0.5), 1.25}, {vardell, 1.25}};
  for (const auto& [parameters, divisor] : cases) {
    SCOPED_TRACE(parameters.tikhonov_alpha);
    module.SetRuntimeParameters(parameters);
    EXPECT_THAT(Coefficients(module, {0.7, 0.3}),
                ElementsAre(DoubleEq(0.7 / divisor), DoubleEq(0.3 / divisor)));
  }
  // A = 1.25 I and then 5 I for a matrix row.
  const std::vector<PeakInfo> peak{Peak(500.0, 5.0, Distributions::DB_GAUSSIAN)};
  Matrix<double> matrix;
  module.ComputeCorrectionMatrix(matrix, peak);
  module.SetRuntimeParameters(WithAlpha(2.0));
  Matrix<double> stronger;
  module.ComputeCorrectionMatrix(stronger, peak);
  EXPECT_DOUBLE_EQ(stronger.rows[0][0], matrix.rows[0][0] * 1.25 / 5.0);

  // A new Initialize brings its own A: F = 2 I, so F v = 1.4 and A = 8 I.
  Module::InitializationData doubled = Identity();
  doubled.responses.rows[0][0] = 2.0;
  doubled.responses.rows[1][1] = 2.0;
  module.Initialize(doubled);
  EXPECT_DOUBLE_EQ(Coefficients(module, {0.7, 0.3})[0], 1.4 / 8.0);
}

// 16 random bands over 601 samples (400 to 1000 nm), seen through a smooth optical response.
class SpectralCorrectionRandomResponses : public ::testing::Test {
 protected:
  static constexpr unsigned long kBands = 16;
  static constexpr unsigned long kSamples = 601;
  static constexpr double kAlpha = 0.01;

  SpectralCorrectionRandomResponses() : module(WithAlpha(kAlpha)) {
    std::mt19937 generator(20240517);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    data.responses = Matrix<double>(kBands, kSamples, 0.0);
    for (unsigned long i = 0; i < kBands * kSamples; ++i) {
      data.responses.data[i] = uniform(generator);
    }
    data.wavelengths = ColumnVector<double>(kSamples, 0.0);
    data.optical_response = ColumnVector<double>(kSamples, 0.0);
    for (unsigned long i = 0; i < kSamples; ++i) {
      data.wavelengths[i] = 400.0 + static_cast<double>(i);
      data.optical_response[i] = 0.6 + 0.3 * std::cos(data.wavelengths[i] / 40.0);
    }
    data.energies = ColumnVector<double>(kBands, 1.0);
    module.Initialize(data);
  }

  // The normal equations (F Ft + alpha^2 I) x = F v, solved by Eigen.
  Eigen::VectorXd Solve(const std::vector<double>& filter) const {
    const Eigen::MatrixXd f = ToEigen(data.responses);
    const auto n = static_cast<Eigen::Index>(kBands);
    const Eigen::MatrixXd a = f * f.transpose() + kAlpha * kAlpha * Eigen::MatrixXd::Identity(n, n);
    return a.ldlt().solve(f * Eigen::Map<const Eigen::VectorXd>(
                                  filter.data(), static_cast<Eigen::Index>(filter.size())));
  }

  // The target of a peak, from the shape's formula: through the optics, with unit sum. The height
  // of the shape does not matter after the normalisation.
  std::vector<double> Target(const PeakInfo& peak) const {
    std::vector<double> filter(kSamples);
    double sum = 0.0;
    for (unsigned long i = 0; i < kSamples; ++i) {
      const double d = data.wavelengths[i] - peak.wavelength;
      double value = 0.0;
      if (peak.shape == Distributions::DB_GAUSSIAN) {
        value = Gauss(d, peak.fwhm);
      } else if (peak.shape == Distributions::DB_FABRY_PEROT) {
        // One order of the cavity, with a coefficient of finesse of 80.
        const double range = peak.fwhm * kPi / (2.0 * std::asin(1.0 / std::sqrt(82.0)));
        const double u = d / range;
        value = std::fabs(u) > 0.5 ? 0.0
                                   : std::pow(std::cos(kPi * u), 2) /
                                         (1.0 + 80.0 * std::pow(std::sin(kPi * u), 2));
      } else {
        value = 1.0 / (d * d + peak.fwhm * peak.fwhm / 4.0);
      }
      filter[i] = value * data.optical_response[i];
      sum += filter[i];
    }
    for (double& value : filter) {
      value /= sum;
    }
    return filter;
  }

  static void ExpectClose(const std::vector<double>& actual, const Eigen::VectorXd& expected) {
    ASSERT_EQ(actual.size(), static_cast<std::size_t>(expected.size()));
    const double scale = expected.cwiseAbs().maxCoeff();
    for (unsigned long i = 0; i < actual.size(); ++i) {
      EXPECT_NEAR(actual[i], expected[static_cast<Eigen::Index>(i)], 1e-9 * scale) << "band " << i;
    }
  }

  Module::InitializationData data;
  Probe module;
};

// Ready-made filters on the wavelengths, or on a longer grid whose range holds the wavelengths'
// samples: each row solves the normal equations of those samples, by the factorisation (the
// matrix and the public single computation) and by the per-filter inverse alike. A filter of
// neither length is refused.
TEST_F(SpectralCorrectionRandomResponses, ReadyMadeFiltersOnTheGridOrInTheRange) {
  std::mt19937 generator(7);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  std::vector<std::vector<double>> on_grid(3, std::vector<double>(kSamples));
  for (auto& filter : on_grid) {
    for (double& value : filter) {
      value = uniform(generator);
    }
  }
  // 5 samples before the wavelengths' and 2 after, which a range of [5, 606) leaves out.
  const auto padded = [](std::vector<double> filter) {
    filter.insert(filter.begin(), 5, 7.0);
    filter.insert(filter.end(), 2, -3.0);
    return filter;
  };
  struct Case {
    unsigned long first;
    unsigned long last;
    bool pad;
    const char* error;  // none: the rows solve on_grid
  };
  const std::vector<Case> cases = {
      {0, 0, false, nullptr},
      {5, 606, true, nullptr},
      {5, 606, false, nullptr},
      {0, 0, true, "the virtual filter has 608 samples for 601 wavelengths"},
      {4, 606, true,
       "the virtual filter has 608 samples for 601 wavelengths and the range [4, 606)"},
      {8, 609, true,
       "the virtual filter has 608 samples for 601 wavelengths and the range [8, 609)"}};
  const std::vector<PeakInfo> peaks(on_grid.size());
  LogCapture log;
  for (const Case& test : cases) {
    SCOPED_TRACE(std::to_string(test.first) + ", " + std::to_string(test.last) +
                 (test.pad ? ", padded" : ""));
    module.SetFilterRange(test.first, test.last);
    std::vector<ColumnVector<double>> filters;
    for (const auto& filter : on_grid) {
      filters.push_back(Column(test.pad ? padded(filter) : filter));
    }
    Matrix<double> matrix;
    RowVector<double> inverted;
    if (test.error != nullptr) {
      EXPECT_THAT([&] { module.ReadyMadeMatrix(matrix, filters, peaks); },
                  ThrowsMessage<std::invalid_argument>(StrEq(test.error)));
      EXPECT_THAT(
          [&] { module._ComputeCorrectionCoefficients_TikhonovInverse(inverted, filters[0], {}); },
          ThrowsMessage<std::invalid_argument>(StrEq(test.error)));
      continue;
    }
    module.ReadyMadeMatrix(matrix, filters, peaks);
    ASSERT_EQ(matrix.row_count, on_grid.size());
    for (unsigned long p = 0; p < on_grid.size(); ++p) {
      const Eigen::VectorXd expected = Solve(on_grid[p]);
      ExpectClose(Row(matrix, p), expected);
      module._ComputeCorrectionCoefficients_TikhonovInverse(inverted, filters[p], PeakInfo());
      ExpectClose(Values(inverted), expected);
      module.ComputeCorrectionCoefficients(inverted, filters[p], PeakInfo());
      ExpectClose(Values(inverted), expected);
    }
  }
  EXPECT_THAT([&] { module.SetFilterRange(3, 1); }, ::testing::Throws<std::invalid_argument>());
  Matrix<double> matrix;
  EXPECT_THAT([&] { module.ReadyMadeMatrix(matrix, {}, peaks); },
              ThrowsMessage<std::invalid_argument>(StrEq("0 virtual filters for 3 peaks")));
}

// The peak's shape chooses the target; no shape and an unknown one stand for the Lorentzian.
TEST_F(SpectralCorrectionRandomResponses, MatrixRowsAreTheInversionsSmoothedByWavelength) {
  const std::vector<PeakInfo> peaks{Peak(520.0, 10.0, Distributions::DB_GAUSSIAN),
                                    Peak(526.0, 14.0, Distributions::DB_LORENTZIAN),
                                    Peak(560.0, 12.0, Distributions::DB_FABRY_PEROT),
                                    Peak(566.0, 9.0, Distributions::DB_GAUSSIAN),
                                    Peak(700.0, 12.0, Distributions::DB_NONE),
                                    Peak(760.0, 12.0, Distributions::DB_UNKNOWN)};
  Module::Parameters parameters = WithAlpha(kAlpha);
  parameters.smoothing_fwhm_nm = 0.0;
  module.SetRuntimeParameters(parameters);
  Matrix<double> raw;
  module.ComputeCorrectionMatrix(raw, peaks);
  ASSERT_EQ(raw.row_count, peaks.size());
  ASSERT_EQ(raw.column_count, kBands);
  const auto n = static_cast<Eigen::Index>(peaks.size());
  Eigen::MatrixXd expected_raw(n, static_cast<Eigen::Index>(kBands));
  for (unsigned long p = 0; p < peaks.size(); ++p) {
    RowVector<double> row;
    module.ComputeCorrectionCoefficients(row, peaks[p]);
    // Without smoothing a row is exactly the single computation.
    EXPECT_EQ(Row(raw, p), Values(row)) << p;
    expected_raw.row(static_cast<Eigen::Index>(p)) = Solve(Target(peaks[p])).transpose();
    ExpectClose(Values(row), expected_raw.row(static_cast<Eigen::Index>(p)).transpose());
  }

  // The default width: Gaussian weights of the wavelength distances, each row summing to 1.
  module.SetRuntimeParameters(WithAlpha(kAlpha));
  Matrix<double> smoothed;
  module.ComputeCorrectionMatrix(smoothed, peaks);
  Eigen::MatrixXd weights(n, n);
  for (Eigen::Index i = 0; i < n; ++i) {
    for (Eigen::Index j = 0; j < n; ++j) {
      weights(i, j) = Gauss(peaks[static_cast<std::size_t>(i)].wavelength -
                                peaks[static_cast<std::size_t>(j)].wavelength,
                            7.5);
    }
    weights.row(i) /= weights.row(i).sum();
  }
  const Eigen::MatrixXd expected = weights * expected_raw;
  const Eigen::MatrixXd actual = ToEigen(smoothed);
  ASSERT_EQ(actual.rows(), expected.rows());
  ASSERT_EQ(actual.cols(), expected.cols());
  EXPECT_LT((actual - expected).cwiseAbs().maxCoeff(), 1e-9 * expected.cwiseAbs().maxCoeff());
  EXPECT_GT((actual - ToEigen(raw)).cwiseAbs().maxCoeff(), 1e-3 * expected.cwiseAbs().maxCoeff());

  // No peak gives no row.
  Matrix<double> none(3, 3, 1.0);
  module.ComputeCorrectionMatrix(none, {});
  EXPECT_EQ(none.row_count, 0u);
}

// ---------------------------------------------------------------------------------------------
// The factorisation kept for a computation, against the inverse formed per filter

// 150 bands on 601 samples (400 to 1000 nm), 4 nm apart: each a Gaussian main peak whose width
// grows from fwhm to twice that towards the red, and a weak broad leakage 60 nm above it. The wider
// the peaks, the more neighbours overlap and the worse A = F Ft + alpha^2 I is conditioned.
Module::InitializationData OverlappingBands(double fwhm) {
  constexpr unsigned long kBands = 150;
  constexpr unsigned long kSamples = 601;
  Module::InitializationData data;
  data.responses = Matrix<double>(kBands, kSamples, 0.0);
  data.wavelengths = ColumnVector<double>(kSamples, 0.0);
  for (unsigned long i = 0; i < kSamples; ++i) {
    data.wavelengths[i] = 400.0 + static_cast<double>(i);
  }
  for (unsigned long b = 0; b < kBands; ++b) {
    const double centre = 405.0 + 4.0 * static_cast<double>(b);
    const double width = fwhm * (1.0 + (centre - 400.0) / 600.0);
    for (unsigned long i = 0; i < kSamples; ++i) {
      const double d = data.wavelengths[i] - centre;
      data.responses.rows[b][i] =
          Gauss(d, width) + 0.05 * std::exp(-(d - 60.0) * (d - 60.0) / 1800.0);
    }
  }
  data.energies = ColumnVector<double>(kBands, 1.0);
  data.optical_response = ColumnVector<double>(kSamples, 1.0);
  return data;
}

// Nine Gaussian targets of unit sum across the range, 6 to 22 nm wide.
std::vector<ColumnVector<double>> SpreadTargets(const Module::InitializationData& data) {
  std::vector<ColumnVector<double>> targets;
  for (unsigned long k = 0; k < 9; ++k) {
    const double centre = 420.0 + 70.0 * static_cast<double>(k);
    ColumnVector<double> filter(data.wavelengths.size, 0.0);
    double sum = 0.0;
    for (unsigned long i = 0; i < filter.size; ++i) {
      filter[i] = Gauss(data.wavelengths[i] - centre, 6.0 + 2.0 * static_cast<double>(k));
      sum += filter[i];
    }
    for (double& value : filter) {
      value /= sum;
    }
    targets.push_back(std::move(filter));
  }
  return targets;
}

Eigen::Map<const Eigen::VectorXd> ToEigen(const RowVector<double>& vector) {
  return Eigen::Map<const Eigen::VectorXd>(vector.data, static_cast<Eigen::Index>(vector.size));
}

double RelativeDifference(const Eigen::VectorXd& actual, const Eigen::VectorXd& expected) {
  return (actual - expected).norm() / expected.norm();
}

// Peaks of 8 to 16 nm: A is conditioned about 1e6, and the per-filter inverse drifts from the
// solution by up to some 3e-9, as an explicit inverse does for right-hand sides that A^-1 shrinks
// strongly. The factorisation still solves as well as the conditioning allows: against the normal
// equations solved in long double, its error stays within a few cond(A) rounding units.
TEST(SpectralCorrectionRoutes, FactorisationSolvesToTheConditioningOfTheSystem) {
  using Long = Eigen::Matrix<long double, Eigen::Dynamic, Eigen::Dynamic>;
  using LongVector = Eigen::Matrix<long double, Eigen::Dynamic, 1>;
  const double alpha = 0.01;
  const Module::InitializationData data = OverlappingBands(8.0);
  Module module(WithAlpha(alpha));
  module.Initialize(data);

  const Long f = ToEigen(data.responses).cast<long double>();
  Long a = f * f.transpose();
  a.diagonal().array() += static_cast<long double>(alpha) * static_cast<long double>(alpha);
  const Eigen::LLT<Long> reference(a);
  const Eigen::VectorXd eigenvalues =
      Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(a.cast<double>(), Eigen::EigenvaluesOnly)
          .eigenvalues();
  const double condition = eigenvalues.maxCoeff() / eigenvalues.minCoeff();
  ASSERT_GT(condition, 1e5);  // the data are as hard as they are meant to be
  const double bound = 4.0 * condition * std::numeric_limits<double>::epsilon();

  for (const ColumnVector<double>& filter : SpreadTargets(data)) {
    const LongVector v =
        Eigen::Map<const Eigen::VectorXd>(filter.data, static_cast<Eigen::Index>(filter.size))
            .cast<long double>();
    const Eigen::VectorXd expected = reference.solve(f * v).cast<double>();
    RowVector<double> factored;
    module.ComputeCorrectionCoefficients(factored, filter, PeakInfo());
    ASSERT_EQ(factored.size, 150u);
    EXPECT_LT(RelativeDifference(ToEigen(factored), expected), bound);
  }
}

// alpha 0 with two bands that are multiples of one another: A is singular. For the first scale
// Cholesky meets a pivot of exactly 0; for the second rounding leaves one of about 3e-14, positive
// and so accepted by a bare Cholesky, which would give coefficients of noise.
TEST(SpectralCorrectionRoutes, ASingularSystemFailsAsThePerFilterInverseDoes) {
  for (const double scale : {1.0, 1.7}) {
    SCOPED_TRACE(scale);
    Module::InitializationData data;
    data.responses = Matrix<double>(2, 3, 0.0);
    for (unsigned long i = 0; i < 3; ++i) {
      data.responses.rows[0][i] = scale * static_cast<double>(i + 1);
      data.responses.rows[1][i] = 2.0 * scale * static_cast<double>(i + 1);
    }
    data.wavelengths = Column({500.0, 510.0, 520.0});
    Probe module(WithAlpha(0.0));
    module.Initialize(data);
    const ColumnVector<double> filter = Column({0.2, 0.5, 0.3});
    RowVector<double> factored;
    RowVector<double> inverted;
    const auto singular =
        ThrowsMessage<std::runtime_error>(StrEq("Matrix::Inverse: the matrix is singular"));
    EXPECT_THAT([&] { module.ComputeCorrectionCoefficients(factored, filter, PeakInfo()); },
                singular);
    EXPECT_THAT(
        [&] {
          module._ComputeCorrectionCoefficients_TikhonovInverse(inverted, filter, PeakInfo());
        },
        singular);

    // Any alpha makes A definite again, within the same computation.
    module.SetRuntimeParameters(WithAlpha(0.1));
    module.ComputeCorrectionCoefficients(factored, filter, PeakInfo());
    module._ComputeCorrectionCoefficients_TikhonovInverse(inverted, filter, PeakInfo());
    ASSERT_EQ(factored.size, 2u);
    EXPECT_LT(RelativeDifference(ToEigen(factored), ToEigen(inverted)), 1e-10);
  }
}

// ---------------------------------------------------------------------------------------------
// Initialisation and misuse

TEST(SpectralCorrectionLifecycle, ResponseMaximaTakeTheEarliestOfEqualValues) {
  Module module(Module::Parameters{});
  Module::InitializationData data;
  data.responses = Matrix<double>(3, 4, 0.0);
  const std::vector<double> values{0.1,  0.5,  0.5,  0.2,  // tie: the first stays
                                   -1.0, -0.5, -2.0, 0.0,  // nothing positive
                                   0.0,  0.0,  0.0,  3.0};
  std::copy(values.begin(), values.end(), data.responses.data);
  data.wavelengths = Column({1.0, 2.0, 3.0, 4.0});
  module.Initialize(data);
  EXPECT_EQ(module.GetResponseMaxima(),
            (std::vector<Maximum>{Maximum{1, 0.5}, Maximum{0, 0.0}, Maximum{3, 3.0}}));

  // A second Initialize replaces everything of the first.
  module.Initialize(Identity());
  EXPECT_EQ(module.GetResponseMaxima(), (std::vector<Maximum>{Maximum{0, 1.0}, Maximum{1, 1.0}}));
  EXPECT_EQ(Coefficients(module, {1.0, 0.0}).size(), 2u);
}

TEST(SpectralCorrectionLifecycle, ComputationsOutsideTheCycleAndWrongDataAreRefused) {
  Module module(Module::Parameters{});
  LogCapture log;
  RowVector<double> coefficients;
  Matrix<double> matrix;
  const std::string text = "the spectral correction computation is not initialized";
  for (int pass = 0; pass < 2; ++pass) {
    SCOPED_TRACE(pass);
    EXPECT_THAT(
        [&] { module.ComputeCorrectionMatrix(matrix, {Peak(500, 5, Distributions::DB_GAUSSIAN)}); },
        ThrowsMessage<std::logic_error>(StrEq(text)));
    EXPECT_THROW(module.ComputeCorrectionCoefficients(coefficients, Column({1.0, 0.0}), PeakInfo()),
                 std::logic_error);
    module.Initialize(Identity());
    module.Deallocate();
  }
  EXPECT_THAT([&] { module.Initialize(ProcessingModule::InitializationData()); },
              ThrowsMessage<std::runtime_error>(StrEq("incompatible initialization data object")));
  std::vector<std::string> expected(4, text);
  expected.push_back("incompatible initialization data object");
  EXPECT_EQ(log.Messages(Logger::eLevel::Error), expected);
}

TEST(SpectralCorrectionLifecycle, FiltersAndOpticsThatDoNotFitTheGridAreRefused) {
  Module module(Module::Parameters{});
  Module::InitializationData data = Identity();
  data.optical_response = Column({1.0});
  module.Initialize(data);
  LogCapture log;
  RowVector<double> coefficients;
  EXPECT_THROW(
      module.ComputeCorrectionCoefficients(coefficients, Column({1.0, 0.0, 0.0}), PeakInfo()),
      std::invalid_argument);
  EXPECT_THROW(
      module.ComputeCorrectionCoefficients(coefficients, Peak(505.0, 5.0, Distributions::DB_NONE)),
      std::invalid_argument);

  // Responses on another grid than the wavelengths are refused before anything changes.
  data = Identity();
  data.wavelengths = Column({500.0, 510.0, 520.0});
  data.responses.rows[1][0] = 2.0;
  EXPECT_THROW(module.Initialize(data), std::invalid_argument);
  EXPECT_EQ(log.Messages(Logger::eLevel::Error),
            (std::vector<std::string>{"the virtual filter has 3 samples for 2 wavelengths",
                                      "the optical response has 1 values for 2 wavelengths",
                                      "the responses have 2 samples for 3 wavelengths"}));
  EXPECT_EQ(module.GetResponseMaxima(), (std::vector<Maximum>{Maximum{0, 1.0}, Maximum{1, 1.0}}));
}

TEST(SpectralCorrectionLifecycle, ResponseLookupInterpolatesInsideTheGrid) {
  Probe module(Module::Parameters{});
  Module::InitializationData data;
  data.responses = Matrix<double>(1, 3, 1.0);
  data.wavelengths = Column({500.0, 510.0, 520.0});
  module.Initialize(data);
  const ColumnVector<double> response = Column({2.0, 4.0, -8.0});
  // Negative values are clamped.
  const std::vector<std::pair<double, double>> cases = {{490.0, 2.0}, {500.0, 2.0}, {505.0, 3.0},
                                                        {510.0, 4.0}, {512.5, 1.0}, {518.0, 0.0},
                                                        {530.0, -8.0}};
  for (const auto& [wavelength, value] : cases) {
    EXPECT_NEAR(module._GetResponse(response, wavelength), value, 1e-12) << wavelength;
  }
  LogCapture log;
  EXPECT_THROW(module._GetResponse(Column({1.0, 2.0}), 505.0), std::invalid_argument);
}

// Each public computation waits for the module's lock.
TEST(SpectralCorrectionLifecycle, PublicComputationsHoldTheLock) {
  Probe module(WithAlpha(0.01));
  module.Initialize(Identity());
  Matrix<double> matrix;
  RowVector<double> first;
  RowVector<double> second;
  const PeakInfo peak = Peak(505.0, 5.0, Distributions::DB_GAUSSIAN);
  const ColumnVector<double> filter = Column({1.0, 0.0});
  for (const auto& call :
       Calls{[&] { module.ComputeCorrectionMatrix(matrix, {peak}); },
             [&] { module.ComputeCorrectionCoefficients(first, peak); },
             [&] { module.ComputeCorrectionCoefficients(second, filter, peak); }}) {
    std::future<void> done;
    {
      const boost::lock_guard<boost::mutex> held(module.Mutex());
      done = std::async(std::launch::async, call);
      EXPECT_EQ(done.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    }
    done.get();
  }
  EXPECT_EQ(matrix.row_count, 1u);
  EXPECT_EQ(first.size, 2u);
  EXPECT_EQ(second.size, 2u);
}

// ---------------------------------------------------------------------------------------------
// Parameters

template <typename Kind>
Kind& Find(ParameterContainer& container, const std::string& title, const std::string& group) {
  Parameter* parameter = container.FindParameter(title, group);
  if (parameter == nullptr) {
    throw std::runtime_error("no parameter " + title);
  }
  return dynamic_cast<Kind&>(*parameter);
}

// The parameters of the module: the flag, the algorithm and the four numbers, then the folder.
std::pair<std::vector<double>, std::string> Read(const Module& module) {
  Module::Parameters p;
  p.debug_dump_dir = "unset";
  module.GetParameters(p);
  return {{static_cast<double>(p.debug_dump), static_cast<double>(p.inversion_algorithm),
           p.upper_variation, p.lower_variation, p.tikhonov_alpha, p.smoothing_fwhm_nm},
          p.debug_dump_dir.ToString()};
}

TEST(SpectralCorrectionParameters, ContainerListsEveryParameterWithItsTextsAndSetsThem) {
  Module module(Module::Parameters{});
  ParameterContainer container;
  module.GetParameters(container);
  EXPECT_EQ(container.GetName(), "Spectral correction computation");
  EXPECT_EQ(container.GetDescription(), "Spectral correction computation parameters");

  std::vector<std::string> listed;
  for (const Parameter* parameter : container.GetVisibleParameters()) {
    listed.push_back(parameter->GetGroup() + "/" + parameter->GetTitle() + ": " +
                     parameter->GetDescription());
  }
  EXPECT_EQ(
      listed,
      (std::vector<std::string>{
          "Optimization/Optimization algorithm: The optimization algorithm to use.",
          "Optimization/Max. positive variation: Maximum variation of coefficients above their "
          "initialization value.",
          "Optimization/Max. negative variation: Maximum variation of coefficients below their "
          "initialization value.",
          "Optimization/Tikhonov alpha: The alpha value to be used in the Tikhonov optimization.",
          "Optimization/Smoothing FWHM (nm): FWHM of the function used to smoothen matrix "
          "coefficients.",
          "Debug/Enable debug dump: Flags if intermediate results must be dumped to csv files "
          "(true) or not (false).",
          "Debug/Debug dump dir: Output directory for the debug dump files."}));
  EXPECT_EQ(container.GetParameterCount(), listed.size());

  EXPECT_EQ(Find<EnumParameter>(container, "Optimization algorithm", "Optimization")
                .GetValidationCriteria(),
            (EnumParameter::Criteria{{0, "Vardell"}, {1, "Tikhonov"}}));
  EXPECT_EQ(Find<IntegerParameter>(container, "Enable debug dump", "Debug").GetValidationCriteria(),
            (IntegerParameter::Criteria{0, 1}));
  EXPECT_TRUE(
      Find<PathParameter>(container, "Debug dump dir", "Debug").GetValidationCriteria().empty());

  // Every parameter reaches the module through the container.
  Find<EnumParameter>(container, "Optimization algorithm", "Optimization").SetValue(0);
  Find<RealParameter>(container, "Max. positive variation", "Optimization").SetValue(0.25);
  Find<RealParameter>(container, "Max. negative variation", "Optimization").SetValue(0.5);
  Find<RealParameter>(container, "Tikhonov alpha", "Optimization").SetValue(0.2);
  Find<RealParameter>(container, "Smoothing FWHM (nm)", "Optimization").SetValue(3.0);
  Find<IntegerParameter>(container, "Enable debug dump", "Debug").SetValue(1);
  Find<PathParameter>(container, "Debug dump dir", "Debug").SetValue(Path("elsewhere/"));
  module.SetParameters(container);
  EXPECT_EQ(Read(module), std::make_pair(std::vector<double>{1.0, 0.0, 0.25, 0.5, 0.2, 3.0},
                                         std::string("elsewhere/")));
}

TEST(SpectralCorrectionParameters, HalvesChangeOnlyTheirOwnFields) {
  Module::Parameters changed;
  changed.debug_dump = true;
  changed.debug_dump_dir = "changed/";
  changed.inversion_algorithm = InversionOptimizationAlgorithms::IOA_VARDELL;
  changed.upper_variation = 1.5;
  changed.lower_variation = 2.5;
  changed.tikhonov_alpha = 0.125;
  changed.smoothing_fwhm_nm = 0.0;

  Module configured(Module::Parameters{});
  configured.SetConfigurationParameters(changed);
  EXPECT_EQ(Read(configured), std::make_pair(std::vector<double>{1.0, 1.0, 0.8, 0.8, 0.01, 7.5},
                                             std::string("changed/")));
  Module run(Module::Parameters{});
  run.SetRuntimeParameters(changed);
  EXPECT_EQ(Read(run), std::make_pair(std::vector<double>{0.0, 0.0, 1.5, 2.5, 0.125, 0.0},
                                      std::string("./debug_dump/")));
}

TEST(SpectralCorrectionParameters, NegativeBoundsAndWidthAreRefusedWithTheirTexts) {
  Module module(WithAlpha(0.5));
  const auto before = Read(module);
  const std::vector<std::pair<std::vector<double>, std::string>> cases = {
      // upper and lower variation, smoothing width
      {{-0.1, 0.8, 7.5}, "upper bound variation must be positive"},
      {{0.8, -1e-9, 7.5}, "lower bound variation must be positive"},
      {{0.8, 0.8, -7.5}, "matrix smoothing fwhm must be 0.0 or positive"},
      {{-1.0, -1.0, -1.0}, "upper bound variation must be positive"},  // the first check speaks
  };
  for (const auto& [numbers, text] : cases) {
    SCOPED_TRACE(text);
    Module::Parameters parameters = WithAlpha(0.3);
    parameters.debug_dump = true;
    parameters.upper_variation = numbers[0];
    parameters.lower_variation = numbers[1];
    parameters.smoothing_fwhm_nm = numbers[2];
    LogCapture log;
    for (const auto& call : Calls{[&] { module.SetParameters(parameters); },
                                  [&] { module.SetRuntimeParameters(parameters); },
                                  [&] { module.SetConfigurationParameters(parameters); }}) {
      EXPECT_THAT(call, ThrowsMessage<std::invalid_argument>(StrEq(text)));
    }
    EXPECT_EQ(log.Messages(Logger::eLevel::Error), std::vector<std::string>(3, text));
    EXPECT_EQ(Read(module), before);
  }

  // Zero passes all three checks, and alpha has none.
  Module::Parameters edge = WithAlpha(-3.0);
  edge.upper_variation = 0.0;
  edge.lower_variation = 0.0;
  edge.smoothing_fwhm_nm = 0.0;
  module.SetParameters(edge);
  EXPECT_EQ(Read(module).first, (std::vector<double>{0.0, 1.0, 0.0, 0.0, -3.0, 0.0}));
}

TEST(SpectralCorrectionParameters, ForeignParametersAreRefused) {
  struct Foreign : ProcessingModule::Parameters {};
  Module module(Module::Parameters{});
  Foreign foreign;
  LogCapture log;
  for (const auto& call : Calls{[&] { module.SetParameters(foreign); },
                                [&] { module.SetConfigurationParameters(foreign); },
                                [&] { module.SetRuntimeParameters(foreign); },
                                [&] { module.GetParameters(foreign); }}) {
    EXPECT_THAT(call, ThrowsMessage<std::runtime_error>(StrEq("incompatible parameters object")));
  }
  EXPECT_EQ(log.Messages(Logger::eLevel::Error),
            std::vector<std::string>(4, "incompatible parameters object"));
}

// ---------------------------------------------------------------------------------------------
// Debug dump

std::vector<std::vector<double>> ReadCsv(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::vector<std::vector<double>> rows;
  std::string line;
  while (std::getline(file, line)) {
    std::vector<double> row;
    std::istringstream fields(line);
    std::string field;
    while (std::getline(fields, field, ',')) {
      row.push_back(std::stod(field));
    }
    rows.push_back(row);
  }
  return rows;
}

TEST(SpectralCorrectionDebugDump, InitializeWritesTheThreeMatricesOnlyWithTheFlag) {
  const TemporaryDirectory temporary;
  const std::filesystem::path directory = temporary.path() / "nested" / "dump";
  Module::Parameters parameters = WithAlpha(0.5);
  parameters.debug_dump_dir = directory.string();

  Module quiet(parameters);
  quiet.Initialize(Identity());
  EXPECT_FALSE(std::filesystem::exists(temporary.path() / "nested"));

  parameters.debug_dump = true;
  Module module(parameters);
  Module::InitializationData data = Identity();
  data.responses.rows[0][1] = 1.0;  // F = (1 1; 0 1), F Ft = (2 1; 1 1)
  module.Initialize(data);
  EXPECT_EQ(ReadCsv(directory / "algorithm_input_response_matrix.csv"),
            (std::vector<std::vector<double>>{{1, 1}, {0, 1}}));
  EXPECT_EQ(ReadCsv(directory / "algorithm_input_response_matrix_response_matrix_transpose.csv"),
            (std::vector<std::vector<double>>{{2, 1}, {1, 1}}));
  // (2.25 1; 1 1.25)^-1 = (1.25 -1; -1 2.25) / 1.8125, six digits.
  EXPECT_EQ(ReadCsv(directory / "tikhonov_divisor.csv"),
            (std::vector<std::vector<double>>{{0.689655, -0.551724}, {-0.551724, 1.24138}}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory),
                          std::filesystem::directory_iterator()),
            3);
}

}  // namespace

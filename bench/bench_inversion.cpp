// The Tikhonov inversion of a 150-band by 601-sample response matrix for 150 virtual filters.
// PM_SpectralCorrectionComputation factors A = F Ft + alpha^2 I once per computation and solves
// each filter against that; it used to form and invert A anew for every filter, a route it keeps
// for comparison. Both routes run here on the same ready-made targets, then the whole
// ComputeCorrectionMatrix, and the two routes done with Eigen alone, so that the module's own
// overhead can be told from that of the arithmetic.
#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#include <cmath>
#include <random>
#include <vector>

#include <kelto/hyperspectral/correction/pm_spectral_correction_computation.h>

namespace {

using kelto::datatypes::ColumnVector;
using kelto::datatypes::Matrix;
using kelto::datatypes::RowVector;
using kelto::hyperspectral::Distributions;
using Module = kelto::hyperspectral::PM_SpectralCorrectionComputation;
using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr unsigned long kBands = 150;
constexpr unsigned long kSamples = 601;
constexpr double kAlpha = 0.01;
constexpr double kFwhm = 10.0;

// Random responses on 400 to 1000 nm, optics passing everything, and one Gaussian target every
// 3.3 nm from 450 nm on.
struct Problem {
  Problem() {
    std::mt19937 generator(150601);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    data.responses = Matrix<double>(kBands, kSamples, 0.0);
    for (unsigned long i = 0; i < kBands * kSamples; ++i) {
      data.responses.data[i] = uniform(generator);
    }
    data.wavelengths = ColumnVector<double>(kSamples, 0.0);
    for (unsigned long i = 0; i < kSamples; ++i) {
      data.wavelengths[i] = 400.0 + static_cast<double>(i);
    }
    data.optical_response = ColumnVector<double>(kSamples, 1.0);
    data.energies = ColumnVector<double>(kBands, 1.0);
    for (unsigned long p = 0; p < kBands; ++p) {
      Module::PeakInfo peak;
      peak.wavelength = 450.0 + 3.3 * static_cast<double>(p);
      peak.fwhm = kFwhm;
      peak.shape = Distributions::DB_GAUSSIAN;
      peaks.push_back(peak);
    }
  }

  Eigen::MatrixXd Responses() const {
    return Eigen::Map<const RowMajor>(data.responses.data, kBands, kSamples);
  }

  // The targets as the module builds them, one column per filter.
  Eigen::MatrixXd Targets() const {
    const double sigma = kFwhm / (2.0 * std::sqrt(2.0 * std::log(2.0)));
    Eigen::MatrixXd targets(kSamples, kBands);
    for (unsigned long p = 0; p < kBands; ++p) {
      for (unsigned long i = 0; i < kSamples; ++i) {
        const double d = data.wavelengths[i] - peaks[p].wavelength;
        targets(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(p)) =
            std::exp(-d * d / (2.0 * sigma * sigma));
      }
      targets.col(static_cast<Eigen::Index>(p)) /= targets.col(static_cast<Eigen::Index>(p)).sum();
    }
    return targets;
  }

  Module::InitializationData data;
  std::vector<Module::PeakInfo> peaks;
};

// Reaches the module's two solvers for one ready-made filter and its factorisation.
class Routes : public Module {
 public:
  using Module::_ComputeCorrectionCoefficients_Tikhonov;
  using Module::_ComputeCorrectionCoefficients_TikhonovInverse;
  using Module::_FactorTikhonov;
  using Module::Module;
};

// The targets of Problem::Targets as the module takes them, one per filter.
std::vector<ColumnVector<double>> TargetFilters(const Problem& problem) {
  const Eigen::MatrixXd targets = problem.Targets();
  std::vector<ColumnVector<double>> filters;
  for (Eigen::Index p = 0; p < targets.cols(); ++p) {
    filters.emplace_back(kSamples, 0.0);
    Eigen::Map<Eigen::VectorXd>(filters.back().data, targets.rows()) = targets.col(p);
  }
  return filters;
}

Module::Parameters Unsmoothed() {
  Module::Parameters parameters;
  parameters.tikhonov_alpha = kAlpha;
  parameters.smoothing_fwhm_nm = 0.0;
  return parameters;
}

// The former route: per filter F v, then A formed and inverted, then the product.
void ModuleRoutePerFilterInverse(benchmark::State& state) {
  const Problem problem;
  const std::vector<ColumnVector<double>> filters = TargetFilters(problem);
  Routes module(Unsmoothed());
  module.Initialize(problem.data);
  Matrix<double> matrix(kBands, kBands, 0.0);
  for (auto _ : state) {
    for (unsigned long p = 0; p < kBands; ++p) {
      RowVector<double> row(matrix.rows[p], matrix.rows[p] + kBands, false);
      module._ComputeCorrectionCoefficients_TikhonovInverse(row, filters[p], problem.peaks[p]);
    }
    benchmark::DoNotOptimize(matrix.data);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBands));
}

// The route in use: one factorisation of A for the computation, then per filter F v and two
// triangular solves. The factorisation is formed anew in every iteration, as a computation would.
void ModuleRouteFactorisation(benchmark::State& state) {
  const Problem problem;
  const std::vector<ColumnVector<double>> filters = TargetFilters(problem);
  Routes module(Unsmoothed());
  module.Initialize(problem.data);
  Matrix<double> matrix(kBands, kBands, 0.0);
  for (auto _ : state) {
    module._FactorTikhonov();
    for (unsigned long p = 0; p < kBands; ++p) {
      RowVector<double> row(matrix.rows[p], matrix.rows[p] + kBands, false);
      module._ComputeCorrectionCoefficients_Tikhonov(row, filters[p], problem.peaks[p]);
    }
    benchmark::DoNotOptimize(matrix.data);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBands));

  // The times only compare if both routes give the same coefficients.
  Matrix<double> inverted(kBands, kBands, 0.0);
  for (unsigned long p = 0; p < kBands; ++p) {
    RowVector<double> row(inverted.rows[p], inverted.rows[p] + kBands, false);
    module._ComputeCorrectionCoefficients_TikhonovInverse(row, filters[p], problem.peaks[p]);
  }
  const Eigen::Map<const RowMajor> factored(matrix.data, kBands, kBands);
  const Eigen::Map<const RowMajor> expected(inverted.data, kBands, kBands);
  const double difference =
      ((factored - expected).rowwise().norm().array() / expected.rowwise().norm().array())
          .maxCoeff();
  state.counters["max_relative_difference"] = difference;
  if (!(difference <= 1e-10)) {
    state.SkipWithError("the two routes do not give the same coefficients");
  }
}

// A whole correction matrix as a computation makes it, right after Initialize: the targets from
// the peaks, the factorisation at the first filter, the solves.
void ModuleCorrectionMatrix(benchmark::State& state) {
  const Problem problem;
  Module module(Unsmoothed());
  Matrix<double> matrix;
  for (auto _ : state) {
    state.PauseTiming();
    module.Initialize(problem.data);
    state.ResumeTiming();
    module.ComputeCorrectionMatrix(matrix, problem.peaks);
    benchmark::DoNotOptimize(matrix.data);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBands));
}

// The Initialize that precedes it: the copy of F and F Ft.
void ModuleInitialize(benchmark::State& state) {
  const Problem problem;
  Module module(Unsmoothed());
  for (auto _ : state) {
    module.Initialize(problem.data);
    module.Deallocate();
  }
}

// The module's route in Eigen: a fresh inverse by Cholesky for each filter.
void EigenPerFilterInverse(benchmark::State& state) {
  const Problem problem;
  const Eigen::MatrixXd f = problem.Responses();
  const Eigen::MatrixXd gram = f * f.transpose();
  const Eigen::MatrixXd targets = problem.Targets();
  const Eigen::MatrixXd identity = Eigen::MatrixXd::Identity(kBands, kBands);
  Eigen::MatrixXd result(kBands, kBands);
  for (auto _ : state) {
    for (Eigen::Index p = 0; p < static_cast<Eigen::Index>(kBands); ++p) {
      const Eigen::MatrixXd inverse = (gram + kAlpha * kAlpha * identity).llt().solve(identity);
      result.row(p) = (inverse * (f * targets.col(p))).transpose();
    }
    benchmark::DoNotOptimize(result.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBands));
}

// One Cholesky factorisation for all filters, and all right-hand sides solved at once.
void EigenFactorisationReused(benchmark::State& state) {
  const Problem problem;
  const Eigen::MatrixXd f = problem.Responses();
  const Eigen::MatrixXd gram = f * f.transpose();
  const Eigen::MatrixXd targets = problem.Targets();
  Eigen::MatrixXd result(kBands, kBands);
  for (auto _ : state) {
    const Eigen::LLT<Eigen::MatrixXd> factor(gram + kAlpha * kAlpha *
                                                        Eigen::MatrixXd::Identity(kBands, kBands));
    result = factor.solve(f * targets).transpose();
    benchmark::DoNotOptimize(result.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBands));

  // The comparison only counts if both routes give the same matrix.
  Module module(Unsmoothed());
  module.Initialize(problem.data);
  Matrix<double> matrix;
  module.ComputeCorrectionMatrix(matrix, problem.peaks);
  const double difference =
      (Eigen::Map<const RowMajor>(matrix.data, kBands, kBands) - result).cwiseAbs().maxCoeff();
  if (!(difference <= 1e-9 * result.cwiseAbs().maxCoeff())) {
    state.SkipWithError("the reused factorisation does not give the module's matrix");
  }
}

BENCHMARK(ModuleRoutePerFilterInverse)->Unit(benchmark::kMillisecond);
BENCHMARK(ModuleRouteFactorisation)->Unit(benchmark::kMillisecond);
BENCHMARK(ModuleCorrectionMatrix)->Unit(benchmark::kMillisecond);
BENCHMARK(ModuleInitialize)->Unit(benchmark::kMillisecond);
BENCHMARK(EigenPerFilterInverse)->Unit(benchmark::kMillisecond);
BENCHMARK(EigenFactorisationReused)->Unit(benchmark::kMillisecond);

}  // namespace

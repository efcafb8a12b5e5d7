#include <kelto/hyperspectral/correction/pm_spectral_correction_computation.h>

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include <boost/thread/lock_types.hpp>

#include <kelto/common/logger.h>
#include <kelto/common/strings.h>
#include <kelto/common/three_parameters_function.h>
#include <kelto/hyperspectral/correction/spline_interpolation.h>

#include "../foundation/fail.h"
#include "../foundation/gaussian_kernel.h"

namespace kelto::hyperspectral {

namespace {

using common::Logger;
using common::ParameterizedObject;
using common::filesystem::Path;
using datatypes::ColumnVector;
using datatypes::Matrix;
using datatypes::RowVector;
using eAlgorithm = InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms;
using Lock = boost::unique_lock<boost::mutex>;
using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr unsigned long kCsvPrecision = 6;

std::unique_ptr<common::ThreeParametersFunction> MakeDistribution(
    Distributions::eDistribution shape) {
  switch (shape) {
    case Distributions::DB_GAUSSIAN:
      return std::make_unique<common::GaussDistribution>();
    case Distributions::DB_FABRY_PEROT:
      // One order only: the neighbouring orders are what the virtual filter is to remove.
      return std::make_unique<common::FabryPerotDistribution>(true);
    default:
      return std::make_unique<common::LorentzDistribution>();
  }
}

}  // namespace

// A = F Ft + alpha^2 I ready for solving, for the alpha^2 it was formed with: its Cholesky factor,
// or, where that factor is not to be trusted, its explicit inverse.
struct PM_SpectralCorrectionComputation::TikhonovFactor {
  double alpha_squared = 0.0;
  bool by_inverse = false;
  Eigen::LLT<Eigen::MatrixXd> cholesky;
  Matrix<double> inverse;
};

PM_SpectralCorrectionComputation::Parameters::~Parameters() = default;

PM_SpectralCorrectionComputation::InitializationData::~InitializationData() = default;

PM_SpectralCorrectionComputation::PM_SpectralCorrectionComputation(const Parameters& parameters)
    : ProcessingModule("unnamed") {
  _SetupParameterContainer();
  ProcessingModule::_SetParameters(parameters);
}

PM_SpectralCorrectionComputation::~PM_SpectralCorrectionComputation() = default;

void PM_SpectralCorrectionComputation::_SetupParameterContainer() {
  _SetContainerName("Spectral correction computation");
  _SetContainerDescription("Spectral correction computation parameters");
  static const Parameters my_parameters;

  std::unordered_map<eAlgorithm, std::string> algorithms;
  for (const eAlgorithm value : {InversionOptimizationAlgorithms::IOA_VARDELL,
                                 InversionOptimizationAlgorithms::IOA_TIKHONOV}) {
    algorithms.emplace(
        value, common::Strings::UnicodeToString(InversionOptimizationAlgorithms::ToString(value)));
  }
  _AddParameter<eAlgorithm, Parameters>(
      my_parameters, my_parameters.inversion_algorithm, "Optimization algorithm",
      "The optimization algorithm to use.", "Optimization", algorithms);
  _AddParameter<double, Parameters>(
      my_parameters, my_parameters.upper_variation, "Max. positive variation",
      "Maximum variation of coefficients above their initialization value.", "Optimization");
  _AddParameter<double, Parameters>(
      my_parameters, my_parameters.lower_variation, "Max. negative variation",
      "Maximum variation of coefficients below their initialization value.", "Optimization");
  _AddParameter<double, Parameters>(my_parameters, my_parameters.tikhonov_alpha, "Tikhonov alpha",
                                    "The alpha value to be used in the Tikhonov optimization.",
                                    "Optimization");
  _AddParameter<double, Parameters>(
      my_parameters, my_parameters.smoothing_fwhm_nm, "Smoothing FWHM (nm)",
      "FWHM of the function used to smoothen matrix coefficients.", "Optimization");
  _AddParameter<bool, Parameters>(
      my_parameters, my_parameters.debug_dump, "Enable debug dump",
      "Flags if intermediate results must be dumped to csv files (true) or not (false).", "Debug");
  _AddParameter<Path, Parameters>(my_parameters, my_parameters.debug_dump_dir, "Debug dump dir",
                                  "Output directory for the debug dump files.", "Debug");
}

// ---------------------------------------------------------------------------------------------
// Hooks

void PM_SpectralCorrectionComputation::_GetParameters(
    ParameterizedObject::Parameters& parameters) const {
  auto& own = _CastParameters<Parameters>(parameters);
  own.debug_dump = debug_dump_;
  own.debug_dump_dir = debug_dump_dir_;
  own.inversion_algorithm = inversion_algorithm_;
  own.upper_variation = upper_variation_;
  own.lower_variation = lower_variation_;
  own.tikhonov_alpha = tikhonov_alpha_;
  own.smoothing_fwhm_nm = smoothing_fwhm_nm_;
}

// Zero passes for the variations too, whatever the texts say. alpha needs no check: only its
// square takes effect.
void PM_SpectralCorrectionComputation::_CheckParameters(
    ParameterizedObject::Parameters const& parameters) const {
  const auto& own = _CastParameters<Parameters>(parameters);
  if (own.upper_variation < 0.0) {
    Fail<std::invalid_argument>("upper bound variation must be positive");
  }
  if (own.lower_variation < 0.0) {
    Fail<std::invalid_argument>("lower bound variation must be positive");
  }
  if (own.smoothing_fwhm_nm < 0.0) {
    Fail<std::invalid_argument>("matrix smoothing fwhm must be 0.0 or positive");
  }
}

void PM_SpectralCorrectionComputation::_SetConfigurationParameters(
    ParameterizedObject::Parameters const& parameters) {
  const auto& own = _CastParameters<Parameters>(parameters);
  debug_dump_ = own.debug_dump;
  debug_dump_dir_ = own.debug_dump_dir;
}

void PM_SpectralCorrectionComputation::_SetRuntimeParameters(
    ParameterizedObject::Parameters const& parameters) {
  const auto& own = _CastParameters<Parameters>(parameters);
  inversion_algorithm_ = own.inversion_algorithm;
  upper_variation_ = own.upper_variation;
  lower_variation_ = own.lower_variation;
  tikhonov_alpha_ = own.tikhonov_alpha;
  smoothing_fwhm_nm_ = own.smoothing_fwhm_nm;
}

void PM_SpectralCorrectionComputation::_Initialize(
    common::ProcessingModule::InitializationData const& data) {
  const auto& own = _CastInitializationData<InitializationData>(data);
  if (own.responses.column_count != own.wavelengths.size) {
    Fail<std::invalid_argument>("the responses have " + std::to_string(own.responses.column_count) +
                                " samples for " + std::to_string(own.wavelengths.size) +
                                " wavelengths");
  }
  energies_ = own.energies;
  wavelengths_ = own.wavelengths;
  optical_response_ = own.optical_response;
  tikhonov_factor_.reset();
  function_ = std::make_unique<CorrectionFunction>(own.responses);

  const Matrix<double>& responses = function_->GetResponseMatrix();
  response_maxima_.assign(responses.row_count, {0, 0.0});
  for (unsigned long r = 0; r < responses.row_count; ++r) {
    auto& maximum = response_maxima_[r];
    for (unsigned long c = 0; c < responses.column_count; ++c) {
      if (responses.rows[r][c] > maximum.second) {
        maximum = {c, responses.rows[r][c]};
      }
    }
  }

  if (!debug_dump_) {
    return;
  }
  common::filesystem::CreateDirectories(debug_dump_dir_);
  Matrix<double>::WriteCsv(responses, debug_dump_dir_ / "algorithm_input_response_matrix.csv",
                           kCsvPrecision);
  Matrix<double>::WriteCsv(
      function_->GetGramMatrix(),
      debug_dump_dir_ / "algorithm_input_response_matrix_response_matrix_transpose.csv",
      kCsvPrecision);
  Matrix<double>::WriteCsv(_TikhonovInverse(), debug_dump_dir_ / "tikhonov_divisor.csv",
                           kCsvPrecision);
}

void PM_SpectralCorrectionComputation::_Deallocate() {
  tikhonov_factor_.reset();
  function_.reset();
}

void PM_SpectralCorrectionComputation::_Reset() {}

// ---------------------------------------------------------------------------------------------
// Computations

void PM_SpectralCorrectionComputation::SetFilterRange(unsigned long first, unsigned long last) {
  const Lock lock(_GetMutex());
  if (last < first) {
    Fail<std::invalid_argument>("the filter range ends at " + std::to_string(last) +
                                " before its first sample " + std::to_string(first));
  }
  range_first_ = first;
  range_last_ = last;
}

void PM_SpectralCorrectionComputation::ComputeCorrectionCoefficients(
    RowVector<double>& coefficients, const ColumnVector<double>& virtual_filter,
    const PeakInfo& peak) {
  const Lock lock(_GetMutex());
  _ComputeCorrectionCoefficients(coefficients, virtual_filter, peak);
}

void PM_SpectralCorrectionComputation::ComputeCorrectionCoefficients(
    RowVector<double>& coefficients, const PeakInfo& peak) {
  const Lock lock(_GetMutex());
  _ComputeCorrectionCoefficients(coefficients, peak);
}

void PM_SpectralCorrectionComputation::ComputeCorrectionMatrix(Matrix<double>& matrix,
                                                               const std::vector<PeakInfo>& peaks) {
  const Lock lock(_GetMutex());
  _ComputeCorrectionMatrix(matrix, peaks);
  _FilterCorrectionMatrix(matrix, peaks);
}

// The place where inversion_algorithm would choose a solver; there is only the one.
void PM_SpectralCorrectionComputation::_ComputeCorrectionCoefficients(
    RowVector<double>& coefficients, const ColumnVector<double>& virtual_filter,
    const PeakInfo& peak) {
  _ComputeCorrectionCoefficients_Tikhonov(coefficients, virtual_filter, peak);
}

// The target is the ideal peak as the optics of the system would pass it, with unit sum. A filter
// that the optics block entirely has sum 0 and gives NaN coefficients.
void PM_SpectralCorrectionComputation::_ComputeCorrectionCoefficients(
    RowVector<double>& coefficients, const PeakInfo& peak) {
  if (optical_response_.size < wavelengths_.size) {
    Fail<std::invalid_argument>("the optical response has " +
                                std::to_string(optical_response_.size) + " values for " +
                                std::to_string(wavelengths_.size) + " wavelengths");
  }
  const auto distribution = MakeDistribution(peak.shape);
  const double p2 = distribution->FWHMToParam(peak.fwhm);
  const double p3 = distribution->ParamToAmplitude(p2);
  ColumnVector<double> filter(wavelengths_.size, 0.0);
  double sum = 0.0;
  for (unsigned long i = 0; i < filter.size; ++i) {
    filter[i] = (*distribution)(peak.wavelength, p2, p3, wavelengths_[i]) * optical_response_[i];
    sum += filter[i];
  }
  for (double& value : filter) {
    value /= sum;
  }
  _ComputeCorrectionCoefficients(coefficients, filter, peak);
}

// alpha is a runtime parameter and may have changed since the factorisation was formed; only its
// square enters A, so a change of sign alone keeps the factorisation.
void PM_SpectralCorrectionComputation::_ComputeCorrectionCoefficients_Tikhonov(
    RowVector<double>& coefficients, const ColumnVector<double>& virtual_filter, const PeakInfo&) {
  const ColumnVector<double>& projected = _ProjectFilter(virtual_filter);
  if (tikhonov_factor_ == nullptr ||
      tikhonov_factor_->alpha_squared != tikhonov_alpha_ * tikhonov_alpha_) {
    _FactorTikhonov();
  }
  const TikhonovFactor& factor = *tikhonov_factor_;
  // A row view of the right size keeps pointing into its matrix.
  coefficients._Allocate(projected.size, false);
  if (factor.by_inverse) {
    const ColumnVector<double> product = factor.inverse.Multiply(projected);
    std::copy(product.begin(), product.end(), coefficients.begin());
    return;
  }
  const auto n = static_cast<Eigen::Index>(projected.size);
  Eigen::Map<Eigen::VectorXd>(coefficients.data, n) =
      factor.cholesky.solve(Eigen::Map<const Eigen::VectorXd>(projected.data, n));
}

void PM_SpectralCorrectionComputation::_ComputeCorrectionCoefficients_TikhonovInverse(
    RowVector<double>& coefficients, const ColumnVector<double>& virtual_filter, const PeakInfo&) {
  const ColumnVector<double>& projected = _ProjectFilter(virtual_filter);
  const ColumnVector<double> product = _TikhonovInverse().Multiply(projected);
  coefficients._Allocate(projected.size, false);
  std::copy(product.begin(), product.end(), coefficients.begin());
}

// Eigen's LLT only fails on a pivot that is not positive; one that rounding has left barely above
// zero would pass and give coefficients of noise. Such an A goes to Matrix::Inverse, whose own
// Cholesky uses the same bound and which hands a singular A on as std::runtime_error.
void PM_SpectralCorrectionComputation::_FactorTikhonov() {
  const Matrix<double>& gram = _GetFunction().GetGramMatrix();
  const auto n = static_cast<Eigen::Index>(gram.row_count);
  auto factor = std::make_unique<TikhonovFactor>();
  factor->alpha_squared = tikhonov_alpha_ * tikhonov_alpha_;
  Eigen::MatrixXd a = Eigen::Map<const RowMajor>(gram.data, n, n);
  a.diagonal().array() += factor->alpha_squared;
  const double tolerance = n == 0
                               ? 0.0
                               : static_cast<double>(n) * std::numeric_limits<double>::epsilon() *
                                     a.cwiseAbs().maxCoeff();
  factor->cholesky.compute(a);
  if (factor->cholesky.info() != Eigen::Success ||
      !(factor->cholesky.matrixLLT().diagonal().array().square() > tolerance).all()) {
    factor->inverse = _TikhonovInverse();
    factor->by_inverse = true;
  }
  tikhonov_factor_ = std::move(factor);
}

void PM_SpectralCorrectionComputation::_ComputeCorrectionMatrix(
    Matrix<double>& matrix, const std::vector<PeakInfo>& peaks) {
  const unsigned long bands = _GetFunction().dimension;
  matrix = Matrix<double>(peaks.size(), bands, 0.0);
  for (unsigned long p = 0; p < peaks.size(); ++p) {
    RowVector<double> row(matrix.rows[p], matrix.rows[p] + bands, false);
    _ComputeCorrectionCoefficients(row, peaks[p]);
  }
}

void PM_SpectralCorrectionComputation::_ComputeCorrectionMatrix(
    Matrix<double>& matrix, const std::vector<ColumnVector<double>>& filters,
    const std::vector<PeakInfo>& peaks) {
  if (filters.size() < peaks.size()) {
    Fail<std::invalid_argument>(std::to_string(filters.size()) + " virtual filters for " +
                                std::to_string(peaks.size()) + " peaks");
  }
  const unsigned long bands = _GetFunction().dimension;
  matrix = Matrix<double>(peaks.size(), bands, 0.0);
  for (unsigned long p = 0; p < peaks.size(); ++p) {
    RowVector<double> row(matrix.rows[p], matrix.rows[p] + bands, false);
    _ComputeCorrectionCoefficients(row, filters[p], peaks[p]);
  }
}

// Neighbouring virtual filters should not jump: each row becomes a Gaussian-weighted mean of all
// rows, the weights by wavelength distance of the peaks (not by row distance), normalised to sum 1.
void PM_SpectralCorrectionComputation::_FilterCorrectionMatrix(
    Matrix<double>& matrix, const std::vector<PeakInfo>& peaks) const {
  if (smoothing_fwhm_nm_ == 0.0) {
    return;
  }
  std::vector<double> wavelengths;
  wavelengths.reserve(peaks.size());
  for (const PeakInfo& peak : peaks) {
    wavelengths.push_back(peak.wavelength);
  }
  const Matrix<double> kernel = GaussianKernel(wavelengths, smoothing_fwhm_nm_);
  matrix = kernel.Multiply(matrix);
}

const ColumnVector<double>& PM_SpectralCorrectionComputation::_ProjectFilter(
    const ColumnVector<double>& virtual_filter) {
  CorrectionFunction& function = _GetFunction();
  const bool range_set = range_last_ > range_first_;
  if (virtual_filter.size == wavelengths_.size) {
    function.SetVirtualFilter(virtual_filter);
  } else if (range_set && range_last_ <= virtual_filter.size &&
             range_last_ - range_first_ == wavelengths_.size) {
    // A view, read only: the function copies what it keeps.
    double* first = const_cast<double*>(virtual_filter.data) + range_first_;
    function.SetVirtualFilter(ColumnVector<double>(first, first + wavelengths_.size, false));
  } else {
    Fail<std::invalid_argument>("the virtual filter has " + std::to_string(virtual_filter.size) +
                                " samples for " + std::to_string(wavelengths_.size) +
                                " wavelengths" +
                                (range_set ? " and the range [" + std::to_string(range_first_) +
                                                 ", " + std::to_string(range_last_) + ")"
                                           : std::string()));
  }
  return function.GetProjectedFilter();
}

// G = alpha I, so Gt G only adds alpha^2 to the diagonal of F Ft.
Matrix<double> PM_SpectralCorrectionComputation::_TikhonovInverse() const {
  Matrix<double> divisor = _GetFunction().GetGramMatrix();
  for (unsigned long i = 0; i < divisor.row_count; ++i) {
    divisor.rows[i][i] += tikhonov_alpha_ * tikhonov_alpha_;
  }
  return divisor.Inverse();
}

CorrectionFunction& PM_SpectralCorrectionComputation::_GetFunction() const {
  if (function_ == nullptr) {
    Fail<std::logic_error>("the spectral correction computation is not initialized");
  }
  return *function_;
}

double PM_SpectralCorrectionComputation::_GetResponse(const ColumnVector<double>& response,
                                                      const double& wavelength) const {
  const unsigned long n = wavelengths_.size;
  if (n == 0 || response.size != n) {
    Fail<std::invalid_argument>("the response has " + std::to_string(response.size) +
                                " values for " + std::to_string(n) + " wavelengths");
  }
  const auto i = static_cast<unsigned long>(
      std::lower_bound(wavelengths_.begin(), wavelengths_.end(), wavelength) -
      wavelengths_.begin());
  if (i == 0) {
    return response[0];
  }
  if (i == n) {
    return response[n - 1];
  }
  std::vector<double> out;
  SplineInterpolation().Process(out, {wavelengths_[i - 1], wavelengths_[i]},
                                {response[i - 1], response[i]},
                                {wavelengths_[i - 1], wavelength, wavelengths_[i]},
                                SplineInterpolation::IT_NOT_A_KNOT_CUBIC, false, true);
  return out[1];
}

}  // namespace kelto::hyperspectral

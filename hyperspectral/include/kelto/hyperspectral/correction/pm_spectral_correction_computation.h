// The spectral inversion: for each wanted virtual filter, the coefficients with which the
// measured bands must be combined so that their responses come closest to that filter, by
// Tikhonov regularised least squares. PM_SensorResponseAnalysis owns one and drives it once per
// correction matrix; one row of coefficients per virtual filter gives the matrix.
// Thread-safety: the public computations hold the module's lock (see the class comment below).
//
// Driving one directly (the tests compile and run this example):
// ```cpp
// datatypes::RowVector<double> CoefficientsFor550nm(const datatypes::Matrix<double>& responses,
//                                                   const datatypes::ColumnVector<double>& nm) {
//   PM_SpectralCorrectionComputation inversion{PM_SpectralCorrectionComputation::Parameters()};
//   PM_SpectralCorrectionComputation::InitializationData data;
//   data.responses = responses;  // one row per band, one column per wavelength of nm
//   data.wavelengths = nm;
//   data.optical_response = datatypes::ColumnVector<double>(nm.size, 1.0);  // no optics in front
//   inversion.Initialize(data);
//   PM_SpectralCorrectionComputation::PeakInfo filter;  // a Gaussian at 550 nm, 10 nm wide
//   filter.wavelength = 550.0, filter.fwhm = 10.0, filter.shape = Distributions::DB_GAUSSIAN;
//   datatypes::RowVector<double> coefficients;  // one per band
//   inversion.ComputeCorrectionCoefficients(coefficients, filter);
//   return coefficients;
// }
// ```
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include <kelto/common/path.h>
#include <kelto/common/processing_module.h>
#include <kelto/datatypes/matrix.h>
#include <kelto/datatypes/vector.h>
#include <kelto/hyperspectral/correction/correction_function.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

// With F the responses (one row per band, one column per wavelength sample), v a virtual filter
// on the same samples and alpha the regularisation parameter, the coefficients are
//
//   x = (F Ft + alpha^2 I)^-1 F v,
//
// which minimise |Ft x - v|^2 + alpha^2 |x|^2. alpha enters squared, so its sign does not matter,
// and it is not scaled with F.
//
// A = F Ft + alpha^2 I is the same for every filter of a computation, so it is factored once, by
// Cholesky, when the first filter after Initialize is solved, and each filter costs two triangular
// solves. The factorisation remembers its alpha^2: a SetParameters that changes alpha between two
// filters has the next one factor A anew. When A is not clearly positive definite (alpha 0 with F
// of lower rank than it has rows, or values that are not finite), the Cholesky factor is not
// trusted and the explicit inverse of A by Matrix::Inverse takes its place, formed once as well:
// a singular A then fails with std::runtime_error at the first filter, and the coefficients of
// an A that Matrix::Inverse can still invert are A^-1 F v.
//
// A computation is SetParameters, Initialize with the responses, one ComputeCorrectionMatrix,
// Deallocate. The public computations hold the module's lock for their whole length, as the
// function they work on changes with each filter.
class KELTO_HYPERSPECTRAL_EXPORT PM_SpectralCorrectionComputation
    : public common::ProcessingModule {
 public:
  class KELTO_HYPERSPECTRAL_EXPORT Parameters : public common::ProcessingModule::Parameters {
   public:
    Parameters() = default;
    ~Parameters() override;

    // Configuration.
    bool debug_dump = false;
    common::filesystem::Path debug_dump_dir = "./debug_dump/";
    // Runtime. Both algorithms run the Tikhonov form: Vardell and the two variation bounds,
    // which only a bounded optimiser would read, are accepted, kept and given back.
    InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms inversion_algorithm =
        InversionOptimizationAlgorithms::IOA_TIKHONOV;
    double upper_variation = 0.8;
    double lower_variation = 0.8;
    double tikhonov_alpha = 0.01;
    // Width of the Gaussian with which ComputeCorrectionMatrix smooths across virtual filters;
    // 0.0 leaves the rows as the inversion gave them.
    double smoothing_fwhm_nm = 7.5;
  };

  class KELTO_HYPERSPECTRAL_EXPORT InitializationData
      : public common::ProcessingModule::InitializationData {
   public:
    InitializationData() = default;
    ~InitializationData() override;

    // F: one row per selected band, one column per wavelength sample.
    datatypes::Matrix<double> responses;
    // Of each sample, rising, nanometres.
    datatypes::ColumnVector<double> wavelengths;
    // One per selected band; kept, read by nothing here.
    datatypes::ColumnVector<double> energies;
    // Transmission of the optics, one value per wavelength or more; the filters built from peaks
    // are seen through it.
    datatypes::ColumnVector<double> optical_response;
  };

  // One wanted virtual filter. Only wavelength, fwhm and shape are read here; band selection and
  // post-processing carry the rest along.
  struct PeakInfo {
    double wavelength = 0.0;  // centre, nm
    double fwhm = 0.0;        // nm
    unsigned long row = 0;    // place of the band among the selected bands
    Distributions::eDistribution shape = Distributions::DB_NONE;
    double contribution = 0.0;
    double fit_error = 0.0;
    unsigned long band = 0;  // band number
  };

  // Orders by wavelength, rising.
  struct PeakWavelengthComparator {
    bool operator()(const PeakInfo& left, const PeakInfo& right) const {
      return left.wavelength < right.wavelength;
    }
  };

  explicit PM_SpectralCorrectionComputation(const Parameters& parameters);
  ~PM_SpectralCorrectionComputation() override;

  // The coefficients, one per band, for a ready-made filter with one value per wavelength, or on a
  // longer grid whose samples [first, last) of SetFilterRange lie on the wavelengths
  // (std::invalid_argument otherwise). A row view of the right size stays a view and receives the
  // values; anything else gets an owned array of the band count.
  void ComputeCorrectionCoefficients(datatypes::RowVector<double>& coefficients,
                                     const datatypes::ColumnVector<double>& virtual_filter,
                                     const PeakInfo& peak);
  // The same for the filter of peak's shape, centre and width as the optics pass it, normalised
  // to unit sum. Shape 1 is a Gaussian, 3 a single-order Fabry-Perot peak, any other a Lorentzian.
  void ComputeCorrectionCoefficients(datatypes::RowVector<double>& coefficients,
                                     const PeakInfo& peak);
  // One row per peak, then smoothed across rows by a Gaussian of smoothing_fwhm_nm in the
  // peaks' wavelengths.
  void ComputeCorrectionMatrix(datatypes::Matrix<double>& matrix,
                               const std::vector<PeakInfo>& peaks);

  // The samples [first, last) of a ready-made filter that are the wavelengths' own, for filters
  // given on a longer grid; they must be as many as the wavelengths when used. (0, 0), the
  // default, takes every filter to be on the wavelengths. std::invalid_argument if last < first.
  void SetFilterRange(unsigned long first, unsigned long last);

  // Per band of the responses: the sample index and value of its highest response, the earliest
  // on a tie, (0, 0.0) for a band without a positive value.
  const std::vector<std::pair<unsigned long, double>>& GetResponseMaxima() const {
    return response_maxima_;
  }

 protected:
  void _GetParameters(common::ParameterizedObject::Parameters& parameters) const override;
  void _CheckParameters(common::ParameterizedObject::Parameters const& parameters) const override;
  void _SetConfigurationParameters(
      common::ParameterizedObject::Parameters const& parameters) override;
  void _SetRuntimeParameters(common::ParameterizedObject::Parameters const& parameters) override;
  void _Initialize(common::ProcessingModule::InitializationData const& data) override;
  void _Deallocate() override;
  void _Reset() override;

  // The response at a wavelength, between samples by a cubic through the two neighbouring ones,
  // the end values beyond the grid. response has one value per wavelength.
  double _GetResponse(const datatypes::ColumnVector<double>& response,
                      const double& wavelength) const;

  // The route in use: x from F v by the factorisation of A, which _FactorTikhonov forms if there
  // is none for the present alpha.
  void _ComputeCorrectionCoefficients_Tikhonov(
      datatypes::RowVector<double>& coefficients,
      const datatypes::ColumnVector<double>& virtual_filter, const PeakInfo& peak);
  // The former route: A formed and inverted for this filter alone, x = A^-1 F v. The module does
  // not call it; it stays so that tests and bench_inversion can hold it against the route in use.
  void _ComputeCorrectionCoefficients_TikhonovInverse(
      datatypes::RowVector<double>& coefficients,
      const datatypes::ColumnVector<double>& virtual_filter, const PeakInfo& peak);
  // One row per peak for ready-made filters, filters[p] for peaks[p], without smoothing. No
  // public operation leads here. std::invalid_argument when there are fewer filters than peaks.
  void _ComputeCorrectionMatrix(datatypes::Matrix<double>& matrix,
                                const std::vector<datatypes::ColumnVector<double>>& filters,
                                const std::vector<PeakInfo>& peaks);
  // Factors A for the present alpha, replacing what there was. std::runtime_error when A is
  // singular; see the class comment.
  void _FactorTikhonov();

 private:
  struct TikhonovFactor;

  void _SetupParameterContainer();

  void _ComputeCorrectionCoefficients(datatypes::RowVector<double>& coefficients,
                                      const datatypes::ColumnVector<double>& virtual_filter,
                                      const PeakInfo& peak);
  void _ComputeCorrectionCoefficients(datatypes::RowVector<double>& coefficients,
                                      const PeakInfo& peak);
  void _ComputeCorrectionMatrix(datatypes::Matrix<double>& matrix,
                                const std::vector<PeakInfo>& peaks);
  void _FilterCorrectionMatrix(datatypes::Matrix<double>& matrix,
                               const std::vector<PeakInfo>& peaks) const;

  // F v of the present function for virtual_filter, which must have one value per wavelength, or
  // hold them at the filter range.
  const datatypes::ColumnVector<double>& _ProjectFilter(
      const datatypes::ColumnVector<double>& virtual_filter);
  // (F Ft + alpha^2 I)^-1 of the present function.
  datatypes::Matrix<double> _TikhonovInverse() const;
  // The function of the present computation; std::logic_error outside Initialize and Deallocate.
  CorrectionFunction& _GetFunction() const;

  bool debug_dump_ = false;
  common::filesystem::Path debug_dump_dir_;
  InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms inversion_algorithm_ =
      InversionOptimizationAlgorithms::IOA_UNKNOWN;
  double upper_variation_ = 0.0;
  double lower_variation_ = 0.0;
  double tikhonov_alpha_ = 0.0;
  double smoothing_fwhm_nm_ = 0.0;
  // The filter range; both 0 when none is set.
  unsigned long range_first_ = 0;
  unsigned long range_last_ = 0;

  // Only between Initialize and Deallocate.
  std::unique_ptr<CorrectionFunction> function_;
  datatypes::ColumnVector<double> wavelengths_;
  datatypes::ColumnVector<double> energies_;
  datatypes::ColumnVector<double> optical_response_;
  std::vector<std::pair<unsigned long, double>> response_maxima_;
  // Null until the first filter after Initialize is solved.
  std::unique_ptr<TikhonovFactor> tikhonov_factor_;
};

}  // namespace kelto::hyperspectral

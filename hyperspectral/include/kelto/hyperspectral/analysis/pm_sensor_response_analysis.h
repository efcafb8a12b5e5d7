// The main computation of the library: from the measured responses of a sensor's bands to fitted
// peaks (ComputePeaks) and to a finished correction matrix (ComputeCorrectionMatrix). It owns one
// PM_PeakDetection and one PM_SpectralCorrectionComputation and drives both; callers set its
// parameters (usually from a parameter document, see utilities::SetCorrectionMatrixParameters),
// Initialize it with a calibration's FilterInfo and run any number of computations.
//
// A correction matrix from a calibration's measured responses (the tests compile and run this
// example):
// ```cpp
// CorrectionMatrix ComputeMatrix(const SensorCalibration& calibration, const std::string& name) {
//   PM_SensorResponseAnalysis analysis{PM_SensorResponseAnalysis::Parameters()};
//   utilities::SetCorrectionMatrixParameters(analysis, calibration.GetTypeName());
//   PM_SensorResponseAnalysis::InitializationData data;
//   data.filter_info = calibration.filter_info;  // the grid and every band's response
//   analysis.Initialize(data);
//   CorrectionMatrix matrix;
//   matrix.name = name;
//   analysis.ComputeCorrectionMatrix(matrix, calibration.system_info.optical_components);
//   return matrix;  // store it in calibration.system_info.spectral_correction_info
// }
// ```
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <kelto/common/path.h>
#include <kelto/common/processing_module.h>
#include <kelto/datatypes/matrix.h>
#include <kelto/datatypes/vector.h>
#include <kelto/hyperspectral/analysis/pm_peak_detection.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/filter_info.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/correction/pm_spectral_correction_computation.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

// Bands are numbered over all zones, zones and their bands in the order of the FilterInfo given
// to Initialize: a band's number is its row in every matrix and its index in every per-band
// vector (the mask, the peaks) of a computation.
//
// The pipeline of ComputeCorrectionMatrix: each band's response times the transmission of the
// optical components (the system response, optionally cut to the range they transmit), up to
// maximum_peak_count fitted peaks per band, the selection of bands with enough energy whose first
// peak explains enough of the band with a small fit error (each such peak becomes a virtual
// filter), one Tikhonov inversion per virtual filter, then the merging of close rows, resampling,
// row normalisation (reflectance) and the spreading of the rows over all physical bands.
//
// Thread-safety: the computations hold the module's lock for their whole length; the children
// hold their own inside it. Parameters are set by the frame's SetParameters, which forwards a
// PM_PeakDetection::Parameters or PM_SpectralCorrectionComputation::Parameters to that child.
class KELTO_HYPERSPECTRAL_EXPORT PM_SensorResponseAnalysis : public common::ProcessingModule {
 public:
  class KELTO_HYPERSPECTRAL_EXPORT Parameters : public common::ProcessingModule::Parameters {
   public:
    Parameters() = default;
    ~Parameters() override;

    // Configuration. The children's debug flag and directory follow these, each child in a
    // sub-directory of its own ("peak_detection", "spectral_correction_computation").
    bool debug_dump = false;
    std::string debug_dump_dir = "./debug_dump/";
    // Runtime.
    CorrectionMatrixTypes::eCorrectionMatrixType correction_matrix_type =
        CorrectionMatrixTypes::CT_REFLECTANCE;
    // Cut the analysis to the range that the optical components transmit.
    bool limit_range = false;
    // Registered, but acts on nothing: the energy limit of band selection is fixed (a third of
    // the mean band energy). Neither set nor given back by the module.
    double minimum_energy_ratio = 0.15;
    double minimum_peak_contribution = 0.25;
    double maximum_peak_fit_error = 0.025;
    // Kept and given back; no computation reads them.
    double minimum_contribution_ratio = 5.0;
    bool range_extension = true;
    // Rows of the finished matrix whose wavelengths lie closer than this are merged; 0 merges
    // nothing, a negative value is refused by the computation.
    double minimum_band_distance = 0.0;
    // Remove, from overlapping runs of bands (such as higher orders), the bands that a wider run
    // covers.
    bool peak_clustering = false;
    // Of two selected bands whose first peaks lie closer than this, the weaker contribution goes.
    double duplicate_peak_distance_nm = 0.0;
    // Resample the finished rows to resampling_wavelengths (rising), which travels only in this
    // structure, not in the parameter container.
    bool spectral_resampling = false;
    std::vector<double> resampling_wavelengths;
  };

  class KELTO_HYPERSPECTRAL_EXPORT InitializationData
      : public common::ProcessingModule::InitializationData {
   public:
    InitializationData() = default;
    ~InitializationData() override;

    // The sample grid and the zones with their bands' responses and selection.
    FilterInfo filter_info;
  };

  // One run of bands whose first peaks rise evenly: band number to first-peak wavelength.
  struct PeakCluster {
    std::map<unsigned long, double> peaks;
  };

  // Called once per band from inside ComputePeaks and both ComputeCorrectionMatrix overloads,
  // with the module's lock held: (bands done, bands in all). It must not call into the module.
  using ProgressCallback = std::function<void(unsigned long done, unsigned long total)>;

  explicit PM_SensorResponseAnalysis(const Parameters& parameters);
  ~PM_SensorResponseAnalysis() override;

  // Fills every band's peaks of filter from the responses given at Initialize through the optical
  // components, greatest contribution first with order 1, 2, ...; each zone's bands come out
  // sorted by pattern position. The rows of the responses stand in the order of Initialize, so
  // that filter must have had its bands in pattern order then (or be that same object sorted):
  // only the band count is checked (std::invalid_argument).
  void ComputePeaks(FilterInfo& filter, const std::deque<OpticalComponent>& components);

  // Computes matrix from the responses given at Initialize, components being the optics of the
  // system; on entry matrix holds its name and its own "optical_components", whose transmission is
  // folded in as well. Every other field is overwritten. The first form uses the bands' own
  // selection, the second mask (one entry per band, std::invalid_argument otherwise). Without a
  // usable band the matrix has no virtual bands, and type and minimum_band_energy keep their
  // values.
  void ComputeCorrectionMatrix(CorrectionMatrix& matrix,
                               const std::deque<OpticalComponent>& components);
  void ComputeCorrectionMatrix(CorrectionMatrix& matrix,
                               const std::deque<OpticalComponent>& components,
                               const std::vector<bool>& mask);

  // The same stages without peak detection and band selection: every band is used, and the
  // virtual filters are the given peaks (their row and band fields are ignored). What a matrix
  // made from known peaks (such as a simulator's truth) is compared with.
  void ComputeCorrectionMatrixForPeaks(
      CorrectionMatrix& matrix, const std::deque<OpticalComponent>& components,
      const std::list<PM_SpectralCorrectionComputation::PeakInfo>& virtual_peaks);

  void SetProgressCallback(ProgressCallback callback);

 protected:
  void _GetParameters(common::ParameterizedObject::Parameters& parameters) const override;
  void _CheckParameters(common::ParameterizedObject::Parameters const& parameters) const override;
  void _SetConfigurationParameters(
      common::ParameterizedObject::Parameters const& parameters) override;
  void _SetRuntimeParameters(common::ParameterizedObject::Parameters const& parameters) override;
  void _Initialize(common::ProcessingModule::InitializationData const& data) override;
  void _Deallocate() override;
  void _Reset() override;

  // The stages, open to tests through a subclass.

  // The product of the transmissions of first and second on the grid, and the range in which
  // the analysis is meaningful: the intersection of the components' ranges (the union of the
  // zones' ranges without components).
  void _ComputeOpticalComponentsResponse(datatypes::ColumnVector<double>& response,
                                         double& range_start, double& range_end,
                                         const std::deque<OpticalComponent>& first,
                                         const std::deque<OpticalComponent>& second) const;
  // Every band's response times optical; only the columns within the range with limit_range.
  // wavelengths becomes that stretch of the module's grid.
  void _ComputeSystemResponse(datatypes::Matrix<double>& system,
                              datatypes::ColumnVector<double>& wavelengths,
                              const datatypes::ColumnVector<double>& optical, double range_start,
                              double range_end) const;
  void _SelectVirtualFilterPeaks(std::vector<std::list<PM_PeakDetection::Peak>>& peaks,
                                 std::vector<bool>& selected) const;
  void _BandSelection(datatypes::Matrix<double>& selected_responses,
                      datatypes::ColumnVector<double>& selected_energies,
                      std::deque<unsigned long>& selected_bands,
                      std::list<PM_SpectralCorrectionComputation::PeakInfo>& virtual_peaks,
                      std::vector<std::list<PM_PeakDetection::Peak>>& peaks,
                      const std::vector<bool>& mask, datatypes::Matrix<double>& system);
  void _RemoveDuplicatePeaks(std::vector<bool>& selected,
                             std::vector<std::list<PM_PeakDetection::Peak>>& peaks,
                             datatypes::ColumnVector<double>& energies) const;
  void _MatrixCoefficientsSetBandsMinimumDistance(
      std::list<PM_SpectralCorrectionComputation::PeakInfo>& new_peaks,
      datatypes::Matrix<double>& new_matrix,
      const std::list<PM_SpectralCorrectionComputation::PeakInfo>& peaks,
      const datatypes::Matrix<double>& matrix, const double& minimum_distance);

  PM_PeakDetection& _GetPeakDetection() { return *peak_detection_; }
  PM_SpectralCorrectionComputation& _GetCorrectionComputation() { return *correction_computation_; }

 private:
  void _SetupParameterContainer();
  // The child whose parameter structure this is, or nullptr for the module's own.
  common::ProcessingModule* _ChildFor(
      const common::ParameterizedObject::Parameters& parameters) const;
  void _ComputePeaks(FilterInfo& filter, const std::deque<OpticalComponent>& components);
  void _ComputeCorrectionMatrix(CorrectionMatrix& matrix,
                                const std::deque<OpticalComponent>& components,
                                const std::vector<bool>& mask);
  // From the selected responses and the virtual filters to matrix's virtual bands: inversion,
  // merging, resampling, normalisation, spreading; also sets type and minimum_band_energy.
  void _Invert(CorrectionMatrix& matrix, const datatypes::Matrix<double>& selected_responses,
               const datatypes::ColumnVector<double>& energies,
               const std::deque<unsigned long>& selected_bands,
               std::list<PM_SpectralCorrectionComputation::PeakInfo> virtual_peaks,
               const datatypes::ColumnVector<double>& wavelengths,
               const datatypes::ColumnVector<double>& optical);
  void _Resample(std::list<PM_SpectralCorrectionComputation::PeakInfo>& peaks,
                 datatypes::Matrix<double>& matrix) const;
  void _ReportProgress(unsigned long done) const;

  bool debug_dump_ = false;
  common::filesystem::Path debug_dump_dir_;
  CorrectionMatrixTypes::eCorrectionMatrixType correction_matrix_type_ =
      CorrectionMatrixTypes::CT_UNKNOWN;
  bool limit_range_ = false;
  double minimum_peak_contribution_ = 0.0;
  double maximum_peak_fit_error_ = 0.0;
  double minimum_contribution_ratio_ = 0.0;
  bool range_extension_ = false;
  double minimum_band_distance_ = 0.0;
  bool peak_clustering_ = false;
  double duplicate_peak_distance_nm_ = 0.0;
  bool spectral_resampling_ = false;
  std::vector<double> resampling_wavelengths_;

  FilterInfo filter_info_;
  datatypes::Matrix<double> responses_;  // one row per band, one column per sample
  datatypes::ColumnVector<double> wavelengths_;
  std::vector<bool> mask_;
  ProgressCallback progress_;

  // Declared in this order so that the correction computation is destroyed first.
  std::unique_ptr<PM_PeakDetection> peak_detection_;
  std::unique_ptr<PM_SpectralCorrectionComputation> correction_computation_;
};

}  // namespace kelto::hyperspectral

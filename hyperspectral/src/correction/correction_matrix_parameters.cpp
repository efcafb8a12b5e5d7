#include <kelto/hyperspectral/correction/correction_matrix_parameters.h>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = CorrectionMatrixParameters::ParsingResult;
using Event = ParsingResult::Event;

template <typename Record>
void CorrectionMatrixParameters::_Read(Record& record, ParsingResult& result, _xmlNode* const& node,
                                       std::string const& tag, const char* sentence,
                                       void (Record::*reader)(ParsingResult&, _xmlNode* const&)) {
  const std::string found = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, found);
  if (found != tag) {
    result << Event(ParsingResult::Error, Event::SanityCheck, sentence);
  }
  // No version after 0 exists yet, so none is too new; an absent one is as bad as a negative one.
  common::ReadByVersion(record, result, node, found, _GetVersion(node), {reader},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kUnsupportedError);
  record.RunSanityChecks(result);
}

// ---------------------------------------------------------------------------------------------
// The document

void CorrectionMatrixParameters::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  _Read(*this, result, node, "correction_matrix_parameters",
        "The XML node is not of type CorrectionMatrixParameters",
        &CorrectionMatrixParameters::_ReadXML_v0);
}

void CorrectionMatrixParameters::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "correction_matrix_parameters");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  const auto read = [&](XMLSerializableInterface& record, const char* name) {
    _xmlNode* child = nullptr;
    if (_GetElement(child, node, name, 0)) {
      record.ReadXML(result, child);
    } else {
      result << Event(ParsingResult::Error, Event::MissingElement, name);
    }
  };
  read(peak_detection, "peak_detection");
  read(peak_shape_fitting, "peak_shape_fitting");
  read(band_selection, "band_selection");
  read(inversion, "inversion");
  read(post_processing, "post_processing");
}

void CorrectionMatrixParameters::_WriteXML_v0(_xmlNode*& node) const {
  _SetElement(node, "peak_detection", peak_detection);
  _SetElement(node, "peak_shape_fitting", peak_shape_fitting);
  _SetElement(node, "band_selection", band_selection);
  _SetElement(node, "inversion", inversion);
  _SetElement(node, "post_processing", post_processing);
}

void CorrectionMatrixParameters::RunSanityChecks(ParsingResult& /*result*/) const {}

// ---------------------------------------------------------------------------------------------
// Generic

void CorrectionMatrixParameters::Generic::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  _Read(*this, result, node, "generic",
        "The XML node is not of type CorrectionMatrixParameters::Generic", &Generic::_ReadXML_v0);
}

void CorrectionMatrixParameters::Generic::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "generic");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::Generic::_ReadXML_v0(ParsingResult& result,
                                                      _xmlNode* const& node) {
  std::string type_text;
  _ReadValue(result, type_text, node, "correction_matrix_type", std::string());
  correction_matrix_type = CorrectionMatrixTypes::FromString(type_text);
}

void CorrectionMatrixParameters::Generic::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "correction_matrix_type",
            CorrectionMatrixTypes::ToString(correction_matrix_type));
}

void CorrectionMatrixParameters::Generic::RunSanityChecks(ParsingResult& result) const {
  _Check(result, CorrectionMatrixTypes::eCorrectionMatrixType::CT_UNKNOWN != correction_matrix_type,
         "CorrectionMatrixTypes::eCorrectionMatrixType::CT_UNKNOWN != correction_matrix_type");
}

// ---------------------------------------------------------------------------------------------
// PeakDetection

void CorrectionMatrixParameters::PeakDetection::ReadXML(ParsingResult& result,
                                                        _xmlNode* const& node) {
  _Read(*this, result, node, "peak_detection",
        "The XML node is not of type CorrectionMatrixParameters::PeakDetection",
        &PeakDetection::_ReadXML_v0);
}

void CorrectionMatrixParameters::PeakDetection::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "peak_detection");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::PeakDetection::_ReadXML_v0(ParsingResult& result,
                                                            _xmlNode* const& node) {
  _ReadValue(result, distance_min_nm, node, "distance_min_nm", 0.0);
  _ReadValue(result, peaks_nr_max, node, "peaks_nr_max", 0);
}

void CorrectionMatrixParameters::PeakDetection::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "distance_min_nm", distance_min_nm);
  _SetValue(node, "peaks_nr_max", peaks_nr_max);
}

void CorrectionMatrixParameters::PeakDetection::RunSanityChecks(ParsingResult& result) const {
  _Check(result, distance_min_nm != 0.0, "distance_min_nm != 0.0");
  _Check(result, peaks_nr_max != 0, "peaks_nr_max != 0");
}

// ---------------------------------------------------------------------------------------------
// PeakShapeFitting

void CorrectionMatrixParameters::PeakShapeFitting::ReadXML(ParsingResult& result,
                                                           _xmlNode* const& node) {
  _Read(*this, result, node, "peak_shape_fitting",
        "The XML node is not of type CorrectionMatrixParameters::PeakShapeFitting",
        &PeakShapeFitting::_ReadXML_v0);
}

void CorrectionMatrixParameters::PeakShapeFitting::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "peak_shape_fitting");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::PeakShapeFitting::_ReadXML_v0(ParsingResult& result,
                                                               _xmlNode* const& node) {
  // An unknown or missing shape becomes DB_UNKNOWN; nothing downstream of the file rejects it.
  std::string shape_text;
  _ReadValue(result, shape_text, node, "shape", std::string());
  shape = Distributions::FromString(shape_text);
  _ReadValue(result, fwhm_min, node, "fwhm_min", 0.0);
  _ReadValue(result, fwhm_max, node, "fwhm_max", 0.0);
  _ReadValue(result, qe_factor_min, node, "qe_factor_min", 0.0);
  _ReadValue(result, qe_factor_max, node, "qe_factor_max", 0.0);
  _ReadValue(result, wavelength_shift_max_nm, node, "wavelength_shift_max_nm", 0.0);
  _ReadValue(result, detection_window_nm, node, "detection_window_nm", 0.0);
  _ReadValue(result, shape_interpolation_factor, node, "shape_interpolation_factor", 0);
  _ReadValue(result, nr_coarse_iterations, node, "nr_coarse_iterations", 0);
  _ReadValue(result, nr_fine_iterations, node, "nr_fine_iterations", 0);
}

void CorrectionMatrixParameters::PeakShapeFitting::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "shape", Distributions::ToString(shape));
  _SetValue(node, "fwhm_min", fwhm_min);
  _SetValue(node, "fwhm_max", fwhm_max);
  _SetValue(node, "qe_factor_min", qe_factor_min);
  _SetValue(node, "qe_factor_max", qe_factor_max);
  _SetValue(node, "wavelength_shift_max_nm", wavelength_shift_max_nm);
  _SetValue(node, "detection_window_nm", detection_window_nm);
  _SetValue(node, "shape_interpolation_factor", shape_interpolation_factor);
  _SetValue(node, "nr_coarse_iterations", nr_coarse_iterations);
  _SetValue(node, "nr_fine_iterations", nr_fine_iterations);
}

void CorrectionMatrixParameters::PeakShapeFitting::RunSanityChecks(
    ParsingResult& /*result*/) const {}

// ---------------------------------------------------------------------------------------------
// BandSelection

void CorrectionMatrixParameters::BandSelection::ReadXML(ParsingResult& result,
                                                        _xmlNode* const& node) {
  _Read(*this, result, node, "band_selection",
        "The XML node is not of type CorrectionMatrixParameters::BandSelection",
        &BandSelection::_ReadXML_v0);
}

void CorrectionMatrixParameters::BandSelection::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "band_selection");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::BandSelection::_ReadXML_v0(ParsingResult& result,
                                                            _xmlNode* const& node) {
  _ReadValue(result, bands_minimum_distance, node, "bands_minimum_distance", 0.0);
  _ReadValue(result, peak_clustering, node, "peak_clustering", false);
  _ReadValue(result, peak_fit_error_max, node, "peak_fit_error_max", 0.0);
  _ReadValue(result, minimum_contribution, node, "minimum_contribution", 0.0);
}

void CorrectionMatrixParameters::BandSelection::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "bands_minimum_distance", bands_minimum_distance);
  _SetValue(node, "peak_clustering", peak_clustering);
  _SetValue(node, "peak_fit_error_max", peak_fit_error_max);
  _SetValue(node, "minimum_contribution", minimum_contribution);
}

void CorrectionMatrixParameters::BandSelection::RunSanityChecks(ParsingResult& /*result*/) const {}

// ---------------------------------------------------------------------------------------------
// Inversion

void CorrectionMatrixParameters::Inversion::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  _Read(*this, result, node, "inversion",
        "The XML node is not of type CorrectionMatrixParameters::Inversion",
        &Inversion::_ReadXML_v0);
}

void CorrectionMatrixParameters::Inversion::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "inversion");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::Inversion::_ReadXML_v0(ParsingResult& result,
                                                        _xmlNode* const& node) {
  std::wstring algorithm_text;
  _ReadValue(result, algorithm_text, node, "algorithm", std::wstring());
  algorithm = InversionOptimizationAlgorithms::FromString(algorithm_text);
  _ReadValue(result, tikhonov_alpha, node, "tikhonov_alpha", 0.0);
}

void CorrectionMatrixParameters::Inversion::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "algorithm", InversionOptimizationAlgorithms::ToString(algorithm));
  _SetValue(node, "tikhonov_alpha", tikhonov_alpha);
}

void CorrectionMatrixParameters::Inversion::RunSanityChecks(ParsingResult& /*result*/) const {}

// ---------------------------------------------------------------------------------------------
// PostProcessing

void CorrectionMatrixParameters::PostProcessing::ReadXML(ParsingResult& result,
                                                         _xmlNode* const& node) {
  _Read(*this, result, node, "post_processing",
        "The XML node is not of type CorrectionMatrixParameters::PostProcessing",
        &PostProcessing::_ReadXML_v0);
}

void CorrectionMatrixParameters::PostProcessing::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "post_processing");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void CorrectionMatrixParameters::PostProcessing::_ReadXML_v0(ParsingResult& result,
                                                             _xmlNode* const& node) {
  _ReadValue(result, bands_minimum_distance, node, "bands_minimum_distance", 0.0);
  _ReadValue(result, spectral_resampling, node, "spectral_resampling", false);
  _ReadValue(result, resampling_wavelengths, node, "resampling_wavelengths", 0.0);
  _ReadValue(result, smoothing_gaussian_filter_width, node, "smoothing_gaussian_filter_width", 0.0);
}

void CorrectionMatrixParameters::PostProcessing::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "bands_minimum_distance", bands_minimum_distance);
  _SetValue(node, "spectral_resampling", spectral_resampling);
  _SetValue(node, "resampling_wavelengths", resampling_wavelengths, VSM_ATTRIBUTES, 6);
  _SetValue(node, "smoothing_gaussian_filter_width", smoothing_gaussian_filter_width);
}

void CorrectionMatrixParameters::PostProcessing::RunSanityChecks(ParsingResult& /*result*/) const {}

}  // namespace kelto::hyperspectral

// The parameter documents and the main computation: fitted peaks and correction matrices from a
// calibration's measured band responses. The package's Python layer picks the parameters and
// checks the calibration; these functions run the module as the command-line tool does.
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/correction/correction_matrix_parameters.h>
#include <kelto/hyperspectral/correction/utilities.h>

#include "bindings.h"

namespace kelto::python {

namespace {

using common::XMLSerializableInterface;
using hyperspectral::CorrectionMatrix;
using hyperspectral::CorrectionMatrixParameters;
using hyperspectral::CorrectionMatrixTypes;
using hyperspectral::FilterZone;
using hyperspectral::PM_SensorResponseAnalysis;
using hyperspectral::SensorCalibration;
using ParsingResult = XMLSerializableInterface::ParsingResult;

template <typename C>
py::list Check(const C& record) {
  ParsingResult result;
  record.RunSanityChecks(result);
  return ToTuples(result.events());
}

template <typename C, typename Parent>
py::class_<C, XMLSerializableInterface> BindPart(Parent& parent, const char* name,
                                                 const char* doc) {
  py::class_<C, XMLSerializableInterface> part(parent, name, doc);
  part.def(py::init<>()).def("check", &Check<C>).def("__copy__", [](const C& self) {
    return C(self);
  });
  part.def(
      "__deepcopy__", [](const C& self, const py::object&) { return C(self); }, py::arg("memo"));
  return part;
}

std::unique_ptr<PM_SensorResponseAnalysis> MakeAnalysis(
    const CorrectionMatrixParameters& parameters) {
  auto analysis =
      std::make_unique<PM_SensorResponseAnalysis>(PM_SensorResponseAnalysis::Parameters());
  hyperspectral::utilities::SetCorrectionMatrixParameters(*analysis, parameters);
  return analysis;
}

void ComputePeaks(SensorCalibration& calibration, const CorrectionMatrixParameters& parameters) {
  const LogFlush flush;
  py::gil_scoped_release unlocked;
  auto analysis = MakeAnalysis(parameters);
  // The module numbers the bands in the order it is given, and hands the peaks back into bands
  // sorted by pattern position: both sides must be in that order.
  PM_SensorResponseAnalysis::InitializationData data;
  data.filter_info = calibration.filter_info;
  for (FilterZone& zone : data.filter_info.filter_zones) {
    FilterZone::SortOnPatternPositionIndex(zone.bands);
  }
  analysis->Initialize(data);
  analysis->ComputePeaks(calibration.filter_info, calibration.system_info.optical_components);
}

CorrectionMatrix ComputeCorrectionMatrix(const SensorCalibration& calibration,
                                         const std::string& name,
                                         const CorrectionMatrixParameters& parameters,
                                         const py::object& type, bool all_bands) {
  const LogFlush flush;
  CorrectionMatrix matrix;
  matrix.name = name;
  const bool irradiance =
      !type.is_none() && type.cast<CorrectionMatrixTypes::eCorrectionMatrixType>() ==
                             CorrectionMatrixTypes::CT_IRRADIANCE;
  py::gil_scoped_release unlocked;
  auto analysis = MakeAnalysis(parameters);
  if (irradiance) {
    PM_SensorResponseAnalysis::Parameters own;
    analysis->GetParameters(own);
    own.correction_matrix_type = CorrectionMatrixTypes::CT_IRRADIANCE;
    analysis->SetParameters(own);
  }
  PM_SensorResponseAnalysis::InitializationData data;
  data.filter_info = calibration.filter_info;
  analysis->Initialize(data);
  if (all_bands) {
    analysis->ComputeCorrectionMatrix(
        matrix, calibration.system_info.optical_components,
        std::vector<bool>(calibration.filter_info.GetTotalNrBands(), true));
  } else {
    analysis->ComputeCorrectionMatrix(matrix, calibration.system_info.optical_components);
  }
  return matrix;
}

}  // namespace

void BindParameters(py::module_& m) {
  using P = CorrectionMatrixParameters;
  py::class_<P, XMLSerializableInterface> parameters(
      m, "CorrectionMatrixParameters", py::dynamic_attr(),
      "The tuning of a correction matrix computation: peak detection, peak shape fitting, band "
      "selection, inversion and post-processing.");
  parameters.def(py::init<>())
      .def("__copy__", [](const P& self) { return P(self); })
      .def(
          "__deepcopy__", [](const P& self, const py::object&) { return P(self); },
          py::arg("memo"));

  BindPart<P::PeakDetection>(parameters, "PeakDetection", "Where peaks are looked for.")
      .def_readwrite("distance_min_nm", &P::PeakDetection::distance_min_nm)
      .def_readwrite("peaks_nr_max", &P::PeakDetection::peaks_nr_max);
  BindPart<P::PeakShapeFitting>(parameters, "PeakShapeFitting", "How peaks are fitted.")
      .def_readwrite("shape", &P::PeakShapeFitting::shape)
      .def_readwrite("fwhm_min", &P::PeakShapeFitting::fwhm_min)
      .def_readwrite("fwhm_max", &P::PeakShapeFitting::fwhm_max)
      .def_readwrite("qe_factor_min", &P::PeakShapeFitting::qe_factor_min)
      .def_readwrite("qe_factor_max", &P::PeakShapeFitting::qe_factor_max)
      .def_readwrite("wavelength_shift_max_nm", &P::PeakShapeFitting::wavelength_shift_max_nm)
      .def_readwrite("detection_window_nm", &P::PeakShapeFitting::detection_window_nm)
      .def_readwrite("shape_interpolation_factor", &P::PeakShapeFitting::shape_interpolation_factor)
      .def_readwrite("nr_coarse_iterations", &P::PeakShapeFitting::nr_coarse_iterations)
      .def_readwrite("nr_fine_iterations", &P::PeakShapeFitting::nr_fine_iterations);
  BindPart<P::BandSelection>(parameters, "BandSelection", "Which bands become virtual filters.")
      .def_readwrite("bands_minimum_distance", &P::BandSelection::bands_minimum_distance)
      .def_readwrite("peak_clustering", &P::BandSelection::peak_clustering)
      .def_readwrite("peak_fit_error_max", &P::BandSelection::peak_fit_error_max)
      .def_readwrite("minimum_contribution", &P::BandSelection::minimum_contribution);
  BindPart<P::Inversion>(parameters, "Inversion", "The regularised inversion.")
      .def_readwrite("algorithm", &P::Inversion::algorithm)
      .def_readwrite("tikhonov_alpha", &P::Inversion::tikhonov_alpha);
  auto post = BindPart<P::PostProcessing>(parameters, "PostProcessing",
                                          "Merging, resampling and smoothing of the rows.");
  post.def_readwrite("bands_minimum_distance", &P::PostProcessing::bands_minimum_distance)
      .def_readwrite("spectral_resampling", &P::PostProcessing::spectral_resampling)
      .def_property(
          "resampling_wavelengths",
          [](const P::PostProcessing& p) { return ToArray(p.resampling_wavelengths); },
          [](P::PostProcessing& p, const py::object& values) {
            p.resampling_wavelengths = FromArray(values, "resampling_wavelengths");
          })
      .def_readwrite("smoothing_gaussian_filter_width",
                     &P::PostProcessing::smoothing_gaussian_filter_width);

  parameters.def_readwrite("peak_detection", &P::peak_detection)
      .def_readwrite("peak_shape_fitting", &P::peak_shape_fitting)
      .def_readwrite("band_selection", &P::band_selection)
      .def_readwrite("inversion", &P::inversion)
      .def_readwrite("post_processing", &P::post_processing);

  m.def("parameter_keys", &hyperspectral::utilities::GetCorrectionMatrixParameterKeys,
        "The keys of the parameter documents embedded in the library.");
  m.def(
      "load_parameters",
      [](const std::string& key) {
        const LogFlush flush;
        P loaded;
        hyperspectral::utilities::LoadCorrectionMatrixParameters(loaded, key);
        return loaded;
      },
      py::arg("key"),
      "The embedded parameter document of a key such as \"VKR9-MZT4x4-470_620\" (see "
      "parameter_keys); ValueError for an unknown key.");
}

void BindAnalysis(py::module_& m) {
  m.def("_compute_peaks", &ComputePeaks, py::arg("calibration"), py::arg("parameters"));
  m.def("_compute_correction_matrix", &ComputeCorrectionMatrix, py::arg("calibration"),
        py::arg("name"), py::arg("parameters"), py::arg("type"), py::arg("all_bands"));
}

}  // namespace kelto::python

#include <kelto/hyperspectral/correction/utilities.h>

#include <cstdint>
#include <exception>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <kelto/hyperspectral/resources/parameter_resources.h>

namespace kelto::hyperspectral::utilities {

namespace {

struct Resource {
  const char* key;
  const unsigned char* data;
  const std::uint32_t& size;
};

// The embedded documents by key, in the order in which they are listed.
const Resource kResources[] = {
    {"TEM480-QL100-1100_1700", TEM480_QL100_1100_1700_xml_data, TEM480_QL100_1100_1700_xml_size},
    {"TEM480-MZT3x3-1100_1700", TEM480_MZT3x3_1100_1700_xml_data, TEM480_MZT3x3_1100_1700_xml_size},
    {"TEM480-MZT4x4-1100_1700", TEM480_MZT4x4_1100_1700_xml_data, TEM480_MZT4x4_1100_1700_xml_size},
    {"VKR9-QL100-600_1000", VKR9_QL100_600_1000_xml_data, VKR9_QL100_600_1000_xml_size},
    {"VKR9-QL150-470_900", VKR9_QL150_470_900_xml_data, VKR9_QL150_470_900_xml_size},
    {"VKR9-MZT4x4-470_620", VKR9_MZT4x4_470_620_xml_data, VKR9_MZT4x4_470_620_xml_size},
    {"VKR9-MZT4x4-460_600", VKR9_MZT4X4_460_600_xml_data, VKR9_MZT4X4_460_600_xml_size},
    {"VKR9-MZT4x4-595_860", VKR9_MZT4x4_595_860_xml_data, VKR9_MZT4x4_595_860_xml_size},
    {"VKR9-MZT5x5-665_975", VKR9_MZT5X5_665_975_xml_data, VKR9_MZT5X5_665_975_xml_size},
    {"VKR9-MZT5x5-600_1000", VKR9_MZT5x5_600_1000_xml_data, VKR9_MZT5x5_600_1000_xml_size},
    {"VKR9-TZT32-600_1000", VKR9_TZT32_600_1000_xml_data, VKR9_TZT32_600_1000_xml_size},
};

}  // namespace

void LoadCorrectionMatrixParameters(CorrectionMatrixParameters& parameters,
                                    const std::string& sensor_type) {
  // Built on each call: a load happens once per matrix computation, and a table without static
  // state needs no thought about initialisation order or threads.
  std::map<std::string, std::pair<const unsigned char*, std::uint32_t>> documents;
  for (const Resource& resource : kResources) {
    documents.emplace(resource.key, std::make_pair(resource.data, resource.size));
  }
  const auto found = documents.find(sensor_type);
  if (found == documents.end()) {
    throw std::invalid_argument("Sensor type not found in resources map: " + sensor_type);
  }
  const auto& [data, size] = found->second;
  const std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
  // Strict: the documents are fixed, so any event above Ok is a fault of the library itself.
  CorrectionMatrixParameters::ParsingResult result(false, true, false, true, true);
  bool read = false;
  try {
    parameters.ReadStream(result, stream);
    read = result.state() == CorrectionMatrixParameters::ParsingResult::Ok;
  } catch (const std::exception&) {
  }
  if (!read) {
    throw std::runtime_error("An error occurred while reading the correction matrix parameters.");
  }
}

std::vector<std::string> GetCorrectionMatrixParameterKeys() {
  std::vector<std::string> keys;
  for (const Resource& resource : kResources) {
    keys.emplace_back(resource.key);
  }
  return keys;
}

namespace {

// The documents' counts are signed; a negative one becomes a huge unsigned count, as it always has.
unsigned long SignExtended(int value) {
  return static_cast<unsigned long>(static_cast<long>(value));
}

}  // namespace

void SetCorrectionMatrixParameters(PM_SensorResponseAnalysis& module,
                                   const CorrectionMatrixParameters& parameters) {
  const auto& detection_document = parameters.peak_detection;
  const auto& fitting = parameters.peak_shape_fitting;
  const auto& selection = parameters.band_selection;
  const auto& post_processing = parameters.post_processing;

  PM_PeakDetection::Parameters detection;
  module.GetParameters(detection);
  detection.minimum_peak_qe = 0.0;
  detection.minimum_peak_distance_nm = detection_document.distance_min_nm;
  detection.maximum_peak_count = SignExtended(detection_document.peaks_nr_max);
  detection.maximum_asymmetry_factor = 2.0;
  module.SetParameters(detection);

  PM_SensorResponseAnalysis::Parameters analysis;
  module.GetParameters(analysis);
  analysis.peak_clustering = selection.peak_clustering;
  analysis.duplicate_peak_distance_nm = selection.bands_minimum_distance;
  analysis.minimum_peak_contribution = selection.minimum_contribution;
  analysis.maximum_peak_fit_error = selection.peak_fit_error_max;
  module.SetParameters(analysis);

  module.GetParameters(detection);
  detection.distribution = fitting.shape;
  detection.filter_interpolation_factor = SignExtended(fitting.shape_interpolation_factor);
  detection.detection_window_nm = fitting.detection_window_nm;
  detection.minimum_fwhm_nm = fitting.fwhm_min;
  detection.maximum_fwhm_nm = fitting.fwhm_max;
  detection.minimum_amplitude_factor = fitting.qe_factor_min;
  detection.maximum_amplitude_factor = fitting.qe_factor_max;
  detection.maximum_wavelength_shift_nm = fitting.wavelength_shift_max_nm;
  detection.coarse_iterations = SignExtended(fitting.nr_coarse_iterations);
  detection.fine_iterations = SignExtended(fitting.nr_fine_iterations);
  module.SetParameters(detection);

  PM_SpectralCorrectionComputation::Parameters inversion;
  module.GetParameters(inversion);
  inversion.inversion_algorithm = parameters.inversion.algorithm;
  inversion.upper_variation = 1.0;
  inversion.lower_variation = 1.0;
  inversion.tikhonov_alpha = parameters.inversion.tikhonov_alpha;
  inversion.smoothing_fwhm_nm = post_processing.smoothing_gaussian_filter_width;
  module.SetParameters(inversion);

  module.GetParameters(analysis);
  analysis.spectral_resampling = post_processing.spectral_resampling;
  analysis.resampling_wavelengths = post_processing.resampling_wavelengths;
  analysis.minimum_band_distance = post_processing.bands_minimum_distance;
  module.SetParameters(analysis);

  // Once more, as the smoothing width has always been set; harmless.
  module.GetParameters(inversion);
  inversion.smoothing_fwhm_nm = post_processing.smoothing_gaussian_filter_width;
  module.SetParameters(inversion);
}

void SetCorrectionMatrixParameters(PM_SensorResponseAnalysis& module,
                                   const std::string& sensor_type) {
  CorrectionMatrixParameters parameters;
  LoadCorrectionMatrixParameters(parameters, sensor_type);
  SetCorrectionMatrixParameters(module, parameters);
}

}  // namespace kelto::hyperspectral::utilities

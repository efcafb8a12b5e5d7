#include <kelto/hyperspectral/correction/utilities.h>
#include <kelto/hyperspectral/resources/parameter_resources.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

// Each document by its exported data objects, with what sets it apart; the rest all share.
struct Document {
  std::string key;
  const unsigned char* data;
  std::uint32_t size;
  double distance_min_nm, fwhm_min, fwhm_max;
  double duplicate_distance;  // band_selection.bands_minimum_distance
  double peak_fit_error_max, minimum_contribution;
  double final_band_distance;  // post_processing.bands_minimum_distance
  bool spectral_resampling;
  std::size_t wavelength_count;
};

const std::vector<Document> kDocuments = {
    {"TEM480-QL100-1100_1700", TEM480_QL100_1100_1700_xml_data, TEM480_QL100_1100_1700_xml_size,
     0.5, 3, 17, 0.0, 0.03, 0.3, 0.0, false, 0},
    {"TEM480-MZT3x3-1100_1700", TEM480_MZT3x3_1100_1700_xml_data, TEM480_MZT3x3_1100_1700_xml_size,
     30, 2.5, 25, 2.0, 0.03, 0.15, 0.0, false, 0},
    {"TEM480-MZT4x4-1100_1700", TEM480_MZT4x4_1100_1700_xml_data, TEM480_MZT4x4_1100_1700_xml_size,
     30, 2.5, 25, 2.0, 0.03, 0.15, 0.0, false, 0},
    {"VKR9-QL100-600_1000", VKR9_QL100_600_1000_xml_data, VKR9_QL100_600_1000_xml_size, 30, 3.0,
     17.0, 0.0, 0.03, 0.3, 0.0, false, 0},
    {"VKR9-QL150-470_900", VKR9_QL150_470_900_xml_data, VKR9_QL150_470_900_xml_size, 30, 1, 11, 0.0,
     0.035, 0.3, 0.5, true, 150},
    {"VKR9-MZT4x4-470_620", VKR9_MZT4x4_470_620_xml_data, VKR9_MZT4x4_470_620_xml_size, 30, 2.5, 25,
     2.0, 0.03, 0.15, 0.0, false, 0},
    {"VKR9-MZT4x4-460_600", VKR9_MZT4X4_460_600_xml_data, VKR9_MZT4X4_460_600_xml_size, 30, 2.5, 25,
     2.0, 0.03, 0.15, 0.0, false, 0},
    {"VKR9-MZT4x4-595_860", VKR9_MZT4x4_595_860_xml_data, VKR9_MZT4x4_595_860_xml_size, 30, 2.5, 25,
     2.0, 0.03, 0.15, 0.0, false, 0},
    {"VKR9-MZT5x5-665_975", VKR9_MZT5X5_665_975_xml_data, VKR9_MZT5X5_665_975_xml_size, 30, 2.5, 25,
     2.0, 0.03, 0.15, 0.0, false, 0},
    {"VKR9-MZT5x5-600_1000", VKR9_MZT5x5_600_1000_xml_data, VKR9_MZT5x5_600_1000_xml_size, 30, 2.5,
     25, 2.0, 0.03, 0.15, 0.0, false, 0},
    {"VKR9-TZT32-600_1000", VKR9_TZT32_600_1000_xml_data, VKR9_TZT32_600_1000_xml_size, 30, 2.5, 25,
     0.0, 0.03, 0.15, 0.0, false, 0},
};

// A record far from every document, so that a load that leaves a field alone shows.
CorrectionMatrixParameters Scrambled() {
  CorrectionMatrixParameters p;
  p.peak_detection.peaks_nr_max = -7;
  p.peak_shape_fitting.shape = Distributions::DB_NONE;
  p.peak_shape_fitting.qe_factor_min = p.peak_shape_fitting.qe_factor_max = -1.0;
  p.peak_shape_fitting.wavelength_shift_max_nm = p.peak_shape_fitting.detection_window_nm = -1.0;
  p.peak_shape_fitting.shape_interpolation_factor = -1;
  p.peak_shape_fitting.nr_coarse_iterations = p.peak_shape_fitting.nr_fine_iterations = -1;
  p.band_selection.bands_minimum_distance = -1.0;
  p.inversion.algorithm = InversionOptimizationAlgorithms::IOA_VARDELL;
  p.inversion.tikhonov_alpha = -1.0;
  p.post_processing.bands_minimum_distance = -1.0;
  p.post_processing.spectral_resampling = true;
  p.post_processing.resampling_wavelengths = {1.0, 2.0};
  return p;
}

// The message of the std::invalid_argument that loading `key` throws, or a failure.
std::string NotFoundMessage(const std::string& key) {
  CorrectionMatrixParameters p;
  try {
    utilities::LoadCorrectionMatrixParameters(p, key);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  ADD_FAILURE() << "\"" << key << "\" loaded";
  return {};
}

// Every key loads; the values each lands on are checked where the modules take them, below.
TEST(ParameterResourcesLoading, EveryKeyLoadsInTheOrderOfTheKeys) {
  std::vector<std::string> keys;
  for (const Document& d : kDocuments) {
    keys.push_back(d.key);
    CorrectionMatrixParameters p = Scrambled();
    EXPECT_NO_THROW(utilities::LoadCorrectionMatrixParameters(p, d.key));
  }
  EXPECT_EQ(utilities::GetCorrectionMatrixParameterKeys(), keys);
}

TEST(ParameterResourcesLoading, KeysMatchExactlyAndUnknownOnesAreNamed) {
  // The data objects of these keys are spelt with a capital X; the keys are not.
  CorrectionMatrixParameters p;
  EXPECT_NO_THROW(utilities::LoadCorrectionMatrixParameters(p, "VKR9-MZT4x4-460_600"));
  EXPECT_NO_THROW(utilities::LoadCorrectionMatrixParameters(p, "VKR9-MZT5x5-665_975"));
  for (const std::string key :
       {"VKR9-MZT4X4-460_600", "VKR9-MZT5X5-665_975", "vkr9-ql150-470_900", " VKR9-QL150-470_900",
        "VKR9_QL150_470_900", "VKR9-QL150", "VKR9-QL150-470_900.xml"}) {
    EXPECT_EQ(NotFoundMessage(key), "Sensor type not found in resources map: " + key);
  }
  EXPECT_EQ(NotFoundMessage(""), "Sensor type not found in resources map: ");

  CorrectionMatrixParameters untouched = Scrambled();
  EXPECT_THROW(utilities::LoadCorrectionMatrixParameters(untouched, "VKR9"), std::invalid_argument);
  EXPECT_EQ(untouched.WriteString(), Scrambled().WriteString());
}

TEST(ParameterResourcesLoading, QL150ResamplesTo150EvenlySpacedWavelengths) {
  CorrectionMatrixParameters p;
  utilities::LoadCorrectionMatrixParameters(p, "VKR9-QL150-470_900");
  const std::vector<double>& wavelengths = p.post_processing.resampling_wavelengths;
  ASSERT_EQ(wavelengths.size(), 150u);
  EXPECT_EQ(wavelengths.front(), 470.0);
  EXPECT_EQ(wavelengths[1], 472.885906040268);
  EXPECT_EQ(wavelengths.back(), 900.0);
  // Fifteen significant digits of 470 + k * 430 / 149, as the document holds them.
  for (std::size_t k = 0; k < wavelengths.size(); ++k) {
    EXPECT_NEAR(wavelengths[k], 470.0 + static_cast<double>(k) * 430.0 / 149.0, 1e-12 * 900.0) << k;
  }
}

TEST(ParameterResourcesData, ObjectsHoldTheResourceFilesByteForByte) {
  for (const Document& d : kDocuments) {
    std::ifstream file(KELTO_TEST_DATA_DIR "/../../resources/" + d.key + ".xml", std::ios::binary);
    ASSERT_TRUE(file.good()) << d.key;
    const std::string source{std::istreambuf_iterator<char>(file),
                             std::istreambuf_iterator<char>()};
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(d.data), d.size), source) << d.key;
  }
}

// The six steps land every value of the document in the right module and keep the rest.
TEST(ParameterResourcesSetting, EveryDocumentReachesTheThreeModules) {
  for (const Document& d : kDocuments) {
    PM_SensorResponseAnalysis module{PM_SensorResponseAnalysis::Parameters()};
    PM_SensorResponseAnalysis::Parameters before;
    module.GetParameters(before);
    before.debug_dump_dir = "kept/";
    before.limit_range = true;
    module.SetParameters(before);
    PM_PeakDetection::Parameters untouched;
    module.GetParameters(untouched);
    untouched.minimum_peak_qe = 0.5;
    untouched.maximum_asymmetry_factor = 9.0;
    module.SetParameters(untouched);

    utilities::SetCorrectionMatrixParameters(module, d.key);

    PM_PeakDetection::Parameters detection;
    module.GetParameters(detection);
    EXPECT_EQ(detection.minimum_peak_qe, 0.0) << d.key;
    EXPECT_EQ(detection.maximum_asymmetry_factor, 2.0) << d.key;
    EXPECT_EQ(detection.maximum_peak_count, 2u) << d.key;
    EXPECT_EQ(detection.minimum_peak_distance_nm, d.distance_min_nm) << d.key;
    EXPECT_EQ(detection.minimum_fwhm_nm, d.fwhm_min) << d.key;
    EXPECT_EQ(detection.maximum_fwhm_nm, d.fwhm_max) << d.key;
    EXPECT_EQ(detection.distribution, Distributions::DB_FABRY_PEROT) << d.key;
    EXPECT_EQ(detection.filter_interpolation_factor, 5u) << d.key;
    EXPECT_EQ(detection.detection_window_nm, 17.0) << d.key;
    EXPECT_EQ(detection.minimum_amplitude_factor, 0.95) << d.key;
    EXPECT_EQ(detection.maximum_amplitude_factor, 1.05) << d.key;
    EXPECT_EQ(detection.maximum_wavelength_shift_nm, 3.0) << d.key;
    EXPECT_EQ(detection.coarse_iterations, 12u) << d.key;
    EXPECT_EQ(detection.fine_iterations, 12u) << d.key;
    EXPECT_EQ(detection.debug_dump_dir.ToString(), "kept/peak_detection") << d.key;

    PM_SensorResponseAnalysis::Parameters analysis;
    module.GetParameters(analysis);
    EXPECT_TRUE(analysis.peak_clustering) << d.key;
    EXPECT_EQ(analysis.duplicate_peak_distance_nm, d.duplicate_distance) << d.key;
    EXPECT_EQ(analysis.minimum_peak_contribution, d.minimum_contribution) << d.key;
    EXPECT_EQ(analysis.maximum_peak_fit_error, d.peak_fit_error_max) << d.key;
    EXPECT_EQ(analysis.minimum_band_distance, d.final_band_distance) << d.key;
    EXPECT_EQ(analysis.spectral_resampling, d.spectral_resampling) << d.key;
    EXPECT_EQ(analysis.resampling_wavelengths.size(), d.wavelength_count) << d.key;
    EXPECT_TRUE(analysis.limit_range) << d.key;
    EXPECT_EQ(analysis.debug_dump_dir, "kept/") << d.key;

    PM_SpectralCorrectionComputation::Parameters inversion;
    module.GetParameters(inversion);
    EXPECT_EQ(inversion.inversion_algorithm, InversionOptimizationAlgorithms::IOA_TIKHONOV);
    EXPECT_EQ(inversion.upper_variation, 1.0) << d.key;
    EXPECT_EQ(inversion.lower_variation, 1.0) << d.key;
    EXPECT_EQ(inversion.tikhonov_alpha, 0.01) << d.key;
    EXPECT_EQ(inversion.smoothing_fwhm_nm, 0.0) << d.key;
  }
}

TEST(ParameterResourcesSetting, RefusedValuesStopTheStepsThatFollow) {
  PM_SensorResponseAnalysis module{PM_SensorResponseAnalysis::Parameters()};
  EXPECT_THROW(utilities::SetCorrectionMatrixParameters(module, "VKR9-MZT4X4-460_600"),
               std::invalid_argument);
  CorrectionMatrixParameters parameters;
  utilities::LoadCorrectionMatrixParameters(parameters, "VKR9-MZT4x4-470_620");
  parameters.peak_shape_fitting.shape_interpolation_factor = 0;  // refused by peak detection
  parameters.peak_detection.peaks_nr_max = -1;                   // a huge count, accepted
  EXPECT_THROW(utilities::SetCorrectionMatrixParameters(module, parameters), std::invalid_argument);
  PM_PeakDetection::Parameters detection;
  module.GetParameters(detection);
  EXPECT_EQ(detection.maximum_peak_count, static_cast<unsigned long>(-1));  // step 1 stayed
  EXPECT_EQ(detection.filter_interpolation_factor, 5u);
  PM_SensorResponseAnalysis::Parameters analysis;
  module.GetParameters(analysis);
  EXPECT_EQ(analysis.minimum_peak_contribution, 0.15);  // step 2 stayed
}

}  // namespace
}  // namespace kelto::hyperspectral

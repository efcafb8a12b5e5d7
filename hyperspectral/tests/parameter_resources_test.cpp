#include <kelto/hyperspectral/correction/utilities.h>
#include <kelto/hyperspectral/resources/parameter_resources.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "event_list.h"

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

TEST(ParameterResourcesLoading, EveryKeyLoadsTheValuesOfItsDocument) {
  std::vector<std::string> keys;
  for (const Document& d : kDocuments) {
    SCOPED_TRACE(d.key);
    keys.push_back(d.key);
    CorrectionMatrixParameters p = Scrambled();
    ASSERT_NO_THROW(utilities::LoadCorrectionMatrixParameters(p, d.key));
    EXPECT_EQ(p.peak_detection.distance_min_nm, d.distance_min_nm);
    EXPECT_EQ(p.peak_detection.peaks_nr_max, 2);
    EXPECT_EQ(p.peak_shape_fitting.shape, Distributions::DB_FABRY_PEROT);
    EXPECT_EQ(p.peak_shape_fitting.fwhm_min, d.fwhm_min);
    EXPECT_EQ(p.peak_shape_fitting.fwhm_max, d.fwhm_max);
    EXPECT_EQ(p.peak_shape_fitting.qe_factor_min, 0.95);
    EXPECT_EQ(p.peak_shape_fitting.qe_factor_max, 1.05);
    EXPECT_EQ(p.peak_shape_fitting.wavelength_shift_max_nm, 3.0);
    EXPECT_EQ(p.peak_shape_fitting.detection_window_nm, 17.0);
    EXPECT_EQ(p.peak_shape_fitting.shape_interpolation_factor, 5);
    EXPECT_EQ(p.peak_shape_fitting.nr_coarse_iterations, 12);
    EXPECT_EQ(p.peak_shape_fitting.nr_fine_iterations, 12);
    EXPECT_EQ(p.band_selection.bands_minimum_distance, d.duplicate_distance);
    EXPECT_TRUE(p.band_selection.peak_clustering);
    EXPECT_EQ(p.band_selection.peak_fit_error_max, d.peak_fit_error_max);
    EXPECT_EQ(p.band_selection.minimum_contribution, d.minimum_contribution);
    EXPECT_EQ(p.inversion.algorithm, InversionOptimizationAlgorithms::IOA_TIKHONOV);
    EXPECT_EQ(p.inversion.tikhonov_alpha, 0.01);
    EXPECT_EQ(p.post_processing.bands_minimum_distance, d.final_band_distance);
    EXPECT_EQ(p.post_processing.spectral_resampling, d.spectral_resampling);
    EXPECT_EQ(p.post_processing.resampling_wavelengths.size(), d.wavelength_count);
    // Not the 7.5 of a record made in code: the documents switch the smoothing off.
    EXPECT_EQ(p.post_processing.smoothing_gaussian_filter_width, 0.0);
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
  // Fifteen significant digits of 470 + k * 430 / 149.
  for (std::size_t k = 0; k < wavelengths.size(); ++k) {
    EXPECT_NEAR(wavelengths[k], 470.0 + static_cast<double>(k) * 430.0 / 149.0, 1e-12 * 900.0) << k;
  }
  ExpectInOrder(std::string(reinterpret_cast<const char*>(VKR9_QL150_470_900_xml_data),
                            VKR9_QL150_470_900_xml_size),
                {R"(<resampling_wavelengths nr_elements="150" )",
                 R"(values="470 472.885906040268 475.771812080537 478.657718120805 )",
                 R"( 897.114093959731 900"/>)"});
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

}  // namespace
}  // namespace kelto::hyperspectral

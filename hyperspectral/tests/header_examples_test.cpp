// Runs the usage examples that the public headers show, as the build extracted them from the
// headers' comments (header_examples.h), on the sample calibrations and on inputs whose results
// are known in closed form.
#include <header_examples.h>

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "data_accessor_images.h"

namespace kelto::hyperspectral {
namespace {

const std::string kCalibrations = std::string(KELTO_TEST_DATA_DIR) + "/calibrations/";

SensorCalibration Sample(const std::string& type) {
  SensorCalibration calibration;
  SensorCalibration::ParsingResult result(false, true);
  calibration.ReadFile(result, kCalibrations + type + ".xml");
  return calibration;
}

TEST(HeaderExamples, ReadingACalibrationGivesItsTypeOrNothingForABrokenFile) {
  for (const std::string type : {"VKR9-MZT4x4-470_620", "VKR9-QL150-470_900",
                                 "TEM480-MZT4x4-1100_1700", "VKR9-TZT32-600_1000"}) {
    EXPECT_EQ(TypeOfCalibration(kCalibrations + type + ".xml"), type);
  }
  EXPECT_EQ(TypeOfCalibration(kCalibrations + "absent.xml"), "");
}

TEST(HeaderExamples, CorrectedSpectrumIsTheMatrixTimesTheScaledSamples) {
  const SensorCalibration calibration = Sample("VKR9-MZT4x4-470_620");
  const CorrectionMatrix& matrix =
      calibration.system_info.spectral_correction_info.GetMatrix("true_peaks");
  auto cube = testing::MakeCube(16, /*normalised=*/false);
  const std::vector<double> spectrum = Corrected(*cube, {3, 2}, calibration, "true_peaks");
  ASSERT_EQ(spectrum.size(), matrix.virtual_bands.size());
  for (std::size_t r = 0; r < spectrum.size(); ++r) {
    double expected = 0.0;
    for (unsigned long b = 0; b < 16; ++b) {
      expected +=
          matrix.virtual_bands[r].coefficients[b] * testing::RawSample(3, 2, b) / testing::kScale;
    }
    EXPECT_NEAR(spectrum[r], expected, 1e-9 * std::abs(expected)) << "virtual band " << r;
  }
}

TEST(HeaderExamples, InversionOfBandsThatEachSeeOneWavelengthIsTheFilterItself) {
  // F = I: x = (I + alpha^2 I)^-1 v, the Gaussian filter of unit sum shrunk by 1 + alpha^2.
  const unsigned long n = 101;
  datatypes::Matrix<double> responses(n, n, 0.0);
  datatypes::ColumnVector<double> nm(n, 0.0);
  std::vector<double> gaussian(n);
  double sum = 0.0;
  for (unsigned long i = 0; i < n; ++i) {
    responses.rows[i][i] = 1.0;
    nm[i] = 500.0 + static_cast<double>(i);
    gaussian[i] = std::exp(-4.0 * std::log(2.0) * std::pow((nm[i] - 550.0) / 10.0, 2));
    sum += gaussian[i];
  }
  const datatypes::RowVector<double> coefficients = CoefficientsFor550nm(responses, nm);
  ASSERT_EQ(coefficients.size, n);
  const double alpha = PM_SpectralCorrectionComputation::Parameters().tikhonov_alpha;
  for (unsigned long i = 0; i < n; ++i) {
    EXPECT_NEAR(coefficients[i], gaussian[i] / sum / (1.0 + alpha * alpha), 1e-12) << nm[i];
  }
}

TEST(HeaderExamples, MatrixFromMeasuredResponsesFindsTheSimulatedPeaks) {
  const SensorCalibration calibration = Sample("VKR9-MZT4x4-470_620");
  const CorrectionMatrix truth =
      calibration.system_info.spectral_correction_info.GetMatrix("true_peaks");
  const CorrectionMatrix matrix = ComputeMatrix(calibration, "measured");
  EXPECT_EQ(matrix.name, "measured");
  ASSERT_EQ(matrix.virtual_bands.size(), truth.virtual_bands.size());
  for (std::size_t r = 0; r < matrix.virtual_bands.size(); ++r) {
    ASSERT_EQ(matrix.virtual_bands[r].coefficients.size(), 16u);
    EXPECT_NEAR(matrix.virtual_bands[r].wavelength_nm, truth.virtual_bands[r].wavelength_nm, 1.0);
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/access/data_accessor.h>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace kelto::hyperspectral {
namespace {

using common::StatedObject;
using datatypes::AbstractBandImage;
using datatypes::BandImageDataFormat;
using datatypes::BandStorage_BIP;
using datatypes::BandStorage_BSQ;
using datatypes::Hypercube;
using datatypes::HypercubeBandInfo;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using Pixel = DataAccessor::Pixel;
using Spectrum = std::vector<double>;
using Spectra = std::vector<std::vector<double>>;

constexpr unsigned long kWidth = 4;
constexpr unsigned long kHeight = 3;
constexpr double kScale = 1000.0;
constexpr double kFill = 65535.0;

const char* const kNotRunning =
    "controller \"Data access controller\" is stopped, it must be running";
const char* const kBusy = "controller \"Data access controller\" is busy, it must be running";
const char* const kNotStopped =
    "controller \"Data access controller\" is running, it must be stopped";

BandImageDataFormat MakeFormat(std::uint32_t data_type, std::uint32_t interleave,
                               unsigned long nr_of_bands) {
  BandImageDataFormat format;
  format.data_type = data_type;
  const unsigned long size = BandImageDataFormat::SampleSize(data_type);
  format.element_size = size == 0 ? 2 : size;
  format.width = kWidth;
  format.height = kHeight;
  format.interleave = interleave;
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    format.AddBand(HypercubeBandInfo("band " + std::to_string(b), 450.0 + 25.0 * b, 12.0));
  }
  return format;
}

// Writes one sample through the image's own pointer tables, by the layout of each storage.
template <typename T>
void WriteSample(AbstractBandImage& image, unsigned long x, unsigned long y, unsigned long b,
                 T value) {
  unsigned char* address = nullptr;
  if (image.GetDataFormat().interleave == 0) {
    auto& storage = dynamic_cast<BandStorage_BSQ&>(*image.GetBandStorage());
    address = storage.bands[b][y] + x * sizeof(T);
  } else {
    auto& storage = dynamic_cast<BandStorage_BIP&>(*image.GetBandStorage());
    address = storage.pixels[y][x] + b * sizeof(T);
  }
  std::memcpy(address, &value, sizeof(T));
}

std::vector<Pixel> AllPixels() {
  std::vector<Pixel> pixels;
  for (unsigned long y = 0; y < kHeight; ++y) {
    for (unsigned long x = 0; x < kWidth; ++x) {
      pixels.emplace_back(static_cast<int>(x), static_cast<int>(y));
    }
  }
  return pixels;
}

// Distinct at every pixel and band, below the fill value.
double RawSample(unsigned long x, unsigned long y, unsigned long b) {
  return 500.0 + 97.0 * b + 13.0 * x + 7.0 * y;
}

Spectrum RawSpectrum(const Pixel& pixel, unsigned long nr_of_bands) {
  Spectrum spectrum;
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    spectrum.push_back(RawSample(static_cast<unsigned long>(pixel.first),
                                 static_cast<unsigned long>(pixel.second), b));
  }
  return spectrum;
}

Spectrum Scaled(Spectrum spectrum) {
  for (double& value : spectrum) {
    value /= kScale;
  }
  return spectrum;
}

template <typename Image>
void FillWithRawSamples(Image& image) {
  const unsigned long nr_of_bands = image.GetDataFormat().GetNrOfBands();
  for (unsigned long y = 0; y < kHeight; ++y) {
    for (unsigned long x = 0; x < kWidth; ++x) {
      for (unsigned long b = 0; b < nr_of_bands; ++b) {
        WriteSample(image, x, y, b, static_cast<unsigned short>(RawSample(x, y, b)));
      }
    }
  }
}

// An unsigned short hypercube holding RawSample, scale 1000, fill value 65535.
std::unique_ptr<Hypercube> MakeCube(unsigned long nr_of_bands, bool normalised = true,
                                    std::uint32_t interleave = 0) {
  BandImageDataFormat format =
      MakeFormat(BandImageDataFormat::kUnsignedShort, interleave, nr_of_bands);
  format.scale = kScale;
  format.maximum_value = 4000.0;
  format.fill_value = kFill;
  auto cube = std::make_unique<Hypercube>(format);
  cube->GetDataInfo().is_normalised = normalised;
  FillWithRawSamples(*cube);
  return cube;
}

// A hypercube whose format the test may edit after the accessor has been started, as a caller
// that changes an image under a running accessor would. The samples keep the first layout.
class EditableCube : public Hypercube {
 public:
  explicit EditableCube(BandImageDataFormat const& format) : Hypercube(format), format_(format) {}
  const BandImageDataFormat& GetDataFormat() const override { return format_; }
  BandImageDataFormat& EditFormat() { return format_; }

 private:
  BandImageDataFormat format_;
};

// A band image that is no hypercube, with its own band sequential storage.
class PlainBandImage : public AbstractBandImage {
 public:
  explicit PlainBandImage(BandImageDataFormat const& format)
      : format_(format),
        samples_(format.width * format.height * format.GetNrOfBands() * format.element_size),
        storage_(std::make_unique<BandStorage_BSQ>(this, samples_.data(), format.width,
                                                   format.height, format.GetNrOfBands(),
                                                   format.element_size)) {}

  const BandImageDataFormat& GetDataFormat() const override { return format_; }
  const datatypes::BandImageDataInfo& GetDataInfo() const override { return info_; }
  datatypes::BandImageDataInfo& GetDataInfo() override { return info_; }
  datatypes::BandStorageMixin* GetBandStorage() const override { return storage_.get(); }
  datatypes::BandStorageMixin* GetBandStorage() override { return storage_.get(); }

 private:
  BandImageDataFormat format_;
  datatypes::BandImageDataInfo info_;
  std::vector<unsigned char> samples_;
  std::unique_ptr<BandStorage_BSQ> storage_;
};

// Rows of distinct weights, negative ones among them; the first virtual band lies at 472.886 nm.
CorrectionMatrix MakeMatrix(unsigned long rows, unsigned long columns) {
  CorrectionMatrix matrix;
  matrix.name = "test";
  for (unsigned long r = 0; r < rows; ++r) {
    CorrectionMatrix::VirtualBand band;
    band.wavelength_nm = 472.886 + 50.5 * r;
    band.fwhm_nm = 10.0 + r;
    for (unsigned long c = 0; c < columns; ++c) {
      band.coefficients.push_back(0.1 * (r + 1) - 0.03 * c + (r == c ? 0.9 : 0.0));
    }
    matrix.virtual_bands.push_back(band);
  }
  return matrix;
}

// The product of the matrix's first spectrum.size() columns with spectrum, by plain sums.
Spectrum Multiply(const CorrectionMatrix& matrix, const Spectrum& spectrum) {
  Spectrum result;
  for (const auto& band : matrix.virtual_bands) {
    double sum = 0.0;
    for (std::size_t c = 0; c < spectrum.size(); ++c) {
      sum += band.coefficients[c] * spectrum[c];
    }
    result.push_back(sum);
  }
  return result;
}

void ExpectNear(const Spectrum& actual, const Spectrum& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], 1e-12 * (1.0 + std::fabs(expected[i]))) << "at " << i;
  }
}

std::vector<std::string> BandNames(const BandImageDataFormat& format) {
  std::vector<std::string> names;
  for (const auto& band : format.GetBands()) {
    names.push_back(band->name);
  }
  return names;
}

// --- Sample types ---------------------------------------------------------------------------

// Writes value(k) as T at every sample of an image of the given code, k counting the samples,
// and checks that GetSpectrum, GetSpectrums and GetBand hand back exactly those values in both
// storage orders (interleave 1 is stored and read by pixel, like 2).
template <typename T>
void ExpectReadsAs(std::uint32_t code, const std::function<double(unsigned long)>& value) {
  constexpr unsigned long kBands = 3;
  for (const std::uint32_t interleave : {0u, 1u, 2u}) {
    SCOPED_TRACE("data_type " + std::to_string(code) + ", interleave " +
                 std::to_string(interleave));
    Hypercube cube(MakeFormat(code, interleave, kBands));
    ASSERT_EQ(cube.GetDataFormat().element_size, sizeof(T));
    Spectra expected;
    unsigned long k = 0;
    for (const Pixel& pixel : AllPixels()) {
      Spectrum spectrum;
      for (unsigned long b = 0; b < kBands; ++b, ++k) {
        const double v = value(k);
        ASSERT_EQ(static_cast<double>(static_cast<T>(v)), v) << "test value " << k;
        WriteSample(cube, static_cast<unsigned long>(pixel.first),
                    static_cast<unsigned long>(pixel.second), b, static_cast<T>(v));
        spectrum.push_back(v);
      }
      expected.push_back(spectrum);
    }
    DataAccessor accessor(&cube);
    accessor.Start();
    const std::vector<Pixel> pixels = AllPixels();
    for (std::size_t p = 0; p < pixels.size(); ++p) {
      EXPECT_EQ(accessor.GetSpectrum(pixels[p]), expected[p]);
    }
    EXPECT_EQ(accessor.GetSpectrums(pixels), expected);
    for (unsigned long b = 0; b < kBands; ++b) {
      Spectrum band;
      for (const Spectrum& spectrum : expected) {
        band.push_back(spectrum[b]);
      }
      EXPECT_EQ(accessor.GetBand(pixels, b), band);
    }
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  }
}

double K(unsigned long k) {
  return static_cast<double>(k);
}

TEST(DataAccessorSampleTypes, Characters) {
  // Negative where char is signed, above 127 where it is not: either way a read of the other
  // signedness differs.
  ExpectReadsAs<char>(1, [](unsigned long k) {
    return std::numeric_limits<char>::is_signed ? -60.0 + 5.0 * K(k) : 130.0 + K(k);
  });
  ExpectReadsAs<signed char>(2, [](unsigned long k) { return -100.0 + 5.0 * K(k); });
  ExpectReadsAs<unsigned char>(3, [](unsigned long k) { return 200.0 + K(k); });
}

TEST(DataAccessorSampleTypes, ShortIntegers) {
  const auto signed_values = [](unsigned long k) { return -30000.0 + 1000.0 * K(k); };
  ExpectReadsAs<short>(4, signed_values);
  ExpectReadsAs<short>(5, signed_values);
  ExpectReadsAs<unsigned short>(6, [](unsigned long k) { return 40000.0 + 700.0 * K(k); });
}

TEST(DataAccessorSampleTypes, Integers) {
  const auto signed_values = [](unsigned long k) { return -2.0e9 + 1.0e8 * K(k); };
  ExpectReadsAs<int>(7, signed_values);
  ExpectReadsAs<int>(8, signed_values);
  // Above 2^31, so that a signed read would turn negative.
  ExpectReadsAs<unsigned int>(10, [](unsigned long k) { return 2.5e9 + 5.0e7 * K(k); });
}

TEST(DataAccessorSampleTypes, LongIntegers) {
  // Codes 9 and 12 both read 64 bits unsigned; values above 2^31 and 2^32.
  const auto unsigned_values = [](unsigned long k) { return 3.0e9 + 1.0e12 * K(k); };
  ExpectReadsAs<unsigned long>(9, unsigned_values);
  ExpectReadsAs<unsigned long>(12, unsigned_values);
  ExpectReadsAs<long>(11, [](unsigned long k) { return -5.0e9 + 3.0e11 * K(k); });
}

TEST(DataAccessorSampleTypes, FloatingPoint) {
  ExpectReadsAs<float>(13, [](unsigned long k) { return -8.75 + 0.5 * K(k); });
  // Not representable as float.
  ExpectReadsAs<double>(14, [](unsigned long k) { return -1234.0 + 1.0 / 3.0 + K(k); });
}

TEST(DataAccessorSampleTypes, UnknownCodesRefuseReadsUntilStopped) {
  for (const std::uint32_t code : {0u, 15u}) {
    SCOPED_TRACE("data_type " + std::to_string(code));
    EditableCube cube(MakeFormat(code, 0, 3));
    DataAccessor accessor(&cube);
    accessor.Start();
    // The format handed out does not depend on the image's code.
    EXPECT_EQ(accessor.GetDataFormat()->data_type, 14u);
    EXPECT_THAT(
        [&] {
          accessor.GetSpectrum({1, 1});
        },
        ThrowsMessage<std::logic_error>(StrEq("Unexpected output data type.")));
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_BUSY);
    EXPECT_THAT(
        [&] {
          accessor.GetSpectrum({1, 1});
        },
        ThrowsMessage<std::logic_error>(StrEq(kBusy)));
    EXPECT_THAT(
        [&] {
          accessor.GetSpectrums({{0, 0}});
        },
        ThrowsMessage<std::logic_error>(StrEq(kBusy)));

    // Each of the three reads refuses the code, GetSpectrums even for no pixel.
    const std::vector<std::function<void()>> reads = {
        [&] {
          accessor.GetSpectrum({0, 0});
        },
        [&] {
          accessor.GetSpectrums({{0, 0}, {1, 2}});
        },
        [&] { accessor.GetSpectrums({}); },
        [&] {
          accessor.GetBand({{0, 0}}, 1);
        },
    };
    for (const auto& read : reads) {
      accessor.Stop();
      accessor.Start();
      EXPECT_THAT(read, ThrowsMessage<std::logic_error>(StrEq("Unexpected output data type.")));
      EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_BUSY);
    }

    // Once stopped, the accessor starts again and reads an image with a known code.
    accessor.Stop();
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
    cube.EditFormat().data_type = BandImageDataFormat::kUnsignedShort;
    FillWithRawSamples(cube);
    accessor.Start();
    EXPECT_EQ(accessor.GetSpectrum({1, 2}), RawSpectrum({1, 2}, 3));
    EXPECT_EQ(accessor.GetSpectrums({{3, 0}}), (Spectra{RawSpectrum({3, 0}, 3)}));
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  }
}

TEST(DataAccessorSampleTypes, StorageThatDisagreesWithTheInterleaveIsRefused) {
  EditableCube cube(MakeFormat(BandImageDataFormat::kUnsignedShort, 0, 3));
  cube.EditFormat().interleave = 2;
  DataAccessor accessor(&cube);
  accessor.Start();
  EXPECT_THROW(accessor.GetSpectrum({0, 0}), std::bad_cast);
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_BUSY);
}

// --- Output format --------------------------------------------------------------------------

TEST(DataAccessorFormat, NullBeforeStart) {
  auto cube = MakeCube(5);
  DataAccessor accessor(cube.get());
  EXPECT_EQ(accessor.GetDataFormat(), nullptr);
  EXPECT_EQ(&accessor.GetDataInfo(), &cube->GetDataInfo());
}

TEST(DataAccessorFormat, RawImageKeepsScaleAndMaximum) {
  auto cube = MakeCube(5, false);
  DataAccessor accessor(cube.get());
  accessor.Start();
  const BandImageDataFormat* format = accessor.GetDataFormat();
  ASSERT_NE(format, nullptr);
  EXPECT_EQ(format->data_type, 14u);
  EXPECT_EQ(format->element_size, 8u);
  EXPECT_EQ(format->scale, kScale);
  EXPECT_EQ(format->maximum_value, 4000.0);
  EXPECT_EQ(format->fill_value, kFill);
  EXPECT_EQ(format->width, kWidth);
  EXPECT_EQ(format->height, kHeight);
  EXPECT_EQ(BandNames(*format), BandNames(cube->GetDataFormat()));
  // The image's own format is not touched.
  EXPECT_EQ(cube->GetDataFormat().data_type, BandImageDataFormat::kUnsignedShort);
  EXPECT_EQ(cube->GetDataFormat().element_size, 2u);
}

TEST(DataAccessorFormat, NormalisedImageGivesRealValues) {
  BandImageDataFormat image_format = MakeFormat(BandImageDataFormat::kUnsignedShort, 0, 5);
  image_format.scale = 1000.0;
  image_format.maximum_value = 1000.0;
  image_format.fill_value = kFill;
  Hypercube cube(image_format);
  cube.GetDataInfo().is_normalised = true;
  DataAccessor accessor(&cube);
  accessor.Start();
  const BandImageDataFormat* format = accessor.GetDataFormat();
  ASSERT_NE(format, nullptr);
  EXPECT_EQ(format->maximum_value, 1.0);
  EXPECT_EQ(format->scale, 1.0);
  EXPECT_EQ(format->fill_value, kFill);
  EXPECT_EQ(format->data_type, 14u);
  EXPECT_EQ(format->element_size, 8u);
  EXPECT_EQ(format->GetNrOfBands(), 5u);
}

TEST(DataAccessorFormat, MatrixGivesTheVirtualBands) {
  auto cube = MakeCube(5);
  CorrectionMatrix matrix = MakeMatrix(3, 5);
  matrix.virtual_bands[1].wavelength_nm = 500.0;
  matrix.virtual_bands[2].wavelength_nm = 612.34567;
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  const BandImageDataFormat* format = accessor.GetDataFormat();
  ASSERT_NE(format, nullptr);
  ASSERT_EQ(format->GetNrOfBands(), 3u);
  EXPECT_EQ(BandNames(*format), (std::vector<std::string>{"472.886", "500", "612.346"}));
  for (unsigned long r = 0; r < 3; ++r) {
    const auto* band = dynamic_cast<const HypercubeBandInfo*>(&format->GetBand(r));
    ASSERT_NE(band, nullptr);
    EXPECT_EQ(band->wavelength_nm, matrix.virtual_bands[r].wavelength_nm);
    EXPECT_EQ(band->fwhm_nm, matrix.virtual_bands[r].fwhm_nm);
  }
  EXPECT_EQ(format->data_type, 14u);
  EXPECT_EQ(format->scale, 1.0);
  EXPECT_EQ(format->maximum_value, 4.0);
  EXPECT_EQ(cube->GetDataFormat().GetNrOfBands(), 5u);
}

TEST(DataAccessorFormat, MoreVirtualBandsThanImageBands) {
  auto cube = MakeCube(2);
  const CorrectionMatrix matrix = MakeMatrix(7, 2);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 7u);
  ExpectNear(accessor.GetSpectrum({2, 1}), Multiply(matrix, Scaled(RawSpectrum({2, 1}, 2))));
}

TEST(DataAccessorFormat, CorrectedImageKeepsItsBands) {
  auto cube = MakeCube(5);
  cube->GetHypercubeInfo().is_spectrally_corrected = true;
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  EXPECT_EQ(BandNames(*accessor.GetDataFormat()), BandNames(cube->GetDataFormat()));
  // The matrix is ignored for the reads as well.
  EXPECT_EQ(accessor.GetSpectrum({1, 1}), Scaled(RawSpectrum({1, 1}, 5)));
  EXPECT_EQ(accessor.GetSpectrums({{0, 2}}), (Spectra{Scaled(RawSpectrum({0, 2}, 5))}));

  // Also when coefficients of an earlier start exist.
  accessor.Stop();
  cube->GetHypercubeInfo().is_spectrally_corrected = false;
  accessor.Start();
  EXPECT_EQ(accessor.GetSpectrum({1, 1}).size(), 3u);
  accessor.Stop();
  cube->GetHypercubeInfo().is_spectrally_corrected = true;
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 5u);
  EXPECT_EQ(accessor.GetSpectrum({1, 1}), Scaled(RawSpectrum({1, 1}, 5)));
}

TEST(DataAccessorFormat, PlainBandImageKeepsItsBands) {
  BandImageDataFormat image_format = MakeFormat(BandImageDataFormat::kUnsignedShort, 0, 5);
  image_format.scale = kScale;
  image_format.fill_value = kFill;
  image_format.maximum_value = 2000.0;
  PlainBandImage image(image_format);
  image.GetDataInfo().is_normalised = true;
  FillWithRawSamples(image);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  for (const bool with_matrix : {false, true}) {
    SCOPED_TRACE(with_matrix ? "with a matrix" : "without a matrix");
    DataAccessor accessor(&image);
    if (with_matrix) {
      accessor.SetCorrectionMatrix(&matrix);
    }
    accessor.Start();
    const BandImageDataFormat* format = accessor.GetDataFormat();
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(BandNames(*format), BandNames(image_format));
    EXPECT_EQ(format->data_type, 14u);
    EXPECT_EQ(format->maximum_value, 2.0);
    EXPECT_EQ(format->scale, 1.0);
    // Scaled, never corrected.
    EXPECT_EQ(accessor.GetSpectrum({3, 2}), Scaled(RawSpectrum({3, 2}, 5)));
    EXPECT_EQ(accessor.GetSpectrums({{0, 1}}), (Spectra{Scaled(RawSpectrum({0, 1}, 5))}));
    Spectrum spectrum{1.0};
    EXPECT_THROW(accessor.CorrectSpectrum(spectrum), std::logic_error);
  }
}

TEST(DataAccessorFormat, StartRefusesAMissingImage) {
  DataAccessor accessor(nullptr);
  EXPECT_THAT([&] { accessor.Start(); },
              ThrowsMessage<std::runtime_error>(StrEq("Cannot initialize : data not set.")));
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_EQ(accessor.GetDataFormat(), nullptr);
  EXPECT_THROW(accessor.GetDataInfo(), std::logic_error);
}

TEST(DataAccessorFormat, StartRefusesAMatrixWithTooFewCoefficients) {
  auto cube = MakeCube(5);
  CorrectionMatrix matrix = MakeMatrix(3, 5);
  matrix.virtual_bands[2].coefficients.pop_back();
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  EXPECT_THROW(accessor.Start(), std::runtime_error);
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_THAT(
      [&] {
        accessor.GetSpectrum({0, 0});
      },
      ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));
}

// --- Scaling and correction -----------------------------------------------------------------

TEST(DataAccessorScaling, NormalisedSamplesAreDividedButFillValuesKept) {
  for (const std::uint32_t interleave : {0u, 2u}) {
    SCOPED_TRACE("interleave " + std::to_string(interleave));
    auto cube = MakeCube(2, true, interleave);
    WriteSample(*cube, 1, 2, 0, static_cast<unsigned short>(500));
    WriteSample(*cube, 1, 2, 1, static_cast<unsigned short>(65535));
    DataAccessor accessor(cube.get());
    accessor.Start();
    EXPECT_EQ(accessor.GetSpectrum({1, 2}), (Spectrum{0.5, 65535.0}));
    EXPECT_EQ(accessor.GetSpectrums({{1, 2}, {0, 0}}),
              (Spectra{{0.5, 65535.0}, Scaled(RawSpectrum({0, 0}, 2))}));
    EXPECT_EQ(accessor.GetBand({{1, 2}, {0, 0}}, 0), (Spectrum{0.5, RawSample(0, 0, 0) / kScale}));
    EXPECT_EQ(accessor.GetBand({{1, 2}, {0, 0}}, 1),
              (Spectrum{65535.0, RawSample(0, 0, 1) / kScale}));
  }
}

TEST(DataAccessorScaling, RawImageIsNeitherScaledNorCorrected) {
  auto cube = MakeCube(5, false);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  EXPECT_EQ(accessor.GetSpectrum({2, 1}), RawSpectrum({2, 1}, 5));
  EXPECT_EQ(accessor.GetSpectrums({{2, 1}}), (Spectra{RawSpectrum({2, 1}, 5)}));
  EXPECT_EQ(accessor.GetBand({{2, 1}}, 4), (Spectrum{RawSample(2, 1, 4)}));
}

TEST(DataAccessorScaling, ScaleOfOneLeavesValues) {
  BandImageDataFormat format = MakeFormat(BandImageDataFormat::kUnsignedShort, 0, 3);
  format.scale = 1.0;
  format.fill_value = 0.0;
  Hypercube cube(format);
  cube.GetDataInfo().is_normalised = true;
  FillWithRawSamples(cube);
  DataAccessor accessor(&cube);
  accessor.Start();
  EXPECT_EQ(accessor.GetSpectrum({3, 2}), RawSpectrum({3, 2}, 3));
  EXPECT_EQ(accessor.GetBand({{3, 2}}, 2), (Spectrum{RawSample(3, 2, 2)}));
}

TEST(DataAccessorCorrection, SpectrumIsTheMatrixTimesTheScaledSamples) {
  for (const std::uint32_t interleave : {0u, 2u}) {
    SCOPED_TRACE("interleave " + std::to_string(interleave));
    auto cube = MakeCube(5, true, interleave);
    const CorrectionMatrix matrix = MakeMatrix(3, 5);
    DataAccessor accessor(cube.get());
    accessor.SetCorrectionMatrix(&matrix);
    accessor.Start();
    const std::vector<Pixel> pixels = AllPixels();
    const Spectra spectra = accessor.GetSpectrums(pixels);
    ASSERT_EQ(spectra.size(), pixels.size());
    for (std::size_t p = 0; p < pixels.size(); ++p) {
      const Spectrum expected = Multiply(matrix, Scaled(RawSpectrum(pixels[p], 5)));
      ExpectNear(accessor.GetSpectrum(pixels[p]), expected);
      ExpectNear(spectra[p], expected);
    }
    // A band is never corrected.
    EXPECT_EQ(accessor.GetBand({{2, 2}}, 4), (Spectrum{RawSample(2, 2, 4) / kScale}));
  }
}

TEST(DataAccessorCorrection, FillValuesEnterTheProduct) {
  auto cube = MakeCube(5);
  WriteSample(*cube, 0, 1, 3, static_cast<unsigned short>(65535));
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  Spectrum scaled = Scaled(RawSpectrum({0, 1}, 5));
  scaled[3] = kFill;
  ExpectNear(accessor.GetSpectrum({0, 1}), Multiply(matrix, scaled));
}

TEST(DataAccessorCorrection, MatrixWiderThanTheImageUsesItsFirstColumns) {
  // A fresh start on a 4 band image takes the first 4 coefficients of each virtual band.
  auto cube = MakeCube(4);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  ExpectNear(accessor.GetSpectrum({3, 0}), Multiply(matrix, Scaled(RawSpectrum({3, 0}, 4))));
}

TEST(DataAccessorCorrection, ImageThatNoLongerFitsTheCoefficientsIsOnlyScaled) {
  EditableCube cube(MakeFormat(BandImageDataFormat::kUnsignedShort, 2, 5));
  cube.EditFormat().scale = kScale;
  cube.EditFormat().fill_value = kFill;
  cube.GetDataInfo().is_normalised = true;
  FillWithRawSamples(cube);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(&cube);
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  const Spectrum corrected = accessor.GetSpectrum({1, 1});
  ExpectNear(corrected, Multiply(matrix, Scaled(RawSpectrum({1, 1}, 5))));

  // The image now reports 4 bands against coefficients built for 5.
  cube.EditFormat().ClearBands();
  for (unsigned long b = 0; b < 4; ++b) {
    cube.EditFormat().AddBand(HypercubeBandInfo("band " + std::to_string(b), 450.0, 12.0));
  }
  EXPECT_EQ(accessor.GetSpectrum({1, 1}), Scaled(RawSpectrum({1, 1}, 4)));
  EXPECT_EQ(accessor.GetSpectrums({{2, 0}}), (Spectra{Scaled(RawSpectrum({2, 0}, 4))}));
  // No correction took place, so the latest one is still that of the 5 band read.
  Spectrum spectrum{0.0};
  accessor.CorrectSpectrum(spectrum);
  ExpectNear(spectrum, corrected);
}

TEST(DataAccessorCorrection, CorrectSpectrumHandsBackTheLatestCorrection) {
  auto cube = MakeCube(5);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);

  // An empty spectrum returns before any state test.
  Spectrum empty;
  accessor.CorrectSpectrum(empty);
  EXPECT_TRUE(empty.empty());
  Spectrum one{42.0};
  EXPECT_THAT([&] { accessor.CorrectSpectrum(one); },
              ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));

  accessor.Start();
  const Spectrum first = accessor.GetSpectrum({1, 0});
  accessor.CorrectSpectrum(one);
  ExpectNear(one, Multiply(matrix, Scaled(RawSpectrum({1, 0}, 5))));
  EXPECT_EQ(one, first);

  // The passed values do not matter, nor does the length.
  Spectrum long_spectrum(9, -1.0);
  accessor.CorrectSpectrum(long_spectrum);
  EXPECT_EQ(long_spectrum, first);

  // After GetSpectrums the latest is that of its last pixel.
  const Spectra spectra = accessor.GetSpectrums({{3, 2}, {0, 1}});
  Spectrum again{0.0, 0.0};
  accessor.CorrectSpectrum(again);
  EXPECT_EQ(again, spectra.back());
  ExpectNear(again, Multiply(matrix, Scaled(RawSpectrum({0, 1}, 5))));
}

TEST(DataAccessorCorrection, CorrectSpectrumNeedsCoefficients) {
  auto cube = MakeCube(5);
  DataAccessor accessor(cube.get());
  accessor.Start();
  accessor.GetSpectrum({0, 0});
  Spectrum spectrum{1.0, 2.0};
  EXPECT_THROW(accessor.CorrectSpectrum(spectrum), std::logic_error);
  EXPECT_EQ(spectrum, (Spectrum{1.0, 2.0}));
}

// --- Pixel and band ranges ------------------------------------------------------------------

TEST(DataAccessorRange, GetSpectrumTestsThePixel) {
  auto cube = MakeCube(3);
  DataAccessor accessor(cube.get());
  // Before the lock and state test.
  EXPECT_THAT(
      [&] {
        accessor.GetSpectrum({-1, 0});
      },
      ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
  accessor.Start();
  const int w = static_cast<int>(kWidth);
  const int h = static_cast<int>(kHeight);
  for (const Pixel& pixel :
       std::vector<Pixel>{{-1, 0}, {w, 0}, {0, h}, {0, -1}, {w, h}, {-1, -1}}) {
    SCOPED_TRACE(std::to_string(pixel.first) + ", " + std::to_string(pixel.second));
    EXPECT_THAT([&] { accessor.GetSpectrum(pixel); },
                ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
  }
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  EXPECT_EQ(accessor.GetSpectrum({w - 1, h - 1}), Scaled(RawSpectrum({w - 1, h - 1}, 3)));
  EXPECT_EQ(accessor.GetSpectrum({0, 0}), Scaled(RawSpectrum({0, 0}, 3)));
}

TEST(DataAccessorRange, GetSpectrumsTestsEveryPixelFirst) {
  auto cube = MakeCube(3);
  const CorrectionMatrix matrix = MakeMatrix(2, 3);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  const Spectrum first = accessor.GetSpectrum({0, 0});
  const int w = static_cast<int>(kWidth);
  const int h = static_cast<int>(kHeight);
  for (const Pixel& bad : std::vector<Pixel>{{-1, 0}, {w, 0}, {0, h}, {0, -1}}) {
    EXPECT_THAT(
        [&] {
          accessor.GetSpectrums({{1, 1}, {2, 2}, bad, {0, 1}});
        },
        ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
  }
  // Nothing was read: the latest correction is still that of the first read, and reads go on.
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  Spectrum latest{0.0};
  accessor.CorrectSpectrum(latest);
  EXPECT_EQ(latest, first);
  EXPECT_TRUE(accessor.GetSpectrums({}).empty());
  EXPECT_EQ(accessor.GetSpectrums({{w - 1, h - 1}}).size(), 1u);
}

TEST(DataAccessorRange, GetBandTestsPixelsAndBand) {
  auto cube = MakeCube(3);
  DataAccessor accessor(cube.get());
  accessor.Start();
  const int w = static_cast<int>(kWidth);
  const int h = static_cast<int>(kHeight);
  for (const Pixel& bad : std::vector<Pixel>{{-1, 0}, {w, 0}, {0, h}, {0, -1}}) {
    EXPECT_THAT(
        [&] {
          accessor.GetBand({{1, 1}, bad}, 0);
        },
        ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
  }
  EXPECT_THAT(
      [&] {
        accessor.GetBand({{1, 1}}, 3);
      },
      ThrowsMessage<std::runtime_error>(StrEq("out of range band")));
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  EXPECT_TRUE(accessor.GetBand({}, 0).empty());
  EXPECT_EQ(
      accessor.GetBand({{w - 1, h - 1}, {0, 0}}, 2),
      (Spectrum{RawSample(kWidth - 1, kHeight - 1, 2) / kScale, RawSample(0, 0, 2) / kScale}));
}

// --- States and set-up ----------------------------------------------------------------------

TEST(DataAccessorLifecycle, ReadsNeedTheRunningState) {
  auto cube = MakeCube(3);
  const CorrectionMatrix matrix = MakeMatrix(2, 3);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  const auto expect_refused = [&] {
    EXPECT_THAT(
        [&] {
          accessor.GetSpectrum({0, 0});
        },
        ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));
    EXPECT_THAT(
        [&] {
          accessor.GetSpectrums({{0, 0}});
        },
        ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));
    EXPECT_THAT([&] { accessor.GetSpectrums({}); },
                ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));
    EXPECT_THAT(
        [&] {
          accessor.GetBand({{0, 0}}, 0);
        },
        ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));
    Spectrum spectrum{1.0};
    EXPECT_THAT([&] { accessor.CorrectSpectrum(spectrum); },
                ThrowsMessage<std::logic_error>(StrEq(kNotRunning)));
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  };
  expect_refused();
  accessor.Start();
  EXPECT_EQ(accessor.GetSpectrum({0, 0}).size(), 2u);
  accessor.Stop();
  expect_refused();
}

TEST(DataAccessorLifecycle, SetUpWhileRunningFailsAndKeepsTheOldSetUp) {
  auto cube = MakeCube(5);
  auto other_cube = MakeCube(5);
  WriteSample(*other_cube, 2, 1, 0, static_cast<unsigned short>(1));
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  CorrectionMatrix other_matrix = MakeMatrix(2, 5);
  other_matrix.virtual_bands[0].wavelength_nm = 900.0;
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  const Spectrum expected = Multiply(matrix, Scaled(RawSpectrum({2, 1}, 5)));

  EXPECT_THAT([&] { accessor.SetCorrectionMatrix(&other_matrix); },
              ThrowsMessage<std::logic_error>(StrEq(kNotStopped)));
  EXPECT_THAT([&] { accessor.SetData(other_cube.get()); },
              ThrowsMessage<std::logic_error>(StrEq(kNotStopped)));
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  ExpectNear(accessor.GetSpectrum({2, 1}), expected);

  // A new start still finds the old image and matrix.
  accessor.Stop();
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 3u);
  EXPECT_EQ(accessor.GetDataFormat()->GetBand(0).name, "472.886");
  ExpectNear(accessor.GetSpectrum({2, 1}), expected);
  EXPECT_EQ(&accessor.GetDataInfo(), &cube->GetDataInfo());
}

TEST(DataAccessorLifecycle, SetUpTakesEffectAtTheNextStart) {
  auto cube = MakeCube(5);
  auto other_cube = MakeCube(3, true, 2);
  WriteSample(*other_cube, 1, 1, 0, static_cast<unsigned short>(2500));
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  const CorrectionMatrix other_matrix = MakeMatrix(4, 3);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  accessor.Stop();

  accessor.SetData(other_cube.get());
  accessor.SetCorrectionMatrix(&other_matrix);
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 4u);
  Spectrum scaled = Scaled(RawSpectrum({1, 1}, 3));
  scaled[0] = 2.5;
  ExpectNear(accessor.GetSpectrum({1, 1}), Multiply(other_matrix, scaled));

  // Without a matrix the coefficients of the previous start are not used.
  accessor.Stop();
  accessor.SetCorrectionMatrix(nullptr);
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 3u);
  EXPECT_EQ(accessor.GetSpectrum({1, 1}), scaled);
}

TEST(DataAccessorLifecycle, ResetForgetsEverythingAndTakesANewImage) {
  auto cube = MakeCube(5);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  accessor.GetSpectrum({0, 0});

  accessor.Reset();
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_EQ(accessor.GetDataFormat(), nullptr);
  EXPECT_THROW(accessor.GetDataInfo(), std::logic_error);
  EXPECT_THAT([&] { accessor.Start(); },
              ThrowsMessage<std::runtime_error>(StrEq("Cannot initialize : data not set.")));

  auto new_cube = MakeCube(2, true, 2);
  accessor.SetData(new_cube.get());
  accessor.Start();
  // The matrix was forgotten with the image.
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 2u);
  EXPECT_EQ(accessor.GetSpectrum({3, 1}), Scaled(RawSpectrum({3, 1}, 2)));
  Spectrum spectrum{1.0};
  EXPECT_THROW(accessor.CorrectSpectrum(spectrum), std::logic_error);

  // Reset from the running state, then a matrix again.
  accessor.Reset();
  accessor.SetData(cube.get());
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  ExpectNear(accessor.GetSpectrum({0, 2}), Multiply(matrix, Scaled(RawSpectrum({0, 2}, 5))));
}

// --- Smoothing ------------------------------------------------------------------------------

// Gaussian weights of 15 nm full width at half maximum over the given wavelengths, each row
// normalised, applied to values.
Spectrum GaussianAverage(const Spectrum& values, const Spectrum& wavelengths) {
  const double sigma = 15.0 / (2.0 * std::sqrt(2.0 * std::log(2.0)));
  Spectrum result;
  for (std::size_t i = 0; i < values.size(); ++i) {
    double weighted = 0.0;
    double total = 0.0;
    for (std::size_t j = 0; j < values.size(); ++j) {
      const double d = wavelengths[i] - wavelengths[j];
      const double weight = std::exp(-d * d / (2.0 * sigma * sigma));
      weighted += weight * values[j];
      total += weight;
    }
    result.push_back(weighted / total);
  }
  return result;
}

class DataAccessorSmoothing : public ::testing::Test {
 protected:
  // Smoothing takes no lock and needs no start.
  DataAccessorSmoothing() : cube_(MakeCube(3)), accessor_(cube_.get()) {}

  std::unique_ptr<Hypercube> cube_;
  DataAccessor accessor_;
};

TEST_F(DataAccessorSmoothing, EmptyAndAllFill) {
  Spectrum empty;
  accessor_.SmoothenSpectrum(empty, {});
  EXPECT_TRUE(empty.empty());

  Spectrum fill(4, kFill);
  accessor_.SmoothenSpectrum(fill, {500.0, 510.0, 520.0, 530.0});
  EXPECT_EQ(fill, Spectrum(4, kFill));
}

TEST_F(DataAccessorSmoothing, SingleValidValueIsUnchanged) {
  Spectrum spectrum{kFill, 0.734, kFill};
  accessor_.SmoothenSpectrum(spectrum, {500.0, 505.0, 510.0});
  EXPECT_EQ(spectrum, (Spectrum{kFill, 0.734, kFill}));
  Spectrum alone{-3.25};
  accessor_.SmoothenSpectrum(alone, {700.0});
  EXPECT_EQ(alone, Spectrum{-3.25});
}

TEST_F(DataAccessorSmoothing, ConstantStaysConstant) {
  Spectrum spectrum(12, 0.4375);
  Spectrum wavelengths;
  for (int i = 0; i < 12; ++i) {
    wavelengths.push_back(460.0 + 3.7 * i * i);
  }
  accessor_.SmoothenSpectrum(spectrum, wavelengths);
  for (const double value : spectrum) {
    EXPECT_NEAR(value, 0.4375, 1e-14);
  }
}

TEST_F(DataAccessorSmoothing, WeighsByWavelengthAndSkipsFillValues) {
  // Uneven steps: a smoothing over band index would give other values.
  const Spectrum wavelengths{500.0, 503.0, 511.0, 530.0, 531.0, 560.0, 600.0};
  Spectrum spectrum{1.0, kFill, 3.0, 0.5, kFill, 4.0, 2.0};
  accessor_.SmoothenSpectrum(spectrum, wavelengths);
  const Spectrum expected_valid =
      GaussianAverage({1.0, 3.0, 0.5, 4.0, 2.0}, {500.0, 511.0, 530.0, 560.0, 600.0});
  ASSERT_EQ(spectrum.size(), 7u);
  EXPECT_EQ(spectrum[1], kFill);
  EXPECT_EQ(spectrum[4], kFill);
  ExpectNear({spectrum[0], spectrum[2], spectrum[3], spectrum[5], spectrum[6]}, expected_valid);
  // A value far from all others keeps most of its own weight.
  EXPECT_NEAR(spectrum[6], 2.0, 1e-6);
  EXPECT_NE(spectrum[0], 1.0);

  // Extra wavelengths are ignored, too few are refused.
  Spectrum short_spectrum{1.0, 3.0};
  accessor_.SmoothenSpectrum(short_spectrum, wavelengths);
  ExpectNear(short_spectrum, GaussianAverage({1.0, 3.0}, {500.0, 503.0}));
  Spectrum too_long(8, 1.0);
  EXPECT_THROW(accessor_.SmoothenSpectrum(too_long, wavelengths), std::invalid_argument);
}

}  // namespace
}  // namespace kelto::hyperspectral

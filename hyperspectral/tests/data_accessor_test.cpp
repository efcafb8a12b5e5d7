#include <kelto/hyperspectral/access/data_accessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "data_accessor_images.h"

namespace kelto::hyperspectral {
namespace {

using namespace kelto::hyperspectral::testing;
using common::StatedObject;
using datatypes::AbstractBandImage;
using datatypes::BandStorage_BSQ;
using datatypes::Hypercube;
using datatypes::HypercubeBandInfo;
using Spectrum = std::vector<double>;
using Spectra = std::vector<std::vector<double>>;

const char* const kBusy = "controller \"Data access controller\" is busy, it must be running";
const char* const kNotStopped =
    "controller \"Data access controller\" is running, it must be stopped";
const char* const kUnexpectedType = "Unexpected output data type.";

auto LogicError(const std::string& text) {
  return ::testing::ThrowsMessage<std::logic_error>(::testing::StrEq(text));
}
auto RuntimeError(const std::string& text) {
  return ::testing::ThrowsMessage<std::runtime_error>(::testing::StrEq(text));
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

// The raw samples of a pixel, divided by the scale.
Spectrum Scaled(const Pixel& pixel, unsigned long nr_of_bands, double scale = kScale) {
  Spectrum spectrum;
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    spectrum.push_back(RawSample(static_cast<unsigned long>(pixel.first),
                                 static_cast<unsigned long>(pixel.second), b) /
                       scale);
  }
  return spectrum;
}

Spectrum Raw(const Pixel& pixel, unsigned long nr_of_bands) {
  return Scaled(pixel, nr_of_bands, 1.0);
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

Spectrum Corrected(const CorrectionMatrix& matrix, const Pixel& pixel, unsigned long bands) {
  return Multiply(matrix, Scaled(pixel, bands));
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

// What every started accessor hands out: doubles of the image's size and fill value.
void ExpectFormat(const BandImageDataFormat* format, double scale, double maximum,
                  unsigned long nr_of_bands) {
  ASSERT_NE(format, nullptr);
  EXPECT_EQ(format->data_type, 14u);
  EXPECT_EQ(format->element_size, 8u);
  EXPECT_EQ(format->scale, scale);
  EXPECT_EQ(format->maximum_value, maximum);
  EXPECT_EQ(format->fill_value, kFill);
  EXPECT_EQ(format->width, kWidth);
  EXPECT_EQ(format->height, kHeight);
  EXPECT_EQ(format->GetNrOfBands(), nr_of_bands);
}

// --- Sample types ---------------------------------------------------------------------------

// Writes first + step * k as T at every sample of an image of the given code, k counting the
// samples, and checks that GetSpectrum, GetSpectrums and GetBand hand back exactly those values
// in both storage orders (interleave 1 is stored and read by pixel, like 2).
template <typename T>
void ExpectReadsAs(std::uint32_t code, double first, double step) {
  constexpr unsigned long kBands = 3;
  for (const std::uint32_t interleave : {0u, 1u, 2u}) {
    SCOPED_TRACE("data_type " + std::to_string(code) + ", interleave " +
                 std::to_string(interleave));
    Hypercube cube(MakeFormat(code, interleave, kBands));
    ASSERT_EQ(cube.GetDataFormat().element_size, sizeof(T));
    const std::vector<Pixel> pixels = AllPixels();
    Spectra expected;
    Spectra bands(kBands);
    unsigned long k = 0;
    for (const Pixel& pixel : pixels) {
      expected.emplace_back();
      for (unsigned long b = 0; b < kBands; ++b, ++k) {
        const double v = first + step * static_cast<double>(k);
        ASSERT_EQ(static_cast<double>(static_cast<T>(v)), v) << "test value " << k;
        WriteSample(cube, static_cast<unsigned long>(pixel.first),
                    static_cast<unsigned long>(pixel.second), b, static_cast<T>(v));
        expected.back().push_back(v);
        bands[b].push_back(v);
      }
    }
    DataAccessor accessor(&cube);
    accessor.Start();
    for (std::size_t p = 0; p < pixels.size(); ++p) {
      EXPECT_EQ(accessor.GetSpectrum(pixels[p]), expected[p]);
    }
    EXPECT_EQ(accessor.GetSpectrums(pixels), expected);
    for (unsigned long b = 0; b < kBands; ++b) {
      EXPECT_EQ(accessor.GetBand(pixels, b), bands[b]);
    }
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  }
}

TEST(DataAccessorSampleTypes, EveryKnownCodeInBothStorageOrders) {
  // Negative where char is signed, above 127 where it is not: either way a read of the other
  // signedness differs.
  const bool signed_char = std::numeric_limits<char>::is_signed;
  ExpectReadsAs<char>(1, signed_char ? -60.0 : 130.0, 1.0);
  ExpectReadsAs<signed char>(2, -100.0, 5.0);
  ExpectReadsAs<unsigned char>(3, 200.0, 1.0);
  ExpectReadsAs<short>(4, -30000.0, 1000.0);
  ExpectReadsAs<short>(5, -30000.0, 1000.0);
  ExpectReadsAs<unsigned short>(6, 40000.0, 700.0);
  ExpectReadsAs<int>(7, -2.0e9, 1.0e8);
  ExpectReadsAs<int>(8, -2.0e9, 1.0e8);
  // Codes 9 and 12 both read 64 bits unsigned; values above 2^31 and 2^32. Code 10 above 2^31,
  // so that a signed read would turn negative.
  ExpectReadsAs<unsigned long>(9, 3.0e9, 1.0e12);
  ExpectReadsAs<unsigned int>(10, 2.5e9, 5.0e7);
  ExpectReadsAs<long>(11, -5.0e9, 3.0e11);
  ExpectReadsAs<unsigned long>(12, 3.0e9, 1.0e12);
  ExpectReadsAs<float>(13, -8.75, 0.5);
  ExpectReadsAs<double>(14, -1234.0 + 1.0 / 3.0, 1.0);  // not representable as float
}

TEST(DataAccessorSampleTypes, UnknownCodesRefuseReadsUntilStopped) {
  for (const std::uint32_t code : {0u, 15u}) {
    SCOPED_TRACE("data_type " + std::to_string(code));
    EditableCube cube(MakeFormat(code, 0, 3));
    DataAccessor accessor(&cube);
    // A read refuses the code and leaves the accessor busy, refusing every read until it is
    // stopped. The other reads refuse the code in DataAccessorRanges.
    accessor.Start();
    // The format handed out does not depend on the image's code.
    EXPECT_EQ(accessor.GetDataFormat()->data_type, 14u);
    EXPECT_THAT([&] { accessor.GetSpectrum({0, 0}); }, LogicError(kUnexpectedType));
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_BUSY);
    EXPECT_THAT([&] { accessor.GetSpectrums({{0, 0}}); }, LogicError(kBusy));
    EXPECT_THAT([&] { accessor.GetBand({{0, 0}}, 1); }, LogicError(kBusy));
    EXPECT_THAT([&] { accessor.GetSpectrum({1, 1}); }, LogicError(kBusy));
    accessor.Stop();

    // Once stopped, the accessor starts again and reads an image with a known code.
    EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
    cube.EditFormat().data_type = BandImageDataFormat::kUnsignedShort;
    FillWithRawSamples(cube);
    accessor.Start();
    EXPECT_EQ(accessor.GetSpectrum({1, 2}), Raw({1, 2}, 3));
    EXPECT_EQ(accessor.GetSpectrums({{3, 0}}), (Spectra{Raw({3, 0}, 3)}));
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

// A normalised 5 band image, a 3 by 5 matrix and an accessor of the image, not started.
class DataAccessorTest : public ::testing::Test {
 protected:
  void StartCorrecting() {
    accessor.SetCorrectionMatrix(&matrix);
    accessor.Start();
  }

  std::unique_ptr<Hypercube> cube = MakeCube(5);
  CorrectionMatrix matrix = MakeMatrix(3, 5);
  DataAccessor accessor{cube.get()};
};

TEST_F(DataAccessorTest, RawImageKeepsScaleAndMaximumAndIsNeitherScaledNorCorrected) {
  cube->GetDataInfo().is_normalised = false;
  EXPECT_EQ(accessor.GetDataFormat(), nullptr);
  EXPECT_EQ(&accessor.GetDataInfo(), &cube->GetDataInfo());
  accessor.Start();
  ExpectFormat(accessor.GetDataFormat(), kScale, 4000.0, 5);
  EXPECT_EQ(BandNames(*accessor.GetDataFormat()), BandNames(cube->GetDataFormat()));
  // The image's own format is not touched.
  EXPECT_EQ(cube->GetDataFormat().data_type, BandImageDataFormat::kUnsignedShort);
  EXPECT_EQ(cube->GetDataFormat().element_size, 2u);
  // A matrix changes the format but not the reads.
  accessor.Stop();
  StartCorrecting();
  EXPECT_EQ(accessor.GetSpectrum({2, 1}), Raw({2, 1}, 5));
  EXPECT_EQ(accessor.GetSpectrums({{2, 1}}), (Spectra{Raw({2, 1}, 5)}));
  EXPECT_EQ(accessor.GetBand({{2, 1}}, 4), (Spectrum{RawSample(2, 1, 4)}));
}

TEST_F(DataAccessorTest, MatrixGivesTheVirtualBands) {
  matrix.virtual_bands[1].wavelength_nm = 500.0;
  matrix.virtual_bands[2].wavelength_nm = 612.34567;
  StartCorrecting();
  const BandImageDataFormat* format = accessor.GetDataFormat();
  ExpectFormat(format, 1.0, 4.0, 3);
  EXPECT_EQ(BandNames(*format), (std::vector<std::string>{"472.886", "500", "612.346"}));
  for (unsigned long r = 0; r < 3; ++r) {
    const auto* band = dynamic_cast<const HypercubeBandInfo*>(&format->GetBand(r));
    ASSERT_NE(band, nullptr);
    EXPECT_EQ(band->wavelength_nm, matrix.virtual_bands[r].wavelength_nm);
    EXPECT_EQ(band->fwhm_nm, matrix.virtual_bands[r].fwhm_nm);
  }
  EXPECT_EQ(cube->GetDataFormat().GetNrOfBands(), 5u);
}

TEST_F(DataAccessorTest, CorrectedImageKeepsItsBands) {
  // Also when coefficients of an earlier start exist.
  for (const bool earlier : {false, true}) {
    if (earlier) {
      accessor.Stop();
      cube->GetHypercubeInfo().is_spectrally_corrected = false;
      accessor.Start();
      EXPECT_EQ(accessor.GetSpectrum({1, 1}).size(), 3u);
      accessor.Stop();
    }
    cube->GetHypercubeInfo().is_spectrally_corrected = true;
    StartCorrecting();
    EXPECT_EQ(BandNames(*accessor.GetDataFormat()), BandNames(cube->GetDataFormat()));
    // The matrix is ignored for the reads as well.
    EXPECT_EQ(accessor.GetSpectrum({1, 1}), Scaled({1, 1}, 5));
    EXPECT_EQ(accessor.GetSpectrums({{0, 2}}), (Spectra{Scaled({0, 2}, 5)}));
  }
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
    accessor.SetCorrectionMatrix(with_matrix ? &matrix : nullptr);
    accessor.Start();
    ExpectFormat(accessor.GetDataFormat(), 1.0, 2.0, 5);
    EXPECT_EQ(BandNames(*accessor.GetDataFormat()), BandNames(image_format));
    // Scaled, never corrected.
    EXPECT_EQ(accessor.GetSpectrum({3, 2}), Scaled({3, 2}, 5));
    EXPECT_EQ(accessor.GetSpectrums({{0, 1}}), (Spectra{Scaled({0, 1}, 5)}));
    Spectrum spectrum{1.0};
    EXPECT_THROW(accessor.CorrectSpectrum(spectrum), std::logic_error);
  }
}

TEST_F(DataAccessorTest, StartRefusesAMissingImageOrTooFewCoefficients) {
  DataAccessor empty(nullptr);
  EXPECT_THAT([&] { empty.Start(); }, RuntimeError("Cannot initialize : data not set."));
  EXPECT_EQ(empty.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_EQ(empty.GetDataFormat(), nullptr);
  EXPECT_THROW(empty.GetDataInfo(), std::logic_error);

  matrix.virtual_bands[2].coefficients.pop_back();
  EXPECT_THROW(StartCorrecting(), std::runtime_error);
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_THAT([&] { accessor.GetSpectrum({0, 0}); }, LogicError(kNotRunning));
}

// --- Scaling and correction -----------------------------------------------------------------

// A band read divides by the scale and keeps fill values; spectra do so in DataAccessorCorrection.
TEST(DataAccessorScaling, BandReadsAreDividedButFillValuesKept) {
  auto cube = MakeCube(2);
  WriteSample(*cube, 1, 2, 1, static_cast<unsigned short>(65535));
  DataAccessor accessor(cube.get());
  accessor.Start();
  EXPECT_EQ(accessor.GetBand({{1, 2}, {3, 2}}, 1),
            (Spectrum{65535.0, RawSample(3, 2, 1) / kScale}));
}

TEST(DataAccessorCorrection, SpectrumIsTheMatrixTimesTheScaledSamplesFillValuesIncluded) {
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  for (const std::uint32_t interleave : {0u, 2u}) {
    SCOPED_TRACE("interleave " + std::to_string(interleave));
    auto cube = MakeCube(5, true, interleave);
    WriteSample(*cube, 0, 1, 3, static_cast<unsigned short>(65535));
    DataAccessor accessor(cube.get());
    accessor.SetCorrectionMatrix(&matrix);
    accessor.Start();
    const std::vector<Pixel> pixels = AllPixels();
    const Spectra spectra = accessor.GetSpectrums(pixels);
    ASSERT_EQ(spectra.size(), pixels.size());
    for (std::size_t p = 0; p < pixels.size(); ++p) {
      Spectrum scaled = Scaled(pixels[p], 5);
      if (pixels[p] == Pixel{0, 1}) {
        scaled[3] = kFill;
      }
      ExpectNear(accessor.GetSpectrum(pixels[p]), Multiply(matrix, scaled));
      ExpectNear(spectra[p], Multiply(matrix, scaled));
    }
    // A band is never corrected.
    EXPECT_EQ(accessor.GetBand({{2, 2}}, 4), (Spectrum{RawSample(2, 2, 4) / kScale}));
  }
}

TEST(DataAccessorCorrection, MatrixOfAnotherShapeThanTheImage) {
  // More virtual bands than image bands, and a matrix wider than the image, of which a start
  // takes the first columns.
  for (const auto& [image_bands, rows, columns] :
       std::vector<std::tuple<unsigned long, unsigned long, unsigned long>>{{2, 7, 2}, {4, 3, 5}}) {
    SCOPED_TRACE(image_bands);
    auto cube = MakeCube(image_bands);
    const CorrectionMatrix matrix = MakeMatrix(rows, columns);
    DataAccessor accessor(cube.get());
    accessor.SetCorrectionMatrix(&matrix);
    accessor.Start();
    EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), rows);
    ExpectNear(accessor.GetSpectrum({3, 1}), Corrected(matrix, {3, 1}, image_bands));
  }
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
  ExpectNear(corrected, Corrected(matrix, {1, 1}, 5));

  // The image now reports 4 bands against coefficients built for 5.
  cube.EditFormat().ClearBands();
  for (unsigned long b = 0; b < 4; ++b) {
    cube.EditFormat().AddBand(HypercubeBandInfo("band " + std::to_string(b), 450.0, 12.0));
  }
  EXPECT_EQ(accessor.GetSpectrum({1, 1}), Scaled({1, 1}, 4));
  EXPECT_EQ(accessor.GetSpectrums({{2, 0}}), (Spectra{Scaled({2, 0}, 4)}));
  // No correction took place, so the latest one is still that of the 5 band read.
  Spectrum spectrum{0.0};
  accessor.CorrectSpectrum(spectrum);
  ExpectNear(spectrum, corrected);
}

TEST_F(DataAccessorTest, CorrectSpectrumHandsBackTheLatestCorrection) {
  // An empty spectrum returns before any state test.
  Spectrum empty;
  accessor.CorrectSpectrum(empty);
  EXPECT_TRUE(empty.empty());
  Spectrum one{42.0};
  EXPECT_THAT([&] { accessor.CorrectSpectrum(one); }, LogicError(kNotRunning));

  StartCorrecting();
  const Spectrum first = accessor.GetSpectrum({1, 0});
  accessor.CorrectSpectrum(one);
  ExpectNear(one, Corrected(matrix, {1, 0}, 5));
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
  ExpectNear(again, Corrected(matrix, {0, 1}, 5));
}

TEST_F(DataAccessorTest, RestartsKeepEarlierCoefficientsFromUse) {
  StartCorrecting();
  const std::vector<std::string> virtual_names = BandNames(*accessor.GetDataFormat());
  accessor.GetSpectrum({1, 0});

  // A start that fails on a matrix too short for the image keeps what the last start built.
  accessor.Stop();
  const CorrectionMatrix narrow = MakeMatrix(2, 4);
  accessor.SetCorrectionMatrix(&narrow);
  EXPECT_THROW(accessor.Start(), std::runtime_error);
  EXPECT_EQ(BandNames(*accessor.GetDataFormat()), virtual_names);

  // A start without a matrix keeps the old coefficients, but neither reads nor CorrectSpectrum
  // use them.
  accessor.SetCorrectionMatrix(nullptr);
  accessor.Start();
  EXPECT_EQ(accessor.GetSpectrum({1, 0}), Scaled({1, 0}, 5));
  Spectrum spectrum{1.0};
  EXPECT_THROW(accessor.CorrectSpectrum(spectrum), std::logic_error);
}

// --- Pixel and band ranges ------------------------------------------------------------------

// An unknown sample type is refused first and leaves the accessor busy; then a pixel or a band
// outside the image, the accessor running again and nothing read. GetSpectrum tests its pixel
// before anything else; an empty list reads nothing, whatever the band.
TEST(DataAccessorRanges, SampleTypeFirstThenPixelsThenBand) {
  using Read = std::function<std::size_t(const DataAccessor&, const Pixel&)>;
  const Read spectrum = [](auto& a, auto& p) { return a.GetSpectrum(p).size(); };
  const Read spectrums = [](auto& a, auto& p) {
    return a.GetSpectrums({{1, 1}, {2, 2}, p, {0, 1}}).size();
  };
  const Read band_at = [](auto& a, auto& p) { return a.GetBand({{1, 1}, p}, 0).size(); };
  const Read band_5 = [](auto& a, auto&) { return a.GetBand({{1, 1}}, 5).size(); };
  const Read no_pixel = [](auto& a, auto&) { return a.GetSpectrums({}).size(); };
  const Read no_pixel_band_5 = [](auto& a, auto&) { return a.GetBand({}, 5).size(); };
  const auto kRunning = StatedObject::OS_RUNNING;
  const auto kBusyState = StatedObject::OS_BUSY;
  const std::uint32_t kKnown = BandImageDataFormat::kUnsignedShort;
  struct Case {
    std::uint32_t data_type;
    Read read;
    const char* error;  // none: the read returns no value
    StatedObject::eObjectState state;
  };
  const std::vector<Case> cases = {{kKnown, spectrum, "out of range pixel", kRunning},
                                   {kKnown, spectrums, "out of range pixel", kRunning},
                                   {kKnown, band_at, "out of range pixel", kRunning},
                                   {kKnown, band_5, "out of range band", kRunning},
                                   {kKnown, no_pixel, nullptr, kRunning},
                                   {kKnown, no_pixel_band_5, nullptr, kRunning},
                                   {0, spectrum, "out of range pixel", kRunning},
                                   {0, spectrums, kUnexpectedType, kBusyState},
                                   {15, band_at, kUnexpectedType, kBusyState},
                                   {0, band_5, kUnexpectedType, kBusyState},
                                   {15, no_pixel, kUnexpectedType, kBusyState},
                                   {0, no_pixel_band_5, kUnexpectedType, kBusyState}};
  const int w = static_cast<int>(kWidth);
  const int h = static_cast<int>(kHeight);
  const CorrectionMatrix matrix = MakeMatrix(3, 5);
  for (std::size_t c = 0; c < cases.size(); ++c) {
    for (const Pixel& bad :
         std::vector<Pixel>{{-1, 0}, {w, 0}, {0, h}, {0, -1}, {w, h}, {-1, -1}}) {
      SCOPED_TRACE("case " + std::to_string(c) + ", pixel " + std::to_string(bad.first) + ", " +
                   std::to_string(bad.second));
      EditableCube cube(MakeFormat(kKnown, 0, 5));
      FillWithRawSamples(cube);
      cube.GetDataInfo().is_normalised = true;
      cube.EditFormat().scale = kScale;
      DataAccessor accessor(&cube);
      accessor.SetCorrectionMatrix(&matrix);
      accessor.Start();
      const Spectrum first = accessor.GetSpectrum({0, 0});
      cube.EditFormat().data_type = cases[c].data_type;
      const Case& test = cases[c];
      if (test.error == nullptr) {
        EXPECT_EQ(test.read(accessor, bad), 0u);
      } else if (test.state == kBusyState) {
        EXPECT_THAT([&] { test.read(accessor, bad); }, LogicError(test.error));
      } else {
        EXPECT_THAT([&] { test.read(accessor, bad); }, RuntimeError(test.error));
      }
      EXPECT_EQ(accessor.GetObjectState(), test.state);
      if (test.state == kRunning) {
        // Nothing was read: the latest correction is still that of the first read.
        Spectrum latest{0.0};
        accessor.CorrectSpectrum(latest);
        EXPECT_EQ(latest, first);
      }
    }
  }
}

// --- States and set-up ----------------------------------------------------------------------

TEST_F(DataAccessorTest, SetUpTakesEffectAtTheNextStartAndIsRefusedWhileRunning) {
  auto other_cube = MakeCube(3, true, 2);
  WriteSample(*other_cube, 1, 1, 0, static_cast<unsigned short>(2500));
  const CorrectionMatrix other_matrix = MakeMatrix(4, 3);
  StartCorrecting();
  EXPECT_THAT([&] { accessor.SetCorrectionMatrix(&other_matrix); }, LogicError(kNotStopped));
  EXPECT_THAT([&] { accessor.SetData(other_cube.get()); }, LogicError(kNotStopped));
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_RUNNING);
  ExpectNear(accessor.GetSpectrum({2, 1}), Corrected(matrix, {2, 1}, 5));

  // A new start still finds the old image and matrix.
  accessor.Stop();
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 3u);
  EXPECT_EQ(accessor.GetDataFormat()->GetBand(0).name, "472.886");
  ExpectNear(accessor.GetSpectrum({2, 1}), Corrected(matrix, {2, 1}, 5));
  EXPECT_EQ(&accessor.GetDataInfo(), &cube->GetDataInfo());

  accessor.Stop();
  accessor.SetData(other_cube.get());
  accessor.SetCorrectionMatrix(&other_matrix);
  accessor.Start();
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 4u);
  Spectrum scaled = Scaled({1, 1}, 3);
  scaled[0] = 2.5;
  ExpectNear(accessor.GetSpectrum({1, 1}), Multiply(other_matrix, scaled));
}

TEST_F(DataAccessorTest, ResetForgetsEverythingAndTakesANewImage) {
  StartCorrecting();
  accessor.GetSpectrum({0, 0});
  accessor.Reset();
  EXPECT_EQ(accessor.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_EQ(accessor.GetDataFormat(), nullptr);
  EXPECT_THROW(accessor.GetDataInfo(), std::logic_error);
  EXPECT_THAT([&] { accessor.Start(); }, RuntimeError("Cannot initialize : data not set."));

  auto new_cube = MakeCube(2, true, 2);
  accessor.SetData(new_cube.get());
  accessor.Start();
  // The matrix was forgotten with the image.
  EXPECT_EQ(accessor.GetDataFormat()->GetNrOfBands(), 2u);
  EXPECT_EQ(accessor.GetSpectrum({3, 1}), Scaled({3, 1}, 2));
  Spectrum spectrum{1.0, 2.0};
  EXPECT_THROW(accessor.CorrectSpectrum(spectrum), std::logic_error);
  EXPECT_EQ(spectrum, (Spectrum{1.0, 2.0}));

  // Reset from the running state, then a matrix again.
  accessor.Reset();
  accessor.SetData(cube.get());
  StartCorrecting();
  ExpectNear(accessor.GetSpectrum({0, 2}), Corrected(matrix, {0, 2}, 5));
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

TEST(DataAccessorSmoothing, WeighsByWavelengthAndSkipsFillValues) {
  // Smoothing takes no lock and needs no start.
  auto cube = MakeCube(3);
  DataAccessor accessor(cube.get());
  // Nothing, only fill values, or a single valid value stay as they are.
  for (const auto& [values, wavelengths] : std::vector<std::pair<Spectrum, Spectrum>>{
           {{}, {}},
           {Spectrum(4, kFill), {500.0, 510.0, 520.0, 530.0}},
           {{kFill, 0.734, kFill}, {500.0, 505.0, 510.0}},
           {{-3.25}, {700.0}}}) {
    Spectrum spectrum = values;
    accessor.SmoothenSpectrum(spectrum, wavelengths);
    EXPECT_EQ(spectrum, values);
  }
  // Uneven steps: a smoothing over band index would give other values.
  const Spectrum wavelengths{500.0, 503.0, 511.0, 530.0, 531.0, 560.0, 600.0};
  Spectrum spectrum{1.0, kFill, 3.0, 0.5, kFill, 4.0, 2.0};
  accessor.SmoothenSpectrum(spectrum, wavelengths);
  const Spectrum valid =
      GaussianAverage({1.0, 3.0, 0.5, 4.0, 2.0}, {500.0, 511.0, 530.0, 560.0, 600.0});
  ASSERT_EQ(spectrum.size(), 7u);
  EXPECT_EQ(spectrum[1], kFill);
  EXPECT_EQ(spectrum[4], kFill);
  ExpectNear({spectrum[0], spectrum[2], spectrum[3], spectrum[5], spectrum[6]}, valid);

  // Extra wavelengths are ignored, too few are refused.
  Spectrum short_spectrum{1.0, 3.0};
  accessor.SmoothenSpectrum(short_spectrum, wavelengths);
  ExpectNear(short_spectrum, GaussianAverage({1.0, 3.0}, {500.0, 503.0}));
  Spectrum too_long(8, 1.0);
  EXPECT_THROW(accessor.SmoothenSpectrum(too_long, wavelengths), std::invalid_argument);
}

}  // namespace
}  // namespace kelto::hyperspectral

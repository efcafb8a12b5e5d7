#include <kelto/hyperspectral/access/spectrum_operations.h>

#include <kelto/datatypes/hypercube.h>
#include <kelto/geometry/rectangle_shape.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace kelto::hyperspectral {
namespace {

using datatypes::BandImageDataFormat;
using datatypes::Hypercube;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using Spectrum = std::vector<double>;
using Spectra = std::vector<std::vector<double>>;

constexpr unsigned long kWidth = 4;
constexpr unsigned long kHeight = 3;
constexpr unsigned long kBands = 5;

BandImageDataFormat MakeFormat(std::uint32_t data_type, unsigned long element_size,
                               std::uint32_t interleave, unsigned long nr_of_bands = kBands) {
  BandImageDataFormat format;
  format.data_type = data_type;
  format.element_size = element_size;
  format.width = kWidth;
  format.height = kHeight;
  format.interleave = interleave;
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    format.AddBand(datatypes::HypercubeBandInfo(std::to_string(b), 500.0 + 20.0 * b, 15.0));
  }
  return format;
}

// Distinct at every pixel and band, exact in float.
double SampleValue(unsigned long x, unsigned long y, unsigned long b) {
  return 100.0 * y + 10.0 * x + b + 0.25;
}

Spectrum ExpectedSpectrum(unsigned long x, unsigned long y) {
  Spectrum spectrum;
  for (unsigned long b = 0; b < kBands; ++b) {
    spectrum.push_back(SampleValue(x, y, b));
  }
  return spectrum;
}

// A float image holding SampleValue, written through the block so that the reads under test
// are checked against an independent layout.
std::unique_ptr<Hypercube> MakeFloatImage(std::uint32_t interleave) {
  auto cube = std::make_unique<Hypercube>(MakeFormat(13, sizeof(float), interleave));
  for (unsigned long y = 0; y < kHeight; ++y) {
    for (unsigned long x = 0; x < kWidth; ++x) {
      for (unsigned long b = 0; b < kBands; ++b) {
        const unsigned long index =
            interleave == 0 ? (b * kHeight + y) * kWidth + x : (y * kWidth + x) * kBands + b;
        const auto value = static_cast<float>(SampleValue(x, y, b));
        std::memcpy(cube->GetSamples() + index * sizeof(float), &value, sizeof(float));
      }
    }
  }
  return cube;
}

// An image whose format names one storage order while it hands out the other.
class MismatchedImage : public datatypes::AbstractBandImage {
 public:
  MismatchedImage(std::uint32_t claimed_interleave, std::uint32_t actual_interleave)
      : format_(MakeFormat(13, sizeof(float), claimed_interleave)),
        cube_(MakeFormat(13, sizeof(float), actual_interleave)) {}

  const BandImageDataFormat& GetDataFormat() const override { return format_; }
  const datatypes::BandImageDataInfo& GetDataInfo() const override { return cube_.GetDataInfo(); }
  datatypes::BandImageDataInfo& GetDataInfo() override { return cube_.GetDataInfo(); }
  datatypes::BandStorageMixin* GetBandStorage() const override { return cube_.GetBandStorage(); }
  datatypes::BandStorageMixin* GetBandStorage() override { return cube_.GetBandStorage(); }

 private:
  BandImageDataFormat format_;
  Hypercube cube_;
};

TEST(SpectrumOperations, MeanSpectrum) {
  EXPECT_TRUE(SpectrumOperations::ComputeMeanSpectrum({}).empty());
  EXPECT_EQ(SpectrumOperations::ComputeMeanSpectrum({{1.5, -2.0, 7.0}}),
            (Spectrum{1.5, -2.0, 7.0}));
  EXPECT_EQ(SpectrumOperations::ComputeMeanSpectrum({{1.0, 2.0}, {3.0, 6.0}, {5.0, 1.0}}),
            (Spectrum{3.0, 3.0}));
  EXPECT_TRUE(SpectrumOperations::ComputeMeanSpectrum({{}, {}, {}}).empty());
  // A shorter spectrum adds over its own length and still counts in the divisor.
  EXPECT_EQ(SpectrumOperations::ComputeMeanSpectrum({{2.0, 4.0}, {4.0}}), (Spectrum{3.0, 2.0}));
}

TEST(SpectrumOperations, MeanSpectrumRefusesLongerSpectra) {
  EXPECT_THAT(
      [] {
        SpectrumOperations::ComputeMeanSpectrum({{1.0}, {1.0, 2.0}});
      },
      ThrowsMessage<std::invalid_argument>(StrEq("spectrum longer than the first")));
  EXPECT_THROW(SpectrumOperations::ComputeMeanSpectrum({{}, {1.0}}), std::invalid_argument);
}

TEST(SpectrumOperations, ForceInBoundaries) {
  Spectrum empty;
  SpectrumOperations::ForceInBoundaries(empty, 0.0, 1.0);
  EXPECT_TRUE(empty.empty());

  Spectrum spectrum{1.5, -0.5, 0.25, 0.0, 1.0};
  SpectrumOperations::ForceInBoundaries(spectrum, 0.0, 1.0);
  EXPECT_EQ(spectrum, (Spectrum{1.0, 0.0, 0.25, 0.0, 1.0}));

  // Lower above upper: every element ends at upper.
  Spectrum crossed{-5.0, 0.5, 5.0};
  SpectrumOperations::ForceInBoundaries(crossed, 2.0, 1.0);
  EXPECT_EQ(crossed, (Spectrum{1.0, 1.0, 1.0}));

  Spectrum with_nan{std::numeric_limits<double>::quiet_NaN(), 3.0};
  SpectrumOperations::ForceInBoundaries(with_nan, 0.0, 1.0);
  EXPECT_TRUE(std::isnan(with_nan[0]));
  EXPECT_EQ(with_nan[1], 1.0);
}

TEST(SpectrumOperations, ExtractSpectrumReadsEveryPixelInBothOrders) {
  for (std::uint32_t interleave : {0U, 2U}) {
    SCOPED_TRACE(interleave);
    const auto cube = MakeFloatImage(interleave);
    for (unsigned long y = 0; y < kHeight; ++y) {
      for (unsigned long x = 0; x < kWidth; ++x) {
        EXPECT_EQ(
            SpectrumOperations::ExtractSpectrum(*cube, {static_cast<int>(x), static_cast<int>(y)}),
            ExpectedSpectrum(x, y))
            << x << "," << y;
      }
    }
  }
}

TEST(SpectrumOperations, ExtractSpectrumOfAnImageWithoutBandsIsEmpty) {
  for (std::uint32_t interleave : {0U, 2U}) {
    const Hypercube cube(MakeFormat(13, sizeof(float), interleave, 0));
    EXPECT_TRUE(SpectrumOperations::ExtractSpectrum(cube, {3, 2}).empty());
  }
}

TEST(SpectrumOperations, ExtractSpectrumRefusesOtherTypesAndOrders) {
  const Hypercube doubles(MakeFormat(14, sizeof(double), 0));
  EXPECT_THAT(
      [&] {
        SpectrumOperations::ExtractSpectrum(doubles, {0, 0});
      },
      ThrowsMessage<std::invalid_argument>(StrEq("invalid data type")));
  const Hypercube shorts(MakeFormat(4, sizeof(short), 2));
  EXPECT_THAT(
      [&] {
        SpectrumOperations::ExtractSpectrum(shorts, {0, 0});
      },
      ThrowsMessage<std::invalid_argument>(StrEq("invalid data type")));

  const Hypercube by_line(MakeFormat(13, sizeof(float), 1));
  EXPECT_THAT(
      [&] {
        SpectrumOperations::ExtractSpectrum(by_line, {0, 0});
      },
      ThrowsMessage<std::invalid_argument>(StrEq("unsuported interleave")));
  const Hypercube three(MakeFormat(13, sizeof(float), 3));
  EXPECT_THROW(SpectrumOperations::ExtractSpectrum(three, {0, 0}), std::invalid_argument);

  // The type is tested first.
  const Hypercube both(MakeFormat(14, sizeof(double), 1));
  EXPECT_THAT(
      [&] {
        SpectrumOperations::ExtractSpectrum(both, {0, 0});
      },
      ThrowsMessage<std::invalid_argument>(StrEq("invalid data type")));
}

TEST(SpectrumOperations, ExtractSpectrumRefusesPixelsOutsideTheImage) {
  for (std::uint32_t interleave : {0U, 2U}) {
    SCOPED_TRACE(interleave);
    const auto cube = MakeFloatImage(interleave);
    const int w = static_cast<int>(kWidth);
    const int h = static_cast<int>(kHeight);
    for (std::pair<int, int> pixel :
         {std::pair{-1, 0}, std::pair{0, -1}, std::pair{w, 0}, std::pair{0, h}, std::pair{w, h},
          std::pair{std::numeric_limits<int>::min(), 0},
          std::pair{0, std::numeric_limits<int>::max()}}) {
      EXPECT_THAT([&] { SpectrumOperations::ExtractSpectrum(*cube, pixel); },
                  ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")))
          << pixel.first << "," << pixel.second;
    }
    EXPECT_EQ(SpectrumOperations::ExtractSpectrum(*cube, {w - 1, h - 1}),
              ExpectedSpectrum(kWidth - 1, kHeight - 1));
  }
}

TEST(SpectrumOperations, StorageThatDisagreesWithTheFormatIsABadCast) {
  EXPECT_THROW(SpectrumOperations::ExtractSpectrum(MismatchedImage(0, 2), {0, 0}), std::bad_cast);
  EXPECT_THROW(SpectrumOperations::ExtractSpectrum(MismatchedImage(2, 0), {0, 0}), std::bad_cast);
}

TEST(SpectrumOperations, ExtractSpectrumsFromPixelLists) {
  const auto cube = MakeFloatImage(2);
  EXPECT_EQ(SpectrumOperations::ExtractSpectrums(
                *cube, std::vector<std::pair<int, int>>{{3, 0}, {0, 2}, {3, 0}}),
            (Spectra{ExpectedSpectrum(3, 0), ExpectedSpectrum(0, 2), ExpectedSpectrum(3, 0)}));

  // An empty list never looks at the image, so another sample type is no error.
  const Hypercube doubles(MakeFormat(14, sizeof(double), 0));
  EXPECT_TRUE(
      SpectrumOperations::ExtractSpectrums(doubles, std::vector<std::pair<int, int>>{}).empty());

  EXPECT_THAT(
      [&] {
        SpectrumOperations::ExtractSpectrums(*cube,
                                             std::vector<std::pair<int, int>>{{0, 0}, {4, 0}});
      },
      ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
}

TEST(SpectrumOperations, ExtractSpectrumsFromRunsFollowsRunOrder) {
  const auto cube = MakeFloatImage(0);
  datatypes::RunLengthEncoding region;
  region.AddRun(2, 1, 2);
  region.AddRun(0, 0, 1);
  EXPECT_EQ(SpectrumOperations::ExtractSpectrums(*cube, region),
            (Spectra{ExpectedSpectrum(2, 1), ExpectedSpectrum(3, 1), ExpectedSpectrum(0, 0)}));
  EXPECT_TRUE(SpectrumOperations::ExtractSpectrums(*cube, datatypes::RunLengthEncoding()).empty());

  datatypes::RunLengthEncoding beyond;
  beyond.AddRun(3, 2, 2);
  EXPECT_THROW(SpectrumOperations::ExtractSpectrums(*cube, beyond), std::runtime_error);
}

TEST(SpectrumOperations, ExtractSpectrumsFromShapes) {
  const auto cube = MakeFloatImage(2);
  EXPECT_EQ(SpectrumOperations::ExtractSpectrums(*cube, geometry::RectangleShape(1, 1, 2, 2)),
            (Spectra{ExpectedSpectrum(1, 1), ExpectedSpectrum(2, 1), ExpectedSpectrum(1, 2),
                     ExpectedSpectrum(2, 2)}));
  EXPECT_THAT(
      [&] { SpectrumOperations::ExtractSpectrums(*cube, geometry::RectangleShape(2, 2, 3, 1)); },
      ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
}

}  // namespace
}  // namespace kelto::hyperspectral

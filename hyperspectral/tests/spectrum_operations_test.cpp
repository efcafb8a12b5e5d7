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
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "data_accessor_images.h"

namespace kelto::hyperspectral {
namespace {

using namespace kelto::hyperspectral::testing;
using datatypes::Hypercube;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using Spectrum = std::vector<double>;
using Spectra = std::vector<std::vector<double>>;
using Pixels = std::vector<std::pair<int, int>>;

constexpr unsigned long kBands = 5;

// Distinct at every pixel and band, exact in float.
Spectrum Expected(unsigned long x, unsigned long y) {
  Spectrum spectrum;
  for (unsigned long b = 0; b < kBands; ++b) {
    spectrum.push_back(100.0 * y + 10.0 * x + b + 0.25);
  }
  return spectrum;
}

// A float image holding Expected, written through the block so that the reads under test are
// checked against an independent layout.
std::unique_ptr<Hypercube> MakeFloatImage(std::uint32_t interleave) {
  auto cube = std::make_unique<Hypercube>(MakeFormat(13, interleave, kBands));
  for (const Pixel& pixel : AllPixels()) {
    const auto x = static_cast<unsigned long>(pixel.first);
    const auto y = static_cast<unsigned long>(pixel.second);
    for (unsigned long b = 0; b < kBands; ++b) {
      const unsigned long index =
          interleave == 0 ? (b * kHeight + y) * kWidth + x : (y * kWidth + x) * kBands + b;
      const auto value = static_cast<float>(Expected(x, y)[b]);
      std::memcpy(cube->GetSamples() + index * sizeof(float), &value, sizeof(float));
    }
  }
  return cube;
}

// An image whose format names one storage order while it hands out the other.
class MismatchedImage : public datatypes::AbstractBandImage {
 public:
  MismatchedImage(std::uint32_t claimed_interleave, std::uint32_t actual_interleave)
      : format_(MakeFormat(13, claimed_interleave, kBands)),
        cube_(MakeFormat(13, actual_interleave, kBands)) {}

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
  // A shorter spectrum adds over its own length and still counts in the divisor; a longer one is
  // refused.
  EXPECT_EQ(SpectrumOperations::ComputeMeanSpectrum({{2.0, 4.0}, {4.0}}), (Spectrum{3.0, 2.0}));
  const Spectra longer = {{1.0}, {1.0, 2.0}};
  EXPECT_THAT([&] { SpectrumOperations::ComputeMeanSpectrum(longer); },
              ThrowsMessage<std::invalid_argument>(StrEq("spectrum longer than the first")));
  EXPECT_THROW(SpectrumOperations::ComputeMeanSpectrum({{}, {1.0}}), std::invalid_argument);
}

TEST(SpectrumOperations, ForceInBoundaries) {
  // Lower above upper: every element ends at upper. NaN stays.
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::tuple<Spectrum, double, double, Spectrum>> cases = {
      {{}, 0.0, 1.0, {}},
      {{1.5, -0.5, 0.25, 0.0, 1.0}, 0.0, 1.0, {1.0, 0.0, 0.25, 0.0, 1.0}},
      {{-5.0, 0.5, 5.0}, 2.0, 1.0, {1.0, 1.0, 1.0}},
      {{nan, 3.0}, 0.0, 1.0, {nan, 1.0}}};
  for (const auto& [input, lower, upper, expected] : cases) {
    Spectrum spectrum = input;
    SpectrumOperations::ForceInBoundaries(spectrum, lower, upper);
    ASSERT_EQ(spectrum.size(), expected.size());
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
      EXPECT_TRUE(spectrum[i] == expected[i] ||
                  (std::isnan(spectrum[i]) && std::isnan(expected[i])))
          << "value " << i << " of " << input.size() << ": " << spectrum[i];
    }
  }
}

TEST(SpectrumOperations, ExtractSpectrumReadsEveryPixelInBothOrdersAndNothingOutside) {
  const int w = static_cast<int>(kWidth);
  const int h = static_cast<int>(kHeight);
  for (std::uint32_t interleave : {0U, 2U}) {
    SCOPED_TRACE(interleave);
    const auto cube = MakeFloatImage(interleave);
    for (const Pixel& pixel : AllPixels()) {
      EXPECT_EQ(SpectrumOperations::ExtractSpectrum(*cube, pixel),
                Expected(static_cast<unsigned long>(pixel.first),
                         static_cast<unsigned long>(pixel.second)))
          << pixel.first << "," << pixel.second;
    }
    const int low = std::numeric_limits<int>::min();
    const int high = std::numeric_limits<int>::max();
    for (const Pixel& pixel :
         Pixels{{-1, 0}, {0, -1}, {w, 0}, {0, h}, {w, h}, {low, 0}, {0, high}}) {
      EXPECT_THAT([&] { SpectrumOperations::ExtractSpectrum(*cube, pixel); },
                  ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")))
          << pixel.first << "," << pixel.second;
    }
    // Without bands the spectrum is empty.
    EXPECT_TRUE(
        SpectrumOperations::ExtractSpectrum(Hypercube(MakeFormat(13, interleave, 0)), {3, 2})
            .empty());
  }
}

TEST(SpectrumOperations, ExtractSpectrumRefusesOtherTypesAndOrders) {
  // The type is tested first.
  for (const auto& [type, interleave, text] :
       std::vector<std::tuple<int, int, std::string>>{{14, 0, "invalid data type"},
                                                      {4, 2, "invalid data type"},
                                                      {14, 1, "invalid data type"},
                                                      {13, 1, "unsuported interleave"},
                                                      {13, 3, "unsuported interleave"}}) {
    const Hypercube cube(MakeFormat(static_cast<std::uint32_t>(type),
                                    static_cast<std::uint32_t>(interleave), kBands));
    const auto extract = [&] { SpectrumOperations::ExtractSpectrum(cube, AllPixels()[0]); };
    EXPECT_THAT(extract, ThrowsMessage<std::invalid_argument>(StrEq(text)))
        << type << ", " << interleave;
  }
  // Storage that disagrees with the format is a bad cast.
  EXPECT_THROW(SpectrumOperations::ExtractSpectrum(MismatchedImage(0, 2), {0, 0}), std::bad_cast);
  EXPECT_THROW(SpectrumOperations::ExtractSpectrum(MismatchedImage(2, 0), {0, 0}), std::bad_cast);
}

TEST(SpectrumOperations, ExtractSpectrumsFromPixelListsRunsAndShapes) {
  const auto cube = MakeFloatImage(2);
  EXPECT_EQ(SpectrumOperations::ExtractSpectrums(*cube, Pixels{{3, 0}, {0, 2}, {3, 0}}),
            (Spectra{Expected(3, 0), Expected(0, 2), Expected(3, 0)}));
  // An empty list never looks at the image, so another sample type is no error.
  EXPECT_TRUE(
      SpectrumOperations::ExtractSpectrums(Hypercube(MakeFormat(14, 0, kBands)), Pixels{}).empty());
  const Pixels beyond_width = {{0, 0}, {4, 0}};
  EXPECT_THAT([&] { SpectrumOperations::ExtractSpectrums(*cube, beyond_width); },
              ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));

  // Runs in their own order.
  const auto by_band = MakeFloatImage(0);
  datatypes::RunLengthEncoding region;
  region.AddRun(2, 1, 2);
  region.AddRun(0, 0, 1);
  EXPECT_EQ(SpectrumOperations::ExtractSpectrums(*by_band, region),
            (Spectra{Expected(2, 1), Expected(3, 1), Expected(0, 0)}));
  EXPECT_TRUE(
      SpectrumOperations::ExtractSpectrums(*by_band, datatypes::RunLengthEncoding()).empty());
  datatypes::RunLengthEncoding beyond;
  beyond.AddRun(3, 2, 2);
  EXPECT_THROW(SpectrumOperations::ExtractSpectrums(*by_band, beyond), std::runtime_error);

  EXPECT_EQ(SpectrumOperations::ExtractSpectrums(*cube, geometry::RectangleShape(1, 1, 2, 2)),
            (Spectra{Expected(1, 1), Expected(2, 1), Expected(1, 2), Expected(2, 2)}));
  EXPECT_THAT(
      [&] { SpectrumOperations::ExtractSpectrums(*cube, geometry::RectangleShape(2, 2, 3, 1)); },
      ThrowsMessage<std::runtime_error>(StrEq("out of range pixel")));
}

}  // namespace
}  // namespace kelto::hyperspectral

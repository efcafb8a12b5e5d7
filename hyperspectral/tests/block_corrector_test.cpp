#include <kelto/hyperspectral/access/block_corrector.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include <kelto/hyperspectral/access/data_accessor.h>

#include "../src/access/sample_type.h"
#include "data_accessor_images.h"

namespace kelto::hyperspectral {
namespace {

using datatypes::BandImageDataFormat;
using ::testing::HasSubstr;
using testing::MakeFormat;
using testing::MakeMatrix;
using ::testing::ThrowsMessage;
using Samples = BlockCorrector::Samples;
using Target = BlockCorrector::Target;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// A cube of every sample type, in both storage orders, whose samples fit every type: on a width
// that is not a multiple of the product's blocks, with 7 bands and 5 virtual bands.
class BlockCorrectorAgainstAccessor
    : public ::testing::TestWithParam<std::tuple<std::uint32_t, std::uint32_t>> {};

TEST_P(BlockCorrectorAgainstAccessor, EveryPixelEqualsTheAccessorsSpectrum) {
  const auto [type, interleave] = GetParam();
  constexpr unsigned long kBands = 7;
  constexpr unsigned long kWidth = 37;
  constexpr unsigned long kHeight = 3;
  BandImageDataFormat format = MakeFormat(type, interleave, kBands, kWidth, kHeight);
  format.scale = 4.0;
  format.fill_value = -9999.0;  // in no sample
  datatypes::Hypercube cube(format);
  cube.GetDataInfo().is_normalised = true;
  WithSampleType(type, [&](auto zero) {
    using T = decltype(zero);
    for (unsigned long y = 0; y < kHeight; ++y) {
      for (unsigned long x = 0; x < kWidth; ++x) {
        for (unsigned long b = 0; b < kBands; ++b) {
          const double value = static_cast<double>((x * 7 + y * 31 + b * 13) % 100);
          testing::WriteSample(cube, x, y, b, static_cast<T>(value));
        }
      }
    }
  });
  const CorrectionMatrix matrix = MakeMatrix(5, kBands);
  const BlockCorrector corrector(matrix);
  std::vector<float> out(kWidth * kHeight * 5);
  corrector.Correct(cube, format.scale, format.fill_value,
                    Target::PixelInterleaved(out.data(), kWidth, kHeight, 5));

  DataAccessor accessor(&cube);
  accessor.SetCorrectionMatrix(&matrix);
  accessor.Start();
  for (const auto& pixel : testing::AllPixels(kWidth, kHeight)) {
    const std::vector<double> expected = accessor.GetSpectrum(pixel);
    const std::vector<double> raw = accessor.GetBand({pixel}, 0);
    for (unsigned long v = 0; v < 5; ++v) {
      double magnitude = 0.0;
      for (unsigned long b = 0; b < kBands; ++b) {
        magnitude += std::fabs(matrix.virtual_bands[v].coefficients[b] *
                               accessor.GetBand({pixel}, b).front());
      }
      const float got = out[(pixel.second * kWidth + pixel.first) * 5 + v];
      EXPECT_NEAR(got, expected[v], 1e-5 * magnitude + 1e-30)
          << "type " << type << " pixel " << pixel.first << "," << pixel.second << " band " << v;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    AllTypesBothOrders, BlockCorrectorAgainstAccessor,
    ::testing::Combine(::testing::Range<std::uint32_t>(BandImageDataFormat::kChar,
                                                       BandImageDataFormat::kDouble + 1),
                       ::testing::Values(BandImageDataFormat::kBandSequential,
                                         BandImageDataFormat::kBandInterleavedByPixel)));

// One virtual band per band, each taking its band alone: the output shows what came in.
CorrectionMatrix Identity(unsigned long bands) {
  CorrectionMatrix matrix;
  matrix.name = "identity";
  for (unsigned long v = 0; v < bands; ++v) {
    CorrectionMatrix::VirtualBand band;
    band.coefficients.assign(bands, 0.0);
    band.coefficients[v] = 1.0;
    matrix.virtual_bands.push_back(band);
  }
  return matrix;
}

TEST(BlockCorrector, AnyStridesAndLayoutsGiveTheSameValues) {
  // Three bands of 2 x 2 pixels by line (BIL): line, then band, then pixel.
  const std::vector<unsigned short> bil = {1, 2, 10, 20, 100, 200,   // line 0
                                           3, 4, 30, 40, 300, 400};  // line 1
  Samples input;
  input.data = bil.data();
  input.sample_type = BandImageDataFormat::kUnsignedShort;
  input.pixel_stride = 2;
  input.band_stride = 4;
  input.line_stride = 12;
  input.pixels = 2;
  input.lines = 2;
  input.bands = 3;
  const BlockCorrector corrector(Identity(3));
  std::vector<float> bsq(12);
  corrector.Correct(input, 2.0, std::nan(""), Target::BandSequential(bsq.data(), 2, 2, 3));
  EXPECT_THAT(bsq, ::testing::ElementsAre(0.5, 1, 1.5, 2, 5, 10, 15, 20, 50, 100, 150, 200));
  std::vector<float> bip(12);
  corrector.Correct(input, 2.0, std::nan(""), Target::PixelInterleaved(bip.data(), 2, 2, 3));
  EXPECT_THAT(bip, ::testing::ElementsAre(0.5, 5, 50, 1, 10, 100, 1.5, 15, 150, 2, 20, 200));

  // The same samples read backwards along the lines, through negative strides.
  Samples reversed = input;
  reversed.data = bil.data() + 1;
  reversed.pixel_stride = -2;
  std::vector<float> mirrored(12);
  corrector.Correct(reversed, 2.0, std::nan(""), Target::BandSequential(mirrored.data(), 2, 2, 3));
  EXPECT_THAT(mirrored, ::testing::ElementsAre(1, 0.5, 2, 1.5, 10, 5, 20, 15, 100, 50, 200, 150));
}

TEST(BlockCorrector, AFillSampleInAnyBandMakesThePixelNaN) {
  const std::vector<short> bsq = {5, -1, 7, 8, /* band 1 */ 1, 2, -1, 4};
  const BlockCorrector corrector(MakeMatrix(3, 2));
  std::vector<float> out(12);
  corrector.Correct(Samples::BandSequential(bsq.data(), BandImageDataFormat::kShort, 4, 1, 2), 1.0,
                    -1.0, Target::BandSequential(out.data(), 4, 1, 3));
  for (unsigned long v = 0; v < 3; ++v) {
    EXPECT_FALSE(std::isnan(out[v * 4 + 0]));
    EXPECT_TRUE(std::isnan(out[v * 4 + 1]));
    EXPECT_TRUE(std::isnan(out[v * 4 + 2]));
    EXPECT_FALSE(std::isnan(out[v * 4 + 3]));
  }
  // A NaN fill marks nothing; a NaN sample spoils only its own pixel.
  const std::vector<float> floats = {1.0f, kNaN, 3.0f, 4.0f};
  std::vector<float> plain(4);
  BlockCorrector(Identity(1))
      .Correct(Samples::BandSequential(floats.data(), BandImageDataFormat::kFloat, 4, 1, 1), 1.0,
               std::nan(""), Target::BandSequential(plain.data(), 4, 1, 1));
  EXPECT_EQ(plain[0], 1.0f);
  EXPECT_TRUE(std::isnan(plain[1]));
  EXPECT_EQ(plain[3], 4.0f);
}

TEST(BlockCorrector, ReflectanceFromDarkAndWhiteReferences) {
  // Two pixels of two bands, by pixel.
  const std::vector<unsigned short> raw = {60, 30, 110, 50};
  const std::vector<unsigned short> white = {110, 50, 110, 40};
  BlockCorrector::Reference dark;
  dark.spectrum = {10.0, 10.0};
  BlockCorrector::Reference bright;
  bright.block =
      Samples::PixelInterleaved(white.data(), BandImageDataFormat::kUnsignedShort, 2, 1, 2);
  const BlockCorrector corrector(Identity(2));
  std::vector<float> out(4);
  const auto reflectance = [&] {
    corrector.CorrectReflectance(
        Samples::PixelInterleaved(raw.data(), BandImageDataFormat::kUnsignedShort, 2, 1, 2), dark,
        bright, std::nan(""), Target::PixelInterleaved(out.data(), 2, 1, 2));
  };
  reflectance();
  EXPECT_EQ(out[0], 0.5f);  // (60 - 10) / (110 - 10)
  EXPECT_EQ(out[1], 0.5f);  // (30 - 10) / (50 - 10)
  EXPECT_EQ(out[2], 1.0f);  // (110 - 10) / (110 - 10)
  EXPECT_EQ(out[3], 4.0f / 3.0f);

  // White not above dark in one band: the whole pixel has no value.
  dark.spectrum = {10.0, 45.0};
  reflectance();
  EXPECT_EQ(out[0], 0.5f);
  EXPECT_EQ(out[1], -3.0f);  // (30 - 45) / (50 - 45): below dark is no fault
  EXPECT_TRUE(std::isnan(out[2]) && std::isnan(out[3]));

  dark.spectrum = {10.0};
  EXPECT_THAT(reflectance,
              ThrowsMessage<std::invalid_argument>(HasSubstr("dark reference has 1 values")));
}

TEST(BlockCorrector, RefusesWhatItCannotCorrect) {
  const std::vector<unsigned short> samples(8, 1);
  std::vector<float> out(16);
  const BlockCorrector corrector(MakeMatrix(2, 4));
  EXPECT_EQ(corrector.GetBandCount(), 4u);
  EXPECT_EQ(corrector.GetVirtualBandCount(), 2u);
  EXPECT_THAT(
      [&] {
        corrector.Correct(
            Samples::BandSequential(samples.data(), BandImageDataFormat::kUnsignedShort, 4, 1, 2),
            1.0, 0.0, Target::BandSequential(out.data(), 4, 1, 2));
      },
      ThrowsMessage<std::invalid_argument>(
          HasSubstr("the block has 2 bands, the correction matrix weighs 4")));
  EXPECT_THROW(corrector.Correct(Samples::BandSequential(samples.data(), 99, 2, 1, 4), 1.0, 0.0,
                                 Target::BandSequential(out.data(), 2, 1, 2)),
               std::invalid_argument);
  EXPECT_THROW(corrector.Correct(Samples::BandSequential(nullptr, 6, 2, 1, 4), 1.0, 0.0,
                                 Target::BandSequential(out.data(), 2, 1, 2)),
               std::invalid_argument);

  CorrectionMatrix uneven = MakeMatrix(2, 4);
  uneven.virtual_bands[1].coefficients.pop_back();
  EXPECT_THROW(BlockCorrector{uneven}, std::invalid_argument);
  CorrectionMatrix broken = MakeMatrix(2, 4);
  broken.virtual_bands[0].coefficients[2] = std::nan("");
  EXPECT_THROW(BlockCorrector{broken}, std::invalid_argument);
  EXPECT_THROW(BlockCorrector{CorrectionMatrix()}, std::invalid_argument);
}

TEST(BlockCorrector, ThreadsOnDisjointBlocksShareOneObjectAndLayoutsGiveTheSameBits) {
  constexpr unsigned long kWidth = 300;
  constexpr unsigned long kHeight = 40;
  constexpr unsigned long kBands = 16;
  std::vector<unsigned short> samples(kWidth * kHeight * kBands);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<unsigned short>((i * 2654435761u) % 4096);
  }
  const BlockCorrector corrector(MakeMatrix(16, kBands));
  const auto whole = Samples::PixelInterleaved(samples.data(), BandImageDataFormat::kUnsignedShort,
                                               kWidth, kHeight, kBands);
  std::vector<float> alone(kWidth * kHeight * kBands);
  corrector.Correct(whole, 1.0, 65535.0,
                    Target::PixelInterleaved(alone.data(), kWidth, kHeight, kBands));
  std::vector<float> together(alone.size());
  std::vector<std::thread> threads;
  for (unsigned long half = 0; half < 2; ++half) {
    threads.emplace_back([&, half] {
      Samples part = whole;
      part.lines = kHeight / 2;
      part.data = samples.data() + half * part.lines * kWidth * kBands;
      corrector.Correct(
          part, 1.0, 65535.0,
          Target::PixelInterleaved(together.data() + half * part.lines * kWidth * kBands, kWidth,
                                   kHeight / 2, kBands));
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(alone, together);

  // Every layout converts its samples alike: the same bits whatever the order.
  std::vector<unsigned short> by_band(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    by_band[(i % kBands) * kWidth * kHeight + i / kBands] = samples[i];
  }
  std::vector<float> from_bsq(alone.size());
  corrector.Correct(Samples::BandSequential(by_band.data(), BandImageDataFormat::kUnsignedShort,
                                            kWidth, kHeight, kBands),
                    1.0, 65535.0,
                    Target::PixelInterleaved(from_bsq.data(), kWidth, kHeight, kBands));
  EXPECT_EQ(from_bsq, alone);
}

}  // namespace
}  // namespace kelto::hyperspectral

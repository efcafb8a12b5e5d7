#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>

namespace kelto::datatypes {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

BandImageDataFormat MakeFormat(std::uint32_t data_type, unsigned long element_size,
                               unsigned long width, unsigned long height, unsigned long nr_of_bands,
                               std::uint32_t interleave) {
  BandImageDataFormat format;
  format.data_type = data_type;
  format.element_size = element_size;
  format.width = width;
  format.height = height;
  format.interleave = interleave;
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    format.AddBand(HypercubeBandInfo("band " + std::to_string(b), 500.0 + 10.0 * b, 12.0));
  }
  return format;
}

struct SampleType {
  std::uint32_t code;
  unsigned long size;
};

// Every sample type code with the size of the type it reads, as the readers of the family
// interpret them.
constexpr SampleType kSampleTypes[] = {
    {1, sizeof(char)},          {2, sizeof(signed char)}, {3, sizeof(unsigned char)},
    {4, sizeof(short)},         {5, sizeof(short)},       {6, sizeof(unsigned short)},
    {7, sizeof(int)},           {8, sizeof(int)},         {9, sizeof(unsigned long)},
    {10, sizeof(unsigned int)}, {11, sizeof(long)},       {12, sizeof(unsigned long)},
    {13, sizeof(float)},        {14, sizeof(double)},
};

TEST(BandImageDataFormat, SampleSizeFollowsTheTypeTable) {
  for (SampleType const& type : kSampleTypes) {
    EXPECT_EQ(BandImageDataFormat::SampleSize(type.code), type.size) << type.code;
  }
  EXPECT_EQ(BandImageDataFormat::SampleSize(0), 0UL);
  EXPECT_EQ(BandImageDataFormat::SampleSize(15), 0UL);
  EXPECT_EQ(BandImageDataFormat::SampleSize(0xffffffffU), 0UL);
}

TEST(BandImageDataFormat, BandsAreCopiesThatKeepTheirType) {
  BandImageDataFormat format;
  HypercubeBandInfo band("green", 550.0, 15.0);
  band.SetProperty("unit", "DN");
  format.AddBand(band);
  format.AddBand(BandInfo("plain"));
  band.name = "changed afterwards";
  band.SetProperty("unit", "changed afterwards");

  ASSERT_EQ(format.GetNrOfBands(), 2UL);
  ASSERT_EQ(format.GetBands().size(), 2UL);
  auto const& first = dynamic_cast<HypercubeBandInfo const&>(format.GetBand(0));
  EXPECT_EQ(first.name, "green");
  EXPECT_EQ(first.wavelength_nm, 550.0);
  EXPECT_EQ(first.fwhm_nm, 15.0);
  EXPECT_EQ(first.GetProperty("unit"), "DN");
  EXPECT_EQ(typeid(format.GetBand(1)), typeid(BandInfo));
  EXPECT_THROW(format.GetBand(2), std::out_of_range);

  format.ClearBands();
  EXPECT_EQ(format.GetNrOfBands(), 0UL);
  EXPECT_TRUE(format.GetBands().empty());
}

TEST(BandImageDataFormat, CopiesAndClonesAreDeep) {
  BandImageDataFormat format = MakeFormat(13, 4, 7, 5, 2, 2);
  format.maximum_value = 4095.0;
  format.scale = 1000.0;
  format.fill_value = 65535.0;

  BandImageDataFormat copy = format;
  copy.ClearBands();
  copy.AddBand(MetricBandInfo("other", 900.0, 20.0));
  EXPECT_EQ(format.GetNrOfBands(), 2UL);
  EXPECT_EQ(format.GetBand(0).name, "band 0");

  std::unique_ptr<DataFormat> clone = format.Clone();
  auto* cloned = dynamic_cast<BandImageDataFormat*>(clone.get());
  ASSERT_NE(cloned, nullptr);
  const auto fields = [](BandImageDataFormat const& f) {
    return std::make_tuple(f.data_type, f.element_size, f.width, f.height, f.interleave,
                           f.maximum_value, f.scale, f.fill_value);
  };
  EXPECT_EQ(fields(*cloned), std::make_tuple(13U, 4UL, 7UL, 5UL, 2U, 4095.0, 1000.0, 65535.0));
  ASSERT_EQ(cloned->GetNrOfBands(), 2UL);
  EXPECT_NE(&cloned->GetBand(1), &format.GetBand(1));
  EXPECT_EQ(dynamic_cast<HypercubeBandInfo const&>(cloned->GetBand(1)).wavelength_nm, 510.0);

  copy = format;
  EXPECT_EQ(copy.GetBand(0).name, "band 0");
  EXPECT_EQ(copy.GetNrOfBands(), 2UL);
}

// Where sample (x, y, b) lies in the block for each storage order, computed independently of
// the tables.
unsigned long ExpectedOffset(BandImageDataFormat const& format, unsigned long x, unsigned long y,
                             unsigned long b) {
  const unsigned long bands = format.GetNrOfBands();
  if (format.interleave == 0) {
    return ((b * format.height + y) * format.width + x) * format.element_size;
  }
  return ((y * format.width + x) * bands + b) * format.element_size;
}

TEST(Hypercube, TablesAddressEverySampleOfEveryTypeInBothOrders) {
  for (std::uint32_t interleave : {0U, 1U, 2U}) {
    for (SampleType const& type : kSampleTypes) {
      SCOPED_TRACE("data_type " + std::to_string(type.code) + " interleave " +
                   std::to_string(interleave));
      const BandImageDataFormat format = MakeFormat(type.code, type.size, 4, 3, 5, interleave);
      Hypercube cube(format);
      ASSERT_EQ(cube.GetSampleBytes(), 4UL * 3 * 5 * type.size);
      const unsigned char* base = cube.GetSamples();
      EXPECT_TRUE(std::all_of(base, base + cube.GetSampleBytes(),
                              [](unsigned char byte) { return byte == 0; }));
      EXPECT_EQ(cube.GetDataFormat().GetNrOfBands(), 5UL);
      EXPECT_EQ(cube.GetBandStorage()->GetImage(), &cube);
      auto* bsq = dynamic_cast<BandStorage_BSQ*>(cube.GetBandStorage());
      auto* bip = dynamic_cast<BandStorage_BIP*>(cube.GetBandStorage());
      ASSERT_EQ(bsq != nullptr, interleave == 0);
      ASSERT_EQ(bip != nullptr, interleave != 0);
      // A distinct number in every sample, written through the tables, is found at its own
      // place in the block, so that no two samples share bytes.
      const auto id = [](unsigned long x, unsigned long y, unsigned long b) {
        return static_cast<unsigned char>(1 + x + 4 * y + 12 * b);
      };
      for (unsigned long b = 0; b < 5; ++b) {
        for (unsigned long y = 0; y < 3; ++y) {
          for (unsigned long x = 0; x < 4; ++x) {
            unsigned char* sample = bsq != nullptr ? bsq->bands[b][y] + x * type.size
                                                   : bip->pixels[y][x] + b * type.size;
            std::fill(sample, sample + type.size, id(x, y, b));
          }
        }
      }
      for (unsigned long b = 0; b < 5; ++b) {
        for (unsigned long y = 0; y < 3; ++y) {
          for (unsigned long x = 0; x < 4; ++x) {
            const unsigned char* sample = base + ExpectedOffset(format, x, y, b);
            EXPECT_TRUE(std::all_of(sample, sample + type.size,
                                    [&](unsigned char byte) { return byte == id(x, y, b); }))
                << x << "," << y << "," << b;
          }
        }
      }
    }
  }
}

TEST(Hypercube, TypedSamplesReadThroughTheConstTables) {
  for (std::uint32_t interleave : {0U, 2U}) {
    Hypercube cube(MakeFormat(14, 8, 2, 3, 4, interleave));
    const double value = -2.5e-300;
    std::memcpy(cube.GetSamples() + ExpectedOffset(cube.GetDataFormat(), 1, 2, 3), &value, 8);
    const BandStorageMixin* storage = std::as_const(cube).GetBandStorage();
    EXPECT_EQ(storage, cube.GetBandStorage());
    if (interleave == 0) {
      EXPECT_EQ(LoadSample<double>(dynamic_cast<BandStorage_BSQ const&>(*storage).bands[3][2], 1),
                value);
    } else {
      EXPECT_EQ(LoadSample<double>(dynamic_cast<BandStorage_BIP const&>(*storage).pixels[2][1], 3),
                value);
    }
    EXPECT_EQ(
        LoadSample<double>(cube.GetSamples(), ExpectedOffset(cube.GetDataFormat(), 1, 2, 3) / 8),
        value);
  }
}

TEST(Hypercube, InfoRecordsAreOneAndStartCleared) {
  Hypercube cube(MakeFormat(13, 4, 2, 2, 1, 0));
  EXPECT_FALSE(cube.GetDataInfo().is_normalised);
  EXPECT_FALSE(cube.GetHypercubeInfo().is_spectrally_corrected);
  cube.GetDataInfo().is_normalised = true;
  cube.GetHypercubeInfo().is_spectrally_corrected = true;
  const Hypercube& const_cube = cube;
  EXPECT_TRUE(const_cube.GetHypercubeInfo().is_normalised);
  EXPECT_TRUE(const_cube.GetHypercubeInfo().is_spectrally_corrected);
  EXPECT_TRUE(const_cube.GetDataInfo().is_normalised);
}

TEST(Hypercube, EmptyExtentsAllocateNothing) {
  for (std::uint32_t interleave : {0U, 2U}) {
    // No bands, no lines, no columns.
    for (auto [width, height, bands] :
         {std::tuple{3UL, 2UL, 0UL}, {3UL, 0UL, 2UL}, {0UL, 3UL, 2UL}}) {
      EXPECT_EQ(Hypercube(MakeFormat(13, 4, width, height, bands, interleave)).GetSampleBytes(),
                0UL);
    }
  }
  // Without bands every pixel of a pixel-interleaved image starts where the block starts.
  Hypercube no_bands(MakeFormat(14, 8, 3, 2, 0, 2));
  auto& storage = dynamic_cast<BandStorage_BIP&>(*no_bands.GetBandStorage());
  EXPECT_EQ(storage.pixels[1][2], storage.pixels[0][0]);
  // Without pixels there is no position to read, and no table.
  Hypercube no_columns(MakeFormat(14, 8, 0, 3, 2, 2));
  EXPECT_EQ(dynamic_cast<BandStorage_BIP&>(*no_columns.GetBandStorage()).pixels, nullptr);
  Hypercube no_lines(MakeFormat(14, 8, 3, 0, 2, 0));
  EXPECT_EQ(dynamic_cast<BandStorage_BSQ&>(*no_lines.GetBandStorage()).bands, nullptr);
}

TEST(Hypercube, ElementSizeMustFitAKnownType) {
  EXPECT_THAT([] { Hypercube cube(MakeFormat(13, 2, 2, 2, 1, 0)); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("element_size 2")));
  EXPECT_THROW(Hypercube(MakeFormat(9, 2, 2, 2, 1, 2)), std::invalid_argument);
  EXPECT_THROW(Hypercube(MakeFormat(14, 0, 2, 2, 1, 2)), std::invalid_argument);
  // No reader interprets an unknown code, so its samples may have any size.
  Hypercube unknown(MakeFormat(0, 3, 2, 2, 1, 0));
  EXPECT_EQ(unknown.GetSampleBytes(), 12UL);
  Hypercube beyond(MakeFormat(15, 1, 2, 2, 1, 2));
  EXPECT_EQ(beyond.GetSampleBytes(), 4UL);
  // But a sample of no bytes is none.
  EXPECT_THAT([] { Hypercube cube(MakeFormat(0, 0, 2, 2, 1, 0)); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("element_size 0")));
}

TEST(Hypercube, OversizedImagesAreRefusedBeforeAllocation) {
  const unsigned long big = 1UL << 32;
  for (std::uint32_t interleave : {0U, 2U}) {
    SCOPED_TRACE(interleave);
    // 2^32 x 2^32 wraps to zero in 64 bits.
    EXPECT_THAT([&] { Hypercube cube(MakeFormat(3, 1, big, big, 1, interleave)); },
                ThrowsMessage<std::length_error>(HasSubstr("too large")));
    EXPECT_THROW(Hypercube(MakeFormat(14, 8, 1UL << 31, 1UL << 31, 2, interleave)),
                 std::length_error);
    EXPECT_THROW(Hypercube(MakeFormat(14, 8, ~0UL, 1, 1, interleave)), std::length_error);
  }
  // Without bands there are no samples, but a pixel-interleaved image still needs a pointer per
  // line and per pixel of a line: 2^33 of them.
  EXPECT_EQ(Hypercube::RequiredBytes(MakeFormat(3, 1, big, big, 0, 2)), (big + big) * 8);
  EXPECT_THROW(Hypercube(MakeFormat(3, 1, big, big, 0, 2), 1UL << 30), std::length_error);
  Hypercube band_sequential(MakeFormat(3, 1, big, big, 0, 0));
  EXPECT_EQ(band_sequential.GetSampleBytes(), 0UL);
}

TEST(BandStorage, TablesOverForeignBlocksAreCheckedToo) {
  unsigned char block[24] = {};
  BandStorage_BSQ bsq(nullptr, block, 3, 2, 2, 2);
  EXPECT_EQ(bsq.bands[1][1] - block, (1 * 2 + 1) * 3 * 2);
  BandStorage_BIP bip(nullptr, block, 3, 2, 2, 2);
  EXPECT_EQ(bip.pixels[1][2] - block, (1 * 3 + 2) * 2 * 2);
  EXPECT_EQ(bip.GetImage(), nullptr);
  EXPECT_THROW(BandStorage_BIP(nullptr, block, 1UL << 40, 1UL << 40, 0, 1), std::length_error);
  EXPECT_THROW(BandStorage_BSQ(nullptr, block, 1, 1UL << 40, 1UL << 40, 0), std::length_error);
}

}  // namespace
}  // namespace kelto::datatypes

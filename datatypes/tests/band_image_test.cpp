// The band image format and the Hypercube: sample types, the storage tables of both orders, and
// what an image takes from the heap. operator new of this program counts the bytes it hands out,
// so that a test sees every allocation the libraries make.

#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>

namespace {

std::atomic<unsigned long> allocated_bytes{0};

}  // namespace

void* operator new(std::size_t size) {
  allocated_bytes += size;
  if (void* block = std::malloc(size == 0 ? 1 : size)) {
    return block;
  }
  throw std::bad_alloc();
}
// Not inlined, so that the compiler never pairs a new expression with the free() inside.
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace kelto::datatypes {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

// The object itself, the storage object and the copy of a format of at most two bands.
constexpr unsigned long kConstantBytes = 2048;

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

TEST(BandImageDataFormat, BandsAreDeepCopiesThatKeepTheirType) {
  BandImageDataFormat format = MakeFormat(13, 4, 7, 5, 0, 2);
  format.maximum_value = 4095.0;
  format.scale = 1000.0;
  format.fill_value = 65535.0;
  HypercubeBandInfo band("green", 550.0, 15.0);
  band.SetProperty("unit", "DN");
  format.AddBand(band);
  format.AddBand(BandInfo("plain"));
  band.name = "changed afterwards";
  band.SetProperty("unit", "changed afterwards");

  BandImageDataFormat copy = format;
  copy.ClearBands();
  EXPECT_EQ(copy.GetNrOfBands(), 0UL);
  EXPECT_TRUE(copy.GetBands().empty());
  copy.AddBand(MetricBandInfo("other", 900.0, 20.0));
  std::unique_ptr<DataFormat> clone = format.Clone();
  auto* cloned = dynamic_cast<BandImageDataFormat*>(clone.get());
  ASSERT_NE(cloned, nullptr);
  copy = format;
  for (BandImageDataFormat const* each : {&format, cloned, &copy}) {
    ASSERT_EQ(each->GetNrOfBands(), 2UL);
    ASSERT_EQ(each->GetBands().size(), 2UL);
    auto const& first = dynamic_cast<HypercubeBandInfo const&>(each->GetBand(0));
    EXPECT_EQ(std::make_tuple(first.name, first.wavelength_nm, first.fwhm_nm),
              std::make_tuple("green", 550.0, 15.0));
    EXPECT_EQ(first.GetProperty("unit"), "DN");
    EXPECT_EQ(typeid(each->GetBand(1)), typeid(BandInfo));
    EXPECT_THROW(each->GetBand(2), std::out_of_range);
    EXPECT_EQ(std::make_tuple(each->data_type, each->element_size, each->width, each->height,
                              each->interleave, each->maximum_value, each->scale, each->fill_value),
              std::make_tuple(13U, 4UL, 7UL, 5UL, 2U, 4095.0, 1000.0, 65535.0));
  }
  EXPECT_NE(&cloned->GetBand(1), &format.GetBand(1));
  EXPECT_NE(&copy.GetBand(0), &format.GetBand(0));
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
      for (int pass = 0; pass < 2; ++pass) {
        for (unsigned long i = 0; i < 4 * 3 * 5; ++i) {
          const unsigned long x = i % 4, y = i / 4 % 3, b = i / 12;
          unsigned char* through_table =
              bsq != nullptr ? bsq->bands[b][y] + x * type.size : bip->pixels[y][x] + b * type.size;
          const unsigned char* in_block = base + ExpectedOffset(format, x, y, b);
          if (pass == 0) {
            std::fill(through_table, through_table + type.size, id(x, y, b));
          } else {
            EXPECT_TRUE(std::all_of(in_block, in_block + type.size,
                                    [&](unsigned char byte) { return byte == id(x, y, b); }))
                << x << "," << y << "," << b;
          }
        }
      }
    }
  }
}

TEST(Hypercube, TypedSamplesReadThroughTheConstTablesAndOneInfoRecord) {
  for (std::uint32_t interleave : {0U, 2U}) {
    Hypercube cube(MakeFormat(14, 8, 2, 3, 4, interleave));
    const double value = -2.5e-300;
    const unsigned long offset = ExpectedOffset(cube.GetDataFormat(), 1, 2, 3);
    std::memcpy(cube.GetSamples() + offset, &value, 8);
    const BandStorageMixin* storage = std::as_const(cube).GetBandStorage();
    EXPECT_EQ(storage, cube.GetBandStorage());
    EXPECT_EQ(
        interleave == 0
            ? LoadSample<double>(dynamic_cast<BandStorage_BSQ const&>(*storage).bands[3][2], 1)
            : LoadSample<double>(dynamic_cast<BandStorage_BIP const&>(*storage).pixels[2][1], 3),
        value);
    EXPECT_EQ(LoadSample<double>(cube.GetSamples(), offset / 8), value);
  }
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

TEST(Hypercube, FormatsAreRefusedBeforeAllocatingOrBuiltWithinTheirBytes) {
  const unsigned long kNoLimit = ~0UL;
  const unsigned long kUnset = 0;  // the machine's memory
  const unsigned long big = 1UL << 32;
  const char* kWraps = "band image of 4294967296 x 4294967296 x";
  const unsigned long at_limit = Hypercube::RequiredBytes(MakeFormat(6, 2, 300, 200, 2, 0));
  struct Case {
    const char* what;
    BandImageDataFormat format;
    unsigned long limit;
    unsigned long required;  // 0 when refused
    const char* refusal;     // nullptr when built
  };
  const Case cases[] = {
      // No samples, so no table of 2^40 lines either.
      {"no columns by pixel", MakeFormat(14, 8, 0, 1UL << 40, 1, 2), kUnset, 0, nullptr},
      {"no columns by band", MakeFormat(14, 8, 0, 1UL << 40, 2, 0), kUnset, 0, nullptr},
      {"no lines", MakeFormat(3, 1, 1UL << 40, 0, 2, 2), kUnset, 0, nullptr},
      {"no lines by band", MakeFormat(13, 4, 3, 0, 2, 0), kUnset, 0, nullptr},
      // Pixels without bands share one line of addresses.
      {"no bands", MakeFormat(3, 1, 1UL << 20, 1UL << 20, 0, 2), kUnset, (2UL << 20) * 8, nullptr},
      {"no bands by band", MakeFormat(3, 1, big, big, 0, 0), kUnset, 0, nullptr},
      // Samples and tables exactly at the limit, and a byte beyond it.
      {"at the limit", MakeFormat(6, 2, 300, 200, 2, 0), at_limit, 300 * 200 * 2 * 2 + 402 * 8,
       nullptr},
      {"a byte beyond", MakeFormat(6, 2, 300, 200, 2, 0), at_limit - 1, 0, "more than the limit"},
      {"by pixel", MakeFormat(13, 4, 64, 32, 2, 2), 1UL << 20, 64 * 32 * 2 * 4 + (32 + 64 * 32) * 8,
       nullptr},
      // 232 GB of samples, beyond a limit above this machine's memory.
      {"232 GB", MakeFormat(13, 4, 100000, 290000, 2, 2), 64UL << 30, 0, "more than the limit"},
      {"232 GB by band", MakeFormat(13, 4, 100000, 290000, 2, 0), 64UL << 30, 0,
       "needs 232004640016 bytes"},
      // Between any machine's memory and the largest object, and beyond that: 2^32 x 2^32 of
      // one byte wraps to zero in 64 bits.
      {"2^62 bytes", MakeFormat(14, 8, 1UL << 40, 1UL << 18, 2, 0), kUnset, 0, "more than"},
      {"wrapping", MakeFormat(14, 8, big, big, 2, 2), kNoLimit, 0, kWraps},
      {"wrapping to zero", MakeFormat(3, 1, big, big, 1, 2), kNoLimit, 0, kWraps},
      {"wrapping to zero by band", MakeFormat(3, 1, big, big, 1, 0), kNoLimit, 0, kWraps},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const unsigned long limit = c.limit == kUnset ? Hypercube::PhysicalMemoryBytes() : c.limit;
    if (c.refusal != nullptr) {
      const unsigned long before = allocated_bytes;
      try {
        Hypercube cube(c.format, limit);
        ADD_FAILURE() << "built";
      } catch (const std::length_error& error) {
        // Nothing but the text of the exception.
        EXPECT_LT(allocated_bytes - before, 1024UL);
        EXPECT_THAT(error.what(), HasSubstr(c.refusal));
      }
      continue;
    }
    EXPECT_EQ(Hypercube::RequiredBytes(c.format), c.required);
    const unsigned long taken = [&] {
      const unsigned long start = allocated_bytes;
      Hypercube cube(c.format, limit);
      EXPECT_EQ(cube.GetSampleBytes(),
                c.format.width * c.format.height * c.format.GetNrOfBands() * c.format.element_size);
      return allocated_bytes - start;
    }();
    EXPECT_GE(taken, c.required);
    EXPECT_LE(taken, c.required + kConstantBytes);
  }
  // Without bands every pixel of a pixel-interleaved image starts where the block starts;
  // without pixels there is no position to read, and no table.
  Hypercube no_bands(MakeFormat(14, 8, 3, 2, 0, 2));
  auto& storage = dynamic_cast<BandStorage_BIP&>(*no_bands.GetBandStorage());
  EXPECT_EQ(storage.pixels[1][2], storage.pixels[0][0]);
  Hypercube no_columns(MakeFormat(14, 8, 0, 3, 2, 2));
  EXPECT_EQ(dynamic_cast<BandStorage_BIP&>(*no_columns.GetBandStorage()).pixels, nullptr);
  Hypercube no_lines(MakeFormat(14, 8, 3, 0, 2, 0));
  EXPECT_EQ(dynamic_cast<BandStorage_BSQ&>(*no_lines.GetBandStorage()).bands, nullptr);
}

TEST(Hypercube, DefaultLimitIsTheMachinesMemoryAndElementSizeMustFitAKnownType) {
  const unsigned long memory = Hypercube::PhysicalMemoryBytes();
  EXPECT_GT(memory, 1UL << 24);
  // A claim of twice the machine's memory, which the one-argument form refuses.
  const BandImageDataFormat format = MakeFormat(3, 1, memory / 1024, 1024, 2, 0);
  EXPECT_THAT([&] { Hypercube cube(format); },
              ThrowsMessage<std::length_error>(
                  HasSubstr("the limit of " + std::to_string(memory) + " bytes")));
  // A sample of the wrong size, or of no bytes, is refused whatever the extents.
  for (auto [code, size] : {std::pair{13U, 2UL}, {9U, 2UL}, {14U, 0UL}, {0U, 0UL}}) {
    EXPECT_THAT(
        [&] { Hypercube cube(MakeFormat(code, size, 1UL << 20, 1UL << 20, 2, 0)); },
        ThrowsMessage<std::invalid_argument>(HasSubstr("element_size " + std::to_string(size))));
  }
  // No reader interprets an unknown code, so its samples may have any size.
  EXPECT_EQ(Hypercube(MakeFormat(0, 3, 2, 2, 1, 0)).GetSampleBytes(), 12UL);
  EXPECT_EQ(Hypercube(MakeFormat(15, 1, 2, 2, 1, 2)).GetSampleBytes(), 4UL);
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

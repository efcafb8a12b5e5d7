// What a Hypercube takes from the heap: every format is refused before any allocation, or built
// with its samples, their tables and a small constant. operator new of this program counts the
// bytes it hands out, so the test sees every allocation the libraries make.

#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

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
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
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
    format.AddBand(HypercubeBandInfo("b" + std::to_string(b), 500.0 + 10.0 * b, 12.0));
  }
  return format;
}

TEST(HypercubeMemory, FormatsAreRefusedBeforeAllocatingOrBuiltWithinTheirBytes) {
  const unsigned long kNoLimit = ~0UL;
  const unsigned long kUnset = 0;  // the machine's memory
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
      // Pixels without bands share one line of addresses.
      {"no bands", MakeFormat(3, 1, 1UL << 20, 1UL << 20, 0, 2), kUnset, (2UL << 20) * 8, nullptr},
      {"no bands by band", MakeFormat(3, 1, 1UL << 20, 1UL << 20, 0, 0), kUnset, 0, nullptr},
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
      // Between any machine's memory and the largest object, and beyond that.
      {"2^62 bytes", MakeFormat(14, 8, 1UL << 40, 1UL << 18, 2, 0), kUnset, 0, "more than"},
      {"wrapping", MakeFormat(14, 8, 1UL << 32, 1UL << 32, 2, 2), kNoLimit, 0, "too large"},
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
}

TEST(HypercubeMemory, DefaultLimitIsTheMachinesMemory) {
  const unsigned long memory = Hypercube::PhysicalMemoryBytes();
  EXPECT_GT(memory, 1UL << 24);
  // A claim of twice the machine's memory, which the one-argument form refuses.
  const BandImageDataFormat format = MakeFormat(3, 1, memory / 1024, 1024, 2, 0);
  EXPECT_THAT([&] { Hypercube cube(format); },
              ThrowsMessage<std::length_error>(
                  HasSubstr("the limit of " + std::to_string(memory) + " bytes")));
  // A sample without bytes is refused whatever the extents.
  EXPECT_THAT([] { Hypercube cube(MakeFormat(0, 0, 1UL << 20, 1UL << 20, 2, 0)); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("element_size 0")));
}

}  // namespace
}  // namespace kelto::datatypes

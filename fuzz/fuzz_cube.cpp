// The target of the tools' cube reader: an ENVI header and its data file, both from the fuzzer's
// bytes (the header up to the first NUL byte, the data after it), opened through GDAL's in-memory
// files as `kelto-hsi` opens a cube on disk. A cube whose samples fit a small budget is then
// loaded whole and read line by line.
#include <cpl_vsi.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz_targets.h"
#include "hypercube_loader.h"

namespace kelto::fuzz {

namespace {

constexpr const char* kHeader = "/vsimem/kelto_fuzz/cube.hdr";
constexpr const char* kData = "/vsimem/kelto_fuzz/cube.raw";
// Beyond this a cube is only opened: the samples of a larger one would come from a header's
// claim rather than from bytes the input holds.
constexpr unsigned long long kMaxSampleBytes = 1 << 20;

// An in-memory file that is gone when the run ends, whatever happened.
class MemoryFile {
 public:
  MemoryFile(const char* path, const std::uint8_t* data, std::size_t size) : path_(path) {
    // A copy that GDAL owns and frees with the file.
    auto* copy = static_cast<GByte*>(VSIMalloc(std::max<std::size_t>(size, 1)));
    if (size > 0) {
      std::memcpy(copy, data, size);
    }
    VSIFCloseL(VSIFileFromMemBuffer(path, copy, size, TRUE));
  }
  ~MemoryFile() { VSIUnlink(path_); }
  MemoryFile(MemoryFile const&) = delete;
  MemoryFile& operator=(MemoryFile const&) = delete;

 private:
  const char* path_;
};

unsigned long long SampleBytes(const datatypes::BandImageDataFormat& format) {
  const unsigned long long bands = format.GetNrOfBands();
  unsigned long long product = 1;
  for (const unsigned long long factor : {static_cast<unsigned long long>(format.width),
                                          static_cast<unsigned long long>(format.height), bands,
                                          static_cast<unsigned long long>(format.element_size)}) {
    if (factor != 0 && product > kMaxSampleBytes / factor) {
      return kMaxSampleBytes + 1;
    }
    product *= factor;
  }
  return product;
}

}  // namespace

int FuzzCubeReader(const std::uint8_t* data, std::size_t size) {
  const auto* end = data + size;
  const auto* separator = std::find(data, end, std::uint8_t{0});
  const std::size_t header_size = static_cast<std::size_t>(separator - data);
  const std::uint8_t* samples = separator == end ? end : separator + 1;
  const MemoryFile header(kHeader, data, header_size);
  const MemoryFile raw(kData, samples, static_cast<std::size_t>(end - samples));
  try {
    const tools::CubeReader reader(kHeader);
    const datatypes::BandImageDataFormat& format = reader.Format();
    double transform[6];
    (void)reader.GetGeoTransform(transform);
    (void)reader.GetProjection();
    if (SampleBytes(format) > kMaxSampleBytes) {
      return 0;
    }
    const unsigned long lines = std::min(format.height, 2ul);
    std::vector<double> values(format.width * lines * format.GetNrOfBands());
    reader.ReadLinesAsDouble(0, lines, values.data());
    const auto cube = tools::LoadHypercube(kHeader);
    if (cube->GetSampleBytes() != SampleBytes(format)) {
      Fail("the loaded cube's samples are not the reader's format",
           std::to_string(cube->GetSampleBytes()) + " bytes for " +
               std::to_string(SampleBytes(format)));
    }
  } catch (const tools::CubeError&) {
    // A cube the tools refuse with an exit status of their table.
  }
  return 0;
}

}  // namespace kelto::fuzz

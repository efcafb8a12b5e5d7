// Whole-cube correction on one thread: a 2048 x 1088 mosaic cube of 16 unsigned 16-bit bands with
// a 16 x 16 matrix, and a 2048 x 1000 wedge cube of 150 bands with a 150 x 150 matrix, both by
// pixel as numpy holds (rows, columns, bands); beside each, memcpy of as many bytes as the
// correction reads and writes, the limit that memory sets. bench_block_correction.py does the same
// work with numpy on the same data, for the comparison with what a user would otherwise write.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/hyperspectral/access/block_corrector.h>

namespace {

using kelto::datatypes::BandImageDataFormat;
using kelto::hyperspectral::BlockCorrector;
using kelto::hyperspectral::CorrectionMatrix;

struct Case {
  unsigned long pixels;
  unsigned long lines;
  unsigned long bands;
};
const Case kCases[] = {{2048, 1088, 16}, {2048, 1000, 150}};

// Samples from 0 to 1023 and coefficients of the same recipe as the Python script's.
std::vector<std::uint16_t> Samples(const Case& c) {
  std::vector<std::uint16_t> samples(c.pixels * c.lines * c.bands);
  std::uint32_t state = 12345;
  for (auto& sample : samples) {
    state = state * 1664525u + 1013904223u;
    sample = static_cast<std::uint16_t>(state >> 22);  // 0 to 1023
  }
  return samples;
}

CorrectionMatrix Matrix(unsigned long bands) {
  CorrectionMatrix matrix;
  for (unsigned long v = 0; v < bands; ++v) {
    CorrectionMatrix::VirtualBand band;
    for (unsigned long b = 0; b < bands; ++b) {
      band.coefficients.push_back(v == b ? 1.2
                                         : -0.2 / static_cast<double>(1 + (v > b ? v - b : b - v)));
    }
    matrix.virtual_bands.push_back(band);
  }
  return matrix;
}

void Report(benchmark::State& state, const Case& c, std::size_t bytes) {
  const auto spectra = static_cast<double>(c.pixels * c.lines);
  state.counters["spectra_per_s"] = benchmark::Counter(
      spectra * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["GB_per_s"] =
      benchmark::Counter(static_cast<double>(bytes) * static_cast<double>(state.iterations()) / 1e9,
                         benchmark::Counter::kIsRate);
}

void Correction(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  const auto samples = Samples(c);
  const BlockCorrector corrector(Matrix(c.bands));
  std::vector<float> out(c.pixels * c.lines * c.bands);
  const auto input = BlockCorrector::Samples::PixelInterleaved(
      samples.data(), BandImageDataFormat::kUnsignedShort, c.pixels, c.lines, c.bands);
  const auto target =
      BlockCorrector::Target::PixelInterleaved(out.data(), c.pixels, c.lines, c.bands);
  for (auto _ : state) {
    corrector.Correct(input, 1.0, 65535.0, target);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  Report(state, c, samples.size() * sizeof(std::uint16_t) + out.size() * sizeof(float));
}

void Memcpy(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  const std::size_t bytes = c.pixels * c.lines * c.bands * (sizeof(std::uint16_t) + sizeof(float));
  // Half the bytes read, half written: as many moved as the correction reads and writes.
  std::vector<char> from(bytes / 2, 1);
  std::vector<char> to(bytes / 2);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  Report(state, c, bytes);
}

BENCHMARK(Correction)->DenseRange(0, 1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Memcpy)->DenseRange(0, 1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

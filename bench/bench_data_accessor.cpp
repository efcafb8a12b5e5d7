// Corrected spectra out of a band image: DataAccessor::GetSpectrums over every pixel of a
// 409 x 216 cube of 16 unsigned short bands (16 x 16 matrix) and of one 2048 pixel line of 150
// bands (150 x 150 matrix), in both storage orders. Beside it the same product as one Eigen
// matrix-matrix multiplication over all pixels: once with the conversion of the samples to
// scaled doubles inside the timing, once with the product alone. The block product skips the fill
// value test and the per-pixel vectors that the accessor hands out, so it is the bound the
// per-pixel path could approach, not an equivalent.
#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/hypercube.h>
#include <kelto/hyperspectral/access/data_accessor.h>

namespace {

using kelto::datatypes::BandImageDataFormat;
using kelto::datatypes::Hypercube;
using kelto::hyperspectral::CorrectionMatrix;
using kelto::hyperspectral::DataAccessor;
using Samples = Eigen::Matrix<unsigned short, Eigen::Dynamic, Eigen::Dynamic>;

constexpr double kScale = 1000.0;

// A normalised unsigned short cube with 12-bit samples, a dense matrix of as many virtual bands
// as bands, and a started accessor over them.
struct Scene {
  Scene(unsigned long width, unsigned long height, unsigned long bands, std::uint32_t interleave) {
    BandImageDataFormat format;
    format.data_type = BandImageDataFormat::kUnsignedShort;
    format.element_size = sizeof(unsigned short);
    format.width = width;
    format.height = height;
    format.interleave = interleave;
    format.scale = kScale;
    format.maximum_value = 4095.0;
    format.fill_value = 65535.0;
    for (unsigned long b = 0; b < bands; ++b) {
      format.AddBand(kelto::datatypes::HypercubeBandInfo(
          std::to_string(b), 460.0 + 4.0 * static_cast<double>(b), 10.0));
    }
    cube = std::make_unique<Hypercube>(format);
    cube->GetDataInfo().is_normalised = true;
    std::uint32_t state = 12345;
    auto* samples = reinterpret_cast<unsigned short*>(cube->GetSamples());
    const unsigned long count = cube->GetSampleBytes() / sizeof(unsigned short);
    for (unsigned long i = 0; i < count; ++i) {
      state = state * 1664525u + 1013904223u;
      samples[i] = static_cast<unsigned short>(state >> 20);  // 0 to 4095
    }
    for (unsigned long r = 0; r < bands; ++r) {
      CorrectionMatrix::VirtualBand band;
      band.wavelength_nm = 462.0 + 4.0 * static_cast<double>(r);
      band.fwhm_nm = 8.0;
      for (unsigned long c = 0; c < bands; ++c) {
        band.coefficients.push_back(
            r == c ? 1.2 : -0.2 / static_cast<double>(1 + (r > c ? r - c : c - r)));
      }
      matrix.virtual_bands.push_back(band);
    }
    accessor = std::make_unique<DataAccessor>(cube.get());
    accessor->SetCorrectionMatrix(&matrix);
    accessor->Start();
    for (unsigned long y = 0; y < height; ++y) {
      for (unsigned long x = 0; x < width; ++x) {
        pixels.emplace_back(static_cast<int>(x), static_cast<int>(y));
      }
    }
    coefficients.resize(static_cast<Eigen::Index>(bands), static_cast<Eigen::Index>(bands));
    for (unsigned long r = 0; r < bands; ++r) {
      for (unsigned long c = 0; c < bands; ++c) {
        coefficients(static_cast<Eigen::Index>(r), static_cast<Eigen::Index>(c)) =
            matrix.virtual_bands[r].coefficients[c];
      }
    }
  }

  // The samples as scaled doubles, one column per pixel in the order of pixels.
  void Convert(Eigen::MatrixXd& spectra) const {
    const auto& format = cube->GetDataFormat();
    const auto bands = static_cast<Eigen::Index>(format.GetNrOfBands());
    const auto count = static_cast<Eigen::Index>(pixels.size());
    const auto* samples = reinterpret_cast<const unsigned short*>(cube->GetSamples());
    if (format.interleave == BandImageDataFormat::kBandSequential) {
      spectra = Eigen::Map<const Samples>(samples, count, bands).transpose().cast<double>() *
                (1.0 / kScale);
    } else {
      spectra = Eigen::Map<const Samples>(samples, bands, count).cast<double>() * (1.0 / kScale);
    }
  }

  std::unique_ptr<Hypercube> cube;
  CorrectionMatrix matrix;
  std::unique_ptr<DataAccessor> accessor;
  std::vector<DataAccessor::Pixel> pixels;
  Eigen::MatrixXd coefficients;
};

std::unique_ptr<Scene> MakeScene(const benchmark::State& state) {
  return std::make_unique<Scene>(
      static_cast<unsigned long>(state.range(0)), static_cast<unsigned long>(state.range(1)),
      static_cast<unsigned long>(state.range(2)), static_cast<std::uint32_t>(state.range(3)));
}

void CountSpectra(benchmark::State& state, std::size_t per_iteration) {
  state.counters["spectra"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * static_cast<double>(per_iteration),
      benchmark::Counter::kIsRate);
}

// The accessor's path: one lock, then per pixel a raw read, scaling and a matrix-vector product.
void GetSpectrums(benchmark::State& state) {
  const auto scene = MakeScene(state);
  for (auto _ : state) {
    auto spectra = scene->accessor->GetSpectrums(scene->pixels);
    benchmark::DoNotOptimize(spectra.data());
  }
  CountSpectra(state, scene->pixels.size());
}

// One GetSpectrum per pixel: a lock and a range test each.
void GetSpectrumEach(benchmark::State& state) {
  const auto scene = MakeScene(state);
  for (auto _ : state) {
    for (const auto& pixel : scene->pixels) {
      auto spectrum = scene->accessor->GetSpectrum(pixel);
      benchmark::DoNotOptimize(spectrum.data());
    }
  }
  CountSpectra(state, scene->pixels.size());
}

// Conversion of the samples to doubles inside the timing, then one matrix-matrix product.
void BlockProductWithConversion(benchmark::State& state) {
  const auto scene = MakeScene(state);
  Eigen::MatrixXd spectra;
  Eigen::MatrixXd corrected;
  for (auto _ : state) {
    scene->Convert(spectra);
    corrected.noalias() = scene->coefficients * spectra;
    benchmark::DoNotOptimize(corrected.data());
  }
  CountSpectra(state, scene->pixels.size());
}

// The product alone, the samples converted before the timing.
void BlockProductOnly(benchmark::State& state) {
  const auto scene = MakeScene(state);
  Eigen::MatrixXd spectra;
  scene->Convert(spectra);
  Eigen::MatrixXd corrected;
  for (auto _ : state) {
    corrected.noalias() = scene->coefficients * spectra;
    benchmark::DoNotOptimize(corrected.data());
  }
  CountSpectra(state, scene->pixels.size());
}

// width, height, bands, interleave
void Scenes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"width", "height", "bands", "interleave"});
  for (const int interleave : {2, 0}) {
    benchmark->Args({409, 216, 16, interleave});
    benchmark->Args({2048, 1, 150, interleave});
  }
  benchmark->Unit(benchmark::kMillisecond);
}

BENCHMARK(GetSpectrums)->Apply(Scenes);
BENCHMARK(GetSpectrumEach)->Apply(Scenes);
BENCHMARK(BlockProductWithConversion)->Apply(Scenes);
BENCHMARK(BlockProductOnly)->Apply(Scenes);

}  // namespace

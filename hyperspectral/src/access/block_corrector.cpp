#include <kelto/hyperspectral/access/block_corrector.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/datatypes/band_storage.h>

#include "block_kernel.h"
#include "sample_type.h"

namespace kelto::hyperspectral {

namespace {

using datatypes::BandImageDataFormat;

// Pixels converted and multiplied at a time: enough to keep the product busy, few enough that a
// chunk of samples stays in the first-level cache at any band count.
std::size_t ChunkPixels(unsigned long bands) {
  const std::size_t chunk = 16384 / std::max<unsigned long>(bands, 1) / 16;
  return std::clamp<std::size_t>(chunk, 1, 32) * 16;
}

std::size_t RoundUp(std::size_t value, std::size_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

// A chunk of one line of a block as floats, pixel after pixel: x[p * bands + b] for band b of the
// chunk's pixel p, each sample times factor. holds_fill[p] is set where a sample equals fill. A
// dense block by pixel is one run of samples; any other layout is read along its smaller stride.
template <typename T>
void Convert(const BlockCorrector::Samples& block, unsigned long line, unsigned long first,
             std::size_t count, double factor, double fill, float* x, unsigned char* holds_fill) {
  // An empty block may come without samples at all; there is then no address to start from.
  if (block.bands == 0 || count == 0) {
    return;
  }
  const auto* base = static_cast<const unsigned char*>(block.data) +
                     static_cast<std::ptrdiff_t>(line) * block.line_stride +
                     static_cast<std::ptrdiff_t>(first) * block.pixel_stride;
  const std::size_t bands = block.bands;
  const auto size = static_cast<std::ptrdiff_t>(sizeof(T));
  if (block.band_stride == size &&
      block.pixel_stride == size * static_cast<std::ptrdiff_t>(bands)) {
    ConvertDense(block.sample_type, base, count * bands, bands, static_cast<float>(factor), fill, x,
                 holds_fill);
    return;
  }
  const auto convert = [&](std::size_t b, std::size_t p) {
    T sample;
    std::memcpy(&sample,
                base + static_cast<std::ptrdiff_t>(p) * block.pixel_stride +
                    static_cast<std::ptrdiff_t>(b) * block.band_stride,
                sizeof(T));
    const auto value = static_cast<double>(sample);
    if (holds_fill != nullptr && value == fill) {
      holds_fill[p] = 1;
    }
    // As the dense path does, so that every layout gives the same values to the bit.
    x[p * bands + b] = static_cast<float>(sample) * static_cast<float>(factor);
  };
  if (std::llabs(block.pixel_stride) <= std::llabs(block.band_stride)) {
    for (std::size_t b = 0; b < bands; ++b) {
      for (std::size_t p = 0; p < count; ++p) {
        convert(b, p);
      }
    }
  } else {
    for (std::size_t p = 0; p < count; ++p) {
      for (std::size_t b = 0; b < bands; ++b) {
        convert(b, p);
      }
    }
  }
}

void ConvertAny(const BlockCorrector::Samples& block, unsigned long line, unsigned long first,
                std::size_t count, double factor, double fill, float* x,
                unsigned char* holds_fill) {
  WithSampleType(block.sample_type, [&](auto zero) {
    Convert<decltype(zero)>(block, line, first, count, factor, fill, x, holds_fill);
  });
}

void CheckBlock(const BlockCorrector::Samples& block, const char* what) {
  if (BandImageDataFormat::SampleSize(block.sample_type) == 0) {
    throw std::invalid_argument(std::string(what) + ": unknown sample type " +
                                std::to_string(block.sample_type));
  }
  if (block.data == nullptr && block.pixels != 0 && block.lines != 0 && block.bands != 0) {
    throw std::invalid_argument(std::string(what) + ": no samples for a block that is not empty");
  }
}

void CheckReference(const BlockCorrector::Reference& reference,
                    const BlockCorrector::Samples& input, const char* what) {
  if (!reference.spectrum.empty()) {
    if (reference.spectrum.size() != input.bands) {
      throw std::invalid_argument(
          std::string(what) + " reference has " + std::to_string(reference.spectrum.size()) +
          " values for an input of " + std::to_string(input.bands) + " bands");
    }
    return;
  }
  const BlockCorrector::Samples& block = reference.block;
  if (block.pixels != input.pixels || block.lines != input.lines || block.bands != input.bands) {
    throw std::invalid_argument(std::string(what) +
                                " reference is neither one value per band nor a block of the "
                                "input's size");
  }
  CheckBlock(block, what);
}

// The reference's values for a chunk, in the layout of Convert.
void ReferenceChunk(const BlockCorrector::Reference& reference, unsigned long line,
                    unsigned long first, std::size_t count, std::size_t bands, float* values) {
  if (reference.spectrum.empty()) {
    ConvertAny(reference.block, line, first, count, 1.0, 0.0, values, nullptr);
    return;
  }
  for (std::size_t p = 0; p < count; ++p) {
    for (std::size_t b = 0; b < bands; ++b) {
      values[p * bands + b] = static_cast<float>(reference.spectrum[b]);
    }
  }
}

// y holds `width` values per pixel, of which the first virtual_bands are written; a pixel without
// value gets NaN in all of them. A dense target by pixel takes each pixel's values in one copy.
void Write(const BlockCorrector::Target& target, unsigned long line, unsigned long first,
           std::size_t count, std::size_t virtual_bands, const float* y, std::size_t width,
           const unsigned char* without_value) {
  auto* base = reinterpret_cast<unsigned char*>(target.data) +
               static_cast<std::ptrdiff_t>(line) * target.line_stride +
               static_cast<std::ptrdiff_t>(first) * target.pixel_stride;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto size = static_cast<std::ptrdiff_t>(sizeof(float));
  if (target.band_stride == size &&
      target.pixel_stride == size * static_cast<std::ptrdiff_t>(virtual_bands)) {
    WriteDense(y, count, width, virtual_bands, without_value, reinterpret_cast<float*>(base));
    return;
  }
  const auto store = [&](std::size_t v, std::size_t p) {
    const float value = without_value[p] != 0 ? nan : y[p * width + v];
    std::memcpy(base + static_cast<std::ptrdiff_t>(p) * target.pixel_stride +
                    static_cast<std::ptrdiff_t>(v) * target.band_stride,
                &value, sizeof value);
  };
  if (std::llabs(target.pixel_stride) <= std::llabs(target.band_stride)) {
    for (std::size_t v = 0; v < virtual_bands; ++v) {
      for (std::size_t p = 0; p < count; ++p) {
        store(v, p);
      }
    }
  } else {
    for (std::size_t p = 0; p < count; ++p) {
      for (std::size_t v = 0; v < virtual_bands; ++v) {
        store(v, p);
      }
    }
  }
}

}  // namespace

BlockCorrector::Samples BlockCorrector::Samples::BandSequential(const void* data,
                                                                std::uint32_t sample_type,
                                                                unsigned long pixels,
                                                                unsigned long lines,
                                                                unsigned long bands) {
  const auto size = static_cast<std::ptrdiff_t>(BandImageDataFormat::SampleSize(sample_type));
  const auto width = static_cast<std::ptrdiff_t>(pixels);
  return {
      data,   sample_type, size, size * width, size * width * static_cast<std::ptrdiff_t>(lines),
      pixels, lines,       bands};
}

BlockCorrector::Samples BlockCorrector::Samples::PixelInterleaved(const void* data,
                                                                  std::uint32_t sample_type,
                                                                  unsigned long pixels,
                                                                  unsigned long lines,
                                                                  unsigned long bands) {
  const auto size = static_cast<std::ptrdiff_t>(BandImageDataFormat::SampleSize(sample_type));
  const auto depth = static_cast<std::ptrdiff_t>(bands);
  return {data, sample_type, size * depth, size * depth * static_cast<std::ptrdiff_t>(pixels),
          size, pixels,      lines,        bands};
}

BlockCorrector::Target BlockCorrector::Target::BandSequential(float* data, unsigned long pixels,
                                                              unsigned long lines, unsigned long) {
  const auto size = static_cast<std::ptrdiff_t>(sizeof(float));
  const auto width = static_cast<std::ptrdiff_t>(pixels);
  return {data, size, size * width, size * width * static_cast<std::ptrdiff_t>(lines)};
}

BlockCorrector::Target BlockCorrector::Target::PixelInterleaved(float* data, unsigned long pixels,
                                                                unsigned long,
                                                                unsigned long virtual_bands) {
  const auto size = static_cast<std::ptrdiff_t>(sizeof(float));
  const auto depth = static_cast<std::ptrdiff_t>(virtual_bands);
  return {data, size * depth, size * depth * static_cast<std::ptrdiff_t>(pixels), size};
}

BlockCorrector::BlockCorrector(const CorrectionMatrix& matrix) {
  const auto& rows = matrix.virtual_bands;
  if (rows.empty()) {
    throw std::invalid_argument("the correction matrix \"" + matrix.name +
                                "\" has no virtual bands");
  }
  bands_ = rows.front().coefficients.size();
  virtual_bands_ = rows.size();
  const std::size_t width = RoundUp(virtual_bands_, kKernelWidth);
  coefficients_.assign(width * bands_, 0.0f);
  for (std::size_t v = 0; v < rows.size(); ++v) {
    if (rows[v].coefficients.size() != bands_) {
      throw std::invalid_argument("virtual band " + std::to_string(v) + " of the matrix \"" +
                                  matrix.name + "\" has " +
                                  std::to_string(rows[v].coefficients.size()) +
                                  " coefficients, the first " + std::to_string(bands_));
    }
    for (std::size_t b = 0; b < bands_; ++b) {
      const double value = rows[v].coefficients[b];
      if (!std::isfinite(value)) {
        throw std::invalid_argument("virtual band " + std::to_string(v) + " of the matrix \"" +
                                    matrix.name + "\" has a coefficient that is not finite");
      }
      coefficients_[b * width + v] = static_cast<float>(value);
    }
  }
}

void BlockCorrector::Correct(const Samples& input, double scale, double fill,
                             const Target& output) const {
  _Run(input, scale, fill, nullptr, nullptr, output);
}

void BlockCorrector::Correct(const datatypes::Hypercube& cube, double scale, double fill,
                             const Target& output) const {
  const BandImageDataFormat& format = cube.GetDataFormat();
  const Samples input =
      format.interleave == BandImageDataFormat::kBandSequential
          ? Samples::BandSequential(cube.GetSamples(), format.data_type, format.width,
                                    format.height, format.GetNrOfBands())
          : Samples::PixelInterleaved(cube.GetSamples(), format.data_type, format.width,
                                      format.height, format.GetNrOfBands());
  _Run(input, scale, fill, nullptr, nullptr, output);
}

void BlockCorrector::CorrectReflectance(const Samples& input, const Reference& dark,
                                        const Reference& white, double fill,
                                        const Target& output) const {
  _Run(input, 1.0, fill, &dark, &white, output);
}

void BlockCorrector::_Run(const Samples& input, double scale, double fill, const Reference* dark,
                          const Reference* white, const Target& output) const {
  if (input.bands != bands_) {
    throw std::invalid_argument("the block has " + std::to_string(input.bands) +
                                " bands, the correction matrix weighs " + std::to_string(bands_));
  }
  CheckBlock(input, "input");
  if (dark != nullptr) {
    CheckReference(*dark, input, "dark");
    CheckReference(*white, input, "white");
  }
  if (input.pixels == 0 || input.lines == 0) {
    return;
  }
  if (output.data == nullptr) {
    throw std::invalid_argument("no target for the corrected values");
  }

  const std::size_t chunk = ChunkPixels(bands_);
  const std::size_t width = RoundUp(virtual_bands_, kKernelWidth);
  std::vector<float> x(chunk * bands_, 0.0f);
  std::vector<float> y(chunk * width, 0.0f);
  std::vector<float> dark_values;
  std::vector<float> white_values;
  if (dark != nullptr) {
    dark_values.assign(x.size(), 0.0f);
    white_values.assign(x.size(), 0.0f);
  }
  std::vector<unsigned char> without_value(chunk);
  const double factor = 1.0 / scale;
  for (unsigned long line = 0; line < input.lines; ++line) {
    for (unsigned long first = 0; first < input.pixels; first += chunk) {
      const std::size_t count = std::min<std::size_t>(chunk, input.pixels - first);
      std::fill(without_value.begin(), without_value.end(), 0);
      ConvertAny(input, line, first, count, factor, fill, x.data(),
                 std::isnan(fill) ? nullptr : without_value.data());
      if (dark != nullptr) {
        ReferenceChunk(*dark, line, first, count, bands_, dark_values.data());
        ReferenceChunk(*white, line, first, count, bands_, white_values.data());
        for (std::size_t i = 0; i < count * bands_; ++i) {
          const float range = white_values[i] - dark_values[i];
          if (!(range > 0.0f)) {
            without_value[i / bands_] = 1;
          }
          x[i] = (x[i] - dark_values[i]) / range;
        }
      }
      // The pixels of the product come in groups; a short chunk rounds up into the padding.
      MultiplyPixels(x.data(), RoundUp(count, kKernelPixels), bands_, coefficients_.data(), width,
                     y.data());
      Write(output, line, first, count, virtual_bands_, y.data(), width, without_value.data());
    }
  }
}

}  // namespace kelto::hyperspectral

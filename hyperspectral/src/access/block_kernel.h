// The inner product of the block correction, kept in a translation unit of its own so that it can
// be compiled for several instruction sets and the best one chosen when the library loads.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelto::hyperspectral {

// The product works on groups of kKernelPixels pixels and on kKernelWidth virtual bands at a time;
// its operands are padded to them.
constexpr std::size_t kKernelPixels = 4;
constexpr std::size_t kKernelWidth = 16;

// y := x ct, pixel by pixel: x holds `pixels` spectra of `depth` values one after the other, ct is
// the transposed matrix (depth rows of `width` coefficients) and y gets `width` values per pixel.
// pixels must be a multiple of kKernelPixels and width one of kKernelWidth.
void MultiplyPixels(const float* x, std::size_t pixels, std::size_t depth, const float* ct,
                    std::size_t width, float* y);

// x[i] := sample i of a dense run of `count` samples of the sample type, times factor.
// holds_fill, when given, gets for each group of `bands` samples whether one of them equals fill
// (compared in the sample type; a fill value that the type can't hold marks nothing).
void ConvertDense(std::uint32_t sample_type, const unsigned char* samples, std::size_t count,
                  std::size_t bands, float factor, double fill, float* x,
                  unsigned char* holds_fill);

// out gets, pixel after pixel, the first `virtual_bands` of the `width` values per pixel of y, or
// NaN for a pixel without value.
void WriteDense(const float* y, std::size_t pixels, std::size_t width, std::size_t virtual_bands,
                const unsigned char* without_value, float* out);

}  // namespace kelto::hyperspectral

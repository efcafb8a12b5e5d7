#include "block_kernel.h"

#include <cstring>
#include <limits>

#include <kelto/datatypes/band_storage.h>

#include "sample_type.h"

namespace kelto::hyperspectral {

namespace {

// Sixteen floats, held in one register where the instruction set has 512-bit ones and split by
// the compiler where it has not; as a plain array the accumulators would live in memory.
typedef float Lanes __attribute__((vector_size(64)));

// Four pixels against a panel of N x 16 coefficients of every row, accumulated in registers: per
// step of the depth N loads of the panel serve four pixels. Inlined into each clone below, so that
// it is compiled for that clone's instruction set.
template <std::size_t N>
__attribute__((always_inline)) inline void Panel(const float* x, std::size_t pixels,
                                                 std::size_t depth, const float* ct,
                                                 std::size_t width, float* y) {
  for (std::size_t p = 0; p < pixels; p += kKernelPixels) {
    const float* x0 = x + p * depth;
    const float* x1 = x0 + depth;
    const float* x2 = x1 + depth;
    const float* x3 = x2 + depth;
    Lanes a0[N] = {};
    Lanes a1[N] = {};
    Lanes a2[N] = {};
    Lanes a3[N] = {};
    for (std::size_t k = 0; k < depth; ++k) {
      const float* row = ct + k * width;
#pragma GCC unroll 4
      for (std::size_t n = 0; n < N; ++n) {
        Lanes r;
        std::memcpy(&r, row + 16 * n, sizeof r);
        a0[n] += x0[k] * r;
        a1[n] += x1[k] * r;
        a2[n] += x2[k] * r;
        a3[n] += x3[k] * r;
      }
    }
    float* y0 = y + p * width;
#pragma GCC unroll 4
    for (std::size_t n = 0; n < N; ++n) {
      std::memcpy(y0 + 16 * n, &a0[n], sizeof(Lanes));
      std::memcpy(y0 + width + 16 * n, &a1[n], sizeof(Lanes));
      std::memcpy(y0 + 2 * width + 16 * n, &a2[n], sizeof(Lanes));
      std::memcpy(y0 + 3 * width + 16 * n, &a3[n], sizeof(Lanes));
    }
  }
}

}  // namespace

// Plain loops that the compiler vectorises for each instruction set listed; the shipped library
// runs on any x86-64 and picks the widest clone the processor has.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define KELTO_CLONED __attribute__((target_clones("avx512f", "arch=x86-64-v3", "avx2", "default")))
#else
#define KELTO_CLONED
#endif

KELTO_CLONED void MultiplyPixels(const float* x, std::size_t pixels, std::size_t depth,
                                 const float* ct, std::size_t width, float* y) {
  std::size_t v = 0;
  for (; v + 32 <= width; v += 32) {
    Panel<2>(x, pixels, depth, ct + v, width, y + v);
  }
  if (v < width) {
    Panel<1>(x, pixels, depth, ct + v, width, y + v);
  }
}

KELTO_CLONED void ConvertDense(std::uint32_t sample_type, const unsigned char* samples,
                               std::size_t count, std::size_t bands, float factor, double fill,
                               float* x, unsigned char* holds_fill) {
  WithSampleType(sample_type, [&](auto zero) {
    using T = decltype(zero);
    // In float: a sample of up to 24 bits converts exactly, and the product rounds once.
    for (std::size_t i = 0; i < count; ++i) {
      x[i] = static_cast<float>(datatypes::LoadSample<T>(samples, i)) * factor;
    }
    if (holds_fill == nullptr || !FitsSampleType<T>(fill)) {
      return;
    }
    const T fill_sample = static_cast<T>(fill);
    if (!(static_cast<double>(fill_sample) == fill)) {
      return;
    }
    for (std::size_t p = 0; p < count / bands; ++p) {
      unsigned char found = 0;
      for (std::size_t b = 0; b < bands; ++b) {
        found |= datatypes::LoadSample<T>(samples, p * bands + b) == fill_sample ? 1 : 0;
      }
      holds_fill[p] = found;
    }
  });
}

KELTO_CLONED void WriteDense(const float* y, std::size_t pixels, std::size_t width,
                             std::size_t virtual_bands, const unsigned char* without_value,
                             float* out) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (std::size_t p = 0; p < pixels; ++p, out += virtual_bands) {
    const float* values = y + p * width;
    const bool none = without_value[p] != 0;
    for (std::size_t v = 0; v < virtual_bands; ++v) {
      out[v] = none ? nan : values[v];
    }
  }
}

}  // namespace kelto::hyperspectral

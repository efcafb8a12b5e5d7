#include "block_kernel.h"

namespace kelto::hyperspectral {

// Four rows of c against sixteen columns of x at a time, accumulated in registers: per step of the
// depth two loads of x (one with 512-bit vectors) serve 64 multiply-adds. Plain loops that the
// compiler vectorises for each instruction set listed; the shipped library runs on any x86-64 and
// picks the widest clone the processor has.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("arch=skylake-avx512", "arch=haswell", "default")))
#endif
void MultiplyBlock(const float* c, std::size_t rows, std::size_t depth, const float* x,
                   std::size_t columns, float* y) {
  for (std::size_t r = 0; r < rows; r += kKernelRows) {
    const float* c0 = c + r * depth;
    const float* c1 = c0 + depth;
    const float* c2 = c1 + depth;
    const float* c3 = c2 + depth;
    for (std::size_t p = 0; p < columns; p += kKernelColumns) {
      float a0[kKernelColumns] = {};
      float a1[kKernelColumns] = {};
      float a2[kKernelColumns] = {};
      float a3[kKernelColumns] = {};
      for (std::size_t k = 0; k < depth; ++k) {
        const float* row = x + k * columns + p;
        const float w0 = c0[k];
        const float w1 = c1[k];
        const float w2 = c2[k];
        const float w3 = c3[k];
        for (std::size_t j = 0; j < kKernelColumns; ++j) {
          a0[j] += w0 * row[j];
          a1[j] += w1 * row[j];
          a2[j] += w2 * row[j];
          a3[j] += w3 * row[j];
        }
      }
      float* y0 = y + r * columns + p;
      for (std::size_t j = 0; j < kKernelColumns; ++j) {
        y0[j] = a0[j];
        y0[columns + j] = a1[j];
        y0[2 * columns + j] = a2[j];
        y0[3 * columns + j] = a3[j];
      }
    }
  }
}

}  // namespace kelto::hyperspectral

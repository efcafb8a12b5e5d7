// The inner product of the block correction, kept in a translation unit of its own so that it can
// be compiled for several instruction sets and the best one chosen when the library loads.
#pragma once

#include <cstddef>

namespace kelto::hyperspectral {

// The product's blocking: rows come in groups of kKernelRows and columns in groups of
// kKernelColumns, and the operands are padded to them.
constexpr std::size_t kKernelRows = 4;
constexpr std::size_t kKernelColumns = 16;

// y := c x, with c rows x depth, x depth x columns and y rows x columns, all row-major and dense.
// rows must be a multiple of kKernelRows and columns one of kKernelColumns.
void MultiplyBlock(const float* c, std::size_t rows, std::size_t depth, const float* x,
                   std::size_t columns, float* y);

}  // namespace kelto::hyperspectral

// Sizes of image blocks and tables, refused before they wrap or exceed what one object can span,
// and the memory of the machine that bounds them by default.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>

namespace kelto::datatypes::detail {

// The product of factors; throws std::length_error naming what is counted when it exceeds the
// largest object size. A zero factor gives zero whatever the others are.
inline unsigned long CheckedProduct(std::initializer_list<unsigned long> factors,
                                    const char* what) {
  constexpr auto kLimit = static_cast<unsigned long>(PTRDIFF_MAX);
  unsigned long product = 1;
  bool too_large = false;
  for (unsigned long factor : factors) {
    if (factor == 0) {
      return 0;
    }
    too_large = too_large || __builtin_mul_overflow(product, factor, &product) || product > kLimit;
  }
  if (too_large) {
    std::string text = std::string(what) + " of ";
    const char* separator = "";
    for (unsigned long factor : factors) {
      text += separator + std::to_string(factor);
      separator = " x ";
    }
    throw std::length_error(text + " is too large");
  }
  return product;
}

// a + b, with the same limit and error as CheckedProduct.
inline unsigned long CheckedSum(unsigned long a, unsigned long b, const char* what) {
  unsigned long sum = 0;
  if (__builtin_add_overflow(a, b, &sum) || sum > static_cast<unsigned long>(PTRDIFF_MAX)) {
    throw std::length_error(std::string(what) + " of " + std::to_string(a) + " + " +
                            std::to_string(b) + " bytes is too large");
  }
  return sum;
}

// The machine's physical memory in bytes; the largest object size when the system can't tell.
inline unsigned long PhysicalMemoryBytes() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long page_size = ::sysconf(_SC_PAGESIZE);
  unsigned long bytes = 0;
  if (pages <= 0 || page_size <= 0 ||
      __builtin_mul_overflow(static_cast<unsigned long>(pages),
                             static_cast<unsigned long>(page_size), &bytes) ||
      bytes > static_cast<unsigned long>(PTRDIFF_MAX)) {
    return static_cast<unsigned long>(PTRDIFF_MAX);
  }
  return bytes;
}

}  // namespace kelto::datatypes::detail

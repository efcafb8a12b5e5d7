// Sizes of image blocks and tables, refused before they wrap or exceed what one object can span.
#pragma once

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

}  // namespace kelto::datatypes::detail

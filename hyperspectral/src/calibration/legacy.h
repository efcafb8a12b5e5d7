// What the readers of old calibration forms share: the scale of the 10-bit digital numbers in
// which the first measuring tool stored responses and heights, and the safe conversion of the
// counts that those forms derive from numbers in the file.
#pragma once

#include <cmath>
#include <cstddef>

namespace kelto::hyperspectral::legacy {

// 1/1024: a response or peak height of 10 bits as a fraction.
constexpr double kTenBitScale = 0.0009765625;

// The whole count that a computed number stands for, truncated towards zero, when it is a count
// of at most `limit`; false for a negative, non-finite or larger number, which no real
// calibration gives and which must neither be truncated (undefined below -1) nor allocated.
inline bool CountOf(double number, std::size_t limit, std::size_t& count) {
  if (!(number > -1.0) || !(number < static_cast<double>(limit) + 1.0)) {
    return false;
  }
  count = number < 0.0 ? 0 : static_cast<std::size_t>(number);
  return true;
}

}  // namespace kelto::hyperspectral::legacy

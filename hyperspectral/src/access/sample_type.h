// The one place where the sample-type codes of band images meet C++ types, for the readers of
// samples inside the library (the data accessor and the block correction).
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include <kelto/datatypes/band_image_data_format.h>

namespace kelto::hyperspectral {

// Calls read with a value of the C++ type that samples of the given code are read as; the one
// place where the codes meet types. Codes 0 and above 14 are refused (std::logic_error).
template <typename Read>
auto WithSampleType(std::uint32_t data_type, Read&& read) {
  switch (data_type) {
    case datatypes::BandImageDataFormat::kChar:
      return read(char{});
    case datatypes::BandImageDataFormat::kSignedChar:
      return read(static_cast<signed char>(0));
    case datatypes::BandImageDataFormat::kUnsignedChar:
      return read(static_cast<unsigned char>(0));
    case datatypes::BandImageDataFormat::kShort:
    case datatypes::BandImageDataFormat::kInt16:
      return read(short{});
    case datatypes::BandImageDataFormat::kUnsignedShort:
      return read(static_cast<unsigned short>(0));
    case datatypes::BandImageDataFormat::kInt:
    case datatypes::BandImageDataFormat::kInt32:
      return read(int{});
    case datatypes::BandImageDataFormat::kUInt64:
    case datatypes::BandImageDataFormat::kUnsignedLong:
      return read(0ul);
    case datatypes::BandImageDataFormat::kUnsignedInt:
      return read(0u);
    case datatypes::BandImageDataFormat::kLong:
      return read(0l);
    case datatypes::BandImageDataFormat::kFloat:
      return read(0.0f);
    case datatypes::BandImageDataFormat::kDouble:
      return read(0.0);
    default:
      throw std::logic_error("Unexpected output data type.");
  }
}

// Whether static_cast<T>(value) is defined: a value within the range of the sample type T (after
// truncation for integers), or, for floating types, an infinity or NaN. A fill value outside the
// range equals no sample of the type.
template <typename T>
bool FitsSampleType(double value) {
  if constexpr (std::is_floating_point_v<T>) {
    return !std::isfinite(value) || std::fabs(value) <= std::numeric_limits<T>::max();
  } else {
    // max() + 1 is a power of two, exact as a double also where max() itself is not.
    const double above = static_cast<double>(std::numeric_limits<T>::max() / 2 + 1) * 2.0;
    return value >= static_cast<double>(std::numeric_limits<T>::lowest()) && value < above;
  }
}

}  // namespace kelto::hyperspectral

// One measured response of one band: the response curve, its wavelengths and the band's number.
// The flat list of a calibration's filter responses is made of these.
#pragma once

#include <vector>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT FilterResponse {
 public:
  FilterResponse() = default;
  // Copies count values of each array. Throws std::invalid_argument for a null array when count
  // is not 0.
  FilterResponse(const double* response_, const double* wavelengths_, unsigned long count,
                 unsigned long index_);
  FilterResponse(FilterResponse const&) = default;
  FilterResponse& operator=(FilterResponse const&) = default;
  FilterResponse(FilterResponse&&) = default;
  FilterResponse& operator=(FilterResponse&&) = default;
  virtual ~FilterResponse() = default;

  std::vector<double> response;
  std::vector<double> wavelengths;
  unsigned long index = 0;  // the band's number
};

}  // namespace kelto::common

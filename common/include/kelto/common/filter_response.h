// One measured response of one band: the response curve, its wavelengths, the band's number and
// the two strongest peaks found in it. The flat list of a calibration's filter responses, on
// which a correction computation works, is made of these.
// Thread-safety: a plain value without a lock, used by one thread at a time.
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

  // A peak's centre, width and height; all 0.0 where the band has no such peak.
  struct Peak {
    double wavelength_nm = 0.0;
    double fwhm_nm = 0.0;
    double quantum_efficiency = 0.0;
  };

  std::vector<double> response;
  std::vector<double> wavelengths;
  unsigned long index = 0;  // the band's number
  Peak first_peak;
  Peak second_peak;
};

}  // namespace kelto::common

#include <kelto/common/filter_response.h>

#include <stdexcept>
#include <string>

namespace kelto::common {

FilterResponse::FilterResponse(const double* response_, const double* wavelengths_,
                               unsigned long count, unsigned long index_)
    : index(index_) {
  if (count != 0 && (response_ == nullptr || wavelengths_ == nullptr)) {
    throw std::invalid_argument("FilterResponse: no data for " + std::to_string(count) +
                                " values of band " + std::to_string(index_));
  }
  response.assign(response_, response_ + count);
  wavelengths.assign(wavelengths_, wavelengths_ + count);
}

}  // namespace kelto::common

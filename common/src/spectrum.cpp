#include <kelto/common/spectrum.h>

namespace kelto::common {

void Spectrum::Clear() {
  *this = Spectrum();
}

}  // namespace kelto::common

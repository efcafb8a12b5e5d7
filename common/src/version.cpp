#include <kelto/common/version.h>

namespace kelto::common {

std::string GetVersionString() {
  return KELTO_VERSION;
}

}  // namespace kelto::common

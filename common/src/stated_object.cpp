#include <kelto/common/stated_object.h>

namespace kelto::common {

// Out of line, so that the class's type information lives in this library only.
StatedObject::~StatedObject() = default;

}  // namespace kelto::common

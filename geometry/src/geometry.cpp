#include <kelto/geometry.h>

#include <kelto/common/version.h>

namespace kelto::geometry {

std::string GetVersionString() { return common::GetVersionString(); }

}  // namespace kelto::geometry

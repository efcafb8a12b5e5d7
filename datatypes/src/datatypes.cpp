#include <kelto/datatypes.h>

#include <kelto/common/version.h>

namespace kelto::datatypes {

std::string GetVersionString() { return common::GetVersionString(); }

}  // namespace kelto::datatypes

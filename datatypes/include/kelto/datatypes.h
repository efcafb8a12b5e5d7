// Everything of libkelto_datatypes: numeric containers and band images of the family.
#pragma once

#include <string>

#include <kelto/common.h>
#include <kelto/datatypes/export.h>
#include <kelto/datatypes/matrix.h>
#include <kelto/datatypes/vector.h>

namespace kelto::datatypes {

// The version of this library, the same as the family's.
KELTO_DATATYPES_EXPORT std::string GetVersionString();

}  // namespace kelto::datatypes

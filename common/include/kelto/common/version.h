// The version of the family's libraries, as the build gave it; programs print it and records
// may stamp it into what they write.
// Thread-safety: a constant; safe from any thread.
#pragma once

#include <string>

#include <kelto/common/export.h>

namespace kelto::common {

// "major.minor.patch" of the project that built this library.
KELTO_COMMON_EXPORT std::string GetVersionString();

}  // namespace kelto::common

// The families of sensor chips that a calibration can describe, with their text forms in files.
// The sensor block of a calibration stores one and decides by it which further fields exist.
// Thread-safety: the translations are read-only after load; any thread may call them.
#pragma once

#include <cstdint>
#include <string>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT SensorTypes {
 public:
  enum eType : std::int32_t { Unknown = 0, VKR9 = 1, GENERIC = 2, TEM480 = 3 };

  // "Unknown", "VKR9", "GENERIC", "TEM480"; a value outside the enumeration is "Unknown".
  static std::string ToString(const eType& type);
  // Exact, case-sensitive; any other text is Unknown, which the owning record then reports.
  static eType FromString(const std::string& text);
};

}  // namespace kelto::common

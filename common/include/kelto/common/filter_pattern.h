// The families of filter arrangements that the family's sensors carry on the chip, with their
// text forms. The filter block of a calibration and the parameter documents name them.
// Thread-safety: the translations are read-only after load; any thread may call them.
#pragma once

#include <cstdint>
#include <string>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT FilterPattern {
 public:
  enum eType : std::int32_t {
    Unknown = 0,
    QL100 = 1,
    QL150 = 2,
    TZT32 = 3,
    MZT3x3 = 4,
    MZT4x4 = 5,
    MZT5x5 = 6,
    DUAL_MZT = 7,
  };

  // The name of the pattern ("QL100", "MZT4x4", ...); "Unknown" for Unknown and for a value
  // outside the enumeration.
  static std::string ToString(const eType& type);
  // Exact, case-sensitive; any other text is Unknown.
  static eType FromString(const std::string& text);
};

}  // namespace kelto::common

// Reports errors meant for a person. A thin front of the Logger: the messages go to the Logger's
// sink at level Error under the name "MessageReporter".
// Thread-safety: any thread; it writes through the Logger's locked sink.
#pragma once

#include <string>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT MessageReporter {
 public:
  static void Error(const std::string& message);
};

}  // namespace kelto::common

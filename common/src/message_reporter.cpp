#include <kelto/common/message_reporter.h>

#include <kelto/common/logger.h>

namespace kelto::common {

void MessageReporter::Error(const std::string& message) {
  Logger("MessageReporter").Error(message);
}

}  // namespace kelto::common

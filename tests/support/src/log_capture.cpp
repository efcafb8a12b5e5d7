#include <kelto/test_support/log_capture.h>

namespace kelto::testing {

using common::Logger;

LogCapture::LogCapture() {
  Logger::SetSink([this](Logger::eLevel level, const std::string& name,
                         const std::string& message) { lines.emplace_back(level, name, message); });
}

LogCapture::~LogCapture() {
  Logger::SetSink(nullptr);
}

std::vector<std::string> LogCapture::Messages(Logger::eLevel level) const {
  std::vector<std::string> messages;
  for (auto const& [line_level, name, message] : lines) {
    if (line_level == level) {
      messages.push_back(message);
    }
  }
  return messages;
}

}  // namespace kelto::testing

// Collects what reaches the log while it lives, then gives the log back to the default sink.
#pragma once

#include <kelto/common/logger.h>

#include <string>
#include <tuple>
#include <vector>

namespace kelto::common::testing {

class LogCapture {
 public:
  using Line = std::tuple<Logger::eLevel, std::string, std::string>;  // level, logger, message

  LogCapture() {
    Logger::SetSink(
        [this](Logger::eLevel level, const std::string& name, const std::string& message) {
          lines.emplace_back(level, name, message);
        });
  }
  LogCapture(LogCapture const&) = delete;
  LogCapture& operator=(LogCapture const&) = delete;
  ~LogCapture() { Logger::SetSink(nullptr); }

  // The messages of one level, in order.
  std::vector<std::string> Messages(Logger::eLevel level) const {
    std::vector<std::string> messages;
    for (auto const& [line_level, name, message] : lines) {
      if (line_level == level) {
        messages.push_back(message);
      }
    }
    return messages;
  }

  std::vector<Line> lines;
};

}  // namespace kelto::common::testing

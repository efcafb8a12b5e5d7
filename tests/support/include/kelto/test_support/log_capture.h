// Collects what reaches the log while it lives, then gives the log back to the default sink.
// One capture at a time: the sink is process-wide.
#pragma once

#include <kelto/common/logger.h>

#include <string>
#include <tuple>
#include <vector>

namespace kelto::testing {

class LogCapture {
 public:
  using Line = std::tuple<common::Logger::eLevel, std::string, std::string>;  // level, logger, text

  LogCapture();
  LogCapture(LogCapture const&) = delete;
  LogCapture& operator=(LogCapture const&) = delete;
  ~LogCapture();

  // The messages of one level, in order.
  std::vector<std::string> Messages(common::Logger::eLevel level) const;

  std::vector<Line> lines;
};

}  // namespace kelto::testing

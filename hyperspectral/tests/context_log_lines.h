// The lines that the context code logs, split into function, source line and text, so that a
// test compares the function and the text whole without knowing where in the source the line
// was written.
#pragma once

#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <kelto/test_support/log_capture.h>

namespace kelto::testing {

// Level, function, text.
using LogLine = std::tuple<common::Logger::eLevel, std::string, std::string>;

// Every captured line, each of which must come from the logger `name`. A line not of the form
// "<function> (<line>) - <text>" (an event of a read, as the read's result writes it) keeps its
// whole message as text, with an empty function.
inline std::vector<LogLine> ContextLogLines(const kelto::testing::LogCapture& log,
                                            const std::string& name) {
  static const std::regex form("(\\w+) \\(([1-9][0-9]*)\\) - (.*)");
  std::vector<LogLine> lines;
  for (const auto& [level, logger, message] : log.lines) {
    EXPECT_EQ(logger, name) << message;
    std::smatch match;
    if (std::regex_match(message, match, form)) {
      lines.emplace_back(level, match[1], match[3]);
    } else {
      lines.emplace_back(level, "", message);
    }
  }
  return lines;
}

}  // namespace kelto::testing

#include "command_support.h"

#include <algorithm>
#include <sstream>

namespace kelto::tools {

using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

std::string ProblemEvents(const ParsingResult& result) {
  std::ostringstream text;
  for (const Event& event : result.events()) {
    if (event.state != ParsingResult::Ok) {
      text << "\n  " << event.ToString();
    }
  }
  return text.str();
}

void ReadRecord(common::XMLSerializableInterface& record, const std::string& path,
                const std::string& root, const std::string& what) {
  ParsingResult result;
  record.ReadFile(result, path);
  const auto start =
      std::find_if(result.events().begin(), result.events().end(),
                   [](const Event& event) { return event.source == Event::ReadStart; });
  if (start == result.events().end()) {
    throw CommandError{kUnreadable,
                       "cannot read " + what + " " + path + ":" + ProblemEvents(result)};
  }
  if (start->detail != root) {
    throw CommandError{kUnreadable,
                       path + " holds a \"" + start->detail + "\", not a \"" + root + "\""};
  }
  if (result.state() == ParsingResult::Error) {
    throw CommandError{kErrors, what + " " + path + " is in error:" + ProblemEvents(result)};
  }
}

}  // namespace kelto::tools

#include "command_support.h"

#include <sys/resource.h>

#include "record_kinds.h"

#include <algorithm>
#include <sstream>

namespace kelto::tools {

using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

long PeakMemoryKib() {
  rusage usage{};
  return ::getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss : -1;
}

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
  std::string problem;
  const std::string article =
      std::string("aeiou").find(what.front()) == std::string::npos ? "a " : "an ";
  switch (ReadRecordFile(record, path, root, article + what, problem)) {
    case RecordProblem::kNone:
      return;
    case RecordProblem::kUnreadable:
      throw CommandError{kUnreadable, "cannot read " + what + " " + problem};
    case RecordProblem::kOtherRecord:
      throw CommandError{kUnreadable, problem};
    case RecordProblem::kInError:
      throw CommandError{kErrors, problem};
  }
}

void ShowProgress(const char* what, unsigned long done, unsigned long total) {
  std::cerr << "\r  " << what << ' ' << done << " of " << total << std::flush;
  if (done == total) {
    std::cerr << "\r\033[K" << std::flush;
  }
}

}  // namespace kelto::tools

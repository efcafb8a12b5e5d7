#include "check_command.h"

#include <nlohmann/json.hpp>

#include <iomanip>
#include <iostream>

#include <kelto/common/xml_serializable_interface.h>

#include "exit_codes.h"
#include "record_kinds.h"

namespace kelto::tools {

namespace {

using common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

struct Counts {
  std::size_t records = 0;
  std::size_t warnings = 0;
  std::size_t errors = 0;
};

Counts Count(const ParsingResult& result) {
  Counts counts;
  for (const Event& event : result.events()) {
    counts.records += event.source == Event::ReadStart ? 1 : 0;
    counts.warnings += event.state == ParsingResult::Warning ? 1 : 0;
    counts.errors += event.state == ParsingResult::Error ? 1 : 0;
  }
  return counts;
}

ExitCode Verdict(const ParsingResult& result) {
  switch (result.state()) {
    case ParsingResult::Ok:
      return kOk;
    case ParsingResult::Warning:
      return kWarnings;
    default:
      return kErrors;
  }
}

const char* VerdictWord(ExitCode code) {
  return code == kOk ? "sound" : code == kWarnings ? "warnings" : "errors";
}

std::string Plural(std::size_t count, const std::string& word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

// A file without a record to check: the reason on standard error and, for --json, a document
// that says so.
int Unreadable(const CheckRequest& request, const std::string& problem) {
  std::cerr << "kelto-hsi: " << problem << '\n';
  if (request.json) {
    std::cout << nlohmann::json{{"file", request.file},
                                {"verdict", "unreadable"},
                                {"problem", problem},
                                {"exit_code", static_cast<int>(kUnreadable)}}
                     .dump(2)
              << '\n';
  }
  return kUnreadable;
}

}  // namespace

int RunCheck(const CheckRequest& request) {
  std::string problem;
  const std::string root = ReadRootElement(request.file, problem);
  if (root.empty()) {
    return Unreadable(request, "cannot read " + problem);
  }
  const RecordKind* kind = FindRecordKind(root);
  if (kind == nullptr) {
    std::string known;
    for (const RecordKind& candidate : RecordKinds()) {
      known += " " + candidate.root;
    }
    return Unreadable(request,
                      request.file + ": unknown record \"" + root + "\"; known roots:" + known);
  }

  auto record = kind->make();
  ParsingResult result;
  record->ReadFile(result, request.file);
  kind->check(*record, result);
  const Counts counts = Count(result);
  const ExitCode code = Verdict(result);
  const auto listed = [&request](const Event& event) {
    return request.verbose || event.state != ParsingResult::Ok;
  };

  if (request.json) {
    nlohmann::json events = nlohmann::json::array();
    for (const Event& event : result.events()) {
      if (listed(event)) {
        events.push_back({{"state", Event::ToString(event.state)},
                          {"source", Event::ToString(event.source)},
                          {"text", event.detail}});
      }
    }
    std::cout
        << nlohmann::json{{"file", request.file},           {"record", kind->root},
                          {"records_read", counts.records}, {"warnings", counts.warnings},
                          {"errors", counts.errors},        {"events", events},
                          {"verdict", VerdictWord(code)},   {"exit_code", static_cast<int>(code)}}
               .dump(2)
        << '\n';
    return code;
  }

  std::cout << "file:          " << request.file << '\n'
            << "record:        " << kind->root << " (" << kind->class_name << ")\n";
  kind->summarise(*record, std::cout, request.detailed);
  if (counts.warnings + counts.errors > 0 || request.verbose) {
    std::cout << "events:\n";
    for (const Event& event : result.events()) {
      if (listed(event)) {
        std::cout << "  " << std::left << std::setw(8) << Event::ToString(event.state)
                  << std::setw(19) << Event::ToString(event.source) << event.detail << '\n';
      }
    }
  }
  std::cout << "verdict:       " << VerdictWord(code) << ", " << Plural(counts.records, "record")
            << " read, " << Plural(counts.errors, "error") << ", "
            << Plural(counts.warnings, "warning") << '\n';
  return code;
}

}  // namespace kelto::tools

// The events a read reports and the result that collects them.
#include <kelto/common/xml_serializable_interface.h>

#include <string>

#include <kelto/common/logger.h>
#include <kelto/common/translator.h>

namespace kelto::common {

using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

Event::Event(eParserState const& state_, eEventSource const& source_, std::string const& detail_)
    : state(state_), source(source_), detail(detail_) {}

namespace {

class StateNames : public Translator<ParsingResult::eParserState> {
 public:
  StateNames() {
    Register("Ok", ParsingResult::Ok);
    Register("Warning", ParsingResult::Warning);
    Register("Error", ParsingResult::Error);
  }
};

class SourceNames : public Translator<Event::eEventSource> {
 public:
  SourceNames() {
    Register("UnsupportedVersion", Event::UnsupportedVersion);
    Register("MissingVersion", Event::MissingVersion);
    Register("MissingElement", Event::MissingElement);
    Register("MissingAttribute", Event::MissingAttribute);
    Register("MissingValue", Event::MissingValue);
    Register("SanityCheck", Event::SanityCheck);
    Register("LegacyDefault", Event::LegacyDefault);
    Register("ReadStart", Event::ReadStart);
  }
};

}  // namespace

// Local statics: events may be worded while other files' statics are still being made.
std::string Event::ToString(eParserState const& state) {
  static const StateNames names;
  return names.TextOr(state, "State(" + std::to_string(static_cast<int>(state)) + ")");
}

std::string Event::ToString(eEventSource const& source) {
  static const SourceNames names;
  return names.TextOr(source, "Source(" + std::to_string(static_cast<int>(source)) + ")");
}

std::string Event::ToString() const {
  return ToString(state) + " " + ToString(source) + ": " + detail;
}

bool Event::operator==(Event const& other) const {
  return state == other.state && source == other.source && detail == other.detail;
}

ParsingResult::ParsingResult(bool const& log_events, bool const& throw_on_error,
                             bool const& keep_ok, bool const& keep_warnings,
                             bool const& keep_errors)
    : log_events_(log_events),
      throw_on_error_(throw_on_error),
      keep_ok_(keep_ok),
      keep_warnings_(keep_warnings),
      keep_errors_(keep_errors) {}

ParsingResult& ParsingResult::operator<<(Event const& event) {
  if (event.state > state_) {
    state_ = event.state;
  }
  const bool keep = (event.state == Ok && keep_ok_) || (event.state == Warning && keep_warnings_) ||
                    (event.state >= Error && keep_errors_);
  if (keep) {
    events_.push_back(event);
  }
  if (log_events_) {
    if (event.state >= Error) {
      Logger::StaticError(event.ToString().c_str());
    } else {
      Logger::StaticInfo(event.ToString());
    }
  }
  return *this;
}

void ParsingResult::PushEventsToLogger(Logger& logger, std::deque<Event> const& events) {
  for (const Event& event : events) {
    if (event.state >= Error) {
      logger.Error(event.ToString());
    } else {
      logger.Info(event.ToString());
    }
  }
}

}  // namespace kelto::common

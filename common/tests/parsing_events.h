// Short forms for the events of a read, and a readable print of them, for the tests of records.
#pragma once

#include <kelto/common/xml_serializable_interface.h>

#include <ostream>
#include <string>
#include <vector>

namespace kelto::common {

inline void PrintTo(XMLSerializableInterface::ParsingResult::Event const& event, std::ostream* os) {
  *os << event.ToString();
}

namespace testing {

using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

inline Event ReadStart(std::string const& tag) {
  return Event(ParsingResult::Ok, Event::ReadStart, tag);
}

inline Event Failed(Event::eEventSource source, std::string const& detail) {
  return Event(ParsingResult::Error, source, detail);
}

// The events of a read as a vector, to compare with a list in one assertion.
inline std::vector<Event> Events(ParsingResult const& result) {
  return {result.events().begin(), result.events().end()};
}

}  // namespace testing
}  // namespace kelto::common

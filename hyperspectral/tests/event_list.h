// Test helper: the events of a read as (state, source, detail) triples, so that a whole event
// sequence is asserted in one comparison and a failure prints both sequences.
#pragma once

#include <string>
#include <tuple>
#include <vector>

#include <kelto/common/xml_serializable_interface.h>

namespace kelto::testing {

using EventTriple = std::tuple<int, int, std::string>;
using EventList = std::vector<EventTriple>;

inline EventList Events(const common::XMLSerializableInterface::ParsingResult& result) {
  EventList list;
  for (const auto& event : result.events()) {
    list.emplace_back(static_cast<int>(event.state), static_cast<int>(event.source), event.detail);
  }
  return list;
}

// Reads a record from literal XML and returns the result.
template <typename Record>
common::XMLSerializableInterface::ParsingResult Read(Record& record, const std::string& xml) {
  common::XMLSerializableInterface::ParsingResult result;
  record.ReadString(result, xml);
  return result;
}

}  // namespace kelto::testing

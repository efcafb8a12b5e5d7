#include <kelto/test_support/event_list.h>

#include <gtest/gtest.h>

namespace kelto::common {

void PrintTo(XMLSerializableInterface::ParsingResult::Event const& event, std::ostream* os) {
  *os << event.ToString();
}

}  // namespace kelto::common

namespace kelto::testing {

namespace {

EventList Triples(const ParsingResult& result, bool keep_ok) {
  EventList list;
  for (const auto& event : result.events()) {
    if (keep_ok || event.state != ParsingResult::Ok) {
      list.emplace_back(static_cast<int>(event.state), static_cast<int>(event.source),
                        event.detail);
    }
  }
  return list;
}

}  // namespace

EventList Refused(const std::string& tag, int source) {
  return {ReadStart(tag), Error(source, tag)};
}

EventList Events(const ParsingResult& result) {
  return Triples(result, true);
}

EventList NotOk(const ParsingResult& result) {
  return Triples(result, false);
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) {
    text.replace(at, from.size(), to);
  }
  return text;
}

void ExpectInOrder(const std::string& text, const std::vector<std::string>& parts) {
  std::size_t from = 0;
  for (const std::string& part : parts) {
    const std::size_t at = text.find(part, from);
    ASSERT_NE(at, std::string::npos) << part << " after offset " << from << " in\n" << text;
    from = at + part.size();
  }
}

}  // namespace kelto::testing

// The events of a read as (state, source, detail) triples, so that a whole event sequence is
// asserted in one comparison and a failure prints both sequences, with short builders for the
// triples, readers of literal XML and a few operations on written text.
#pragma once

#include <kelto/common/xml_serializable_interface.h>

#include <exception>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace kelto::common {

// Prints an event as its own text when an assertion on events fails.
void PrintTo(XMLSerializableInterface::ParsingResult::Event const& event, std::ostream* os);

}  // namespace kelto::common

namespace kelto::testing {

using EventTriple = std::tuple<int, int, std::string>;
using EventList = std::vector<EventTriple>;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;

// States and sources by their numbers, written out so that a renumbering shows.
constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingAttribute = 14, kMissingValue = 20, kSanityCheck = 30, kLegacyDefault = 31,
              kReadStart = 40;

inline EventTriple ReadStart(const std::string& tag) {
  return {kOk, kReadStart, tag};
}
inline EventTriple Ok(int source, const std::string& detail) {
  return {kOk, source, detail};
}
inline EventTriple Warning(int source, const std::string& detail) {
  return {kWarning, source, detail};
}
inline EventTriple Error(int source, const std::string& detail) {
  return {kError, source, detail};
}
inline EventTriple Check(const std::string& rule) {
  return Error(kSanityCheck, rule);
}
inline EventTriple CheckWarning(const std::string& rule) {
  return Warning(kSanityCheck, rule);
}

// A read whose version the record refuses: it starts and stops at once.
EventList Refused(const std::string& tag, int source = kUnsupportedVersion);

EventList Events(const ParsingResult& result);

// Only the events worse than Ok: what a reader of an old file reports beyond its bookkeeping.
EventList NotOk(const ParsingResult& result);

// Reads a record from literal XML and returns the result.
template <typename Record>
ParsingResult Read(Record& record, const std::string& xml) {
  ParsingResult result;
  record.ReadString(result, xml);
  return result;
}

// Reads a record from literal XML through ReadXML itself: an exception that the reader lets out
// reaches the caller with its own type and text (ReadString alone would turn it into an event).
template <typename Record>
void ReadOrThrow(Record& record, const std::string& xml) {
  class Relay : public common::XMLSerializableInterface {
   public:
    explicit Relay(Record& inner) : inner_(inner) {}
    void ReadXML(ParsingResult& result, _xmlNode* const& node) override {
      try {
        inner_.ReadXML(result, node);
      } catch (...) {
        error_ = std::current_exception();
      }
    }
    void WriteXML(_xmlNode*&) const override {}
    void Rethrow() const {
      if (error_) {
        std::rethrow_exception(error_);
      }
    }

   private:
    Record& inner_;
    std::exception_ptr error_;
  };
  Relay relay(record);
  ParsingResult result;
  relay.ReadString(result, xml);
  relay.Rethrow();
}

// The events of the record's own sanity checks.
template <typename Record>
EventList Checks(const Record& record) {
  ParsingResult result;
  record.RunSanityChecks(result);
  return Events(result);
}

// The text with the first `from` replaced; a `from` that is not there fails the test.
std::string Replace(std::string text, const std::string& from, const std::string& to);

// Each part occurs in the text, after the one before it.
void ExpectInOrder(const std::string& text, const std::vector<std::string>& parts);

}  // namespace kelto::testing

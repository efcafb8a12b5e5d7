// Base of every record of the family that lives in an XML file, and the outcome of a read.
// A record walks libxml2 nodes through the static tools below, keeps one reader per historic file
// version and one writer, and reports every problem of a file as an Event in a ParsingResult
// instead of stopping. Files are parsed here only, safely for untrusted input.
// Thread-safety: a record and its ParsingResult belong to one thread at a time. Parsing keeps no
// shared state of its own (libxml2 is set up once, under std::call_once), so separate records
// can be read in separate threads.
#pragma once

#include <cstdint>
#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/path.h>

struct _xmlNode;

namespace kelto::common {

class Logger;

class KELTO_COMMON_EXPORT XMLSerializableInterface {
 public:
  // How a vector is written. VSM_ATTRIBUTES is the form of every record: an empty element with the
  // attributes "nr_elements" (the count) and "values" (the numbers, separated by single blanks).
  // VSM_TEXT writes the numbers as the element's text, separated by ", ". For attributes holding a
  // std::vector<int>, VSM_ATTRIBUTES separates by single blanks and VSM_TEXT by ", ".
  enum eVectorSerializationMethod : std::int32_t { VSM_TEXT = 0, VSM_ATTRIBUTES = 1 };

  // Documents larger than this are refused before they are parsed.
  static constexpr std::uintmax_t kMaxDocumentBytes = 256u << 20;

  class KELTO_COMMON_EXPORT ParsingResult {
   public:
    enum eParserState : std::int32_t { Ok = 0, Warning = 1, Error = 2 };

    class KELTO_COMMON_EXPORT Event {
     public:
      enum eEventSource : std::int32_t {
        UnsupportedVersion = 11,
        MissingVersion = 12,
        MissingElement = 13,
        MissingAttribute = 14,
        MissingValue = 20,
        SanityCheck = 30,
        LegacyDefault = 31,
        ReadStart = 40,
      };

      Event(eParserState const& state, eEventSource const& source, std::string const& detail);

      // One line for people: "Error MissingElement: width_px".
      std::string ToString() const;
      bool operator==(Event const& other) const;

      static std::string ToString(eParserState const& state);
      static std::string ToString(eEventSource const& source);

      eParserState state;
      eEventSource source;
      std::string detail;
    };

    // log_events: every event is also written to the Logger as it arrives (errors by
    //   StaticError, the rest by StaticInfo).
    // throw_on_error: ReadFile and ReadStream throw std::runtime_error when the document can't be
    //   read, is not well-formed XML, or ends in state Error; without it they always return and
    //   the events tell the whole story.
    // keep_ok, keep_warnings, keep_errors: whether events of that state are kept in events().
    //   state() counts every event, kept or not.
    explicit ParsingResult(bool const& log_events = false, bool const& throw_on_error = false,
                           bool const& keep_ok = true, bool const& keep_warnings = true,
                           bool const& keep_errors = true);

    // Appends the event (if its state is kept) and raises the summary state; never throws on
    // account of a document.
    ParsingResult& operator<<(Event const& event);

    const std::deque<Event>& events() const { return events_; }
    eParserState state() const { return state_; }
    bool throws_on_error() const { return throw_on_error_; }

    static void PushEventsToLogger(Logger& logger, std::deque<Event> const& events);

   private:
    bool log_events_;
    bool throw_on_error_;
    bool keep_ok_;
    bool keep_warnings_;
    bool keep_errors_;
    std::deque<Event> events_;
    eParserState state_ = Ok;
  };

  XMLSerializableInterface() = default;
  XMLSerializableInterface(XMLSerializableInterface const&) = default;
  XMLSerializableInterface& operator=(XMLSerializableInterface const&) = default;
  XMLSerializableInterface(XMLSerializableInterface&&) = default;
  XMLSerializableInterface& operator=(XMLSerializableInterface&&) = default;
  virtual ~XMLSerializableInterface() = default;

  virtual void ReadXML(ParsingResult& result, _xmlNode* const& node) = 0;
  virtual void WriteXML(_xmlNode*& node) const = 0;

  // Reads the file's bytes (regular files up to kMaxDocumentBytes only), parses them and hands
  // the root element to ReadXML. The parser loads nothing from the network or the file system,
  // substitutes no entities and refuses any document with a DOCTYPE; its messages become events
  // and are never printed. Documents must be UTF-8 (or declare ISO-8859-1). Any error the parser
  // reports refuses the document, also one it would let pass (an undefined namespace prefix).
  // Memory is bounded by the document: one whose tree would take more than 16 times its size and
  // 1 MiB (a million empty elements), or with a tag of more than 256 attributes, is refused
  // before the tree is complete. A failure to read or parse is one event (Error, SanityCheck,
  // sentence) and the record keeps its state; with throw_on_error it is a std::runtime_error as
  // well.
  void ReadFile(ParsingResult& result, filesystem::Path const& path);
  void ReadStream(ParsingResult& result, std::istringstream const& stream);
  void ReadString(ParsingResult& result, std::string const& text);

  // The record as a UTF-8 document, indented; the root is the node that WriteXML fills.
  std::string WriteString() const;
  // Writes WriteString() to the file; throws std::runtime_error when it can't be written.
  void WriteFile(filesystem::Path const& path) const;

 protected:
  // Getters: output first, node second, name third, default last. The default is stored when the
  // item is absent; true only if the item was found and could be converted. A value that can't
  // be converted leaves the default too.
  static int _GetVersion(_xmlNode* const& node);
  static std::string _GetTagName(_xmlNode* const& node);
  static std::string _GetData(_xmlNode* const& node);
  static bool _GetElement(_xmlNode*& element, _xmlNode* const& parent, std::string const& name,
                          int const& index);
  static bool _GetElements(std::deque<_xmlNode*>& elements, _xmlNode* const& parent,
                           std::string const& name);

  static bool _GetValue(std::string& value, _xmlNode* const& node, std::string const& name,
                        std::string const& default_value);
  static bool _GetValue(std::wstring& value, _xmlNode* const& node, std::string const& name,
                        std::wstring const& default_value);
  static bool _GetValue(double& value, _xmlNode* const& node, std::string const& name,
                        double const& default_value);
  static bool _GetValue(int& value, _xmlNode* const& node, std::string const& name,
                        int const& default_value);
  static bool _GetValue(unsigned long& value, _xmlNode* const& node, std::string const& name,
                        unsigned long const& default_value);
  static bool _GetValue(bool& value, _xmlNode* const& node, std::string const& name,
                        bool const& default_value);
  // A child element in vector form. Nothing is allocated beyond what the text holds: when
  // "nr_elements" is absent, not a count, or differs from the number of values, the result is
  // false and the output holds the values read, at most "nr_elements" of them. An absent element
  // leaves the output empty. default_value is unused and kept for the callers' symmetry.
  static bool _GetValue(std::vector<double>& value, _xmlNode* const& node, std::string const& name,
                        double const& default_value);

  static bool _GetAttribute(std::string& value, _xmlNode* const& node, std::string const& name,
                            std::string const& default_value);
  static bool _GetAttribute(int& value, _xmlNode* const& node, std::string const& name,
                            int const& default_value);
  static bool _GetAttribute(unsigned long& value, _xmlNode* const& node, std::string const& name,
                            unsigned long const& default_value);
  static bool _GetAttribute(bool& value, _xmlNode* const& node, std::string const& name,
                            bool const& default_value);
  // Integers separated by blanks or commas.
  static bool _GetAttribute(std::vector<int>& value, _xmlNode* const& node, std::string const& name,
                            std::vector<int> const& default_value);

  // A field a reader needs: the getter above, and when the item is missing or unreadable one
  // event (state, source, name) in result. The value then holds the default; returns whether it
  // was read. A reader is a list of these, one line a field.
  template <typename T, typename D>
  static bool _ReadValue(
      ParsingResult& result, T& value, _xmlNode* const& node, std::string const& name,
      D const& default_value, ParsingResult::eParserState state = ParsingResult::Error,
      ParsingResult::Event::eEventSource source = ParsingResult::Event::MissingElement) {
    return _Report(result, _GetValue(value, node, name, default_value), state, source, name);
  }
  template <typename T, typename D>
  static bool _ReadAttribute(
      ParsingResult& result, T& value, _xmlNode* const& node, std::string const& name,
      D const& default_value, ParsingResult::eParserState state = ParsingResult::Error,
      ParsingResult::Event::eEventSource source = ParsingResult::Event::MissingAttribute) {
    return _Report(result, _GetAttribute(value, node, name, default_value), state, source, name);
  }

  // Comma-separated numbers (white space around them is ignored). Returns false at the first
  // field that is not a number, keeping the numbers before it.
  static bool _ReadCSV(std::deque<double>& values, std::string const& text);
  // Exactly count numbers: false when the text holds fewer (the vector then holds those it had,
  // nothing is padded) or a field is not a number; numbers beyond count are ignored.
  static bool _ReadCSV(std::vector<double>& values, std::string const& text,
                       unsigned long const& count);

  // One condition of a RunSanityChecks: pushes (state, SanityCheck, text) when it does not hold,
  // the text being the condition as written in the code. Returns the condition.
  static bool _Check(ParsingResult& result, bool condition, const char* text,
                     ParsingResult::eParserState state = ParsingResult::Error);

  // Writers add to the node they are given. Text that XML can't hold (bytes that are not UTF-8,
  // control characters other than tab and line ends) is written as U+FFFD, so that every written
  // document reads back.
  static void _SetTagName(_xmlNode*& node, std::string const& name);
  static void _SetVersion(_xmlNode*& node, unsigned long const& version);

  static void _SetAttribute(_xmlNode*& node, std::string const& name, std::string const& value);
  static void _SetAttribute(_xmlNode*& node, std::string const& name, const char* value);
  static void _SetAttribute(_xmlNode*& node, std::string const& name, int const& value);
  static void _SetAttribute(_xmlNode*& node, std::string const& name, unsigned long const& value);
  static void _SetAttribute(_xmlNode*& node, std::string const& name, bool const& value);
  static void _SetAttribute(_xmlNode*& node, std::string const& name, std::vector<int> const& value,
                            eVectorSerializationMethod const& method);

  // Scalars as the text of a child element; doubles with 17 significant digits, so that they
  // read back exactly.
  static void _SetValue(_xmlNode*& node, std::string const& name, std::string const& value);
  static void _SetValue(_xmlNode*& node, std::string const& name, const char* value);
  static void _SetValue(_xmlNode*& node, std::string const& name, std::wstring const& value);
  static void _SetValue(_xmlNode*& node, std::string const& name, double const& value);
  static void _SetValue(_xmlNode*& node, std::string const& name, int const& value);
  static void _SetValue(_xmlNode*& node, std::string const& name, unsigned long const& value);
  static void _SetValue(_xmlNode*& node, std::string const& name, bool const& value);
  // A vector with the given number of significant digits per value.
  static void _SetValue(_xmlNode*& node, std::string const& name, std::vector<double> const& value,
                        eVectorSerializationMethod const& method, int const& precision);

  // Adds an empty child element, the container of a list, and hands it back.
  static void _PutChild(_xmlNode*& child, _xmlNode* const& parent, std::string const& name);
  // Adds a child element that the record fills through its WriteXML; the child is then named
  // `name`, whatever tag the record gave it.
  static void _SetElement(_xmlNode*& node, std::string const& name,
                          XMLSerializableInterface const& record);

 private:
  static bool _Report(ParsingResult& result, bool found, ParsingResult::eParserState state,
                      ParsingResult::Event::eEventSource source, std::string const& name);
  void _ReadDocument(ParsingResult& result, std::string const& bytes, std::string const& origin);
};

}  // namespace kelto::common

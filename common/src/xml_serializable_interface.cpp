#include <kelto/common/xml_serializable_interface.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include <kelto/common/logger.h>
#include <kelto/common/strings.h>

namespace kelto::common {

using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

// ---------------------------------------------------------------------------------------------
// Events and results

Event::Event(eParserState const& state_, eEventSource const& source_, std::string const& detail_)
    : state(state_), source(source_), detail(detail_) {}

std::string Event::ToString(eParserState const& state) {
  switch (state) {
    case Ok:
      return "Ok";
    case Warning:
      return "Warning";
    case Error:
      return "Error";
  }
  return "State(" + std::to_string(static_cast<int>(state)) + ")";
}

std::string Event::ToString(eEventSource const& source) {
  switch (source) {
    case UnsupportedVersion:
      return "UnsupportedVersion";
    case MissingVersion:
      return "MissingVersion";
    case MissingElement:
      return "MissingElement";
    case MissingAttribute:
      return "MissingAttribute";
    case MissingValue:
      return "MissingValue";
    case SanityCheck:
      return "SanityCheck";
    case LegacyDefault:
      return "LegacyDefault";
    case ReadStart:
      return "ReadStart";
  }
  return "Source(" + std::to_string(static_cast<int>(source)) + ")";
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

// ---------------------------------------------------------------------------------------------
// Safe parsing of untrusted documents

namespace {

struct DocumentDeleter {
  void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using DocumentPtr = std::unique_ptr<xmlDoc, DocumentDeleter>;

struct ContextDeleter {
  void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};

// What the parser said, collected through the handlers of our own context.
struct Diagnostics {
  std::string first_error;
  // The first error came with the input used up: the document stops before it is complete, as
  // a file cut short by an interrupted copy or write does.
  bool ends_early = false;
  bool doctype_refused = false;
};

std::string Clean(const char* message) {
  std::string text = message == nullptr ? "" : message;
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.pop_back();
  }
  return text;
}

void OnStructuredError(void* user_data, xmlErrorPtr error) {
  auto* context = static_cast<xmlParserCtxt*>(user_data);
  auto* diagnostics = static_cast<Diagnostics*>(context->_private);
  if (diagnostics == nullptr || error == nullptr || error->level < XML_ERR_ERROR ||
      !diagnostics->first_error.empty()) {
    return;
  }
  diagnostics->first_error = "line " + std::to_string(error->line) + ": " + Clean(error->message);
  // libxml2 words a cut like any other fault ("AttValue: ' expected"); where it stands tells.
  const xmlParserInput* input = context->input;
  diagnostics->ends_early = input != nullptr && input->cur != nullptr && input->end != nullptr &&
                            input->cur >= input->end && error->code != XML_ERR_TAG_NAME_MISMATCH;
}

// The few places of libxml2 that still call the plain handlers directly (out of memory in the
// tree builder) land here and stay quiet; the structured handler reports the rest.
void OnPlainError(void* user_data, const char* /*format*/, ...) {
  auto* context = static_cast<xmlParserCtxt*>(user_data);
  auto* diagnostics = static_cast<Diagnostics*>(context->_private);
  if (diagnostics != nullptr && diagnostics->first_error.empty()) {
    diagnostics->first_error = "the XML parser failed";
  }
}

// A warning does not make a document unusable, so it must not be taken for an error.
void OnPlainWarning(void* /*user_data*/, const char* /*format*/, ...) {}

// A DOCTYPE is where entity bombs and external entities live; none of our documents has one, so
// the parser is stopped as soon as it sees one, before its internal subset is read.
void OnDoctype(void* user_data, const xmlChar*, const xmlChar*, const xmlChar*) {
  auto* context = static_cast<xmlParserCtxt*>(user_data);
  auto* diagnostics = static_cast<Diagnostics*>(context->_private);
  if (diagnostics != nullptr) {
    diagnostics->doctype_refused = true;
  }
  xmlStopParser(context);
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Checks the bytes before libxml2 sees them. Encodings other than UTF-8 and ISO-8859-1 are
// refused because libxml2 reports conversion failures of the others through its process-wide
// handler only, which would print to the terminal.
bool CheckBytes(std::string const& bytes, std::string& problem) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0x1f &&
      static_cast<unsigned char>(bytes[1]) == 0x8b) {
    problem = "the file is gzip-compressed; only plain XML documents are read";
    return false;
  }
  if (bytes.find('\0') != std::string::npos) {
    problem = "the file holds NUL bytes: it is not a UTF-8 XML document";
    return false;
  }
  std::size_t start = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  start = bytes.find_first_not_of(" \t\r\n", start);
  if (start == std::string::npos) {
    problem = "the document is empty";
    return false;
  }
  if (bytes[start] != '<') {
    problem = "the document does not start with '<': it is not XML";
    return false;
  }
  if (bytes.compare(start, 5, "<?xml") == 0) {
    // libxml2 reads the encoding of a declaration that never closes too, but never past a '>'.
    const std::size_t end = bytes.find('>', start);
    const std::string declaration =
        bytes.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const std::size_t at = declaration.find("encoding");
    if (at != std::string::npos) {
      const std::size_t open = declaration.find_first_of("\"'", at);
      const std::size_t close =
          open == std::string::npos ? open : declaration.find(declaration[open], open + 1);
      const std::string name = close == std::string::npos
                                   ? std::string()
                                   : Lower(declaration.substr(open + 1, close - open - 1));
      if (name != "utf-8" && name != "utf8" && name != "iso-8859-1" && name != "latin1" &&
          name != "iso_8859-1") {
        problem = "the document's encoding \"" + name + "\" is not read; use UTF-8";
        return false;
      }
    }
  }
  return true;
}

DocumentPtr ParseUntrusted(std::string const& bytes, std::string& problem) {
  static std::once_flag initialized;
  std::call_once(initialized, [] { xmlInitParser(); });

  if (!CheckBytes(bytes, problem)) {
    return nullptr;
  }
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    problem = "the document is too large";
    return nullptr;
  }
  std::unique_ptr<xmlParserCtxt, ContextDeleter> context(
      xmlCreateMemoryParserCtxt(bytes.data(), static_cast<int>(bytes.size())));
  if (!context || context->sax == nullptr) {
    problem = "the XML parser could not be set up";
    return nullptr;
  }
  Diagnostics diagnostics;
  context->_private = &diagnostics;
  context->sax->serror = &OnStructuredError;
  context->sax->error = &OnPlainError;
  context->sax->warning = &OnPlainWarning;
  context->sax->fatalError = &OnPlainError;
  context->sax->internalSubset = &OnDoctype;
  xmlCtxtUseOptions(context.get(), XML_PARSE_NONET);

  xmlParseDocument(context.get());
  DocumentPtr document(context->myDoc);
  context->myDoc = nullptr;

  if (diagnostics.doctype_refused) {
    problem = "the document has a DOCTYPE, which is refused as unsafe";
    return nullptr;
  }
  if (!context->wellFormed || !document) {
    problem = "the document is not well-formed XML: " +
              (diagnostics.first_error.empty() ? std::string("no usable content")
               : diagnostics.ends_early
                   ? "it ends early, as a file cut short does; " + diagnostics.first_error
                   : diagnostics.first_error);
    return nullptr;
  }
  // Some stops of libxml2 (a text node beyond its size limit, memory) leave the document marked
  // well-formed but cut short; only the error report tells.
  if (!diagnostics.first_error.empty()) {
    problem = "the XML parser reported an error: " + diagnostics.first_error;
    return nullptr;
  }
  if (xmlDocGetRootElement(document.get()) == nullptr) {
    problem = "the document has no root element";
    return nullptr;
  }
  return document;
}

bool ReadBytes(filesystem::Path const& path, std::string& bytes, std::string& problem) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path.Native(), error);
  if (error || !std::filesystem::exists(status)) {
    problem = "the file does not exist";
    return false;
  }
  if (!std::filesystem::is_regular_file(status)) {
    problem = std::filesystem::is_directory(status) ? "the path is a directory, not a file"
                                                    : "the path is not a regular file";
    return false;
  }
  const std::uintmax_t size = std::filesystem::file_size(path.Native(), error);
  if (error) {
    problem = "the file's size can't be read";
    return false;
  }
  if (size > XMLSerializableInterface::kMaxDocumentBytes) {
    problem = "the file is larger than " +
              std::to_string(XMLSerializableInterface::kMaxDocumentBytes >> 20) + " MiB";
    return false;
  }
  std::ifstream stream(path.Native(), std::ios::binary);
  if (!stream) {
    problem = "the file can't be opened";
    return false;
  }
  bytes.assign(static_cast<std::size_t>(size), '\0');
  stream.read(bytes.data(), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<std::size_t>(stream.gcount()));
  if (stream.bad()) {
    problem = "the file can't be read";
    return false;
  }
  return true;
}

void Fail(ParsingResult& result, std::string const& origin, std::string const& problem) {
  const std::string text = origin + ": " + problem;
  result << Event(ParsingResult::Error, Event::SanityCheck, text);
  if (result.throws_on_error()) {
    throw std::runtime_error(text);
  }
}

}  // namespace

void XMLSerializableInterface::ReadFile(ParsingResult& result, filesystem::Path const& path) {
  std::string bytes;
  std::string problem;
  if (!ReadBytes(path, bytes, problem)) {
    Fail(result, path.ToString(), problem);
    return;
  }
  _ReadDocument(result, bytes, path.ToString());
}

void XMLSerializableInterface::ReadStream(ParsingResult& result, std::istringstream const& stream) {
  _ReadDocument(result, stream.str(), "stream");
}

void XMLSerializableInterface::ReadString(ParsingResult& result, std::string const& text) {
  _ReadDocument(result, text, "string");
}

void XMLSerializableInterface::_ReadDocument(ParsingResult& result, std::string const& bytes,
                                             std::string const& origin) {
  if (bytes.size() > kMaxDocumentBytes) {
    Fail(result, origin, "the document is larger than the limit");
    return;
  }
  std::string problem;
  DocumentPtr document = ParseUntrusted(bytes, problem);
  if (!document) {
    Fail(result, origin, problem);
    return;
  }
  _xmlNode* root = xmlDocGetRootElement(document.get());
  try {
    ReadXML(result, root);
  } catch (std::exception const& error) {
    // A record reader that throws on a document leaves the record half read; the event says so
    // and keeps the promise that a read without throw_on_error always returns.
    Fail(result, origin, std::string("reading stopped: ") + error.what());
    return;
  }
  if (result.throws_on_error() && result.state() >= ParsingResult::Error) {
    std::string first;
    for (const Event& event : result.events()) {
      if (event.state >= ParsingResult::Error) {
        first = event.ToString();
        break;
      }
    }
    throw std::runtime_error(origin + ": the document is in error" +
                             (first.empty() ? std::string() : ": " + first));
  }
}

std::string XMLSerializableInterface::WriteString() const {
  DocumentPtr document(xmlNewDoc(BAD_CAST "1.0"));
  _xmlNode* root = xmlNewDocNode(document.get(), nullptr, BAD_CAST "record", nullptr);
  xmlDocSetRootElement(document.get(), root);
  WriteXML(root);
  if (root != xmlDocGetRootElement(document.get())) {
    xmlDocSetRootElement(document.get(), root);
  }
  xmlChar* buffer = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document.get(), &buffer, &size, "UTF-8", 1);
  std::string text(reinterpret_cast<const char*>(buffer), buffer == nullptr ? 0 : size);
  xmlFree(buffer);
  return text;
}

void XMLSerializableInterface::WriteFile(filesystem::Path const& path) const {
  const std::string text = WriteString();
  std::ofstream stream(path.Native(), std::ios::binary | std::ios::trunc);
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  stream.close();
  if (!stream) {
    throw std::runtime_error(path.ToString() + ": the file can't be written");
  }
}

// ---------------------------------------------------------------------------------------------
// Getters

namespace {

const xmlChar* X(std::string const& text) {
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

bool IsElement(const _xmlNode* node, std::string const& name) {
  return node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, X(name));
}

// The attribute's text, or false when the node has no such attribute.
bool AttributeText(_xmlNode* const& node, std::string const& name, std::string& text) {
  if (node == nullptr) {
    return false;
  }
  xmlChar* value = xmlGetNoNsProp(node, X(name));
  if (value == nullptr) {
    return false;
  }
  text = reinterpret_cast<const char*>(value);
  xmlFree(value);
  return true;
}

// The attribute's text without copying it where libxml2 holds it as a single text node, as it
// does for every attribute without entity references; `storage` takes a copy otherwise. The
// "values" of a band's response are the bulk of a calibration, read once each.
bool AttributeView(_xmlNode* const& node, std::string const& name, std::string& storage,
                   std::string_view& text) {
  const xmlAttr* attribute = node == nullptr ? nullptr : xmlHasNsProp(node, X(name), nullptr);
  if (attribute == nullptr) {
    return false;
  }
  const xmlNode* child = attribute->children;
  if (attribute->type == XML_ATTRIBUTE_NODE && child != nullptr && child->type == XML_TEXT_NODE &&
      child->next == nullptr && child->content != nullptr) {
    text = reinterpret_cast<const char*>(child->content);
    return true;
  }
  if (!AttributeText(node, name, storage)) {
    return false;
  }
  text = storage;
  return true;
}

std::string NodeText(_xmlNode* const& node) {
  xmlChar* content = xmlNodeGetContent(node);
  std::string text = content == nullptr ? "" : reinterpret_cast<const char*>(content);
  xmlFree(content);
  return text;
}

_xmlNode* FirstChild(_xmlNode* const& parent, std::string const& name) {
  if (parent == nullptr) {
    return nullptr;
  }
  for (_xmlNode* child = parent->children; child != nullptr; child = child->next) {
    if (IsElement(child, name)) {
      return child;
    }
  }
  return nullptr;
}

bool ParseBool(std::string_view text, bool& value) {
  text = Strings::Trim(text);
  if (text == "true") {
    value = true;
    return true;
  }
  if (text == "false") {
    value = false;
    return true;
  }
  return false;
}

// Reads a child element's text and converts it; the default stays on failure.
template <typename T, typename Convert>
bool ChildValue(T& value, _xmlNode* const& node, std::string const& name, T const& default_value,
                Convert convert) {
  value = default_value;
  _xmlNode* child = FirstChild(node, name);
  if (child == nullptr) {
    return false;
  }
  T converted = default_value;
  if (!convert(NodeText(child), converted)) {
    return false;
  }
  value = converted;
  return true;
}

template <typename T, typename Convert>
bool AttributeValue(T& value, _xmlNode* const& node, std::string const& name,
                    T const& default_value, Convert convert) {
  value = default_value;
  std::string text;
  if (!AttributeText(node, name, text)) {
    return false;
  }
  T converted = default_value;
  if (!convert(text, converted)) {
    return false;
  }
  value = converted;
  return true;
}

bool CopyText(std::string const& text, std::string& value) {
  value = text;
  return true;
}

}  // namespace

int XMLSerializableInterface::_GetVersion(_xmlNode* const& node) {
  std::string text;
  int version = -1;
  if (!AttributeText(node, "version", text) || !Strings::ParseInt(text, version)) {
    return -1;
  }
  return version;
}

std::string XMLSerializableInterface::_GetTagName(_xmlNode* const& node) {
  return node == nullptr || node->name == nullptr ? std::string()
                                                  : reinterpret_cast<const char*>(node->name);
}

std::string XMLSerializableInterface::_GetData(_xmlNode* const& node) {
  return node == nullptr ? std::string() : NodeText(node);
}

bool XMLSerializableInterface::_GetElement(_xmlNode*& element, _xmlNode* const& parent,
                                           std::string const& name, int const& index) {
  if (parent == nullptr || index < 0) {
    return false;
  }
  int seen = 0;
  for (_xmlNode* child = parent->children; child != nullptr; child = child->next) {
    if (IsElement(child, name) && seen++ == index) {
      element = child;
      return true;
    }
  }
  return false;
}

bool XMLSerializableInterface::_GetElements(std::deque<_xmlNode*>& elements,
                                            _xmlNode* const& parent, std::string const& name) {
  elements.clear();
  if (parent == nullptr) {
    return false;
  }
  for (_xmlNode* child = parent->children; child != nullptr; child = child->next) {
    if (IsElement(child, name)) {
      elements.push_back(child);
    }
  }
  return !elements.empty();
}

bool XMLSerializableInterface::_GetValue(std::string& value, _xmlNode* const& node,
                                         std::string const& name,
                                         std::string const& default_value) {
  return ChildValue(value, node, name, default_value, CopyText);
}

bool XMLSerializableInterface::_GetValue(std::wstring& value, _xmlNode* const& node,
                                         std::string const& name,
                                         std::wstring const& default_value) {
  return ChildValue(value, node, name, default_value,
                    [](std::string const& text, std::wstring& out) {
                      out = Strings::StringToUnicode(text);
                      return true;
                    });
}

bool XMLSerializableInterface::_GetValue(double& value, _xmlNode* const& node,
                                         std::string const& name, double const& default_value) {
  return ChildValue(value, node, name, default_value, [](std::string const& text, double& out) {
    return Strings::ParseDouble(text, out);
  });
}

bool XMLSerializableInterface::_GetValue(int& value, _xmlNode* const& node, std::string const& name,
                                         int const& default_value) {
  return ChildValue(value, node, name, default_value,
                    [](std::string const& text, int& out) { return Strings::ParseInt(text, out); });
}

bool XMLSerializableInterface::_GetValue(unsigned long& value, _xmlNode* const& node,
                                         std::string const& name,
                                         unsigned long const& default_value) {
  return ChildValue(value, node, name, default_value,
                    [](std::string const& text, unsigned long& out) {
                      return Strings::ParseUnsignedLong(text, out);
                    });
}

bool XMLSerializableInterface::_GetValue(bool& value, _xmlNode* const& node,
                                         std::string const& name, bool const& default_value) {
  return ChildValue(value, node, name, default_value, ParseBool);
}

bool XMLSerializableInterface::_GetValue(std::vector<double>& value, _xmlNode* const& node,
                                         std::string const& name, double const& /*default_value*/) {
  value.clear();
  _xmlNode* child = FirstChild(node, name);
  if (child == nullptr) {
    return false;
  }
  std::string storage;
  std::string_view values_text;
  if (!AttributeView(child, "values", storage, values_text)) {
    // The text form: numbers as the element's content.
    storage = NodeText(child);
    const bool parsed = Strings::ParseDoubles(storage, ", \t\r\n", value);
    std::string count_text;
    unsigned long count = 0;
    return parsed && AttributeText(child, "nr_elements", count_text) &&
           Strings::ParseUnsignedLong(count_text, count) && count == value.size();
  }
  std::string count_text;
  unsigned long count = 0;
  const bool counted = AttributeText(child, "nr_elements", count_text) &&
                       Strings::ParseUnsignedLong(count_text, count);
  // One value beyond the claimed count is enough to tell that the text holds more.
  const std::size_t limit = !counted                   ? value.max_size()
                            : count < value.max_size() ? count + 1
                                                       : count;
  const bool parsed = Strings::ParseDoubles(values_text, " \t\r\n", value, limit);
  if (counted && value.size() > count) {
    value.resize(count);
    return false;
  }
  return counted && parsed && value.size() == count;
}

bool XMLSerializableInterface::_GetAttribute(std::string& value, _xmlNode* const& node,
                                             std::string const& name,
                                             std::string const& default_value) {
  return AttributeValue(value, node, name, default_value, CopyText);
}

bool XMLSerializableInterface::_GetAttribute(int& value, _xmlNode* const& node,
                                             std::string const& name, int const& default_value) {
  return AttributeValue(value, node, name, default_value, [](std::string const& text, int& out) {
    return Strings::ParseInt(text, out);
  });
}

bool XMLSerializableInterface::_GetAttribute(unsigned long& value, _xmlNode* const& node,
                                             std::string const& name,
                                             unsigned long const& default_value) {
  return AttributeValue(value, node, name, default_value,
                        [](std::string const& text, unsigned long& out) {
                          return Strings::ParseUnsignedLong(text, out);
                        });
}

bool XMLSerializableInterface::_GetAttribute(bool& value, _xmlNode* const& node,
                                             std::string const& name, bool const& default_value) {
  return AttributeValue(value, node, name, default_value, ParseBool);
}

bool XMLSerializableInterface::_GetAttribute(std::vector<int>& value, _xmlNode* const& node,
                                             std::string const& name,
                                             std::vector<int> const& default_value) {
  return AttributeValue(
      value, node, name, default_value, [](std::string const& text, std::vector<int>& out) {
        out.clear();
        std::size_t at = 0;
        while (at < text.size()) {
          const std::size_t end = std::min(text.find_first_of(", \t\r\n", at), text.size());
          if (end > at) {
            int number = 0;
            if (!Strings::ParseInt(std::string_view(text).substr(at, end - at), number)) {
              return false;
            }
            out.push_back(number);
          }
          at = end + 1;
        }
        return true;
      });
}

bool XMLSerializableInterface::_Check(ParsingResult& result, bool condition, const char* text,
                                      ParsingResult::eParserState state) {
  if (!condition) {
    result << Event(state, Event::SanityCheck, text);
  }
  return condition;
}

bool XMLSerializableInterface::_ReadCSV(std::deque<double>& values, std::string const& text) {
  std::vector<double> parsed;
  const bool ok = Strings::ParseDoubles(text, ", \t\r\n", parsed);
  values.assign(parsed.begin(), parsed.end());
  return ok;
}

bool XMLSerializableInterface::_ReadCSV(std::vector<double>& values, std::string const& text,
                                        unsigned long const& count) {
  values.clear();
  const bool ok = Strings::ParseDoubles(text, ", \t\r\n", values, count);
  return ok && values.size() == count;
}

// ---------------------------------------------------------------------------------------------
// Writers

namespace {

std::string FormatInts(std::vector<int> const& values, const char* separator) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) {
      text += separator;
    }
    text += std::to_string(values[i]);
  }
  return text;
}

std::string FormatDoubles(std::vector<double> const& values, const char* separator, int precision) {
  std::string text;
  text.reserve(values.size() * static_cast<std::size_t>(precision + 7));
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) {
      text += separator;
    }
    text += Strings::FormatDouble(values[i], precision);
  }
  return text;
}

// libxml2 writes bytes that are not UTF-8, and control characters, as they are; the document
// would then be refused by every parser, ours included. Each such character becomes U+FFFD.
std::string XmlText(std::string const& text) {
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 0x20 && byte < 0x80) || byte == '\t' || byte == '\n' || byte == '\r';
  });
  if (plain) {
    return text;
  }
  std::wstring wide = Strings::StringToUnicode(text);
  for (wchar_t& c : wide) {
    const auto code = static_cast<char32_t>(c);
    const bool allowed = code == 0x9 || code == 0xA || code == 0xD ||
                         (code >= 0x20 && code <= 0xD7FF) || (code >= 0xE000 && code <= 0xFFFD) ||
                         (code >= 0x10000 && code <= 0x10FFFF);
    if (!allowed) {
      c = static_cast<wchar_t>(0xFFFD);
    }
  }
  return Strings::UnicodeToString(wide);
}

void AddTextChild(_xmlNode* const& node, std::string const& name, std::string const& text) {
  // xmlNewTextChild escapes the text; xmlNewChild would take it as markup.
  xmlNewTextChild(node, nullptr, X(name), X(XmlText(text)));
}

}  // namespace

void XMLSerializableInterface::_SetTagName(_xmlNode*& node, std::string const& name) {
  xmlNodeSetName(node, X(name));
}

void XMLSerializableInterface::_SetVersion(_xmlNode*& node, unsigned long const& version) {
  _SetAttribute(node, "version", version);
}

void XMLSerializableInterface::_SetAttribute(_xmlNode*& node, std::string const& name,
                                             std::string const& value) {
  xmlSetProp(node, X(name), X(XmlText(value)));
}

void XMLSerializableInterface::_SetAttribute(_xmlNode*& node, std::string const& name,
                                             const char* value) {
  _SetAttribute(node, name, std::string(value == nullptr ? "" : value));
}

void XMLSerializableInterface::_SetAttribute(_xmlNode*& node, std::string const& name,
                                             int const& value) {
  _SetAttribute(node, name, std::to_string(value));
}

void XMLSerializableInterface::_SetAttribute(_xmlNode*& node, std::string const& name,
                                             unsigned long const& value) {
  _SetAttribute(node, name, std::to_string(value));
}

void XMLSerializableInterface::_SetAttribute(_xmlNode*& node, std::string const& name,
                                             bool const& value) {
  _SetAttribute(node, name, std::string(value ? "true" : "false"));
}

void XMLSerializableInterface::_SetAttribute(_xmlNode*& node, std::string const& name,
                                             std::vector<int> const& value,
                                             eVectorSerializationMethod const& method) {
  _SetAttribute(node, name, FormatInts(value, method == VSM_TEXT ? ", " : " "));
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         std::string const& value) {
  AddTextChild(node, name, value);
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         const char* value) {
  AddTextChild(node, name, value == nullptr ? "" : value);
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         std::wstring const& value) {
  AddTextChild(node, name, Strings::UnicodeToString(value));
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         double const& value) {
  AddTextChild(node, name, Strings::FormatDouble(value, 17));
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         int const& value) {
  AddTextChild(node, name, std::to_string(value));
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         unsigned long const& value) {
  AddTextChild(node, name, std::to_string(value));
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         bool const& value) {
  AddTextChild(node, name, value ? "true" : "false");
}

void XMLSerializableInterface::_SetValue(_xmlNode*& node, std::string const& name,
                                         std::vector<double> const& value,
                                         eVectorSerializationMethod const& method,
                                         int const& precision) {
  if (method == VSM_TEXT) {
    _xmlNode* child =
        xmlNewTextChild(node, nullptr, X(name), X(FormatDoubles(value, ", ", precision)));
    _SetAttribute(child, "nr_elements", static_cast<unsigned long>(value.size()));
    return;
  }
  _xmlNode* child = xmlNewChild(node, nullptr, X(name), nullptr);
  _SetAttribute(child, "nr_elements", static_cast<unsigned long>(value.size()));
  _SetAttribute(child, "values", FormatDoubles(value, " ", precision));
}

void XMLSerializableInterface::_PutChild(_xmlNode*& child, _xmlNode* const& parent,
                                         std::string const& name) {
  child = xmlNewChild(parent, nullptr, X(name), nullptr);
}

void XMLSerializableInterface::_SetElement(_xmlNode*& node, std::string const& name,
                                           XMLSerializableInterface const& record) {
  _xmlNode* child = xmlNewChild(node, nullptr, X(name), nullptr);
  record.WriteXML(child);
  _SetTagName(child, name);
}

}  // namespace kelto::common

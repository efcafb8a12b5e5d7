// Reading untrusted bytes as a document safely, and writing records as documents.
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

namespace kelto::common {

using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

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
  // The tree's memory as it grows, in bytes, and what the document may take (see ParseUntrusted).
  std::size_t tree_bytes = 0;
  std::size_t tree_budget = 0;
  bool over_budget = false;
  // The tree builder's own handlers, which the counting handlers below call.
  xmlSAXHandler builder{};
};

Diagnostics& Of(void* user_data) {
  return *static_cast<Diagnostics*>(static_cast<xmlParserCtxt*>(user_data)->_private);
}

// ---------------------------------------------------------------------------------------------
// The memory of the tree. libxml2 gives every element, attribute, text and comment a node of
// its own, so a document of many small items (a million "<x/>") takes about 35 times its size.
// The handlers below add what each item will cost before the tree builder makes it, and stop
// the parser once a document takes more than its share, so a read never holds more than a
// bounded multiple of the file in memory, however the file is built.

// malloc's bookkeeping of one block.
constexpr std::size_t kBlock = 16;
constexpr std::size_t kNode = sizeof(xmlNode) + kBlock;
constexpr std::size_t kAttribute = sizeof(xmlAttr) + kBlock + kNode;

std::size_t Length(const xmlChar* text) {
  return text == nullptr ? 0 : std::strlen(reinterpret_cast<const char*>(text));
}

// Adds the cost of the next item; false (and the parser stopped) once the budget is spent.
bool Spend(void* user_data, std::size_t bytes) {
  Diagnostics& diagnostics = Of(user_data);
  diagnostics.tree_bytes += bytes;
  if (diagnostics.tree_bytes > diagnostics.tree_budget && !diagnostics.over_budget) {
    diagnostics.over_budget = true;
    xmlStopParser(static_cast<xmlParserCtxt*>(user_data));
  }
  return !diagnostics.over_budget;
}

// A text node is made for the first characters after another item only; the next chunks grow
// it, by doubling its buffer.
std::size_t TextCost(void* user_data, int length) {
  const xmlNode* parent = static_cast<xmlParserCtxt*>(user_data)->node;
  const bool joins =
      parent != nullptr && parent->last != nullptr && parent->last->type == XML_TEXT_NODE;
  return (joins ? 0 : kNode + kBlock) + 2 * static_cast<std::size_t>(std::max(length, 0));
}

void OnStartElement(void* user_data, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                    int namespaces_count, const xmlChar** namespaces, int attributes_count,
                    int defaulted_count, const xmlChar** attributes) {
  std::size_t bytes = kNode + Length(name) + kBlock;
  for (int i = 0; i < namespaces_count; ++i) {
    bytes += sizeof(xmlNs) + kBlock + Length(namespaces[2 * i]) + Length(namespaces[2 * i + 1]);
  }
  // Each attribute comes as five pointers: name, prefix, URI, and its value from begin to end.
  for (int i = 0; i < attributes_count; ++i) {
    const xmlChar* const* attribute = attributes + 5 * i;
    bytes += kAttribute + Length(attribute[0]) + kBlock +
             static_cast<std::size_t>(attribute[4] - attribute[3]) + 1;
  }
  if (Spend(user_data, bytes)) {
    Of(user_data).builder.startElementNs(user_data, name, prefix, uri, namespaces_count, namespaces,
                                         attributes_count, defaulted_count, attributes);
  }
}

void OnCharacters(void* user_data, const xmlChar* text, int length) {
  if (Spend(user_data, TextCost(user_data, length))) {
    Of(user_data).builder.characters(user_data, text, length);
  }
}

void OnWhitespace(void* user_data, const xmlChar* text, int length) {
  if (Spend(user_data, TextCost(user_data, length))) {
    Of(user_data).builder.ignorableWhitespace(user_data, text, length);
  }
}

void OnCData(void* user_data, const xmlChar* text, int length) {
  if (Spend(user_data, TextCost(user_data, length))) {
    Of(user_data).builder.cdataBlock(user_data, text, length);
  }
}

void OnComment(void* user_data, const xmlChar* text) {
  if (Spend(user_data, kNode + kBlock + Length(text))) {
    Of(user_data).builder.comment(user_data, text);
  }
}

void OnProcessingInstruction(void* user_data, const xmlChar* target, const xmlChar* data) {
  if (Spend(user_data, kNode + 2 * kBlock + Length(target) + Length(data))) {
    Of(user_data).builder.processingInstruction(user_data, target, data);
  }
}

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

// libxml2 compares each attribute of an element with every one before it, twice, so a start tag
// of a hundred thousand attributes takes minutes. No record has more than a few.
constexpr std::size_t kMaxAttributes = 256;

// Whether every start tag has at most kMaxAttributes attributes, counted as the '=' outside quoted
// values; comments, CDATA sections and processing instructions are skipped. Whatever is not
// well-formed is left to the parser to refuse.
bool AttributesBounded(std::string const& bytes) {
  constexpr std::size_t kEnd = std::string::npos;
  std::size_t at = 0;
  while (at < bytes.size() && (at = bytes.find('<', at)) != kEnd) {
    ++at;
    if (bytes.compare(at, 3, "!--") == 0) {
      at = bytes.find("-->", at);
    } else if (bytes.compare(at, 8, "![CDATA[") == 0) {
      at = bytes.find("]]>", at);
    } else if (bytes.compare(at, 1, "?") == 0) {
      at = bytes.find("?>", at);
    } else {
      std::size_t count = 0;
      while (at < bytes.size() && bytes[at] != '>' && bytes[at] != '<') {
        const char c = bytes[at];
        if (c == '"' || c == '\'') {
          at = bytes.find(c, at + 1);
          if (at == kEnd) {
            return true;
          }
        } else if (c == '=' && ++count > kMaxAttributes) {
          return false;
        }
        ++at;
      }
    }
  }
  return true;
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
  if (!AttributesBounded(bytes)) {
    problem = "an element has more than " + std::to_string(kMaxAttributes) + " attributes";
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

// A read may take 16 times the document's size and 1 MiB in all: the bytes as the caller holds
// them, our copy (a file read or a stream's text), libxml2's copy, and the tree, while the records
// are read from it.
constexpr std::size_t kReadBytesPerByte = 16;
constexpr std::size_t kTreeBytesPerByte = kReadBytesPerByte - 3;
constexpr std::size_t kTreeBytesBase = std::size_t{1} << 20;

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
  diagnostics.builder = *context->sax;
  diagnostics.tree_budget = kTreeBytesPerByte * bytes.size() + kTreeBytesBase;
  context->sax->startElementNs = &OnStartElement;
  context->sax->characters = &OnCharacters;
  context->sax->ignorableWhitespace = &OnWhitespace;
  context->sax->cdataBlock = &OnCData;
  context->sax->comment = &OnComment;
  context->sax->processingInstruction = &OnProcessingInstruction;
  xmlCtxtUseOptions(context.get(), XML_PARSE_NONET);

  xmlParseDocument(context.get());
  DocumentPtr document(context->myDoc);
  context->myDoc = nullptr;

  if (diagnostics.doctype_refused) {
    problem = "the document has a DOCTYPE, which is refused as unsafe";
    return nullptr;
  }
  if (diagnostics.over_budget) {
    problem = "reading the document would take more than " + std::to_string(kReadBytesPerByte) +
              " times its size and 1 MiB of memory: it holds too many small items "
              "(elements, attributes or comments)";
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
  // Some stops of libxml2 (a text node beyond its size limit, memory) leave the document
  // marked well-formed but cut short; only the error report tells.
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

}  // namespace kelto::common

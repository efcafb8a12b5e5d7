// Typed access to the values and attributes of a record's elements, both ways.
#include <kelto/common/xml_serializable_interface.h>

#include <libxml/tree.h>

#include <algorithm>

#include <kelto/common/strings.h>

namespace kelto::common {

using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

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

bool XMLSerializableInterface::_Report(ParsingResult& result, bool found,
                                       ParsingResult::eParserState state,
                                       Event::eEventSource source, std::string const& name) {
  if (!found) {
    result << Event(state, source, name);
  }
  return found;
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

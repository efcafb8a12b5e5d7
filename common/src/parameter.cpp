#include <kelto/common/parameter.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <deque>
#include <limits>
#include <regex>

#include <kelto/common/read_by_version.h>
#include <kelto/common/strings.h>

namespace kelto::common {

using Event = XMLSerializableInterface::ParsingResult::Event;
using ParsingResult = XMLSerializableInterface::ParsingResult;

namespace {

constexpr unsigned long kVersion = 0;

bool ParseInt64(const std::string& text, std::int64_t& value) {
  std::string_view digits = Strings::Trim(text);
  if (!digits.empty() && digits.front() == '+') {
    digits.remove_prefix(1);
  }
  std::int64_t parsed = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), parsed);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) {
    return false;
  }
  value = parsed;
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Parameter

Parameter::Parameter(const std::string& title, const std::string& description,
                     const std::string& group)
    : title_(title), description_(description), group_(group) {}

Parameter::~Parameter() = default;

std::unique_ptr<Parameter> Parameter::Create(const std::string& kind) {
  if (kind == "real") {
    return std::make_unique<RealParameter>();
  }
  if (kind == "integer") {
    return std::make_unique<IntegerParameter>();
  }
  if (kind == "enum") {
    return std::make_unique<EnumParameter>();
  }
  if (kind == "path") {
    return std::make_unique<PathParameter>();
  }
  if (kind == "string") {
    return std::make_unique<StringParameter>();
  }
  return nullptr;
}

void Parameter::SetProperties(const std::string& title, const std::string& description,
                              const std::string& group) {
  title_ = title;
  description_ = description;
  group_ = group;
}

void Parameter::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  ReadByVersion(*this, result, node, tag, _GetVersion(node), {&Parameter::_ReadXML_v0},
                NewerVersion::kRefuse, Unversioned::kMissingVersionError);
}

void Parameter::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "parameter");
  _SetVersion(node, kVersion);
  _SetAttribute(node, "kind", GetKind());
  _WriteXML_v0(node);
}

void Parameter::_WriteProperties(_xmlNode*& node) const {
  _SetValue(node, "title", title_);
  _SetValue(node, "description", description_);
  _SetValue(node, "group", group_);
  _SetValue(node, "hidden", hidden_);
}

void Parameter::_ReadProperties(ParsingResult& result, _xmlNode* const& node) {
  _ReadItem(result, node, "title", title_, true);
  _ReadItem(result, node, "description", description_, false);
  _ReadItem(result, node, "group", group_, false);
  _ReadItem(result, node, "hidden", hidden_, false);
}

// ---------------------------------------------------------------------------------------------
// RealParameter

RealParameter::RealParameter(const std::string& title, const std::string& description,
                             const std::string& group)
    : TypedParameter(title, description, group,
                     {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max()}) {}

bool RealParameter::IsValid(const Value& value) const {
  return criteria_.first <= value && value <= criteria_.second;
}

void RealParameter::_WriteXML_v0(_xmlNode*& node) const {
  _WriteProperties(node);
  _SetValue(node, "value", value_);
  _SetValue(node, "minimum", criteria_.first);
  _SetValue(node, "maximum", criteria_.second);
}

void RealParameter::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadProperties(result, node);
  _ReadItem(result, node, "value", value_, true);
  _ReadItem(result, node, "minimum", criteria_.first, false);
  _ReadItem(result, node, "maximum", criteria_.second, false);
}

// ---------------------------------------------------------------------------------------------
// IntegerParameter

IntegerParameter::IntegerParameter(const std::string& title, const std::string& description,
                                   const std::string& group)
    : TypedParameter(
          title, description, group,
          {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {}

bool IntegerParameter::IsValid(const Value& value) const {
  const auto [minimum, maximum] = criteria_;
  if (maximum < minimum) {
    const auto bits = static_cast<std::uint64_t>(value);
    return static_cast<std::uint64_t>(minimum) <= bits &&
           bits <= static_cast<std::uint64_t>(maximum);
  }
  return minimum <= value && value <= maximum;
}

void IntegerParameter::_WriteXML_v0(_xmlNode*& node) const {
  _WriteProperties(node);
  _SetValue(node, "value", std::to_string(value_));
  _SetValue(node, "minimum", std::to_string(criteria_.first));
  _SetValue(node, "maximum", std::to_string(criteria_.second));
}

void IntegerParameter::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadProperties(result, node);
  const std::pair<const char*, std::int64_t*> items[] = {
      {"value", &value_}, {"minimum", &criteria_.first}, {"maximum", &criteria_.second}};
  for (const auto& [name, field] : items) {
    std::string text;
    if (!_GetValue(text, node, name, "") || !ParseInt64(text, *field)) {
      const bool required = field == &value_;
      result << Event(required ? ParsingResult::Error : ParsingResult::Warning, Event::MissingValue,
                      name);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// EnumParameter

EnumParameter::EnumParameter(const std::string& title, const std::string& description,
                             const std::string& group)
    : TypedParameter(title, description, group, {}) {}

bool EnumParameter::IsValid(const Value& value) const {
  return criteria_.count(value) != 0;
}

void EnumParameter::_WriteXML_v0(_xmlNode*& node) const {
  _WriteProperties(node);
  _SetValue(node, "value", value_);
  _xmlNode* list = nullptr;
  _PutChild(list, node, "enumerators");
  for (const auto& [value, text] : criteria_) {
    _xmlNode* item = nullptr;
    _PutChild(item, list, "enumerator");
    _SetAttribute(item, "value", value);
    _SetAttribute(item, "text", text);
  }
}

void EnumParameter::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadProperties(result, node);
  _ReadItem(result, node, "value", value_, true);
  criteria_.clear();
  _xmlNode* list = nullptr;
  if (!_GetElement(list, node, "enumerators", 0)) {
    result << Event(ParsingResult::Warning, Event::MissingElement, "enumerators");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, list, "enumerator");
  for (_xmlNode* item : items) {
    int value = 0;
    std::string text;
    if (!_GetAttribute(value, item, "value", 0)) {
      result << Event(ParsingResult::Error, Event::MissingAttribute, "value");
      continue;
    }
    _ReadAttribute(result, text, item, "text", "", ParsingResult::Warning, Event::MissingAttribute);
    criteria_[value] = text;
  }
}

// ---------------------------------------------------------------------------------------------
// PathParameter

PathParameter::PathParameter(const std::string& title, const std::string& description,
                             const std::string& group)
    : TypedParameter(title, description, group, {}) {}

bool PathParameter::IsValid(const Value& value) const {
  return criteria_.empty() ||
         std::find(criteria_.begin(), criteria_.end(), value.ToString()) != criteria_.end();
}

void PathParameter::_WriteXML_v0(_xmlNode*& node) const {
  _WriteProperties(node);
  _SetValue(node, "value", value_.ToString());
  _xmlNode* list = nullptr;
  _PutChild(list, node, "allowed_paths");
  for (const std::string& path : criteria_) {
    _SetValue(list, "path", path);
  }
}

void PathParameter::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadProperties(result, node);
  std::string text = value_.ToString();
  _ReadItem(result, node, "value", text, true);
  value_ = filesystem::Path(text);
  criteria_.clear();
  _xmlNode* list = nullptr;
  if (!_GetElement(list, node, "allowed_paths", 0)) {
    result << Event(ParsingResult::Warning, Event::MissingElement, "allowed_paths");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, list, "path");
  for (_xmlNode* item : items) {
    criteria_.push_back(_GetData(item));
  }
}

// ---------------------------------------------------------------------------------------------
// StringParameter

StringParameter::StringParameter(const std::string& title, const std::string& description,
                                 const std::string& group)
    : TypedParameter(title, description, group, ".*") {}

bool StringParameter::IsValid(const Value& value) const {
  if (criteria_.size() > kMaxPatternLength) {
    return false;
  }
  try {
    // libstdc++ matches recursively by default, one stack frame per character of the value; its
    // polynomial mode walks the value in a loop, so a long value can't exhaust the stack.
    const std::regex pattern(criteria_, std::regex::ECMAScript
#if defined(__GLIBCXX__)
                                            | std::regex_constants::__polynomial
#endif
    );
    return std::regex_match(value, pattern);
  } catch (const std::regex_error&) {
    return false;
  }
}

void StringParameter::_WriteXML_v0(_xmlNode*& node) const {
  _WriteProperties(node);
  _SetValue(node, "value", value_);
  _SetValue(node, "pattern", criteria_);
}

void StringParameter::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadProperties(result, node);
  _ReadItem(result, node, "value", value_, true);
  _ReadItem(result, node, "pattern", criteria_, false);
}

}  // namespace kelto::common

#include <kelto/common/vector.h>

#include <utility>

#include <kelto/common/strings.h>

namespace kelto::common {

using Event = XMLSerializableInterface::ParsingResult::Event;

Vector::Vector(std::vector<double> values) : values_(std::move(values)) {}

void Vector::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Ok, Event::ReadStart, _GetTagName(node));
  values_.clear();
  unsigned long count = 0;
  const bool counted = _GetAttribute(count, node, "nr_elements", 0ul);
  std::string text;
  const bool present = _GetAttribute(text, node, "values", std::string());
  // The count is the file's claim: parsing stops one value beyond it, and storage only ever grows
  // by the values that the text really holds.
  const std::size_t limit = counted && count < values_.max_size() ? count + 1 : values_.max_size();
  const bool parsed = Strings::ParseDoubles(text, " \t\r\n", values_, limit);
  const bool too_many = counted && values_.size() > count;
  if (too_many) {
    values_.resize(count);
  }
  if (!counted || too_many) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "nr_elements");
  }
  if (!present || !parsed || (counted && values_.size() < count)) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "values");
  }
}

void Vector::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "vector");
  _SetAttribute(node, "nr_elements", Size());
  std::string text;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    text += i == 0 ? "" : " ";
    text += Strings::FormatDouble(values_[i], 6);
  }
  _SetAttribute(node, "values", text);
}

void Vector::Resize(const unsigned long& size, const double& value) {
  values_.resize(size, value);
}

}  // namespace kelto::common

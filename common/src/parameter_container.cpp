#include <kelto/common/parameter_container.h>
#include <kelto/common/read_by_version.h>

#include <deque>
#include <utility>

namespace kelto::common {

using Event = XMLSerializableInterface::ParsingResult::Event;
using ParsingResult = XMLSerializableInterface::ParsingResult;

namespace {

constexpr unsigned long kVersion = 0;

}  // namespace

ParameterContainer::ParameterContainer(const std::string& name, const std::string& description,
                                       const std::string& title)
    : name_(name), title_(title), description_(description) {}

ParameterContainer::ParameterContainer(ParameterContainer const& other)
    : XMLSerializableInterface(other),
      name_(other.name_),
      title_(other.title_),
      description_(other.description_),
      child_names_(other.child_names_),
      children_(other.children_) {
  for (const auto& parameter : other.parameters_) {
    parameters_.push_back(parameter->Clone());
  }
}

ParameterContainer& ParameterContainer::operator=(ParameterContainer const& other) {
  if (this != &other) {
    ParameterContainer copy(other);
    *this = std::move(copy);
  }
  return *this;
}

ParameterContainer::~ParameterContainer() = default;

void ParameterContainer::SetInfo(const std::string& title, const std::string& name,
                                 const std::string& description) {
  title_ = title;
  name_ = name;
  description_ = description;
}

void ParameterContainer::AddParameter(const Parameter& parameter) {
  parameters_.push_back(parameter.Clone());
}

void ParameterContainer::AddParameter(std::unique_ptr<Parameter> parameter) {
  if (parameter != nullptr) {
    parameters_.push_back(std::move(parameter));
  }
}

Parameter* ParameterContainer::FindParameter(const std::string& title, const std::string& group) {
  return const_cast<Parameter*>(std::as_const(*this).FindParameter(title, group));
}

const Parameter* ParameterContainer::FindParameter(const std::string& title,
                                                   const std::string& group) const {
  for (const auto& parameter : parameters_) {
    if (parameter->GetTitle() == title && parameter->GetGroup() == group) {
      return parameter.get();
    }
  }
  return nullptr;
}

std::vector<Parameter*> ParameterContainer::GetVisibleParameters() {
  std::vector<Parameter*> visible;
  for (const auto& parameter : parameters_) {
    if (!parameter->IsHidden()) {
      visible.push_back(parameter.get());
    }
  }
  return visible;
}

std::vector<const Parameter*> ParameterContainer::GetVisibleParameters() const {
  std::vector<const Parameter*> visible;
  for (const auto& parameter : parameters_) {
    if (!parameter->IsHidden()) {
      visible.push_back(parameter.get());
    }
  }
  return visible;
}

void ParameterContainer::AddChild(const std::string& name, const ParameterContainer& child) {
  child_names_.push_back(name);
  children_.push_back(child);
}

ParameterContainer* ParameterContainer::FindChild(const std::string& name) {
  return const_cast<ParameterContainer*>(std::as_const(*this).FindChild(name));
}

const ParameterContainer* ParameterContainer::FindChild(const std::string& name) const {
  for (std::size_t i = 0; i < children_.size(); ++i) {
    if (child_names_[i] == name) {
      return &children_[i];
    }
  }
  return nullptr;
}

void ParameterContainer::Clear() {
  parameters_.clear();
  child_names_.clear();
  children_.clear();
}

void ParameterContainer::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  ReadByVersion(*this, result, node, tag, _GetVersion(node), {&ParameterContainer::_ReadXML_v0},
                NewerVersion::kRefuse, Unversioned::kMissingVersionError);
}

void ParameterContainer::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "parameter_container");
  _SetVersion(node, kVersion);
  _WriteXML_v0(node);
}

void ParameterContainer::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "name", name_);
  _SetValue(node, "title", title_);
  _SetValue(node, "description", description_);
  _xmlNode* list = nullptr;
  _PutChild(list, node, "parameters");
  for (const auto& parameter : parameters_) {
    _SetElement(list, "parameter", *parameter);
  }
  _PutChild(list, node, "children");
  for (std::size_t i = 0; i < children_.size(); ++i) {
    _xmlNode* child = nullptr;
    _PutChild(child, list, "parameter_container");
    children_[i].WriteXML(child);
    _SetAttribute(child, "link", child_names_[i]);
  }
}

void ParameterContainer::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  Clear();
  const std::pair<const char*, std::string*> texts[] = {
      {"name", &name_}, {"title", &title_}, {"description", &description_}};
  for (const auto& [name, field] : texts) {
    _ReadValue(result, *field, node, name, "", ParsingResult::Warning, Event::MissingValue);
  }

  _xmlNode* list = nullptr;
  std::deque<_xmlNode*> items;
  if (!_GetElement(list, node, "parameters", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "parameters");
  } else {
    _GetElements(items, list, "parameter");
  }
  for (_xmlNode* item : items) {
    std::string kind;
    if (!_GetAttribute(kind, item, "kind", "")) {
      result << Event(ParsingResult::Error, Event::MissingAttribute, "kind");
      continue;
    }
    std::unique_ptr<Parameter> parameter = Parameter::Create(kind);
    if (parameter == nullptr) {
      result << Event(ParsingResult::Warning, Event::SanityCheck,
                      "parameter of unknown kind \"" + kind + "\" left out");
      continue;
    }
    parameter->ReadXML(result, item);
    parameters_.push_back(std::move(parameter));
  }

  items.clear();
  if (!_GetElement(list, node, "children", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "children");
  } else {
    _GetElements(items, list, "parameter_container");
  }
  for (_xmlNode* item : items) {
    std::string link;
    _ReadAttribute(result, link, item, "link", "");
    ParameterContainer child;
    child.ReadXML(result, item);
    child_names_.push_back(link);
    children_.push_back(std::move(child));
  }
}

}  // namespace kelto::common

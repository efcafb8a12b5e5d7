#include <kelto/common/parameterized_object.h>

#include <kelto/common/logger.h>
#include <kelto/common/parameter_container.h>

namespace kelto::common {

ParameterizedObject::Parameters::~Parameters() = default;

ParameterizedObject::AbstractParametersFactory::~AbstractParametersFactory() = default;

ParameterizedObject::ParameterizedObject()
    : translator_(std::make_unique<ParameterTranslator>()),
      factory_(std::make_unique<ParametersFactory<Parameters>>()) {}

ParameterizedObject::~ParameterizedObject() = default;

void ParameterizedObject::GetParameters(ParameterContainer& container) const {
  const std::unique_ptr<Parameters> parameters = CreateParameters();
  GetParameters(*parameters);
  ParameterContainer filled(container_name_, container_description_, container_title_);
  for (const auto& link : translator_->GetParameterLinks()) {
    filled.AddParameter(link->CreateParameterWithValue(*parameters));
  }
  for (const auto& child : translator_->GetParameterContainerLinks()) {
    ParameterContainer nested;
    child.object->GetParameters(nested);
    filled.AddChild(child.name, nested);
  }
  container = std::move(filled);
}

void ParameterizedObject::SetParameters(ParameterContainer const& container) {
  const std::unique_ptr<Parameters> parameters = CreateParameters();
  GetParameters(*parameters);
  for (std::size_t i = 0; i < container.GetParameterCount(); ++i) {
    const Parameter& parameter = container.GetParameter(i);
    const ParameterTranslator::ParameterLinkBase* link =
        translator_->FindParameterLink(parameter.GetTitle(), parameter.GetGroup());
    if (link == nullptr || link->ToParameter().GetKind() != parameter.GetKind()) {
      Logger::StaticInfo("parameter \"" + parameter.GetTitle() + "\" of group \"" +
                         parameter.GetGroup() + "\" is not a " + parameter.GetKind() +
                         " parameter of \"" + container_name_ + "\"; ignored");
      continue;
    }
    if (!link->ToParameter().IsHidden()) {
      link->ExtractValue(*parameters, parameter);
    }
  }
  SetParameters(*parameters);
  for (std::size_t i = 0; i < container.GetChildCount(); ++i) {
    ParameterizedObject* child = translator_->FindParameterContainerLink(container.GetChildName(i));
    if (child == nullptr) {
      Logger::StaticInfo("\"" + container_name_ + "\" has no child \"" + container.GetChildName(i) +
                         "\"; its parameters are ignored");
      continue;
    }
    child->SetParameters(container.GetChild(i));
  }
}

std::unique_ptr<ParameterizedObject::Parameters> ParameterizedObject::CreateParameters() const {
  return factory_->CreateParameters();
}

void ParameterizedObject::_SetContainerName(const std::string& name) {
  container_name_ = name;
}

void ParameterizedObject::_SetContainerDescription(const std::string& description) {
  container_description_ = description;
}

void ParameterizedObject::_SetContainerInfo(const std::string& title, const std::string& name,
                                            const std::string& description) {
  container_title_ = title;
  container_name_ = name;
  container_description_ = description;
}

void ParameterizedObject::_HideParameter(const unsigned long& distance) {
  ParameterTranslator::ParameterLinkBase* link = translator_->FindParameterLink(distance);
  if (link == nullptr) {
    throw std::invalid_argument("no parameter is registered at distance " +
                                std::to_string(distance) + " of \"" + container_name_ + "\"");
  }
  link->ToParameter().SetHidden(true);
}

void ParameterizedObject::_HideParameter(ParameterizedObject& child,
                                         const unsigned long& distance) {
  if (!_ContainsParameterContainerLink(child)) {
    throw std::invalid_argument("the object is not a linked child of \"" + container_name_ + "\"");
  }
  child._HideParameter(distance);
}

void ParameterizedObject::_LinkParameterizedObject(ParameterizedObject& child,
                                                   const std::string& name) {
  if (&child == this) {
    throw std::invalid_argument("\"" + container_name_ + "\" can't be its own child");
  }
  translator_->AddParameterContainerLink(child, name);
}

bool ParameterizedObject::_ContainsParameterLink(const unsigned long& distance) const {
  return translator_->_ContainsParameterLink(distance);
}

bool ParameterizedObject::_ContainsParameterContainerLink(ParameterizedObject const& child) const {
  return translator_->_ContainsParameterContainerLink(child);
}

}  // namespace kelto::common

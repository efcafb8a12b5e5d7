#include <kelto/common/parameter_translator.h>

#include <algorithm>
#include <utility>

namespace kelto::common {

ParameterTranslator::ParameterLinkBase::ParameterLinkBase(const unsigned long& distance)
    : distance_(distance) {}

ParameterTranslator::ParameterLinkBase::~ParameterLinkBase() = default;

ParameterTranslator::ParameterTranslator() = default;

ParameterTranslator::~ParameterTranslator() = default;

bool ParameterTranslator::AddParameterLink(std::unique_ptr<ParameterLinkBase> link) {
  if (link == nullptr || _ContainsParameterLink(link->GetDistance())) {
    return false;
  }
  const Parameter& parameter = link->ToParameter();
  const std::string key = parameter.GetTitle() + parameter.GetGroup();
  if (FindParameterLink(parameter.GetTitle(), parameter.GetGroup()) != nullptr) {
    throw std::invalid_argument("parameter \"" + parameter.GetTitle() + "\" of group \"" +
                                parameter.GetGroup() + "\" is registered already");
  }
  links_.push_back(std::move(link));
  keys_.emplace(key, std::prev(links_.end()));
  return true;
}

void ParameterTranslator::AddParameterContainerLink(ParameterizedObject& object,
                                                    const std::string& name) {
  if (_ContainsParameterContainerLink(object)) {
    return;
  }
  if (FindParameterContainerLink(name) != nullptr) {
    throw std::invalid_argument("a child is linked under \"" + name + "\" already");
  }
  containers_.push_back({&object, name});
}

ParameterTranslator::ParameterLinkBase* ParameterTranslator::FindParameterLink(
    const unsigned long& distance) const {
  const auto found = std::find_if(links_.begin(), links_.end(), [&](const auto& link) {
    return link->GetDistance() == distance;
  });
  return found == links_.end() ? nullptr : found->get();
}

ParameterTranslator::ParameterLinkBase* ParameterTranslator::FindParameterLink(
    const std::string& title, const std::string& group) const {
  const auto matches = [&](const std::unique_ptr<ParameterLinkBase>& link) {
    const Parameter& parameter = link->ToParameter();
    return parameter.GetTitle() == title && parameter.GetGroup() == group;
  };
  // The key misses or points at another link when texts changed after registration.
  const auto keyed = keys_.find(title + group);
  if (keyed != keys_.end() && matches(*keyed->second)) {
    return keyed->second->get();
  }
  const auto found = std::find_if(links_.begin(), links_.end(), matches);
  return found == links_.end() ? nullptr : found->get();
}

ParameterizedObject* ParameterTranslator::FindParameterContainerLink(
    const std::string& name) const {
  for (const ContainerLink& link : containers_) {
    if (link.name == name) {
      return link.object;
    }
  }
  return nullptr;
}

bool ParameterTranslator::_ContainsParameterLink(const unsigned long& distance) const {
  return FindParameterLink(distance) != nullptr;
}

bool ParameterTranslator::_ContainsParameterContainerLink(ParameterizedObject const& object) const {
  return std::any_of(containers_.begin(), containers_.end(),
                     [&](const ContainerLink& link) { return link.object == &object; });
}

}  // namespace kelto::common

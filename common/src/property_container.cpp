#include <kelto/common/property_container.h>

namespace kelto::common {

PropertyContainer::~PropertyContainer() = default;

void PropertyContainer::SetProperty(const std::string& name, const std::string& value) {
  properties_[name] = value;
}

bool PropertyContainer::HasProperty(const std::string& name) const {
  return properties_.count(name) != 0;
}

std::string PropertyContainer::GetProperty(const std::string& name,
                                           const std::string& fallback) const {
  const auto found = properties_.find(name);
  return found == properties_.end() ? fallback : found->second;
}

bool PropertyContainer::RemoveProperty(const std::string& name) {
  return properties_.erase(name) != 0;
}

}  // namespace kelto::common

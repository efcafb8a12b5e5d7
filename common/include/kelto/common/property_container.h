// A small store of named properties: text values under exact, case-sensitive names, kept in name
// order. Objects that carry free annotations beside their typed fields derive from it, as the band
// descriptions of an image do (a band's unit or origin, say). Copies are deep. No lock: it belongs
// to one thread at a time, like the object that derives from it.
#pragma once

#include <map>
#include <string>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT PropertyContainer {
 public:
  PropertyContainer() = default;
  PropertyContainer(const PropertyContainer&) = default;
  PropertyContainer& operator=(const PropertyContainer&) = default;
  PropertyContainer(PropertyContainer&&) = default;
  PropertyContainer& operator=(PropertyContainer&&) = default;
  virtual ~PropertyContainer();

  // Adds the property or replaces its value.
  void SetProperty(const std::string& name, const std::string& value);
  bool HasProperty(const std::string& name) const;
  // The value, or the fallback when no property has that name.
  std::string GetProperty(const std::string& name, const std::string& fallback = "") const;
  // False when there was no property of that name.
  bool RemoveProperty(const std::string& name);
  // Every property, by name.
  const std::map<std::string, std::string>& GetProperties() const { return properties_; }

 private:
  std::map<std::string, std::string> properties_;
};

}  // namespace kelto::common

#include <kelto/common/sensor_types.h>

namespace kelto::common {

namespace {

struct Name {
  SensorTypes::eType type;
  const char* text;
};

constexpr Name kNames[] = {{SensorTypes::Unknown, "Unknown"},
                           {SensorTypes::VKR9, "VKR9"},
                           {SensorTypes::GENERIC, "GENERIC"},
                           {SensorTypes::TEM480, "TEM480"}};

}  // namespace

std::string SensorTypes::ToString(const eType& type) {
  for (const Name& name : kNames) {
    if (name.type == type) {
      return name.text;
    }
  }
  return "Unknown";
}

SensorTypes::eType SensorTypes::FromString(const std::string& text) {
  for (const Name& name : kNames) {
    if (text == name.text) {
      return name.type;
    }
  }
  return Unknown;
}

}  // namespace kelto::common

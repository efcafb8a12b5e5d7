#include <kelto/common/sensor_types.h>

#include <kelto/common/translator.h>

namespace kelto::common {

namespace {

class SensorTypesTranslator : public Translator<SensorTypes::eType> {
 public:
  SensorTypesTranslator() {
    Register("Unknown", SensorTypes::Unknown);
    Register("VKR9", SensorTypes::VKR9);
    Register("GENERIC", SensorTypes::GENERIC);
    Register("TEM480", SensorTypes::TEM480);
  }
};

const SensorTypesTranslator stt;

}  // namespace

std::string SensorTypes::ToString(const eType& type) {
  return stt.TextOr(type, stt.TextOf(Unknown));
}

SensorTypes::eType SensorTypes::FromString(const std::string& text) {
  return stt.ValueOr(text, Unknown);
}

}  // namespace kelto::common

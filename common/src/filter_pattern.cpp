#include <kelto/common/filter_pattern.h>

namespace kelto::common {

namespace {

struct Name {
  FilterPattern::eType type;
  const char* text;
};

constexpr Name kNames[] = {
    {FilterPattern::Unknown, "Unknown"}, {FilterPattern::QL100, "QL100"},
    {FilterPattern::QL150, "QL150"},     {FilterPattern::TZT32, "TZT32"},
    {FilterPattern::MZT3x3, "MZT3x3"},   {FilterPattern::MZT4x4, "MZT4x4"},
    {FilterPattern::MZT5x5, "MZT5x5"},   {FilterPattern::DUAL_MZT, "DUAL_MZT"}};

}  // namespace

std::string FilterPattern::ToString(const eType& type) {
  for (const Name& name : kNames) {
    if (name.type == type) {
      return name.text;
    }
  }
  return "Unknown";
}

FilterPattern::eType FilterPattern::FromString(const std::string& text) {
  for (const Name& name : kNames) {
    if (text == name.text) {
      return name.type;
    }
  }
  return Unknown;
}

}  // namespace kelto::common

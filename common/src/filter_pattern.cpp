#include <kelto/common/filter_pattern.h>

#include <kelto/common/translator.h>

namespace kelto::common {

namespace {

class FilterPatternTranslator : public Translator<FilterPattern::eType> {
 public:
  FilterPatternTranslator() {
    Register("Unknown", FilterPattern::Unknown);
    Register("QL100", FilterPattern::QL100);
    Register("QL150", FilterPattern::QL150);
    Register("TZT32", FilterPattern::TZT32);
    Register("MZT3x3", FilterPattern::MZT3x3);
    Register("MZT4x4", FilterPattern::MZT4x4);
    Register("MZT5x5", FilterPattern::MZT5x5);
    Register("DUAL_MZT", FilterPattern::DUAL_MZT);
  }
};

const FilterPatternTranslator fpt;

}  // namespace

std::string FilterPattern::ToString(const eType& type) {
  return fpt.TextOr(type, fpt.TextOf(Unknown));
}

FilterPattern::eType FilterPattern::FromString(const std::string& text) {
  return fpt.ValueOr(text, Unknown);
}

}  // namespace kelto::common

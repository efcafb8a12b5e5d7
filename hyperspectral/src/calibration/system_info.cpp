#include <kelto/hyperspectral/calibration/system_info.h>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = SystemInfo::ParsingResult;
using Event = ParsingResult::Event;

void SystemInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node), {&SystemInfo::_ReadXML_v0},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kUnsupportedError);
}

void SystemInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "system_info");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void SystemInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  optical_components.clear();
  _xmlNode* element = nullptr;
  if (!_GetElement(element, node, "optical_components", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "optical_components");
  } else {
    std::deque<_xmlNode*> items;
    _GetElements(items, element, "optical_component");
    for (_xmlNode* const item : items) {
      optical_components.emplace_back();
      optical_components.back().ReadXML(result, item);
    }
  }
  // Files from before the correction block existed stay valid; the block keeps what it held.
  if (!_GetElement(element, node, "spectral_correction_info", 0)) {
    result << Event(ParsingResult::Warning, Event::MissingElement, "spectral_correction_info");
  } else {
    spectral_correction_info.ReadXML(result, element);
  }
}

void SystemInfo::_WriteXML_v0(_xmlNode*& node) const {
  _xmlNode* list = nullptr;
  _PutChild(list, node, "optical_components");
  for (const OpticalComponent& component : optical_components) {
    _SetElement(list, "optical_component", component);
  }
  _SetElement(node, "spectral_correction_info", spectral_correction_info);
}

void SystemInfo::RunSanityChecks(ParsingResult& result) const {
  for (const OpticalComponent& component : optical_components) {
    component.RunSanityChecks(result);
  }
  spectral_correction_info.RunSanityChecks(result);
}

bool operator==(SystemInfo const& left, SystemInfo const& right) {
  return left.optical_components == right.optical_components &&
         left.spectral_correction_info == right.spectral_correction_info;
}

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using BandInfo = FilterZone::BandInfo;
using PeakInfo = FilterZone::BandInfo::PeakInfo;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

// ---------------------------------------------------------------------------------------------
// PeakInfo

void PeakInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&PeakInfo::_ReadXML_v0, &PeakInfo::_ReadXML_v1, &PeakInfo::_ReadXML_v2},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kMissingVersionError);
}

void PeakInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "peak_info");
  _SetVersion(node, 2ul);
  _WriteXML_v2(node);
}

void PeakInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void PeakInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  if (!_GetAttribute(order, node, "order", 0ul)) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "order");
  }
  std::string shape_text;
  if (!_GetAttribute(shape_text, node, "shape", std::string())) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "shape");
  }
  shape = Distributions::FromString(shape_text);
  const auto read = [&](double& field, const char* name) {
    if (!_GetValue(field, node, name, 0.0)) {
      result << Event(ParsingResult::Error, Event::MissingValue, name);
    }
  };
  read(wavelength_nm, "wavelength_nm");
  read(fwhm_nm, "fwhm_nm");
  read(quantum_efficiency, "QE");
  read(contribution, "contribution");
  fit_error = 0.0;
}

void PeakInfo::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v1(result, node);
  if (!_GetValue(fit_error, node, "fit_error", 0.0)) {
    result << Event(ParsingResult::Error, Event::MissingValue, "fit_error");
  }
}

void PeakInfo::_WriteXML_v2(_xmlNode*& node) const {
  _SetAttribute(node, "order", order);
  _SetAttribute(node, "shape", Distributions::ToString(shape));
  _SetValue(node, "wavelength_nm", wavelength_nm);
  _SetValue(node, "fwhm_nm", fwhm_nm);
  _SetValue(node, "QE", quantum_efficiency);
  _SetValue(node, "contribution", contribution);
  _SetValue(node, "fit_error", fit_error);
}

void PeakInfo::RunSanityChecks(ParsingResult& result) const {
  _Check(result, 0 < order, "0 < order");
  _Check(result, 0.0 < wavelength_nm, "0.0 < wavelength_nm");
  _Check(result, 0.0 < fwhm_nm, "0.0 < fwhm_nm");
  _Check(result, 0.0 <= quantum_efficiency, "0.0 <= quantum_efficiency");
  _Check(result, 0.0 <= contribution, "0.0 <= contribution");
}

bool operator==(PeakInfo const& left, PeakInfo const& right) {
  return left.shape == right.shape && left.order == right.order &&
         left.wavelength_nm == right.wavelength_nm && left.fwhm_nm == right.fwhm_nm &&
         left.quantum_efficiency == right.quantum_efficiency &&
         left.contribution == right.contribution && left.fit_error == right.fit_error;
}

// ---------------------------------------------------------------------------------------------
// BandInfo

void BandInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&BandInfo::_ReadXML_v0, &BandInfo::_ReadXML_v1, &BandInfo::_ReadXML_v2,
                         &BandInfo::_ReadXML_v3, &BandInfo::_ReadXML_v4},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kMissingVersionError);
}

void BandInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "band_info");
  _SetVersion(node, 4ul);
  _WriteXML_v4(node);
}

void BandInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void BandInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void BandInfo::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void BandInfo::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  peaks.clear();
  if (!_GetAttribute(pattern_position_index, node, "index", 0ul)) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "index");
  }
  _xmlNode* container = nullptr;
  if (_GetElement(container, node, "peaks", 0)) {
    std::deque<_xmlNode*> items;
    _GetElements(items, container, "peak");
    for (_xmlNode* item : items) {
      PeakInfo peak;
      peak.ReadXML(result, item);
      peaks.push_back(std::move(peak));
    }
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, "peaks");
  }
  if (!_GetValue(response, node, "response", 0.0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "response");
  }
  _GetAttribute(selected, node, "selected", false);
}

void BandInfo::_ReadXML_v4(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v3(result, node);
}

void BandInfo::_WriteXML_v4(_xmlNode*& node) const {
  _SetAttribute(node, "index", pattern_position_index);
  _SetAttribute(node, "selected", selected);
  _xmlNode* container = nullptr;
  _PutChild(container, node, "peaks");
  for (const PeakInfo& peak : peaks) {
    _SetElement(container, "peak", peak);
  }
  _SetValue(node, "response", response, VSM_ATTRIBUTES, 12);
}

void BandInfo::RunSanityChecks(ParsingResult& result) const {
  for (const PeakInfo& peak : peaks) {
    peak.RunSanityChecks(result);
  }
}

bool operator==(BandInfo const& left, BandInfo const& right) {
  return left.pattern_position_index == right.pattern_position_index &&
         left.selected == right.selected && left.peaks == right.peaks &&
         left.response == right.response;
}

}  // namespace kelto::hyperspectral

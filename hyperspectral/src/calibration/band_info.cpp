#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <kelto/common/read_by_version.h>
#include <kelto/common/vector.h>

#include "legacy.h"

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

// The height was a 10-bit digital number; shape and share were not stored yet.
void PeakInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadAttribute(result, order, node, "order", 0ul);
  _ReadValue(result, wavelength_nm, node, "wavelength_nm", 0.0, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, fwhm_nm, node, "fwhm_nm", 0.0, ParsingResult::Error, Event::MissingValue);
  _ReadValue(result, quantum_efficiency, node, "QE", 0.0, ParsingResult::Error,
             Event::MissingValue);
  quantum_efficiency *= legacy::kTenBitScale;
  shape = Distributions::DB_LORENTZIAN;
  contribution = 1.0;
  fit_error = 0.0;
}

void PeakInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadAttribute(result, order, node, "order", 0ul);
  std::string shape_text;
  _ReadAttribute(result, shape_text, node, "shape", std::string());
  shape = Distributions::FromString(shape_text);
  _ReadValue(result, wavelength_nm, node, "wavelength_nm", 0.0, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, fwhm_nm, node, "fwhm_nm", 0.0, ParsingResult::Error, Event::MissingValue);
  _ReadValue(result, quantum_efficiency, node, "QE", 0.0, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, contribution, node, "contribution", 0.0, ParsingResult::Error,
             Event::MissingValue);
  fit_error = 0.0;
}

void PeakInfo::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v1(result, node);
  _ReadValue(result, fit_error, node, "fit_error", 0.0, ParsingResult::Error, Event::MissingValue);
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

void BandInfo::_ReadLegacyIndex(ParsingResult& result, _xmlNode* const& node) {
  _ReadAttribute(result, pattern_position_index, node, "pattern_position_index", 0ul);
}

// Until version 3 the response was a vector of 10-bit digital numbers.
void BandInfo::_ReadLegacyResponse(ParsingResult& result, _xmlNode* const& node) {
  _xmlNode* element = nullptr;
  if (!_GetElement(element, node, "response_composition", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "response_composition");
    return;
  }
  common::Vector composition;
  composition.ReadXML(result, element);
  response.assign(composition.Begin(), composition.End());
  for (double& value : response) {
    value *= legacy::kTenBitScale;
  }
}

// One peak, whose width was optional.
void BandInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  peaks.clear();
  _ReadLegacyIndex(result, node);
  PeakInfo peak;
  _ReadValue(result, peak.wavelength_nm, node, "wavelength_nm", 0.0, ParsingResult::Error,
             Event::MissingValue);
  _ReadLegacyResponse(result, node);
  _ReadValue(result, peak.fwhm_nm, node, "fwhm_nm", 0.0, ParsingResult::Warning,
             Event::MissingElement);
  peaks.push_back(peak);
  _GetAttribute(selected, node, "selected", false);
}

// A first and a second order peak. The second is kept even when the file lacks it: its zero
// wavelength is then what the peak's checks report.
void BandInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  peaks.clear();
  _ReadLegacyIndex(result, node);
  PeakInfo first;
  first.order = 1;
  _ReadValue(result, first.wavelength_nm, node, "wavelength_nm", 0.0, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, first.fwhm_nm, node, "fwhm_nm", 0.0, ParsingResult::Warning,
             Event::MissingElement);
  peaks.push_back(first);
  PeakInfo second;
  second.order = 2;
  _ReadValue(result, second.wavelength_nm, node, "wavelength_2nd_nm", 0.0, ParsingResult::Warning,
             Event::MissingElement);
  _ReadValue(result, second.fwhm_nm, node, "fwhm_2nd_nm", 0.0, ParsingResult::Warning,
             Event::MissingElement);
  peaks.push_back(second);
  _ReadLegacyResponse(result, node);
  _GetAttribute(selected, node, "selected", false);
}

// The peaks of this form were numbered by their share of the response, largest first, whatever
// order the file gives them.
void BandInfo::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  peaks.clear();
  _ReadLegacyIndex(result, node);
  _ReadPeaks(result, node);
  // A share that is not a number sorts last, so that the order stays a strict one.
  const auto share = [](PeakInfo const& peak) {
    return std::isnan(peak.contribution) ? -std::numeric_limits<double>::infinity()
                                         : peak.contribution;
  };
  std::sort(peaks.begin(), peaks.end(), [&](PeakInfo const& first, PeakInfo const& second) {
    return share(first) > share(second);
  });
  unsigned long order = 0;
  for (PeakInfo& peak : peaks) {
    peak.order = ++order;
  }
  _ReadLegacyResponse(result, node);
  _GetAttribute(selected, node, "selected", false);
}

void BandInfo::_ReadPeaks(ParsingResult& result, _xmlNode* const& node) {
  _xmlNode* container = nullptr;
  if (!_GetElement(container, node, "peaks", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "peaks");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, container, "peak");
  for (_xmlNode* item : items) {
    PeakInfo peak;
    peak.ReadXML(result, item);
    peaks.push_back(std::move(peak));
  }
}

void BandInfo::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  peaks.clear();
  _ReadAttribute(result, pattern_position_index, node, "index", 0ul);
  _ReadPeaks(result, node);
  _ReadValue(result, response, node, "response", 0.0);
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

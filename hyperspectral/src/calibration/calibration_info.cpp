#include <kelto/hyperspectral/calibration/calibration_info.h>

#include <cmath>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = CalibrationInfo::ParsingResult;
using Event = ParsingResult::Event;

void CalibrationInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  ReadByVersion(
      *this, result, node, tag, _GetVersion(node),
      {&CalibrationInfo::_ReadXML_v0, &CalibrationInfo::_ReadXML_v1, &CalibrationInfo::_ReadXML_v2,
       &CalibrationInfo::_ReadXML_v3, &CalibrationInfo::_ReadXML_v4, &CalibrationInfo::_ReadXML_v5},
      common::NewerVersion::kReadByNewest, common::Unversioned::kMissingVersionError);
}

void CalibrationInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "calibration_info");
  _SetVersion(node, 5ul);
  _WriteXML_v5(node);
}

void CalibrationInfo::_ReadRange(ParsingResult& result, _xmlNode* const& node,
                                 const char* start_name, const char* end_name,
                                 const char* step_name) {
  double start = 0.0;
  double end = 0.0;
  double step = 0.0;
  _ReadValue(result, start, node, start_name, 0.0);
  _ReadValue(result, end, node, end_name, 0.0);
  _ReadValue(result, step, node, step_name, 0.0);
  if (!(step > 0.0)) {
    result << Event(ParsingResult::Warning, Event::MissingValue, step_name);
    step = 1.0;
  }
  if (!_CalculateSamplePoints(start, end, step)) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    std::string("The range from ") + start_name + " to " + end_name + " by " +
                        step_name + " gives no usable wavelength grid");
  }
}

void CalibrationInfo::_ReadDroppedSettings(ParsingResult& result, _xmlNode* const& node) {
  int bit_depth = 0;
  _ReadValue(result, bit_depth, node, "bit_depth", 0);
  for (const char* name : {"analog_gain", "digital_gain", "measured_overall_gain"}) {
    double value = 0.0;
    _ReadValue(result, value, node, name, 0.0);
  }
}

void CalibrationInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadRange(result, node, "measurement_range_start_nm", "measurement_range_end_nm",
             "measurement_resolution_nm");
}

void CalibrationInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadRange(result, node, "wavelength_range_start_nm", "wavelength_range_end_nm",
             "wavelength_resolution_nm");
}

void CalibrationInfo::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v1(result, node);
  _ReadDroppedSettings(result, node);
}

void CalibrationInfo::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v4(result, node);
  _ReadDroppedSettings(result, node);
}

void CalibrationInfo::_ReadXML_v4(ParsingResult& result, _xmlNode* const& node) {
  _ReadValue(result, sample_points_nm, node, "sample_points_nm", 0.0);
}

void CalibrationInfo::_ReadXML_v5(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v4(result, node);
}

void CalibrationInfo::_WriteXML_v5(_xmlNode*& node) const {
  _SetValue(node, "sample_points_nm", sample_points_nm, VSM_ATTRIBUTES, 6);
}

bool CalibrationInfo::_CalculateSamplePoints(double start, double end, double step) {
  sample_points_nm.clear();
  // The rounded number of steps plus one: half a step is enough to add a point.
  const double count = (end - start) / step + 1.5;
  // Truncation of a count in (-1, 0) is 0 points; at -1 and below it is undefined.
  if (!(count > -1.0) || count >= static_cast<double>(kMaxSamplePoints) + 1.0) {
    return false;
  }
  const auto n = static_cast<unsigned long>(count);
  sample_points_nm.resize(n);
  for (unsigned long i = 0; i < n; ++i) {
    sample_points_nm[i] = static_cast<double>(i) * step + start;
  }
  return true;
}

void CalibrationInfo::RunSanityChecks(ParsingResult& result) const {
  if (_Check(result, !sample_points_nm.empty(), "!sample_points_nm.empty ()",
             ParsingResult::Warning)) {
    _Check(result, sample_points_nm.front() <= sample_points_nm.back(),
           "sample_points_nm.front () <= sample_points_nm.back ()", ParsingResult::Warning);
  }
}

bool operator==(CalibrationInfo const& left, CalibrationInfo const& right) {
  return left.sample_points_nm == right.sample_points_nm;
}

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <stdexcept>

#include <kelto/common/version.h>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

namespace {

constexpr const char* kTimeFormat = "%FT%TZ";
constexpr const char* kNoTime = "not-a-date-time";

}  // namespace

SensorCalibration::SensorCalibration()
    : created(common::time::CurrentUniversalTime()),
      modified(common::time::CurrentUniversalTime()),
      software_version(common::GetVersionString()) {}

void SensorCalibration::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&SensorCalibration::_ReadXML_v0, &SensorCalibration::_ReadXML_v1,
                         &SensorCalibration::_ReadXML_v2, &SensorCalibration::_ReadXML_v3},
                        common::NewerVersion::kReadByNewest, common::Unversioned::kWarnAndRead,
                        &SensorCalibration::_ReadXML_vNA);
  RunSanityChecks(result);
}

void SensorCalibration::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "sensor_calibration");
  _SetVersion(node, 3ul);
  _WriteXML_v3(node);
}

void SensorCalibration::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void SensorCalibration::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void SensorCalibration::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void SensorCalibration::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void SensorCalibration::_ReadTime(ParsingResult& result, _xmlNode* const& node, const char* name,
                                  common::time::TimePoint& time) {
  std::string text;
  if (!_GetAttribute(text, node, name, std::string(kNoTime))) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, name);
  }
  time = common::time::TimePoint();
  if (text == kNoTime) {
    return;
  }
  try {
    time = common::time::UniversalTimeFromString(text);
  } catch (const std::invalid_argument&) {
    // A time that can't be read is reported like one that holds no usable value.
    result << Event(ParsingResult::Error, Event::MissingValue, name);
  }
}

void SensorCalibration::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  if (!_GetAttribute(sensor_id, node, "sensor_id", std::string("0.0.0.0"))) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "sensor_id");
  }
  _ReadTime(result, node, "created", created);
  _ReadTime(result, node, "modified", modified);
  if (!_GetAttribute(software, node, "software", std::string("unknown"))) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "software");
  }
  if (!_GetAttribute(software_version, node, "software_version", std::string("0.0.0.0"))) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "software_version");
  }
  const auto read_block = [&](common::XMLSerializableInterface& block, const char* name) {
    _xmlNode* element = nullptr;
    if (_GetElement(element, node, name, 0)) {
      block.ReadXML(result, element);
    } else {
      result << Event(ParsingResult::Error, Event::MissingElement, name);
    }
  };
  read_block(sensor_info, "sensor_info");
  read_block(filter_info, "filter_info");
  read_block(system_info, "system_info");
}

void SensorCalibration::_WriteXML_v3(_xmlNode*& node) const {
  _SetAttribute(node, "sensor_id", sensor_id);
  _SetAttribute(node, "created", common::time::ToString(created, false, kTimeFormat));
  _SetAttribute(node, "modified", common::time::ToString(modified, false, kTimeFormat));
  _SetAttribute(node, "software", software);
  _SetAttribute(node, "software_version", software_version);
  _SetElement(node, "sensor_info", sensor_info);
  _SetElement(node, "filter_info", filter_info);
  _SetElement(node, "system_info", system_info);
}

void SensorCalibration::RunSanityChecks(ParsingResult& result) const {
  sensor_info.RunSanityChecks(result);
  filter_info.RunSanityChecks(result);
  const double height_px = sensor_info.height_px;
  const double width_px = sensor_info.width_px;
  const std::size_t grid_size = filter_info.calibration_info.sample_points_nm.size();
  for (const FilterZone& filter_zone : filter_info.filter_zones) {
    const common::RegionOfInterest& area = filter_zone.filter_area;
    _Check(result, height_px >= area.offset_y + area.height,
           "sensor_info.height_px >= filter_zone.filter_area.offset_y + "
           "filter_zone.filter_area.height");
    _Check(result, width_px >= area.offset_x + area.width,
           "sensor_info.width_px >= filter_zone.filter_area.offset_x + "
           "filter_zone.filter_area.width");
    _Check(result,
           filter_zone.bands.size() == filter_zone.pattern_height * filter_zone.pattern_width,
           "filter_zone.bands.size () == filter_zone.pattern_height*filter_zone.pattern_width");
    for (const FilterZone::BandInfo& band : filter_zone.bands) {
      // Bands that were not measured yet are legal: these two are only warnings.
      _Check(result, !band.response.empty(), "0 < band.response.size ()", ParsingResult::Warning);
      _Check(result, band.response.size() == grid_size,
             "band.response.size () == filter_info.calibration_info.sample_points_nm.size ()",
             ParsingResult::Warning);
    }
  }
}

std::string SensorCalibration::GetTypeName() const {
  return sensor_info.GetTypeName() + "-" + filter_info.GetTypeName();
}

bool operator==(SensorCalibration const& left, SensorCalibration const& right) {
  return left.sensor_id == right.sensor_id && left.created == right.created &&
         left.modified == right.modified && left.software == right.software &&
         left.software_version == right.software_version && left.sensor_info == right.sensor_info &&
         left.filter_info == right.filter_info && left.system_info == right.system_info;
}

}  // namespace kelto::hyperspectral

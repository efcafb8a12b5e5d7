#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <memory>
#include <stdexcept>
#include <string>

#include <kelto/common/read_by_version.h>
#include <kelto/common/version.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/rejection_filter.h>

namespace kelto::hyperspectral {

using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

namespace {

constexpr const char* kTimeFormat = "%FT%TZ";
constexpr const char* kNoTime = "not-a-date-time";
constexpr const char* kNoIdentity = "0.0.0.0";

// "20240517T093000": the time stamps of versions 1 and 2 are read to the second.
constexpr std::size_t kStampLength = 15;

// The chip of calibration grids of versions 0 and 1, which held no gains of their own.
constexpr int kGridBitDepth = 10;
constexpr double kGridOverallGain = 0.24272592592592593;
constexpr double kGridAnalogGain = 3.2;
constexpr double kGridDigitalGain = 1.0;

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

// The first files: a "sensor" and a "filter" element, the filter's kind given by a number, one
// zone over the whole chip, and rows counted from the other end of the chip.
void SensorCalibration::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  filter_info.filter_zones.clear();
  sensor_id = kNoIdentity;
  created = common::time::TimePoint();

  int type = -1;
  _GetAttribute(type, node, "type", -1);
  if (type == -1) {
    result << Event(ParsingResult::Warning, Event::MissingAttribute, "type");
    _xmlNode* sensor = nullptr;
    if (!_GetElement(sensor, node, "sensor", 0)) {
      result << Event(ParsingResult::Error, Event::MissingElement, "sensor");
    }
    _ReadValue(result, type, sensor, "type", 4, ParsingResult::Error, Event::MissingValue);
  }
  FilterZone::eFilterLayout layout = FilterZone::NO_FILTER;
  switch (type) {
    case 0:
      layout = FilterZone::WEDGE;
      break;
    case 1:
      layout = FilterZone::TILED;
      break;
    case 3:
      layout = FilterZone::MOSAIC;
      break;
    default:
      break;
  }

  _xmlNode* sensor = nullptr;
  if (_GetElement(sensor, node, "sensor", 0)) {
    sensor_info.ReadXML(result, sensor);
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, "sensor");
  }

  // The zone covers the chip unless the filter says otherwise.
  std::unique_ptr<FilterZone> zone(FilterZone::Create(layout));
  zone->filter_area =
      common::RegionOfInterest(0.0, 0.0, sensor_info.width_px, sensor_info.height_px);
  _xmlNode* filter = nullptr;
  if (_GetElement(filter, node, "filter", 0)) {
    // The block checks itself before it has its zone, and so reports it missing.
    filter_info.ReadXML(result, filter);
    zone->ReadXML(result, filter);
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, "filter");
  }
  common::RegionOfInterest& area = zone->filter_area;
  area.offset_y = sensor_info.height_px - (area.offset_y + area.height);
  filter_info.filter_zones.push_back(std::move(*zone));
}

// The filter block was one zone itself, with the grid, the rejection filter and the single
// correction matrix inside it.
void SensorCalibration::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  filter_info.filter_zones.clear();
  sensor_id = kNoIdentity;
  created = common::time::TimePoint();
  modified = common::time::TimePoint();
  _ReadBlock(result, node, sensor_info, "sensor_info");

  _xmlNode* filter = nullptr;
  if (!_GetElement(filter, node, "filter_info", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "filter_info");
    return;
  }
  std::string layout_text;
  _GetAttribute(layout_text, filter, "layout", FilterZone::ToString(FilterZone::NO_FILTER));
  FilterZone::eFilterLayout layout = FilterZone::NO_FILTER;
  FilterZone::FromString(layout, layout_text);
  std::unique_ptr<FilterZone> zone(FilterZone::Create(layout));
  zone->ReadXML(result, filter);
  filter_info.filter_zones.push_back(std::move(*zone));

  _ReadBlock(result, filter, filter_info.calibration_info, "calibration_info");

  _xmlNode* element = nullptr;
  if (_GetElement(element, filter, "rejection_filter", 0)) {
    RejectionFilter rejection_filter;
    rejection_filter.ReadXML(result, element);
    if (rejection_filter.values.Size() != 0) {
      system_info.optical_components.push_back(rejection_filter.Convert());
    }
  } else {
    // Most filters had none.
    result << Event(ParsingResult::Ok, Event::MissingElement, "rejection_filter");
  }

  if (_GetElement(element, filter, "spectral_correction_info", 0)) {
    CorrectionMatrix matrix;
    matrix.ReadXML(result, element);
    if (!matrix.virtual_bands.empty()) {
      system_info.spectral_correction_info.correction_matrices.push_back(std::move(matrix));
    }
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, "spectral_correction_info");
  }
}

void SensorCalibration::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadStamped(result, node, true);
}

void SensorCalibration::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadStamped(result, node, false);
}

// Versions 1 and 2: an identity and one time stamp for creation and change, no software.
void SensorCalibration::_ReadStamped(ParsingResult& result, _xmlNode* const& node,
                                     bool gains_in_grid) {
  _ReadAttribute(result, sensor_id, node, "sensor_id", std::string(kNoIdentity));
  // The stamp may carry a fraction of a second, which the basic form of 15 characters drops.
  _ReadTime(result, node, "timestamp", created, kStampLength);
  modified = created;
  _ReadBlock(result, node, sensor_info, "sensor_info");
  if (gains_in_grid) {
    _ReadGridGains(result, node);
  }
  _ReadBlock(result, node, filter_info, "filter_info");
  _ReadBlock(result, node, system_info, "system_info");
}

// Version 1 kept the sensor's gains in the calibration grid of the filter block: fixed figures
// of the one chip family in its versions 0 and 1, measured ones in its versions 2 and 3.
void SensorCalibration::_ReadGridGains(ParsingResult& result, _xmlNode* const& node) {
  _xmlNode* filter = nullptr;
  if (!_GetElement(filter, node, "filter_info", 0)) {
    return;
  }
  _xmlNode* grid = nullptr;
  if (!_GetElement(grid, filter, "calibration_info", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "calibration_info");
    return;
  }
  switch (_GetVersion(grid)) {
    case 0:
    case 1:
      sensor_info.sensor_type = common::SensorTypes::VKR9;
      sensor_info.bit_depth = kGridBitDepth;
      sensor_info.overall_gain = kGridOverallGain;
      sensor_info.analog_gain = kGridAnalogGain;
      sensor_info.digital_gain = kGridDigitalGain;
      break;
    case 2:
    case 3: {
      int bit_depth = 0;
      double analog_gain = 0.0;
      double digital_gain = 0.0;
      double overall_gain = 0.0;
      _ReadValue(result, bit_depth, grid, "bit_depth", 0);
      _ReadValue(result, analog_gain, grid, "analog_gain", 0.0);
      _ReadValue(result, digital_gain, grid, "digital_gain", 0.0);
      _ReadValue(result, overall_gain, grid, "measured_overall_gain", 0.0);
      sensor_info.sensor_type = common::SensorTypes::VKR9;
      sensor_info.bit_depth = bit_depth;
      sensor_info.analog_gain = analog_gain;
      sensor_info.digital_gain = digital_gain;
      sensor_info.overall_gain = overall_gain;
      break;
    }
    default:
      break;
  }
}

void SensorCalibration::_ReadBlock(ParsingResult& result, _xmlNode* const& node,
                                   common::XMLSerializableInterface& block, const char* name) {
  _xmlNode* element = nullptr;
  if (_GetElement(element, node, name, 0)) {
    block.ReadXML(result, element);
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, name);
  }
}

void SensorCalibration::_ReadTime(ParsingResult& result, _xmlNode* const& node, const char* name,
                                  common::time::TimePoint& time, std::size_t length) {
  std::string text;
  _ReadAttribute(result, text, node, name, std::string(kNoTime));
  time = common::time::TimePoint();
  if (text == kNoTime) {
    return;
  }
  try {
    time = common::time::UniversalTimeFromString(text.substr(0, length));
  } catch (const std::invalid_argument&) {
    // A time that can't be read is reported like one that holds no usable value.
    result << Event(ParsingResult::Error, Event::MissingValue, name);
  }
}

void SensorCalibration::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  _ReadAttribute(result, sensor_id, node, "sensor_id", std::string(kNoIdentity));
  _ReadTime(result, node, "created", created);
  _ReadTime(result, node, "modified", modified);
  _ReadAttribute(result, software, node, "software", std::string("unknown"));
  _ReadAttribute(result, software_version, node, "software_version", std::string("0.0.0.0"));
  _ReadBlock(result, node, sensor_info, "sensor_info");
  _ReadBlock(result, node, filter_info, "filter_info");
  _ReadBlock(result, node, system_info, "system_info");
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

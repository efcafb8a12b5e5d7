#include <kelto/hyperspectral/management/sensor_calibration_utilities.h>

#include <regex>
#include <stdexcept>

namespace kelto::hyperspectral {

namespace {

// Groups: 1 sensor type, 2 filter family, 3 the whole range with 4 and 5 its numbers, 6 to 9 the
// version, 10 the suffix. Greedy matching lets the last possible hyphens separate the parts.
const std::regex kFilenamePattern(
    "(.+)-(.+)-((\\d+)_(\\d+)|RGB-NIR)-(\\d+)\\.(\\d+)\\.(\\d+)\\.(\\d+)(.*)",
    std::regex::ECMAScript);

// The RGB and near-infrared filters share one fixed range that the name can't state in numbers.
constexpr int kRgbNirStartNm = 470;
constexpr int kRgbNirEndNm = 850;

}  // namespace

std::string SensorCalibrationUtilities::GetSensorCalibrationFilename(
    const SensorCalibration& calibration) {
  return calibration.GetTypeName() + "-" + calibration.sensor_id;
}

SensorCalibrationParts SensorCalibrationUtilities::ParseSensorCalibrationFilename(
    const std::string& name) {
  std::smatch match;
  if (name.size() > kMaxFilenameLength || !std::regex_match(name, match, kFilenamePattern)) {
    throw std::invalid_argument("Invalid sensor calibration filename: " + name);
  }
  SensorCalibrationParts parts;
  parts.sensor_type = common::SensorTypes::FromString(match[1]);
  if (parts.sensor_type == common::SensorTypes::Unknown) {
    throw std::invalid_argument("Invalid sensor type: " + match[1].str());
  }
  parts.filter_pattern = common::FilterPattern::FromString(match[2]);
  if (parts.filter_pattern == common::FilterPattern::Unknown) {
    throw std::invalid_argument("Invalid filter type: " + match[2].str());
  }
  if (match[3] == "RGB-NIR") {
    parts.spectral_range_start_nm = kRgbNirStartNm;
    parts.spectral_range_end_nm = kRgbNirEndNm;
  } else {
    parts.spectral_range_start_nm = std::stoi(match[4]);
    parts.spectral_range_end_nm = std::stoi(match[5]);
  }
  for (std::size_t i = 0; i < parts.version.size(); ++i) {
    parts.version[i] = std::stoi(match[6 + i]);
  }
  parts.suffix = match[10];
  return parts;
}

void SensorCalibrationUtilities::UpdateSensorCalibration(SensorCalibration& calibration,
                                                         const std::string& name) {
  SensorCalibrationParts parts;
  try {
    parts = ParseSensorCalibrationFilename(name);
  } catch (const std::exception& error) {
    throw std::invalid_argument(std::string("Ill-formed sensor calibration file: ") + error.what());
  }
  std::deque<FilterZone>& zones = calibration.filter_info.filter_zones;
  if (zones.empty()) {
    return;
  }
  FilterZone& zone = zones.front();
  zone.spectral_range_start_nm = parts.spectral_range_start_nm;
  zone.spectral_range_end_nm = parts.spectral_range_end_nm;
  if (zone.filter_layout() != FilterZone::MOSAIC) {
    return;
  }
  // The names of these two mosaics carry the nominal range of the product, narrower than the
  // range that the zone's filters actually cover.
  const auto is = [&](unsigned long pattern, int start_nm, int end_nm) {
    return zone.pattern_width == pattern && zone.pattern_height == pattern &&
           parts.spectral_range_start_nm == start_nm && parts.spectral_range_end_nm == end_nm;
  };
  if (is(4, 600, 850)) {
    zone.spectral_range_start_nm = 595.0;
    zone.spectral_range_end_nm = 860.0;
  } else if (is(5, 670, 950)) {
    zone.spectral_range_start_nm = 665.0;
    zone.spectral_range_end_nm = 975.0;
  }
}

}  // namespace kelto::hyperspectral

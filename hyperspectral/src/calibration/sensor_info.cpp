#include <kelto/hyperspectral/calibration/sensor_info.h>

#include <cmath>

#include <kelto/common/read_by_version.h>
#include <kelto/common/translator.h>

namespace kelto::hyperspectral {

using common::SensorTypes;
using Event = SensorInfo::ParsingResult::Event;
using ParsingResult = SensorInfo::ParsingResult;
using GainModes = SensorInfo::TEM480_GainModes;

namespace {

class TEM480_GainModesTranslator : public common::Translator<GainModes::eTEM480_GainModes> {
 public:
  TEM480_GainModesTranslator() {
    Register("unknown", GainModes::GM_UNKNOWN);
    Register("low", GainModes::GM_LOW);
    Register("medium", GainModes::GM_MEDIUM);
    Register("high", GainModes::GM_HIGH);
  }
};

const TEM480_GainModesTranslator gmt;

// The figures of the one chip family that the unversioned and early files describe.
constexpr int kLegacyBitDepth = 10;
constexpr int kLegacyFullWellCapacity = 13500;
constexpr double kLegacyOverallGain = 0.2427;
constexpr double kLegacyAnalogGain = 3.2;
constexpr double kLegacyDigitalGain = 1.0;
constexpr double kLegacyPixelPitch = 5.5;

double ComputedOverallGain(int bit_depth, int full_well_capacity_e, double analog_gain,
                           double digital_gain) {
  return std::pow(2.0, bit_depth) / full_well_capacity_e * analog_gain * digital_gain;
}

}  // namespace

std::string GainModes::ToString(eTEM480_GainModes const& mode) {
  return gmt.TextOr(mode, gmt.TextOf(GM_UNKNOWN));
}

GainModes::eTEM480_GainModes GainModes::FromString(std::string const& text) {
  return gmt.ValueOr(text, GM_UNKNOWN);
}

void SensorInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  if (tag != "sensor_info") {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The .xml file is not of type SensorInfo");
  }
  common::ReadByVersion(
      *this, result, node, tag, _GetVersion(node),
      {&SensorInfo::_ReadXML_v0, &SensorInfo::_ReadXML_v1, &SensorInfo::_ReadXML_v2},
      common::NewerVersion::kRefuse, common::Unversioned::kWarnAndRead, &SensorInfo::_ReadXML_vNA);
  RunSanityChecks(result);
}

void SensorInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "sensor_info");
  _SetVersion(node, 2ul);
  _WriteXML_v2(node);
}

void SensorInfo::_ReadLegacy(ParsingResult& result, _xmlNode* const& node,
                             std::string const& pitch_name) {
  _ReadValue(result, width_px, node, "width", 0, ParsingResult::Error, Event::MissingValue);
  _ReadValue(result, height_px, node, "height", 0, ParsingResult::Error, Event::MissingValue);
  _ReadValue(result, pixel_pitch_um, node, pitch_name, kLegacyPixelPitch, ParsingResult::Warning,
             Event::MissingValue);
  if (pixel_pitch_um == 0.0) {
    result << Event(ParsingResult::Warning, Event::MissingValue, pitch_name);
    pixel_pitch_um = kLegacyPixelPitch;
  }
  sensor_type = SensorTypes::VKR9;
  bit_depth = kLegacyBitDepth;
  full_well_capacity_e = kLegacyFullWellCapacity;
  overall_gain = kLegacyOverallGain;
  analog_gain = kLegacyAnalogGain;
  digital_gain = kLegacyDigitalGain;
}

void SensorInfo::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  _ReadLegacy(result, node, "pixelPitch");
}

void SensorInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadLegacy(result, node, "pixel_pitch");
}

void SensorInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v0(result, node);
  _ReadValue(result, full_well_capacity_e, node, "full_well_capacity_e", 0);
  // Without a capacity this is an infinite gain, which the sanity checks then report.
  overall_gain = ComputedOverallGain(bit_depth, full_well_capacity_e, analog_gain, digital_gain);
}

void SensorInfo::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  std::string type_text;
  _ReadAttribute(result, type_text, node, "sensor_type",
                 SensorTypes::ToString(SensorTypes::Unknown));
  sensor_type = SensorTypes::FromString(type_text);

  _ReadValue(result, width_px, node, "width_px", 0);
  _ReadValue(result, height_px, node, "height_px", 0);
  _ReadValue(result, pixel_pitch_um, node, "pixel_pitch_um", 0.0);
  _ReadValue(result, bit_depth, node, "bit_depth", 0);
  _ReadValue(result, overall_gain, node, "overall_gain", 0.0);
  if (sensor_type == SensorTypes::VKR9) {
    _ReadValue(result, analog_gain, node, "analog_gain", 0.0);
    _ReadValue(result, digital_gain, node, "digital_gain", 0.0);
    _ReadValue(result, full_well_capacity_e, node, "full_well_capacity_e", 0);
  } else if (sensor_type == SensorTypes::TEM480) {
    _ReadValue(result, gain_mode, node, "gain_mode", std::string());
  }
}

void SensorInfo::_WriteXML_v2(_xmlNode*& node) const {
  _SetAttribute(node, "sensor_type", SensorTypes::ToString(sensor_type));
  _SetValue(node, "width_px", width_px);
  _SetValue(node, "height_px", height_px);
  _SetValue(node, "pixel_pitch_um", pixel_pitch_um);
  _SetValue(node, "bit_depth", bit_depth);
  _SetValue(node, "overall_gain", overall_gain);
  if (sensor_type == SensorTypes::VKR9) {
    _SetValue(node, "analog_gain", analog_gain);
    _SetValue(node, "digital_gain", digital_gain);
    _SetValue(node, "full_well_capacity_e", full_well_capacity_e);
  } else if (sensor_type == SensorTypes::TEM480) {
    _SetValue(node, "gain_mode", gain_mode);
  }
}

void SensorInfo::RunSanityChecks(ParsingResult& result) const {
  _Check(result, SensorTypes::Unknown != sensor_type, "SensorTypes::eType::Unknown != sensor_type");
  _Check(result, 0 < height_px, "0 < height_px");
  _Check(result, 0 < width_px, "0 < width_px");
  _Check(result, 0.0 < pixel_pitch_um, "0.0 < pixel_pitch_um");
  _Check(result, 0 < bit_depth, "0 < bit_depth");
  if (sensor_type == SensorTypes::VKR9) {
    _Check(result, analog_gain > 0, "analog_gain > 0");
    _Check(result, digital_gain > 0, "digital_gain > 0");
    _Check(result, full_well_capacity_e > 0, "full_well_capacity_e > 0");
    _Check(result, overall_gain > 0.0, "overall_gain > 0.0");
    const double computed_overall_gain =
        ComputedOverallGain(bit_depth, full_well_capacity_e, analog_gain, digital_gain);
    _Check(result,
           (0.9 * computed_overall_gain < overall_gain) &&
               (1.1 * computed_overall_gain > overall_gain),
           "((0.9 * computed_overall_gain < overall_gain) && (1.1 * computed_overall_gain > "
           "overall_gain))");
  } else if (sensor_type == SensorTypes::TEM480) {
    _Check(result, !gain_mode.empty(), "!gain_mode.empty()");
  }
}

std::string SensorInfo::GetTypeName() const {
  return SensorTypes::ToString(sensor_type);
}

bool operator==(SensorInfo const& left, SensorInfo const& right) {
  return left.sensor_type == right.sensor_type && left.width_px == right.width_px &&
         left.height_px == right.height_px && left.pixel_pitch_um == right.pixel_pitch_um &&
         left.bit_depth == right.bit_depth && left.analog_gain == right.analog_gain &&
         left.digital_gain == right.digital_gain &&
         left.full_well_capacity_e == right.full_well_capacity_e &&
         left.overall_gain == right.overall_gain && left.gain_mode == right.gain_mode;
}

}  // namespace kelto::hyperspectral

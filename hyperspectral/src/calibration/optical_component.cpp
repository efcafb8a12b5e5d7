#include <kelto/hyperspectral/calibration/optical_component.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = OpticalComponent::ParsingResult;
using Event = ParsingResult::Event;

namespace {

const std::string kDefaultDate = "1900-01-01";

}  // namespace

void OpticalComponent::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&OpticalComponent::_ReadXML_v0, &OpticalComponent::_ReadXML_v1,
                         &OpticalComponent::_ReadXML_v2},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kMissingVersionError);
}

void OpticalComponent::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "optical_component");
  _SetVersion(node, 2ul);
  _WriteXML_v2(node);
}

// The forms with a "created" date and, in version 0, a curve given by its range are not read yet.
void OpticalComponent::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void OpticalComponent::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void OpticalComponent::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  const auto read = [&](auto& field, const char* name, auto default_value) {
    if (!_GetValue(field, node, name, default_value)) {
      result << Event(ParsingResult::Error, Event::MissingElement, name);
    }
  };
  std::string type_text;
  read(type_text, "type", std::string());
  type = OpticalComponents::FromString(type_text);
  read(manufacturer, "manufacturer", std::string());
  read(part_id, "part_id", std::string());
  read(tag, "tag", std::string());
  read(description, "description", std::string());
  read(measurement, "measurement", std::string());
  read(transmission_range_start_nm, "transmission_range_start_nm", 0.0);
  read(transmission_range_end_nm, "transmission_range_end_nm", 0.0);
  std::string date_text;
  read(date_text, "measured", kDefaultDate);
  try {
    measured = common::time::DateFromString(date_text);
  } catch (const std::invalid_argument&) {
    result << Event(ParsingResult::Error, Event::MissingValue, "measured");
    measured = common::time::DateFromString(kDefaultDate);
  }
  read(sample_points_nm, "sample_points_nm", 0.0);
  read(response, "response", 0.0);
}

void OpticalComponent::_WriteXML_v2(_xmlNode*& node) const {
  _SetValue(node, "type", OpticalComponents::ToString(type));
  _SetValue(node, "manufacturer", manufacturer);
  _SetValue(node, "part_id", part_id);
  _SetValue(node, "tag", tag);
  _SetValue(node, "description", description);
  _SetValue(node, "measurement", measurement);
  _SetValue(node, "transmission_range_start_nm", transmission_range_start_nm);
  _SetValue(node, "transmission_range_end_nm", transmission_range_end_nm);
  _SetValue(node, "measured", common::time::ToString(measured, "%F"));
  _SetValue(node, "sample_points_nm", sample_points_nm, VSM_ATTRIBUTES, 6);
  _SetValue(node, "response", response, VSM_ATTRIBUTES, 6);
}

void OpticalComponent::RunSanityChecks(ParsingResult& result) const {
  if (!_Check(result, !sample_points_nm.empty(), "!sample_points_nm.empty ()",
              ParsingResult::Warning)) {
    return;
  }
  _Check(result, 0.0 <= sample_points_nm.front(), "0.0 <= sample_points_nm.front ()",
         ParsingResult::Warning);
  _Check(result, sample_points_nm.front() <= sample_points_nm.back(),
         "sample_points_nm.front () <= sample_points_nm.back ()", ParsingResult::Warning);
}

std::string OpticalComponent::GetFriendlyName() const {
  std::ostringstream name;
  name << std::fixed << std::setprecision(1);
  std::string type_text = OpticalComponents::ToString(type);
  std::replace(type_text.begin(), type_text.end(), '_', ' ');
  name << type_text << ": ";
  switch (type) {
    case OpticalComponents::OC_LONGPASS_FILTER:
      name << transmission_range_start_nm << "nm";
      break;
    case OpticalComponents::OC_SHORTPASS_FILTER:
      name << transmission_range_end_nm << "nm";
      break;
    case OpticalComponents::OC_SOURCE:
      // The first seven characters are a fixed prefix in front of the lamp's name.
      if (tag.size() < 7) {
        throw std::invalid_argument("The tag of a source has fewer than seven characters.");
      }
      name << tag.substr(7);
      break;
    default:
      if (sample_points_nm.empty()) {
        throw std::invalid_argument("The component has no sample points.");
      }
      // An edge beyond the measured curve is shown as open; the two markers differ on purpose.
      if (sample_points_nm.front() > transmission_range_start_nm) {
        name << "...";
      } else {
        name << transmission_range_start_nm;
      }
      name << "-";
      if (transmission_range_end_nm > sample_points_nm.back()) {
        name << " ... ";
      } else {
        name << transmission_range_end_nm;
      }
      name << "nm";
      break;
  }
  name << " (" << manufacturer << ")";
  return name.str();
}

bool operator==(OpticalComponent const& left, OpticalComponent const& right) {
  return left.type == right.type && left.manufacturer == right.manufacturer &&
         left.part_id == right.part_id && left.tag == right.tag &&
         left.description == right.description && left.measurement == right.measurement &&
         left.measured == right.measured && left.sample_points_nm == right.sample_points_nm &&
         left.response == right.response &&
         left.transmission_range_start_nm == right.transmission_range_start_nm &&
         left.transmission_range_end_nm == right.transmission_range_end_nm;
}

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/optical_component.h>

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = OpticalComponent::ParsingResult;
using Event = ParsingResult::Event;

namespace {

const std::string kDefaultDate = "1900-01-01";
constexpr std::int32_t kDaysTo1900 = -25567;

// The regex engine recurses once per character and backtracks over every split; no date is
// longer than this, and a longer text counts as one that does not match.
constexpr std::size_t kMaxDateTextLength = 64;

// Days from 1970-01-01 to the date in the proleptic Gregorian calendar, negative before it. Any
// month and day are counted on from the year's start, as a calendar without range checks does.
std::int32_t DaysFromCivil(std::int32_t year, std::int32_t month, std::int32_t day) {
  // Years start in March, so that the leap day is the last day of a year.
  year -= month <= 2 ? 1 : 0;
  const std::int32_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int32_t year_of_era = year - era * 400;
  const std::int32_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int32_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + day_of_era - 719468;
}

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

template <typename T, typename Default>
void OpticalComponent::_ReadItem(ParsingResult& result, _xmlNode* const& node, T& field,
                                 const char* name, Default const& default_value) {
  _ReadValue(result, field, node, name, default_value);
}

// The identity and the transmission range, alike in every version.
void OpticalComponent::_ReadIdentity(ParsingResult& result, _xmlNode* const& node) {
  std::string type_text;
  _ReadItem(result, node, type_text, "type", std::string());
  type = OpticalComponents::FromString(type_text);
  _ReadItem(result, node, manufacturer, "manufacturer", std::string());
  _ReadItem(result, node, part_id, "part_id", std::string());
  _ReadItem(result, node, tag, "tag", std::string());
  _ReadItem(result, node, description, "description", std::string());
  _ReadItem(result, node, measurement, "measurement", std::string());
  _ReadItem(result, node, transmission_range_start_nm, "transmission_range_start_nm", 0.0);
  _ReadItem(result, node, transmission_range_end_nm, "transmission_range_end_nm", 0.0);
}

// Versions 0 and 1 called the date "created" and wrote it in a form of their own.
void OpticalComponent::_ReadCreated(ParsingResult& result, _xmlNode* const& node) {
  std::string date_text;
  _ReadItem(result, node, date_text, "created", kDefaultDate);
  measured = _ParseDate(date_text);
}

// The curve was given by its end points; the points between are spread evenly by running
// addition, as the measuring tool of that time did.
void OpticalComponent::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadIdentity(result, node);
  _ReadCreated(result, node);
  double start = 0.0;
  double end = 0.0;
  _ReadItem(result, node, start, "wavelength_start_nm", 0.0);
  _ReadItem(result, node, end, "wavelength_end_nm", 0.0);
  _ReadItem(result, node, response, "response", 0.0);
  const std::size_t n = response.size();
  sample_points_nm.assign(n, start);
  if (n < 2) {
    return;
  }
  const double step = (end - start) / static_cast<double>(n - 1);
  for (std::size_t i = 1; i < n; ++i) {
    sample_points_nm[i] = sample_points_nm[i - 1] + step;
  }
}

void OpticalComponent::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadIdentity(result, node);
  _ReadCreated(result, node);
  _ReadItem(result, node, sample_points_nm, "sample_points_nm", 0.0);
  _ReadItem(result, node, response, "response", 0.0);
}

void OpticalComponent::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadIdentity(result, node);
  std::string date_text;
  _ReadItem(result, node, date_text, "measured", kDefaultDate);
  try {
    measured = common::time::DateFromString(date_text);
  } catch (const std::invalid_argument&) {
    result << Event(ParsingResult::Error, Event::MissingValue, "measured");
    measured = common::time::DateFromString(kDefaultDate);
  }
  _ReadItem(result, node, sample_points_nm, "sample_points_nm", 0.0);
  _ReadItem(result, node, response, "response", 0.0);
}

common::time::Date OpticalComponent::_ParseDate(const std::string& text) {
  static const std::regex pattern("(.+)-(.+)-(.+)", std::regex::ECMAScript);
  std::smatch parts;
  if (text.size() > kMaxDateTextLength || !std::regex_match(text, parts, pattern)) {
    return common::time::Date(common::time::Date::duration(kDaysTo1900));
  }
  // Numbers that aren't, or don't fit an int, end the read with std::stoi's exception; what fits
  // is narrowed as the old files' date type held it, and month and day aren't range checked.
  const auto year = static_cast<std::int16_t>(std::stoi(parts[1].str()));
  const auto month = static_cast<std::uint8_t>(std::stoi(parts[2].str()));
  const auto day = static_cast<std::uint8_t>(std::stoi(parts[3].str()));
  return common::time::Date(common::time::Date::duration(DaysFromCivil(year, month, day)));
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

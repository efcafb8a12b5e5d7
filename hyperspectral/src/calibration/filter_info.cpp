#include <kelto/hyperspectral/calibration/filter_info.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <kelto/common/read_by_version.h>

#include "legacy.h"

namespace kelto::hyperspectral {

using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

namespace {

// Edges of the bounding box are whole pixels. A negative or huge edge is outside what an
// unsigned 64-bit edge can hold; such a zone fails its own checks, and the edge is clamped here
// instead of being converted with undefined behaviour.
std::uint64_t Edge(double value) {
  if (!(value > 0.0)) {
    return 0;
  }
  return value >= 1.8446744073709552e19 ? UINT64_MAX : static_cast<std::uint64_t>(value);
}

template <typename Zones>
auto& BandOf(Zones& zones, unsigned long const& index) {
  unsigned long total = 0;
  for (auto& zone : zones) {
    const unsigned long before = total;
    total += zone.bands.size();
    if (index < total) {
      return zone.bands[index - before];
    }
  }
  throw std::runtime_error("invalid band index");
}

}  // namespace

void FilterInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&FilterInfo::_ReadXML_v0, &FilterInfo::_ReadXML_v1},
                        common::NewerVersion::kReadByNewest, common::Unversioned::kReadSilently,
                        &FilterInfo::_ReadXML_vNA);
  RunSanityChecks(result);
}

void FilterInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "filter_info");
  _SetVersion(node, 1ul);
  _WriteXML_v1(node);
}

// Before versions existed the block held only the range of the measured responses; the zone
// was read from the same element by the calibration.
void FilterInfo::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  _xmlNode* grid = nullptr;
  double start = 0.0;
  double end = 0.0;
  double resolution = 0.0;
  if (!(_GetElement(grid, node, "calibration_info", 0) ||
        _GetElement(grid, node, "calibration_data", 0)) ||
      !_GetValue(start, grid, "start_calibration_range", 0.0) ||
      !_GetValue(end, grid, "end_calibration_range", 0.0) ||
      !_GetValue(resolution, grid, "calibration_resolution", 0.0)) {
    result << Event(ParsingResult::Warning, Event::LegacyDefault, "calibration_info");
    return;
  }
  std::vector<double>& points = calibration_info.sample_points_nm;
  std::size_t count = 0;
  if (resolution == 0.0 || !legacy::CountOf(std::floor((end - start) / resolution + 1.0),
                                            CalibrationInfo::kMaxSamplePoints, count)) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The range of " + _GetTagName(grid) + " gives no wavelength grid");
    points.clear();
    return;
  }
  points.assign(count, start);
  // The steps are summed first and each sum added to the start, as the old tool did; this rounds
  // differently from adding a step to the point before.
  double offset = 0.0;
  for (std::size_t i = 1; i < count; ++i) {
    offset += resolution;
    points[i] = points[0] + offset;
  }
}

// The zones in their container, the grid inside the first zone.
void FilterInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  filter_zones.clear();
  _xmlNode* container = nullptr;
  if (!_GetElement(container, node, "filter_zones", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "filter_zones");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, container, "filter_zone");
  for (_xmlNode* item : items) {
    if (filter_zones.empty()) {
      _xmlNode* grid = nullptr;
      if (_GetElement(grid, item, "calibration_info", 0)) {
        calibration_info.ReadXML(result, grid);
      } else {
        result << Event(ParsingResult::Error, Event::MissingElement, "calibration_info");
      }
    }
    _ReadZone(result, item);
  }
}

void FilterInfo::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  filter_zones.clear();
  _xmlNode* grid = nullptr;
  if (_GetElement(grid, node, "calibration_info", 0)) {
    calibration_info.ReadXML(result, grid);
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, "calibration_info");
  }
  _xmlNode* container = nullptr;
  if (!_GetElement(container, node, "filter_zones", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "filter_zones");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, container, "filter_zone");
  for (_xmlNode* item : items) {
    _ReadZone(result, item);
  }
}

void FilterInfo::_ReadZone(ParsingResult& result, _xmlNode* const& item) {
  std::string text;
  _GetAttribute(text, item, "layout", FilterZone::ToString(FilterZone::NO_FILTER));
  FilterZone::eFilterLayout layout = FilterZone::NO_FILTER;
  FilterZone::FromString(layout, text);
  std::unique_ptr<FilterZone> zone(FilterZone::Create(layout));
  zone->ReadXML(result, item);
  filter_zones.push_back(std::move(*zone));
}

void FilterInfo::_WriteXML_v1(_xmlNode*& node) const {
  _SetElement(node, "calibration_info", calibration_info);
  _xmlNode* container = nullptr;
  _PutChild(container, node, "filter_zones");
  for (const FilterZone& zone : filter_zones) {
    _SetElement(container, "filter_zone", zone);
  }
}

void FilterInfo::RunSanityChecks(ParsingResult& result) const {
  calibration_info.RunSanityChecks(result);
  _Check(result, !filter_zones.empty(), "!filter_zones.empty ()");
  for (std::size_t i = 0; i < filter_zones.size(); ++i) {
    const FilterZone& filter_zone = filter_zones[i];
    _Check(result, filter_zone.index == i, "(i == filter_zone.index)");
    filter_zone.RunSanityChecks(result);
    const common::RegionOfInterest& area = filter_zone.filter_area;
    for (std::size_t k = 0; k < i; ++k) {
      const common::RegionOfInterest& prev = filter_zones[k].filter_area;
      _Check(result,
             prev.offset_y + prev.height <= area.offset_y ||
                 prev.offset_x + prev.width <= area.offset_x,

             "(prev_filter_zone.filter_area.offset_y + prev_filter_zone.filter_area.height <= "
             "filter_zone.filter_area.offset_y) || (prev_filter_zone.filter_area.offset_x + "
             "prev_filter_zone.filter_area.width <= filter_zone.filter_area.offset_x)");
    }
  }
}

unsigned long FilterInfo::GetTotalNrBands() const {
  unsigned long total = 0;
  for (const FilterZone& zone : filter_zones) {
    total += zone.bands.size();
  }
  return total;
}

FilterZone::BandInfo& FilterInfo::GetBand(unsigned long const& index) {
  return BandOf(filter_zones, index);
}

FilterZone::BandInfo const& FilterInfo::GetBand(unsigned long const& index) const {
  return BandOf(filter_zones, index);
}

common::RegionOfInterest FilterInfo::GetFilterZonesBoundingBox() const {
  common::RegionOfInterest box;
  if (filter_zones.empty()) {
    return box;
  }
  const common::RegionOfInterest& first = filter_zones.front().filter_area;
  std::uint64_t left = Edge(first.offset_x);
  std::uint64_t top = Edge(first.offset_y);
  std::uint64_t right = Edge(first.offset_x + first.width);
  std::uint64_t bottom = Edge(first.offset_y + first.height);
  for (std::size_t i = 1; i < filter_zones.size(); ++i) {
    const common::RegionOfInterest& area = filter_zones[i].filter_area;
    if (area.offset_x < static_cast<double>(left)) {
      left = Edge(area.offset_x);
    }
    if (area.offset_y < static_cast<double>(top)) {
      top = Edge(area.offset_y);
    }
    if (area.offset_x + area.width > static_cast<double>(right)) {
      right = Edge(area.offset_x + area.width);
    }
    if (area.offset_y + area.height > static_cast<double>(bottom)) {
      bottom = Edge(area.offset_y + area.height);
    }
  }
  box.offset_x = static_cast<double>(left);
  box.offset_y = static_cast<double>(top);
  box.width = static_cast<double>(right) - static_cast<double>(left);
  box.height = static_cast<double>(bottom) - static_cast<double>(top);
  return box;
}

std::string FilterInfo::GetTypeName() const {
  if (filter_zones.size() == 2) {
    const FilterZone::eFilterLayout first = filter_zones[0].filter_layout();
    const FilterZone::eFilterLayout second = filter_zones[1].filter_layout();
    if (first == FilterZone::WEDGE && second == FilterZone::WEDGE) {
      return "QL150-470_900";
    }
    if (first == FilterZone::MOSAIC && second == FilterZone::MOSAIC) {
      return "DUAL_MZT-470_875";
    }
    return "unknown";
  }
  if (filter_zones.size() != 1) {
    return "unknown";
  }
  const FilterZone& zone = filter_zones.front();
  std::ostringstream name;
  name.imbue(std::locale::classic());
  switch (zone.filter_layout()) {
    case FilterZone::WEDGE:
      name << "QL";
      if (zone.bands.size() == 128) {
        name << "100";
      } else {
        name << zone.bands.size();
      }
      break;
    case FilterZone::TILED:
      name << "TZT" << zone.bands.size();
      break;
    case FilterZone::MOSAIC:
      name << "MZT" << zone.pattern_width << "x" << zone.pattern_height;
      break;
    default:
      return "unknown";
  }
  name << "-" << zone.spectral_range_start_nm << "_" << zone.spectral_range_end_nm;
  return name.str();
}

bool operator==(FilterInfo const& left, FilterInfo const& right) {
  return left.calibration_info == right.calibration_info &&
         left.filter_zones.size() == right.filter_zones.size() &&
         std::equal(left.filter_zones.begin(), left.filter_zones.end(), right.filter_zones.begin());
}

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <algorithm>
#include <stdexcept>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using BandInfo = FilterZone::BandInfo;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

namespace {

constexpr double kDefaultSpectralStart = 400.0;
constexpr double kDefaultSpectralEnd = 1000.0;

// A size of the area in whole pixels. Truncating a negative, NaN or huge size is undefined; such
// an area fails its own checks and counts as 0 here.
std::size_t WholePixels(double size) {
  return size >= 0.0 && size < 1.8446744073709552e19 ? static_cast<std::size_t>(size) : 0;
}

// The band step of one direction: 0 without a neighbour, else the area's size (truncated) over
// the number of bands that share it.
unsigned long AreaStep(double size, unsigned long pattern) {
  if (pattern == 0) {
    throw std::logic_error("band step of a zone with a zero pattern size");
  }
  return pattern == 1 ? 0 : WholePixels(size) / pattern;
}

}  // namespace

FilterZone::FilterZone(eFilterLayout const& layout) : filter_layout_(layout) {}

FilterZone* FilterZone::Create(eFilterLayout const& layout) {
  switch (layout) {
    case WEDGE:
      return new WedgeFilterZone();
    case TILED:
      return new TiledFilterZone();
    case MOSAIC:
      return new MosaicFilterZone();
    default:
      return new NoFilterZone();
  }
}

FilterZone* FilterZone::Create(FilterZone const& zone) {
  FilterZone* copy = Create(zone.filter_layout());
  // The subclass keeps its own layout; only the fields are taken over.
  const eFilterLayout layout = copy->filter_layout_;
  *copy = zone;
  copy->filter_layout_ = layout;
  return copy;
}

std::string FilterZone::ToString(eFilterLayout const& layout) {
  switch (layout) {
    case NO_FILTER:
      return "NO_FILTER";
    case WEDGE:
      return "WEDGE";
    case TILED:
      return "TILED";
    case MOSAIC:
      return "MOSAIC";
  }
  return "UNKNOWN";
}

void FilterZone::FromString(eFilterLayout& layout, std::string const& text) {
  for (eFilterLayout candidate : {NO_FILTER, WEDGE, TILED, MOSAIC}) {
    if (text == ToString(candidate)) {
      layout = candidate;
      return;
    }
  }
  layout = static_cast<eFilterLayout>(-1);
}

unsigned long FilterZone::GetBandStepX() const {
  switch (filter_layout_) {
    case TILED:
      return AreaStep(filter_area.width, pattern_width);
    case MOSAIC:
      return pattern_width == 1 ? 0 : 1;
    default:
      return 0;
  }
}

unsigned long FilterZone::GetBandStepY() const {
  switch (filter_layout_) {
    case WEDGE:
    case TILED:
      return AreaStep(filter_area.height, pattern_height);
    case MOSAIC:
      return pattern_height == 1 ? 0 : 1;
    default:
      return 0;
  }
}

unsigned long FilterZone::GetPixelStepX() const {
  return filter_layout_ == MOSAIC ? pattern_width : 1;
}

unsigned long FilterZone::GetPixelStepY() const {
  return filter_layout_ == MOSAIC ? pattern_height : 1;
}

void FilterZone::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&FilterZone::_ReadXML_v0, &FilterZone::_ReadXML_v1,
                         &FilterZone::_ReadXML_v2, &FilterZone::_ReadXML_v3},
                        common::NewerVersion::kReadByNewest, common::Unversioned::kWarnAndRead,
                        &FilterZone::_ReadXML_vNA);
}

void FilterZone::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "filter_zone");
  _SetVersion(node, 3ul);
  _SetAttribute(node, "layout", ToString(filter_layout_));
  _WriteXML_v3(node);
}

void FilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void FilterZone::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  bands.clear();
  index = 0;

  std::string layout_text;
  if (!_GetAttribute(layout_text, node, "layout", std::string())) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "layout");
  }
  eFilterLayout layout = NO_FILTER;
  FromString(layout, layout_text);
  if (layout != filter_layout_) {
    result << Event(ParsingResult::Error, Event::SanityCheck, "layout");
  }

  _xmlNode* area = nullptr;
  if (_GetElement(area, node, "filter_area", 0)) {
    filter_area.ReadXML(result, area);
  } else {
    result << Event(ParsingResult::Error, Event::MissingElement, "filter_area");
  }

  const auto read = [&](auto& field, const char* name, auto default_value) {
    if (!_GetValue(field, node, name, default_value)) {
      result << Event(ParsingResult::Error, Event::MissingValue, name);
    }
  };
  read(pattern_width, "pattern_width", 0ul);
  read(pattern_height, "pattern_height", 0ul);
  read(filter_width, "filter_width", 0ul);
  read(filter_height, "filter_height", 0ul);
  read(spectral_range_start_nm, "spectral_range_start_nm", 0.0);
  read(spectral_range_end_nm, "spectral_range_end_nm", 0.0);
  // Files of the first measuring tool left the range out; it covered 400 to 1000 nm.
  if (spectral_range_start_nm == 0.0) {
    spectral_range_start_nm = kDefaultSpectralStart;
    result << Event(ParsingResult::Warning, Event::MissingValue, "spectral_range_start_nm");
  }
  if (spectral_range_end_nm == 0.0) {
    spectral_range_end_nm = kDefaultSpectralEnd;
    result << Event(ParsingResult::Warning, Event::MissingValue, "spectral_range_end_nm");
  }

  _xmlNode* container = nullptr;
  if (!_GetElement(container, node, "bands", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "bands");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, container, "band");
  for (_xmlNode* item : items) {
    BandInfo band;
    band.ReadXML(result, item);
    bands.push_back(std::move(band));
  }
}

void FilterZone::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_v0(result, node);
}

void FilterZone::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_v1(result, node);
}

void FilterZone::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_v1(result, node);
  if (!_GetAttribute(index, node, "index", 0ul)) {
    result << Event(ParsingResult::Error, Event::MissingAttribute, "index");
  }
}

void FilterZone::_WriteXML_v3(_xmlNode*& node) const {
  _SetAttribute(node, "index", index);
  _SetElement(node, "filter_area", filter_area);
  _SetValue(node, "pattern_width", pattern_width);
  _SetValue(node, "pattern_height", pattern_height);
  _SetValue(node, "filter_width", filter_width);
  _SetValue(node, "filter_height", filter_height);
  _SetValue(node, "spectral_range_start_nm", spectral_range_start_nm);
  _SetValue(node, "spectral_range_end_nm", spectral_range_end_nm);
  _xmlNode* container = nullptr;
  _PutChild(container, node, "bands");
  for (const BandInfo& band : bands) {
    _SetElement(container, "band", band);
  }
}

void FilterZone::RunSanityChecks(ParsingResult& result) const {
  if (filter_layout_ == NO_FILTER) {
    return;
  }
  filter_area.RunSanityChecks(result);
  _Check(result, 0 < pattern_height, "0 < pattern_height");
  _Check(result, 0 < pattern_width, "0 < pattern_width");
  _Check(result, 0 < filter_height, "0 < filter_height");
  _Check(result, 0 < filter_width, "0 < filter_width");
  // A product that overflows can't divide the area evenly; it must not reach the division.
  const auto divides = [](double size, unsigned long pattern, unsigned long filter) {
    unsigned long cell = 0;
    return !__builtin_mul_overflow(pattern, filter, &cell) && 0 == WholePixels(size) % cell;
  };
  if (pattern_height != 0 && filter_height != 0) {
    _Check(result, divides(filter_area.height, pattern_height, filter_height),
           "0 == static_cast <size_t> (filter_area.height) % (pattern_height*filter_height)");
  }
  if (pattern_width != 0 && filter_width != 0) {
    _Check(result, divides(filter_area.width, pattern_width, filter_width),
           "0 == static_cast <size_t> (filter_area.width) % (pattern_width*filter_width)");
  }
  _Check(result, bands.size() == pattern_width * pattern_height,
         "bands.size () == pattern_width*pattern_height");
  for (const BandInfo& band : bands) {
    band.RunSanityChecks(result);
  }
}

void FilterZone::RetainSelectedOnly(std::deque<BandInfo>& bands) {
  bands.erase(std::remove_if(bands.begin(), bands.end(),
                             [](BandInfo const& band) { return !band.selected; }),
              bands.end());
}

void FilterZone::RetainWithPeaksOnly(std::deque<BandInfo>& bands) {
  bands.erase(std::remove_if(bands.begin(), bands.end(),
                             [](BandInfo const& band) { return band.peaks.empty(); }),
              bands.end());
}

void FilterZone::SortOnPatternPositionIndex(std::deque<BandInfo>& bands) {
  std::sort(bands.begin(), bands.end(), _ComparePaternPositionIndex);
}

void FilterZone::SortOnWavelength(std::deque<BandInfo>& bands) {
  std::sort(bands.begin(), bands.end(), _CompareWavelength);
}

bool FilterZone::_ComparePaternPositionIndex(BandInfo const& first, BandInfo const& second) {
  return first.pattern_position_index < second.pattern_position_index;
}

bool FilterZone::_CompareWavelength(BandInfo const& first, BandInfo const& second) {
  // Bands without a peak belong removed first (RetainWithPeaksOnly); if one slips through it
  // sorts before all others instead of reading a peak that is not there.
  if (first.peaks.empty() || second.peaks.empty()) {
    return first.peaks.empty() && !second.peaks.empty();
  }
  return first.peaks.front().wavelength_nm < second.peaks.front().wavelength_nm;
}

void FilterZone::GetResponseMatrix(std::vector<double> values, std::vector<double*> rows,
                                   std::deque<BandInfo> const& bands) {
  const std::size_t n = bands.size();
  const std::size_t m = n == 0 ? 0 : bands.front().response.size();
  values.resize(n * m);
  rows.resize(n);
  if (values.empty()) {
    return;
  }
  for (std::size_t i = 0; i < n; ++i) {
    rows[i] = values.data() + i * m;
    // A shorter response leaves the rest of its row at zero instead of reading past its end.
    const std::size_t count = std::min(m, bands[i].response.size());
    std::copy_n(bands[i].response.begin(), count, rows[i]);
  }
}

void FilterZone::GetResponseMatrix(std::vector<double const*> rows,
                                   std::deque<BandInfo> const& bands) {
  rows.resize(bands.size());
  for (std::size_t i = 0; i < bands.size(); ++i) {
    rows[i] = bands[i].response.data();
  }
}

bool operator==(FilterZone const& left, FilterZone const& right) {
  return left.index == right.index && left.filter_area == right.filter_area &&
         left.pattern_width == right.pattern_width && left.pattern_height == right.pattern_height &&
         left.filter_width == right.filter_width && left.filter_height == right.filter_height &&
         left.spectral_range_start_nm == right.spectral_range_start_nm &&
         left.spectral_range_end_nm == right.spectral_range_end_nm && left.bands == right.bands;
}

// ---------------------------------------------------------------------------------------------
// The arrangements

void NoFilterZone::_ReadXML_vNA(ParsingResult&, _xmlNode* const&) {
  *this = NoFilterZone();
}

void NoFilterZone::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_vNA(result, node);
}

void NoFilterZone::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v0(result, node);
}

void NoFilterZone::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v1(result, node);
}

void NoFilterZone::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v2(result, node);
}

void NoFilterZone::_WriteXML_v3(_xmlNode*&) const {}

void WedgeFilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void WedgeFilterZone::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void TiledFilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

void MosaicFilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
}

}  // namespace kelto::hyperspectral

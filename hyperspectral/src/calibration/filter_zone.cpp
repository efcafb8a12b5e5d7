#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include <kelto/common/read_by_version.h>
#include <kelto/common/translator.h>
#include <kelto/hyperspectral/calibration/calibration_info.h>

#include "legacy.h"

namespace kelto::hyperspectral {

using BandInfo = FilterZone::BandInfo;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

namespace {

constexpr double kDefaultSpectralStart = 400.0;
constexpr double kDefaultSpectralEnd = 1000.0;

// Tiles of the unversioned form all had this side, in pixels.
constexpr unsigned long kTileSize = 256;

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

const std::deque<double>& ListOf(std::map<int, std::deque<double>> const& lists,
                                 unsigned long band) {
  static const std::deque<double> kNone;
  const auto found = lists.find(static_cast<int>(band));
  return found == lists.end() ? kNone : found->second;
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

namespace {

// "UNKNOWN" is written for any other value but never read back as a layout: it is no entry here.
class FilterLayoutTranslator : public common::Translator<FilterZone::eFilterLayout> {
 public:
  FilterLayoutTranslator() {
    Register("NO_FILTER", FilterZone::NO_FILTER);
    Register("WEDGE", FilterZone::WEDGE);
    Register("TILED", FilterZone::TILED);
    Register("MOSAIC", FilterZone::MOSAIC);
  }
};

const FilterLayoutTranslator flt;

}  // namespace

std::string FilterZone::ToString(eFilterLayout const& layout) {
  return flt.TextOr(layout, "UNKNOWN");
}

void FilterZone::FromString(eFilterLayout& layout, std::string const& text) {
  layout = flt.ValueOr(text, static_cast<eFilterLayout>(-1));
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

// The form of the first measuring tool: per-band lists of peak wavelengths and widths, a
// selection, and all responses as one matrix of 10-bit numbers with a row per sample and a column
// per band. The subclasses derive the pattern from it.
void FilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  index = 0;
  _ReadLegacyArea(result, node);
  _ReadValue(result, spectral_range_start_nm, node, "start_spectral_range", kDefaultSpectralStart,
             ParsingResult::Warning, Event::MissingValue);
  _ReadValue(result, spectral_range_end_nm, node, "end_spectral_range", kDefaultSpectralEnd,
             ParsingResult::Warning, Event::MissingValue);

  BandLists wavelengths;
  BandLists widths;
  BandLists full_widths;  // read for its events alone: no peak keeps a full width any more
  _ReadBandLists(result, node, "wavelength", wavelengths, true);
  _ReadBandLists(result, node, "fwhm", widths, true);
  _ReadBandLists(result, node, "fwfm", full_widths, false);

  // Membership only, and a file may list many bands: a set keeps the look-up short.
  const std::set<double> active = _ReadActiveBands(node, wavelengths.size());

  const unsigned long counted = wavelengths.empty() || wavelengths.rbegin()->first < 0
                                    ? 0
                                    : static_cast<unsigned long>(wavelengths.rbegin()->first) + 1;
  unsigned long nr_bands = 0;
  if (_GetValue(nr_bands, node, "nr_bands", counted) && nr_bands != counted) {
    result << Event(ParsingResult::Error, Event::SanityCheck, "nr_bands");
  }
  if (nr_bands > kMaxBands) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "nr_bands is more bands than a zone can have");
    nr_bands = 0;
  }

  bands.clear();
  for (unsigned long b = 0; b < nr_bands; ++b) {
    BandInfo band;
    band.pattern_position_index = b;
    const std::deque<double>& band_wavelengths = ListOf(wavelengths, b);
    const std::deque<double>& band_widths = ListOf(widths, b);
    if (band_wavelengths.empty()) {
      result << Event(ParsingResult::Error, Event::LegacyDefault, "bands");
    }
    if (band_widths.empty()) {
      result << Event(ParsingResult::Warning, Event::LegacyDefault, "bands");
    }
    // A negative wavelength was how the tool switched a band off.
    const double wavelength = band_wavelengths.empty() ? 0.0 : band_wavelengths.front();
    band.selected = active.count(static_cast<double>(b)) != 0 && wavelength > 0.0;
    BandInfo::PeakInfo peak;
    peak.wavelength_nm = std::fabs(wavelength);
    peak.fwhm_nm = band_widths.empty() ? 0.0 : band_widths.front();
    peak.quantum_efficiency = 0.0;
    peak.contribution = 1.0;
    band.peaks.push_back(peak);
    bands.push_back(std::move(band));
  }
  _ReadLegacyResponses(result, node, nr_bands);
}

void FilterZone::_ReadLegacyArea(ParsingResult& result, _xmlNode* const& node) {
  _xmlNode* area = nullptr;
  if (_GetElement(area, node, "active_area", 0)) {
    _ReadValue(result, filter_area.offset_x, area, "offset_x", 0.0, ParsingResult::Error,
               Event::MissingValue);
    _ReadValue(result, filter_area.offset_y, area, "offset_y", 0.0, ParsingResult::Error,
               Event::MissingValue);
    _ReadValue(result, filter_area.width, area, "width", 0.0, ParsingResult::Error,
               Event::MissingValue);
    _ReadValue(result, filter_area.height, area, "height", 0.0, ParsingResult::Error,
               Event::MissingValue);
    return;
  }
  // The flat form; a size that is not there stays what it held (the sensor's, when the zone is
  // the filter of a whole calibration).
  _ReadValue(result, filter_area.offset_x, node, "active_area_offset_x", 0.0,
             ParsingResult::Warning, Event::MissingValue);
  _ReadValue(result, filter_area.offset_y, node, "active_area_offset_y", 0.0,
             ParsingResult::Warning, Event::MissingValue);
  _ReadValue(result, filter_area.width, node, "active_area_width", filter_area.width,
             ParsingResult::Warning, Event::MissingValue);
  _ReadValue(result, filter_area.height, node, "active_area_height", filter_area.height,
             ParsingResult::Warning, Event::MissingValue);
}

void FilterZone::_ReadBandLists(ParsingResult& result, _xmlNode* const& node, const char* name,
                                BandLists& lists, bool required) {
  _xmlNode* element = nullptr;
  if (!_GetElement(element, node, name, 0)) {
    if (required) {
      result << Event(ParsingResult::Error, Event::MissingElement, name);
    }
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, element, "band");
  for (_xmlNode* item : items) {
    int number = 0;
    _ReadAttribute(result, number, item, "number", 0);
    std::deque<double> values;
    _ReadCSV(values, _GetData(item));
    if (values.empty()) {
      result << Event(ParsingResult::Error, Event::MissingValue, "band");
    }
    // The first list of a band stays; a second one with values is a contradiction of the file.
    std::deque<double>& list = lists[number];
    if (list.empty()) {
      list = std::move(values);
    } else {
      result << Event(ParsingResult::Error, Event::SanityCheck, name);
    }
  }
}

std::set<double> FilterZone::_ReadActiveBands(_xmlNode* const& node, std::size_t listed) {
  std::deque<double> numbers;
  _xmlNode* element = nullptr;
  if (_GetElement(element, node, "active_bands", 0)) {
    _ReadCSV(numbers, _GetData(element));
  } else if (_GetElement(element, node, "bandSelection", 0)) {
    std::deque<_xmlNode*> items;
    _GetElements(items, element, "band");
    for (_xmlNode* item : items) {
      // std::stof as the tool read it: a text that isn't a number ends the read with its
      // exception, which the caller gets.
      numbers.push_back(std::stof(_GetData(item)));
    }
  }
  std::set<double> active(numbers.begin(), numbers.end());
  // Without a selection, every band that has a wavelength takes part.
  if (active.empty()) {
    for (std::size_t b = 0; b < listed; ++b) {
      active.insert(static_cast<double>(b));
    }
  }
  return active;
}

void FilterZone::_ReadLegacyResponses(ParsingResult& result, _xmlNode* const& node,
                                      unsigned long nr_bands) {
  _xmlNode* grid = nullptr;
  if (!_GetElement(grid, node, "calibration_info", 0) &&
      !_GetElement(grid, node, "calibration_data", 0)) {
    return;
  }
  double start = 0.0;
  double end = 0.0;
  double resolution = 0.0;
  const bool has_start = _GetValue(start, grid, "start_calibration_range", 0.0);
  const bool has_end = _GetValue(end, grid, "end_calibration_range", 0.0);
  const bool has_resolution = _GetValue(resolution, grid, "calibration_resolution", 0.0);
  if (resolution == 0.0) {
    resolution = 1.0;
  }
  _xmlNode* responses = nullptr;
  if (!has_start || !has_end || !has_resolution ||
      !_GetElement(responses, grid, "filter_responses", 0)) {
    result << Event(ParsingResult::Warning, Event::LegacyDefault, "calibration_info");
    return;
  }
  std::size_t samples = 0;
  if (!legacy::CountOf((end - start) / resolution + 1.5, CalibrationInfo::kMaxSamplePoints,
                       samples)) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The range of " + _GetTagName(grid) + " gives no number of samples that " +
                        "filter_responses can hold");
    return;
  }
  const std::size_t count = samples * nr_bands;
  std::vector<double> values;
  // A text with fewer numbers than the grid and the bands ask for has no row of its own for
  // every sample; the bands then keep no response rather than a guessed one.
  if (count == 0 || !_ReadCSV(values, _GetData(responses), count)) {
    result << Event(ParsingResult::Error, Event::MissingValue, "filter_responses");
    return;
  }
  for (BandInfo& band : bands) {
    band.response.resize(samples);
    for (std::size_t s = 0; s < samples; ++s) {
      band.response[s] = legacy::kTenBitScale * values[s * nr_bands + band.pattern_position_index];
    }
  }
}

void FilterZone::_FlipPatternRows() {
  for (BandInfo& band : bands) {
    const unsigned long row = band.pattern_position_index / pattern_width;
    const unsigned long column = band.pattern_position_index % pattern_width;
    band.pattern_position_index = (pattern_height - 1 - row) * pattern_width + column;
  }
}

void FilterZone::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  bands.clear();
  index = 0;

  std::string layout_text;
  _ReadAttribute(result, layout_text, node, "layout", std::string());
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

  _ReadValue(result, pattern_width, node, "pattern_width", 0ul, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, pattern_height, node, "pattern_height", 0ul, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, filter_width, node, "filter_width", 0ul, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, filter_height, node, "filter_height", 0ul, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, spectral_range_start_nm, node, "spectral_range_start_nm", 0.0,
             ParsingResult::Error, Event::MissingValue);
  _ReadValue(result, spectral_range_end_nm, node, "spectral_range_end_nm", 0.0,
             ParsingResult::Error, Event::MissingValue);
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
  _ReadAttribute(result, index, node, "index", 0ul);
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

// A stripe of lines per band, the first band at the top of the area.
void WedgeFilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_vNA(result, node);
  pattern_width = 1;
  pattern_height = bands.size();

  // The lines of a band default to an even share of the area, which a zone without bands lacks.
  std::size_t share = 0;
  if (bands.empty()) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "lines_per_band can't be shared out over a wedge without bands");
  } else {
    share = std::min<std::size_t>(WholePixels(filter_area.height) / bands.size(), INT_MAX);
  }
  int lines_per_band = 0;
  _ReadValue(result, lines_per_band, node, "lines_per_band", static_cast<int>(share),
             ParsingResult::Warning, Event::LegacyDefault);
  if (lines_per_band < 0) {
    result << Event(ParsingResult::Error, Event::MissingValue, "lines_per_band");
    lines_per_band = 0;
  }
  int first_band_offset = 0;
  _ReadValue(result, first_band_offset, node, "first_band_offset", 0, ParsingResult::Warning,
             Event::LegacyDefault);
  filter_area.offset_y = first_band_offset;

  if (pattern_height != 0) {
    const std::size_t rest = WholePixels(filter_area.height) % pattern_height;
    if (rest != 0) {
      filter_area.height -= static_cast<double>(rest);
      result << Event(ParsingResult::Warning, Event::SanityCheck,
                      "active_area_height and pattern_height");
    }
  }
  filter_width = WholePixels(filter_area.width);
  filter_height = static_cast<unsigned long>(lines_per_band);
  _FlipPatternRows();
  SortOnPatternPositionIndex(bands);
}

// The area of this version covered only the selected bands; it is widened to all of them.
void WedgeFilterZone::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_v0(result, node);
  if (pattern_height * filter_height == bands.size()) {
    return;
  }
  pattern_height = bands.size();
  std::deque<BandInfo> selected = bands;
  RetainSelectedOnly(selected);
  if (selected.empty()) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "A wedge without selected bands has no first band to place its area by");
  } else {
    filter_area.offset_y -= static_cast<double>(selected.front().pattern_position_index) *
                            static_cast<double>(filter_height);
  }
  filter_area.height +=
      static_cast<double>(bands.size() - selected.size()) * static_cast<double>(filter_height);
}

// Tiles of a fixed size, numbered to bands by a table of their own.
void TiledFilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_vNA(result, node);
  if (!_GetValue(pattern_height, node, "tile_row_count", 0ul) &&
      !_GetValue(pattern_height, node, "tileRows", 0ul)) {
    result << Event(ParsingResult::Error, Event::MissingValue, "tile_row_count - tileRows");
  }
  if (!_GetValue(pattern_width, node, "tile_col_count", 0ul) &&
      !_GetValue(pattern_width, node, "tileCols", 0ul)) {
    result << Event(ParsingResult::Error, Event::MissingValue, "tile_col_count - tileCols");
  }
  if (filter_area.offset_x == 0.0) {
    _GetValue(filter_area.offset_x, node, "tileOffsetX", 0.0);
  }
  if (filter_area.offset_y == 0.0) {
    _GetValue(filter_area.offset_y, node, "tileOffsetY", 0.0);
  }
  filter_width = kTileSize;
  filter_height = kTileSize;
  filter_area.width = static_cast<double>(pattern_width) * kTileSize;
  filter_area.height = static_cast<double>(pattern_height) * kTileSize;

  _xmlNode* table = nullptr;
  if (_GetElement(table, node, "tileToBandNr", 0)) {
    std::map<unsigned long, unsigned long> tile_of_band;
    std::deque<_xmlNode*> items;
    _GetElements(items, table, "band");
    for (_xmlNode* item : items) {
      unsigned long tile = 0;
      _ReadAttribute(result, tile, item, "tile", 0ul);
      // std::stof as the tool read it: a text that isn't a number ends the read with its
      // exception, which the caller gets. A number that no band has is left out.
      const float number = std::stof(_GetData(item));
      std::size_t band = 0;
      if (!legacy::CountOf(number, kMaxBands - 1, band)) {
        result << Event(ParsingResult::Error, Event::SanityCheck,
                        "tileToBandNr holds a band number that no zone has");
        continue;
      }
      tile_of_band[band] = tile;
    }
    // The table's bands in ascending order give the tiles of the zone's bands in theirs; a gap
    // leaves the count behind, so every later band is reported.
    unsigned long k = 0;
    for (const auto& [band, tile] : tile_of_band) {
      if (k == bands.size()) {
        result << Event(ParsingResult::Error, Event::SanityCheck,
                        "tileToBandNr holds more bands than the zone");
        break;
      }
      if (band != k) {
        result << Event(ParsingResult::Error, Event::SanityCheck, "missing bands in tileToBandNr");
      }
      bands[k].pattern_position_index = tile;
      ++k;
    }
    SortOnPatternPositionIndex(bands);
  }

  if (pattern_width == 0) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The rows of tiles without columns can't be turned upside down");
  } else {
    _FlipPatternRows();
  }
  SortOnPatternPositionIndex(bands);
}

// A small pattern of one-pixel filters repeated over the area.
void MosaicFilterZone::_ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) {
  FilterZone::_ReadXML_vNA(result, node);
  _ReadValue(result, pattern_width, node, "mosaic_pattern_width", 0ul, ParsingResult::Error,
             Event::MissingValue);
  _ReadValue(result, pattern_height, node, "mosaic_pattern_height", 0ul, ParsingResult::Error,
             Event::MissingValue);
  filter_width = 1;
  filter_height = 1;
  // The area holds whole patterns only.
  if (pattern_width != 0) {
    const std::size_t rest = WholePixels(filter_area.width) % pattern_width;
    if (rest != 0) {
      filter_area.width -= static_cast<double>(rest);
      result << Event(ParsingResult::Warning, Event::SanityCheck,
                      "active_area_width and mosaic_pattern_width");
    }
  }
  if (pattern_height != 0) {
    const std::size_t rest = WholePixels(filter_area.height) % pattern_height;
    if (rest != 0) {
      filter_area.height -= static_cast<double>(rest);
      result << Event(ParsingResult::Warning, Event::SanityCheck,
                      "active_area_height and mosaic_pattern_height");
    }
  }
  if (pattern_width != 0) {
    _FlipPatternRows();
  }
  SortOnPatternPositionIndex(bands);
}

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/filter_info.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

const char* const kOrderRule =
    "(prev_filter_zone.filter_area.offset_y + prev_filter_zone.filter_area.height <= "
    "filter_zone.filter_area.offset_y) || (prev_filter_zone.filter_area.offset_x + "
    "prev_filter_zone.filter_area.width <= filter_zone.filter_area.offset_x)";

FilterZone Zone(FilterZone::eFilterLayout layout, unsigned long index, double x, double y,
                double width, double height, unsigned long bands) {
  FilterZone zone(layout);
  zone.index = index;
  zone.filter_area = common::RegionOfInterest(x, y, width, height);
  zone.pattern_width = 1;
  zone.pattern_height = bands;
  zone.filter_width = static_cast<unsigned long>(width);
  zone.filter_height = 1;
  zone.spectral_range_start_nm = 600.0;
  zone.spectral_range_end_nm = 1000.0;
  for (unsigned long i = 0; i < bands; ++i) {
    FilterZone::BandInfo band;
    band.pattern_position_index = i;
    band.response = {static_cast<double>(index), static_cast<double>(i)};
    zone.bands.push_back(band);
  }
  return zone;
}

FilterInfo TwoWedges() {
  FilterInfo filter;
  filter.calibration_info.sample_points_nm = {600.0, 800.0};
  filter.filter_zones.push_back(Zone(FilterZone::WEDGE, 0, 0.0, 0.0, 2048.0, 512.0, 64));
  filter.filter_zones.push_back(Zone(FilterZone::WEDGE, 1, 0.0, 512.0, 2048.0, 512.0, 128));
  return filter;
}

TEST(FilterInfoBands, GlobalNumbersRunOverAllZones) {
  FilterInfo filter = TwoWedges();
  EXPECT_EQ(filter.GetTotalNrBands(), 192u);
  EXPECT_EQ(filter.GetBand(0).response[0], 0.0);
  EXPECT_EQ(filter.GetBand(63).response[1], 63.0);
  EXPECT_EQ(filter.GetBand(64).response[0], 1.0);
  EXPECT_EQ(filter.GetBand(64).response[1], 0.0);
  const FilterInfo& constant = filter;
  EXPECT_EQ(constant.GetBand(191).response[1], 127.0);
  EXPECT_THAT([&] { constant.GetBand(192); },
              ::testing::ThrowsMessage<std::runtime_error>("invalid band index"));
  filter.GetBand(5).selected = true;
  EXPECT_TRUE(filter.filter_zones[0].bands[5].selected);
  EXPECT_THROW(FilterInfo().GetBand(0), std::runtime_error);
}

TEST(FilterInfoBoundingBox, WholePixelsAroundAllZones) {
  FilterInfo filter;
  EXPECT_TRUE(filter.GetFilterZonesBoundingBox() == common::RegionOfInterest());
  filter.filter_zones.push_back(Zone(FilterZone::MOSAIC, 0, 10.7, 20.2, 100.6, 50.5, 1));
  filter.filter_zones.push_back(Zone(FilterZone::MOSAIC, 1, 5.9, 80.0, 50.0, 30.9, 1));
  // Left 5 (from 5.9), top 20, right 111 (10.7 + 100.6 = 111.3), bottom 110 (80 + 30.9).
  EXPECT_TRUE(filter.GetFilterZonesBoundingBox() ==
              common::RegionOfInterest(5.0, 20.0, 106.0, 90.0));
}

TEST(FilterInfoTypeName, EveryRowOfTheFamilyTable) {
  const auto single = [](FilterZone zone) {
    FilterInfo filter;
    filter.filter_zones.push_back(zone);
    return filter.GetTypeName();
  };
  EXPECT_EQ(single(Zone(FilterZone::WEDGE, 0, 0, 0, 8, 8, 128)), "QL100-600_1000");
  EXPECT_EQ(single(Zone(FilterZone::WEDGE, 0, 0, 0, 8, 8, 100)), "QL100-600_1000");
  EXPECT_EQ(single(Zone(FilterZone::WEDGE, 0, 0, 0, 8, 8, 127)), "QL127-600_1000");
  FilterZone tiles = Zone(FilterZone::TILED, 0, 0, 0, 8, 8, 32);
  EXPECT_EQ(single(tiles), "TZT32-600_1000");
  FilterZone mosaic = Zone(FilterZone::MOSAIC, 0, 0, 0, 8, 8, 16);
  mosaic.pattern_width = 4;
  mosaic.pattern_height = 4;
  mosaic.spectral_range_start_nm = 470.5;
  mosaic.spectral_range_end_nm = 620.0;
  EXPECT_EQ(single(mosaic), "MZT4x4-470.5_620");
  EXPECT_EQ(single(Zone(FilterZone::NO_FILTER, 0, 0, 0, 8, 8, 1)), "unknown");

  FilterInfo two = TwoWedges();
  EXPECT_EQ(two.GetTypeName(), "QL150-470_900");
  two.filter_zones[0] = mosaic;
  EXPECT_EQ(two.GetTypeName(), "unknown");
  two.filter_zones[1] = Zone(FilterZone::MOSAIC, 1, 0, 0, 8, 8, 4);
  EXPECT_EQ(two.GetTypeName(), "DUAL_MZT-470_875");
  two.filter_zones.push_back(mosaic);
  EXPECT_EQ(two.GetTypeName(), "unknown");
  EXPECT_EQ(FilterInfo().GetTypeName(), "unknown");
}

TEST(FilterInfoReading, MissingContainersAndEmptyZoneList) {
  FilterInfo filter = TwoWedges();
  auto result = Read(filter, R"(<filter_info version="1"/>)");
  EXPECT_EQ(Events(result),
            (EventList{ReadStart("filter_info"), Error(kMissingElement, "calibration_info"),
                       Error(kMissingElement, "filter_zones"), Check("!filter_zones.empty ()")}));
  EXPECT_TRUE(filter.filter_zones.empty());
  // The grid was not in the file and keeps what it held.
  EXPECT_EQ(filter.calibration_info.sample_points_nm.size(), 2u);

  result = Read(filter, R"(<filter_info version="3"><calibration_info version="5">
      <sample_points_nm nr_elements="0" values=""/></calibration_info><filter_zones/>
      </filter_info>)");
  EXPECT_EQ(Events(result), (EventList{ReadStart("filter_info"), ReadStart("calibration_info"),
                                       CheckWarning("!sample_points_nm.empty ()"),
                                       Check("!filter_zones.empty ()")}));
}

TEST(FilterInfoLegacy, UnversionedBlockHoldsTheRangeOfTheResponses) {
  const auto block = [](const std::string& element, const std::string& start,
                        const std::string& end, const std::string& resolution) {
    return "<filter><" + element + "><start_calibration_range>" + start +
           "</start_calibration_range><end_calibration_range>" + end +
           "</end_calibration_range><calibration_resolution>" + resolution +
           "</calibration_resolution></" + element + "></filter>";
  };
  // Read silently; the block then lacks its zone, which the calibration adds afterwards.
  FilterInfo filter;
  EXPECT_EQ(Events(Read(filter, block("calibration_data", "600", "601", "0.1"))),
            (EventList{ReadStart("filter"), Check("!filter_zones.empty ()")}));
  // The steps are summed, and each sum added to the start.
  std::vector<double> expected(1, 600.0);
  double offset = 0.0;
  for (int i = 1; i <= 10; ++i) {
    offset += 0.1;
    expected.push_back(600.0 + offset);
  }
  EXPECT_EQ(filter.calibration_info.sample_points_nm, expected);
  EXPECT_NE(expected[3], (600.0 + 0.1 + 0.1) + 0.1);

  // The count is the whole number of steps plus one: 600 to 601.9 by 1 gives two points.
  Read(filter, block("calibration_info", "600", "601.9", "1"));
  EXPECT_EQ(filter.calibration_info.sample_points_nm, (std::vector<double>{600.0, 601.0}));
  Read(filter, block("calibration_info", "600", "599.5", "1"));
  EXPECT_TRUE(filter.calibration_info.sample_points_nm.empty());
  Read(filter, block("calibration_info", "600", "600.5", "1"));
  EXPECT_EQ(filter.calibration_info.sample_points_nm, std::vector<double>{600.0});

  // Without the element or one of its values the grid keeps what it had, with a warning.
  for (const std::string& xml : {std::string("<filter/>"),
                                 Replace(block("calibration_info", "600", "601", "1"),
                                         "<end_calibration_range>601</end_calibration_range>", ""),
                                 block("calibration", "600", "601", "1")}) {
    EXPECT_EQ(Events(Read(filter, xml)),
              (EventList{ReadStart("filter"), Warning(kLegacyDefault, "calibration_info"),
                         Check("!filter_zones.empty ()")}))
        << xml;
    EXPECT_EQ(filter.calibration_info.sample_points_nm, std::vector<double>{600.0});
  }

  // A range that gives no grid, or more points than any calibration has, leaves it empty.
  for (const auto& [end, resolution] : std::vector<std::pair<std::string, std::string>>{
           {"601", "0"}, {"598", "1"}, {"1000", "1e-6"}, {"inf", "1"}, {"601", "nan"}}) {
    EXPECT_EQ(
        Events(Read(filter, block("calibration_data", "600", end, resolution))),
        (EventList{ReadStart("filter"),
                   Check("The range of calibration_data gives no wavelength grid"),
                   CheckWarning("!sample_points_nm.empty ()"), Check("!filter_zones.empty ()")}))
        << end << " " << resolution;
    EXPECT_TRUE(filter.calibration_info.sample_points_nm.empty());
  }
}

TEST(FilterInfoLegacy, VersionZeroKeepsTheGridInItsFirstZone) {
  FilterInfo filter = TwoWedges();
  std::string text = filter.WriteString();
  // The grid moves into the first zone.
  const std::size_t grid_start = text.find("<calibration_info");
  const std::size_t grid_end = text.find("</calibration_info>") + 19;
  const std::string grid = text.substr(grid_start, grid_end - grid_start);
  text.erase(grid_start, grid_end - grid_start);
  text = Replace(text, R"(<filter_info version="1">)", R"(<filter_info version="0">)");
  text = Replace(text, R"(layout="WEDGE" index="0">)", "layout=\"WEDGE\" index=\"0\">" + grid);
  FilterInfo copy;
  EXPECT_EQ(NotOk(Read(copy, text)), EventList{});
  EXPECT_TRUE(copy == filter);

  // Without the grid in the first zone: the error, and the grid stays as it was.
  EXPECT_EQ(NotOk(Read(copy, Replace(text, grid, ""))),
            (EventList{Error(kMissingElement, "calibration_info")}));
  EXPECT_EQ(copy.calibration_info, filter.calibration_info);
  // Without zones nothing is looked for; without the container the list stays empty.
  EXPECT_EQ(NotOk(Read(copy, R"(<filter_info version="0"><filter_zones/></filter_info>)")),
            (EventList{Check("!filter_zones.empty ()")}));
  EXPECT_EQ(NotOk(Read(copy, R"(<filter_info version="0"/>)")),
            (EventList{Error(kMissingElement, "filter_zones"), Check("!filter_zones.empty ()")}));
  EXPECT_TRUE(copy.filter_zones.empty());
  EXPECT_EQ(copy.calibration_info, filter.calibration_info);
}

TEST(FilterInfoChecks, ZonesMustBeNumberedAndListedTopLeftFirst) {
  FilterInfo filter;
  filter.calibration_info.sample_points_nm = {600.0};
  // Side by side, the right one listed first: the left one lies neither below nor right of it.
  filter.filter_zones.push_back(Zone(FilterZone::WEDGE, 0, 1024.0, 0.0, 1024.0, 512.0, 4));
  filter.filter_zones.push_back(Zone(FilterZone::WEDGE, 1, 0.0, 0.0, 1024.0, 512.0, 4));
  EXPECT_EQ(Checks(filter), (EventList{Check(kOrderRule)}));

  std::swap(filter.filter_zones[0], filter.filter_zones[1]);
  EXPECT_EQ(Checks(filter),
            (EventList{Check("(i == filter_zone.index)"), Check("(i == filter_zone.index)")}));
  filter.filter_zones[0].index = 0;
  filter.filter_zones[1].index = 1;
  EXPECT_TRUE(Checks(filter).empty());

  // A third zone above and left of both earlier ones fails against each of them.
  filter.filter_zones.push_back(Zone(FilterZone::WEDGE, 2, 0.0, 0.0, 10.0, 4.0, 4));
  filter.filter_zones[0].filter_area.offset_y = 100.0;
  filter.filter_zones[1].filter_area.offset_y = 100.0;
  EXPECT_EQ(Checks(filter), (EventList{Check(kOrderRule), Check(kOrderRule)}));
}

TEST(FilterInfoEquality, ComparesGridAndZonesInOrder) {
  const FilterInfo filter = TwoWedges();
  std::vector<FilterInfo> variants(3, filter);
  variants[0].filter_zones.pop_back();
  variants[1].calibration_info.sample_points_nm[0] = 601.0;
  std::swap(variants[2].filter_zones[0], variants[2].filter_zones[1]);
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == filter) << i;
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

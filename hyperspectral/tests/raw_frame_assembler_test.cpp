#include <kelto/hyperspectral/access/raw_frame_assembler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <kelto/datatypes/band_image_data_format.h>

namespace kelto::hyperspectral {
namespace {

using datatypes::BandImageDataFormat;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

FilterZone Zone(FilterZone::eFilterLayout layout, unsigned long index,
                common::RegionOfInterest area, unsigned long columns, unsigned long rows,
                std::vector<unsigned long> positions) {
  FilterZone zone(layout);
  zone.index = index;
  zone.filter_area = area;
  zone.pattern_width = columns;
  zone.pattern_height = rows;
  for (const unsigned long position : positions) {
    FilterZone::BandInfo band;
    band.pattern_position_index = position;
    FilterZone::BandInfo::PeakInfo peak;
    peak.order = 1;
    peak.wavelength_nm = 500.0 + 10.0 * static_cast<double>(position);
    peak.fwhm_nm = 8.0;
    band.peaks.push_back(peak);
    zone.bands.push_back(band);
  }
  return zone;
}

FilterInfo Filter(std::vector<FilterZone> zones) {
  FilterInfo filter;
  for (auto& zone : zones) {
    filter.filter_zones.push_back(zone);
  }
  return filter;
}

// A frame whose sample at (x, y) is 10 y + x.
std::vector<unsigned short> Frame(unsigned long width, unsigned long height) {
  std::vector<unsigned short> frame(width * height);
  for (unsigned long y = 0; y < height; ++y) {
    for (unsigned long x = 0; x < width; ++x) {
      frame[y * width + x] = static_cast<unsigned short>(10 * y + x);
    }
  }
  return frame;
}

TEST(RawFrameAssembler, MosaicGivesOnePixelPerRepetitionInBandNumbering) {
  // A 2 x 2 pattern whose bands are stored out of pattern order.
  const RawFrameAssembler assembler(
      Filter({Zone(FilterZone::MOSAIC, 0, {0, 0, 4, 4}, 2, 2, {2, 0, 3, 1})}));
  EXPECT_EQ(assembler.GetBandCount(), 4u);
  EXPECT_THAT(assembler.GetWavelengths(), ElementsAre(520, 500, 530, 510));
  const auto frame = Frame(4, 4);
  ASSERT_EQ(assembler.GetCubeWidth(4, 4), 2u);
  ASSERT_EQ(assembler.GetCubeLines(4, 4), 2u);
  std::vector<float> cube(2 * 2 * 4);
  assembler.Assemble(frame.data(), BandImageDataFormat::kUnsignedShort, 4, 4, cube.data());
  // Cube pixel (1, 1): sensor pixels (2..3, 2..3); band 0 is pattern position 2 (column 0, row 1).
  EXPECT_THAT(std::vector<float>(cube.begin() + 12, cube.end()), ElementsAre(32, 22, 33, 23));
  EXPECT_THAT(std::vector<float>(cube.begin(), cube.begin() + 4), ElementsAre(10, 0, 11, 1));
  // A smaller frame gives the whole repetitions it holds.
  EXPECT_EQ(assembler.GetCubeWidth(3, 3), 1u);
  EXPECT_EQ(assembler.GetCubeLines(3, 3), 1u);
  EXPECT_THROW(
      assembler.Assemble(frame.data(), BandImageDataFormat::kUnsignedShort, 1, 1, cube.data()),
      std::invalid_argument);
}

TEST(RawFrameAssembler, TilesGiveOnePixelPerPositionInATile) {
  const RawFrameAssembler assembler(
      Filter({Zone(FilterZone::TILED, 0, {0, 0, 6, 2}, 2, 1, {0, 1})}));
  const auto frame = Frame(6, 2);
  ASSERT_EQ(assembler.GetCubeWidth(6, 2), 3u);
  ASSERT_EQ(assembler.GetCubeLines(6, 2), 2u);
  std::vector<float> cube(3 * 2 * 2);
  assembler.Assemble(frame.data(), BandImageDataFormat::kUnsignedShort, 6, 2, cube.data());
  EXPECT_THAT(cube, ElementsAre(0, 3, 1, 4, 2, 5, 10, 13, 11, 14, 12, 15));
}

TEST(RawFrameAssembler, WedgesGiveOneLineOfStripeMeansPerFrame) {
  // Two wedge zones over the same four columns: two bands of two rows, then two of one row.
  const RawFrameAssembler assembler(
      Filter({Zone(FilterZone::WEDGE, 0, {0, 0, 4, 4}, 1, 2, {0, 1}),
              Zone(FilterZone::WEDGE, 1, {0, 4, 4, 2}, 1, 2, {0, 1})}));
  const auto frame = Frame(4, 6);
  ASSERT_EQ(assembler.GetCubeWidth(4, 6), 4u);
  ASSERT_EQ(assembler.GetCubeLines(4, 6), 1u);
  EXPECT_EQ(assembler.GetCubeLines(4, 5), 0u);  // the last stripe is cut off
  std::vector<float> cube(4 * 4);
  assembler.Assemble(frame.data(), BandImageDataFormat::kUnsignedShort, 4, 6, cube.data());
  // Column 1: rows 0-1 mean 6, rows 2-3 mean 26, row 4 is 41, row 5 is 51.
  EXPECT_THAT(std::vector<float>(cube.begin() + 4, cube.begin() + 8), ElementsAre(6, 26, 41, 51));
  // Bytes read as the same.
  const std::vector<unsigned char> bytes(frame.begin(), frame.end());
  std::vector<float> again(cube.size());
  assembler.Assemble(bytes.data(), BandImageDataFormat::kUnsignedChar, 4, 6, again.data());
  EXPECT_EQ(again, cube);
}

TEST(RawFrameAssembler, ZonesWithoutOneGridAreRefusedByName) {
  const FilterZone mosaic = Zone(FilterZone::MOSAIC, 0, {0, 0, 4, 4}, 2, 2, {0, 1, 2, 3});
  const FilterZone wedge = Zone(FilterZone::WEDGE, 0, {0, 0, 4, 4}, 1, 2, {0, 1});
  const std::vector<std::pair<std::vector<FilterZone>, std::string>> cases = {
      {{mosaic, Zone(FilterZone::WEDGE, 1, {0, 4, 4, 2}, 1, 2, {0, 1})},
       "zone 0 (MOSAIC) and zone 1 (WEDGE) do not share one spatial grid"},
      {{wedge, Zone(FilterZone::WEDGE, 3, {2, 4, 4, 2}, 1, 2, {0, 1})},
       "zone 0 (WEDGE) and zone 3 (WEDGE)"},
      {{Zone(FilterZone::MOSAIC, 0, {0, 0, 4, 4}, 2, 2, {4})}, "pattern position 4 lies outside"}};
  for (const auto& [zones, text] : cases) {
    EXPECT_THAT([&] { RawFrameAssembler{Filter(zones)}; },
                ThrowsMessage<std::invalid_argument>(HasSubstr(text)));
  }
  EXPECT_THROW(RawFrameAssembler(Filter({Zone(FilterZone::MOSAIC, 0, {0, 0, 4, 4}, 0, 2, {0})})),
               std::invalid_argument);
  EXPECT_THROW(RawFrameAssembler(Filter({})), std::invalid_argument);
  const RawFrameAssembler assembler(Filter({mosaic}));
  const auto frame = Frame(4, 4);
  std::vector<float> cube(16);
  EXPECT_THROW(assembler.Assemble(frame.data(), 0, 4, 4, cube.data()), std::invalid_argument);
}

}  // namespace
}  // namespace kelto::hyperspectral

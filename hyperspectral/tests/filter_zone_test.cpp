#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;
using BandInfo = FilterZone::BandInfo;
using PeakInfo = FilterZone::BandInfo::PeakInfo;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingAttribute = 14, kMissingValue = 20, kSanityCheck = 30, kReadStart = 40;

PeakInfo Peak(double wavelength, double contribution) {
  PeakInfo peak;
  peak.shape = Distributions::DB_FABRY_PEROT;
  peak.order = 1;
  peak.wavelength_nm = wavelength;
  peak.fwhm_nm = 12.5;
  peak.quantum_efficiency = 0.42;
  peak.contribution = contribution;
  peak.fit_error = 0.013;
  return peak;
}

BandInfo Band(unsigned long index, double wavelength) {
  BandInfo band;
  band.pattern_position_index = index;
  band.selected = index % 2 == 0;
  band.peaks = {Peak(wavelength, 0.8), Peak(wavelength / 2, 0.2)};
  band.peaks[1].order = 2;
  band.response = {0.0, 0.123456789012, 0.25, 0.5};
  return band;
}

FilterZone Mosaic(unsigned long width, unsigned long height) {
  FilterZone zone(FilterZone::MOSAIC);
  zone.filter_area = common::RegionOfInterest(0.0, 0.0, 2048.0, 1088.0);
  zone.pattern_width = width;
  zone.pattern_height = height;
  zone.filter_width = 1;
  zone.filter_height = 1;
  zone.spectral_range_start_nm = 470.0;
  zone.spectral_range_end_nm = 620.0;
  for (unsigned long i = 0; i < width * height; ++i) {
    zone.bands.push_back(Band(i, 470.0 + 10.0 * static_cast<double>(i)));
  }
  return zone;
}

// ----- peaks

TEST(PeakInfo, CurrentFormRoundTripsAndIsNamedPeakUnderABand) {
  BandInfo band = Band(3, 512.5);
  BandInfo copy;
  const std::string text = band.WriteString();
  EXPECT_NE(text.find(R"(<peak version="2" order="1" shape="Fabry-Perot">)"), std::string::npos)
      << text;
  const auto result = Read(copy, text);
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "band_info"},
                                       {kOk, kReadStart, "peak"},
                                       {kOk, kReadStart, "peak"}}));
  EXPECT_TRUE(copy == band);
}

TEST(PeakInfo, MissingItemsAreReportedInFileOrder) {
  PeakInfo peak;
  auto result = Read(peak, R"(<peak version="2"><QE>0.5</QE></peak>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "peak"},
                                       {kError, kMissingAttribute, "order"},
                                       {kError, kMissingAttribute, "shape"},
                                       {kError, kMissingValue, "wavelength_nm"},
                                       {kError, kMissingValue, "fwhm_nm"},
                                       {kError, kMissingValue, "contribution"},
                                       {kError, kMissingValue, "fit_error"}}));
  // The reader's default order is 0, unlike the constructor's, so the check reports it too.
  EXPECT_EQ(peak.order, 0u);
  EXPECT_EQ(peak.shape, Distributions::DB_UNKNOWN);
  EXPECT_EQ(peak.quantum_efficiency, 0.5);
  ParsingResult checks;
  peak.RunSanityChecks(checks);
  EXPECT_EQ(Events(checks), (EventList{{kError, kSanityCheck, "0 < order"},
                                       {kError, kSanityCheck, "0.0 < wavelength_nm"},
                                       {kError, kSanityCheck, "0.0 < fwhm_nm"}}));
}

TEST(PeakInfo, VersionDispatch) {
  PeakInfo peak;
  EXPECT_EQ(Events(Read(peak, "<peak/>")),
            (EventList{{kOk, kReadStart, "peak"}, {kError, kMissingVersion, "peak"}}));
  EXPECT_EQ(Events(Read(peak, R"(<peak version="-4"/>)")),
            (EventList{{kOk, kReadStart, "peak"}, {kError, kUnsupportedVersion, "peak"}}));
  const auto newer = Read(peak, R"(<peak version="9" order="2" shape="Lorentz">
      <wavelength_nm>600</wavelength_nm><fwhm_nm>10</fwhm_nm><QE>512</QE>
      <contribution>0.3</contribution><fit_error>0.1</fit_error></peak>)");
  EXPECT_EQ(newer.state(), 0);
  EXPECT_EQ(peak.shape, Distributions::DB_LORENTZIAN);
  EXPECT_EQ(peak.quantum_efficiency, 512.0);
  const auto v1 = Read(peak, R"(<peak version="1" order="2" shape="Gaussian">
      <wavelength_nm>600</wavelength_nm><fwhm_nm>10</fwhm_nm><QE>0.5</QE>
      <contribution>0.3</contribution><fit_error>0.1</fit_error></peak>)");
  EXPECT_EQ(v1.state(), 0);
  EXPECT_EQ(peak.fit_error, 0.0);
}

TEST(PeakInfo, ChecksTreatZeroAndNaN) {
  PeakInfo peak = Peak(600.0, 0.0);
  peak.quantum_efficiency = 0.0;
  ParsingResult zero;
  peak.RunSanityChecks(zero);
  EXPECT_TRUE(zero.events().empty());

  peak.wavelength_nm = 0.0;
  peak.fwhm_nm = std::nan("");
  peak.quantum_efficiency = std::nan("");
  peak.contribution = -0.1;
  ParsingResult bad;
  peak.RunSanityChecks(bad);
  EXPECT_EQ(Events(bad), (EventList{{kError, kSanityCheck, "0.0 < wavelength_nm"},
                                    {kError, kSanityCheck, "0.0 < fwhm_nm"},
                                    {kError, kSanityCheck, "0.0 <= quantum_efficiency"},
                                    {kError, kSanityCheck, "0.0 <= contribution"}}));
}

// ----- bands

TEST(BandInfo, ResponseKeepsTwelveSignificantDigits) {
  BandInfo band = Band(0, 500.0);
  band.response = {0.0, 0.123456789012345, 1.0 / 3.0, 0.5};
  BandInfo copy;
  Read(copy, band.WriteString());
  ASSERT_EQ(copy.response.size(), 4u);
  EXPECT_EQ(copy.response[1], 0.123456789012);
  EXPECT_EQ(copy.response[2], 0.333333333333);
}

TEST(BandInfo, MissingSelectedIsSilentOtherItemsAreNot) {
  BandInfo band;
  band.selected = true;
  band.peaks.push_back(Peak(1.0, 1.0));
  const auto result = Read(band, R"(<band version="4"/>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "band"},
                                       {kError, kMissingAttribute, "index"},
                                       {kError, kMissingElement, "peaks"},
                                       {kError, kMissingElement, "response"}}));
  EXPECT_FALSE(band.selected);
  EXPECT_TRUE(band.peaks.empty());
}

TEST(BandInfo, ResponseClaimingMoreValuesThanItHoldsIsAnEvent) {
  BandInfo band;
  const auto result = Read(band, R"(<band version="4" index="1"><peaks/>
      <response nr_elements="4000000000" values="0.1 0.2"/></band>)");
  EXPECT_EQ(Events(result),
            (EventList{{kOk, kReadStart, "band"}, {kError, kMissingElement, "response"}}));
  EXPECT_LE(band.response.size(), 2u);
}

TEST(BandInfo, VersionDispatchAndLegacyVersions) {
  BandInfo band;
  EXPECT_EQ(Events(Read(band, R"(<band index="1"><peaks/></band>)")),
            (EventList{{kOk, kReadStart, "band"}, {kError, kMissingVersion, "band"}}));
  for (const char* version : {"0", "1", "2"}) {
    EXPECT_EQ(Events(Read(band, std::string("<band version=\"") + version + "\"/>")),
              (EventList{{kOk, kReadStart, "band"}, {kError, kUnsupportedVersion, "band"}}));
  }
  const auto newer = Read(band, R"(<band version="7" index="5" selected="true"><peaks/>
      <response nr_elements="1" values="0.5"/></band>)");
  EXPECT_EQ(newer.state(), 0);
  EXPECT_EQ(band.pattern_position_index, 5u);
  EXPECT_TRUE(band.selected);
}

TEST(BandInfo, EqualityComparesAllFieldsAndNaNIsUnequal) {
  const BandInfo band = Band(1, 500.0);
  BandInfo other = band;
  EXPECT_TRUE(other == band);
  other.peaks[1].fit_error += 1e-9;
  EXPECT_FALSE(other == band);
  other = band;
  other.response[0] = std::nan("");
  EXPECT_FALSE(other == other);
  other = band;
  other.selected = !other.selected;
  EXPECT_FALSE(other == band);
}

TEST(BandList, RetainAndSortKeepTheRightBands) {
  std::deque<BandInfo> bands = {Band(3, 530.0), Band(0, 500.0), Band(2, 520.0), Band(1, 510.0)};
  bands[2].peaks.clear();

  std::deque<BandInfo> selected = bands;
  FilterZone::RetainSelectedOnly(selected);
  ASSERT_EQ(selected.size(), 2u);
  EXPECT_EQ(selected[0].pattern_position_index, 0u);
  EXPECT_EQ(selected[1].pattern_position_index, 2u);

  FilterZone::RetainWithPeaksOnly(bands);
  ASSERT_EQ(bands.size(), 3u);
  FilterZone::SortOnWavelength(bands);
  EXPECT_EQ(bands[0].peaks[0].wavelength_nm, 500.0);
  EXPECT_EQ(bands[2].peaks[0].wavelength_nm, 530.0);
  FilterZone::SortOnPatternPositionIndex(bands);
  EXPECT_EQ(bands[0].pattern_position_index, 0u);
  EXPECT_EQ(bands[1].pattern_position_index, 1u);
  EXPECT_EQ(bands[2].pattern_position_index, 3u);

  for (BandInfo& band : bands) {
    band.peaks.clear();
  }
  FilterZone::RetainWithPeaksOnly(bands);
  EXPECT_TRUE(bands.empty());
}

// ----- zones

TEST(FilterZoneLayout, CreateAndTextForms) {
  for (auto layout :
       {FilterZone::NO_FILTER, FilterZone::WEDGE, FilterZone::TILED, FilterZone::MOSAIC}) {
    std::unique_ptr<FilterZone> zone(FilterZone::Create(layout));
    EXPECT_EQ(zone->filter_layout(), layout);
    FilterZone::eFilterLayout back = FilterZone::NO_FILTER;
    FilterZone::FromString(back, FilterZone::ToString(layout));
    EXPECT_EQ(back, layout);
  }
  std::unique_ptr<FilterZone> unknown(
      FilterZone::Create(static_cast<FilterZone::eFilterLayout>(-1)));
  EXPECT_EQ(unknown->filter_layout(), FilterZone::NO_FILTER);
  EXPECT_NE(dynamic_cast<NoFilterZone*>(unknown.get()), nullptr);
  EXPECT_EQ(FilterZone::ToString(static_cast<FilterZone::eFilterLayout>(7)), "UNKNOWN");
  for (const char* text : {"UNKNOWN", "mosaic", "", " WEDGE"}) {
    FilterZone::eFilterLayout layout = FilterZone::MOSAIC;
    FilterZone::FromString(layout, text);
    EXPECT_EQ(layout, -1) << text;
  }

  const FilterZone mosaic = Mosaic(2, 2);
  std::unique_ptr<FilterZone> copy(FilterZone::Create(mosaic));
  EXPECT_NE(dynamic_cast<MosaicFilterZone*>(copy.get()), nullptr);
  EXPECT_TRUE(*copy == mosaic);
}

TEST(FilterZoneSteps, DependOnTheLayout) {
  FilterZone mosaic = Mosaic(1, 4);
  EXPECT_EQ(mosaic.GetBandStepX(), 0u);
  EXPECT_EQ(mosaic.GetBandStepY(), 1u);
  EXPECT_EQ(mosaic.GetPixelStepX(), 1u);
  EXPECT_EQ(mosaic.GetPixelStepY(), 4u);

  FilterZone tiles(FilterZone::TILED);
  tiles.filter_area = common::RegionOfInterest(0.0, 0.0, 1024.9, 512.0);
  tiles.pattern_width = 8;
  tiles.pattern_height = 4;
  EXPECT_EQ(tiles.GetBandStepX(), 128u);
  EXPECT_EQ(tiles.GetBandStepY(), 128u);
  EXPECT_EQ(tiles.GetPixelStepX(), 1u);

  FilterZone wedge(FilterZone::WEDGE);
  wedge.filter_area = common::RegionOfInterest(0.0, 0.0, 2048.0, 1024.0);
  wedge.pattern_width = 1;
  wedge.pattern_height = 128;
  EXPECT_EQ(wedge.GetBandStepX(), 0u);
  EXPECT_EQ(wedge.GetBandStepY(), 8u);

  FilterZone none(FilterZone::NO_FILTER);
  EXPECT_EQ(none.GetBandStepY(), 0u);
  EXPECT_EQ(none.GetPixelStepY(), 1u);

  wedge.pattern_height = 0;
  EXPECT_THROW(wedge.GetBandStepY(), std::logic_error);
}

TEST(FilterZoneReading, CurrentFormRoundTripsThroughTheSubclass) {
  const FilterZone zone = Mosaic(2, 2);
  MosaicFilterZone copy;
  const auto result = Read(copy, zone.WriteString());
  EXPECT_EQ(result.state(), 0);
  EXPECT_EQ(result.events().size(), 1u + 1u + 4u * 3u);  // zone, area, bands with two peaks
  EXPECT_TRUE(copy == zone);
}

TEST(FilterZoneReading, LayoutOfAnotherClassIsReportedAndKept) {
  FilterZone wedge(FilterZone::WEDGE);
  wedge.filter_area = common::RegionOfInterest(0.0, 0.0, 16.0, 8.0);
  wedge.pattern_width = 1;
  wedge.pattern_height = 1;
  wedge.filter_width = 16;
  wedge.filter_height = 8;
  wedge.spectral_range_start_nm = 600.0;
  wedge.spectral_range_end_nm = 1000.0;
  wedge.bands.push_back(Band(0, 700.0));
  TiledFilterZone tiles;
  const auto result = Read(tiles, wedge.WriteString());
  EXPECT_EQ(tiles.filter_layout(), FilterZone::TILED);
  ASSERT_GE(result.events().size(), 2u);
  EXPECT_EQ(Events(result)[1], testing::EventTriple(kError, kSanityCheck, "layout"));
  EXPECT_EQ(tiles.bands.size(), 1u);
}

TEST(FilterZoneReading, MissingItemsAndZeroLimits) {
  MosaicFilterZone zone;
  zone.bands.push_back(Band(0, 1.0));
  zone.index = 9;
  const auto result = Read(zone, R"(<filter_zone version="3" layout="MOSAIC">
      <spectral_range_start_nm>0</spectral_range_start_nm></filter_zone>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "filter_zone"},
                                       {kError, kMissingElement, "filter_area"},
                                       {kError, kMissingValue, "pattern_width"},
                                       {kError, kMissingValue, "pattern_height"},
                                       {kError, kMissingValue, "filter_width"},
                                       {kError, kMissingValue, "filter_height"},
                                       {kError, kMissingValue, "spectral_range_end_nm"},
                                       {kWarning, kMissingValue, "spectral_range_start_nm"},
                                       {kWarning, kMissingValue, "spectral_range_end_nm"},
                                       {kError, kMissingElement, "bands"},
                                       {kError, kMissingAttribute, "index"}}));
  EXPECT_EQ(zone.spectral_range_start_nm, 400.0);
  EXPECT_EQ(zone.spectral_range_end_nm, 1000.0);
  EXPECT_TRUE(zone.bands.empty());
  EXPECT_EQ(zone.index, 0u);
}

TEST(FilterZoneReading, NoFilterZoneIgnoresTheElementAndWritesNothing) {
  FilterZone stored = Mosaic(1, 1);
  stored = FilterZone(FilterZone::NO_FILTER);
  stored.index = 2;
  stored.pattern_width = 3;
  stored.bands.push_back(Band(0, 500.0));
  const std::string text = stored.WriteString();
  EXPECT_NE(text.find("<pattern_width>3</pattern_width>"), std::string::npos) << text;

  for (const char* version : {"3", "2", "1", "0"}) {
    NoFilterZone zone;
    zone.pattern_height = 5;
    std::string versioned = text;
    versioned.replace(versioned.find("version=\"3\""), 11,
                      std::string("version=\"") + version + "\"");
    const auto result = Read(zone, versioned);
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "filter_zone"}})) << version;
    EXPECT_TRUE(zone == NoFilterZone()) << version;
  }
  EXPECT_EQ(NoFilterZone().WriteString().find("pattern_width"), std::string::npos);
}

TEST(FilterZoneReading, VersionsWithoutReaderYet) {
  WedgeFilterZone wedge;
  EXPECT_EQ(
      Events(Read(wedge, R"(<filter_zone version="0" layout="WEDGE"/>)")),
      (EventList{{kOk, kReadStart, "filter_zone"}, {kError, kUnsupportedVersion, "filter_zone"}}));
  MosaicFilterZone mosaic;
  EXPECT_EQ(Events(Read(mosaic, R"(<filter_zone layout="MOSAIC"/>)")),
            (EventList{{kOk, kReadStart, "filter_zone"},
                       {kWarning, kMissingVersion, "filter_zone"},
                       {kError, kUnsupportedVersion, "filter_zone"}}));
}

TEST(FilterZoneChecks, EveryConditionInOrder) {
  FilterZone zone(FilterZone::TILED);
  zone.filter_area = common::RegionOfInterest(-1.0, 0.0, 0.0, 10.0);
  zone.bands.push_back(Band(0, 500.0));
  zone.bands[0].peaks[0].order = 0;
  ParsingResult result;
  zone.RunSanityChecks(result);
  EXPECT_EQ(Events(result),
            (EventList{{kError, kSanityCheck, "0 < width"},
                       {kError, kSanityCheck, "0.0 <= offset_x"},
                       {kError, kSanityCheck, "0 < pattern_height"},
                       {kError, kSanityCheck, "0 < pattern_width"},
                       {kError, kSanityCheck, "0 < filter_height"},
                       {kError, kSanityCheck, "0 < filter_width"},
                       {kError, kSanityCheck, "bands.size () == pattern_width*pattern_height"},
                       {kError, kSanityCheck, "0 < order"}}));

  FilterZone none(FilterZone::NO_FILTER);
  none.filter_area.width = -5.0;
  ParsingResult unchecked;
  none.RunSanityChecks(unchecked);
  EXPECT_TRUE(unchecked.events().empty());
}

TEST(FilterZoneChecks, AreaMustHoldWholePatternsByTruncatedSize) {
  FilterZone zone = Mosaic(4, 4);
  zone.filter_area.width = 2048.7;  // counts as 2048
  zone.filter_area.height = 1090.0;
  ParsingResult result;
  zone.RunSanityChecks(result);
  EXPECT_EQ(Events(result), (EventList{{kError, kSanityCheck,
                                        "0 == static_cast <size_t> (filter_area.height) % "
                                        "(pattern_height*filter_height)"}}));

  zone.pattern_height = 1ul << 32;
  zone.filter_height = 1ul << 32;  // the product overflows to 0
  zone.bands.resize(zone.pattern_width * zone.pattern_height % 1000);
  ParsingResult overflow;
  zone.RunSanityChecks(overflow);
  EXPECT_EQ(Events(overflow)[0],
            testing::EventTriple(kError, kSanityCheck,
                                 "0 == static_cast <size_t> (filter_area.height) % "
                                 "(pattern_height*filter_height)"));
}

TEST(FilterZoneEquality, IgnoresTheLayout) {
  FilterZone wedge = Mosaic(2, 1);
  FilterZone tiles(FilterZone::TILED);
  tiles = wedge;
  EXPECT_TRUE(tiles == wedge);
  tiles.spectral_range_end_nm += 1.0;
  EXPECT_FALSE(tiles == wedge);
}

}  // namespace
}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using BandInfo = FilterZone::BandInfo;
using PeakInfo = FilterZone::BandInfo::PeakInfo;

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

FilterZone Zone(FilterZone::eFilterLayout layout, double width, double height,
                unsigned long pattern_width, unsigned long pattern_height) {
  FilterZone zone(layout);
  zone.filter_area = common::RegionOfInterest(0.0, 0.0, width, height);
  zone.pattern_width = pattern_width;
  zone.pattern_height = pattern_height;
  zone.filter_width = 1;
  zone.filter_height = 1;
  zone.spectral_range_start_nm = 470.0;
  zone.spectral_range_end_nm = 620.0;
  for (unsigned long i = 0; i < pattern_width * pattern_height; ++i) {
    zone.bands.push_back(Band(i, 470.0 + 10.0 * static_cast<double>(i)));
  }
  return zone;
}

FilterZone Mosaic(unsigned long width, unsigned long height) {
  return Zone(FilterZone::MOSAIC, 2048.0, 1088.0, width, height);
}

// ----- peaks and bands

TEST(FilterZonePeaks, MissingItemsInFileOrderAndTheChecks) {
  PeakInfo peak;
  EXPECT_EQ(Events(Read(peak, R"(<peak version="2"><QE>0.5</QE></peak>)")),
            (EventList{ReadStart("peak"), Error(kMissingAttribute, "order"),
                       Error(kMissingAttribute, "shape"), Error(kMissingValue, "wavelength_nm"),
                       Error(kMissingValue, "fwhm_nm"), Error(kMissingValue, "contribution"),
                       Error(kMissingValue, "fit_error")}));
  EXPECT_EQ(peak.shape, Distributions::DB_UNKNOWN);
  EXPECT_EQ(peak.quantum_efficiency, 0.5);
  // The reader's default order is 0, unlike the constructor's, so the check reports it too.
  EXPECT_EQ(Checks(peak),
            (EventList{Check("0 < order"), Check("0.0 < wavelength_nm"), Check("0.0 < fwhm_nm")}));

  // Zero passes where the rule allows it, NaN fails every rule.
  peak = Peak(600.0, 0.0);
  peak.quantum_efficiency = 0.0;
  EXPECT_TRUE(Checks(peak).empty());
  peak.wavelength_nm = 0.0;
  peak.fwhm_nm = std::nan("");
  peak.quantum_efficiency = std::nan("");
  peak.contribution = -0.1;
  EXPECT_EQ(Checks(peak),
            (EventList{Check("0.0 < wavelength_nm"), Check("0.0 < fwhm_nm"),
                       Check("0.0 <= quantum_efficiency"), Check("0.0 <= contribution")}));
}

TEST(FilterZoneBands, RoundTripNamesPeaksAndKeepsTwelveDigitsOfTheResponse) {
  BandInfo band = Band(3, 512.5);
  band.response = {0.0, 0.123456789012345, 1.0 / 3.0, 0.5};
  const std::string text = band.WriteString();
  EXPECT_NE(text.find(R"(<peak version="2" order="1" shape="Fabry-Perot">)"), std::string::npos)
      << text;
  BandInfo copy;
  EXPECT_EQ(Events(Read(copy, text)),
            (EventList{ReadStart("band_info"), ReadStart("peak"), ReadStart("peak")}));
  EXPECT_EQ(copy.response, (std::vector<double>{0.0, 0.123456789012, 0.333333333333, 0.5}));
  copy.response = band.response;
  EXPECT_TRUE(copy == band);
}

TEST(FilterZoneBands, MissingItemsAndOverclaimedResponse) {
  BandInfo band;
  band.selected = true;
  band.peaks.push_back(Peak(1.0, 1.0));
  // A missing "selected" is silently false.
  EXPECT_EQ(Events(Read(band, R"(<band version="4"/>)")),
            (EventList{ReadStart("band"), Error(kMissingAttribute, "index"),
                       Error(kMissingElement, "peaks"), Error(kMissingElement, "response")}));
  EXPECT_FALSE(band.selected);
  EXPECT_TRUE(band.peaks.empty());

  EXPECT_EQ(Events(Read(band, R"(<band version="4" index="1"><peaks/>
      <response nr_elements="4000000000" values="0.1 0.2"/></band>)")),
            (EventList{ReadStart("band"), Error(kMissingElement, "response")}));
  EXPECT_LE(band.response.size(), 2u);
}

TEST(FilterZoneBands, EqualityComparesAllFieldsAndNaNIsUnequal) {
  const BandInfo band = Band(1, 500.0);
  BandInfo other = band;
  EXPECT_TRUE(other == band);
  other.peaks[1].fit_error += 1e-9;
  EXPECT_FALSE(other == band);
  other = band;
  other.selected = !other.selected;
  EXPECT_FALSE(other == band);
  other = band;
  other.response[0] = std::nan("");
  EXPECT_FALSE(other == other);
}

TEST(FilterZoneBands, RetainAndSortKeepTheRightBands) {
  std::deque<BandInfo> bands = {Band(3, 530.0), Band(0, 500.0), Band(2, 520.0), Band(1, 510.0)};
  bands[2].peaks.clear();
  const auto indices = [](const std::deque<BandInfo>& list) {
    std::vector<unsigned long> result;
    for (const BandInfo& band : list) {
      result.push_back(band.pattern_position_index);
    }
    return result;
  };

  std::deque<BandInfo> selected = bands;
  FilterZone::RetainSelectedOnly(selected);
  EXPECT_EQ(indices(selected), (std::vector<unsigned long>{0, 2}));
  FilterZone::RetainWithPeaksOnly(bands);
  EXPECT_EQ(indices(bands), (std::vector<unsigned long>{3, 0, 1}));
  FilterZone::SortOnWavelength(bands);
  EXPECT_EQ(indices(bands), (std::vector<unsigned long>{0, 1, 3}));
  bands[0].pattern_position_index = 5;
  FilterZone::SortOnPatternPositionIndex(bands);
  EXPECT_EQ(indices(bands), (std::vector<unsigned long>{1, 3, 5}));

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
  struct Case {
    FilterZone zone;
    unsigned long band_x, band_y, pixel_x, pixel_y;
  };
  const std::vector<Case> cases = {
      {Mosaic(1, 4), 0, 1, 1, 4},
      {Zone(FilterZone::TILED, 1024.9, 512.0, 8, 4), 128, 128, 1, 1},
      {Zone(FilterZone::WEDGE, 2048.0, 1024.0, 1, 128), 0, 8, 1, 1},
      {FilterZone(FilterZone::NO_FILTER), 0, 0, 1, 1},
  };
  for (const Case& c : cases) {
    const std::string layout = FilterZone::ToString(c.zone.filter_layout());
    EXPECT_EQ(c.zone.GetBandStepX(), c.band_x) << layout;
    EXPECT_EQ(c.zone.GetBandStepY(), c.band_y) << layout;
    EXPECT_EQ(c.zone.GetPixelStepX(), c.pixel_x) << layout;
    EXPECT_EQ(c.zone.GetPixelStepY(), c.pixel_y) << layout;
  }
  FilterZone wedge = cases[2].zone;
  wedge.pattern_height = 0;
  EXPECT_THROW(wedge.GetBandStepY(), std::logic_error);
}

TEST(FilterZoneReading, RoundTripAndLayoutOfAnotherClass) {
  const FilterZone zone = Mosaic(2, 2);
  MosaicFilterZone copy;
  const auto result = Read(copy, zone.WriteString());
  EXPECT_EQ(result.state(), kOk);
  EXPECT_EQ(result.events().size(), 1u + 1u + 4u * 3u);  // zone, area, bands with two peaks
  EXPECT_TRUE(copy == zone);

  // Read by another arrangement: reported, read all the same, and equal but for the layout.
  FilterZone wedge = Zone(FilterZone::WEDGE, 16.0, 8.0, 1, 1);
  TiledFilterZone tiles;
  const EventList events = Events(Read(tiles, wedge.WriteString()));
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events[1], Check("layout"));
  EXPECT_EQ(tiles.filter_layout(), FilterZone::TILED);
  EXPECT_TRUE(tiles == wedge);
  wedge.spectral_range_end_nm += 1.0;
  EXPECT_FALSE(tiles == wedge);
}

TEST(FilterZoneReading, MissingItemsAndZeroLimits) {
  MosaicFilterZone zone;
  zone.bands.push_back(Band(0, 1.0));
  zone.index = 9;
  const auto result = Read(zone, R"(<filter_zone version="3" layout="MOSAIC">
      <spectral_range_start_nm>0</spectral_range_start_nm></filter_zone>)");
  EXPECT_EQ(
      Events(result),
      (EventList{ReadStart("filter_zone"), Error(kMissingElement, "filter_area"),
                 Error(kMissingValue, "pattern_width"), Error(kMissingValue, "pattern_height"),
                 Error(kMissingValue, "filter_width"), Error(kMissingValue, "filter_height"),
                 Error(kMissingValue, "spectral_range_end_nm"),
                 Warning(kMissingValue, "spectral_range_start_nm"),
                 Warning(kMissingValue, "spectral_range_end_nm"), Error(kMissingElement, "bands"),
                 Error(kMissingAttribute, "index")}));
  EXPECT_EQ(zone.spectral_range_start_nm, 400.0);
  EXPECT_EQ(zone.spectral_range_end_nm, 1000.0);
  EXPECT_TRUE(zone.bands.empty());
  EXPECT_EQ(zone.index, 0u);
}

TEST(FilterZoneReading, NoFilterZoneIgnoresTheElementAndWritesNothing) {
  FilterZone stored(FilterZone::NO_FILTER);
  stored.index = 2;
  stored.pattern_width = 3;
  stored.bands.push_back(Band(0, 500.0));
  const std::string text = stored.WriteString();
  EXPECT_NE(text.find("<pattern_width>3</pattern_width>"), std::string::npos) << text;

  for (const char* version : {"3", "2", "1", "0"}) {
    NoFilterZone zone;
    zone.pattern_height = 5;
    const auto result =
        Read(zone, Replace(text, R"(version="3")", std::string("version=\"") + version + "\""));
    EXPECT_EQ(Events(result), (EventList{ReadStart("filter_zone")})) << version;
    EXPECT_TRUE(zone == NoFilterZone()) << version;
  }
  EXPECT_EQ(NoFilterZone().WriteString().find("pattern_width"), std::string::npos);
}

TEST(FilterZoneVersions, EachLevelDispatchesOnItsOwnVersion) {
  PeakInfo peak;
  EXPECT_EQ(Events(Read(peak, "<peak/>")), Refused("peak", kMissingVersion));
  EXPECT_EQ(Events(Read(peak, R"(<peak version="-4"/>)")), Refused("peak"));
  const std::string peak_body = R"( order="2" shape="Lorentz">
      <wavelength_nm>600</wavelength_nm><fwhm_nm>10</fwhm_nm><QE>512</QE>
      <contribution>0.3</contribution><fit_error>0.1</fit_error></peak>)";
  EXPECT_EQ(Read(peak, R"(<peak version="9")" + peak_body).state(), kOk);
  EXPECT_EQ(peak.shape, Distributions::DB_LORENTZIAN);
  EXPECT_EQ(peak.quantum_efficiency, 512.0);
  EXPECT_EQ(peak.fit_error, 0.1);
  EXPECT_EQ(Read(peak, R"(<peak version="1")" + peak_body).state(), kOk);
  EXPECT_EQ(peak.fit_error, 0.0);  // version 1 had none

  BandInfo band;
  EXPECT_EQ(Events(Read(band, R"(<band index="1"><peaks/></band>)")),
            Refused("band", kMissingVersion));
  EXPECT_EQ(Events(Read(band, R"(<band version="-2"/>)")), Refused("band"));
  EXPECT_EQ(Read(band, R"(<band version="7" index="5" selected="true"><peaks/>
      <response nr_elements="1" values="0.5"/></band>)")
                .state(),
            kOk);
  EXPECT_EQ(band.pattern_position_index, 5u);
  EXPECT_TRUE(band.selected);

  WedgeFilterZone wedge;
  EXPECT_EQ(Events(Read(wedge, R"(<filter_zone version="0" layout="WEDGE"/>)")),
            Refused("filter_zone"));
  MosaicFilterZone mosaic;
  EXPECT_EQ(Events(Read(mosaic, R"(<filter_zone layout="MOSAIC"/>)")),
            (EventList{ReadStart("filter_zone"), Warning(kMissingVersion, "filter_zone"),
                       Error(kUnsupportedVersion, "filter_zone")}));
}

// ----- older forms of peaks and bands

TEST(FilterZoneLegacyPeaks, VersionZeroScalesTheHeightAndFixesShapeAndShare) {
  PeakInfo peak = Peak(1.0, 0.5);
  EXPECT_EQ(Events(Read(peak, R"(<peak version="0"><QE>512</QE></peak>)")),
            (EventList{ReadStart("peak"), Error(kMissingAttribute, "order"),
                       Error(kMissingValue, "wavelength_nm"), Error(kMissingValue, "fwhm_nm")}));
  EXPECT_EQ(peak.order, 0u);
  EXPECT_EQ(peak.quantum_efficiency, 0.5);
  EXPECT_EQ(peak.shape, Distributions::DB_LORENTZIAN);
  EXPECT_EQ(peak.contribution, 1.0);
  EXPECT_EQ(peak.fit_error, 0.0);

  // The same height in version 1 is taken as it stands.
  EXPECT_EQ(Events(Read(peak, R"(<peak version="1" order="1" shape="none"><wavelength_nm>5
      </wavelength_nm><fwhm_nm>1</fwhm_nm><QE>512</QE><contribution>0</contribution></peak>)")),
            (EventList{ReadStart("peak")}));
  EXPECT_EQ(peak.quantum_efficiency, 512.0);
  EXPECT_EQ(peak.shape, Distributions::DB_NONE);
}

TEST(FilterZoneLegacyBands, EmptyElementsReportEachItemInReadingOrder) {
  const std::vector<std::pair<std::string, EventList>> cases = {
      {"0",
       {ReadStart("band"), Error(kMissingAttribute, "pattern_position_index"),
        Error(kMissingValue, "wavelength_nm"), Error(kMissingElement, "response_composition"),
        Warning(kMissingElement, "fwhm_nm")}},
      {"1",
       {ReadStart("band"), Error(kMissingAttribute, "pattern_position_index"),
        Error(kMissingValue, "wavelength_nm"), Warning(kMissingElement, "fwhm_nm"),
        Warning(kMissingElement, "wavelength_2nd_nm"), Warning(kMissingElement, "fwhm_2nd_nm"),
        Error(kMissingElement, "response_composition")}},
      {"2",
       {ReadStart("band"), Error(kMissingAttribute, "pattern_position_index"),
        Error(kMissingElement, "peaks"), Error(kMissingElement, "response_composition")}}};
  for (const auto& [version, events] : cases) {
    BandInfo band = Band(7, 500.0);
    EXPECT_EQ(Events(Read(band, "<band version=\"" + version + "\"/>")), events) << version;
    EXPECT_EQ(band.pattern_position_index, 0u) << version;
    EXPECT_FALSE(band.selected) << version;
    // Only the lists of peaks are replaced; a response that is not in the file stays.
    EXPECT_EQ(band.peaks.size(), version == "0" ? 1u : version == "1" ? 2u : 0u) << version;
    EXPECT_EQ(band.response, Band(7, 500.0).response) << version;
  }
}

TEST(FilterZoneLegacyBands, SecondPeakIsKeptEvenWhenAbsent) {
  BandInfo band;
  EXPECT_EQ(
      Events(Read(band, R"(<band version="1" pattern_position_index="2">
      <wavelength_nm>700</wavelength_nm><fwhm_nm>9</fwhm_nm>
      <response_composition nr_elements="1" values="1024"/></band>)")),
      (EventList{ReadStart("band"), Warning(kMissingElement, "wavelength_2nd_nm"),
                 Warning(kMissingElement, "fwhm_2nd_nm"), ReadStart("response_composition")}));
  ASSERT_EQ(band.peaks.size(), 2u);
  EXPECT_EQ(band.peaks[1].order, 2u);
  EXPECT_EQ(band.peaks[1].wavelength_nm, 0.0);
  EXPECT_EQ(band.response, std::vector<double>{1.0});
  EXPECT_EQ(Checks(band), (EventList{Check("0.0 < wavelength_nm"), Check("0.0 < fwhm_nm")}));
}

TEST(FilterZoneLegacyBands, VersionTwoNumbersPeaksByDescendingShare) {
  const auto peak = [](const char* order, const char* contribution) {
    return std::string(R"(<peak version="1" shape="Gaussian" order=")") + order +
           R"("><wavelength_nm>600</wavelength_nm><fwhm_nm>9</fwhm_nm><QE>0.5</QE>
           <contribution>)" +
           contribution + "</contribution></peak>";
  };
  BandInfo band;
  const std::string text = std::string(R"(<band version="2" pattern_position_index="0"><peaks>)") +
                           peak("1", "0.2") + peak("2", "0.7") + R"(</peaks>
      <response_composition nr_elements="0" values=""/></band>)";
  EXPECT_EQ(NotOk(Read(band, text)), EventList{});
  ASSERT_EQ(band.peaks.size(), 2u);
  EXPECT_EQ(band.peaks[0].contribution, 0.7);
  EXPECT_EQ(band.peaks[0].order, 1u);
  EXPECT_EQ(band.peaks[1].contribution, 0.2);
  EXPECT_EQ(band.peaks[1].order, 2u);

  // A share that is not a number goes last instead of breaking the sort.
  EXPECT_EQ(
      NotOk(Read(band, Replace(Replace(text, ">0.2<", ">nan<"), R"(order="2")", R"(order="9")"))),
      EventList{});
  ASSERT_EQ(band.peaks.size(), 2u);
  EXPECT_EQ(band.peaks[0].contribution, 0.7);
  EXPECT_TRUE(std::isnan(band.peaks[1].contribution));
  EXPECT_EQ(band.peaks[1].order, 2u);
}

TEST(FilterZoneLegacyBands, OverclaimedResponseKeepsWhatTheTextHolds) {
  BandInfo band;
  EXPECT_EQ(NotOk(Read(band, R"(<band version="0" pattern_position_index="1">
      <wavelength_nm>700</wavelength_nm><fwhm_nm>9</fwhm_nm>
      <response_composition nr_elements="4000000000" values="1024 2048"/></band>)")),
            (EventList{Error(kMissingAttribute, "values")}));
  EXPECT_EQ(band.response, (std::vector<double>{1.0, 2.0}));
}

TEST(FilterZoneChecks, EveryConditionInOrder) {
  FilterZone zone(FilterZone::TILED);
  zone.filter_area = common::RegionOfInterest(-1.0, 0.0, 0.0, 10.0);
  zone.bands.push_back(Band(0, 500.0));
  zone.bands[0].peaks[0].order = 0;
  EXPECT_EQ(
      Checks(zone),
      (EventList{Check("0 < width"), Check("0.0 <= offset_x"), Check("0 < pattern_height"),
                 Check("0 < pattern_width"), Check("0 < filter_height"), Check("0 < filter_width"),
                 Check("bands.size () == pattern_width*pattern_height"), Check("0 < order")}));

  FilterZone none(FilterZone::NO_FILTER);
  none.filter_area.width = -5.0;
  EXPECT_TRUE(Checks(none).empty());

  // The area must hold whole patterns, by its truncated size.
  const std::string whole_patterns =
      "0 == static_cast <size_t> (filter_area.height) % (pattern_height*filter_height)";
  zone = Mosaic(4, 4);
  zone.filter_area.width = 2048.7;  // counts as 2048
  zone.filter_area.height = 1090.0;
  EXPECT_EQ(Checks(zone), (EventList{Check(whole_patterns)}));

  zone.pattern_height = 1ul << 32;
  zone.filter_height = 1ul << 32;  // the product overflows to 0
  zone.bands.resize(zone.pattern_width * zone.pattern_height % 1000);
  ASSERT_FALSE(Checks(zone).empty());
  EXPECT_EQ(Checks(zone)[0], Check(whole_patterns));
}

}  // namespace
}  // namespace kelto::hyperspectral

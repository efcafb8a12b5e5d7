#include <kelto/hyperspectral/calibration/filter_zone.h>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

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

  FilterZone zone(FilterZone::MOSAIC);
  EXPECT_EQ(Events(Read(zone, R"(<filter_zone version="-3" layout="MOSAIC"/>)")),
            Refused("filter_zone"));
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

// ----- zones from before versions existed

// One-peak lists for bands 0 to n-1: wavelengths 600, 610, ... and widths of 10 nm.
std::string Lists(int n) {
  std::string wavelengths = "<wavelength>";
  std::string widths = "<fwhm>";
  for (int b = 0; b < n; ++b) {
    const std::string number = "<band number=\"" + std::to_string(b) + "\">";
    wavelengths += number + std::to_string(600 + 10 * b) + "</band>";
    widths += number + "10</band>";
  }
  return wavelengths + "</wavelength>" + widths + "</fwhm>";
}

// An unversioned zone element with its spectral limits and an area of 100 by 90 pixels, so that
// they report nothing. The area's flat values come after the body: those of the body win.
std::string Unversioned(const std::string& body) {
  return "<filter><start_spectral_range>600</start_spectral_range>"
         "<end_spectral_range>1000</end_spectral_range>" +
         body +
         "<active_area_offset_x>0</active_area_offset_x><active_area_offset_y>0"
         "</active_area_offset_y><active_area_width>100</active_area_width>"
         "<active_area_height>90</active_area_height></filter>";
}

std::vector<double> FirstWavelengths(const FilterZone& zone) {
  std::vector<double> wavelengths;
  for (const BandInfo& band : zone.bands) {
    wavelengths.push_back(band.peaks.at(0).wavelength_nm);
  }
  return wavelengths;
}

std::vector<unsigned long> Indices(const FilterZone& zone) {
  std::vector<unsigned long> indices;
  for (const BandInfo& band : zone.bands) {
    indices.push_back(band.pattern_position_index);
  }
  return indices;
}

TEST(FilterZoneUnversioned, AreaAndSpectralLimits) {
  // The base reader on its own: a zone object of the base class reads with it.
  FilterZone zone(FilterZone::WEDGE);
  zone.filter_area = common::RegionOfInterest(5.0, 6.0, 640.0, 480.0);
  EXPECT_EQ(Events(Read(zone, "<filter><wavelength/><fwhm/></filter>")),
            (EventList{ReadStart("filter"), Warning(kMissingVersion, "filter"),
                       Warning(kMissingValue, "active_area_offset_x"),
                       Warning(kMissingValue, "active_area_offset_y"),
                       Warning(kMissingValue, "active_area_width"),
                       Warning(kMissingValue, "active_area_height"),
                       Warning(kMissingValue, "start_spectral_range"),
                       Warning(kMissingValue, "end_spectral_range")}));
  // Flat offsets default to 0, flat sizes to what the zone held: a calibration's sensor size.
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 0.0, 640.0, 480.0));
  EXPECT_EQ(zone.spectral_range_start_nm, 400.0);
  EXPECT_EQ(zone.spectral_range_end_nm, 1000.0);
  EXPECT_TRUE(zone.bands.empty());

  EXPECT_EQ(Events(Read(zone, Unversioned("<active_area><width>64</width></active_area>"))),
            (EventList{ReadStart("filter"), Warning(kMissingVersion, "filter"),
                       Error(kMissingValue, "offset_x"), Error(kMissingValue, "offset_y"),
                       Error(kMissingValue, "height"), Error(kMissingElement, "wavelength"),
                       Error(kMissingElement, "fwhm")}));
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 0.0, 64.0, 0.0));
  EXPECT_EQ(zone.spectral_range_start_nm, 600.0);
}

TEST(FilterZoneUnversioned, BandListsMakeOnePeakPerBand) {
  FilterZone zone(FilterZone::WEDGE);
  auto result = Read(zone, Unversioned(R"(<wavelength><band number="0">-600, 300</band>
      <band number="1">610</band><band number="2"> </band><band>620</band>
      <band number="1">615</band></wavelength><fwhm><band number="1">12, 6</band></fwhm>
      <fwfm><band number="1">20</band><band number="1">21</band></fwfm>)"));
  // Band 0 came first from the item without a number, then band 2's list was empty; the second
  // list of band 1 is a contradiction, the first stays, and so for "fwfm".
  EXPECT_EQ(NotOk(result),
            (EventList{Warning(kMissingVersion, "filter"), Error(kMissingValue, "band"),
                       Error(kMissingAttribute, "number"), Error(kSanityCheck, "wavelength"),
                       Error(kSanityCheck, "wavelength"), Error(kSanityCheck, "fwfm"),
                       Warning(kLegacyDefault, "bands"), Error(kLegacyDefault, "bands"),
                       Warning(kLegacyDefault, "bands")}));
  ASSERT_EQ(zone.bands.size(), 3u);
  EXPECT_EQ(Indices(zone), (std::vector<unsigned long>{0, 1, 2}));
  // A negative wavelength switches the band off and is stored as its size.
  EXPECT_EQ(FirstWavelengths(zone), (std::vector<double>{600.0, 610.0, 0.0}));
  EXPECT_FALSE(zone.bands[0].selected);
  EXPECT_TRUE(zone.bands[1].selected);
  EXPECT_FALSE(zone.bands[2].selected);
  const PeakInfo& peak = zone.bands[1].peaks.at(0);
  EXPECT_EQ(peak.fwhm_nm, 12.0);
  EXPECT_EQ(peak.quantum_efficiency, 0.0);
  EXPECT_EQ(peak.contribution, 1.0);
  EXPECT_EQ(peak.order, 1u);
  EXPECT_EQ(peak.shape, Distributions::DB_LORENTZIAN);
  EXPECT_EQ(zone.bands[1].peaks.size(), 1u);
}

TEST(FilterZoneUnversioned, SelectionAndBandCount) {
  FilterZone zone(FilterZone::WEDGE);
  // "active_bands" wins over "bandSelection"; the numbers must be the bands' own.
  Read(zone, Unversioned(Lists(3) + "<active_bands>2, 0.5</active_bands>"
                                    "<bandSelection><band>0</band></bandSelection>"));
  EXPECT_EQ(
      (std::vector<bool>{zone.bands[0].selected, zone.bands[1].selected, zone.bands[2].selected}),
      (std::vector<bool>{false, false, true}));
  Read(zone, Unversioned(Lists(3) + "<bandSelection><band>1.0</band><band> 2 </band>"
                                    "<band>0.9</band></bandSelection>"));
  EXPECT_EQ(
      (std::vector<bool>{zone.bands[0].selected, zone.bands[1].selected, zone.bands[2].selected}),
      (std::vector<bool>{false, true, true}));

  // A count beyond the lists: the file's count holds, and the bands without lists are reported.
  EXPECT_EQ(NotOk(Read(zone, Unversioned(Lists(9) + "<nr_bands>10</nr_bands>"))),
            (EventList{Warning(kMissingVersion, "filter"), Check("nr_bands"),
                       Error(kLegacyDefault, "bands"), Warning(kLegacyDefault, "bands")}));
  ASSERT_EQ(zone.bands.size(), 10u);
  EXPECT_FALSE(zone.bands[9].selected);
  EXPECT_EQ(zone.bands[9].peaks.at(0).wavelength_nm, 0.0);
  // A smaller count drops the bands beyond it.
  EXPECT_EQ(NotOk(Read(zone, Unversioned(Lists(3) + "<nr_bands>2</nr_bands>"))),
            (EventList{Warning(kMissingVersion, "filter"), Check("nr_bands")}));
  EXPECT_EQ(zone.bands.size(), 2u);
}

TEST(FilterZoneUnversioned, TextThatStofCannotReadEndsTheReadWithItsException) {
  // A selection that is no number ends it too, as the calibration's hostile files show.
  const std::string table = Lists(2) + R"(<tileCols>1</tileCols><tileRows>2</tileRows>
      <tileToBandNr><band tile="0">first</band></tileToBandNr>)";
  WedgeFilterZone wedge;
  EXPECT_NO_THROW(ReadOrThrow(wedge, Unversioned(table)));  // a wedge has no tiles to read
  TiledFilterZone tiles;
  EXPECT_THROW(ReadOrThrow(tiles, Unversioned(table)), std::invalid_argument);
  EXPECT_THROW(ReadOrThrow(tiles, Unversioned(Replace(table, ">first<", ">-1e40<"))),
               std::out_of_range);
}

TEST(FilterZoneUnversioned, ResponsesAreRowsOfTenBitNumbersOneColumnPerBand) {
  const auto grid = [](const std::string& range, const std::string& responses) {
    return Unversioned(Lists(2) + "<calibration_data>" + range + responses + "</calibration_data>");
  };
  const std::string range =
      "<start_calibration_range>600</start_calibration_range>"
      "<end_calibration_range>602</end_calibration_range>"
      "<calibration_resolution>0</calibration_resolution>";
  FilterZone zone(FilterZone::WEDGE);
  // A resolution of 0 is 1 nm: three samples of two bands.
  EXPECT_EQ(NotOk(Read(zone, grid(range,
                                  "<filter_responses>1024, 0, 512, 256, 0, 2048"
                                  "</filter_responses>"))),
            (EventList{Warning(kMissingVersion, "filter")}));
  EXPECT_EQ(zone.bands[0].response, (std::vector<double>{1.0, 0.5, 0.0}));
  EXPECT_EQ(zone.bands[1].response, (std::vector<double>{0.0, 0.25, 2.0}));

  // Without one of the four items the bands keep no response, with a warning; without the
  // element at all there is nothing to say.
  for (const std::string& partial :
       {grid(Replace(range, "<calibration_resolution>0</calibration_resolution>", ""),
             "<filter_responses>1, 2, 3, 4, 5, 6</filter_responses>"),
        grid(range, "")}) {
    EXPECT_EQ(NotOk(Read(zone, partial)), (EventList{Warning(kMissingVersion, "filter"),
                                                     Warning(kLegacyDefault, "calibration_info")}));
    EXPECT_TRUE(zone.bands[1].response.empty());
  }
  EXPECT_EQ(NotOk(Read(zone, Unversioned(Lists(2)))),
            (EventList{Warning(kMissingVersion, "filter")}));

  // No sample (the range runs back by more than a step) or no band: nothing to fill.
  EXPECT_EQ(
      NotOk(Read(zone,
                 grid(Replace(range, ">602<", ">598<"), "<filter_responses>1</filter_responses>"))),
      (EventList{Warning(kMissingVersion, "filter"), Error(kMissingValue, "filter_responses")}));
  EXPECT_EQ(
      NotOk(Read(zone,
                 Replace(grid(range, "<filter_responses/>"), Lists(2), "<wavelength/><fwhm/>"))),
      (EventList{Warning(kMissingVersion, "filter"), Error(kMissingValue, "filter_responses")}));
}

TEST(FilterZoneUnversioned, HostileCountsKeepNothingOfTheirElement) {
  FilterZone zone(FilterZone::WEDGE);
  const std::string too_many = "nr_bands is more bands than a zone can have";
  EXPECT_EQ(NotOk(Read(zone, Unversioned(Lists(1) + "<nr_bands>100001</nr_bands>"))),
            (EventList{Warning(kMissingVersion, "filter"), Check("nr_bands"), Check(too_many)}));
  EXPECT_TRUE(zone.bands.empty());
  // Counted from the highest band number of the lists.
  EXPECT_EQ(NotOk(Read(zone, Unversioned(R"(<wavelength><band number="2147483647">600</band>
      </wavelength><fwhm/>)"))),
            (EventList{Warning(kMissingVersion, "filter"), Check(too_many)}));
  EXPECT_TRUE(zone.bands.empty());
  // Negative band numbers are no band of the zone.
  EXPECT_EQ(NotOk(Read(zone, Unversioned(R"(<wavelength><band number="-7">600</band></wavelength>
      <fwhm/>)"))),
            (EventList{Warning(kMissingVersion, "filter")}));
  EXPECT_TRUE(zone.bands.empty());
  // The largest count is read.
  EXPECT_EQ(
      NotOk(Read(zone, Unversioned("<nr_bands>100000</nr_bands><wavelength/><fwhm/>"))).size(),
      1u + 2u * 100000u + 1u);
  EXPECT_EQ(zone.bands.size(), FilterZone::kMaxBands);

  // A grid of more samples than any calibration has, or a range that gives no count at all.
  const std::string sentence =
      "The range of calibration_data gives no number of samples that filter_responses can hold";
  for (const char* resolution : {"1e-9", "-1", "nan"}) {
    EXPECT_EQ(NotOk(Read(zone, Unversioned(Lists(2) +
                                           "<calibration_data><start_calibration_range>600"
                                           "</start_calibration_range><end_calibration_range>"
                                           "1000</end_calibration_range><calibration_resolution>" +
                                           resolution +
                                           "</calibration_resolution><filter_responses>1, 2"
                                           "</filter_responses></calibration_data>"))),
              (EventList{Warning(kMissingVersion, "filter"), Check(sentence)}))
        << resolution;
    EXPECT_TRUE(zone.bands[0].response.empty());
  }
}

TEST(FilterZoneUnversioned, WedgeLinesOffsetAndUpsideDownBands) {
  WedgeFilterZone wedge;
  EXPECT_EQ(
      NotOk(Read(wedge, Unversioned(Lists(3) + "<active_area_height>95"
                                               "</active_area_height>"))),
      (EventList{Warning(kMissingVersion, "filter"), Warning(kLegacyDefault, "lines_per_band"),
                 Warning(kLegacyDefault, "first_band_offset"),
                 CheckWarning("active_area_height and pattern_height")}));
  EXPECT_EQ(wedge.pattern_width, 1u);
  EXPECT_EQ(wedge.pattern_height, 3u);
  EXPECT_EQ(wedge.filter_height, 31u);  // 95 lines shared by three bands
  EXPECT_EQ(wedge.filter_area.height, 93.0);
  EXPECT_EQ(wedge.filter_area.offset_y, 0.0);
  // The first band of the file was the bottom one.
  EXPECT_EQ(Indices(wedge), (std::vector<unsigned long>{0, 1, 2}));
  EXPECT_EQ(FirstWavelengths(wedge), (std::vector<double>{620.0, 610.0, 600.0}));

  // A negative count of lines is no count; the zone then has stripes of no lines.
  EXPECT_EQ(NotOk(Read(wedge, Unversioned(Lists(1) + "<active_area_height>8</active_area_height>"
                                                     "<lines_per_band>-8</lines_per_band>"
                                                     "<first_band_offset>4</first_band_offset>")))
                .back(),
            Error(kMissingValue, "lines_per_band"));
  EXPECT_EQ(wedge.filter_height, 0u);
  EXPECT_EQ(wedge.filter_area.offset_y, 4.0);

  // Without bands the lines have nothing to be shared by; a negative height counts as none.
  const std::string no_bands = "lines_per_band can't be shared out over a wedge without bands";
  for (const char* height : {"100", "-100"}) {
    EXPECT_EQ(NotOk(Read(wedge, Unversioned(std::string("<wavelength/><fwhm/>") +
                                            "<active_area_height>" + height +
                                            "</active_area_height><lines_per_band>5"
                                            "</lines_per_band><first_band_offset>0"
                                            "</first_band_offset>"))),
              (EventList{Warning(kMissingVersion, "filter"), Check(no_bands)}))
        << height;
    EXPECT_EQ(wedge.pattern_height, 0u);
    EXPECT_TRUE(wedge.bands.empty());
  }
}

TEST(FilterZoneUnversioned, WedgeOfVersionZeroIsWidenedToAllItsBands) {
  // Five bands, none selected, an area of three stripes of 10 lines. How the area of the
  // selected bands is widened is what calibration_v0.xml shows.
  FilterZone stored = Zone(FilterZone::WEDGE, 2048.0, 30.0, 1, 5);
  stored.filter_area.offset_y = 110.0;
  stored.pattern_height = 3;
  stored.filter_height = 10;
  for (BandInfo& band : stored.bands) {
    band.selected = false;
  }
  const auto as = [&](const char* version) {
    return Replace(stored.WriteString(), R"(version="3")", version);
  };
  // Read as version 1 nothing is widened.
  WedgeFilterZone wedge;
  EXPECT_EQ(NotOk(Read(wedge, as(R"(version="1")"))), EventList{});
  EXPECT_EQ(wedge.pattern_height, 3u);
  EXPECT_EQ(wedge.filter_area.height, 30.0);

  // Without a selected band there is no first band to move the area by; it only grows.
  EXPECT_EQ(NotOk(Read(wedge, as(R"(version="0")"))),
            (EventList{Check("A wedge without selected bands has no first band to place its area "
                             "by")}));
  EXPECT_EQ(wedge.pattern_height, 5u);
  EXPECT_EQ(wedge.filter_area.offset_y, 110.0);
  EXPECT_EQ(wedge.filter_area.height, 80.0);

  // A stripe count that matches the bands is left alone.
  stored.pattern_height = 5;
  stored.filter_height = 1;
  Read(wedge, as(R"(version="0")"));
  EXPECT_EQ(wedge.filter_area.height, 30.0);
}

TEST(FilterZoneUnversioned, TilesByTheirTableWithGapsReported) {
  TiledFilterZone tiles;
  const std::string counts =
      "<tile_row_count>4</tile_row_count><tile_col_count>2"
      "</tile_col_count>";
  // Bands 0, 2 and 3 of the table take the tiles 5, 6 and 7 in the order of the zone's bands;
  // the count stays behind at the gap, so bands 2 and 3 are both reported. Band 3 of the zone
  // is past the table and keeps its number.
  EXPECT_EQ(
      NotOk(Read(tiles, Unversioned(Lists(4) + counts +
                                    R"(<active_area><offset_x>0</offset_x>
      <offset_y>3</offset_y><width>1</width><height>1</height></active_area>
      <tileOffsetX>40</tileOffsetX><tileOffsetY>50</tileOffsetY><tileToBandNr>
      <band tile="5">0</band><band tile="6">2.7</band><band>3</band></tileToBandNr>)"))),
      (EventList{Warning(kMissingVersion, "filter"), Error(kMissingAttribute, "tile"),
                 Check("missing bands in tileToBandNr"), Check("missing bands in tileToBandNr")}));
  // Tiles 5 (band 0), 6 (band 1), 0 (band 2, no tile attribute) and 3 (band 3), each then on the
  // mirrored row of a pattern of 2 columns and 4 rows.
  EXPECT_EQ(Indices(tiles), (std::vector<unsigned long>{0, 3, 5, 6}));
  EXPECT_EQ(FirstWavelengths(tiles), (std::vector<double>{610.0, 600.0, 630.0, 620.0}));
  EXPECT_EQ(tiles.filter_area, common::RegionOfInterest(40.0, 3.0, 512.0, 1024.0));
  EXPECT_EQ(tiles.filter_width, 256u);
  EXPECT_EQ(tiles.filter_height, 256u);

  // A table with more bands than the zone, or a number that no band has.
  EXPECT_EQ(NotOk(Read(tiles, Unversioned(Lists(1) + counts + R"(<tileToBandNr>
      <band tile="1">0</band><band tile="2">-3</band><band tile="3">1e30</band>
      <band tile="4">1</band></tileToBandNr>)"))),
            (EventList{Warning(kMissingVersion, "filter"),
                       Check("tileToBandNr holds a band number that no zone has"),
                       Check("tileToBandNr holds a band number that no zone has"),
                       Check("tileToBandNr holds more bands than the zone")}));
  EXPECT_EQ(Indices(tiles), std::vector<unsigned long>{7});  // tile 1 on the mirrored row
}

TEST(FilterZoneUnversioned, TilesWithoutCountsAreNotTurned) {
  TiledFilterZone tiles;
  EXPECT_EQ(NotOk(Read(tiles, Unversioned(Lists(2)))),
            (EventList{Warning(kMissingVersion, "filter"),
                       Error(kMissingValue, "tile_row_count - tileRows"),
                       Error(kMissingValue, "tile_col_count - tileCols"),
                       Check("The rows of tiles without columns can't be turned upside down")}));
  EXPECT_EQ(Indices(tiles), (std::vector<unsigned long>{0, 1}));
  EXPECT_EQ(tiles.filter_area.width, 0.0);
  // The old names are read when the new ones are absent.
  Read(tiles, Unversioned(Lists(2) + "<tileRows>2</tileRows><tileCols>1</tileCols>"));
  EXPECT_EQ(tiles.pattern_height, 2u);
  EXPECT_EQ(tiles.pattern_width, 1u);
  EXPECT_EQ(Indices(tiles), (std::vector<unsigned long>{0, 1}));
  EXPECT_EQ(FirstWavelengths(tiles), (std::vector<double>{610.0, 600.0}));
}

TEST(FilterZoneUnversioned, MosaicKeepsWholePatternsAndTurnsItsRows) {
  MosaicFilterZone mosaic;
  const std::string area =
      "<active_area><offset_x>0</offset_x><offset_y>0</offset_y>"
      "<width>10</width><height>7</height></active_area>";
  EXPECT_EQ(NotOk(Read(mosaic, Unversioned(Lists(6) + area +
                                           "<mosaic_pattern_width>3"
                                           "</mosaic_pattern_width>"
                                           "<mosaic_pattern_height>2"
                                           "</mosaic_pattern_height>"))),
            (EventList{Warning(kMissingVersion, "filter"),
                       CheckWarning("active_area_width and mosaic_pattern_width"),
                       CheckWarning("active_area_height and mosaic_pattern_height")}));
  EXPECT_EQ(mosaic.filter_area, common::RegionOfInterest(0.0, 0.0, 9.0, 6.0));
  EXPECT_EQ(mosaic.filter_width, 1u);
  EXPECT_EQ(FirstWavelengths(mosaic),
            (std::vector<double>{630.0, 640.0, 650.0, 600.0, 610.0, 620.0}));

  // Without a pattern nothing is trimmed and nothing turned.
  EXPECT_EQ(
      NotOk(Read(mosaic, Unversioned(Lists(2) + area))),
      (EventList{Warning(kMissingVersion, "filter"), Error(kMissingValue, "mosaic_pattern_width"),
                 Error(kMissingValue, "mosaic_pattern_height")}));
  EXPECT_EQ(mosaic.filter_area.width, 10.0);
  EXPECT_EQ(Indices(mosaic), (std::vector<unsigned long>{0, 1}));
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

// The hand-written files of tests/data/legacy/, one per historic form of a record and one whole
// calibration per old root version: each is read as a user's old file would be, with the exact
// list of what it reports beyond the bookkeeping, and the values it must land on.
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/filter_zone.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/calibration/rejection_filter.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using BandInfo = FilterZone::BandInfo;
using PeakInfo = FilterZone::BandInfo::PeakInfo;

std::string Sample(const std::string& name) {
  return std::string(KELTO_TEST_DATA_DIR) + "/legacy/" + name;
}

// Reads a sample into the record and gives the events worse than Ok.
template <typename Record>
EventList ReadSample(Record& record, const std::string& name) {
  ParsingResult result;
  record.ReadFile(result, Sample(name));
  return NotOk(result);
}

// A sample of one record: what its reading reports, and what the record's checks then say. The
// values each form lands on are asserted by the record's own tests on literal text.
template <typename Record>
Record ExpectSample(const std::string& name, const EventList& events, const EventList& checks) {
  Record record;
  EXPECT_EQ(ReadSample(record, name), events) << name;
  EXPECT_EQ(Checks(record), checks) << name;
  return record;
}

TEST(LegacySamples, RecordsReadWithExactlyTheirReports) {
  ExpectSample<PeakInfo>("peak_v0.xml", {}, {});
  ExpectSample<PeakInfo>("peak_v1.xml", {}, {});
  ExpectSample<BandInfo>("band_v0.xml", {Warning(kMissingElement, "fwhm_nm")},
                         {Check("0.0 < fwhm_nm")});
  ExpectSample<BandInfo>("band_v1.xml", {}, {});
  ExpectSample<BandInfo>("band_v2.xml", {}, {});
  ExpectSample<OpticalComponent>("optical_component_v0.xml", {}, {});
  ExpectSample<OpticalComponent>("optical_component_v1.xml", {Error(kMissingElement, "created")},
                                 {});
  for (const char* name :
       {"correction_matrix_v0.xml", "correction_matrix_v1.xml", "correction_matrix_v2.xml",
        "correction_matrix_v3.xml", "correction_matrix_v4.xml", "correction_matrix_v5.xml"}) {
    ExpectSample<CorrectionMatrix>(name, {}, {});
  }
  RejectionFilter filter;
  EXPECT_EQ(ReadSample(filter, "rejection_filter_v0.xml"), EventList{});
}

TEST(LegacySamples, VersionTwoBandRenumbersItsPeaksByShare) {
  // The version 0 peak (share 1.0), then 0.7, then 0.2.
  BandInfo band;
  ReadSample(band, "band_v2.xml");
  ASSERT_EQ(band.peaks.size(), 3u);
  const double wavelengths[] = {940.0, 620.0, 470.0};
  for (unsigned long i = 0; i < 3; ++i) {
    EXPECT_EQ(band.peaks[i].wavelength_nm, wavelengths[i]) << i;
    EXPECT_EQ(band.peaks[i].order, i + 1) << i;
  }
  EXPECT_EQ(band.peaks[0].quantum_efficiency, 0.25);
}

// Pattern width and height, filter width and height.
std::vector<unsigned long> Grid(const FilterZone& zone) {
  return {zone.pattern_width, zone.pattern_height, zone.filter_width, zone.filter_height};
}

std::vector<double> FirstWavelengths(const FilterZone& zone) {
  std::vector<double> wavelengths;
  for (const BandInfo& band : zone.bands) {
    wavelengths.push_back(band.peaks.at(0).wavelength_nm);
  }
  return wavelengths;
}

TEST(LegacySamples, FiltersOfBeforeVersionsAndTheirBlocks) {
  // Rows counted from the top: the file's band 12 comes first, its band 0 is 12th.
  const FilterZone mosaic =
      ExpectSample<MosaicFilterZone>("filter_unversioned_mosaic.xml",
                                     {Warning(kMissingVersion, "filter"),
                                      CheckWarning("active_area_width and mosaic_pattern_width")},
                                     {});
  EXPECT_EQ(mosaic.filter_area, common::RegionOfInterest(0.0, 8.0, 2048.0, 1080.0));
  EXPECT_EQ(Grid(mosaic), (std::vector<unsigned long>{4, 4, 1, 1}));
  ASSERT_EQ(mosaic.bands.size(), 16u);
  EXPECT_EQ(mosaic.bands[12].peaks.at(0).wavelength_nm, 470.0);
  EXPECT_EQ(mosaic.bands[3].peaks.at(0).wavelength_nm, 620.0);
  EXPECT_EQ(mosaic.bands[12].response, (std::vector<double>{0.0625, 0.125, 0.1875}));

  // The area begins at the first band's offset and holds four stripes of 10 lines; the file's
  // last band lies on top.
  const FilterZone wedge = ExpectSample<WedgeFilterZone>(
      "filter_unversioned_wedge.xml",
      {Warning(kMissingVersion, "filter"), Warning(kMissingValue, "active_area_offset_x"),
       Warning(kLegacyDefault, "bands"), CheckWarning("active_area_height and pattern_height")},
      {Check("0.0 < fwhm_nm")});
  EXPECT_EQ(wedge.filter_area, common::RegionOfInterest(0.0, 100.0, 2048.0, 40.0));
  EXPECT_EQ(Grid(wedge), (std::vector<unsigned long>{1, 4, 2048, 10}));
  EXPECT_EQ(FirstWavelengths(wedge), (std::vector<double>{900.0, 800.0, 700.0, 600.0}));

  // Bands 0 to 3 on tiles 3 to 0, then on the mirrored row: tiles 1, 0, 3, 2.
  const FilterZone tiles = ExpectSample<TiledFilterZone>("filter_unversioned_tiled.xml",
                                                         {Warning(kMissingVersion, "filter")}, {});
  EXPECT_EQ(tiles.filter_area, common::RegionOfInterest(16.0, 32.0, 512.0, 512.0));
  EXPECT_EQ(Grid(tiles), (std::vector<unsigned long>{2, 2, 256, 256}));
  EXPECT_EQ(FirstWavelengths(tiles), (std::vector<double>{750.0, 650.0, 950.0, 850.0}));

  // Widened, the area holds five whole stripes again.
  const FilterZone widened = ExpectSample<WedgeFilterZone>("filter_zone_v0_wedge.xml", {}, {});
  EXPECT_EQ(widened.filter_area, common::RegionOfInterest(0.0, 100.0, 2048.0, 50.0));

  ExpectSample<FilterInfo>("filter_info_unversioned.xml", {Check("!filter_zones.empty ()")},
                           {Check("!filter_zones.empty ()")});
  const FilterInfo filter =
      ExpectSample<FilterInfo>("filter_info_v0.xml", {Check("(i == filter_zone.index)")},
                               {Check("(i == filter_zone.index)")});
  EXPECT_EQ(filter.calibration_info.sample_points_nm, (std::vector<double>{470.0, 685.0, 900.0}));
  EXPECT_EQ(filter.GetTypeName(), "QL150-470_900");
}

// What a calibration of the current form holds after the legacy one is written and read back:
// times to the second, and a matrix of unknown type as a reflectance matrix.
SensorCalibration WrittenForm(SensorCalibration calibration) {
  const auto seconds = [](common::time::TimePoint time) {
    return std::chrono::floor<std::chrono::seconds>(time);
  };
  calibration.created = seconds(calibration.created);
  calibration.modified = seconds(calibration.modified);
  for (CorrectionMatrix& matrix :
       calibration.system_info.spectral_correction_info.correction_matrices) {
    if (matrix.type == CorrectionMatrixTypes::CT_UNKNOWN) {
      matrix.type = CorrectionMatrixTypes::CT_REFLECTANCE;
    }
  }
  return calibration;
}

// A legacy calibration written in the current form reads back whole and without complaint.
void ExpectCurrentFormReadsBack(const SensorCalibration& legacy) {
  SensorCalibration current;
  const auto result = Read(current, legacy.WriteString());
  EXPECT_EQ(NotOk(result), EventList{});
  EXPECT_TRUE(current == WrittenForm(legacy));
}

TEST(LegacySamples, CalibrationsOfEveryRootVersion) {
  const std::vector<std::tuple<std::string, EventList, std::string>> cases = {
      {"calibration_unversioned.xml",
       {Warning(kMissingVersion, "sensor_calibration"),
        Check("The .xml file is not of type SensorInfo"), Warning(kMissingVersion, "sensor"),
        Check("!filter_zones.empty ()"), Warning(kMissingVersion, "filter"),
        Warning(kMissingValue, "active_area_width")},
       "VKR9-MZT2x2-470_620"},
      {"calibration_v0.xml", {}, "VKR9-QL5-600_1000"},
      {"calibration_v1.xml", {}, "VKR9-TZT4-600_1000"},
      {"calibration_v2.xml", {}, "VKR9-MZT2x2-470_620"}};
  for (const auto& [name, events, type] : cases) {
    SensorCalibration calibration;
    const auto before = common::time::CurrentUniversalTime();
    calibration.modified = before;
    EXPECT_EQ(ReadSample(calibration, name), events) << name;
    EXPECT_EQ(calibration.GetTypeName(), type) << name;
    ExpectCurrentFormReadsBack(calibration);
    ASSERT_EQ(calibration.filter_info.filter_zones.size(), 1u) << name;
    if (name == "calibration_unversioned.xml") {
      EXPECT_EQ(calibration.modified, before);  // not in such a file
      // 10 rows above the bottom and 32 high on a chip of 48 rows: 6 rows below the top.
      EXPECT_EQ(calibration.filter_info.filter_zones[0].filter_area,
                common::RegionOfInterest(0.0, 6.0, 64.0, 32.0));
      EXPECT_TRUE(Checks(calibration).empty());
    } else if (name == "calibration_v0.xml") {
      // Widened from the three selected stripes to all five; the rejection filter becomes the
      // system's one component, the matrix its one matrix.
      EXPECT_EQ(calibration.filter_info.filter_zones[0].filter_area,
                common::RegionOfInterest(0.0, 100.0, 2048.0, 50.0));
      ASSERT_EQ(calibration.system_info.optical_components.size(), 1u);
      const OpticalComponent& filter = calibration.system_info.optical_components[0];
      EXPECT_EQ(filter.tag, "bandpass_600eo-975eo");
      EXPECT_EQ(filter.sample_points_nm.size(), 401u);
      const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
      ASSERT_EQ(matrices.size(), 1u);
      EXPECT_EQ(matrices[0].virtual_bands.size(), 2u);
    } else if (name == "calibration_v1.xml") {
      // The gains of the grid win over those of the sensor block; the capacity is the block's.
      EXPECT_EQ(calibration.sensor_info.analog_gain, 2.0);
      EXPECT_EQ(calibration.sensor_info.full_well_capacity_e, 13500);
    }
  }
}

// ----- hostile files

std::string SampleText(const std::string& name) {
  std::ifstream file(Sample(name), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// One defect put into a sample calibration, and all it must report beyond the bookkeeping.
struct Hostile {
  std::string what;
  std::string sample;
  std::vector<std::pair<std::string, std::string>> edits;
  EventList events;
};

// What calibration_unversioned.xml reports as it stands.
const EventList kUnversioned = {Warning(kMissingVersion, "sensor_calibration"),
                                Check("The .xml file is not of type SensorInfo"),
                                Warning(kMissingVersion, "sensor"),
                                Check("!filter_zones.empty ()"),
                                Warning(kMissingVersion, "filter"),
                                Warning(kMissingValue, "active_area_width")};

EventList Unversioned(const EventList& more) {
  EventList events = kUnversioned;
  events.insert(events.end(), more.begin(), more.end());
  return events;
}

const std::string kMosaic = "calibration_unversioned.xml";
const std::string kSelection = "<active_bands>0, 1, 2, 3</active_bands>";
const std::string kTooMany = "nr_bands is more bands than a zone can have";
const std::string kZoneBands = "bands.size () == pattern_width*pattern_height";
const std::string kCalibrationBands =
    "filter_zone.bands.size () == filter_zone.pattern_height*filter_zone.pattern_width";
const std::string kNoResponse = "0 < band.response.size ()";
const std::string kMisfit =
    "band.response.size () == filter_info.calibration_info.sample_points_nm.size ()";

TEST(LegacyHostileFiles, CountsBeyondAnyFilterAndBrokenPatternsAreEventsOnly) {
  const std::vector<Hostile> cases = {
      {"a zone of four billion bands",
       kMosaic,
       {{kSelection, kSelection + "<nr_bands>4000000000</nr_bands>"}},
       Unversioned({Check("nr_bands"), Check(kTooMany), Error(kMissingValue, "filter_responses"),
                    Check(kZoneBands), Check(kCalibrationBands)})},
      {"a band number far beyond any filter",
       kMosaic,
       {{R"(<band number="3">600</band>)", R"(<band number="2000000000">600</band>)"}},
       Unversioned({Check(kTooMany), Error(kMissingValue, "filter_responses"), Check(kZoneBands),
                    Check(kCalibrationBands)})},
      {"a grid of twenty billion samples",
       kMosaic,
       {{"<calibration_resolution>10<", "<calibration_resolution>1e-9<"}},
       {Warning(kMissingVersion, "sensor_calibration"),
        Check("The .xml file is not of type SensorInfo"), Warning(kMissingVersion, "sensor"),
        Check("The range of calibration_data gives no wavelength grid"),
        CheckWarning("!sample_points_nm.empty ()"), Check("!filter_zones.empty ()"),
        Warning(kMissingVersion, "filter"), Warning(kMissingValue, "active_area_width"),
        Check("The range of calibration_data gives no number of samples that filter_responses "
              "can hold"),
        CheckWarning("!sample_points_nm.empty ()"), CheckWarning(kNoResponse),
        CheckWarning(kNoResponse), CheckWarning(kNoResponse), CheckWarning(kNoResponse)}},
      {"fewer responses than samples times bands",
       kMosaic,
       {{"256, 512, 1024, 512", "256, 512"}},
       Unversioned({Error(kMissingValue, "filter_responses"), CheckWarning(kNoResponse),
                    CheckWarning(kMisfit), CheckWarning(kNoResponse), CheckWarning(kMisfit),
                    CheckWarning(kNoResponse), CheckWarning(kMisfit), CheckWarning(kNoResponse),
                    CheckWarning(kMisfit)})},
      {"a negative height",
       kMosaic,
       {{"<active_area_height>32<", "<active_area_height>-32<"}},
       Unversioned({Check("0 < height")})},
      {"a wedge without bands",
       kMosaic,
       {{R"(type="3")", R"(type="0")"},
        {R"(<band number="0">480</band>)", ""},
        {R"(<band number="1">520</band>)", ""},
        {R"(<band number="2">560</band>)", ""},
        {R"(<band number="3">600</band>)", ""}},
       Unversioned({Error(kMissingValue, "filter_responses"),
                    Check("lines_per_band can't be shared out over a wedge without bands"),
                    Warning(kLegacyDefault, "lines_per_band"),
                    Warning(kLegacyDefault, "first_band_offset"), Check("0 < pattern_height"),
                    Check("0 < filter_height")})},
      {"tiles without columns",
       kMosaic,
       {{R"(type="3")", R"(type="1")"},
        {kSelection, kSelection + "<tileCols>0</tileCols>"
                                  "<tileRows>2</tileRows>"}},
       Unversioned({Check("The rows of tiles without columns can't be turned upside down"),
                    Check("0 < width"), Check("0.0 <= offset_y"), Check("0 < pattern_width"),
                    Check(kZoneBands), Check(kCalibrationBands)})},
      {"a tile table with more bands than the zone, and one far beyond",
       kMosaic,
       {{R"(type="3")", R"(type="1")"},
        {kSelection, kSelection + R"(<tileCols>2</tileCols><tileRows>2</tileRows>
            <tileToBandNr><band tile="0">0</band><band tile="1">1</band><band tile="2">2e9</band>
            <band tile="2">2</band><band tile="3">3</band><band tile="3">4</band></tileToBandNr>)"}},
       Unversioned({Check("tileToBandNr holds a band number that no zone has"),
                    Check("tileToBandNr holds more bands than the zone"), Check("0.0 <= offset_y"),
                    Check("sensor_info.width_px >= filter_zone.filter_area.offset_x + "
                          "filter_zone.filter_area.width")})},
      {"a rejection filter of a trillion points",
       "calibration_v0.xml",
       {{"<wavelength_end_nm>1000<", "<wavelength_end_nm>1e12<"}},
       {Check("The wavelength range of rejection_filter gives no grid that a filter has")}},
  };
  for (const Hostile& hostile : cases) {
    std::string text = SampleText(hostile.sample);
    for (const auto& [from, to] : hostile.edits) {
      text = Replace(text, from, to);
    }
    SensorCalibration calibration;
    const auto result = Read(calibration, text);
    EXPECT_EQ(NotOk(result), hostile.events) << hostile.what;
    EXPECT_LE(calibration.filter_info.GetTotalNrBands(), 5u) << hostile.what;
    EXPECT_LE(calibration.filter_info.calibration_info.sample_points_nm.size(), 3u) << hostile.what;
    for (const OpticalComponent& component : calibration.system_info.optical_components) {
      EXPECT_LE(component.sample_points_nm.size(), 401u) << hostile.what;
    }
  }
}

TEST(LegacyHostileFiles, NumbersThatStofOrStoiCannotReadLeaveTheWholeRead) {
  // Through the calibration's own reader the exception reaches the caller as it was thrown.
  SensorCalibration calibration;
  const std::string selection =
      Replace(SampleText(kMosaic), kSelection, "<bandSelection><band>all</band></bandSelection>");
  EXPECT_THROW(ReadOrThrow(calibration, selection), std::invalid_argument);
  const std::string date =
      Replace(SampleText("calibration_v1.xml"), "<created>2012-03-14<", "<created>2012-Mar-14<");
  EXPECT_THROW(ReadOrThrow(calibration, date), std::invalid_argument);
  const std::string year = Replace(SampleText("calibration_v1.xml"), "<created>2012-03-14<",
                                   "<created>20120000000-03-14<");
  EXPECT_THROW(ReadOrThrow(calibration, year), std::out_of_range);

  // A whole-document read stops at it with one event, and the process goes on.
  EXPECT_EQ(NotOk(Read(calibration, selection)),
            Unversioned({Check("string: reading stopped: stof")}));
  EXPECT_EQ(NotOk(Read(calibration, date)), (EventList{Check("string: reading stopped: stoi")}));
  ParsingResult strict(false, true);
  EXPECT_THROW(calibration.ReadString(strict, year), std::runtime_error);
}

}  // namespace
}  // namespace kelto::hyperspectral

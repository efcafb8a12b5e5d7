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

// The values that each form lands on are those of the records' own tests on literal text.
TEST(LegacySamples, FiltersOfBeforeVersionsAndTheirBlocks) {
  ExpectSample<MosaicFilterZone>("filter_unversioned_mosaic.xml",
                                 {Warning(kMissingVersion, "filter"),
                                  CheckWarning("active_area_width and mosaic_pattern_width")},
                                 {});
  ExpectSample<WedgeFilterZone>(
      "filter_unversioned_wedge.xml",
      {Warning(kMissingVersion, "filter"), Warning(kMissingValue, "active_area_offset_x"),
       Warning(kLegacyDefault, "bands"), CheckWarning("active_area_height and pattern_height")},
      {Check("0.0 < fwhm_nm")});
  ExpectSample<TiledFilterZone>("filter_unversioned_tiled.xml",
                                {Warning(kMissingVersion, "filter")}, {});
  ExpectSample<WedgeFilterZone>("filter_zone_v0_wedge.xml", {}, {});
  ExpectSample<FilterInfo>("filter_info_unversioned.xml", {Check("!filter_zones.empty ()")},
                           {Check("!filter_zones.empty ()")});
  ExpectSample<FilterInfo>("filter_info_v0.xml", {Check("(i == filter_zone.index)")},
                           {Check("(i == filter_zone.index)")});
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

// What calibration_unversioned.xml reports as it stands.
const EventList kUnversioned = {Warning(kMissingVersion, "sensor_calibration"),
                                Check("The .xml file is not of type SensorInfo"),
                                Warning(kMissingVersion, "sensor"),
                                Check("!filter_zones.empty ()"),
                                Warning(kMissingVersion, "filter"),
                                Warning(kMissingValue, "active_area_width")};

TEST(LegacySamples, CalibrationsOfEveryRootVersion) {
  const std::vector<std::tuple<std::string, EventList, std::string>> cases = {
      {"calibration_unversioned.xml", kUnversioned, "VKR9-MZT2x2-470_620"},
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

EventList Unversioned(const EventList& more) {
  EventList events = kUnversioned;
  events.insert(events.end(), more.begin(), more.end());
  return events;
}

const std::string kMosaic = "calibration_unversioned.xml";
const std::string kSelection = "<active_bands>0, 1, 2, 3</active_bands>";
const std::string kNoResponse = "0 < band.response.size ()";
const std::string kMisfit =
    "band.response.size () == filter_info.calibration_info.sample_points_nm.size ()";

// Counts beyond any filter and broken patterns are each refused where their record reads them
// (filter zone, filter block, rejection filter); here the calibration's own checks follow.
TEST(LegacyHostileFiles, DefectsOfTheZoneAreEventsOnly) {
  // One defect put into the sample, and all it must report beyond the bookkeeping.
  const std::vector<std::tuple<std::string, std::string, EventList>> cases = {
      {"256, 512, 1024, 512", "256, 512",
       Unversioned({Error(kMissingValue, "filter_responses"), CheckWarning(kNoResponse),
                    CheckWarning(kMisfit), CheckWarning(kNoResponse), CheckWarning(kMisfit),
                    CheckWarning(kNoResponse), CheckWarning(kMisfit), CheckWarning(kNoResponse),
                    CheckWarning(kMisfit)})},
      {"<active_area_height>32<", "<active_area_height>-32<", Unversioned({Check("0 < height")})}};
  for (const auto& [from, to, events] : cases) {
    SensorCalibration calibration;
    EXPECT_EQ(NotOk(Read(calibration, Replace(SampleText(kMosaic), from, to))), events) << to;
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

#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <kelto/common/version.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

// A small but complete calibration: a VKR9 chip with one 2 by 1 mosaic of one-peak bands on a
// three-point grid, no optics and no correction matrices.
SensorCalibration Small() {
  SensorCalibration calibration;
  calibration.sensor_id = "7.1.12.3";
  calibration.created = common::time::UniversalTimeFromString("2024-05-17T09:30:00Z");
  calibration.modified = common::time::UniversalTimeFromString("2024-06-01T12:00:05Z");
  calibration.software = "kelto-sim";
  calibration.software_version = "1.2.3";
  SensorInfo& sensor = calibration.sensor_info;
  sensor.sensor_type = common::SensorTypes::VKR9;
  sensor.width_px = 64;
  sensor.height_px = 32;
  sensor.pixel_pitch_um = 5.5;
  sensor.bit_depth = 10;
  sensor.analog_gain = 3.2;
  sensor.digital_gain = 1.0;
  sensor.full_well_capacity_e = 13500;
  sensor.overall_gain = 0.2427;
  calibration.filter_info.calibration_info.sample_points_nm = {500.0, 501.0, 502.0};
  FilterZone zone(FilterZone::MOSAIC);
  zone.filter_area = common::RegionOfInterest(0.0, 0.0, 64.0, 32.0);
  zone.pattern_width = 2;
  zone.pattern_height = 1;
  zone.filter_width = 1;
  zone.filter_height = 1;
  zone.spectral_range_start_nm = 500.0;
  zone.spectral_range_end_nm = 502.0;
  for (unsigned long i = 0; i < 2; ++i) {
    FilterZone::BandInfo band;
    band.pattern_position_index = i;
    band.selected = true;
    FilterZone::BandInfo::PeakInfo peak;
    peak.wavelength_nm = 500.0 + static_cast<double>(i);
    peak.fwhm_nm = 1.5;
    peak.quantum_efficiency = 0.4;
    peak.contribution = 1.0;
    band.peaks.push_back(peak);
    band.response = {0.1, 0.4, 0.1};
    zone.bands.push_back(band);
  }
  calibration.filter_info.filter_zones.push_back(zone);
  return calibration;
}

// The events of reading a zone of Small(), and of reading all of Small() as written.
const EventList kZoneRead = {ReadStart("filter_zone"), ReadStart("filter_area"), ReadStart("band"),
                             ReadStart("peak"),        ReadStart("band"),        ReadStart("peak")};
const EventList kSoundRead = [] {
  EventList events = {ReadStart("sensor_calibration"), ReadStart("sensor_info"),
                      ReadStart("filter_info"), ReadStart("calibration_info")};
  events.insert(events.end(), kZoneRead.begin(), kZoneRead.end());
  events.insert(events.end(), {ReadStart("system_info"), ReadStart("spectral_correction_info")});
  return events;
}();

// The sound sequence with `inserted` put before the event at `position`.
EventList With(std::size_t position, const EventList& inserted) {
  EventList events = kSoundRead;
  events.insert(events.begin() + static_cast<long>(position), inserted.begin(), inserted.end());
  return events;
}

EventList ReadEdited(SensorCalibration& calibration, const std::string& from,
                     const std::string& to) {
  return Events(Read(calibration, Replace(Small().WriteString(), from, to)));
}

TEST(SensorCalibrationReading, CurrentFormRoundTripsWithOnlyReadStarts) {
  const SensorCalibration calibration = Small();
  const std::string text = calibration.WriteString();
  EXPECT_NE(text.find(R"(<sensor_calibration version="3" sensor_id="7.1.12.3" )"
                      R"(created="2024-05-17T09:30:00Z" modified="2024-06-01T12:00:05Z" )"
                      R"(software="kelto-sim" software_version="1.2.3">)"),
            std::string::npos)
      << text;
  SensorCalibration copy;
  EXPECT_EQ(Events(Read(copy, text)), kSoundRead);
  EXPECT_TRUE(copy == calibration);
  EXPECT_EQ(copy.filter_info.filter_zones[0].filter_layout(), FilterZone::MOSAIC);
  EXPECT_EQ(copy.GetTypeName(), "VKR9-MZT2x1-500_502");
}

TEST(SensorCalibrationDefects, RootAttributes) {
  SensorCalibration calibration;
  const std::string text = Replace(Replace(Small().WriteString(), R"( sensor_id="7.1.12.3")", ""),
                                   R"( created="2024-05-17T09:30:00Z")", "");
  EXPECT_EQ(Events(Read(calibration, text)),
            With(1, {Error(kMissingAttribute, "sensor_id"), Error(kMissingAttribute, "created")}));
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
  EXPECT_EQ(calibration.created, common::time::TimePoint());

  // "not-a-date-time" is time zero without an event, an unreadable time is an event.
  EXPECT_EQ(ReadEdited(calibration, "2024-06-01T12:00:05Z", "not-a-date-time"), kSoundRead);
  EXPECT_EQ(calibration.modified, common::time::TimePoint());
  EXPECT_EQ(ReadEdited(calibration, "2024-06-01T12:00:05Z", "June"),
            With(1, {Error(kMissingValue, "modified")}));
}

TEST(SensorCalibrationDefects, ZoneOfAnotherOrUnknownLayout) {
  // The stored layout decides the class that reads the zone, so another known layout reads the
  // same element silently as that layout.
  SensorCalibration calibration;
  EXPECT_EQ(ReadEdited(calibration, R"(layout="MOSAIC")", R"(layout="TILED")"), kSoundRead);
  EXPECT_EQ(calibration.filter_info.filter_zones[0].filter_layout(), FilterZone::TILED);

  // An unknown layout becomes an empty zone without a filter: nothing of it is read or checked.
  EventList expected = kSoundRead;
  expected.erase(expected.begin() + 5, expected.begin() + 10);
  EXPECT_EQ(ReadEdited(calibration, R"(layout="MOSAIC")", R"(layout="HEXAGONAL")"), expected);
  const FilterZone& zone = calibration.filter_info.filter_zones[0];
  EXPECT_EQ(zone.filter_layout(), FilterZone::NO_FILTER);
  EXPECT_TRUE(zone.bands.empty());
  EXPECT_EQ(calibration.GetTypeName(), "VKR9-unknown");
}

TEST(SensorCalibrationDefects, BlockDefectsAreReportedWhileReadingAndAgainAtTheEnd) {
  SensorCalibration calibration;
  const std::string text =
      Replace(Small().WriteString(), R"(<band version="4" index="1")", R"(<band version="4")");
  EventList expected = With(9, {Error(kMissingAttribute, "index")});
  expected.insert(expected.begin() + 11, Check("0 < order"));
  expected.push_back(Check("0 < order"));
  EXPECT_EQ(Events(Read(calibration, Replace(text, R"(<peak version="2" order="1")",
                                             R"(<peak version="2" order="0")"))),
            expected);

  expected = With(2, {Check("0 < height_px")});
  expected.insert(
      expected.end(),
      {Check("0 < height_px"), Check("sensor_info.height_px >= filter_zone.filter_area.offset_y "
                                     "+ filter_zone.filter_area.height")});
  EXPECT_EQ(ReadEdited(calibration, "<height_px>32</height_px>", "<height_px>0</height_px>"),
            expected);
}

TEST(SensorCalibrationDefects, ZoneLeftOfAnEarlierOne) {
  SensorCalibration calibration = Small();
  calibration.sensor_info.width_px = 128;
  FilterZone second = calibration.filter_info.filter_zones[0];
  calibration.filter_info.filter_zones[0].filter_area.offset_x = 64.0;
  second.index = 1;
  calibration.filter_info.filter_zones.push_back(second);
  const std::string rule =
      "(prev_filter_zone.filter_area.offset_y + prev_filter_zone.filter_area.height <= "
      "filter_zone.filter_area.offset_y) || (prev_filter_zone.filter_area.offset_x + "
      "prev_filter_zone.filter_area.width <= filter_zone.filter_area.offset_x)";
  EventList expected = With(10, kZoneRead);
  expected.insert(expected.begin() + 16, Check(rule));
  expected.push_back(Check(rule));
  SensorCalibration copy;
  EXPECT_EQ(Events(Read(copy, calibration.WriteString())), expected);
}

TEST(SensorCalibrationDefects, UnmeasuredAndMisfitResponsesAreWarnings) {
  SensorCalibration calibration = Small();
  calibration.filter_info.filter_zones[0].bands[0].response.clear();
  calibration.filter_info.filter_zones[0].bands[1].response.push_back(0.0);
  const std::string misfit =
      "band.response.size () == filter_info.calibration_info.sample_points_nm.size ()";
  EventList expected = kSoundRead;
  expected.insert(expected.end(), {CheckWarning("0 < band.response.size ()"), CheckWarning(misfit),
                                   CheckWarning(misfit)});
  SensorCalibration copy;
  const auto result = Read(copy, calibration.WriteString());
  EXPECT_EQ(Events(result), expected);
  EXPECT_EQ(result.state(), kWarning);
}

TEST(SensorCalibrationDefects, CountsClaimedByTheFileAllocateNothingBeyondItsText) {
  for (const std::string count : {"18446744073709551615", "99999999999", "-3", "3e9"}) {
    SensorCalibration calibration;
    EXPECT_EQ(ReadEdited(calibration, R"(<response nr_elements="3")",
                         "<response nr_elements=\"" + count + "\""),
              With(8, {Error(kMissingElement, "response")}))
        << count;
    EXPECT_LE(calibration.filter_info.filter_zones[0].bands[0].response.capacity(), 4u) << count;
  }
}

TEST(SensorCalibrationDefects, MissingBlocksLeaveTheDefaultsToBeChecked) {
  const EventList default_checks = {Check("SensorTypes::eType::Unknown != sensor_type"),
                                    Check("0 < height_px"),
                                    Check("0 < width_px"),
                                    Check("0.0 < pixel_pitch_um"),
                                    Check("0 < bit_depth"),
                                    CheckWarning("!sample_points_nm.empty ()"),
                                    Check("!filter_zones.empty ()")};
  EXPECT_EQ(Checks(SensorCalibration()), default_checks);

  SensorCalibration calibration;
  EventList expected = {ReadStart("anything"), Error(kMissingElement, "sensor_info"),
                        Error(kMissingElement, "filter_info"),
                        Error(kMissingElement, "system_info")};
  expected.insert(expected.end(), default_checks.begin(), default_checks.end());
  EXPECT_EQ(Events(Read(calibration, R"(<anything version="3" sensor_id="1"
      created="not-a-date-time" modified="not-a-date-time" software="x" software_version="1"/>)")),
            expected);
}

TEST(SensorCalibrationVersions, NewerIsReadAsCurrentOlderWaitForTheirReaders) {
  SensorCalibration calibration;
  EXPECT_EQ(ReadEdited(calibration, R"(version="3" sensor_id)", R"(version="4" sensor_id)"),
            kSoundRead);
  EXPECT_TRUE(calibration == Small());

  const EventList old = Events(Read(calibration, R"(<sensor_calibration version="2"/>)"));
  ASSERT_GE(old.size(), 2u);
  EXPECT_EQ(old[1], Error(kUnsupportedVersion, "sensor_calibration"));
  EXPECT_TRUE(calibration == Small());
  const EventList unversioned = Events(Read(calibration, R"(<sensor_calibration/>)"));
  ASSERT_GE(unversioned.size(), 2u);
  EXPECT_EQ(unversioned[1], Warning(kMissingVersion, "sensor_calibration"));
}

TEST(SensorCalibrationEquality, EveryFieldCounts) {
  const SensorCalibration base = Small();
  std::vector<SensorCalibration> variants(8, base);
  variants[0].sensor_id = "7.1.12.4";
  variants[1].created += std::chrono::seconds(1);
  variants[2].modified += std::chrono::microseconds(1);
  variants[3].software = "kelto";
  variants[4].software_version = "1.2.4";
  variants[5].system_info.optical_components.emplace_back();
  variants[6].filter_info.filter_zones[0].bands[0].peaks[0].fit_error = 0.5;
  variants[7].sensor_info.bit_depth = 12;
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == base) << i;
  }
}

TEST(SensorCalibrationDefaults, IdentityTimesAndSoftware) {
  const auto before = common::time::CurrentUniversalTime();
  const SensorCalibration calibration;
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
  EXPECT_EQ(calibration.software, "kelto");
  EXPECT_EQ(calibration.software_version, common::GetVersionString());
  EXPECT_GE(calibration.created, before);
  EXPECT_GE(calibration.modified, calibration.created);
  EXPECT_EQ(calibration.GetTypeName(), "Unknown-unknown");
}

TEST(SensorCalibrationSamples, EveryBundledSampleIsSoundAndRoundTrips) {
  std::vector<std::string> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(KELTO_TEST_DATA_DIR) + "/calibrations")) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  ASSERT_GE(files.size(), 5u);
  for (const std::string& file : files) {
    SensorCalibration calibration;
    ParsingResult first;
    calibration.ReadFile(first, file);
    EXPECT_EQ(first.state(), kOk) << file;
    EXPECT_EQ(std::filesystem::path(file).stem().string(), calibration.GetTypeName());

    SensorCalibration again;
    const auto second = Read(again, calibration.WriteString());
    EXPECT_EQ(second.state(), kOk) << file;
    EXPECT_EQ(Events(second), Events(first)) << file;
    EXPECT_TRUE(again == calibration) << file;
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

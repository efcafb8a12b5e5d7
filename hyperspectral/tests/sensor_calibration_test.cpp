#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <kelto/common/version.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingAttribute = 14, kSanityCheck = 30, kReadStart = 40;

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

// The events of reading Small() as written, in order.
const EventList kSoundRead = {
    {kOk, kReadStart, "sensor_calibration"},
    {kOk, kReadStart, "sensor_info"},
    {kOk, kReadStart, "filter_info"},
    {kOk, kReadStart, "calibration_info"},
    {kOk, kReadStart, "filter_zone"},
    {kOk, kReadStart, "filter_area"},
    {kOk, kReadStart, "band"},
    {kOk, kReadStart, "peak"},
    {kOk, kReadStart, "band"},
    {kOk, kReadStart, "peak"},
    {kOk, kReadStart, "system_info"},
    {kOk, kReadStart, "spectral_correction_info"},
};

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// The sound sequence with `inserted` put before the event at `position`.
EventList With(std::size_t position, const EventList& inserted) {
  EventList events = kSoundRead;
  events.insert(events.begin() + static_cast<long>(position), inserted.begin(), inserted.end());
  return events;
}

TEST(SensorCalibrationReading, CurrentFormRoundTripsWithOnlyReadStarts) {
  const SensorCalibration calibration = Small();
  SensorCalibration copy;
  const auto result = Read(copy, calibration.WriteString());
  EXPECT_EQ(Events(result), kSoundRead);
  EXPECT_TRUE(copy == calibration);
  EXPECT_EQ(copy.filter_info.filter_zones[0].filter_layout(), FilterZone::MOSAIC);
  EXPECT_EQ(copy.GetTypeName(), "VKR9-MZT2x1-500_502");
}

TEST(SensorCalibrationReading, WrittenRootHasAttributesInOrder) {
  const std::string text = Small().WriteString();
  EXPECT_NE(text.find(R"(<sensor_calibration version="3" sensor_id="7.1.12.3" )"
                      R"(created="2024-05-17T09:30:00Z" modified="2024-06-01T12:00:05Z" )"
                      R"(software="kelto-sim" software_version="1.2.3">)"),
            std::string::npos)
      << text;
}

TEST(SensorCalibrationDefects, MissingRootAttributes) {
  const std::string text = Replace(Replace(Small().WriteString(), R"( sensor_id="7.1.12.3")", ""),
                                   R"( created="2024-05-17T09:30:00Z")", "");
  SensorCalibration calibration;
  const auto result = Read(calibration, text);
  EXPECT_EQ(Events(result), With(1, {{kError, kMissingAttribute, "sensor_id"},
                                     {kError, kMissingAttribute, "created"}}));
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
  EXPECT_EQ(calibration.created, common::time::TimePoint());
}

TEST(SensorCalibrationDefects, NotADateTimeIsTimeZeroWithoutEvent) {
  const std::string text =
      Replace(Small().WriteString(), "2024-06-01T12:00:05Z", "not-a-date-time");
  SensorCalibration calibration;
  EXPECT_EQ(Events(Read(calibration, text)), kSoundRead);
  EXPECT_EQ(calibration.modified, common::time::TimePoint());

  const std::string garbled = Replace(Small().WriteString(), "2024-06-01T12:00:05Z", "June");
  EXPECT_EQ(Events(Read(calibration, garbled)), With(1, {{kError, 20, "modified"}}));
}

TEST(SensorCalibrationDefects, ZoneOfAnotherOrUnknownLayout) {
  // The stored layout decides the class that reads the zone, so another known layout reads the
  // same element silently as that layout.
  SensorCalibration calibration;
  const auto tiled =
      Read(calibration, Replace(Small().WriteString(), R"(layout="MOSAIC")", R"(layout="TILED")"));
  EXPECT_EQ(Events(tiled), kSoundRead);
  EXPECT_EQ(calibration.filter_info.filter_zones[0].filter_layout(), FilterZone::TILED);

  // An unknown layout becomes an empty zone without a filter: nothing of it is read or checked.
  const auto unknown = Read(
      calibration, Replace(Small().WriteString(), R"(layout="MOSAIC")", R"(layout="HEXAGONAL")"));
  EventList expected = kSoundRead;
  expected.erase(expected.begin() + 5, expected.begin() + 10);
  EXPECT_EQ(Events(unknown), expected);
  const FilterZone& zone = calibration.filter_info.filter_zones[0];
  EXPECT_EQ(zone.filter_layout(), FilterZone::NO_FILTER);
  EXPECT_TRUE(zone.bands.empty());
  EXPECT_EQ(calibration.GetTypeName(), "VKR9-unknown");
}

TEST(SensorCalibrationDefects, BandWithoutIndexAndPeakOfOrderZero) {
  std::string text =
      Replace(Small().WriteString(), R"(<band version="4" index="1")", R"(<band version="4")");
  text = Replace(text, R"(<peak version="2" order="1")", R"(<peak version="2" order="0")");
  SensorCalibration calibration;
  const auto result = Read(calibration, text);
  // The peak's check runs in the filter block's own checks and again at the end.
  EventList expected = With(9, {{kError, kMissingAttribute, "index"}});
  expected.insert(expected.begin() + 11, {kError, kSanityCheck, "0 < order"});
  expected.push_back({kError, kSanityCheck, "0 < order"});
  EXPECT_EQ(Events(result), expected);
}

TEST(SensorCalibrationDefects, ZoneLeftOfAnEarlierOne) {
  SensorCalibration calibration = Small();
  calibration.sensor_info.width_px = 128;
  FilterZone second = calibration.filter_info.filter_zones[0];
  calibration.filter_info.filter_zones[0].filter_area.offset_x = 64.0;
  second.index = 1;
  calibration.filter_info.filter_zones.push_back(second);
  SensorCalibration copy;
  const auto result = Read(copy, calibration.WriteString());
  const char* rule =
      "(prev_filter_zone.filter_area.offset_y + prev_filter_zone.filter_area.height <= "
      "filter_zone.filter_area.offset_y) || (prev_filter_zone.filter_area.offset_x + "
      "prev_filter_zone.filter_area.width <= filter_zone.filter_area.offset_x)";
  EventList expected = kSoundRead;
  const EventList zone = {{kOk, kReadStart, "filter_zone"}, {kOk, kReadStart, "filter_area"},
                          {kOk, kReadStart, "band"},        {kOk, kReadStart, "peak"},
                          {kOk, kReadStart, "band"},        {kOk, kReadStart, "peak"}};
  expected.insert(expected.begin() + 10, zone.begin(), zone.end());
  expected.insert(expected.begin() + 16, {kError, kSanityCheck, rule});
  expected.push_back({kError, kSanityCheck, rule});
  EXPECT_EQ(Events(result), expected);
}

TEST(SensorCalibrationDefects, UnmeasuredAndMisfitResponsesAreWarnings) {
  SensorCalibration calibration = Small();
  calibration.filter_info.filter_zones[0].bands[0].response.clear();
  calibration.filter_info.filter_zones[0].bands[1].response.push_back(0.0);
  SensorCalibration copy;
  const auto result = Read(copy, calibration.WriteString());
  EventList expected = kSoundRead;
  expected.push_back({kWarning, kSanityCheck, "0 < band.response.size ()"});
  expected.push_back({kWarning, kSanityCheck,
                      "band.response.size () == "
                      "filter_info.calibration_info.sample_points_nm.size ()"});
  expected.push_back({kWarning, kSanityCheck,
                      "band.response.size () == "
                      "filter_info.calibration_info.sample_points_nm.size ()"});
  EXPECT_EQ(Events(result), expected);
  EXPECT_EQ(result.state(), kWarning);
}

TEST(SensorCalibrationDefects, SensorDefectIsReportedTwice) {
  const std::string text =
      Replace(Small().WriteString(), "<height_px>32</height_px>", "<height_px>0</height_px>");
  SensorCalibration calibration;
  const auto result = Read(calibration, text);
  EventList expected = With(2, {{kError, kSanityCheck, "0 < height_px"}});
  expected.push_back({kError, kSanityCheck, "0 < height_px"});
  expected.push_back({kError, kSanityCheck,
                      "sensor_info.height_px >= filter_zone.filter_area.offset_y + "
                      "filter_zone.filter_area.height"});
  EXPECT_EQ(Events(result), expected);
}

TEST(SensorCalibrationDefects, MissingBlocks) {
  SensorCalibration calibration;
  const auto result =
      Read(calibration, R"(<anything version="3" sensor_id="1" created="not-a-date-time"
      modified="not-a-date-time" software="x" software_version="1"/>)");
  EXPECT_EQ(Events(result),
            (EventList{{kOk, kReadStart, "anything"},
                       {kError, kMissingElement, "sensor_info"},
                       {kError, kMissingElement, "filter_info"},
                       {kError, kMissingElement, "system_info"},
                       {kError, kSanityCheck, "SensorTypes::eType::Unknown != sensor_type"},
                       {kError, kSanityCheck, "0 < height_px"},
                       {kError, kSanityCheck, "0 < width_px"},
                       {kError, kSanityCheck, "0.0 < pixel_pitch_um"},
                       {kError, kSanityCheck, "0 < bit_depth"},
                       {kWarning, kSanityCheck, "!sample_points_nm.empty ()"},
                       {kError, kSanityCheck, "!filter_zones.empty ()"}}));
}

TEST(SensorCalibrationVersions, NewerIsReadAsCurrentOlderWaitForTheirReaders) {
  const std::string text = Small().WriteString();
  SensorCalibration calibration;
  EXPECT_EQ(Events(Read(calibration,
                        Replace(text, R"(version="3" sensor_id)", R"(version="4" sensor_id)"))),
            kSoundRead);
  EXPECT_TRUE(calibration == Small());

  SensorCalibration old = Small();
  const auto result = Read(old, R"(<sensor_calibration version="2"/>)");
  ASSERT_GE(result.events().size(), 2u);
  EXPECT_EQ(Events(result)[1],
            testing::EventTriple(kError, kUnsupportedVersion, "sensor_calibration"));
  EXPECT_TRUE(old == Small());
  const auto unversioned = Read(old, R"(<sensor_calibration/>)");
  EXPECT_EQ(Events(unversioned)[1],
            testing::EventTriple(kWarning, kMissingVersion, "sensor_calibration"));
}

TEST(SensorCalibrationChecks, DefaultCalibrationFailsInSensorAndFilter) {
  SensorCalibration calibration;
  ParsingResult result;
  calibration.RunSanityChecks(result);
  EXPECT_EQ(Events(result),
            (EventList{{kError, kSanityCheck, "SensorTypes::eType::Unknown != sensor_type"},
                       {kError, kSanityCheck, "0 < height_px"},
                       {kError, kSanityCheck, "0 < width_px"},
                       {kError, kSanityCheck, "0.0 < pixel_pitch_um"},
                       {kError, kSanityCheck, "0 < bit_depth"},
                       {kWarning, kSanityCheck, "!sample_points_nm.empty ()"},
                       {kError, kSanityCheck, "!filter_zones.empty ()"}}));
}

TEST(SensorCalibrationCopies, AreDeepAndEqualityCountsEveryField) {
  const SensorCalibration original = Small();
  SensorCalibration copy(original);
  copy.filter_info.filter_zones[0].bands[0].peaks[0].fit_error = 0.5;
  EXPECT_EQ(original.filter_info.filter_zones[0].bands[0].peaks[0].fit_error, 0.0);
  EXPECT_FALSE(copy == original);

  copy = original;
  copy = copy;
  EXPECT_TRUE(copy == original);
  copy.software_version = "1.2.4";
  EXPECT_FALSE(copy == original);
  copy = original;
  copy.modified += std::chrono::microseconds(1);
  EXPECT_FALSE(copy == original);
  copy = original;
  copy.system_info.optical_components.emplace_back();
  EXPECT_FALSE(copy == original);
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

}  // namespace
}  // namespace kelto::hyperspectral

namespace kelto::hyperspectral {
namespace {

std::vector<std::string> SampleFiles() {
  std::vector<std::string> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(KELTO_TEST_DATA_DIR) + "/calibrations")) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(SensorCalibrationSamples, EveryBundledSampleIsSoundAndRoundTrips) {
  const std::vector<std::string> files = SampleFiles();
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

TEST(SensorCalibrationSamples, CountsClaimedByTheFileAllocateNothingBeyondItsText) {
  const std::string sound = Small().WriteString();
  for (const char* count : {"18446744073709551615", "99999999999", "-3", "3e9"}) {
    const std::string text = Replace(sound, R"(<response nr_elements="3")",
                                     std::string("<response nr_elements=\"") + count + "\"");
    SensorCalibration calibration;
    const auto result = Read(calibration, text);
    EXPECT_EQ(Events(result), With(8, {{kError, 13, "response"}})) << count;
    EXPECT_LE(calibration.filter_info.filter_zones[0].bands[0].response.capacity(), 4u) << count;
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

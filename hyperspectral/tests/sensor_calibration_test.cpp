#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <kelto/common/version.h>

#include <gtest/gtest.h>

#include <algorithm>

#include <kelto/test_support/calibration_fixtures.h>
#include <kelto/test_support/event_list.h>

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
  calibration.sensor_info = Vkr9Sensor();
  calibration.sensor_info.width_px = 64;
  calibration.sensor_info.height_px = 32;
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

TEST(SensorCalibrationVersions, NewerIsReadAsCurrentNegativeIsRefused) {
  SensorCalibration calibration;
  EXPECT_EQ(ReadEdited(calibration, R"(version="3" sensor_id)", R"(version="4" sensor_id)"),
            kSoundRead);
  EXPECT_TRUE(calibration == Small());

  const EventList refused = Events(Read(calibration, R"(<sensor_calibration version="-2"/>)"));
  ASSERT_GE(refused.size(), 2u);
  EXPECT_EQ(refused[1], Error(kUnsupportedVersion, "sensor_calibration"));
  EXPECT_TRUE(calibration == Small());
}

// ----- older roots

// A version 1 or 2 root around the blocks of Small(), with the given stamp and grid.
std::string Stamped(const std::string& version, const std::string& timestamp,
                    const std::string& grid) {
  std::string text = Small().WriteString();
  text = Replace(
      text,
      R"(<sensor_calibration version="3" sensor_id="7.1.12.3" )"
      R"(created="2024-05-17T09:30:00Z" modified="2024-06-01T12:00:05Z" )"
      R"(software="kelto-sim" software_version="1.2.3">)",
      "<sensor_calibration version=\"" + version + "\" sensor_id=\"7.1.12.3\"" + timestamp + ">");
  const std::size_t start = text.find("<calibration_info");
  const std::size_t end = text.find("</calibration_info>") + 19;
  return text.replace(start, end - start, grid);
}

const std::string kGrid =
    R"(<calibration_info version="4"><sample_points_nm nr_elements="3" values="500 501 502"/>
    </calibration_info>)";

TEST(SensorCalibrationLegacy, StampedRootsTakeTheFirstFifteenCharactersOfTheStamp) {
  for (const char* version : {"1", "2"}) {
    SensorCalibration calibration;
    const auto result =
        Read(calibration, Stamped(version, R"( timestamp="20240517T093000.999999")", kGrid));
    EXPECT_EQ(NotOk(result), EventList{}) << version;
    EXPECT_EQ(calibration.sensor_id, "7.1.12.3");
    EXPECT_EQ(calibration.created, common::time::UniversalTimeFromString("2024-05-17T09:30:00Z"));
    EXPECT_EQ(calibration.modified, calibration.created);
    // Not in these files: the software keeps what the record held.
    EXPECT_EQ(calibration.software, "kelto");
    // A grid of version 4 says nothing about the gains.
    EXPECT_EQ(calibration.sensor_info, Small().sensor_info) << version;
    EXPECT_EQ(calibration.filter_info, Small().filter_info) << version;
  }

  SensorCalibration calibration;
  EXPECT_EQ(NotOk(Read(calibration, Stamped("2", "", kGrid))),
            (EventList{Error(kMissingAttribute, "timestamp")}));
  EXPECT_EQ(calibration.created, common::time::TimePoint());
  EXPECT_EQ(NotOk(Read(calibration, Stamped("2", R"( timestamp="not-a-date-time")", kGrid))),
            EventList{});
  EXPECT_EQ(calibration.modified, common::time::TimePoint());
  // The extended form is cut in its minutes and can't be read.
  EXPECT_EQ(NotOk(Read(calibration, Stamped("2", R"( timestamp="2024-05-17T09:30:00Z")", kGrid))),
            (EventList{Error(kMissingValue, "timestamp")}));
  EXPECT_EQ(calibration.created, common::time::TimePoint());
  EXPECT_EQ(
      NotOk(Read(calibration, Replace(Stamped("1", "", kGrid), R"( sensor_id="7.1.12.3")", ""))),
      (EventList{Error(kMissingAttribute, "sensor_id"), Error(kMissingAttribute, "timestamp")}));
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
}

TEST(SensorCalibrationLegacy, VersionOneTakesTheGainsFromTheGrid) {
  const std::string range =
      "<wavelength_range_start_nm>500</wavelength_range_start_nm><wavelength_range_end_nm>502"
      "</wavelength_range_end_nm><wavelength_resolution_nm>1</wavelength_resolution_nm>";
  const std::string gains =
      "<bit_depth>12</bit_depth><analog_gain>2</analog_gain>"
      "<digital_gain>4</digital_gain><measured_overall_gain>2.5"
      "</measured_overall_gain>";
  const std::string stamp = R"( timestamp="20240517T093000")";
  SensorCalibration calibration;
  // Versions 0 and 1 of the grid stand for the fixed figures of the chip family.
  EXPECT_EQ(NotOk(Read(calibration, Stamped("1", stamp,
                                            R"(<calibration_info version="1">)" + range +
                                                "</calibration_info>"))),
            EventList{});
  EXPECT_EQ(calibration.sensor_info.bit_depth, 10);
  EXPECT_EQ(calibration.sensor_info.overall_gain, 0.24272592592592593);
  EXPECT_EQ(calibration.sensor_info.analog_gain, 3.2);
  EXPECT_EQ(calibration.sensor_info.full_well_capacity_e, 13500);

  // Versions 2 and 3 measured them; 2.5 of 4096 / 13500 * 8 is within the tolerance.
  EXPECT_EQ(NotOk(Read(calibration, Stamped("1", stamp,
                                            R"(<calibration_info version="2">)" + range + gains +
                                                "</calibration_info>"))),
            EventList{});
  EXPECT_EQ(calibration.sensor_info.bit_depth, 12);
  EXPECT_EQ(calibration.sensor_info.analog_gain, 2.0);
  EXPECT_EQ(calibration.sensor_info.digital_gain, 4.0);
  EXPECT_EQ(calibration.sensor_info.overall_gain, 2.5);

  // A missing gain is an error here, and again where the grid reads it, and becomes 0.
  const auto result =
      Read(calibration,
           Stamped("1", stamp,
                   R"(<calibration_info version="3"><sample_points_nm )"
                   R"(nr_elements="3" values="500 501 502"/>)" +
                       Replace(gains, "<analog_gain>2</analog_gain>", "") + "</calibration_info>"));
  EXPECT_EQ(NotOk(result),
            (EventList{Error(kMissingElement, "analog_gain"), Error(kMissingElement, "analog_gain"),
                       Check("analog_gain > 0"),
                       Check("((0.9 * computed_overall_gain < overall_gain) && "
                             "(1.1 * computed_overall_gain > overall_gain))")}));
  EXPECT_EQ(calibration.sensor_info.analog_gain, 0.0);

  // Version 2 of the root no longer looks there.
  EXPECT_EQ(NotOk(Read(calibration, Stamped("2", stamp,
                                            R"(<calibration_info version="2">)" + range + gains +
                                                "</calibration_info>"))),
            EventList{});
  EXPECT_EQ(calibration.sensor_info, Small().sensor_info);

  // Without the grid the gains are reported missing as well as the grid itself; the empty grid
  // is checked by the filter block and by the calibration.
  SensorCalibration fresh;
  EXPECT_EQ(
      NotOk(Read(fresh, Stamped("1", stamp, ""))),
      (EventList{
          Error(kMissingElement, "calibration_info"), Error(kMissingElement, "calibration_info"),
          CheckWarning("!sample_points_nm.empty ()"), CheckWarning("!sample_points_nm.empty ()"),
          CheckWarning("band.response.size () == "
                       "filter_info.calibration_info.sample_points_nm.size ()"),
          CheckWarning("band.response.size () == "
                       "filter_info.calibration_info.sample_points_nm.size ()")}));
}

// An unversioned root around one wedge "filter" of two bands on a chip of 1088 rows.
std::string Unversioned(const std::string& root_attributes, const std::string& sensor_type) {
  return "<sensor_calibration" + root_attributes + "><sensor>" + sensor_type +
         "<width>2048</width><height>1088</height><pixelPitch>5.5</pixelPitch></sensor>"
         "<filter><active_area><offset_x>0</offset_x><offset_y>10</offset_y><width>2048</width>"
         "<height>100</height></active_area><start_spectral_range>600</start_spectral_range>"
         "<end_spectral_range>1000</end_spectral_range><wavelength><band number=\"0\">600"
         "</band><band number=\"1\">900</band></wavelength><fwhm><band number=\"0\">10</band>"
         "<band number=\"1\">10</band></fwhm><lines_per_band>50</lines_per_band>"
         "<first_band_offset>10</first_band_offset><calibration_data><start_calibration_range>"
         "600</start_calibration_range><end_calibration_range>1000</end_calibration_range>"
         "<calibration_resolution>400</calibration_resolution><filter_responses>1024, 0, 0, 512"
         "</filter_responses></calibration_data></filter></sensor_calibration>";
}

TEST(SensorCalibrationLegacy, UnversionedRootTypeFromTheSensorAndTheLayouts) {
  // Without the root's type the sensor's counts, with a warning. Identity and creation, which
  // these files lack, are reset; the rest of the record is kept.
  SensorCalibration calibration = Small();
  EXPECT_EQ(
      NotOk(Read(calibration, Unversioned("", "<type>0</type>"))),
      (EventList{Warning(kMissingVersion, "sensor_calibration"), Warning(kMissingAttribute, "type"),
                 Check("The .xml file is not of type SensorInfo"),
                 Warning(kMissingVersion, "sensor"), Check("!filter_zones.empty ()"),
                 Warning(kMissingVersion, "filter")}));
  EXPECT_EQ(calibration.filter_info.filter_zones.at(0).filter_layout(), FilterZone::WEDGE);
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
  EXPECT_EQ(calibration.created, common::time::TimePoint());
  EXPECT_EQ(calibration.software, "kelto-sim");

  // Type 2, and the sensor's default 4, are no filter: the zone's content is ignored, and the
  // empty zone is turned to the bottom of the chip.
  for (const std::string& text : {Unversioned(R"( type="2")", ""), Unversioned("", "")}) {
    Read(calibration, text);
    const FilterZone& zone = calibration.filter_info.filter_zones.at(0);
    EXPECT_EQ(zone.filter_layout(), FilterZone::NO_FILTER);
    EXPECT_TRUE(zone.bands.empty());
    EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 1088.0, 0.0, 0.0));
  }
  EXPECT_EQ(NotOk(Read(calibration, Unversioned("", ""))).at(2), Error(kMissingValue, "type"));

  // Without sensor and filter: both reported, an empty zone at the top of a chip of no size.
  SensorCalibration fresh;
  const auto result = Read(fresh, "<sensor_calibration/>");
  EXPECT_EQ(
      NotOk(result),
      (EventList{Warning(kMissingVersion, "sensor_calibration"), Warning(kMissingAttribute, "type"),
                 Error(kMissingElement, "sensor"), Error(kMissingValue, "type"),
                 Error(kMissingElement, "sensor"), Error(kMissingElement, "filter"),
                 Check("SensorTypes::eType::Unknown != sensor_type"), Check("0 < height_px"),
                 Check("0 < width_px"), Check("0.0 < pixel_pitch_um"), Check("0 < bit_depth"),
                 CheckWarning("!sample_points_nm.empty ()")}));
  ASSERT_EQ(fresh.filter_info.filter_zones.size(), 1u);
  EXPECT_EQ(fresh.filter_info.filter_zones[0].filter_area, common::RegionOfInterest());
}

TEST(SensorCalibrationLegacy, VersionZeroMovesFilterAndMatrixIntoTheSystem) {
  const std::string zone =
      R"(<filter_area><offset_x>0</offset_x><offset_y>0</offset_y><width>64</width>
      <height>32</height></filter_area><pattern_width>2</pattern_width>
      <pattern_height>1</pattern_height><filter_width>1</filter_width>
      <filter_height>1</filter_height><spectral_range_start_nm>500</spectral_range_start_nm>
      <spectral_range_end_nm>502</spectral_range_end_nm><bands/>)";
  const std::string head = R"(<sensor_calibration version="0"><sensor_info version="0">
      <width>64</width><height>32</height><pixel_pitch>5.5</pixel_pitch></sensor_info>
      <filter_info version="1" layout="MOSAIC">)" +
                           zone + kGrid;
  SensorCalibration calibration = Small();
  auto result = Read(calibration, head + R"(<spectral_correction_info version="1">
      <fwhm_virtual_filters_nm>5</fwhm_virtual_filters_nm><virtual_bands/>
      </spectral_correction_info></filter_info></sensor_calibration>)");
  // A filter without a rejection filter is the rule: an event that reports nothing wrong. A
  // matrix without bands is left out.
  EXPECT_EQ(NotOk(result),
            (EventList{Check("bands.size () == pattern_width*pattern_height"),
                       Check("filter_zone.bands.size () == "
                             "filter_zone.pattern_height*filter_zone.pattern_width")}));
  EventList all = Events(result);
  EXPECT_NE(std::find(all.begin(), all.end(), Ok(kMissingElement, "rejection_filter")), all.end());
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
  EXPECT_EQ(calibration.modified, common::time::TimePoint());
  EXPECT_EQ(calibration.filter_info.filter_zones.at(0).filter_layout(), FilterZone::MOSAIC);
  EXPECT_TRUE(calibration.system_info.spectral_correction_info.correction_matrices.empty());

  // A rejection filter without a curve is left out too; without the matrix's element, an error.
  result = Read(calibration, head + R"(<rejection_filter version="0">
      <wavelength_start_nm>500</wavelength_start_nm><wavelength_end_nm>502</wavelength_end_nm>
      <wavelength_resolution_nm>1</wavelength_resolution_nm><type>custom</type>
      </rejection_filter></filter_info></sensor_calibration>)");
  EXPECT_EQ(NotOk(result).at(0), Error(kMissingElement, "spectral_correction_info"));
  EXPECT_TRUE(calibration.system_info.optical_components.empty());

  // Without a filter block nothing more is read.
  result = Read(calibration, R"(<sensor_calibration version="0"/>)");
  EXPECT_EQ(NotOk(result).at(0), Error(kMissingElement, "sensor_info"));
  EXPECT_EQ(NotOk(result).at(1), Error(kMissingElement, "filter_info"));
  EXPECT_TRUE(calibration.filter_info.filter_zones.empty());
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
}

}  // namespace
}  // namespace kelto::hyperspectral

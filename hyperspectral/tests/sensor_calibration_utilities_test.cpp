#include <kelto/hyperspectral/management/sensor_calibration_utilities.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using common::FilterPattern;
using common::SensorTypes;
using Utilities = SensorCalibrationUtilities;

// The exception's text when `call` throws E, and a failure when it throws nothing or another
// type.
template <typename E, typename Call>
std::string ThrownText(Call call) {
  try {
    call();
  } catch (const E& error) {
    return error.what();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "another exception: " << error.what();
    return {};
  }
  ADD_FAILURE() << "nothing thrown";
  return {};
}

std::string ParseError(const std::string& name) {
  return ThrownText<std::invalid_argument>(
      [&] { Utilities::ParseSensorCalibrationFilename(name); });
}

// The parts in one line: sensor, pattern, range, version and suffix.
std::string Describe(const SensorCalibrationParts& parts) {
  std::string text = SensorTypes::ToString(parts.sensor_type) + " " +
                     FilterPattern::ToString(parts.filter_pattern) + " " +
                     std::to_string(parts.spectral_range_start_nm) + "_" +
                     std::to_string(parts.spectral_range_end_nm) + " ";
  for (std::size_t i = 0; i < parts.version.size(); ++i) {
    text += (i == 0 ? "" : ".") + std::to_string(parts.version[i]);
  }
  return text + " " + parts.suffix;
}

TEST(SensorCalibrationFilenameParsing, EveryPartOfAName) {
  // Unset parts: the version is -1 throughout.
  EXPECT_EQ(Describe(SensorCalibrationParts()), "Unknown Unknown 0_0 -1.-1.-1.-1 ");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"VKR9-MZT4x4-470_620-1.2.3.4", "VKR9 MZT4x4 470_620 1.2.3.4 "},
      {"TEM480-MZT3x3-RGB-NIR-31.0.7.12", "TEM480 MZT3x3 470_850 31.0.7.12 "},
      // Whatever follows the version is kept whole, separators and dots included.
      {"VKR9-QL150-470_900-1.0.0.0_test", "VKR9 QL150 470_900 1.0.0.0 _test"},
      {"VKR9-QL150-470_900-1.0.0.05.copy", "VKR9 QL150 470_900 1.0.0.5 .copy"},
      // Leading zeros and the largest 32-bit numbers.
      {"GENERIC-TZT32-0600_2147483647-0.0.2147483647.9",
       "GENERIC TZT32 600_2147483647 0.0.2147483647.9 "}};
  for (const auto& [name, parts] : cases) {
    EXPECT_EQ(Describe(Utilities::ParseSensorCalibrationFilename(name)), parts);
  }
}

TEST(SensorCalibrationFilenameParsing, RefusedNamesSayWhy) {
  for (const std::string name :
       {"", "VKR9-MZT4x4-470_620", "VKR9-MZT4x4-470_620-1.2.3", "VKR9-MZT4x4-470-1.2.3.4",
        "VKR9-MZT4x4-470_620-1.2.3.x", "VKR9_MZT4x4_470_620_1.2.3.4", "VKR9-MZT4x4--1.2.3.4",
        "-MZT4x4-470_620-1.2.3.4", "VKR9-MZT4x4-RGB_NIR-1.2.3.4"}) {
    EXPECT_EQ(ParseError(name), "Invalid sensor calibration filename: " + name);
  }
  EXPECT_EQ(ParseError("vkr9-MZT4x4-470_620-1.2.3.4"), "Invalid sensor type: vkr9");
  EXPECT_EQ(ParseError("Unknown-MZT4x4-470_620-1.2.3.4"), "Invalid sensor type: Unknown");
  EXPECT_EQ(ParseError("VKR9-MZT6x6-470_620-1.2.3.4"), "Invalid filter type: MZT6x6");
  EXPECT_EQ(ParseError("VKR9-unknown-470_620-1.2.3.4"), "Invalid filter type: unknown");
  // The sensor part takes all it can: "VKR9-X" is one sensor part here, not a sensor and a
  // stray word before the filter.
  EXPECT_EQ(ParseError("VKR9-X-MZT4x4-470_620-1.2.3.4"), "Invalid sensor type: VKR9-X");
  // A filter part followed by a second range: the first range joins the sensor part.
  EXPECT_EQ(ParseError("VKR9-QL150-470_900-470_900-1.2.3.4"), "Invalid sensor type: VKR9-QL150");
}

TEST(SensorCalibrationFilenameParsing, NumbersBeyond32BitsEscapeFromStoi) {
  for (const std::string name :
       {"VKR9-MZT4x4-4700000000_620-1.2.3.4", "VKR9-MZT4x4-470_620-1.2.3.99999999999999999999"}) {
    EXPECT_EQ(
        ThrownText<std::out_of_range>([&] { Utilities::ParseSensorCalibrationFilename(name); }),
        "stoi")
        << name;
  }
}

TEST(SensorCalibrationFilenameParsing, OverlongNameIsRefusedWithoutExhaustingTheStack) {
  const std::string name =
      "VKR9-MZT4x4-470_620-1.2.3.4" + std::string(Utilities::kMaxFilenameLength, 'x');
  EXPECT_EQ(ParseError(name), "Invalid sensor calibration filename: " + name);
  // Up to the limit the name is matched.
  const std::string longest =
      "VKR9-MZT4x4-470_620-1.2.3.4" + std::string(Utilities::kMaxFilenameLength - 27, '-');
  EXPECT_EQ(Utilities::ParseSensorCalibrationFilename(longest).suffix.size(),
            Utilities::kMaxFilenameLength - 27);
}

// Each sample calibration is named after its type; its full name with the sensor_id reads back
// into the same type, range and identity.
TEST(SensorCalibrationFilename, MadeFromACalibrationAndReadBack) {
  int files = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(KELTO_TEST_DATA_DIR) + "/calibrations")) {
    SensorCalibration calibration;
    kelto::testing::ParsingResult result;
    calibration.ReadFile(result, entry.path().string());
    ASSERT_EQ(result.state(), kelto::testing::ParsingResult::Ok) << entry.path();
    const std::string name = Utilities::GetSensorCalibrationFilename(calibration);
    EXPECT_EQ(name, entry.path().stem().string() + "-" + calibration.sensor_id);

    const SensorCalibrationParts parts = Utilities::ParseSensorCalibrationFilename(name);
    EXPECT_EQ(parts.sensor_type, calibration.sensor_info.sensor_type) << name;
    const std::string type = calibration.filter_info.GetTypeName();
    EXPECT_EQ(FilterPattern::ToString(parts.filter_pattern), type.substr(0, type.find('-')));
    EXPECT_EQ(type.substr(type.find('-') + 1), std::to_string(parts.spectral_range_start_nm) + "_" +
                                                   std::to_string(parts.spectral_range_end_nm));
    std::string version;
    for (const int part : parts.version) {
      version += (version.empty() ? "" : ".") + std::to_string(part);
    }
    EXPECT_EQ(version, calibration.sensor_id);
    EXPECT_EQ(parts.suffix, "");
    ++files;
  }
  EXPECT_EQ(files, 5);
  // A calibration made in code has a name that can't be parsed back.
  const std::string unknown = Utilities::GetSensorCalibrationFilename(SensorCalibration());
  EXPECT_EQ(unknown, "Unknown-unknown-0.0.0.0");
  EXPECT_EQ(ParseError(unknown), "Invalid sensor calibration filename: Unknown-unknown-0.0.0.0");
}

// A calibration with one zone of the layout and square pattern, over 400 to 1000 nm.
SensorCalibration OneZone(FilterZone::eFilterLayout layout, unsigned long pattern) {
  SensorCalibration calibration;
  FilterZone zone(layout);
  zone.pattern_width = pattern;
  zone.pattern_height = pattern;
  zone.spectral_range_start_nm = 400.0;
  zone.spectral_range_end_nm = 1000.0;
  calibration.filter_info.filter_zones.push_back(zone);
  return calibration;
}

std::pair<double, double> RangeAfterUpdate(SensorCalibration calibration, const std::string& name) {
  Utilities::UpdateSensorCalibration(calibration, name);
  const FilterZone& zone = calibration.filter_info.filter_zones.front();
  return {zone.spectral_range_start_nm, zone.spectral_range_end_nm};
}

TEST(SensorCalibrationUpdate, FirstZoneTakesTheRangeOfTheNameAndTwoMosaicsTheirTrueRange) {
  using Range = std::pair<double, double>;
  SensorCalibration oblong = OneZone(FilterZone::MOSAIC, 4);
  oblong.filter_info.filter_zones.front().pattern_height = 5;
  const std::vector<std::tuple<SensorCalibration, std::string, Range>> cases = {
      {OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-470_620-1.2.3.4", {470.0, 620.0}},
      {OneZone(FilterZone::WEDGE, 0), "VKR9-QL100-600_1000-1.2.3.4", {600.0, 1000.0}},
      {OneZone(FilterZone::TILED, 4), "VKR9-TZT32-RGB-NIR-1.2.3.4", {470.0, 850.0}},
      {OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-600_850-1.2.3.4", {595.0, 860.0}},
      {OneZone(FilterZone::MOSAIC, 5), "VKR9-MZT5x5-670_950-1.2.3.4", {665.0, 975.0}},
      // Any other combination keeps the name's range: another pattern, another range, another
      // layout, a pattern that is not square.
      {OneZone(FilterZone::MOSAIC, 3), "VKR9-MZT4x4-600_850-1.2.3.4", {600.0, 850.0}},
      {OneZone(FilterZone::MOSAIC, 5), "VKR9-MZT5x5-600_850-1.2.3.4", {600.0, 850.0}},
      {OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-670_950-1.2.3.4", {670.0, 950.0}},
      {OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-600_851-1.2.3.4", {600.0, 851.0}},
      {OneZone(FilterZone::TILED, 4), "VKR9-MZT4x4-600_850-1.2.3.4", {600.0, 850.0}},
      {oblong, "VKR9-MZT4x4-600_850-1.2.3.4", {600.0, 850.0}}};
  for (const auto& [calibration, name, range] : cases) {
    EXPECT_EQ(RangeAfterUpdate(calibration, name), range) << name;
  }

  // Only the first zone changes.
  SensorCalibration two = OneZone(FilterZone::WEDGE, 0);
  two.filter_info.filter_zones.push_back(two.filter_info.filter_zones.front());
  Utilities::UpdateSensorCalibration(two, "VKR9-QL150-470_900-1.2.3.4");
  EXPECT_EQ(two.filter_info.filter_zones[0].spectral_range_start_nm, 470.0);
  EXPECT_EQ(two.filter_info.filter_zones[0].spectral_range_end_nm, 900.0);
  EXPECT_EQ(two.filter_info.filter_zones[1].spectral_range_start_nm, 400.0);
  EXPECT_EQ(two.filter_info.filter_zones[1].spectral_range_end_nm, 1000.0);

  // Without zones there is nothing to update, and nothing else changes.
  SensorCalibration empty;
  const SensorCalibration before = empty;
  Utilities::UpdateSensorCalibration(empty, "VKR9-MZT4x4-600_850-1.2.3.4");
  EXPECT_TRUE(empty == before);
}

TEST(SensorCalibrationUpdate, UnparsableNameLeavesTheCalibrationAlone) {
  const SensorCalibration original = OneZone(FilterZone::MOSAIC, 4);
  const auto update_error = [&](const std::string& name) {
    SensorCalibration calibration = original;
    const std::string text = ThrownText<std::invalid_argument>(
        [&] { Utilities::UpdateSensorCalibration(calibration, name); });
    EXPECT_TRUE(calibration == original) << name;
    return text;
  };
  EXPECT_EQ(update_error("calibration"),
            "Ill-formed sensor calibration file: Invalid sensor calibration filename: calibration");
  EXPECT_EQ(update_error("ABC-MZT4x4-600_850-1.2.3.4"),
            "Ill-formed sensor calibration file: Invalid sensor type: ABC");
  EXPECT_EQ(update_error("VKR9-XYZ-600_850-1.2.3.4"),
            "Ill-formed sensor calibration file: Invalid filter type: XYZ");
  // The range error of stoi becomes an invalid argument too.
  EXPECT_EQ(update_error("VKR9-MZT4x4-600_85000000000-1.2.3.4"),
            "Ill-formed sensor calibration file: stoi");
}

}  // namespace
}  // namespace kelto::hyperspectral

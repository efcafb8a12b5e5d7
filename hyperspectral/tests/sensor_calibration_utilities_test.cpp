#include <kelto/hyperspectral/management/sensor_calibration_utilities.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>

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

TEST(SensorCalibrationPartsDefaults, VersionIsUnsetAndTheRestEmpty) {
  const SensorCalibrationParts parts;
  EXPECT_EQ(parts.sensor_type, SensorTypes::Unknown);
  EXPECT_EQ(parts.filter_pattern, FilterPattern::Unknown);
  EXPECT_EQ(parts.spectral_range_start_nm, 0);
  EXPECT_EQ(parts.spectral_range_end_nm, 0);
  EXPECT_EQ(parts.version, (std::array<std::int32_t, 4>{-1, -1, -1, -1}));
  EXPECT_EQ(parts.suffix, "");
}

TEST(SensorCalibrationFilenameParsing, EveryPartOfAPlainName) {
  const SensorCalibrationParts parts =
      Utilities::ParseSensorCalibrationFilename("VKR9-MZT4x4-470_620-1.2.3.4");
  EXPECT_EQ(parts.sensor_type, SensorTypes::VKR9);
  EXPECT_EQ(parts.filter_pattern, FilterPattern::MZT4x4);
  EXPECT_EQ(parts.spectral_range_start_nm, 470);
  EXPECT_EQ(parts.spectral_range_end_nm, 620);
  EXPECT_EQ(parts.version, (std::array<std::int32_t, 4>{1, 2, 3, 4}));
  EXPECT_EQ(parts.suffix, "");
}

TEST(SensorCalibrationFilenameParsing, RgbNirRangeSuffixAndLongNumbers) {
  const SensorCalibrationParts rgb =
      Utilities::ParseSensorCalibrationFilename("TEM480-MZT3x3-RGB-NIR-31.0.7.12");
  EXPECT_EQ(rgb.sensor_type, SensorTypes::TEM480);
  EXPECT_EQ(rgb.filter_pattern, FilterPattern::MZT3x3);
  EXPECT_EQ(rgb.spectral_range_start_nm, 470);
  EXPECT_EQ(rgb.spectral_range_end_nm, 850);
  EXPECT_EQ(rgb.version, (std::array<std::int32_t, 4>{31, 0, 7, 12}));

  // Whatever follows the version is kept whole, separators and dots included.
  const SensorCalibrationParts test =
      Utilities::ParseSensorCalibrationFilename("VKR9-QL150-470_900-1.0.0.0_test");
  EXPECT_EQ(test.filter_pattern, FilterPattern::QL150);
  EXPECT_EQ(test.version, (std::array<std::int32_t, 4>{1, 0, 0, 0}));
  EXPECT_EQ(test.suffix, "_test");
  EXPECT_EQ(Utilities::ParseSensorCalibrationFilename("VKR9-QL150-470_900-1.0.0.05.copy").suffix,
            ".copy");

  // Leading zeros and the largest 32-bit numbers.
  const SensorCalibrationParts wide =
      Utilities::ParseSensorCalibrationFilename("GENERIC-TZT32-0600_2147483647-0.0.2147483647.9");
  EXPECT_EQ(wide.sensor_type, SensorTypes::GENERIC);
  EXPECT_EQ(wide.spectral_range_start_nm, 600);
  EXPECT_EQ(wide.spectral_range_end_nm, 2147483647);
  EXPECT_EQ(wide.version, (std::array<std::int32_t, 4>{0, 0, 2147483647, 9}));
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
}

TEST(SensorCalibrationFilenameParsing, GreedyMatchingGivesTheLastHyphensToTheRange) {
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
}

TEST(SensorCalibrationFilename, DefaultCalibrationHasAnUnparsableName) {
  const SensorCalibration calibration;
  EXPECT_EQ(Utilities::GetSensorCalibrationFilename(calibration), "Unknown-unknown-0.0.0.0");
  EXPECT_EQ(ParseError("Unknown-unknown-0.0.0.0"),
            "Invalid sensor calibration filename: Unknown-unknown-0.0.0.0");
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

TEST(SensorCalibrationUpdate, FirstZoneTakesTheRangeOfTheName) {
  using Range = std::pair<double, double>;
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-470_620-1.2.3.4"),
            Range(470.0, 620.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::WEDGE, 0), "VKR9-QL100-600_1000-1.2.3.4"),
            Range(600.0, 1000.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::TILED, 4), "VKR9-TZT32-RGB-NIR-1.2.3.4"),
            Range(470.0, 850.0));

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

TEST(SensorCalibrationUpdate, TwoMosaicsAreWidenedToTheirTrueRange) {
  using Range = std::pair<double, double>;
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-600_850-1.2.3.4"),
            Range(595.0, 860.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 5), "VKR9-MZT5x5-670_950-1.2.3.4"),
            Range(665.0, 975.0));
  // Any other combination keeps the name's range: another pattern, another range, another
  // layout, a pattern that is not square.
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 3), "VKR9-MZT4x4-600_850-1.2.3.4"),
            Range(600.0, 850.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 5), "VKR9-MZT5x5-600_850-1.2.3.4"),
            Range(600.0, 850.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-670_950-1.2.3.4"),
            Range(670.0, 950.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::MOSAIC, 4), "VKR9-MZT4x4-600_851-1.2.3.4"),
            Range(600.0, 851.0));
  EXPECT_EQ(RangeAfterUpdate(OneZone(FilterZone::TILED, 4), "VKR9-MZT4x4-600_850-1.2.3.4"),
            Range(600.0, 850.0));
  SensorCalibration oblong = OneZone(FilterZone::MOSAIC, 4);
  oblong.filter_info.filter_zones.front().pattern_height = 5;
  EXPECT_EQ(RangeAfterUpdate(oblong, "VKR9-MZT4x4-600_850-1.2.3.4"), Range(600.0, 850.0));
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

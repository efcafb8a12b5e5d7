#include <kelto/hyperspectral/calibration/sensor_info.h>

#include <gtest/gtest.h>

#include <cmath>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using common::SensorTypes;
using testing::EventList;
using testing::Events;
using testing::Read;
using GainModes = SensorInfo::TEM480_GainModes;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingAttribute = 14, kMissingValue = 20, kSanityCheck = 30, kReadStart = 40;

SensorInfo Vkr9() {
  SensorInfo sensor;
  sensor.sensor_type = SensorTypes::VKR9;
  sensor.width_px = 2048;
  sensor.height_px = 1088;
  sensor.pixel_pitch_um = 5.5;
  sensor.bit_depth = 10;
  sensor.analog_gain = 3.2;
  sensor.digital_gain = 1.0;
  sensor.full_well_capacity_e = 13500;
  sensor.overall_gain = 0.2427;
  return sensor;
}

const EventList kDefaultFailures = {
    {kError, kSanityCheck, "SensorTypes::eType::Unknown != sensor_type"},
    {kError, kSanityCheck, "0 < height_px"},
    {kError, kSanityCheck, "0 < width_px"},
    {kError, kSanityCheck, "0.0 < pixel_pitch_um"},
    {kError, kSanityCheck, "0 < bit_depth"},
};

EventList Concat(EventList head, const EventList& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

TEST(SensorInfoDispatch, NewerVersionIsRefusedAndDefaultsAreChecked) {
  SensorInfo sensor;
  const auto result = Read(sensor, R"(<sensor_info version="3" sensor_type="VKR9">
      <width_px>2048</width_px><height_px>1088</height_px></sensor_info>)");
  EXPECT_EQ(Events(result),
            Concat({{kOk, kReadStart, "sensor_info"}, {kError, kUnsupportedVersion, "sensor_info"}},
                   kDefaultFailures));
  EXPECT_TRUE(sensor == SensorInfo());
}

TEST(SensorInfoDispatch, NegativeVersionIsRefused) {
  SensorInfo sensor;
  const auto result = Read(sensor, R"(<sensor_info version="-2"/>)");
  EXPECT_EQ(Events(result),
            Concat({{kOk, kReadStart, "sensor_info"}, {kError, kUnsupportedVersion, "sensor_info"}},
                   kDefaultFailures));
}

TEST(SensorInfoDispatch, WrongTagIsReportedAndReadAllTheSame) {
  SensorInfo sensor;
  const auto result = Read(sensor, R"(<camera version="2" sensor_type="GENERIC">
      <width_px>640</width_px><height_px>512</height_px><pixel_pitch_um>15</pixel_pitch_um>
      <bit_depth>14</bit_depth><overall_gain>1.5</overall_gain></camera>)");
  EXPECT_EQ(Events(result),
            (EventList{{kOk, kReadStart, "camera"},
                       {kError, kSanityCheck, "The .xml file is not of type SensorInfo"}}));
  EXPECT_EQ(sensor.sensor_type, SensorTypes::GENERIC);
  EXPECT_EQ(sensor.width_px, 640);
  EXPECT_EQ(sensor.pixel_pitch_um, 15.0);
  EXPECT_EQ(sensor.overall_gain, 1.5);
}

TEST(SensorInfoCurrentForm, MissingPitchAndTypeAreEventsInFileOrder) {
  SensorInfo sensor;
  const auto result = Read(sensor, R"(<sensor_info version="2">
      <width_px>640</width_px><height_px>512</height_px>
      <bit_depth>12</bit_depth><overall_gain>0.1</overall_gain></sensor_info>)");
  EXPECT_EQ(Events(result),
            (EventList{{kOk, kReadStart, "sensor_info"},
                       {kError, kMissingAttribute, "sensor_type"},
                       {kError, kMissingElement, "pixel_pitch_um"},
                       {kError, kSanityCheck, "SensorTypes::eType::Unknown != sensor_type"},
                       {kError, kSanityCheck, "0.0 < pixel_pitch_um"}}));
  EXPECT_EQ(sensor.width_px, 640);
  EXPECT_EQ(sensor.bit_depth, 12);
}

TEST(SensorInfoCurrentForm, UnconvertibleValueFallsBackAndIsReported) {
  SensorInfo sensor = Vkr9();
  const auto result = Read(sensor, R"(<sensor_info version="2" sensor_type="VKR9">
      <width_px>wide</width_px><height_px>1088</height_px><pixel_pitch_um>5.5</pixel_pitch_um>
      <bit_depth>10</bit_depth><overall_gain>0.2427</overall_gain><analog_gain>3.2</analog_gain>
      <digital_gain>1</digital_gain><full_well_capacity_e>13500</full_well_capacity_e>
      </sensor_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "sensor_info"},
                                       {kError, kMissingElement, "width_px"},
                                       {kError, kSanityCheck, "0 < width_px"}}));
  EXPECT_EQ(sensor.width_px, 0);
}

TEST(SensorInfoCurrentForm, OtherFamilysElementsAreNeitherReadNorWritten) {
  SensorInfo sensor;
  sensor.analog_gain = 7.0;
  sensor.gain_mode = "kept";
  const auto result = Read(sensor, R"(<sensor_info version="2" sensor_type="GENERIC">
      <width_px>640</width_px><height_px>512</height_px><pixel_pitch_um>15</pixel_pitch_um>
      <bit_depth>14</bit_depth><overall_gain>1.5</overall_gain><analog_gain>1</analog_gain>
      <gain_mode>high</gain_mode></sensor_info>)");
  EXPECT_EQ(result.state(), 0);
  EXPECT_EQ(sensor.analog_gain, 7.0);
  EXPECT_EQ(sensor.gain_mode, "kept");

  const std::string written = sensor.WriteString();
  EXPECT_EQ(written.find("analog_gain"), std::string::npos);
  EXPECT_EQ(written.find("gain_mode"), std::string::npos);
}

TEST(SensorInfoCurrentForm, TemFamilyNeedsItsGainMode) {
  SensorInfo sensor;
  const auto result = Read(sensor, R"(<sensor_info version="2" sensor_type="TEM480">
      <width_px>640</width_px><height_px>512</height_px><pixel_pitch_um>15</pixel_pitch_um>
      <bit_depth>14</bit_depth><overall_gain>1.5</overall_gain></sensor_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "sensor_info"},
                                       {kError, kMissingElement, "gain_mode"},
                                       {kError, kSanityCheck, "!gain_mode.empty()"}}));
}

TEST(SensorInfoChecks, OverallGainMustAgreeWithTheChipFigures) {
  SensorInfo sensor = Vkr9();
  const double computed = std::pow(2.0, 10) / 13500 * 3.2 * 1.0;
  EXPECT_NEAR(computed, 0.242726, 1e-6);

  common::XMLSerializableInterface::ParsingResult passes;
  sensor.RunSanityChecks(passes);
  EXPECT_TRUE(passes.events().empty());

  const std::string rule =
      "((0.9 * computed_overall_gain < overall_gain) && (1.1 * computed_overall_gain > "
      "overall_gain))";
  for (double gain : {1.1 * computed, 0.9 * computed, 0.5}) {
    sensor.overall_gain = gain;
    common::XMLSerializableInterface::ParsingResult result;
    sensor.RunSanityChecks(result);
    EXPECT_EQ(Events(result), (EventList{{kError, kSanityCheck, rule}})) << gain;
  }
}

TEST(SensorInfoChecks, EveryFailedConditionOfTheChipIsReported) {
  SensorInfo sensor = Vkr9();
  sensor.analog_gain = 0.0;
  sensor.digital_gain = -1.0;
  sensor.full_well_capacity_e = 0;
  sensor.overall_gain = 0.0;
  common::XMLSerializableInterface::ParsingResult result;
  sensor.RunSanityChecks(result);
  const std::string rule =
      "((0.9 * computed_overall_gain < overall_gain) && (1.1 * computed_overall_gain > "
      "overall_gain))";
  EXPECT_EQ(Events(result), (EventList{{kError, kSanityCheck, "analog_gain > 0"},
                                       {kError, kSanityCheck, "digital_gain > 0"},
                                       {kError, kSanityCheck, "full_well_capacity_e > 0"},
                                       {kError, kSanityCheck, "overall_gain > 0.0"},
                                       {kError, kSanityCheck, rule}}));
}

TEST(SensorInfoChecks, AnyNonEmptyGainModePasses) {
  SensorInfo sensor;
  sensor.sensor_type = SensorTypes::TEM480;
  sensor.width_px = 640;
  sensor.height_px = 512;
  sensor.pixel_pitch_um = 15.0;
  sensor.bit_depth = 14;
  sensor.gain_mode = "turbo";
  common::XMLSerializableInterface::ParsingResult result;
  sensor.RunSanityChecks(result);
  EXPECT_TRUE(result.events().empty());
  EXPECT_EQ(GainModes::FromString(sensor.gain_mode), GainModes::GM_UNKNOWN);
}

TEST(SensorInfoLegacy, UnversionedBlockWarnsAndTakesTheFamilyFigures) {
  SensorInfo sensor;
  const auto result =
      Read(sensor, "<sensor_info><width>1024</width><height>256</height></sensor_info>");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "sensor_info"},
                                       {kWarning, kMissingVersion, "sensor_info"},
                                       {kWarning, kMissingValue, "pixelPitch"}}));
  EXPECT_EQ(sensor.pixel_pitch_um, 5.5);
  EXPECT_EQ(sensor.sensor_type, SensorTypes::VKR9);
  EXPECT_EQ(sensor.bit_depth, 10);
  EXPECT_EQ(sensor.full_well_capacity_e, 13500);
  EXPECT_EQ(sensor.overall_gain, 0.2427);
  EXPECT_EQ(sensor.analog_gain, 3.2);
  EXPECT_EQ(sensor.digital_gain, 1.0);
}

TEST(SensorInfoLegacy, ZeroPitchWarnsOnceAndMissingSizesAreErrors) {
  SensorInfo sensor;
  const auto result =
      Read(sensor, R"(<sensor_info version="0"><pixel_pitch>0</pixel_pitch></sensor_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "sensor_info"},
                                       {kError, kMissingValue, "width"},
                                       {kError, kMissingValue, "height"},
                                       {kWarning, kMissingValue, "pixel_pitch"},
                                       {kError, kSanityCheck, "0 < height_px"},
                                       {kError, kSanityCheck, "0 < width_px"}}));
  EXPECT_EQ(sensor.pixel_pitch_um, 5.5);
}

TEST(SensorInfoLegacy, VersionOneComputesTheGainFromTheCapacity) {
  SensorInfo sensor;
  auto result = Read(sensor, R"(<sensor_info version="1"><width>1024</width><height>256</height>
      <pixel_pitch>5.5</pixel_pitch><full_well_capacity_e>13500</full_well_capacity_e>
      </sensor_info>)");
  EXPECT_EQ(result.state(), 0);
  EXPECT_EQ(sensor.overall_gain, 1024.0 / 13500 * 3.2);

  result = Read(sensor, R"(<sensor_info version="1"><width>1024</width><height>256</height>
      <pixel_pitch>5.5</pixel_pitch></sensor_info>)");
  EXPECT_TRUE(std::isinf(sensor.overall_gain));
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "sensor_info"},
                                       {kError, kMissingElement, "full_well_capacity_e"},
                                       {kError, kSanityCheck, "full_well_capacity_e > 0"},
                                       {kError, kSanityCheck,
                                        "((0.9 * computed_overall_gain < overall_gain) && (1.1 * "
                                        "computed_overall_gain > overall_gain))"}}));
}

TEST(SensorInfoWriting, EveryFamilyRoundTripsExactly) {
  SensorInfo tem;
  tem.sensor_type = SensorTypes::TEM480;
  tem.width_px = 640;
  tem.height_px = 512;
  tem.pixel_pitch_um = 15.0;
  tem.bit_depth = 14;
  tem.overall_gain = 0.1;
  tem.gain_mode = "medium";
  SensorInfo generic = tem;
  generic.sensor_type = SensorTypes::GENERIC;
  generic.gain_mode.clear();

  for (const SensorInfo& original : {Vkr9(), tem, generic}) {
    SensorInfo copy;
    const auto result = Read(copy, original.WriteString());
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "sensor_info"}}));
    EXPECT_TRUE(copy == original) << original.WriteString();
  }
}

TEST(SensorInfoWriting, CurrentFormIsVersionTwoInTableOrder) {
  const std::string text = Vkr9().WriteString();
  EXPECT_NE(text.find(R"(<sensor_info version="2" sensor_type="VKR9">)"), std::string::npos)
      << text;
  std::size_t last = 0;
  for (const char* name : {"width_px", "height_px", "pixel_pitch_um", "bit_depth", "overall_gain",
                           "analog_gain", "digital_gain", "full_well_capacity_e"}) {
    const std::size_t at = text.find(std::string("<") + name + ">");
    ASSERT_NE(at, std::string::npos) << name;
    EXPECT_GT(at, last) << name;
    last = at;
  }
}

TEST(SensorInfoTypeName, NamesTheFamily) {
  SensorInfo sensor;
  EXPECT_EQ(sensor.GetTypeName(), "Unknown");
  sensor.sensor_type = SensorTypes::TEM480;
  EXPECT_EQ(sensor.GetTypeName(), "TEM480");
}

TEST(SensorInfoEquality, EveryFieldCounts) {
  const SensorInfo base = Vkr9();
  std::vector<SensorInfo> variants(10, base);
  variants[0].sensor_type = SensorTypes::GENERIC;
  variants[1].width_px += 1;
  variants[2].height_px += 1;
  variants[3].pixel_pitch_um += 0.5;
  variants[4].bit_depth += 1;
  variants[5].analog_gain += 0.1;
  variants[6].digital_gain += 0.1;
  variants[7].full_well_capacity_e += 1;
  variants[8].overall_gain += 0.001;
  variants[9].gain_mode = "low";
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == base) << i;
  }
  SensorInfo nan = base;
  nan.pixel_pitch_um = std::nan("");
  EXPECT_FALSE(nan == nan);
}

TEST(SensorInfoGainModes, TranslateBothWays) {
  const std::vector<std::pair<GainModes::eTEM480_GainModes, std::string>> table = {
      {GainModes::GM_UNKNOWN, "unknown"},
      {GainModes::GM_LOW, "low"},
      {GainModes::GM_MEDIUM, "medium"},
      {GainModes::GM_HIGH, "high"}};
  for (const auto& [mode, text] : table) {
    EXPECT_EQ(GainModes::ToString(mode), text);
    EXPECT_EQ(GainModes::FromString(text), mode);
  }
  EXPECT_EQ(GainModes::ToString(static_cast<GainModes::eTEM480_GainModes>(7)), "unknown");
  EXPECT_EQ(GainModes::FromString("High"), GainModes::GM_UNKNOWN);
  EXPECT_EQ(GainModes::FromString(""), GainModes::GM_UNKNOWN);
}

}  // namespace
}  // namespace kelto::hyperspectral

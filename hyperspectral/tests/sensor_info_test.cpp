#include <kelto/hyperspectral/calibration/sensor_info.h>

#include <gtest/gtest.h>

#include <cmath>

#include <kelto/test_support/calibration_fixtures.h>
#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using common::SensorTypes;
using namespace kelto::testing;
using GainModes = SensorInfo::TEM480_GainModes;

const std::string kGainRule =
    "((0.9 * computed_overall_gain < overall_gain) && (1.1 * computed_overall_gain > "
    "overall_gain))";

SensorInfo Tem480() {
  SensorInfo sensor;
  sensor.sensor_type = SensorTypes::TEM480;
  sensor.width_px = 640;
  sensor.height_px = 512;
  sensor.pixel_pitch_um = 15.0;
  sensor.bit_depth = 14;
  sensor.overall_gain = 0.1;
  sensor.gain_mode = "medium";
  return sensor;
}

// A version 2 block of the given family with the figures every family has.
std::string Version2(const std::string& type, const std::string& extra = "") {
  return R"(<sensor_info version="2" sensor_type=")" + type + R"(">
      <width_px>640</width_px><height_px>512</height_px><pixel_pitch_um>15</pixel_pitch_um>
      <bit_depth>14</bit_depth><overall_gain>1.5</overall_gain>)" +
         extra + "</sensor_info>";
}

TEST(SensorInfoDispatch, NewerAndNegativeVersionsAreRefusedAndDefaultsAreChecked) {
  for (const char* version : {"3", "-2"}) {
    SensorInfo sensor;
    const auto result = Read(sensor, std::string(R"(<sensor_info version=")") + version +
                                         R"(" sensor_type="VKR9"><width_px>2048</width_px>
        <height_px>1088</height_px></sensor_info>)");
    EXPECT_EQ(
        Events(result),
        (EventList{ReadStart("sensor_info"), Error(kUnsupportedVersion, "sensor_info"),
                   Check("SensorTypes::eType::Unknown != sensor_type"), Check("0 < height_px"),
                   Check("0 < width_px"), Check("0.0 < pixel_pitch_um"), Check("0 < bit_depth")}))
        << version;
    EXPECT_TRUE(sensor == SensorInfo()) << version;
  }
}

TEST(SensorInfoCurrentForm, MissingAndUnconvertibleItemsAreEventsInFileOrder) {
  SensorInfo sensor;
  EXPECT_EQ(Events(Read(sensor, R"(<sensor_info version="2">
      <width_px>640</width_px><height_px>512</height_px>
      <bit_depth>12</bit_depth><overall_gain>0.1</overall_gain></sensor_info>)")),
            (EventList{ReadStart("sensor_info"), Error(kMissingAttribute, "sensor_type"),
                       Error(kMissingElement, "pixel_pitch_um"),
                       Check("SensorTypes::eType::Unknown != sensor_type"),
                       Check("0.0 < pixel_pitch_um")}));
  EXPECT_EQ(sensor.width_px, 640);
  EXPECT_EQ(sensor.bit_depth, 12);

  sensor = Vkr9Sensor();
  EXPECT_EQ(
      Events(Read(sensor, Replace(Vkr9Sensor().WriteString(), "<width_px>2048", "<width_px>wide"))),
      (EventList{ReadStart("sensor_info"), Error(kMissingElement, "width_px"),
                 Check("0 < width_px")}));
  EXPECT_EQ(sensor.width_px, 0);

  // The TEM family needs its gain mode.
  EXPECT_EQ(Events(Read(sensor, Version2("TEM480"))),
            (EventList{ReadStart("sensor_info"), Error(kMissingElement, "gain_mode"),
                       Check("!gain_mode.empty()")}));
}

TEST(SensorInfoCurrentForm, OtherFamilysElementsAreNeitherReadNorWritten) {
  SensorInfo sensor;
  sensor.analog_gain = 7.0;
  sensor.gain_mode = "kept";
  const auto result =
      Read(sensor, Version2("GENERIC", "<analog_gain>1</analog_gain><gain_mode>high</gain_mode>"));
  EXPECT_EQ(result.state(), kOk);
  EXPECT_EQ(sensor.analog_gain, 7.0);
  EXPECT_EQ(sensor.gain_mode, "kept");

  const std::string written = sensor.WriteString();
  EXPECT_EQ(written.find("analog_gain"), std::string::npos);
  EXPECT_EQ(written.find("gain_mode"), std::string::npos);
}

TEST(SensorInfoChecks, ChipFiguresAndTheOverallGain) {
  SensorInfo sensor = Vkr9Sensor();
  const double computed = std::pow(2.0, 10) / 13500 * 3.2 * 1.0;
  EXPECT_NEAR(computed, 0.242726, 1e-6);
  EXPECT_TRUE(Checks(sensor).empty());
  // The overall gain must lie strictly within 10 % of the one the chip figures give.
  for (double gain : {1.1 * computed, 0.9 * computed, 0.5}) {
    sensor.overall_gain = gain;
    EXPECT_EQ(Checks(sensor), (EventList{Check(kGainRule)})) << gain;
  }

  sensor.analog_gain = 0.0;
  sensor.digital_gain = -1.0;
  sensor.full_well_capacity_e = 0;
  sensor.overall_gain = 0.0;
  EXPECT_EQ(Checks(sensor), (EventList{Check("analog_gain > 0"), Check("digital_gain > 0"),
                                       Check("full_well_capacity_e > 0"),
                                       Check("overall_gain > 0.0"), Check(kGainRule)}));

  // Any gain mode that is not empty passes, known or not.
  SensorInfo tem = Tem480();
  tem.gain_mode = "turbo";
  EXPECT_TRUE(Checks(tem).empty());
  EXPECT_EQ(GainModes::FromString(tem.gain_mode), GainModes::GM_UNKNOWN);
}

TEST(SensorInfoLegacy, UnversionedBlockWarnsAndTakesTheFamilyFigures) {
  SensorInfo sensor;
  const auto result =
      Read(sensor, "<sensor_info><width>1024</width><height>256</height></sensor_info>");
  EXPECT_EQ(Events(result),
            (EventList{ReadStart("sensor_info"), Warning(kMissingVersion, "sensor_info"),
                       Warning(kMissingValue, "pixelPitch")}));
  SensorInfo expected = Vkr9Sensor();
  expected.width_px = 1024;
  expected.height_px = 256;
  EXPECT_TRUE(sensor == expected);
}

TEST(SensorInfoLegacy, ZeroPitchWarnsOnceAndMissingSizesAreErrors) {
  SensorInfo sensor;
  const auto result =
      Read(sensor, R"(<sensor_info version="0"><pixel_pitch>0</pixel_pitch></sensor_info>)");
  EXPECT_EQ(Events(result),
            (EventList{ReadStart("sensor_info"), Error(kMissingValue, "width"),
                       Error(kMissingValue, "height"), Warning(kMissingValue, "pixel_pitch"),
                       Check("0 < height_px"), Check("0 < width_px")}));
  EXPECT_EQ(sensor.pixel_pitch_um, 5.5);
}

TEST(SensorInfoLegacy, VersionOneComputesTheGainFromTheCapacity) {
  const std::string version1 = R"(<sensor_info version="1"><width>1024</width>
      <height>256</height><pixel_pitch>5.5</pixel_pitch>)";
  SensorInfo sensor;
  EXPECT_EQ(Read(sensor,
                 version1 + "<full_well_capacity_e>13500</full_well_capacity_e>" + "</sensor_info>")
                .state(),
            kOk);
  EXPECT_EQ(sensor.overall_gain, 1024.0 / 13500 * 3.2);

  EXPECT_EQ(Events(Read(sensor, version1 + "</sensor_info>")),
            (EventList{ReadStart("sensor_info"), Error(kMissingElement, "full_well_capacity_e"),
                       Check("full_well_capacity_e > 0"), Check(kGainRule)}));
  EXPECT_TRUE(std::isinf(sensor.overall_gain));
}

TEST(SensorInfoWriting, EveryFamilyRoundTripsExactlyInTableOrder) {
  SensorInfo generic = Tem480();
  generic.sensor_type = SensorTypes::GENERIC;
  generic.gain_mode.clear();
  for (const SensorInfo& original : {Vkr9Sensor(), Tem480(), generic}) {
    SensorInfo copy;
    EXPECT_EQ(Events(Read(copy, original.WriteString())), (EventList{ReadStart("sensor_info")}));
    EXPECT_TRUE(copy == original) << original.WriteString();
  }
  ExpectInOrder(Vkr9Sensor().WriteString(),
                {R"(<sensor_info version="2" sensor_type="VKR9">)", "<width_px>", "<height_px>",
                 "<pixel_pitch_um>", "<bit_depth>", "<overall_gain>", "<analog_gain>",
                 "<digital_gain>", "<full_well_capacity_e>"});
}

TEST(SensorInfoEquality, EveryFieldCounts) {
  const SensorInfo base = Vkr9Sensor();
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

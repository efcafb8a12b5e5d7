#include <kelto/hyperspectral/management/sensor_calibration_container.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelto/test_support/event_list.h>
#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>

namespace kelto::hyperspectral {
namespace {

using common::Logger;
using kelto::testing::LogCapture;
using kelto::testing::TemporaryDirectory;

const std::string kSamples = std::string(KELTO_TEST_DATA_DIR) + "/calibrations/";

std::vector<std::string> SamplePaths() {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(kSamples)) {
    paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

std::string ReadText(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::string WriteText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}

// The messages that reached the message reporter.
std::vector<std::string> Reported(const LogCapture& log) {
  std::vector<std::string> messages;
  for (const auto& [level, name, message] : log.lines) {
    if (name == "MessageReporter") {
      EXPECT_EQ(level, Logger::eLevel::Error);
      messages.push_back(message);
    }
  }
  return messages;
}

SensorCalibration ReadDirectly(const std::string& path) {
  SensorCalibration calibration;
  kelto::testing::ParsingResult result;
  calibration.ReadFile(result, path);
  EXPECT_EQ(result.state(), kelto::testing::ParsingResult::Ok) << path;
  return calibration;
}

TEST(SensorCalibrationContainerAdding, EverySampleIsKeptInOrderUnderItsId) {
  LogCapture log;
  common::MessageReporter reporter;
  SensorCalibrationContainer container;
  const std::vector<std::string> paths = SamplePaths();
  ASSERT_EQ(paths.size(), 5u);
  for (const std::string& path : paths) {
    container.AddSensorCalibration(path, &reporter);
  }
  EXPECT_TRUE(log.lines.empty());

  const std::vector<SensorCalibration>& all = container.GetSensorCalibration();
  ASSERT_EQ(all.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const SensorCalibration expected = ReadDirectly(paths[i]);
    EXPECT_TRUE(all[i] == expected) << paths[i];
    EXPECT_TRUE(container.HasSensorCalibration(expected.sensor_id));
    EXPECT_TRUE(container.GetSensorCalibration(expected.sensor_id) == expected);
    // The name without directory and extension.
    EXPECT_EQ(container.GetFileName(expected.sensor_id),
              std::filesystem::path(paths[i]).stem().string());
  }
  EXPECT_EQ(container.GetFileName("17.4.4.1"), "VKR9-MZT4x4-470_620");
  EXPECT_EQ(container.GetFileName("12.150.0.3"), "VKR9-QL150-470_900");
}

TEST(SensorCalibrationContainerAdding, AWarningAloneRefusesTheFileWithOneMessage) {
  TemporaryDirectory directory;
  std::string text = ReadText(kSamples + "VKR9-MZT4x4-470_620.xml");
  const std::size_t begin = text.find("<spectral_correction_info");
  const std::string end_tag = "</spectral_correction_info>";
  const std::size_t end = text.find(end_tag);
  ASSERT_NE(begin, std::string::npos);
  ASSERT_NE(end, std::string::npos);
  text.erase(begin, end + end_tag.size() - begin);
  const std::string path = WriteText(directory.path() / "old.system.xml", text);

  LogCapture log;
  common::MessageReporter reporter;
  SensorCalibrationContainer container;
  container.AddSensorCalibration(path, &reporter);
  EXPECT_EQ(
      Reported(log),
      (std::vector<std::string>{path + " - Warning MissingElement: spectral_correction_info"}));
  EXPECT_FALSE(container.HasSensorCalibration("17.4.4.1"));
  EXPECT_TRUE(container.GetSensorCalibration().empty());
}

TEST(SensorCalibrationContainerAdding, EveryEventAboveOkIsOneMessageInOrder) {
  TemporaryDirectory directory;
  // A sensor block without width and height: two missing values, then the checks that their
  // defaults fail, once by the block itself and once by the whole calibration.
  std::string text = ReadText(kSamples + "VKR9-MZT4x4-470_620.xml");
  text = kelto::testing::Replace(text, "<width_px>2048</width_px>", "");
  text = kelto::testing::Replace(text, "<height_px>1088</height_px>", "");
  const std::string path = WriteText(directory.path() / "broken.xml", text);

  LogCapture log;
  common::MessageReporter reporter;
  SensorCalibrationContainer container;
  container.AddSensorCalibration(path, &reporter);
  const std::vector<std::string> messages = Reported(log);
  ASSERT_GE(messages.size(), 4u);
  EXPECT_EQ(messages[0], path + " - Error MissingElement: width_px");
  EXPECT_EQ(messages[1], path + " - Error MissingElement: height_px");
  EXPECT_EQ(messages[2], path + " - Error SanityCheck: 0 < height_px");
  EXPECT_EQ(messages[3], path + " - Error SanityCheck: 0 < width_px");
  EXPECT_TRUE(container.GetSensorCalibration().empty());

  // Files that can't be read at all are refused the same way.
  const std::string missing = (directory.path() / "missing.xml").string();
  container.AddSensorCalibration(missing, &reporter);
  const std::string garbage = WriteText(directory.path() / "garbage.xml", "<sensor_calibration");
  container.AddSensorCalibration(garbage, &reporter);
  const std::vector<std::string> more = Reported(log);
  ASSERT_EQ(more.size(), messages.size() + 2);
  EXPECT_EQ(more[messages.size()],
            missing + " - Error SanityCheck: " + missing + ": the file does not exist");
  EXPECT_EQ(more.back().rfind(garbage + " - Error SanityCheck: " + garbage + ": ", 0), 0u)
      << more.back();
  EXPECT_TRUE(container.GetSensorCalibration().empty());
}

TEST(SensorCalibrationContainerAdding, NullReporterRefusesSilently) {
  LogCapture log;
  SensorCalibrationContainer container;
  container.AddSensorCalibration(kSamples + "no such file.xml", nullptr);
  EXPECT_TRUE(container.GetSensorCalibration().empty());
  EXPECT_TRUE(log.lines.empty());
  container.AddSensorCalibration(kSamples + "VKR9-TZT32-600_1000.xml", nullptr);
  EXPECT_TRUE(container.HasSensorCalibration("14.32.0.4"));
}

TEST(SensorCalibrationContainerDuplicates, TheFirstFileOfAnIdStaysAndLaterOnesAreSilent) {
  TemporaryDirectory directory;
  const std::string original = kSamples + "VKR9-MZT5x5-600_1000.xml";
  const std::string text = ReadText(original);
  const std::string first = WriteText(directory.path() / "first.xml", text);
  const std::string second =
      WriteText(directory.path() / "second.xml",
                kelto::testing::Replace(text, R"(software="kelto-sim")", R"(software="other")"));

  LogCapture log;
  common::MessageReporter reporter;
  SensorCalibrationContainer container;
  container.AddSensorCalibration(first, &reporter);
  container.AddSensorCalibration(first, &reporter);
  container.AddSensorCalibration(second, &reporter);
  EXPECT_TRUE(log.lines.empty());
  ASSERT_EQ(container.GetSensorCalibration().size(), 1u);
  EXPECT_EQ(container.GetSensorCalibration("17.5.5.2").software, "kelto-sim");
  EXPECT_EQ(container.GetFileName("17.5.5.2"), "first");

  // A duplicate that fails to read is reported all the same: refusal comes before the id.
  const std::string broken = WriteText(
      directory.path() / "broken.xml",
      kelto::testing::Replace(text, "<bit_depth>10</bit_depth>", "<bit_depth>ten</bit_depth>"));
  container.AddSensorCalibration(broken, &reporter);
  EXPECT_FALSE(Reported(log).empty());
  EXPECT_EQ(container.GetSensorCalibration().size(), 1u);
  EXPECT_EQ(container.GetFileName("17.5.5.2"), "first");
}

TEST(SensorCalibrationContainerLookup, UnknownIdsThrowTwoDifferentTexts) {
  SensorCalibrationContainer container;
  container.AddSensorCalibration(kSamples + "TEM480-MZT4x4-1100_1700.xml", nullptr);
  ASSERT_TRUE(container.HasSensorCalibration("31.4.4.5"));
  EXPECT_FALSE(container.HasSensorCalibration("31.4.4"));
  EXPECT_FALSE(container.HasSensorCalibration(""));

  LogCapture log;
  EXPECT_THAT([&] { container.GetSensorCalibration("1.2.3.4"); },
              ::testing::ThrowsMessage<std::logic_error>("Sensor calibration id not found"));
  EXPECT_THAT([&] { container.GetFileName("1.2.3.4"); },
              ::testing::ThrowsMessage<std::logic_error>("Sensor calibration not found"));
  EXPECT_EQ(log.Messages(Logger::eLevel::Error),
            (std::vector<std::string>{"Sensor calibration id not found",
                                      "Sensor calibration not found"}));
  // The container is unchanged by a failed lookup.
  EXPECT_EQ(container.GetSensorCalibration().size(), 1u);
}

}  // namespace
}  // namespace kelto::hyperspectral

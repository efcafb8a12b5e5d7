#include <kelto/hyperspectral/management/context_description.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <kelto/test_support/event_list.h>
#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>
#include "context_log_lines.h"

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using common::Logger;
using common::SensorTypes;
using kelto::testing::LogCapture;
using kelto::testing::TemporaryDirectory;

constexpr auto kError = Logger::eLevel::Error;
constexpr auto kInfo = Logger::eLevel::Info;

const std::string kVersion1 = R"(<context_description version="1">
  <sensor_type>TEM480</sensor_type>
  <camera_id>cam-0042</camera_id>
</context_description>)";

TEST(ContextDescriptionReading, VersionZeroReadsNothingAndNoVersionIsAnError) {
  ContextDescription description;
  description.sensor_type = SensorTypes::VKR9;
  description.camera_id = "before";
  EXPECT_EQ(Events(Read(description, Replace(kVersion1, R"(version="1")", R"(version="0")"))),
            (EventList{ReadStart("context_description")}));
  EXPECT_EQ(description.version, 0);
  EXPECT_EQ(description.sensor_type, SensorTypes::VKR9);
  EXPECT_EQ(description.camera_id, "before");

  // The version is stored before the dispatch, also when it refuses.
  EXPECT_EQ(Events(Read(description, Replace(kVersion1, R"( version="1")", ""))),
            Refused("context_description"));
  EXPECT_EQ(description.version, -1);
  EXPECT_EQ(description.camera_id, "before");
  EXPECT_EQ(Events(Read(description, Replace(kVersion1, R"(version="1")", R"(version="-3")"))),
            Refused("context_description"));
  EXPECT_EQ(description.version, -3);
}

TEST(ContextDescriptionReading, MissingValuesAreErrorsAndAnUnknownTypeIsSilent) {
  ContextDescription description;
  description.sensor_type = SensorTypes::VKR9;
  description.camera_id = "before";
  EXPECT_EQ(Events(Read(description, R"(<context_description version="1"/>)")),
            (EventList{ReadStart("context_description"), Error(kMissingElement, "sensor_type"),
                       Error(kMissingElement, "camera_id")}));
  EXPECT_EQ(description.sensor_type, SensorTypes::Unknown);
  EXPECT_EQ(description.camera_id, "");

  ContextDescription unknown;
  EXPECT_EQ(Events(Read(unknown, Replace(kVersion1, "TEM480", "banana"))),
            (EventList{ReadStart("context_description")}));
  EXPECT_EQ(unknown.sensor_type, SensorTypes::Unknown);
  // No checks beyond the reader's.
  EXPECT_EQ(Checks(unknown), EventList{});
}

TEST(ContextDescriptionWriting, NewerIsReadAsVersionOneAndWrittenAsIt) {
  ContextDescription description;
  EXPECT_EQ(description.version, 1);
  ASSERT_EQ(Events(Read(description, Replace(kVersion1, R"(version="1")", R"(version="4")"))),
            (EventList{ReadStart("context_description")}));
  EXPECT_EQ(description.version, 4);
  const std::string text = description.WriteString();
  ExpectInOrder(text, {R"(<context_description version="1">)", "<sensor_type>TEM480</sensor_type>",
                       "<camera_id>cam-0042</camera_id>"});
  ContextDescription copy;
  EXPECT_EQ(Events(Read(copy, text)), (EventList{ReadStart("context_description")}));
  EXPECT_EQ(copy.version, 1);
  EXPECT_EQ(copy.sensor_type, SensorTypes::TEM480);
  EXPECT_EQ(copy.camera_id, "cam-0042");
}

TEST(ContextDescriptionCopies, VersionRefersToTheCopysOwnValue) {
  ContextDescription original;
  Read(original, Replace(kVersion1, R"(version="1")", R"(version="5")"));
  const ContextDescription copy(original);
  ContextDescription assigned;
  assigned = original;
  EXPECT_EQ(copy.version, 5);
  EXPECT_EQ(assigned.version, 5);
  EXPECT_EQ(assigned.camera_id, "cam-0042");
  EXPECT_EQ(assigned.sensor_type, SensorTypes::TEM480);
  // Reading into the original changes neither copy.
  Read(original, Replace(kVersion1, R"(version="1")", R"(version="0")"));
  EXPECT_EQ(original.version, 0);
  EXPECT_EQ(copy.version, 5);
  EXPECT_EQ(assigned.version, 5);
  EXPECT_NE(&copy.version, &original.version);
  EXPECT_NE(&assigned.version, &original.version);
}

class ContextDescriptionLoading : public ::testing::Test {
 protected:
  std::string Write(const std::string& text) {
    const std::filesystem::path path = directory_.path() / ContextDescription::kFileName;
    std::ofstream(path) << text;
    return path.string();
  }
  TemporaryDirectory directory_;
  LogCapture log_;
  Logger logger_{"contexts"};
};

TEST_F(ContextDescriptionLoading, ReadsAFileWithoutLogging) {
  ContextDescription description;
  ContextDescription::LoadContextDescription(description, Write(kVersion1), &logger_);
  EXPECT_EQ(description.version, 1);
  EXPECT_EQ(description.camera_id, "cam-0042");
  EXPECT_TRUE(log_.lines.empty());
}

TEST_F(ContextDescriptionLoading, AMissingFileIsAnInvalidArgument) {
  const std::string path = (directory_.path() / "nothing.xml").string();
  const std::string text = "The context description file does not exist: " + path;
  for (Logger* logger : {&logger_, static_cast<Logger*>(nullptr)}) {
    ContextDescription description;
    try {
      ContextDescription::LoadContextDescription(description, path, logger);
      ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(std::string(error.what()), text);
    }
  }
  // Logged once: with the logger, not without.
  EXPECT_EQ(ContextLogLines(log_, "contexts"),
            (std::vector<LogLine>{{kError, "LoadContextDescription", text}}));
}

TEST_F(ContextDescriptionLoading, AFileInErrorIsARuntimeErrorFollowedByItsEvents) {
  const std::string path = Write(Replace(kVersion1, "<camera_id>cam-0042</camera_id>", ""));
  const std::string text = "An error occurred while reading the context description " + path +
                           ": " + path +
                           ": the document is in error: Error MissingElement: camera_id";
  for (Logger* logger : {&logger_, static_cast<Logger*>(nullptr)}) {
    ContextDescription description;
    try {
      ContextDescription::LoadContextDescription(description, path, logger);
      ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()), text);
    }
  }
  EXPECT_EQ(ContextLogLines(log_, "contexts"),
            (std::vector<LogLine>{{kError, "LoadContextDescription", text},
                                  {kInfo, "", "Ok ReadStart: context_description"},
                                  {kError, "", "Error MissingElement: camera_id"}}));
}

TEST_F(ContextDescriptionLoading, AFileThatIsNoDocumentIsARuntimeError) {
  const std::string path = Write("context");
  ContextDescription description;
  try {
    ContextDescription::LoadContextDescription(description, path, &logger_);
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& error) {
    const std::string prefix =
        "An error occurred while reading the context description " + path + ": " + path + ": ";
    EXPECT_EQ(std::string(error.what()).rfind(prefix, 0), 0u) << error.what();
  }
  const std::vector<LogLine> lines = ContextLogLines(log_, "contexts");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(std::get<1>(lines[0]), "LoadContextDescription");
  // The one event of the read: the document could not be parsed.
  EXPECT_EQ(std::get<2>(lines[1]).rfind("Error SanityCheck: " + path + ": ", 0), 0u);
}

}  // namespace
}  // namespace kelto::hyperspectral

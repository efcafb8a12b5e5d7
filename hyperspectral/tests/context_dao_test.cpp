#include <kelto/hyperspectral/management/context_dao.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

#include <kelto/hyperspectral/management/context_description.h>

#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>
#include "context_log_lines.h"

namespace kelto::hyperspectral {
namespace {

using common::Logger;
using kelto::testing::ContextLogLines;
using kelto::testing::LogCapture;
using kelto::testing::LogLine;
using kelto::testing::TemporaryDirectory;

constexpr auto kError = Logger::eLevel::Error;
constexpr auto kInfo = Logger::eLevel::Info;

const std::string kVersionZeroText = "Loading of contexts version 0 is not supported yet.";

std::string Description(const std::string& version) {
  return R"(<context_description version=")" + version + R"(">
  <sensor_type>VKR9</sensor_type><camera_id>c7</camera_id></context_description>)";
}

class ContextDaoLoading : public ::testing::Test {
 protected:
  std::string WriteDescription(const std::string& text) {
    const std::filesystem::path path = directory_.path() / ContextDescription::kFileName;
    std::ofstream(path) << text;
    return path.string();
  }

  // The text of the runtime_error of LoadContext, once with the dao's logger and once without;
  // both must give the same text.
  std::string RuntimeError() {
    std::string texts[2];
    Logger* loggers[2] = {dao_.GetLogger(), nullptr};
    for (int i = 0; i < 2; ++i) {
      Context context;
      try {
        ContextDao::LoadContext(directory_.path().string(), context, loggers[i]);
        ADD_FAILURE() << "no exception";
      } catch (const std::runtime_error& error) {
        texts[i] = error.what();
      }
    }
    EXPECT_EQ(texts[0], texts[1]);
    return texts[0];
  }

  TemporaryDirectory directory_;
  LogCapture log_;
  ContextDao dao_{"camera contexts"};
};

// Without a description, or with one of version 0, a context is of version 0 and refused.
TEST_F(ContextDaoLoading, VersionZeroIsRefused) {
  for (const std::string version : {"", "0"}) {
    log_.lines.clear();
    if (!version.empty()) {
      WriteDescription(Description(version));
    }
    EXPECT_EQ(RuntimeError(), kVersionZeroText) << version;
    EXPECT_EQ(ContextLogLines(log_, "camera contexts"),
              (std::vector<LogLine>{{kError, "_LoadContext_V0", kVersionZeroText}}))
        << version;
  }
  // So is a directory that does not exist.
  Context context;
  EXPECT_THAT(
      [&] { ContextDao::LoadContext((directory_.path() / "absent").string(), context, nullptr); },
      ::testing::ThrowsMessage<std::runtime_error>(::testing::StrEq(kVersionZeroText)));
}

TEST_F(ContextDaoLoading, VersionOneLoadsAndSaysSo) {
  WriteDescription(Description("1"));
  Context context;
  ContextDao::LoadContext(directory_.path().string(), context, dao_.GetLogger());
  EXPECT_EQ(ContextLogLines(log_, "camera contexts"),
            (std::vector<LogLine>{{kInfo, "_LoadContext_V1", "Loading context V1"}}));
  ContextDao::LoadContext(directory_.path().string(), context, nullptr);
  EXPECT_EQ(log_.lines.size(), 1u);
}

TEST_F(ContextDaoLoading, ANewerVersionIsUnsupported) {
  WriteDescription(Description("2"));
  EXPECT_EQ(RuntimeError(), "Unsupported context version: 2");
  EXPECT_EQ(ContextLogLines(log_, "camera contexts"),
            (std::vector<LogLine>{{kError, "LoadContext", "Unsupported context version: 2"}}));
  log_.lines.clear();
  WriteDescription(Description("2147483647"));
  EXPECT_EQ(RuntimeError(), "Unsupported context version: 2147483647");
}

TEST_F(ContextDaoLoading, ADescriptionThatCantBeReadIsReportedUnderLoadContext) {
  const std::string path = WriteDescription(Description("-2"));
  const std::string text = "An error occurred while reading the context description " + path +
                           ": " + path +
                           ": the document is in error: Error UnsupportedVersion: "
                           "context_description";
  EXPECT_EQ(RuntimeError(), text);
  EXPECT_EQ(ContextLogLines(log_, "camera contexts"),
            (std::vector<LogLine>{{kError, "LoadContext", text},
                                  {kInfo, "", "Ok ReadStart: context_description"},
                                  {kError, "", "Error UnsupportedVersion: context_description"}}));
}

std::set<std::string> Listing(const std::filesystem::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    names.insert(entry.path().string() + " " +
                 std::to_string(entry.is_regular_file() ? entry.file_size() : 0));
  }
  return names;
}

TEST(ContextDaoSaving, LeavesTheDirectoryUntouchedAndSaysNothing) {
  TemporaryDirectory directory;
  LogCapture log;
  const Context context;
  ContextDao::SaveContext(directory.path().string(), context);
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));

  std::ofstream(directory.path() / ContextDescription::kFileName) << Description("1");
  const std::set<std::string> before = Listing(directory.path());
  ContextDao::SaveContext(directory.path().string(), context);
  EXPECT_EQ(Listing(directory.path()), before);

  ContextDao::SaveContext((directory.path() / "new").string(), context);
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "new"));
  EXPECT_TRUE(log.lines.empty());
}

}  // namespace
}  // namespace kelto::hyperspectral

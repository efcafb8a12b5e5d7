#include <kelto/common/logger.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include <kelto/common/message_reporter.h>

#include <kelto/test_support/log_capture.h>

namespace kelto::common {
namespace {

using Message = kelto::testing::LogCapture::Line;
constexpr Logger::eLevel kError = Logger::eLevel::Error;
constexpr Logger::eLevel kInfo = Logger::eLevel::Info;

class LoggerTest : public ::testing::Test {
 protected:
  kelto::testing::LogCapture log_;
  std::vector<Message>& messages_ = log_.lines;
};

TEST_F(LoggerTest, EveryRouteEndsInTheSinkAndTheDefaultSinkWritesToStandardError) {
  Logger::StaticError("static error");
  Logger::StaticInfo("static info");
  MessageReporter::Error("for a person");
  const Logger named("PM_PeakDetection", Logger::Parameters());
  named.Error("named error");
  named.Info("named info");
  Logger::StaticError(nullptr);
  EXPECT_EQ(messages_, (std::vector<Message>{{kError, "", "static error"},
                                             {kInfo, "", "static info"},
                                             {kError, "MessageReporter", "for a person"},
                                             {kError, "PM_PeakDetection", "named error"},
                                             {kInfo, "PM_PeakDetection", "named info"},
                                             {kError, "", ""}}));

  // The default sink writes levelled lines to standard error.
  messages_.clear();
  Logger::SetSink(nullptr);
  ::testing::internal::CaptureStderr();
  Logger::StaticError("disk full");
  Logger("module").Info("started");
  const std::string output = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(output, "[error] disk full\n[info] module: started\n");
  EXPECT_TRUE(messages_.empty());
}

}  // namespace
}  // namespace kelto::common

#include <kelto/hyperspectral/calibration/calibration_info.h>

#include <gtest/gtest.h>

#include <cmath>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingValue = 20, kSanityCheck = 30, kReadStart = 40;

std::string Range(int version, const std::string& prefix, const std::string& start,
                  const std::string& end, const std::string& step, const std::string& extra = "") {
  const std::string resolution =
      prefix == "measurement" ? "measurement_resolution_nm" : "wavelength_resolution_nm";
  return "<calibration_info version=\"" + std::to_string(version) + "\"><" + prefix +
         "_range_start_nm>" + start + "</" + prefix + "_range_start_nm><" + prefix +
         "_range_end_nm>" + end + "</" + prefix + "_range_end_nm><" + resolution + ">" + step +
         "</" + resolution + ">" + extra + "</calibration_info>";
}

const std::string kSettings =
    "<bit_depth>10</bit_depth><analog_gain>3.2</analog_gain><digital_gain>1</digital_gain>"
    "<measured_overall_gain>0.24</measured_overall_gain>";

TEST(CalibrationInfoGrid, RangeAndStepGiveRoundedCountOfPoints) {
  struct Case {
    double end;
    std::size_t count;
    double last;
  };
  for (const Case& c :
       {Case{1000.0, 601, 1000.0}, Case{1000.6, 602, 1001.0}, Case{1000.4, 601, 1000.0}}) {
    CalibrationInfo grid;
    const auto result = Read(grid, Range(1, "wavelength", "400", std::to_string(c.end), "1"));
    EXPECT_EQ(result.state(), 0);
    ASSERT_EQ(grid.sample_points_nm.size(), c.count) << c.end;
    EXPECT_EQ(grid.sample_points_nm.front(), 400.0);
    EXPECT_EQ(grid.sample_points_nm.back(), c.last);
  }
}

TEST(CalibrationInfoGrid, PointsAreComputedByMultiplicationNotRunningSum) {
  CalibrationInfo grid;
  Read(grid, Range(1, "wavelength", "400", "1000", "0.1"));
  ASSERT_EQ(grid.sample_points_nm.size(), 6001u);
  double running = 400.0;
  bool differs_from_running_sum = false;
  for (std::size_t i = 0; i < grid.sample_points_nm.size(); ++i) {
    EXPECT_EQ(grid.sample_points_nm[i], static_cast<double>(i) * 0.1 + 400.0) << i;
    differs_from_running_sum = differs_from_running_sum || grid.sample_points_nm[i] != running;
    running += 0.1;
  }
  EXPECT_TRUE(differs_from_running_sum);
}

TEST(CalibrationInfoGrid, ZeroResolutionWarnsAndUsesOneNanometre) {
  CalibrationInfo grid;
  const auto result = Read(grid, Range(0, "measurement", "450", "460", "0"));
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "calibration_info"},
                                       {kWarning, kMissingValue, "measurement_resolution_nm"}}));
  EXPECT_EQ(grid.sample_points_nm.size(), 11u);
}

TEST(CalibrationInfoGrid, RangeRunningBackwardsHasNoGrid) {
  for (const char* end : {"100", "-1e308"}) {
    CalibrationInfo grid;
    grid.sample_points_nm = {1.0, 2.0};
    const auto result = Read(grid, Range(1, "wavelength", "400", end, "1"));
    EXPECT_EQ(result.state(), kError) << end;
    EXPECT_TRUE(grid.sample_points_nm.empty());
    CalibrationInfo::ParsingResult checks;
    grid.RunSanityChecks(checks);
    EXPECT_EQ(Events(checks), (EventList{{kWarning, kSanityCheck, "!sample_points_nm.empty ()"}}));
  }
}

TEST(CalibrationInfoGrid, RangeJustBelowHalfAStepIsAnEmptyGridWithoutEvent) {
  CalibrationInfo grid;
  const auto result = Read(grid, Range(1, "wavelength", "400", "398.2", "1"));  // count -0.3
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "calibration_info"}}));
  EXPECT_TRUE(grid.sample_points_nm.empty());
}

TEST(CalibrationInfoGrid, AbsurdCountIsRefusedWithoutAllocating) {
  CalibrationInfo grid;
  const auto result = Read(grid, Range(1, "wavelength", "0", "1e12", "1e-6"));
  EXPECT_EQ(result.state(), kError);
  EXPECT_TRUE(grid.sample_points_nm.empty());
}

TEST(CalibrationInfoVersions, EachVersionReportsItsMissingItems) {
  struct Case {
    std::string xml;
    EventList events;
    std::size_t points;
  };
  const std::vector<Case> cases = {
      {"<calibration_info version=\"0\"/>",
       {{kOk, kReadStart, "calibration_info"},
        {kError, kMissingElement, "measurement_range_start_nm"},
        {kError, kMissingElement, "measurement_range_end_nm"},
        {kError, kMissingElement, "measurement_resolution_nm"},
        {kWarning, kMissingValue, "measurement_resolution_nm"}},
       1},
      {Range(1, "wavelength", "400", "402", "1"), {{kOk, kReadStart, "calibration_info"}}, 3},
      {Range(2, "wavelength", "400", "402", "1",
             "<bit_depth>10</bit_depth><digital_gain>1</digital_gain>"
             "<measured_overall_gain>0.2</measured_overall_gain>"),
       {{kOk, kReadStart, "calibration_info"}, {kError, kMissingElement, "analog_gain"}},
       3},
      {Range(2, "wavelength", "400", "402", "1", kSettings),
       {{kOk, kReadStart, "calibration_info"}},
       3},
      {"<calibration_info version=\"3\"><sample_points_nm nr_elements=\"2\" values=\"500 510\"/>"
       "</calibration_info>",
       {{kOk, kReadStart, "calibration_info"},
        {kError, kMissingElement, "bit_depth"},
        {kError, kMissingElement, "analog_gain"},
        {kError, kMissingElement, "digital_gain"},
        {kError, kMissingElement, "measured_overall_gain"}},
       2},
      {"<calibration_info version=\"3\"><sample_points_nm nr_elements=\"2\" values=\"500 510\"/>" +
           kSettings + "</calibration_info>",
       {{kOk, kReadStart, "calibration_info"}},
       2},
      {"<calibration_info version=\"4\"/>",
       {{kOk, kReadStart, "calibration_info"}, {kError, kMissingElement, "sample_points_nm"}},
       0},
      {"<calibration_info version=\"5\"><sample_points_nm nr_elements=\"3\" values=\"1 2 3\"/>"
       "</calibration_info>",
       {{kOk, kReadStart, "calibration_info"}},
       3},
      {"<calibration_info version=\"17\"><sample_points_nm nr_elements=\"1\" values=\"1\"/>"
       "</calibration_info>",
       {{kOk, kReadStart, "calibration_info"}},
       1},
      {"<calibration_info><sample_points_nm nr_elements=\"1\" values=\"1\"/></calibration_info>",
       {{kOk, kReadStart, "calibration_info"}, {kError, kMissingVersion, "calibration_info"}},
       0},
      {"<calibration_info version=\"-3\"><sample_points_nm nr_elements=\"1\" values=\"1\"/>"
       "</calibration_info>",
       {{kOk, kReadStart, "calibration_info"}, {kError, kUnsupportedVersion, "calibration_info"}},
       0},
  };
  for (const Case& c : cases) {
    CalibrationInfo grid;
    const auto result = Read(grid, c.xml);
    EXPECT_EQ(Events(result), c.events) << c.xml;
    EXPECT_EQ(grid.sample_points_nm.size(), c.points) << c.xml;
  }
}

TEST(CalibrationInfoVersions, VectorClaimingMoreThanItHoldsIsAnEvent) {
  for (const char* count : {"5", "18446744073709551615", "-4", "many"}) {
    CalibrationInfo grid;
    const auto result = Read(grid, std::string("<calibration_info version=\"5\"><sample_points_nm "
                                               "nr_elements=\"") +
                                       count + "\" values=\"500 510 520\"/></calibration_info>");
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "calibration_info"},
                                         {kError, kMissingElement, "sample_points_nm"}}))
        << count;
    EXPECT_LE(grid.sample_points_nm.size(), 3u);
  }
}

TEST(CalibrationInfoChecks, EmptyAndBackwardGridsWarn) {
  CalibrationInfo grid;
  CalibrationInfo::ParsingResult empty;
  grid.RunSanityChecks(empty);
  EXPECT_EQ(Events(empty), (EventList{{kWarning, kSanityCheck, "!sample_points_nm.empty ()"}}));

  grid.sample_points_nm = {900.0, 500.0};
  CalibrationInfo::ParsingResult backwards;
  grid.RunSanityChecks(backwards);
  EXPECT_EQ(Events(backwards),
            (EventList{{kWarning, kSanityCheck,
                        "sample_points_nm.front () <= sample_points_nm.back ()"}}));

  grid.sample_points_nm = {500.0};
  CalibrationInfo::ParsingResult single;
  grid.RunSanityChecks(single);
  EXPECT_TRUE(single.events().empty());
}

TEST(CalibrationInfoWriting, RoundTripKeepsSixDigitsPerPoint) {
  CalibrationInfo grid;
  for (int i = 0; i <= 600; ++i) {
    grid.sample_points_nm.push_back(400.0 + i * 0.5);
  }
  CalibrationInfo copy;
  const std::string text = grid.WriteString();
  EXPECT_NE(text.find(R"(<calibration_info version="5">)"), std::string::npos) << text;
  const auto result = Read(copy, text);
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "calibration_info"}}));
  EXPECT_TRUE(copy == grid);

  CalibrationInfo fine;
  fine.sample_points_nm = {1234.5678};
  Read(copy, fine.WriteString());
  ASSERT_EQ(copy.sample_points_nm.size(), 1u);
  EXPECT_EQ(copy.sample_points_nm[0], 1234.57);
}

TEST(CalibrationInfoEquality, ComparesEveryPointExactly) {
  CalibrationInfo a;
  a.sample_points_nm = {400.0, 401.0};
  CalibrationInfo b = a;
  EXPECT_TRUE(a == b);
  b.sample_points_nm.push_back(402.0);
  EXPECT_FALSE(a == b);
  b = a;
  b.sample_points_nm[1] = std::nextafter(401.0, 500.0);
  EXPECT_FALSE(a == b);
  a.sample_points_nm[0] = std::nan("");
  EXPECT_FALSE(a == a);
}

}  // namespace
}  // namespace kelto::hyperspectral

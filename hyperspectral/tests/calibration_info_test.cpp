#include <kelto/hyperspectral/calibration/calibration_info.h>

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

std::string Range(int version, const std::string& prefix, const std::string& start,
                  const std::string& end, const std::string& step, const std::string& extra = "") {
  const std::string resolution =
      prefix == "measurement" ? "measurement_resolution_nm" : "wavelength_resolution_nm";
  return "<calibration_info version=\"" + std::to_string(version) + "\"><" + prefix +
         "_range_start_nm>" + start + "</" + prefix + "_range_start_nm><" + prefix +
         "_range_end_nm>" + end + "</" + prefix + "_range_end_nm><" + resolution + ">" + step +
         "</" + resolution + ">" + extra + "</calibration_info>";
}

std::string Points(int version, const std::string& vector, const std::string& extra = "") {
  return "<calibration_info version=\"" + std::to_string(version) + "\">" + vector + extra +
         "</calibration_info>";
}

const std::string kSettings =
    "<bit_depth>10</bit_depth><analog_gain>3.2</analog_gain><digital_gain>1</digital_gain>"
    "<measured_overall_gain>0.24</measured_overall_gain>";
const std::string kTwoPoints = R"(<sample_points_nm nr_elements="2" values="500 510"/>)";
const std::string kOnePoint = R"(<sample_points_nm nr_elements="1" values="1"/>)";

TEST(CalibrationInfoGrid, RangeAndStepGiveRoundedCountOfPointsOrNone) {
  // Start, end and step, the count of points and the last one; no points is an error.
  const std::vector<std::tuple<std::string, std::string, std::string, std::size_t, double>> cases =
      {{"400", "1000", "1", 601, 1000.0},   {"400", "1000.6", "1", 602, 1001.0},
       {"400", "1000.4", "1", 601, 1000.0}, {"400", "100", "1", 0, 0.0},
       {"400", "-1e308", "1", 0, 0.0},      {"0", "1e12", "1e-6", 0, 0.0}};
  for (const auto& [start, end, step, count, last] : cases) {
    const std::string xml = Range(1, "wavelength", start, end, step);
    CalibrationInfo grid;
    grid.sample_points_nm = {1.0, 2.0};
    EXPECT_EQ(Read(grid, xml).state(), count == 0 ? kError : kOk) << xml;
    ASSERT_EQ(grid.sample_points_nm.size(), count) << xml;
    if (count > 0) {
      EXPECT_EQ(grid.sample_points_nm.front(), 400.0) << xml;
      EXPECT_EQ(grid.sample_points_nm.back(), last) << xml;
    }
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

TEST(CalibrationInfoVersions, EachVersionReportsItsMissingItems) {
  struct Case {
    std::string xml;
    EventList events;
    std::size_t points;
  };
  const std::vector<Case> cases = {
      {"<calibration_info version=\"0\"/>",
       {ReadStart("calibration_info"), Error(kMissingElement, "measurement_range_start_nm"),
        Error(kMissingElement, "measurement_range_end_nm"),
        Error(kMissingElement, "measurement_resolution_nm"),
        Warning(kMissingValue, "measurement_resolution_nm")},
       1},
      // A zero step warns and takes one nanometre.
      {Range(0, "measurement", "450", "460", "0"),
       {ReadStart("calibration_info"), Warning(kMissingValue, "measurement_resolution_nm")},
       11},
      {Range(1, "wavelength", "400", "402", "1"), {ReadStart("calibration_info")}, 3},
      // A range just below half a step (count -0.3) is an empty grid without an event.
      {Range(1, "wavelength", "400", "398.2", "1"), {ReadStart("calibration_info")}, 0},
      {Range(2, "wavelength", "400", "402", "1",
             "<bit_depth>10</bit_depth><digital_gain>1</digital_gain>"
             "<measured_overall_gain>0.2</measured_overall_gain>"),
       {ReadStart("calibration_info"), Error(kMissingElement, "analog_gain")},
       3},
      {Range(2, "wavelength", "400", "402", "1", kSettings), {ReadStart("calibration_info")}, 3},
      {Points(3, kTwoPoints),
       {ReadStart("calibration_info"), Error(kMissingElement, "bit_depth"),
        Error(kMissingElement, "analog_gain"), Error(kMissingElement, "digital_gain"),
        Error(kMissingElement, "measured_overall_gain")},
       2},
      {Points(3, kTwoPoints, kSettings), {ReadStart("calibration_info")}, 2},
      {Points(4, ""),
       {ReadStart("calibration_info"), Error(kMissingElement, "sample_points_nm")},
       0},
      {Points(5, R"(<sample_points_nm nr_elements="3" values="1 2 3"/>)"),
       {ReadStart("calibration_info")},
       3},
      {Points(17, kOnePoint), {ReadStart("calibration_info")}, 1},
      {"<calibration_info>" + kOnePoint + "</calibration_info>",
       Refused("calibration_info", kMissingVersion), 0},
      {Points(-3, kOnePoint), Refused("calibration_info"), 0},
  };
  for (const Case& c : cases) {
    CalibrationInfo grid;
    EXPECT_EQ(Events(Read(grid, c.xml)), c.events) << c.xml;
    EXPECT_EQ(grid.sample_points_nm.size(), c.points) << c.xml;
  }
}

TEST(CalibrationInfoChecks, EmptyAndBackwardGridsWarn) {
  const std::vector<std::pair<std::vector<double>, EventList>> cases = {
      {{}, {CheckWarning("!sample_points_nm.empty ()")}},
      {{900.0, 500.0}, {CheckWarning("sample_points_nm.front () <= sample_points_nm.back ()")}},
      {{500.0}, {}}};
  for (const auto& [points, events] : cases) {
    CalibrationInfo grid;
    grid.sample_points_nm = points;
    EXPECT_EQ(Checks(grid), events) << points.size();
  }
}

TEST(CalibrationInfoWriting, RoundTripKeepsSixDigitsPerPoint) {
  CalibrationInfo grid;
  for (int i = 0; i <= 600; ++i) {
    grid.sample_points_nm.push_back(400.0 + i * 0.5);
  }
  CalibrationInfo copy;
  const std::string text = grid.WriteString();
  EXPECT_NE(text.find(R"(<calibration_info version="5">)"), std::string::npos) << text;
  EXPECT_EQ(Events(Read(copy, text)), (EventList{ReadStart("calibration_info")}));
  EXPECT_TRUE(copy == grid);

  CalibrationInfo fine;
  fine.sample_points_nm = {1234.5678};
  Read(copy, fine.WriteString());
  EXPECT_EQ(copy.sample_points_nm, std::vector<double>{1234.57});
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

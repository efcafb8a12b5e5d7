#include <kelto/common/region_of_interest.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::common {
namespace {

using namespace kelto::testing;  // NOLINT: the event short forms

EventTriple Missing(const char* name) {
  return Error(kMissingElement, name);
}

TEST(RegionOfInterestXml, RoundTripKeepsEveryDigit) {
  const RegionOfInterest written(0.1, 2.25, 640.0, 1.0 / 3.0);
  const std::string text = written.WriteString();
  EXPECT_NE(text.find("<region_of_interest>"), std::string::npos) << text;
  RegionOfInterest read;
  EXPECT_EQ(Events(Read(read, text)), EventList{ReadStart("region_of_interest")});
  EXPECT_EQ(read, written);
}

TEST(RegionOfInterestXml, MissingOrUnreadableValuesAreEventsAndZeroButNoCheckRuns) {
  // The tag is whatever the owner named the element; the sanity checks are not part of reading.
  const std::vector<std::tuple<std::string, RegionOfInterest, EventList>> cases = {
      {"<filter_area><offset_x>4</offset_x><offset_y>8</offset_y><width>16</width>"
       "<height>32</height></filter_area>",
       RegionOfInterest(4, 8, 16, 32),
       {ReadStart("filter_area")}},
      {"<filter_area><width> 16 </width><height>tall</height></filter_area>",
       RegionOfInterest(0, 0, 16, 0),
       {ReadStart("filter_area"), Missing("offset_x"), Missing("offset_y"), Missing("height")}},
      {"<r><offset_x>-1</offset_x><offset_y>0</offset_y><width>0</width><height>0</height></r>",
       RegionOfInterest(-1, 0, 0, 0),
       {ReadStart("r")}},
  };
  for (auto const& [document, expected, events] : cases) {
    RegionOfInterest read(1, 2, 3, 4);
    EXPECT_EQ(Events(Read(read, document)), events) << document;
    EXPECT_EQ(read, expected) << document;
  }
}

TEST(RegionOfInterestChecks, EveryFailedConditionInOrderAndEveryFieldCompares) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::pair<RegionOfInterest, EventList>> cases = {
      {RegionOfInterest(-1, -0.5, 0, -3),
       {Check("0 < width"), Check("0 < height"), Check("0.0 <= offset_x"),
        Check("0.0 <= offset_y")}},
      {RegionOfInterest(), {Check("0 < width"), Check("0 < height")}},
      {RegionOfInterest(-1, -1, 1, 1), {Check("0.0 <= offset_x"), Check("0.0 <= offset_y")}},
      {RegionOfInterest(0, 0, nan, 1), {Check("0 < width")}},
      {RegionOfInterest(0, 0, 0.5, 1), {}},
  };
  for (auto const& [region, events] : cases) {
    EXPECT_EQ(Checks(region), events) << region.width << " x " << region.height;
  }

  // All four fields count in a comparison.
  const RegionOfInterest base(1, 2, 3, 4);
  EXPECT_EQ(base, RegionOfInterest(1, 2, 3, 4));
  for (const RegionOfInterest& other :
       {RegionOfInterest(9, 2, 3, 4), RegionOfInterest(1, 9, 3, 4), RegionOfInterest(1, 2, 9, 4),
        RegionOfInterest(1, 2, 3, 9)}) {
    EXPECT_NE(base, other);
  }
}

}  // namespace
}  // namespace kelto::common

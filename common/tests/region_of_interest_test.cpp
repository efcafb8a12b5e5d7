#include <kelto/common/region_of_interest.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace kelto::common {
namespace {

using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

Event ReadStart(const char* tag) {
  return Event(ParsingResult::Ok, Event::ReadStart, tag);
}
Event Missing(const char* name) {
  return Event(ParsingResult::Error, Event::MissingElement, name);
}
Event Check(const char* condition) {
  return Event(ParsingResult::Error, Event::SanityCheck, condition);
}

std::vector<Event> Events(ParsingResult const& result) {
  return {result.events().begin(), result.events().end()};
}

TEST(RegionOfInterestXml, RoundTripKeepsEveryDigit) {
  const RegionOfInterest written(0.1, 2.25, 640.0, 1.0 / 3.0);
  const std::string text = written.WriteString();
  EXPECT_NE(text.find("<region_of_interest>"), std::string::npos) << text;

  RegionOfInterest read;
  ParsingResult result;
  read.ReadString(result, text);
  EXPECT_EQ(read, written);
  EXPECT_EQ(Events(result), std::vector<Event>{ReadStart("region_of_interest")});
  EXPECT_EQ(result.state(), ParsingResult::Ok);
}

TEST(RegionOfInterestXml, TheTagIsWhateverTheOwnerNamedTheElement) {
  RegionOfInterest read;
  ParsingResult result;
  read.ReadString(result,
                  "<filter_area><offset_x>4</offset_x><offset_y>8</offset_y>"
                  "<width>16</width><height>32</height></filter_area>");
  EXPECT_EQ(read, RegionOfInterest(4, 8, 16, 32));
  EXPECT_EQ(Events(result), std::vector<Event>{ReadStart("filter_area")});
}

TEST(RegionOfInterestXml, EachMissingOrUnreadableValueIsAnEventAndFallsBackToZero) {
  RegionOfInterest read(1, 2, 3, 4);
  ParsingResult result;
  read.ReadString(result, "<filter_area><width> 16 </width><height>tall</height></filter_area>");
  EXPECT_EQ(read, RegionOfInterest(0, 0, 16, 0));
  EXPECT_EQ(Events(result), (std::vector<Event>{ReadStart("filter_area"), Missing("offset_x"),
                                                Missing("offset_y"), Missing("height")}));
  EXPECT_EQ(result.state(), ParsingResult::Error);
}

TEST(RegionOfInterestXml, ReadingDoesNotRunTheSanityChecks) {
  RegionOfInterest read;
  ParsingResult result;
  read.ReadString(result,
                  "<r><offset_x>-1</offset_x><offset_y>0</offset_y><width>0</width>"
                  "<height>0</height></r>");
  EXPECT_EQ(Events(result), std::vector<Event>{ReadStart("r")});
}

TEST(RegionOfInterestChecks, EveryFailedConditionInOrder) {
  ParsingResult all;
  RegionOfInterest(-1, -0.5, 0, -3).RunSanityChecks(all);
  EXPECT_EQ(Events(all), (std::vector<Event>{Check("0 < width"), Check("0 < height"),
                                             Check("0.0 <= offset_x"), Check("0.0 <= offset_y")}));

  ParsingResult defaults;
  RegionOfInterest().RunSanityChecks(defaults);
  EXPECT_EQ(Events(defaults), (std::vector<Event>{Check("0 < width"), Check("0 < height")}));

  ParsingResult offsets;
  RegionOfInterest(-1, -1, 1, 1).RunSanityChecks(offsets);
  EXPECT_EQ(Events(offsets),
            (std::vector<Event>{Check("0.0 <= offset_x"), Check("0.0 <= offset_y")}));

  ParsingResult nan;
  RegionOfInterest(0, 0, std::numeric_limits<double>::quiet_NaN(), 1).RunSanityChecks(nan);
  EXPECT_EQ(Events(nan), std::vector<Event>{Check("0 < width")});

  ParsingResult fine;
  RegionOfInterest(0, 0, 0.5, 1).RunSanityChecks(fine);
  EXPECT_TRUE(fine.events().empty());
  EXPECT_EQ(fine.state(), ParsingResult::Ok);
}

TEST(RegionOfInterestCompare, AllFourFieldsCount) {
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

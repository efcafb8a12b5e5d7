#include <kelto/hyperspectral/calibration/optical_component.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

OpticalComponent Longpass() {
  OpticalComponent component;
  component.type = OpticalComponents::OC_LONGPASS_FILTER;
  component.manufacturer = "Acme Optics";
  component.part_id = "LP-650";
  component.tag = "lp650";
  component.description = "long-pass edge filter";
  component.measurement = "spectrometer, 1 nm steps";
  component.measured = common::time::DateFromString("2023-04-05");
  component.sample_points_nm = {600.0, 650.5, 700.0, 750.25};
  component.response = {0.001, 0.5, 0.93125, 0.95};
  component.transmission_range_start_nm = 650.0;
  component.transmission_range_end_nm = 1000.0;
  return component;
}

TEST(OpticalComponentWriting, VersionTwoInTableOrderRoundTripsExactly) {
  const OpticalComponent original = Longpass();
  const std::string text = original.WriteString();
  ExpectInOrder(text, {R"(<optical_component version="2">)", "<type>longpass_filter</type>",
                       "<manufacturer", "<part_id", "<tag", "<description", "<measurement",
                       "<transmission_range_start_nm", "<transmission_range_end_nm",
                       "<measured>2023-04-05</measured>", "<sample_points_nm", "<response"});
  OpticalComponent copy;
  EXPECT_EQ(Events(Read(copy, text)), (EventList{ReadStart("optical_component")}));
  EXPECT_TRUE(copy == original) << text;

  // A newer version is read as the current one.
  OpticalComponent newer;
  EXPECT_EQ(Events(Read(newer, Replace(text, R"(version="2")", R"(version="9")"))),
            (EventList{ReadStart("optical_component")}));
  EXPECT_TRUE(newer == original);
}

TEST(OpticalComponentReading, EveryMissingItemIsAnErrorInFileOrder) {
  OpticalComponent component = Longpass();
  EventList expected = {ReadStart("optical_component")};
  for (const char* name : {"type", "manufacturer", "part_id", "tag", "description", "measurement",
                           "transmission_range_start_nm", "transmission_range_end_nm", "measured",
                           "sample_points_nm", "response"}) {
    expected.push_back(Error(kMissingElement, name));
  }
  EXPECT_EQ(Events(Read(component, R"(<optical_component version="2"/>)")), expected);
  OpticalComponent defaults;
  defaults.type = OpticalComponents::OC_UNKNOWN;
  EXPECT_TRUE(component == defaults);
  // The date defaults to the first of January 1900.
  EXPECT_EQ(component.measured.time_since_epoch().count(), -25567);
}

TEST(OpticalComponentReading, UnreadableDateFallsBackTo1900) {
  for (const std::string text : {"yesterday", "not-a-date-time", "2023-13-01"}) {
    OpticalComponent component;
    const auto result = Read(component, Replace(Longpass().WriteString(), "2023-04-05", text));
    EXPECT_EQ(Events(result),
              (EventList{ReadStart("optical_component"), Error(kMissingValue, "measured")}))
        << text;
    EXPECT_EQ(component.measured, common::time::DateFromString("1900-01-01")) << text;
    EXPECT_EQ(component.response, Longpass().response) << text;
  }
}

TEST(OpticalComponentReading, MissingAndNegativeVersionsReadNothing) {
  const std::vector<std::pair<std::string, int>> cases = {{"", kMissingVersion},
                                                          {R"(version="-2")", kUnsupportedVersion}};
  for (const auto& [version, source] : cases) {
    OpticalComponent component;
    const auto result = Read(component, "<optical_component " + version +
                                            "><type>source</type><manufacturer>m</manufacturer>"
                                            "<created>2001-02-03</created></optical_component>");
    EXPECT_EQ(Events(result), Refused("optical_component", source)) << version;
    EXPECT_TRUE(component == OpticalComponent()) << version;
  }
}

// ----- versions 0 and 1

// Opens the date parser of the older forms to the tests.
struct DateParser : OpticalComponent {
  using OpticalComponent::_ParseDate;
};

std::int32_t Days(const std::string& text) {
  return DateParser::_ParseDate(text).time_since_epoch().count();
}

std::int32_t DaysOf(const std::string& iso_date) {
  return common::time::DateFromString(iso_date).time_since_epoch().count();
}

TEST(OpticalComponentLegacy, ParseDateCountsDaysWithoutRangeChecks) {
  EXPECT_EQ(Days("1970-01-02"), 1);
  EXPECT_EQ(Days("1970-1-1"), 0);
  EXPECT_EQ(Days("1900-01-01"), -25567);
  EXPECT_EQ(Days("2024-02-29"), DaysOf("2024-02-29"));
  // No range check: the thirteenth month is the next January, day 0 the day before the first.
  EXPECT_EQ(Days("2000-13-01"), DaysOf("2001-01-01"));
  EXPECT_EQ(Days("2001-03-00"), DaysOf("2001-02-28"));
  // The year is narrowed to 16 bits (70000 - 65536 = 4464), month and day to 8 (258 is 2).
  EXPECT_EQ(Days("70000-01-01"), DaysOf("4464-01-01"));
  EXPECT_EQ(Days("2001-258-03"), DaysOf("2001-02-03"));
  // std::stoi reads the leading number of each part and skips blanks before it; a part without
  // one ends the read.
  EXPECT_EQ(Days(" 2001-2a-3rd"), DaysOf("2001-02-03"));
  for (const char* text : {"x-02-03", "2001-x-03", "2001-02-x"}) {
    EXPECT_THROW(Days(text), std::invalid_argument) << text;
  }

  // Anything that is not three parts around two hyphens is 1 January 1900.
  for (const char* text :
       {"yesterday", "", "2001-02", "20010203", "--", "2001--03", "2001-02-03\n"}) {
    EXPECT_EQ(Days(text), -25567) << text;
  }
  // So is a text longer than any date, rather than a long walk of the regular expression.
  EXPECT_EQ(Days(std::string(5000, '1') + "-1-1"), -25567);
}

TEST(OpticalComponentLegacy, VersionZeroSpreadsTheCurveByRunningAddition) {
  OpticalComponent component;
  const std::string head = R"(<optical_component version="0"><created>1970-01-03</created>
      <wavelength_start_nm>400</wavelength_start_nm><wavelength_end_nm>500</wavelength_end_nm>)";
  auto result = Read(component, head + R"(<response nr_elements="3" values="0.1 0.9 0.2"/>
      </optical_component>)");
  EventList expected = {ReadStart("optical_component")};
  for (const char* name : {"type", "manufacturer", "part_id", "tag", "description", "measurement",
                           "transmission_range_start_nm", "transmission_range_end_nm"}) {
    expected.push_back(Error(kMissingElement, name));
  }
  EXPECT_EQ(Events(result), expected);
  EXPECT_EQ(component.sample_points_nm, (std::vector<double>{400.0, 450.0, 500.0}));
  EXPECT_EQ(component.response, (std::vector<double>{0.1, 0.9, 0.2}));
  EXPECT_EQ(component.measured.time_since_epoch().count(), 2);

  // Running addition: with a step of a tenth the last point is not exactly the end.
  Read(component, Replace(head, "500", "400.3") +
                      R"(<response nr_elements="4" values="1 1 1 1"/></optical_component>)");
  ASSERT_EQ(component.sample_points_nm.size(), 4u);
  const double step = (400.3 - 400.0) / 3.0;
  EXPECT_EQ(component.sample_points_nm[3], ((400.0 + step) + step) + step);

  // One value is one point at the start, none is no point; no step is computed for either.
  Read(component, head + R"(<response nr_elements="1" values="0.5"/></optical_component>)");
  EXPECT_EQ(component.sample_points_nm, std::vector<double>{400.0});
  result = Read(component, head + "</optical_component>");
  EXPECT_TRUE(component.sample_points_nm.empty());
  EXPECT_EQ(NotOk(result).back(), Error(kMissingElement, "response"));
}

TEST(OpticalComponentChecks, EmptyNegativeAndBackwardCurvesAreWarnings) {
  OpticalComponent component = Longpass();
  EXPECT_TRUE(Checks(component).empty());
  const EventList backwards = {
      CheckWarning("sample_points_nm.front () <= sample_points_nm.back ()")};
  const std::vector<std::pair<std::vector<double>, EventList>> cases = {
      {{}, {CheckWarning("!sample_points_nm.empty ()")}},
      {{-1.0, -2.0}, {CheckWarning("0.0 <= sample_points_nm.front ()"), backwards[0]}},
      {{std::nan(""), 500.0}, {CheckWarning("0.0 <= sample_points_nm.front ()"), backwards[0]}},
      {{500.0, 400.0}, backwards},
  };
  for (const auto& [points, events] : cases) {
    component.sample_points_nm = points;
    EXPECT_EQ(Checks(component), events) << points.size();
  }
  ParsingResult result;
  component.RunSanityChecks(result);
  EXPECT_EQ(result.state(), kWarning);
}

TEST(OpticalComponentFriendlyName, EdgeFiltersSourcesAndRanges) {
  OpticalComponent component = Longpass();
  EXPECT_EQ(component.GetFriendlyName(), "longpass filter: 650.0nm (Acme Optics)");
  component.type = OpticalComponents::OC_SHORTPASS_FILTER;
  component.transmission_range_end_nm = 712.36;
  EXPECT_EQ(component.GetFriendlyName(), "shortpass filter: 712.4nm (Acme Optics)");

  // A source shows the name behind the tag's prefix, which it must have.
  OpticalComponent lamp;
  lamp.type = OpticalComponents::OC_SOURCE;
  lamp.tag = "SOURCE_Halogen 3200K";
  lamp.manufacturer = "Lumen";
  EXPECT_EQ(lamp.GetFriendlyName(), "source: Halogen 3200K (Lumen)");
  lamp.tag = "SOURCE_";
  EXPECT_EQ(lamp.GetFriendlyName(), "source:  (Lumen)");
  lamp.tag = "SOURCE";
  EXPECT_THROW(lamp.GetFriendlyName(), std::invalid_argument);

  // Range edges beyond the curve show two different markers.
  OpticalComponent filter;
  filter.type = OpticalComponents::OC_BANDPASS_FILTER;
  filter.manufacturer = "Acme";
  filter.sample_points_nm = {400.0, 500.0, 800.0};
  const std::vector<std::tuple<double, double, std::string>> ranges = {
      {450.0, 800.0, "bandpass filter: 450.0-800.0nm (Acme)"},
      {350.0, 800.0, "bandpass filter: ...-800.0nm (Acme)"},
      {350.0, 800.5, "bandpass filter: ...- ... nm (Acme)"},
      {400.0, 800.5, "bandpass filter: 400.0- ... nm (Acme)"}};
  for (const auto& [start, end, name] : ranges) {
    filter.transmission_range_start_nm = start;
    filter.transmission_range_end_nm = end;
    EXPECT_EQ(filter.GetFriendlyName(), name);
  }
  filter.type = OpticalComponents::OC_LINEAR_POLARIZER;
  EXPECT_EQ(filter.GetFriendlyName(), "linear polarizer: 400.0- ... nm (Acme)");
  filter.sample_points_nm.clear();
  EXPECT_THROW(filter.GetFriendlyName(), std::invalid_argument);
}

TEST(OpticalComponentEquality, EveryFieldCounts) {
  const OpticalComponent base = Longpass();
  std::vector<OpticalComponent> variants(11, base);
  variants[0].type = OpticalComponents::OC_BANDPASS_FILTER;
  variants[1].manufacturer += "x";
  variants[2].part_id += "x";
  variants[3].tag += "x";
  variants[4].description += "x";
  variants[5].measurement += "x";
  variants[6].measured += common::time::Date::duration(1);
  variants[7].sample_points_nm.pop_back();
  variants[8].response[1] = 0.51;
  variants[9].transmission_range_start_nm += 0.5;
  variants[10].transmission_range_end_nm += 0.5;
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == base) << i;
  }
  OpticalComponent nan = base;
  nan.response[0] = std::nan("");
  EXPECT_FALSE(nan == nan);
}

}  // namespace
}  // namespace kelto::hyperspectral

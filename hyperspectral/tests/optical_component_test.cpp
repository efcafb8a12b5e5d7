#include <kelto/hyperspectral/calibration/optical_component.h>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingValue = 20, kSanityCheck = 30, kReadStart = 40;

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

TEST(OpticalComponentDefaults, MeasuredOnFirstJanuary1900) {
  const OpticalComponent component;
  EXPECT_EQ(component.measured, common::time::DateFromString("1900-01-01"));
  EXPECT_EQ(component.measured.time_since_epoch().count(), -25567);
  EXPECT_EQ(component.type, OpticalComponents::OC_NONE);
}

TEST(OpticalComponentWriting, RoundTripsExactly) {
  const OpticalComponent original = Longpass();
  OpticalComponent copy;
  const auto result = Read(copy, original.WriteString());
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "optical_component"}}));
  EXPECT_TRUE(copy == original) << original.WriteString();
}

TEST(OpticalComponentWriting, CurrentFormIsVersionTwoInTableOrder) {
  const std::string text = Longpass().WriteString();
  EXPECT_NE(text.find(R"(<optical_component version="2">)"), std::string::npos) << text;
  EXPECT_NE(text.find("<type>longpass_filter</type>"), std::string::npos) << text;
  EXPECT_NE(text.find("<measured>2023-04-05</measured>"), std::string::npos) << text;
  std::size_t last = 0;
  for (const char* name : {"type", "manufacturer", "part_id", "tag", "description", "measurement",
                           "transmission_range_start_nm", "transmission_range_end_nm", "measured",
                           "sample_points_nm", "response"}) {
    const std::size_t at = text.find(std::string("<") + name);
    ASSERT_NE(at, std::string::npos) << name;
    EXPECT_GT(at, last) << name;
    last = at;
  }
}

TEST(OpticalComponentReading, EveryMissingItemIsAnErrorInFileOrder) {
  OpticalComponent component = Longpass();
  const auto result = Read(component, R"(<optical_component version="2"/>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "optical_component"},
                                       {kError, kMissingElement, "type"},
                                       {kError, kMissingElement, "manufacturer"},
                                       {kError, kMissingElement, "part_id"},
                                       {kError, kMissingElement, "tag"},
                                       {kError, kMissingElement, "description"},
                                       {kError, kMissingElement, "measurement"},
                                       {kError, kMissingElement, "transmission_range_start_nm"},
                                       {kError, kMissingElement, "transmission_range_end_nm"},
                                       {kError, kMissingElement, "measured"},
                                       {kError, kMissingElement, "sample_points_nm"},
                                       {kError, kMissingElement, "response"}}));
  OpticalComponent expected;
  expected.type = OpticalComponents::OC_UNKNOWN;
  EXPECT_TRUE(component == expected);
}

TEST(OpticalComponentReading, UnreadableDateFallsBackTo1900) {
  for (const char* text : {"yesterday", "not-a-date-time", "2023-13-01"}) {
    OpticalComponent component = Longpass();
    const auto result = Read(component, std::string(R"(<optical_component version="2">
        <type>source</type><manufacturer/><part_id/><tag/><description/><measurement/>
        <transmission_range_start_nm>0</transmission_range_start_nm>
        <transmission_range_end_nm>0</transmission_range_end_nm><measured>)") +
                                            text + R"(</measured>
        <sample_points_nm nr_elements="0" values=""/><response nr_elements="0" values=""/>
        </optical_component>)");
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "optical_component"},
                                         {kError, kMissingValue, "measured"}}))
        << text;
    EXPECT_EQ(component.measured, OpticalComponent().measured) << text;
    EXPECT_EQ(component.type, OpticalComponents::OC_SOURCE);
  }
}

TEST(OpticalComponentReading, CountBeyondTheValuesIsAnErrorWithoutAllocation) {
  OpticalComponent component;
  const auto result = Read(component, R"(<optical_component version="2">
      <type>bandpass_filter</type><manufacturer>m</manufacturer><part_id>p</part_id>
      <tag>t</tag><description>d</description><measurement>x</measurement>
      <transmission_range_start_nm>400</transmission_range_start_nm>
      <transmission_range_end_nm>700</transmission_range_end_nm>
      <measured>2020-01-01</measured>
      <sample_points_nm nr_elements="18446744073709551615" values="400 500 600"/>
      <response nr_elements="3" values="0.5 0.9 0.5"/></optical_component>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "optical_component"},
                                       {kError, kMissingElement, "sample_points_nm"}}));
  EXPECT_LE(component.sample_points_nm.size(), 3u);
  EXPECT_LE(component.sample_points_nm.capacity(), 1024u);
  EXPECT_EQ(component.response, (std::vector<double>{0.5, 0.9, 0.5}));
}

TEST(OpticalComponentDispatch, NewerVersionIsReadAsTheCurrentOne) {
  OpticalComponent component;
  std::string text = Longpass().WriteString();
  text.replace(text.find(R"(version="2")"), 11, R"(version="9")");
  const auto result = Read(component, text);
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "optical_component"}}));
  EXPECT_TRUE(component == Longpass());
}

TEST(OpticalComponentDispatch, OlderMissingAndNegativeVersionsReadNothing) {
  const std::vector<std::pair<std::string, EventList>> cases = {
      {R"(version="1")",
       {{kOk, kReadStart, "optical_component"},
        {kError, kUnsupportedVersion, "optical_component"}}},
      {R"(version="0")",
       {{kOk, kReadStart, "optical_component"},
        {kError, kUnsupportedVersion, "optical_component"}}},
      {"",
       {{kOk, kReadStart, "optical_component"}, {kError, kMissingVersion, "optical_component"}}},
      {R"(version="-2")",
       {{kOk, kReadStart, "optical_component"},
        {kError, kUnsupportedVersion, "optical_component"}}},
  };
  for (const auto& [version, events] : cases) {
    OpticalComponent component;
    const auto result = Read(component, "<optical_component " + version +
                                            "><type>source</type><manufacturer>m</manufacturer>"
                                            "<created>2001-02-03</created></optical_component>");
    EXPECT_EQ(Events(result), events) << version;
    EXPECT_TRUE(component == OpticalComponent()) << version;
  }
}

TEST(OpticalComponentChecks, EmptyCurveIsOneWarningAndNothingMore) {
  OpticalComponent component;
  component.sample_points_nm.clear();
  OpticalComponent::ParsingResult result;
  component.RunSanityChecks(result);
  EXPECT_EQ(Events(result), (EventList{{kWarning, kSanityCheck, "!sample_points_nm.empty ()"}}));
}

TEST(OpticalComponentChecks, NegativeStartAndBackwardCurveAreWarnings) {
  OpticalComponent component = Longpass();
  OpticalComponent::ParsingResult passes;
  component.RunSanityChecks(passes);
  EXPECT_TRUE(passes.events().empty());

  component.sample_points_nm = {-1.0, -2.0};
  OpticalComponent::ParsingResult both;
  component.RunSanityChecks(both);
  EXPECT_EQ(Events(both), (EventList{{kWarning, kSanityCheck, "0.0 <= sample_points_nm.front ()"},
                                     {kWarning, kSanityCheck,
                                      "sample_points_nm.front () <= sample_points_nm.back ()"}}));
  EXPECT_EQ(both.state(), kWarning);

  component.sample_points_nm = {std::nan(""), 500.0};
  OpticalComponent::ParsingResult nan;
  component.RunSanityChecks(nan);
  EXPECT_EQ(Events(nan), Events(both));

  component.sample_points_nm = {500.0, 400.0};
  OpticalComponent::ParsingResult backwards;
  component.RunSanityChecks(backwards);
  EXPECT_EQ(Events(backwards),
            (EventList{{kWarning, kSanityCheck,
                        "sample_points_nm.front () <= sample_points_nm.back ()"}}));
}

TEST(OpticalComponentFriendlyName, EdgeFiltersShowTheirOneEdge) {
  OpticalComponent component = Longpass();
  EXPECT_EQ(component.GetFriendlyName(), "longpass filter: 650.0nm (Acme Optics)");
  component.type = OpticalComponents::OC_SHORTPASS_FILTER;
  component.transmission_range_end_nm = 712.36;
  EXPECT_EQ(component.GetFriendlyName(), "shortpass filter: 712.4nm (Acme Optics)");
}

TEST(OpticalComponentFriendlyName, SourceShowsTheNameBehindTheTagPrefix) {
  OpticalComponent lamp;
  lamp.type = OpticalComponents::OC_SOURCE;
  lamp.tag = "SOURCE_Halogen 3200K";
  lamp.manufacturer = "Lumen";
  EXPECT_EQ(lamp.GetFriendlyName(), "source: Halogen 3200K (Lumen)");
  lamp.tag = "SOURCE_";
  EXPECT_EQ(lamp.GetFriendlyName(), "source:  (Lumen)");
  lamp.tag = "SOURCE";
  EXPECT_THROW(lamp.GetFriendlyName(), std::invalid_argument);
}

TEST(OpticalComponentFriendlyName, RangeEdgesBeyondTheCurveShowTwoDifferentMarkers) {
  OpticalComponent filter;
  filter.type = OpticalComponents::OC_BANDPASS_FILTER;
  filter.manufacturer = "Acme";
  filter.sample_points_nm = {400.0, 500.0, 800.0};
  filter.transmission_range_start_nm = 450.0;
  filter.transmission_range_end_nm = 800.0;
  EXPECT_EQ(filter.GetFriendlyName(), "bandpass filter: 450.0-800.0nm (Acme)");
  filter.transmission_range_start_nm = 350.0;
  EXPECT_EQ(filter.GetFriendlyName(), "bandpass filter: ...-800.0nm (Acme)");
  filter.transmission_range_end_nm = 800.5;
  EXPECT_EQ(filter.GetFriendlyName(), "bandpass filter: ...- ... nm (Acme)");
  filter.transmission_range_start_nm = 400.0;
  EXPECT_EQ(filter.GetFriendlyName(), "bandpass filter: 400.0- ... nm (Acme)");

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

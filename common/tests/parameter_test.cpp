#include <kelto/common/parameter.h>
#include <kelto/common/parameter_container.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace {

using kelto::common::EnumParameter;
using kelto::common::IntegerParameter;
using kelto::common::Parameter;
using kelto::common::ParameterContainer;
using kelto::common::PathParameter;
using kelto::common::RealParameter;
using kelto::common::StringParameter;
using kelto::common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;
using testing::Contains;

// Everything a container holds, one line per item, so that two containers compare as text and a
// difference shows where it is.
void Describe(const ParameterContainer& container, const std::string& indent, std::ostream& out) {
  out << indent << "container name=" << container.GetName() << " title=" << container.GetTitle()
      << " description=" << container.GetDescription() << '\n';
  for (std::size_t i = 0; i < container.GetParameterCount(); ++i) {
    const Parameter& p = container.GetParameter(i);
    out << indent << "  " << p.GetKind() << " title=" << p.GetTitle()
        << " description=" << p.GetDescription() << " group=" << p.GetGroup()
        << " hidden=" << p.IsHidden();
    out.precision(17);
    if (const auto* real = dynamic_cast<const RealParameter*>(&p)) {
      out << " value=" << real->GetValue() << " range=" << real->GetValidationCriteria().first
          << ".." << real->GetValidationCriteria().second;
    } else if (const auto* integer = dynamic_cast<const IntegerParameter*>(&p)) {
      out << " value=" << integer->GetValue() << " range=" << integer->GetValidationCriteria().first
          << ".." << integer->GetValidationCriteria().second;
    } else if (const auto* enumeration = dynamic_cast<const EnumParameter*>(&p)) {
      out << " value=" << enumeration->GetValue() << " table=";
      for (const auto& [value, text] : enumeration->GetValidationCriteria()) {
        out << value << ':' << text << ';';
      }
    } else if (const auto* path = dynamic_cast<const PathParameter*>(&p)) {
      out << " value=" << path->GetValue().ToString() << " list=";
      for (const auto& allowed : path->GetValidationCriteria()) {
        out << allowed << ';';
      }
    } else if (const auto* text = dynamic_cast<const StringParameter*>(&p)) {
      out << " value=" << text->GetValue() << " pattern=" << text->GetValidationCriteria();
    }
    out << '\n';
  }
  for (std::size_t i = 0; i < container.GetChildCount(); ++i) {
    out << indent << " child " << container.GetChildName(i) << '\n';
    Describe(container.GetChild(i), indent + "    ", out);
  }
}

std::string Describe(const ParameterContainer& container) {
  std::ostringstream out;
  Describe(container, "", out);
  return out.str();
}

template <typename V, typename P>
void ExpectValid(P const& parameter, std::vector<std::pair<V, bool>> const& cases) {
  for (auto const& [value, valid] : cases) {
    EXPECT_EQ(parameter.IsValid(value), valid)
        << parameter.GetTitle() << " " << testing::PrintToString(value);
  }
}

// A container with every kind, unusual values and criteria, a hidden parameter and two levels of
// children.
ParameterContainer MakeContainer() {
  ParameterContainer root("Analysis", "Parameters of the analysis", "PM_Analysis");

  RealParameter real("Tikhonov alpha", "The alpha <value> & \"more\".", "Optimization");
  real.SetValue(0.1 + 0.2);
  real.GetValidationCriteria() = {std::numeric_limits<double>::lowest(), 1e300};
  root.AddParameter(real);

  IntegerParameter count("Max. nr. peaks", "Unsigned field.", "Peaks");
  count.SetValue(-1);
  count.GetValidationCriteria() = {0, -1};
  root.AddParameter(count);

  IntegerParameter smallest("Offset", "", "Peaks");
  smallest.SetValue(std::numeric_limits<std::int64_t>::min());
  root.AddParameter(smallest);

  EnumParameter distribution("Distribution", "Shape of the fit.", "Fitting");
  distribution.GetValidationCriteria() = {{1, "Gaussian"}, {2, "Lorentzian"}, {3, "Fabry-Perot"}};
  distribution.SetValue(3);
  distribution.SetHidden(true);
  root.AddParameter(distribution);

  PathParameter directory("Debug dump dir", "Output directory.", "Debug");
  directory.SetValue(kelto::common::filesystem::Path("./débug dump/"));
  directory.GetValidationCriteria() = {"./debug_dump/", "./débug dump/"};
  root.AddParameter(directory);

  StringParameter label("Label", "Free text.", "");
  label.SetValue("");
  label.GetValidationCriteria() = "[a-z]*";
  root.AddParameter(label);

  ParameterContainer child("Peak detection", "Peak detection parameters");
  RealParameter qe("Min. QE", "Minimum peak QE.", "Peaks");
  qe.SetValue(-0.0);
  child.AddParameter(qe);
  ParameterContainer grandchild("Innermost", "");
  grandchild.AddParameter(StringParameter("Name", "", "Misc"));
  child.AddChild("Inner", grandchild);
  root.AddChild("Peak detection", child);
  root.AddChild("Correction matrix computation",
                ParameterContainer("Spectral correction computation", "Empty"));
  return root;
}

TEST(ParameterKinds, CriteriaDecideWhichValuesAreValid) {
  using Limits = std::numeric_limits<double>;
  RealParameter gain("Gain", "", "Signal");
  gain.GetValidationCriteria() = {0.0, 2.5};
  ExpectValid<double>(gain, {{0.0, true},
                             {2.5, true},
                             {-1e-300, false},
                             {2.5000000000000004, false},
                             {Limits::quiet_NaN(), false}});
  // The default criterion takes every finite value but not the infinities.
  ExpectValid<double>(RealParameter("Open", "", ""),
                      {{Limits::max(), true}, {Limits::infinity(), false}});

  IntegerParameter flag("Flag", "", "");
  flag.GetValidationCriteria() = {0, 1};
  ExpectValid<std::int64_t>(flag, {{1, true}, {2, false}, {-1, false}});
  // (0, -1) is the criterion of an unsigned long field: every bit pattern is a valid value.
  IntegerParameter count("Count", "", "");
  count.GetValidationCriteria() = {0, -1};
  ExpectValid<std::int64_t>(
      count, {{0, true}, {std::numeric_limits<std::int64_t>::max(), true}, {-1, true}});
  IntegerParameter offset("Offset", "", "");
  offset.GetValidationCriteria() = {-5, 5};
  ExpectValid<std::int64_t>(offset, {{-5, true}, {6, false}});

  EnumParameter shape("Shape", "", "");
  shape.GetValidationCriteria() = {{1, "Gaussian"}, {3, "Fabry-Perot"}};
  ExpectValid<std::int32_t>(shape, {{3, true}, {2, false}});

  using kelto::common::filesystem::Path;
  ExpectValid<Path>(PathParameter("Any", "", ""), {{Path("/anything/at/all"), true}});
  PathParameter listed("Listed", "", "");
  listed.GetValidationCriteria() = {"a/b", "c"};
  ExpectValid<Path>(listed, {{Path("c"), true}, {Path("a"), false}});

  StringParameter name("Name", "", "");
  ExpectValid<std::string>(name, {{"", true}});  // ".*" by default
  name.GetValidationCriteria() = "[a-z]+";
  // The whole value must match, not a part.
  ExpectValid<std::string>(name, {{"abc", true}, {"abc1", false}, {"", false}});
  name.GetValidationCriteria() = "([a-z";  // not an expression: nothing matches
  ExpectValid<std::string>(name, {{"a", false}});
  name.GetValidationCriteria() = std::string(StringParameter::kMaxPatternLength + 1, 'a');
  EXPECT_FALSE(name.IsValid(name.GetValidationCriteria()));
  // A long value does not exhaust the stack.
  name.GetValidationCriteria() = "(a|b)*c?";
  EXPECT_TRUE(name.IsValid(std::string(2000000, 'a')));
  EXPECT_FALSE(name.IsValid(std::string(2000000, 'a') + "d"));
}

TEST(ParameterContainer, CopiesAreIndependentAndLookupFindsByTitleAndGroup) {
  ParameterContainer original = MakeContainer();
  const ParameterContainer copy = original;
  dynamic_cast<RealParameter&>(original.GetParameter(0)).SetValue(42.0);
  original.GetChild(0).GetParameter(0).SetProperties("Changed", "", "");
  EXPECT_EQ(Describe(copy), Describe(MakeContainer()));
  EXPECT_NE(Describe(copy), Describe(original));

  // Lookup finds by title and group, a child's parameter only in the child, and lists the visible.
  ParameterContainer container = MakeContainer();
  // A child's parameter is the child's, not the parent's.
  EXPECT_EQ(container.FindParameter("Min. QE", "Peaks"), nullptr);
  EXPECT_EQ(container.FindParameter("Max. nr. peaks", "Fitting"), nullptr);
  EXPECT_EQ(container.FindParameter("Max. nr. peaks", "Peaks"), &container.GetParameter(1));
  ASSERT_NE(container.FindChild("Peak detection"), nullptr);
  EXPECT_EQ(container.FindChild("Peak detection")->GetName(), "Peak detection");
  EXPECT_EQ(container.FindChild("Spectral correction computation"), nullptr);

  std::vector<std::string> titles;
  for (const Parameter* parameter : std::as_const(container).GetVisibleParameters()) {
    titles.push_back(parameter->GetTitle());
  }
  EXPECT_EQ(titles, (std::vector<std::string>{"Tikhonov alpha", "Max. nr. peaks", "Offset",
                                              "Debug dump dir", "Label"}));
}

TEST(ParameterContainerXml, RoundTripKeepsEveryItemAndReadingReplacesTheContent) {
  const ParameterContainer original = MakeContainer();
  const std::string text = original.WriteString();

  ParsingResult result;
  ParameterContainer read;
  read.ReadString(result, text);
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_EQ(Describe(read), Describe(original));
  // The doubles come back bit for bit.
  EXPECT_EQ(dynamic_cast<const RealParameter&>(read.GetParameter(0)).GetValue(), 0.1 + 0.2);
  EXPECT_TRUE(std::signbit(
      dynamic_cast<const RealParameter&>(read.GetChild(0).GetParameter(0)).GetValue()));
  EXPECT_EQ(read.WriteString(), text);

  // Reading replaces the content.
  ParsingResult again;
  read.ReadString(again, ParameterContainer("Other", "Nothing in it").WriteString());
  EXPECT_EQ(again.state(), ParsingResult::Ok);
  EXPECT_EQ(read.GetName(), "Other");
  EXPECT_EQ(read.GetParameterCount(), 0u);
  EXPECT_EQ(read.GetChildCount(), 0u);
}

TEST(ParameterContainerXml, DamagedItemsBecomeEventsTheRestIsReadVersionsDispatch) {
  ParsingResult result;
  ParameterContainer container;
  container.ReadFile(result, KELTO_TEST_DATA_DIR "/damaged_parameter_container.xml");
  EXPECT_EQ(result.state(), ParsingResult::Error);
  for (const Event& event : {Event(ParsingResult::Warning, Event::SanityCheck,
                                   "parameter of unknown kind \"complex\" left out"),
                             Event(ParsingResult::Error, Event::MissingAttribute, "kind"),
                             Event(ParsingResult::Error, Event::MissingValue, "value"),
                             Event(ParsingResult::Warning, Event::MissingValue, "maximum"),
                             Event(ParsingResult::Error, Event::MissingVersion, "parameter"),
                             Event(ParsingResult::Error, Event::UnsupportedVersion, "parameter"),
                             Event(ParsingResult::Error, Event::MissingAttribute, "value"),
                             Event(ParsingResult::Warning, Event::MissingValue, "pattern"),
                             Event(ParsingResult::Error, Event::MissingAttribute, "link"),
                             Event(ParsingResult::Warning, Event::MissingValue, "description"),
                             // The anonymous child has neither list.
                             Event(ParsingResult::Error, Event::MissingElement, "parameters")}) {
    EXPECT_THAT(result.events(), Contains(event));
  }

  // Unknown and kindless parameters are left out; the others stay, with what could be read.
  ASSERT_EQ(container.GetParameterCount(), 5u);
  const auto& count = dynamic_cast<const IntegerParameter&>(container.GetParameter(0));
  EXPECT_EQ(count.GetTitle(), "Count");
  EXPECT_EQ(count.GetValidationCriteria().first, 0);
  EXPECT_EQ(count.GetValidationCriteria().second, std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(container.GetParameter(1).GetTitle(), "");  // unversioned: nothing read
  const auto& shape = dynamic_cast<const EnumParameter&>(container.GetParameter(3));
  EXPECT_TRUE(shape.IsHidden());
  EXPECT_EQ(shape.GetValidationCriteria(), (EnumParameter::Criteria{{2, "Lorentzian"}}));
  EXPECT_EQ(dynamic_cast<const StringParameter&>(container.GetParameter(4)).GetValue(), "abc");
  ASSERT_EQ(container.GetChildCount(), 1u);
  EXPECT_EQ(container.GetChildName(0), "");
  EXPECT_EQ(container.GetChild(0).GetName(), "Anonymous");

  // A missing or newer version reads nothing.
  ParsingResult missing;
  ParameterContainer versioned = MakeContainer();
  versioned.ReadString(missing, "<parameter_container><name>X</name></parameter_container>");
  EXPECT_THAT(missing.events(),
              Contains(Event(ParsingResult::Error, Event::MissingVersion, "parameter_container")));
  EXPECT_EQ(versioned.GetName(), "Analysis");  // nothing read

  ParsingResult newer;
  versioned.ReadString(newer, "<parameter_container version=\"1\"/>");
  EXPECT_THAT(newer.events(), Contains(Event(ParsingResult::Error, Event::UnsupportedVersion,
                                             "parameter_container")));
  EXPECT_EQ(versioned.GetParameterCount(), MakeContainer().GetParameterCount());
}

}  // namespace

#include <kelto/common/parameter.h>
#include <kelto/common/parameter_container.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

bool HasEvent(const ParsingResult& result, ParsingResult::eParserState state,
              Event::eEventSource source, const std::string& detail) {
  for (const Event& event : result.events()) {
    if (event.state == state && event.source == source && event.detail == detail) {
      return true;
    }
  }
  return false;
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

TEST(ParameterKinds, RealRangeIncludesBoundsAndRefusesNaN) {
  RealParameter parameter("Gain", "", "Signal");
  parameter.GetValidationCriteria() = {0.0, 2.5};
  EXPECT_TRUE(parameter.IsValid(0.0));
  EXPECT_TRUE(parameter.IsValid(2.5));
  EXPECT_FALSE(parameter.IsValid(-1e-300));
  EXPECT_FALSE(parameter.IsValid(2.5000000000000004));
  EXPECT_FALSE(parameter.IsValid(std::numeric_limits<double>::quiet_NaN()));
  // The default criterion takes every finite value but not the infinities.
  RealParameter open("Open", "", "");
  EXPECT_TRUE(open.IsValid(std::numeric_limits<double>::max()));
  EXPECT_FALSE(open.IsValid(std::numeric_limits<double>::infinity()));
}

TEST(ParameterKinds, IntegerRangeWithUnsignedAllOnesMaximum) {
  IntegerParameter flag("Flag", "", "");
  flag.GetValidationCriteria() = {0, 1};
  EXPECT_TRUE(flag.IsValid(1));
  EXPECT_FALSE(flag.IsValid(2));
  EXPECT_FALSE(flag.IsValid(-1));

  // (0, -1) is the criterion of an unsigned long field: every bit pattern is a valid value.
  IntegerParameter count("Count", "", "");
  count.GetValidationCriteria() = {0, -1};
  EXPECT_TRUE(count.IsValid(0));
  EXPECT_TRUE(count.IsValid(std::numeric_limits<std::int64_t>::max()));
  EXPECT_TRUE(count.IsValid(-1));

  IntegerParameter signed_range("Offset", "", "");
  signed_range.GetValidationCriteria() = {-5, 5};
  EXPECT_TRUE(signed_range.IsValid(-5));
  EXPECT_FALSE(signed_range.IsValid(6));
}

TEST(ParameterKinds, EnumPathAndStringCriteria) {
  EnumParameter shape("Shape", "", "");
  shape.GetValidationCriteria() = {{1, "Gaussian"}, {3, "Fabry-Perot"}};
  EXPECT_TRUE(shape.IsValid(3));
  EXPECT_FALSE(shape.IsValid(2));

  PathParameter any("Any", "", "");
  EXPECT_TRUE(any.IsValid(kelto::common::filesystem::Path("/anything/at/all")));
  PathParameter listed("Listed", "", "");
  listed.GetValidationCriteria() = {"a/b", "c"};
  EXPECT_TRUE(listed.IsValid(kelto::common::filesystem::Path("c")));
  EXPECT_FALSE(listed.IsValid(kelto::common::filesystem::Path("a")));

  StringParameter name("Name", "", "");
  EXPECT_TRUE(name.IsValid(""));  // ".*" by default
  name.GetValidationCriteria() = "[a-z]+";
  EXPECT_TRUE(name.IsValid("abc"));
  EXPECT_FALSE(name.IsValid("abc1"));  // the whole value must match, not a part
  EXPECT_FALSE(name.IsValid(""));
  name.GetValidationCriteria() = "([a-z";  // not an expression: nothing matches
  EXPECT_FALSE(name.IsValid("a"));
  name.GetValidationCriteria() = std::string(StringParameter::kMaxPatternLength + 1, 'a');
  EXPECT_FALSE(name.IsValid(name.GetValidationCriteria()));
}

TEST(ParameterKinds, LongValueDoesNotExhaustTheStack) {
  StringParameter name("Name", "", "");
  name.GetValidationCriteria() = "(a|b)*c?";
  EXPECT_TRUE(name.IsValid(std::string(2000000, 'a')));
  EXPECT_FALSE(name.IsValid(std::string(2000000, 'a') + "d"));
}

TEST(ParameterKinds, CreateByKindName) {
  for (const char* kind : {"real", "integer", "enum", "path", "string"}) {
    const auto parameter = Parameter::Create(kind);
    ASSERT_NE(parameter, nullptr) << kind;
    EXPECT_EQ(parameter->GetKind(), kind);
  }
  EXPECT_EQ(Parameter::Create("complex"), nullptr);
}

TEST(ParameterContainerCopy, CopiesAreIndependent) {
  ParameterContainer original = MakeContainer();
  const ParameterContainer copy = original;
  dynamic_cast<RealParameter&>(original.GetParameter(0)).SetValue(42.0);
  original.GetChild(0).GetParameter(0).SetProperties("Changed", "", "");
  EXPECT_EQ(Describe(copy), Describe(MakeContainer()));
  EXPECT_NE(Describe(copy), Describe(original));
}

TEST(ParameterContainerLookup, FindsByTitleAndGroupAndListsVisible) {
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

TEST(ParameterContainerXml, RoundTripKeepsEveryItem) {
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
}

TEST(ParameterContainerXml, ReadingReplacesTheContent) {
  ParameterContainer container = MakeContainer();
  ParsingResult result;
  container.ReadString(result, ParameterContainer("Other", "Nothing in it").WriteString());
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_EQ(container.GetName(), "Other");
  EXPECT_EQ(container.GetParameterCount(), 0u);
  EXPECT_EQ(container.GetChildCount(), 0u);
}

TEST(ParameterContainerXml, DamagedItemsBecomeEventsAndTheRestIsRead) {
  const std::string text = R"(<parameter_container version="0">
  <name>Damaged</name>
  <parameters>
    <parameter version="0" kind="complex"><title>Z</title></parameter>
    <parameter version="0"><title>No kind</title></parameter>
    <parameter version="0" kind="integer">
      <title>Count</title><description/><group>G</group><hidden>false</hidden>
      <value>twelve</value><minimum>0</minimum><maximum>99999999999999999999</maximum>
    </parameter>
    <parameter kind="real"><title>Unversioned</title></parameter>
    <parameter version="1" kind="real"><title>Future</title></parameter>
    <parameter version="0" kind="enum">
      <title>Shape</title><description/><group/><hidden>true</hidden><value>2</value>
      <enumerators><enumerator text="no value"/><enumerator value="2" text="Lorentzian"/>
      </enumerators>
    </parameter>
    <parameter version="0" kind="string"><title>Kept</title><value>abc</value></parameter>
  </parameters>
  <children><parameter_container version="0"><name>Anonymous</name></parameter_container>
  </children>
</parameter_container>)";
  ParsingResult result;
  ParameterContainer container;
  container.ReadString(result, text);

  EXPECT_EQ(result.state(), ParsingResult::Error);
  EXPECT_TRUE(HasEvent(result, ParsingResult::Warning, Event::SanityCheck,
                       "parameter of unknown kind \"complex\" left out"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::MissingAttribute, "kind"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::MissingValue, "value"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Warning, Event::MissingValue, "maximum"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::MissingVersion, "parameter"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::UnsupportedVersion, "parameter"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::MissingAttribute, "value"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Warning, Event::MissingValue, "pattern"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::MissingAttribute, "link"));
  EXPECT_TRUE(HasEvent(result, ParsingResult::Warning, Event::MissingValue, "description"));
  // The anonymous child has neither list.
  EXPECT_TRUE(HasEvent(result, ParsingResult::Error, Event::MissingElement, "parameters"));

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
}

TEST(ParameterContainerXml, VersionDispatch) {
  ParsingResult missing;
  ParameterContainer container = MakeContainer();
  container.ReadString(missing, "<parameter_container><name>X</name></parameter_container>");
  EXPECT_TRUE(
      HasEvent(missing, ParsingResult::Error, Event::MissingVersion, "parameter_container"));
  EXPECT_EQ(container.GetName(), "Analysis");  // nothing read

  ParsingResult newer;
  container.ReadString(newer, "<parameter_container version=\"1\"/>");
  EXPECT_TRUE(
      HasEvent(newer, ParsingResult::Error, Event::UnsupportedVersion, "parameter_container"));
  EXPECT_EQ(container.GetParameterCount(), MakeContainer().GetParameterCount());
}

}  // namespace

#include <kelto/common/processing_module.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/common/logger.h>
#include <kelto/common/parameter_container.h>
#include <kelto/common/parameter_translator.h>
#include <kelto/common/path.h>

#include <kelto/test_support/log_capture.h>

namespace {

using kelto::common::EnumParameter;
using kelto::common::IntegerParameter;
using kelto::common::Logger;
using kelto::common::Parameter;
using kelto::common::ParameterContainer;
using kelto::common::ParameterizedObject;
using kelto::common::ParameterTranslator;
using kelto::common::PathParameter;
using kelto::common::ProcessingModule;
using kelto::common::RealParameter;
using kelto::common::StringParameter;
using kelto::common::filesystem::Path;
using kelto::testing::LogCapture;

enum eColour : std::int32_t { C_RED = 0, C_GREEN = 1, C_BLUE = 2 };

// Exposes the registration operations to the tests, on a structure of its own. The test module
// owns one as its child and decides its "Flag".
class Registry : public ParameterizedObject {
 public:
  struct Fields : ParameterizedObject::Parameters {
    double real = 1.5;
    unsigned long unsigned_count = 7;
    bool flag = false;
    eColour colour = C_BLUE;
    Path path = "a/b";
    std::string text = "text";
    int small = -4;
  };

  void GetParameters(ParameterizedObject::Parameters& parameters) const override {
    dynamic_cast<Fields&>(parameters) = fields;
  }
  void SetParameters(ParameterizedObject::Parameters const& parameters) override {
    fields = dynamic_cast<const Fields&>(parameters);
  }
  using ParameterizedObject::GetParameters;
  using ParameterizedObject::SetParameters;

  using ParameterizedObject::_AddParameter;
  using ParameterizedObject::_ContainsParameterContainerLink;
  using ParameterizedObject::_ContainsParameterLink;
  using ParameterizedObject::_GetDistance;
  using ParameterizedObject::_GetTranslator;
  using ParameterizedObject::_HideParameter;
  using ParameterizedObject::_LinkParameterizedObject;
  using ParameterizedObject::_SetContainerInfo;

  void RegisterAll() {
    _AddParameter<double, Fields>(reference, reference.real, "Real", "", "G");
    _AddParameter<unsigned long, Fields>(reference, reference.unsigned_count, "Unsigned", "", "G");
    _AddParameter<bool, Fields>(reference, reference.flag, "Flag", "", "G");
    _AddParameter<eColour, Fields>(reference, reference.colour, "Colour", "", "G", {});
    _AddParameter<Path, Fields>(reference, reference.path, "Path", "", "G");
    _AddParameter<std::string, Fields>(reference, reference.text, "Text", "", "G");
    _AddParameter<int, Fields>(reference, reference.small, "Small", "", "G");
  }

  Fields fields;
  const Fields reference;
};

// The module under test: one field of each kind, a linked child, and every hook recording its
// call.
class TestModule : public ProcessingModule {
 public:
  class Parameters : public ProcessingModule::Parameters {
   public:
    bool debug_dump = false;                // configuration
    Path debug_dump_dir = "./debug_dump/";  // configuration
    double threshold = 0.5;                 // runtime, at least 0
    unsigned long count = 3;                // runtime
    eColour colour = C_GREEN;               // runtime
    std::string label = "none";             // runtime
  };

  class InitializationData : public ProcessingModule::InitializationData {
   public:
    int size = 0;
  };

  TestModule() : TestModule(Parameters()) {}
  explicit TestModule(const Parameters& parameters) : ProcessingModule("unnamed") {
    _SetupParameterContainer();
    ProcessingModule::_SetParameters(parameters);
  }

  // What the module holds, apart from any structure it was given.
  Parameters held;
  int size = 0;
  Registry child;
  mutable std::vector<std::string> calls;

 protected:
  void _GetParameters(ParameterizedObject::Parameters& parameters) const override {
    calls.push_back("_GetParameters");
    if (auto* forwarded = dynamic_cast<Registry::Fields*>(&parameters)) {
      child.GetParameters(*forwarded);
      return;
    }
    _CastParameters<Parameters>(parameters) = held;
  }

  void _CheckParameters(ParameterizedObject::Parameters const& parameters) const override {
    calls.push_back("_CheckParameters");
    if (dynamic_cast<const Registry::Fields*>(&parameters) != nullptr) {
      return;
    }
    if (_CastParameters<Parameters>(parameters).threshold < 0.0) {
      Logger::StaticError("threshold must be positive");
      throw std::invalid_argument("threshold must be positive");
    }
  }

  void _SetConfigurationParameters(ParameterizedObject::Parameters const& parameters) override {
    calls.push_back("_SetConfigurationParameters");
    const auto& own = _CastParameters<Parameters>(parameters);
    held.debug_dump = own.debug_dump;
    held.debug_dump_dir = own.debug_dump_dir;
    child.fields.flag = held.debug_dump;  // the child's flag follows the parent's debug flag
  }

  void _SetRuntimeParameters(ParameterizedObject::Parameters const& parameters) override {
    calls.push_back("_SetRuntimeParameters");
    if (const auto* forwarded = dynamic_cast<const Registry::Fields*>(&parameters)) {
      child.SetParameters(*forwarded);
      return;
    }
    const auto& own = _CastParameters<Parameters>(parameters);
    held.threshold = own.threshold;
    held.count = own.count;
    held.colour = own.colour;
    held.label = own.label;
  }

  void _Initialize(ProcessingModule::InitializationData const& data) override {
    calls.push_back("_Initialize");
    size = _CastInitializationData<InitializationData>(data).size;
  }
  void _Deallocate() override {
    calls.push_back("_Deallocate");
    size = 0;
  }
  void _Reset() override { calls.push_back("_Reset"); }

 private:
  void _SetupParameterContainer() {
    _SetContainerInfo("PM_Test", "Test module", "Parameters of the test module");
    static const Parameters my_parameters;
    _AddParameter<double, Parameters>(my_parameters, my_parameters.threshold, "Threshold",
                                      "Smallest accepted value.", "Limits", {0.0, 10.0});
    _AddParameter<unsigned long, Parameters>(my_parameters, my_parameters.count, "Count",
                                             "How many.", "Limits");
    _AddParameter<eColour, Parameters>(my_parameters, my_parameters.colour, "Colour",
                                       "Colour of the plot.", "Display",
                                       {{C_RED, "red"}, {C_GREEN, "green"}, {C_BLUE, "blue"}});
    _AddParameter<std::string, Parameters>(my_parameters, my_parameters.label, "Label",
                                           "A lower case name.", "Display", "[a-z]+");
    // The explicit form, as modules use it for bool fields and paths.
    _SetParametersFactory<Parameters>();
    _AddParameter<bool>(_GetDistance(my_parameters, my_parameters.debug_dump), "Enable debug dump",
                        "Dump intermediate results.", "Debug", {0, 1});
    _AddParameter<Path>(_GetDistance(my_parameters, my_parameters.debug_dump_dir), "Debug dump dir",
                        "Output directory.", "Debug", {});

    child._SetContainerInfo("Child", "Child", "Child parameters");
    child.RegisterAll();
    _LinkParameterizedObject(child, "Child module");
    if (_ContainsParameterContainerLink(child)) {
      _HideParameter(child, _GetDistance(child.reference, child.reference.flag));
    }
  }
};

template <typename Kind>
Kind& Find(ParameterContainer& container, const std::string& title, const std::string& group) {
  Parameter* parameter = container.FindParameter(title, group);
  if (parameter == nullptr) {
    throw std::runtime_error("no parameter " + title);
  }
  return dynamic_cast<Kind&>(*parameter);
}

// Every field of a structure, so that two compare at once and a difference shows where it is.
auto Values(TestModule::Parameters const& p) {
  return std::make_tuple(p.debug_dump, p.debug_dump_dir.ToString(), p.threshold, p.count, p.colour,
                         p.label);
}

TestModule::Parameters Changed() {
  TestModule::Parameters parameters;
  parameters.debug_dump = true;
  parameters.debug_dump_dir = "/tmp/dump";
  parameters.threshold = 2.0;
  parameters.count = 11;
  parameters.colour = C_BLUE;
  parameters.label = "changed";
  return parameters;
}

using Calls = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------
// Registration and links

TEST(ParameterizedObjectRegistration, SecondRegistrationAtTheSameDistanceKeepsTheFirst) {
  Registry registry;
  Parameter& first = registry._AddParameter<double, Registry::Fields>(
      registry.reference, registry.reference.real, "First", "first text", "G");
  Parameter& second = registry._AddParameter<double, Registry::Fields>(
      registry.reference, registry.reference.real, "Second", "second text", "H");
  EXPECT_EQ(&first, &second);
  EXPECT_EQ(second.GetDescription(), "first text");
  ParameterContainer container;
  registry.GetParameters(container);
  ASSERT_EQ(container.GetParameterCount(), 1u);
  EXPECT_EQ(container.GetParameter(0).GetTitle(), "First");
}

TEST(ParameterizedObjectRegistration, RefusesAmbiguityAndTheTranslatorFindsByDistanceAndKey) {
  Registry registry;
  registry.RegisterAll();
  EXPECT_THROW(registry._AddParameter<double>(
                   registry._GetDistance(registry.reference, registry.reference.real) + 1, "Real",
                   "", "G", {0.0, 1.0}),
               std::invalid_argument);
  // Before the factory knows the structure, no distance can be checked, so none is taken.
  Registry unset;
  EXPECT_THROW(unset._AddParameter<double>(sizeof(ParameterizedObject::Parameters), "X", "", "G",
                                           {0.0, 1.0}),
               std::invalid_argument);
  const double outside = 0.0;
  EXPECT_THROW(registry._GetDistance(registry.reference, outside), std::invalid_argument);
  EXPECT_THROW(registry._HideParameter(1000), std::invalid_argument);
  Registry stranger;
  EXPECT_THROW(registry._HideParameter(stranger, 0), std::invalid_argument);
  EXPECT_THROW(registry._LinkParameterizedObject(registry, "self"), std::invalid_argument);
  registry._LinkParameterizedObject(stranger, "one");
  Registry another;
  EXPECT_THROW(registry._LinkParameterizedObject(another, "one"), std::invalid_argument);
  EXPECT_TRUE(registry._ContainsParameterContainerLink(stranger));
  EXPECT_FALSE(registry._ContainsParameterContainerLink(another));

  // The translator keeps the order of registration and finds a link by distance and by key.
  const ParameterTranslator& translator = registry._GetTranslator();
  Calls titles;
  for (const auto& link : translator.GetParameterLinks()) {
    titles.push_back(link->ToParameter().GetTitle());
  }
  EXPECT_EQ(titles, (Calls{"Real", "Unsigned", "Flag", "Colour", "Path", "Text", "Small"}));

  const unsigned long distance = registry._GetDistance(registry.reference, registry.reference.flag);
  EXPECT_TRUE(registry._ContainsParameterLink(distance));
  EXPECT_FALSE(registry._ContainsParameterLink(distance + 1));
  EXPECT_EQ(translator.FindParameterLink("Flag", "G"), translator.FindParameterLink(distance));
  EXPECT_EQ(translator.FindParameterLink("Flag", "H"), nullptr);
  // Renamed after registration, the link is still found by its new texts.
  translator.FindParameterLink(distance)->SetProperties("Switch", "", "K");
  EXPECT_EQ(translator.FindParameterLink("Switch", "K"), translator.FindParameterLink(distance));
  EXPECT_EQ(translator.FindParameterLink("Flag", "G"), nullptr);
}

TEST(ParameterizedObjectLinks, ValuesCrossWithCriteriaOfTheFieldTypeAndInitializeInRawStorage) {
  Registry registry;
  registry.RegisterAll();
  registry.fields.unsigned_count = std::numeric_limits<unsigned long>::max();
  registry.fields.flag = true;
  registry.fields.colour = C_RED;
  registry.fields.real = -2.25;
  registry.fields.small = -9;

  ParameterContainer container;
  registry.GetParameters(container);
  auto& real = Find<RealParameter>(container, "Real", "G");
  auto& count = Find<IntegerParameter>(container, "Unsigned", "G");
  auto& flag = Find<IntegerParameter>(container, "Flag", "G");
  auto& colour = Find<EnumParameter>(container, "Colour", "G");
  auto& path = Find<PathParameter>(container, "Path", "G");
  auto& text = Find<StringParameter>(container, "Text", "G");
  auto& small = Find<IntegerParameter>(container, "Small", "G");
  EXPECT_EQ(real.GetValue(), -2.25);
  EXPECT_EQ(count.GetValue(), -1);
  EXPECT_EQ(flag.GetValue(), 1);
  EXPECT_EQ(colour.GetValue(), 0);
  EXPECT_EQ(path.GetValue().ToString(), "a/b");
  EXPECT_EQ(text.GetValue(), "text");
  EXPECT_EQ(small.GetValue(), -9);

  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(real.GetValidationCriteria(), std::make_pair(Limits::lowest(), Limits::max()));
  EXPECT_EQ(count.GetValidationCriteria(), (IntegerParameter::Criteria{0, -1}));
  EXPECT_EQ(flag.GetValidationCriteria(), (IntegerParameter::Criteria{0, 1}));
  EXPECT_EQ(small.GetValidationCriteria(),
            (IntegerParameter::Criteria{std::numeric_limits<int>::min(),
                                        std::numeric_limits<int>::max()}));
  EXPECT_TRUE(path.GetValidationCriteria().empty());
  EXPECT_EQ(text.GetValidationCriteria(), ".*");

  count.SetValue(-2);
  flag.SetValue(2);  // any non-zero value is true
  colour.SetValue(2);
  path.SetValue(Path("c/d"));
  text.SetValue("other");
  small.SetValue(12);
  registry.fields.flag = false;
  registry.SetParameters(container);
  EXPECT_EQ(registry.fields.unsigned_count, std::numeric_limits<unsigned long>::max() - 1);
  EXPECT_TRUE(registry.fields.flag);
  EXPECT_EQ(registry.fields.colour, C_BLUE);
  EXPECT_EQ(registry.fields.path.ToString(), "c/d");
  EXPECT_EQ(registry.fields.text, "other");
  EXPECT_EQ(registry.fields.small, 12);
  EXPECT_EQ(registry.fields.real, -2.25);

  // Extract ignores a parameter of another kind; initialize constructs in raw storage.
  const auto* link = registry._GetTranslator().FindParameterLink("Real", "G");
  ASSERT_NE(link, nullptr);
  Registry::Fields fields;
  StringParameter wrong("Real", "", "G");
  wrong.SetValue("3.5");
  link->ExtractValue(fields, wrong);
  EXPECT_EQ(fields.real, 1.5);
  RealParameter right("Real", "", "G");
  right.SetValue(3.5);
  link->ExtractValue(fields, right);
  EXPECT_EQ(fields.real, 3.5);

  // Paths and strings are constructed in storage that holds garbage.
  alignas(Registry::Fields) unsigned char storage[sizeof(Registry::Fields)];
  std::memset(storage, 0xff, sizeof storage);
  const auto& links = registry._GetTranslator().GetParameterLinks();
  for (const auto& each : links) {
    each->InitializeData(storage);
  }
  const Registry::Fields& reference = registry.reference;
  EXPECT_TRUE(std::launder(reinterpret_cast<std::string*>(
                               storage + registry._GetDistance(reference, reference.text)))
                  ->empty());
  EXPECT_TRUE(std::launder(reinterpret_cast<Path*>(
                               storage + registry._GetDistance(reference, reference.path)))
                  ->ToString()
                  .empty());
  for (const auto& each : links) {
    each->CleanData(storage);
  }
}

// ---------------------------------------------------------------------------------------------
// The module's parameters

TEST(ProcessingModuleParameters, ConstructorAppliesTheValuesCreateGivesDefaultsHalvesTheirOwn) {
  const TestModule module(Changed());
  EXPECT_EQ(Values(module.held), Values(Changed()));
  EXPECT_TRUE(module.child.fields.flag);  // slaved to the parent's debug flag
  EXPECT_EQ(module.calls,
            (Calls{"_CheckParameters", "_SetConfigurationParameters", "_SetRuntimeParameters"}));

  const std::unique_ptr<ParameterizedObject::Parameters> created = module.CreateParameters();
  const auto* parameters = dynamic_cast<const TestModule::Parameters*>(created.get());
  ASSERT_NE(parameters, nullptr);
  EXPECT_EQ(Values(*parameters), Values(TestModule::Parameters()));
  EXPECT_NE(dynamic_cast<const Registry::Fields*>(module.child.CreateParameters().get()), nullptr);

  // Each half changes only its own fields.
  TestModule halves;
  halves.calls.clear();
  halves.SetConfigurationParameters(Changed());
  TestModule::Parameters expected;
  expected.debug_dump = true;
  expected.debug_dump_dir = "/tmp/dump";
  EXPECT_EQ(Values(halves.held), Values(expected));
  EXPECT_EQ(halves.calls, (Calls{"_CheckParameters", "_SetConfigurationParameters"}));
  halves.calls.clear();
  halves.SetRuntimeParameters(Changed());
  EXPECT_EQ(Values(halves.held), Values(Changed()));
  EXPECT_EQ(halves.calls, (Calls{"_CheckParameters", "_SetRuntimeParameters"}));
}

TEST(ProcessingModuleParameters, HiddenChildParameterStillTravelsThroughTheStructure) {
  TestModule module;
  ParameterContainer container;
  module.GetParameters(container);
  const ParameterContainer* child = container.FindChild("Child module");
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->GetName() + "/" + child->GetDescription(), "Child/Child parameters");
  ASSERT_NE(child->FindParameter("Flag", "G"), nullptr);
  EXPECT_TRUE(child->FindParameter("Flag", "G")->IsHidden());
  EXPECT_EQ(child->GetVisibleParameters().size(), 6u);

  Registry::Fields parameters;
  parameters.flag = true;
  module.child.SetParameters(parameters);
  Registry::Fields read;
  module.GetParameters(read);  // forwarded to the child by type
  EXPECT_TRUE(read.flag);

  // A structure of the child's type changes the child, not the parent.
  parameters.real = 4.0;
  module.SetRuntimeParameters(parameters);
  EXPECT_EQ(module.child.fields.real, 4.0);
  EXPECT_EQ(Values(module.held), Values(TestModule::Parameters()));
}

TEST(ProcessingModuleParameters, GenericEditorListsAndSetsThroughAContainer) {
  TestModule module;
  ParameterContainer container;
  module.GetParameters(container);
  EXPECT_EQ(container.GetTitle(), "PM_Test");
  EXPECT_EQ(container.GetName(), "Test module");
  EXPECT_EQ(container.GetDescription(), "Parameters of the test module");
  Calls listed;
  for (const Parameter* parameter : container.GetVisibleParameters()) {
    listed.push_back(parameter->GetGroup() + "/" + parameter->GetTitle() + ": " +
                     parameter->GetDescription());
  }
  EXPECT_EQ(listed,
            (Calls{"Limits/Threshold: Smallest accepted value.", "Limits/Count: How many.",
                   "Display/Colour: Colour of the plot.", "Display/Label: A lower case name.",
                   "Debug/Enable debug dump: Dump intermediate results.",
                   "Debug/Debug dump dir: Output directory."}));

  // The editor checks input against the criteria before it takes it.
  auto& threshold = Find<RealParameter>(container, "Threshold", "Limits");
  EXPECT_EQ(threshold.GetValue(), 0.5);
  EXPECT_FALSE(threshold.IsValid(10.5));
  ASSERT_TRUE(threshold.IsValid(7.5));
  threshold.SetValue(7.5);
  auto& colour = Find<EnumParameter>(container, "Colour", "Display");
  EXPECT_EQ(colour.GetValidationCriteria().at(C_BLUE), "blue");
  EXPECT_FALSE(colour.IsValid(7));
  colour.SetValue(C_RED);
  auto& label = Find<StringParameter>(container, "Label", "Display");
  EXPECT_FALSE(label.IsValid("Not lower"));
  label.SetValue("edited");
  Find<IntegerParameter>(container, "Count", "Limits").SetValue(99);
  Find<IntegerParameter>(container, "Enable debug dump", "Debug").SetValue(1);
  Find<PathParameter>(container, "Debug dump dir", "Debug").SetValue(Path("out"));
  ParameterContainer* child = container.FindChild("Child module");
  ASSERT_NE(child, nullptr);
  Find<RealParameter>(*child, "Real", "G").SetValue(0.25);
  // The parent decides the hidden value; what the editor wrote there is not taken.
  Find<IntegerParameter>(*child, "Flag", "G").SetValue(0);

  module.calls.clear();
  module.SetParameters(container);
  EXPECT_EQ(Values(module.held),
            std::make_tuple(true, std::string("out"), 7.5, 99UL, C_RED, std::string("edited")));
  EXPECT_EQ(module.child.fields.real, 0.25);
  EXPECT_TRUE(module.child.fields.flag);
  EXPECT_EQ(module.calls, (Calls{"_GetParameters", "_CheckParameters",
                                 "_SetConfigurationParameters", "_SetRuntimeParameters"}));
}

TEST(ProcessingModuleParameters, ContainerFromAnotherVersionAppliesWhatMatches) {
  TestModule module;
  ParameterContainer container;
  module.GetParameters(container);
  Find<RealParameter>(container, "Threshold", "Limits").SetValue(3.0);
  container.AddParameter(RealParameter("Retired", "", "Limits"));
  StringParameter wrong_kind("Count", "", "Limits");
  wrong_kind.SetValue("12");
  ParameterContainer edited("Test module", "");
  edited.AddParameter(wrong_kind);
  for (std::size_t i = 0; i < container.GetParameterCount(); ++i) {
    if (container.GetParameter(i).GetTitle() != "Count") {
      edited.AddParameter(container.GetParameter(i));
    }
  }
  edited.AddChild("Unknown child", ParameterContainer("x", ""));

  LogCapture log;
  module.SetParameters(edited);
  EXPECT_EQ(module.held.threshold, 3.0);
  EXPECT_EQ(module.held.count, 3u);
  const Calls infos = log.Messages(Logger::eLevel::Info);
  ASSERT_EQ(infos.size(), 3u);
  EXPECT_NE(infos[0].find("\"Count\""), std::string::npos);
  EXPECT_NE(infos[1].find("\"Retired\""), std::string::npos);
  EXPECT_NE(infos[2].find("\"Unknown child\""), std::string::npos);
  EXPECT_TRUE(log.Messages(Logger::eLevel::Error).empty());
}

TEST(ProcessingModuleParameters, RefusedValuesLeaveEveryMemberUnchanged) {
  TestModule module;
  TestModule::Parameters bad = Changed();
  bad.threshold = -1.0;
  LogCapture log;
  EXPECT_THROW(module.SetParameters(bad), std::invalid_argument);
  EXPECT_THROW(module.SetConfigurationParameters(bad), std::invalid_argument);
  EXPECT_THROW(module.SetRuntimeParameters(bad), std::invalid_argument);
  ParameterContainer container;
  module.GetParameters(container);
  Find<RealParameter>(container, "Threshold", "Limits").SetValue(-1.0);
  Find<StringParameter>(container, "Label", "Display").SetValue("changed");
  EXPECT_THROW(module.SetParameters(container), std::invalid_argument);

  EXPECT_EQ(log.Messages(Logger::eLevel::Error), Calls(4, "threshold must be positive"));
  EXPECT_EQ(Values(module.held), Values(TestModule::Parameters()));
  EXPECT_FALSE(module.child.fields.flag);
}

TEST(ProcessingModuleLifecycle, WrongDynamicTypeIsRefusedAndLoggedAndTheCycleRunsItsHooks) {
  struct Foreign : ProcessingModule::Parameters {};
  TestModule module;
  Foreign foreign;
  const std::string parameters = ProcessingModule::kIncompatibleParameters;
  const std::string data = ProcessingModule::kIncompatibleInitializationData;
  const std::vector<std::pair<std::function<void()>, std::string>> calls = {
      {[&] { module.SetParameters(foreign); }, parameters},
      {[&] { module.SetConfigurationParameters(foreign); }, parameters},
      {[&] { module.SetRuntimeParameters(foreign); }, parameters},
      {[&] { module.GetParameters(foreign); }, parameters},
      {[&] { module.Initialize(ProcessingModule::InitializationData()); }, data}};
  LogCapture log;
  Calls expected;
  for (auto const& [call, text] : calls) {
    try {
      call();
      ADD_FAILURE() << "no exception for " << text;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), text);
    }
    expected.push_back(text);
  }
  EXPECT_EQ(log.Messages(Logger::eLevel::Error), expected);
  EXPECT_FALSE(module.IsInitialized());
  EXPECT_EQ(parameters, "incompatible parameters object");
  EXPECT_EQ(data, "incompatible initialization data object");

  // Initialize and Deallocate run their hooks.
  module.calls.clear();
  TestModule::InitializationData good;
  good.size = 5;
  module.Initialize(good);
  EXPECT_TRUE(module.IsInitialized());
  EXPECT_EQ(module.size, 5);
  module.Deallocate();
  EXPECT_FALSE(module.IsInitialized());
  EXPECT_EQ(module.size, 0);
  module.Initialize(good);
  EXPECT_EQ(module.calls, (Calls{"_Initialize", "_Deallocate", "_Initialize"}));
}

}  // namespace

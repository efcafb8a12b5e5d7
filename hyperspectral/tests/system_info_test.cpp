#include <kelto/hyperspectral/calibration/system_info.h>

#include <gtest/gtest.h>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

OpticalComponent Component(OpticalComponents::eType type, const std::string& part_id) {
  OpticalComponent component;
  component.type = type;
  component.manufacturer = "Acme";
  component.part_id = part_id;
  component.measured = common::time::DateFromString("2022-10-11");
  component.sample_points_nm = {450.0, 950.0};
  component.response = {0.25, 0.75};
  return component;
}

SystemInfo Sample() {
  SystemInfo system;
  system.optical_components = {Component(OpticalComponents::OC_LONGPASS_FILTER, "LP-450"),
                               Component(OpticalComponents::OC_LINEAR_POLARIZER, "POL-1")};
  CorrectionMatrix matrix;
  matrix.created = common::time::UniversalTimeFromString("2023-06-07T08:09:10Z");
  matrix.name = "main";
  matrix.algorithm = CorrectionAlgorithms::CA_PITCHFORK_0;
  matrix.type = CorrectionMatrixTypes::CT_REFLECTANCE;
  matrix.optical_components = {system.optical_components[0]};
  system.spectral_correction_info.correction_matrices = {matrix};
  return system;
}

const std::string kComponents = R"(<optical_components>
    <optical_component version="2"><type>source</type><manufacturer>Lumen</manufacturer>
    <part_id>H1</part_id><tag>SOURCE_Halogen</tag><description/><measurement/>
    <transmission_range_start_nm>400</transmission_range_start_nm>
    <transmission_range_end_nm>1000</transmission_range_end_nm><measured>2021-03-04</measured>
    <sample_points_nm nr_elements="2" values="400 1000"/>
    <response nr_elements="2" values="1 1"/></optical_component></optical_components>)";
const std::string kEmptyBlock =
    R"(<spectral_correction_info version="0"><correction_matrices/></spectral_correction_info>)";

TEST(SystemInfoWriting, ComponentsBeforeTheCorrectionBlockRoundTripExactly) {
  const SystemInfo original = Sample();
  const std::string text = original.WriteString();
  ExpectInOrder(text, {R"(<system_info version="0">)", "<optical_components>",
                       R"(<spectral_correction_info version="0">)"});
  SystemInfo copy;
  EXPECT_EQ(Events(Read(copy, text)),
            (EventList{ReadStart("system_info"), ReadStart("optical_component"),
                       ReadStart("optical_component"), ReadStart("spectral_correction_info"),
                       ReadStart("correction_matrix"), ReadStart("optical_component")}));
  EXPECT_TRUE(copy == original) << text;
}

TEST(SystemInfoReading, MissingCorrectionBlockIsOnlyAWarningAndKeepsWhatItHeld) {
  SystemInfo system = Sample();
  const SpectralCorrectionInfo held = system.spectral_correction_info;
  const auto result = Read(system, "<system_info version=\"0\">" + kComponents + "</system_info>");
  EXPECT_EQ(Events(result), (EventList{ReadStart("system_info"), ReadStart("optical_component"),
                                       Warning(kMissingElement, "spectral_correction_info")}));
  EXPECT_EQ(result.state(), kWarning);
  ASSERT_EQ(system.optical_components.size(), 1u);
  EXPECT_EQ(system.optical_components[0].GetFriendlyName(), "source: Halogen (Lumen)");
  EXPECT_TRUE(system.spectral_correction_info == held);
}

TEST(SystemInfoReading, MissingComponentListIsAnError) {
  SystemInfo system = Sample();
  EXPECT_EQ(Events(Read(system, R"(<system_info version="0">)" + kEmptyBlock + "</system_info>")),
            (EventList{ReadStart("system_info"), Error(kMissingElement, "optical_components"),
                       ReadStart("spectral_correction_info")}));
  EXPECT_TRUE(system.optical_components.empty());
  EXPECT_TRUE(system.spectral_correction_info.correction_matrices.empty());
}

TEST(SystemInfoReading, VersionDispatch) {
  for (const std::string attribute : {"", R"( version="-1")", R"( version="-7")"}) {
    SystemInfo system = Sample();
    const auto result =
        Read(system, "<system_info" + attribute + ">" + kComponents + "</system_info>");
    EXPECT_EQ(Events(result), Refused("system_info")) << attribute;
    EXPECT_TRUE(system == Sample()) << attribute;
  }
  // A newer version is read as version 0.
  SystemInfo system;
  EXPECT_EQ(Events(Read(system, R"(<system_info version="4">)" + kComponents + kEmptyBlock +
                                    "</system_info>")),
            (EventList{ReadStart("system_info"), ReadStart("optical_component"),
                       ReadStart("spectral_correction_info")}));
  EXPECT_EQ(system.optical_components.size(), 1u);
}

TEST(SystemInfoChecks, ComponentsInOrderThenTheCorrectionBlock) {
  SystemInfo system = Sample();
  EXPECT_TRUE(Checks(system).empty());
  system.optical_components[0].sample_points_nm.clear();
  system.optical_components[1].sample_points_nm = {-5.0, 100.0};
  system.spectral_correction_info.correction_matrices[0].algorithm =
      CorrectionAlgorithms::CA_UNKNOWN;
  EXPECT_EQ(Checks(system), (EventList{CheckWarning("!sample_points_nm.empty ()"),
                                       CheckWarning("0.0 <= sample_points_nm.front ()"),
                                       Check("CorrectionAlgorithms::CA_UNKNOWN != algorithm")}));
}

TEST(SystemInfoEquality, ComponentOrderAndCorrectionBlockCount) {
  const SystemInfo base = Sample();
  std::vector<SystemInfo> variants(3, base);
  std::swap(variants[0].optical_components[0], variants[0].optical_components[1]);
  variants[1].spectral_correction_info.correction_matrices[0].name = "other";
  variants[2].optical_components.pop_back();
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == base) << i;
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

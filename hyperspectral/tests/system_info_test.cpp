#include <kelto/hyperspectral/calibration/system_info.h>

#include <gtest/gtest.h>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingElement = 13, kSanityCheck = 30, kReadStart = 40;

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

TEST(SystemInfoWriting, RoundTripsExactly) {
  const SystemInfo original = Sample();
  SystemInfo copy;
  const auto result = Read(copy, original.WriteString());
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "system_info"},
                                       {kOk, kReadStart, "optical_component"},
                                       {kOk, kReadStart, "optical_component"},
                                       {kOk, kReadStart, "spectral_correction_info"},
                                       {kOk, kReadStart, "correction_matrix"},
                                       {kOk, kReadStart, "optical_component"}}));
  EXPECT_TRUE(copy == original) << original.WriteString();
}

TEST(SystemInfoWriting, ComponentsComeBeforeTheCorrectionBlock) {
  const std::string text = Sample().WriteString();
  const std::size_t root = text.find(R"(<system_info version="0">)");
  const std::size_t components = text.find("<optical_components>");
  const std::size_t block = text.find(R"(<spectral_correction_info version="0">)");
  ASSERT_NE(root, std::string::npos) << text;
  ASSERT_NE(block, std::string::npos) << text;
  EXPECT_LT(root, components);
  EXPECT_LT(components, block);
}

TEST(SystemInfoReading, MissingCorrectionBlockIsOnlyAWarningAndKeepsWhatItHeld) {
  SystemInfo system = Sample();
  const SpectralCorrectionInfo held = system.spectral_correction_info;
  const auto result = Read(system, "<system_info version=\"0\">" + kComponents + "</system_info>");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "system_info"},
                                       {kOk, kReadStart, "optical_component"},
                                       {kWarning, kMissingElement, "spectral_correction_info"}}));
  EXPECT_EQ(result.state(), kWarning);
  ASSERT_EQ(system.optical_components.size(), 1u);
  EXPECT_EQ(system.optical_components[0].GetFriendlyName(), "source: Halogen (Lumen)");
  EXPECT_TRUE(system.spectral_correction_info == held);

  SystemInfo fresh;
  Read(fresh, "<system_info version=\"0\">" + kComponents + "</system_info>");
  EXPECT_TRUE(fresh.spectral_correction_info.correction_matrices.empty());
}

TEST(SystemInfoReading, MissingComponentListIsAnError) {
  SystemInfo system = Sample();
  const auto result = Read(system, R"(<system_info version="0">
      <spectral_correction_info version="0"><correction_matrices/></spectral_correction_info>
      </system_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "system_info"},
                                       {kError, kMissingElement, "optical_components"},
                                       {kOk, kReadStart, "spectral_correction_info"}}));
  EXPECT_TRUE(system.optical_components.empty());
  EXPECT_TRUE(system.spectral_correction_info.correction_matrices.empty());
}

TEST(SystemInfoDispatch, EveryNegativeVersionIsUnsupportedAndReadsNothing) {
  for (const char* attribute : {"", R"( version="-1")", R"( version="-7")"}) {
    SystemInfo system = Sample();
    const auto result = Read(
        system, std::string("<system_info") + attribute + ">" + kComponents + "</system_info>");
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "system_info"},
                                         {kError, kUnsupportedVersion, "system_info"}}))
        << attribute;
    EXPECT_TRUE(system == Sample()) << attribute;
  }
}

TEST(SystemInfoDispatch, NewerVersionIsReadAsVersionZero) {
  SystemInfo system;
  const auto result = Read(system, "<system_info version=\"4\">" + kComponents +
                                       "<spectral_correction_info version=\"0\">"
                                       "<correction_matrices/></spectral_correction_info>"
                                       "</system_info>");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "system_info"},
                                       {kOk, kReadStart, "optical_component"},
                                       {kOk, kReadStart, "spectral_correction_info"}}));
  EXPECT_EQ(system.optical_components.size(), 1u);
}

TEST(SystemInfoChecks, ComponentsInOrderThenTheCorrectionBlock) {
  SystemInfo system = Sample();
  SystemInfo::ParsingResult passes;
  system.RunSanityChecks(passes);
  EXPECT_TRUE(passes.events().empty());

  system.optical_components[0].sample_points_nm.clear();
  system.optical_components[1].sample_points_nm = {-5.0, 100.0};
  system.spectral_correction_info.correction_matrices[0].algorithm =
      CorrectionAlgorithms::CA_UNKNOWN;
  SystemInfo::ParsingResult result;
  system.RunSanityChecks(result);
  EXPECT_EQ(Events(result),
            (EventList{{kWarning, kSanityCheck, "!sample_points_nm.empty ()"},
                       {kWarning, kSanityCheck, "0.0 <= sample_points_nm.front ()"},
                       {kError, kSanityCheck, "CorrectionAlgorithms::CA_UNKNOWN != algorithm"}}));
}

TEST(SystemInfoEquality, ComponentOrderAndCorrectionBlockCount) {
  const SystemInfo base = Sample();
  SystemInfo reversed = base;
  std::swap(reversed.optical_components[0], reversed.optical_components[1]);
  EXPECT_FALSE(reversed == base);
  SystemInfo other_block = base;
  other_block.spectral_correction_info.correction_matrices[0].name = "other";
  EXPECT_FALSE(other_block == base);
  SystemInfo fewer = base;
  fewer.optical_components.pop_back();
  EXPECT_FALSE(fewer == base);
}

}  // namespace
}  // namespace kelto::hyperspectral

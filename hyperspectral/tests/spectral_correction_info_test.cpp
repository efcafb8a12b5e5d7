#include <kelto/hyperspectral/calibration/spectral_correction_info.h>

#include <gtest/gtest.h>

#include <stdexcept>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;

constexpr int kOk = 0, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kSanityCheck = 30, kReadStart = 40;

CorrectionMatrix Named(const std::string& name, double wavelength_nm) {
  CorrectionMatrix matrix;
  matrix.created = common::time::UniversalTimeFromString("2023-01-02T03:04:05Z");
  matrix.name = name;
  matrix.algorithm = CorrectionAlgorithms::CA_M0;
  matrix.algorithm_version = {1, 0};
  matrix.type = CorrectionMatrixTypes::CT_REFLECTANCE;
  CorrectionMatrix::VirtualBand band;
  band.wavelength_nm = wavelength_nm;
  band.fwhm_nm = 10.0;
  band.coefficients = {0.5, 0.25};
  matrix.virtual_bands = {band};
  return matrix;
}

SpectralCorrectionInfo TwoOfOneName() {
  SpectralCorrectionInfo info;
  info.correction_matrices = {Named("hyperspectral", 500.0), Named("hyperspectral", 700.0),
                              Named("", 900.0)};
  return info;
}

TEST(SpectralCorrectionInfoWriting, RoundTripsKeepingRepeatedNames) {
  const SpectralCorrectionInfo original = TwoOfOneName();
  const std::string text = original.WriteString();
  EXPECT_NE(text.find(R"(<spectral_correction_info version="0">)"), std::string::npos) << text;
  std::size_t written = 0;
  for (std::size_t at = text.find("<name>hyperspectral</name>"); at != std::string::npos;
       at = text.find("<name>hyperspectral</name>", at + 1)) {
    ++written;
  }
  EXPECT_EQ(written, 2u);

  SpectralCorrectionInfo copy;
  const auto result = Read(copy, text);
  EventList expected = {{kOk, kReadStart, "spectral_correction_info"}};
  for (int i = 0; i < 3; ++i) {
    expected.push_back({kOk, kReadStart, "correction_matrix"});
    expected.push_back({kOk, kReadStart, "virtual_band"});
  }
  EXPECT_EQ(Events(result), expected);
  EXPECT_TRUE(copy == original);
}

TEST(SpectralCorrectionInfoReading, EmptyListIsNoEvent) {
  SpectralCorrectionInfo info = TwoOfOneName();
  const auto result = Read(info, R"(<spectral_correction_info version="0">
      <correction_matrices/></spectral_correction_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "spectral_correction_info"}}));
  EXPECT_TRUE(info.correction_matrices.empty());
}

TEST(SpectralCorrectionInfoReading, MissingListIsAnErrorAndEmptiesTheBlock) {
  SpectralCorrectionInfo info = TwoOfOneName();
  const auto result = Read(info, R"(<spectral_correction_info version="0">
      <correction_matrix version="6"/></spectral_correction_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "spectral_correction_info"},
                                       {kError, kMissingElement, "correction_matrices"}}));
  EXPECT_TRUE(info.correction_matrices.empty());
}

TEST(SpectralCorrectionInfoReading, FailedMatrixIsKeptWithWhatWasRead) {
  SpectralCorrectionInfo info;
  const auto result = Read(info, R"(<spectral_correction_info version="3"><correction_matrices>
      <correction_matrix version="-4"><name>bad</name></correction_matrix>
      <other/>
      <correction_matrix version="6" created="2023-01-02T03:04:05Z"><name>good</name>
      <algorithm>m0</algorithm><algorithm_version>1.0</algorithm_version>
      <minimum_band_energy>2</minimum_band_energy><optical_components/><virtual_bands/>
      </correction_matrix></correction_matrices></spectral_correction_info>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "spectral_correction_info"},
                                       {kOk, kReadStart, "correction_matrix"},
                                       {kError, kUnsupportedVersion, "correction_matrix"},
                                       {kOk, kReadStart, "correction_matrix"}}));
  ASSERT_EQ(info.correction_matrices.size(), 2u);
  EXPECT_TRUE(info.correction_matrices[0] == CorrectionMatrix());
  EXPECT_EQ(info.correction_matrices[1].name, "good");
  EXPECT_EQ(info.correction_matrices[1].minimum_band_energy, 2.0);
}

TEST(SpectralCorrectionInfoDispatch, NegativeVersionsReadNothing) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"", kMissingVersion},
      {R"( version="-1")", kMissingVersion},
      {R"( version="-2")", kUnsupportedVersion}};
  for (const auto& [attribute, source] : cases) {
    SpectralCorrectionInfo info = TwoOfOneName();
    const auto result = Read(info, "<spectral_correction_info" + attribute +
                                       "><correction_matrices/></spectral_correction_info>");
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "spectral_correction_info"},
                                         {kError, source, "spectral_correction_info"}}))
        << attribute;
    EXPECT_TRUE(info == TwoOfOneName()) << attribute;
  }
}

TEST(SpectralCorrectionInfoLookup, FirstExactNameOrTheCount) {
  const SpectralCorrectionInfo info = TwoOfOneName();
  const auto& matrices = info.correction_matrices;
  EXPECT_EQ(SpectralCorrectionInfo::GetMatrixIndex(matrices, "hyperspectral"), 0u);
  EXPECT_EQ(SpectralCorrectionInfo::GetMatrixIndex(matrices, ""), 2u);
  EXPECT_EQ(SpectralCorrectionInfo::GetMatrixIndex(matrices, "Hyperspectral"), 3u);
  EXPECT_EQ(SpectralCorrectionInfo::GetMatrixIndex(matrices, "hyperspectral "), 3u);
  EXPECT_EQ(SpectralCorrectionInfo::GetMatrixIndex({}, ""), 0u);

  EXPECT_EQ(info.GetMatrix("hyperspectral").virtual_bands[0].wavelength_nm, 500.0);
  EXPECT_EQ(info.GetMatrix("").virtual_bands[0].wavelength_nm, 900.0);
  EXPECT_THROW(info.GetMatrix("unknown"), std::out_of_range);
}

TEST(SpectralCorrectionInfoChecks, EachMatrixInOrderAndNothingMore) {
  SpectralCorrectionInfo info = TwoOfOneName();
  SpectralCorrectionInfo::ParsingResult passes;
  info.RunSanityChecks(passes);
  EXPECT_TRUE(passes.events().empty());

  info.correction_matrices[0].virtual_bands[0].wavelength_nm = -1.0;
  info.correction_matrices[2].algorithm = CorrectionAlgorithms::CA_UNKNOWN;
  SpectralCorrectionInfo::ParsingResult result;
  info.RunSanityChecks(result);
  EXPECT_EQ(Events(result),
            (EventList{{kError, kSanityCheck, "0.0 <= wavelength_nm"},
                       {kError, kSanityCheck, "CorrectionAlgorithms::CA_UNKNOWN != algorithm"}}));
}

TEST(SpectralCorrectionInfoEquality, OrderAndEveryMatrixCount) {
  const SpectralCorrectionInfo base = TwoOfOneName();
  SpectralCorrectionInfo swapped = base;
  std::swap(swapped.correction_matrices[0], swapped.correction_matrices[1]);
  EXPECT_FALSE(swapped == base);
  SpectralCorrectionInfo shorter = base;
  shorter.correction_matrices.pop_back();
  EXPECT_FALSE(shorter == base);
  SpectralCorrectionInfo changed = base;
  changed.correction_matrices[2].minimum_band_energy = 0.5;
  EXPECT_FALSE(changed == base);
  EXPECT_TRUE(SpectralCorrectionInfo(base) == base);
}

}  // namespace
}  // namespace kelto::hyperspectral

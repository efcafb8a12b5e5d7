#include <kelto/hyperspectral/calibration/spectral_correction_info.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

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
  ExpectInOrder(text, {R"(<spectral_correction_info version="0">)", "<name>hyperspectral</name>",
                       "<name>hyperspectral</name>"});
  SpectralCorrectionInfo copy;
  EventList expected = {ReadStart("spectral_correction_info")};
  for (int i = 0; i < 3; ++i) {
    expected.insert(expected.end(), {ReadStart("correction_matrix"), ReadStart("virtual_band")});
  }
  EXPECT_EQ(Events(Read(copy, text)), expected);
  EXPECT_TRUE(copy == original);
}

TEST(SpectralCorrectionInfoReading, ListsAndVersions) {
  // An empty or missing list empties the block; a missing or negative version reads nothing.
  const std::string empty = "<correction_matrices/>";
  const std::vector<std::tuple<std::string, std::string, EventList, bool>> cases = {
      {R"( version="0")", empty, {ReadStart("spectral_correction_info")}, true},
      {R"( version="0")",
       R"(<correction_matrix version="6"/>)",
       {ReadStart("spectral_correction_info"), Error(kMissingElement, "correction_matrices")},
       true},
      {"", empty, Refused("spectral_correction_info", kMissingVersion), false},
      {R"( version="-1")", empty, Refused("spectral_correction_info", kMissingVersion), false},
      {R"( version="-2")", empty, Refused("spectral_correction_info"), false}};
  for (const auto& [attribute, body, events, emptied] : cases) {
    SpectralCorrectionInfo info = TwoOfOneName();
    const std::string xml =
        "<spectral_correction_info" + attribute + ">" + body + "</spectral_correction_info>";
    EXPECT_EQ(Events(Read(info, xml)), events) << xml;
    EXPECT_TRUE(emptied ? info.correction_matrices.empty() : info == TwoOfOneName()) << xml;
  }
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
  EXPECT_EQ(
      Events(result),
      (EventList{ReadStart("spectral_correction_info"), ReadStart("correction_matrix"),
                 Error(kUnsupportedVersion, "correction_matrix"), ReadStart("correction_matrix")}));
  ASSERT_EQ(info.correction_matrices.size(), 2u);
  EXPECT_TRUE(info.correction_matrices[0] == CorrectionMatrix());
  EXPECT_EQ(info.correction_matrices[1].name, "good");
  EXPECT_EQ(info.correction_matrices[1].minimum_band_energy, 2.0);
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
  EXPECT_TRUE(Checks(info).empty());
  info.correction_matrices[0].virtual_bands[0].wavelength_nm = -1.0;
  info.correction_matrices[2].algorithm = CorrectionAlgorithms::CA_UNKNOWN;
  EXPECT_EQ(Checks(info), (EventList{Check("0.0 <= wavelength_nm"),
                                     Check("CorrectionAlgorithms::CA_UNKNOWN != algorithm")}));
}

TEST(SpectralCorrectionInfoEquality, OrderAndEveryMatrixCount) {
  const SpectralCorrectionInfo base = TwoOfOneName();
  std::vector<SpectralCorrectionInfo> variants(3, base);
  std::swap(variants[0].correction_matrices[0], variants[0].correction_matrices[1]);
  variants[1].correction_matrices.pop_back();
  variants[2].correction_matrices[2].minimum_band_energy = 0.5;
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == base) << i;
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/correction_matrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "event_list.h"

namespace kelto::hyperspectral {
namespace {

using testing::EventList;
using testing::Events;
using testing::Read;
using VirtualBand = CorrectionMatrix::VirtualBand;

constexpr int kOk = 0, kWarning = 1, kError = 2;
constexpr int kUnsupportedVersion = 11, kMissingVersion = 12, kMissingElement = 13,
              kMissingAttribute = 14, kMissingValue = 20, kSanityCheck = 30, kReadStart = 40;

VirtualBand Band(double wavelength_nm, std::vector<double> coefficients) {
  VirtualBand band;
  band.wavelength_nm = wavelength_nm;
  band.fwhm_nm = 12.5;
  band.coefficients = std::move(coefficients);
  return band;
}

CorrectionMatrix Sample() {
  CorrectionMatrix matrix;
  matrix.created = common::time::UniversalTimeFromString("2024-05-17T09:30:00Z");
  matrix.name = "reflectance 600-1000";
  matrix.algorithm = CorrectionAlgorithms::CA_M1;
  matrix.algorithm_version = {3, 14};
  matrix.type = CorrectionMatrixTypes::CT_IRRADIANCE;
  matrix.minimum_band_energy = 0.123456789012345;
  OpticalComponent lens;
  lens.type = OpticalComponents::OC_BANDPASS_FILTER;
  lens.manufacturer = "Acme";
  lens.sample_points_nm = {600.0, 1000.0};
  lens.response = {0.9, 0.8};
  matrix.optical_components = {lens, OpticalComponent()};
  matrix.virtual_bands = {Band(601.25, {1.5, -0.25, 0.0}), Band(650.0, {-0.000123456, 2.0, 3.5})};
  return matrix;
}

// A version 6 document with the given body.
std::string Matrix6(const std::string& attributes, const std::string& body) {
  return "<correction_matrix version=\"6\"" + attributes + ">" + body + "</correction_matrix>";
}

const std::string kCompleteBody =
    "<name>n</name><algorithm>m0</algorithm><algorithm_version>1.2</algorithm_version>"
    "<type>irradiance</type><minimum_band_energy>5</minimum_band_energy>"
    "<optical_components/><virtual_bands/>";
const std::string kCreated = R"( created="2020-02-29T23:59:59Z")";

TEST(CorrectionMatrixDefaults, UnknownAlgorithmAndTypeWithUnitEnergy) {
  const CorrectionMatrix matrix;
  EXPECT_EQ(matrix.created.time_since_epoch().count(), 0);
  EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_UNKNOWN);
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_UNKNOWN);
  EXPECT_EQ(matrix.algorithm_version, (std::pair<unsigned long, unsigned long>{0, 0}));
  EXPECT_EQ(matrix.minimum_band_energy, 1.0);
}

TEST(CorrectionMatrixWriting, RoundTripsExactlyReadingBandsBeforeComponents) {
  const CorrectionMatrix original = Sample();
  CorrectionMatrix copy;
  const auto result = Read(copy, original.WriteString());
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"},
                                       {kOk, kReadStart, "virtual_band"},
                                       {kOk, kReadStart, "virtual_band"},
                                       {kOk, kReadStart, "optical_component"},
                                       {kOk, kReadStart, "optical_component"}}));
  EXPECT_TRUE(copy == original) << original.WriteString();
}

TEST(CorrectionMatrixWriting, CurrentFormIsVersionSixInTableOrder) {
  const std::string text = Sample().WriteString();
  EXPECT_NE(text.find(R"(<correction_matrix version="6" created="2024-05-17T09:30:00Z">)"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("<algorithm>m1</algorithm>"), std::string::npos) << text;
  EXPECT_NE(text.find("<algorithm_version>3.14</algorithm_version>"), std::string::npos) << text;
  EXPECT_NE(text.find("<type>irradiance</type>"), std::string::npos) << text;
  EXPECT_NE(text.find(R"(<virtual_band version="3">)"), std::string::npos) << text;
  EXPECT_NE(text.find(R"(<coefficients nr_elements="3" values="-0.000123456 2 3.5"/>)"),
            std::string::npos)
      << text;
  std::size_t last = 0;
  for (const char* name : {"<name>", "<algorithm>", "<algorithm_version>", "<type>",
                           "<minimum_band_energy>", "<optical_components>", "<virtual_bands>",
                           "<wavelength_nm>", "<fwhm_nm>", "<coefficients"}) {
    const std::size_t at = text.find(name);
    ASSERT_NE(at, std::string::npos) << name;
    EXPECT_GT(at, last) << name;
    last = at;
  }
}

TEST(CorrectionMatrixWriting, CoefficientsKeepSixSignificantDigits) {
  CorrectionMatrix matrix = Sample();
  matrix.virtual_bands = {Band(500.0, {0.123456789})};
  CorrectionMatrix copy;
  Read(copy, matrix.WriteString());
  ASSERT_EQ(copy.virtual_bands.size(), 1u);
  EXPECT_EQ(copy.virtual_bands[0].coefficients, (std::vector<double>{0.123457}));
  EXPECT_EQ(copy.virtual_bands[0].wavelength_nm, 500.0);
}

TEST(CorrectionMatrixReading, EmptyDocumentReportsInReadingOrder) {
  CorrectionMatrix matrix = Sample();
  const auto result = Read(matrix, Matrix6("", ""));
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"},
                                       {kError, kMissingAttribute, "timestamp"},
                                       {kError, kMissingElement, "name"},
                                       {kError, kMissingElement, "algorithm"},
                                       {kError, kMissingElement, "virtual_bands"},
                                       {kError, kMissingElement, "optical_components"},
                                       {kError, kMissingElement, "algorithm_version"},
                                       {kWarning, kSanityCheck, "algorithm_version"},
                                       {kError, kMissingElement, "minimum_band_energy"}}));
  EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("1900-01-01T00:00:00Z"));
  EXPECT_EQ(matrix.name, "");
  EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_UNKNOWN);
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE);
  EXPECT_EQ(matrix.algorithm_version, (std::pair<unsigned long, unsigned long>{0, 0}));
  EXPECT_EQ(matrix.minimum_band_energy, 0.0);
  EXPECT_TRUE(matrix.optical_components.empty());
  EXPECT_TRUE(matrix.virtual_bands.empty());
}

TEST(CorrectionMatrixReading, ReadingAgainReplacesTheLists) {
  const CorrectionMatrix original = Sample();
  CorrectionMatrix matrix = original;
  const auto result = Read(matrix, original.WriteString());
  EXPECT_EQ(result.state(), kOk);
  EXPECT_TRUE(matrix == original);
}

TEST(CorrectionMatrixReading, MissingOrUnknownTypeIsSilentlyReflectance) {
  for (const char* type : {"", "<type>bogus</type>", "<type>unknown</type>"}) {
    CorrectionMatrix matrix;
    const auto result = Read(
        matrix, Matrix6(kCreated, std::string("<name>n</name><algorithm>m0</algorithm>") + type +
                                      "<virtual_bands/><optical_components/>"
                                      "<algorithm_version>1.2</algorithm_version>"
                                      "<minimum_band_energy>5</minimum_band_energy>"));
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"}})) << type;
    EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE) << type;
  }
}

TEST(CorrectionMatrixReading, UnknownAlgorithmTextIsStoredAsUnknownWithoutEvent) {
  CorrectionMatrix matrix;
  std::string body = kCompleteBody;
  body.replace(body.find("m0"), 2, "m9");
  const auto result = Read(matrix, Matrix6(kCreated, body));
  EXPECT_EQ(result.state(), kOk);
  EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_UNKNOWN);
  EXPECT_EQ(matrix.minimum_band_energy, 5.0);
  EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("2020-02-29T23:59:59Z"));
}

TEST(CorrectionMatrixAlgorithmVersion, PointBetweenTheNumbersMatchesAnyCharacter) {
  using Version = std::pair<unsigned long, unsigned long>;
  const std::vector<std::pair<std::string, Version>> matching = {
      {"2.1", {2, 1}}, {"10x4", {10, 4}}, {"123", {1, 3}}, {"1-2", {1, 2}}, {"007.010", {7, 10}}};
  for (const auto& [text, version] : matching) {
    CorrectionMatrix matrix;
    std::string body = kCompleteBody;
    body.replace(body.find("1.2"), 3, text);
    const auto result = Read(matrix, Matrix6(kCreated, body));
    EXPECT_EQ(result.state(), kOk) << text;
    EXPECT_EQ(matrix.algorithm_version, version) << text;
  }
}

TEST(CorrectionMatrixAlgorithmVersion, TextThatDoesNotMatchWarnsAndGivesZeros) {
  const std::string too_long(100000, '7');
  for (const std::string& text :
       {std::string("2"), std::string("1.2.3"), std::string("a.b"), std::string(" 1.2"),
        std::string("99999999999999999999999.1"), too_long}) {
    CorrectionMatrix matrix;
    matrix.algorithm_version = {7, 7};
    std::string body = kCompleteBody;
    body.replace(body.find("1.2"), 3, text);
    const auto result = Read(matrix, Matrix6(kCreated, body));
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"},
                                         {kWarning, kSanityCheck, "algorithm_version"}}))
        << text.substr(0, 30);
    EXPECT_EQ(matrix.algorithm_version, (std::pair<unsigned long, unsigned long>{0, 0}));
  }
}

TEST(CorrectionMatrixCreated, NotADateTimeIsTheZeroTimePointWithoutEvent) {
  CorrectionMatrix matrix = Sample();
  const auto result = Read(matrix, Matrix6(R"( created="not-a-date-time")", kCompleteBody));
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"}}));
  EXPECT_EQ(matrix.created.time_since_epoch().count(), 0);
}

TEST(CorrectionMatrixCreated, UnreadableTimeIsAnEventAndFallsBackTo1900) {
  for (const char* text : {"yesterday", "", "2024-05-17"}) {
    CorrectionMatrix matrix = Sample();
    const auto result =
        Read(matrix, Matrix6(std::string(" created=\"") + text + "\"", kCompleteBody));
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"},
                                         {kError, kMissingValue, "created"}}))
        << text;
    EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("1900-01-01T00:00:00Z"));
  }
}

TEST(CorrectionMatrixDispatch, NewerVersionIsReadByTheCurrentReader) {
  CorrectionMatrix matrix;
  std::string text = Sample().WriteString();
  text.replace(text.find(R"(version="6")"), 11, R"(version="7")");
  const auto result = Read(matrix, text);
  EXPECT_EQ(result.state(), kOk);
  EXPECT_TRUE(matrix == Sample());
}

TEST(CorrectionMatrixDispatch, OlderMissingAndNegativeVersionsReadNothing) {
  for (const char* version : {"0", "1", "2", "3", "4", "5", "-2", ""}) {
    CorrectionMatrix matrix;
    const std::string attribute =
        *version == '\0' ? std::string() : std::string(" version=\"") + version + "\"";
    const auto result = Read(matrix, "<correction_matrix" + attribute +
                                         "><timestamp>2001-01-01T00:00:00Z</timestamp>"
                                         "<name>old</name><algorithm>m0</algorithm>"
                                         "<virtual_bands/></correction_matrix>");
    const int source = *version == '\0' ? kMissingVersion : kUnsupportedVersion;
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "correction_matrix"},
                                         {kError, source, "correction_matrix"}}))
        << version;
    EXPECT_TRUE(matrix == CorrectionMatrix()) << version;
  }
}

TEST(VirtualBandReading, MissingValuesAreErrorsInOrder) {
  VirtualBand band = Band(500.0, {1.0});
  const auto result = Read(band, R"(<virtual_band version="3"/>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "virtual_band"},
                                       {kError, kMissingElement, "wavelength_nm"},
                                       {kError, kMissingElement, "fwhm_nm"},
                                       {kError, kMissingElement, "coefficients"}}));
  EXPECT_TRUE(band == VirtualBand());
}

TEST(VirtualBandReading, CountBeyondTheValuesIsAnErrorWithoutAllocation) {
  VirtualBand band;
  const auto result = Read(band, R"(<virtual_band version="3"><wavelength_nm>500</wavelength_nm>
      <fwhm_nm>10</fwhm_nm><coefficients nr_elements="4000000000000" values="1 2"/>
      </virtual_band>)");
  EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "virtual_band"},
                                       {kError, kMissingElement, "coefficients"}}));
  EXPECT_LE(band.coefficients.size(), 2u);
  EXPECT_LE(band.coefficients.capacity(), 1024u);
  EXPECT_EQ(band.fwhm_nm, 10.0);
}

TEST(VirtualBandDispatch, VersionsFromOneUpShareOneForm) {
  for (const char* version : {"1", "2", "3", "8"}) {
    VirtualBand band;
    const auto result = Read(band, std::string("<virtual_band version=\"") + version +
                                       "\"><wavelength_nm>500</wavelength_nm><fwhm_nm>10</fwhm_nm>"
                                       "<coefficients nr_elements=\"2\" values=\"1 2\"/>"
                                       "</virtual_band>");
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "virtual_band"}})) << version;
    VirtualBand expected = Band(500.0, {1.0, 2.0});
    expected.fwhm_nm = 10.0;
    EXPECT_TRUE(band == expected) << version;
  }
}

TEST(VirtualBandDispatch, OldMissingAndNegativeVersionsReadNothing) {
  const std::vector<std::pair<std::string, int>> cases = {
      {R"( version="0")", kUnsupportedVersion},
      {"", kMissingVersion},
      {R"( version="-5")", kUnsupportedVersion}};
  for (const auto& [attribute, source] : cases) {
    VirtualBand band;
    const auto result =
        Read(band, "<band" + attribute + "><wavelength_nm>500</wavelength_nm></band>");
    EXPECT_EQ(Events(result), (EventList{{kOk, kReadStart, "band"}, {kError, source, "band"}}))
        << attribute;
    EXPECT_TRUE(band == VirtualBand());
  }
}

TEST(CorrectionMatrixChecks, UnknownAlgorithmThenEachBandInOrder) {
  CorrectionMatrix matrix = Sample();
  CorrectionMatrix::ParsingResult passes;
  matrix.RunSanityChecks(passes);
  EXPECT_TRUE(passes.events().empty());

  matrix.algorithm = CorrectionAlgorithms::CA_UNKNOWN;
  matrix.type = CorrectionMatrixTypes::CT_UNKNOWN;
  matrix.name.clear();
  matrix.virtual_bands[0].fwhm_nm = -1.0;
  matrix.virtual_bands[1].wavelength_nm = std::nan("");
  matrix.virtual_bands[1].fwhm_nm = std::nan("");
  CorrectionMatrix::ParsingResult result;
  matrix.RunSanityChecks(result);
  EXPECT_EQ(Events(result),
            (EventList{{kError, kSanityCheck, "CorrectionAlgorithms::CA_UNKNOWN != algorithm"},
                       {kError, kSanityCheck, "0.0 <= fwhm_nm"},
                       {kError, kSanityCheck, "0.0 <= wavelength_nm"},
                       {kError, kSanityCheck, "0.0 <= fwhm_nm"}}));
}

TEST(CorrectionMatrixToMatrix, RowsPerBandWithZerosBehindShortBands) {
  CorrectionMatrix matrix;
  matrix.virtual_bands = {Band(500.0, {1.0, 2.0, 3.0}), Band(550.0, {4.0}),
                          Band(600.0, {5.0, 6.0, 7.0})};
  common::Matrix dense;
  std::vector<double> wavelengths(7, -1.0);
  matrix.ToMatrix(dense, wavelengths);
  ASSERT_EQ(dense.Rows(), 3u);
  ASSERT_EQ(dense.Columns(), 3u);
  const std::vector<double> values(dense.Data(), dense.Data() + 9);
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.0, 3.0, 4.0, 0.0, 0.0, 5.0, 6.0, 7.0}));
  EXPECT_EQ(wavelengths, (std::vector<double>{500.0, 550.0, 600.0}));
}

TEST(CorrectionMatrixToMatrix, NoBandsOrNoCoefficientsGiveAnEmptyMatrix) {
  common::Matrix dense;
  dense.Initialize(2, 2, 1.0);
  std::vector<double> wavelengths = {1.0, 2.0};
  CorrectionMatrix().ToMatrix(dense, wavelengths);
  EXPECT_EQ(dense.Rows(), 0u);
  EXPECT_EQ(dense.Columns(), 0u);
  EXPECT_TRUE(wavelengths.empty());

  // The wavelengths are sized to the bands but, without a column count, not filled.
  CorrectionMatrix empty_first;
  empty_first.virtual_bands = {Band(500.0, {}), Band(550.0, {1.0}), Band(600.0, {2.0})};
  dense.Initialize(2, 2, 1.0);
  wavelengths = {9.0};
  empty_first.ToMatrix(dense, wavelengths);
  EXPECT_EQ(dense.Rows(), 0u);
  EXPECT_EQ(dense.Columns(), 0u);
  EXPECT_EQ(wavelengths, (std::vector<double>{9.0, 0.0, 0.0}));
}

TEST(CorrectionMatrixToMatrix, LongerBandThrowsBeforeAnythingChanges) {
  CorrectionMatrix matrix;
  matrix.virtual_bands = {Band(500.0, {1.0}), Band(550.0, {1.0, 2.0})};
  common::Matrix dense;
  dense.Initialize(1, 1, 4.0);
  std::vector<double> wavelengths = {3.0};
  EXPECT_THROW(matrix.ToMatrix(dense, wavelengths), std::invalid_argument);
  EXPECT_EQ(dense.Rows(), 1u);
  EXPECT_EQ(dense(0, 0), 4.0);
  EXPECT_EQ(wavelengths, (std::vector<double>{3.0}));
}

TEST(CorrectionMatrixEquality, EveryFieldAndOrderCounts) {
  const CorrectionMatrix base = Sample();
  std::vector<CorrectionMatrix> variants(11, base);
  variants[0].created += std::chrono::seconds(1);
  variants[1].name += "x";
  variants[2].algorithm = CorrectionAlgorithms::CA_M0;
  variants[3].algorithm_version.first += 1;
  variants[4].algorithm_version.second += 1;
  variants[5].type = CorrectionMatrixTypes::CT_REFLECTANCE;
  variants[6].minimum_band_energy += 1e-12;
  variants[7].optical_components[0].description = "changed";
  variants[8].optical_components.pop_back();
  std::swap(variants[9].virtual_bands[0], variants[9].virtual_bands[1]);
  variants[10].virtual_bands[1].coefficients.push_back(0.0);
  for (std::size_t i = 0; i < variants.size(); ++i) {
    EXPECT_FALSE(variants[i] == base) << i;
  }
  CorrectionMatrix nan = base;
  nan.virtual_bands[0].fwhm_nm = std::nan("");
  EXPECT_FALSE(nan == nan);
}

}  // namespace
}  // namespace kelto::hyperspectral

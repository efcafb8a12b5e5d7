#include <kelto/hyperspectral/calibration/correction_matrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using VirtualBand = CorrectionMatrix::VirtualBand;
using Version = std::pair<unsigned long, unsigned long>;

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
const auto k1900 = common::time::UniversalTimeFromString("1900-01-01T00:00:00Z");

TEST(CorrectionMatrixWriting, RoundTripsExactlyReadingBandsBeforeComponents) {
  const CorrectionMatrix original = Sample();
  const std::string text = original.WriteString();
  CorrectionMatrix copy;
  EXPECT_EQ(Events(Read(copy, text)),
            (EventList{ReadStart("correction_matrix"), ReadStart("virtual_band"),
                       ReadStart("virtual_band"), ReadStart("optical_component"),
                       ReadStart("optical_component")}));
  EXPECT_TRUE(copy == original) << text;
  // A second read replaces the lists instead of adding to them.
  EXPECT_EQ(Read(copy, text).state(), kOk);
  EXPECT_TRUE(copy == original);
}

TEST(CorrectionMatrixWriting, VersionSixInTableOrderWithSixDigitCoefficients) {
  ExpectInOrder(
      Sample().WriteString(),
      {R"(<correction_matrix version="6" created="2024-05-17T09:30:00Z">)", "<name>",
       "<algorithm>m1</algorithm>", "<algorithm_version>3.14</algorithm_version>",
       "<type>irradiance</type>", "<minimum_band_energy>", "<optical_components>",
       "<virtual_bands>", R"(<virtual_band version="3">)", "<wavelength_nm>", "<fwhm_nm>",
       "<coefficients", R"(<coefficients nr_elements="3" values="-0.000123456 2 3.5"/>)"});

  CorrectionMatrix matrix = Sample();
  matrix.virtual_bands = {Band(500.0, {0.123456789})};
  CorrectionMatrix copy;
  Read(copy, matrix.WriteString());
  ASSERT_EQ(copy.virtual_bands.size(), 1u);
  EXPECT_EQ(copy.virtual_bands[0].coefficients, (std::vector<double>{0.123457}));
  EXPECT_EQ(copy.virtual_bands[0].wavelength_nm, 500.0);
}

TEST(CorrectionMatrixReading, UnknownTypeAndAlgorithmAreSilent) {
  // A missing or unknown type is reflectance, an unknown algorithm text is unknown.
  for (const std::string type : {"", "<type>bogus</type>", "<type>unknown</type>"}) {
    CorrectionMatrix matrix;
    const std::string body =
        Replace(Replace(kCompleteBody, "<type>irradiance</type>", type), "m0", "m9");
    EXPECT_EQ(Events(Read(matrix, Matrix6(kCreated, body))),
              (EventList{ReadStart("correction_matrix")}))
        << type;
    EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE) << type;
    EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_UNKNOWN);
    EXPECT_EQ(matrix.minimum_band_energy, 5.0);
    EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("2020-02-29T23:59:59Z"));
  }
}

TEST(CorrectionMatrixReading, CreatedTimes) {
  // "not-a-date-time" is the zero time point without an event; anything unreadable is an event
  // and 1900.
  const std::vector<std::pair<std::string, bool>> cases = {
      {"not-a-date-time", true}, {"yesterday", false}, {"", false}, {"2024-05-17", false}};
  for (const auto& [text, readable] : cases) {
    CorrectionMatrix matrix = Sample();
    const auto result = Read(matrix, Matrix6(" created=\"" + text + "\"", kCompleteBody));
    EventList expected = {ReadStart("correction_matrix")};
    if (!readable) {
      expected.push_back(Error(kMissingValue, "created"));
    }
    EXPECT_EQ(Events(result), expected) << text;
    EXPECT_EQ(matrix.created, readable ? common::time::TimePoint() : k1900) << text;
  }
}

TEST(CorrectionMatrixReading, AlgorithmVersionIsTwoNumbersAroundAnyOneCharacter) {
  const std::vector<std::pair<std::string, Version>> matching = {
      {"2.1", {2, 1}}, {"10x4", {10, 4}}, {"123", {1, 3}}, {"1-2", {1, 2}}, {"007.010", {7, 10}}};
  for (const auto& [text, version] : matching) {
    CorrectionMatrix matrix;
    const auto result = Read(matrix, Matrix6(kCreated, Replace(kCompleteBody, "1.2", text)));
    EXPECT_EQ(result.state(), kOk) << text;
    EXPECT_EQ(matrix.algorithm_version, version) << text;
  }
  // Anything else warns and gives zeros.
  for (const std::string& text :
       {std::string("2"), std::string("1.2.3"), std::string("a.b"), std::string(" 1.2"),
        std::string("99999999999999999999999.1"), std::string(100000, '7')}) {
    CorrectionMatrix matrix;
    matrix.algorithm_version = {7, 7};
    const auto result = Read(matrix, Matrix6(kCreated, Replace(kCompleteBody, "1.2", text)));
    EXPECT_EQ(Events(result),
              (EventList{ReadStart("correction_matrix"), CheckWarning("algorithm_version")}))
        << text.substr(0, 30);
    EXPECT_EQ(matrix.algorithm_version, (Version{0, 0}));
  }
}

TEST(CorrectionMatrixReading, VersionDispatch) {
  // Newer is read by the current reader.
  CorrectionMatrix matrix;
  EXPECT_EQ(
      Read(matrix, Replace(Sample().WriteString(), R"(version="6")", R"(version="7")")).state(),
      kOk);
  EXPECT_TRUE(matrix == Sample());

  // Missing and negative versions read nothing.
  for (const std::string version : {"-2", ""}) {
    CorrectionMatrix old;
    const std::string attribute = version.empty() ? "" : " version=\"" + version + "\"";
    const auto result = Read(old, "<correction_matrix" + attribute +
                                      "><timestamp>2001-01-01T00:00:00Z</timestamp>"
                                      "<name>old</name><algorithm>m0</algorithm>"
                                      "<virtual_bands/></correction_matrix>");
    EXPECT_EQ(Events(result),
              Refused("correction_matrix", version.empty() ? kMissingVersion : kUnsupportedVersion))
        << version;
    EXPECT_TRUE(old == CorrectionMatrix()) << version;
  }
}

TEST(VirtualBandReading, MissingValuesAreErrorsAndResetTheBand) {
  VirtualBand band = Band(500.0, {1.0});
  EXPECT_EQ(Events(Read(band, R"(<virtual_band version="3"/>)")),
            (EventList{ReadStart("virtual_band"), Error(kMissingElement, "wavelength_nm"),
                       Error(kMissingElement, "fwhm_nm"), Error(kMissingElement, "coefficients")}));
  EXPECT_TRUE(band == VirtualBand());
}

TEST(VirtualBandReading, VersionsFromOneUpShareOneFormOthersReadNothing) {
  VirtualBand expected = Band(500.0, {1.0, 2.0});
  expected.fwhm_nm = 10.0;
  for (const std::string version : {"1", "2", "3", "8"}) {
    VirtualBand band;
    const auto result = Read(band, "<virtual_band version=\"" + version +
                                       "\"><wavelength_nm>500</wavelength_nm><fwhm_nm>10</fwhm_nm>"
                                       "<coefficients nr_elements=\"2\" values=\"1 2\"/>"
                                       "</virtual_band>");
    EXPECT_EQ(Events(result), (EventList{ReadStart("virtual_band")})) << version;
    EXPECT_TRUE(band == expected) << version;
  }
  const std::vector<std::pair<std::string, int>> refused = {
      {"", kMissingVersion}, {R"( version="-5")", kUnsupportedVersion}};
  for (const auto& [attribute, source] : refused) {
    VirtualBand band;
    const auto result =
        Read(band, "<band" + attribute + "><wavelength_nm>500</wavelength_nm></band>");
    EXPECT_EQ(Events(result), Refused("band", source)) << attribute;
    EXPECT_TRUE(band == VirtualBand());
  }
}

// ----- older forms

TEST(VirtualBandLegacy, VersionZeroTakesTheVectorElementAndNoWidth) {
  VirtualBand band = Band(500.0, {9.0});
  EXPECT_EQ(Events(Read(band, R"(<band version="0"><wavelength_nm>610</wavelength_nm>
      <fwhm_nm>30</fwhm_nm><custom_spectral_correction nr_elements="2" values="0.5 -1"/></band>)")),
            (EventList{ReadStart("band"), ReadStart("custom_spectral_correction")}));
  EXPECT_EQ(band.wavelength_nm, 610.0);
  EXPECT_EQ(band.fwhm_nm, 0.0);
  EXPECT_EQ(band.coefficients, (std::vector<double>{0.5, -1.0}));

  // Without the vector element the vector is read all the same, from nothing: it reports its
  // own count and values missing, and the band has no coefficients.
  EXPECT_EQ(
      Events(Read(band, R"(<band version="0"/>)")),
      (EventList{ReadStart("band"), Error(kMissingElement, "wavelength_nm"),
                 Error(kMissingElement, "custom_spectral_correction"), ReadStart(""),
                 Error(kMissingAttribute, "nr_elements"), Error(kMissingAttribute, "values")}));
  EXPECT_TRUE(band == VirtualBand());
}

TEST(CorrectionMatrixLegacy, VersionsZeroAndOneHaveAFixedIdentityAndOneWidth) {
  for (const char* version : {"0", "1"}) {
    CorrectionMatrix matrix = Sample();
    const auto result = Read(matrix, std::string(R"(<correction_matrix version=")") + version +
                                         R"("><fwhm_virtual_filters_nm>15</fwhm_virtual_filters_nm>
        <virtual_bands><band version="0"><wavelength_nm>610</wavelength_nm>
        <custom_spectral_correction nr_elements="1" values="2"/></band><band version="2">
        <wavelength_nm>640</wavelength_nm><fwhm_nm>3</fwhm_nm>
        <coefficients nr_elements="1" values="4"/></band></virtual_bands></correction_matrix>)");
    EXPECT_EQ(NotOk(result), EventList{}) << version;
    EXPECT_EQ(matrix.created, common::time::TimePoint()) << version;
    EXPECT_EQ(matrix.name, "hyperspectral") << version;
    EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_TACKTILE_0) << version;
    // Not in the file: type, algorithm version, threshold and optics stay as they stood.
    EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_IRRADIANCE) << version;
    EXPECT_EQ(matrix.algorithm_version, (Version{3, 14})) << version;
    EXPECT_EQ(matrix.minimum_band_energy, Sample().minimum_band_energy) << version;
    EXPECT_EQ(matrix.optical_components.size(), 2u) << version;
    ASSERT_EQ(matrix.virtual_bands.size(), 2u) << version;
    EXPECT_EQ(matrix.virtual_bands[0].fwhm_nm, 15.0) << version;
    EXPECT_EQ(matrix.virtual_bands[1].fwhm_nm, 15.0) << version;
    EXPECT_EQ(matrix.virtual_bands[1].coefficients, std::vector<double>{4.0}) << version;
  }

  // A fresh record keeps its unknown type: nothing in this form says what the matrix yields.
  CorrectionMatrix fresh;
  EXPECT_EQ(
      Events(Read(fresh, R"(<correction_matrix version="1"/>)")),
      (EventList{ReadStart("correction_matrix"), Error(kMissingElement, "fwhm_virtual_filters_nm"),
                 Error(kMissingElement, "virtual_bands")}));
  EXPECT_EQ(fresh.type, CorrectionMatrixTypes::CT_UNKNOWN);
  EXPECT_EQ(fresh.algorithm_version, (Version{0, 0}));
  EXPECT_EQ(CorrectionAlgorithms::ToString(fresh.algorithm), "tacktile_0");
}

TEST(CorrectionMatrixReading, EmptyDocumentsReportWhatEachVersionReads) {
  const EventList v2 = {ReadStart("correction_matrix"), Error(kMissingAttribute, "timestamp"),
                        Error(kMissingElement, "name"), Error(kMissingElement, "algorithm"),
                        Error(kMissingElement, "virtual_bands")};
  EventList v3 = v2;
  v3.push_back(Error(kMissingElement, "optical_components"));
  EventList v4 = v3;
  v4.insert(v4.end(),
            {Error(kMissingElement, "algorithm_version"), CheckWarning("algorithm_version")});
  EventList v5 = v4;
  v5.push_back(Error(kMissingElement, "minimum_band_energy"));
  const std::vector<std::pair<std::string, EventList>> cases = {
      {"2", v2}, {"3", v3}, {"4", v4}, {"5", v5}, {"6", v5}};
  for (const auto& [version, events] : cases) {
    CorrectionMatrix matrix = Sample();
    EXPECT_EQ(Events(Read(matrix, "<correction_matrix version=\"" + version + "\"/>")), events)
        << version;
    // A missing creation attribute is 1900, a missing timestamp element time zero.
    EXPECT_EQ(matrix.created, version == "6" ? k1900 : common::time::TimePoint()) << version;
    EXPECT_TRUE(matrix.name.empty()) << version;
    EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE) << version;
    EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_UNKNOWN) << version;
    EXPECT_EQ(matrix.algorithm_version, (Version{0, 0})) << version;
    EXPECT_TRUE(matrix.virtual_bands.empty()) << version;
    // Optics from version 3 on, the threshold from version 5 on (with the getter's 0.0).
    EXPECT_EQ(matrix.optical_components.empty(), version != "2") << version;
    EXPECT_EQ(matrix.minimum_band_energy, version >= "5" ? 0.0 : Sample().minimum_band_energy)
        << version;
  }
}

TEST(CorrectionMatrixLegacy, TimestampsAndTheVersionsOfVersionsThreeAndFour) {
  const std::string body =
      "<name>n</name><algorithm>m0</algorithm><virtual_bands/><optical_components/>";
  CorrectionMatrix matrix;
  EXPECT_EQ(NotOk(Read(matrix, R"(<correction_matrix version="3"><timestamp>2001-02-03T04:05:06Z
      </timestamp>)" + body + "</correction_matrix>")),
            EventList{});
  EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("2001-02-03T04:05:06Z"));
  // Version 3 knew no algorithm version: 0.0, and nothing to report.
  EXPECT_EQ(matrix.algorithm_version, (Version{0, 0}));
  EXPECT_EQ(matrix.minimum_band_energy, 1.0);

  EXPECT_EQ(
      NotOk(Read(matrix, R"(<correction_matrix version="4"><timestamp>yesterday</timestamp>)" +
                             body + "<algorithm_version>12x3</algorithm_version>" +
                             "<minimum_band_energy>7</minimum_band_energy>" +
                             "</correction_matrix>")),
      (EventList{Error(kMissingValue, "timestamp")}));
  EXPECT_EQ(matrix.created, common::time::TimePoint());
  EXPECT_EQ(matrix.algorithm_version, (Version{12, 3}));
  // Version 4 knew no threshold: the record keeps the 1.0 it was made with.
  EXPECT_EQ(matrix.minimum_band_energy, 1.0);
}

TEST(CorrectionMatrixChecks, UnknownAlgorithmThenEachBandInOrder) {
  CorrectionMatrix matrix = Sample();
  EXPECT_TRUE(Checks(matrix).empty());

  matrix.algorithm = CorrectionAlgorithms::CA_UNKNOWN;
  matrix.type = CorrectionMatrixTypes::CT_UNKNOWN;
  matrix.name.clear();
  matrix.virtual_bands[0].fwhm_nm = -1.0;
  matrix.virtual_bands[1].wavelength_nm = std::nan("");
  matrix.virtual_bands[1].fwhm_nm = std::nan("");
  EXPECT_EQ(Checks(matrix), (EventList{Check("CorrectionAlgorithms::CA_UNKNOWN != algorithm"),
                                       Check("0.0 <= fwhm_nm"), Check("0.0 <= wavelength_nm"),
                                       Check("0.0 <= fwhm_nm")}));
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
  EXPECT_EQ(std::vector<double>(dense.Data(), dense.Data() + 9),
            (std::vector<double>{1.0, 2.0, 3.0, 4.0, 0.0, 0.0, 5.0, 6.0, 7.0}));
  EXPECT_EQ(wavelengths, (std::vector<double>{500.0, 550.0, 600.0}));

  // A longer band throws before anything changes.
  matrix.virtual_bands = {Band(500.0, {1.0}), Band(550.0, {1.0, 2.0})};
  wavelengths = {3.0};
  EXPECT_THROW(matrix.ToMatrix(dense, wavelengths), std::invalid_argument);
  EXPECT_EQ(dense.Rows(), 3u);
  EXPECT_EQ(dense(0, 2), 3.0);
  EXPECT_EQ(wavelengths, (std::vector<double>{3.0}));
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

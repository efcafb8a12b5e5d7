#include <kelto/hyperspectral/foundation/enumerations.h>
#include <kelto/hyperspectral/foundation/translator.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace kelto::hyperspectral {
namespace {

// Runs the call and checks that it throws std::invalid_argument with exactly the given text.
template <typename Call>
void ExpectInvalidArgument(Call call, const std::string& message) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected \"" << message << "\"";
  } catch (const std::invalid_argument& error) {
    EXPECT_EQ(message, error.what());
  } catch (...) {
    ADD_FAILURE() << "wrong exception type, expected std::invalid_argument";
  }
}

// Every row both ways. The texts are written to files, so they are spelled out here and not
// derived from the code.
template <typename E, typename Text>
void ExpectTable(const std::vector<std::pair<std::int32_t, Text>>& rows) {
  using Enum = decltype(E::FromString(Text{}));
  for (const auto& [number, text] : rows) {
    const auto value = static_cast<Enum>(number);
    EXPECT_EQ(text, E::ToString(value)) << "value " << number;
    EXPECT_EQ(number, static_cast<std::int32_t>(E::FromString(text))) << "value " << number;
  }
}

// The values just outside the table are not translatable.
template <typename E>
void ExpectOutsideThrows(std::int32_t below, std::int32_t above) {
  using Enum = decltype(E::FromString({}));
  for (const std::int32_t number : {below, above}) {
    SCOPED_TRACE(number);
    ExpectInvalidArgument([&] { E::ToString(static_cast<Enum>(number)); }, "Value does not exist.");
  }
}

TEST(CorrectionAlgorithms, TranslatesEveryRowBothWays) {
  ExpectTable<CorrectionAlgorithms, std::string>(
      {{-1, "unknown"}, {0, "tacktile_0"}, {1, "pitchfork_0"}, {2, "m0"}, {3, "m1"}});
  EXPECT_EQ(-1, CorrectionAlgorithms::CA_UNKNOWN);
  EXPECT_EQ(3, CorrectionAlgorithms::CA_M1);
  ExpectOutsideThrows<CorrectionAlgorithms>(-2, 4);
}

TEST(CorrectionAlgorithms, UnknownTextGivesUnknown) {
  for (const char* text : {"", "M0", "m2", " m0", "m0 ", "Unknown", "tacktile"}) {
    EXPECT_EQ(CorrectionAlgorithms::CA_UNKNOWN, CorrectionAlgorithms::FromString(text))
        << '"' << text << '"';
  }
}

TEST(CorrectionMatrixTypes, TranslatesEveryRowBothWays) {
  ExpectTable<CorrectionMatrixTypes, std::string>(
      {{-1, "unknown"}, {0, "reflectance"}, {1, "irradiance"}});
  EXPECT_EQ(0, CorrectionMatrixTypes::CT_REFLECTANCE);
  EXPECT_EQ(1, CorrectionMatrixTypes::CT_IRRADIANCE);
  ExpectOutsideThrows<CorrectionMatrixTypes>(-2, 2);
}

TEST(CorrectionMatrixTypes, OlderNamesAreReadButNeverWritten) {
  const auto reflectance = CorrectionMatrixTypes::FromString("hyperspectral");
  EXPECT_EQ(CorrectionMatrixTypes::CT_REFLECTANCE, reflectance);
  EXPECT_EQ("reflectance", CorrectionMatrixTypes::ToString(reflectance));

  const auto irradiance = CorrectionMatrixTypes::FromString("radiometric");
  EXPECT_EQ(CorrectionMatrixTypes::CT_IRRADIANCE, irradiance);
  EXPECT_EQ("irradiance", CorrectionMatrixTypes::ToString(irradiance));
}

TEST(CorrectionMatrixTypes, UnknownTextGivesUnknown) {
  for (const char* text :
       {"", "Reflectance", "Hyperspectral", "RADIOMETRIC", "hyperspectral ", "radiance"}) {
    EXPECT_EQ(CorrectionMatrixTypes::CT_UNKNOWN, CorrectionMatrixTypes::FromString(text))
        << '"' << text << '"';
  }
}

TEST(Distributions, TranslatesEveryRowBothWays) {
  ExpectTable<Distributions, std::string>(
      {{-1, "unknown"}, {0, "none"}, {1, "Gaussian"}, {2, "Lorentzian"}, {3, "Fabry-Perot"}});
  EXPECT_EQ(2, Distributions::DB_LORENTZIAN);
  ExpectOutsideThrows<Distributions>(-2, 4);
}

TEST(Distributions, OlderNameIsReadButNeverWritten) {
  const auto lorentzian = Distributions::FromString("Lorentz");
  EXPECT_EQ(Distributions::DB_LORENTZIAN, lorentzian);
  EXPECT_EQ("Lorentzian", Distributions::ToString(lorentzian));
}

TEST(Distributions, UnknownTextGivesUnknown) {
  for (const char* text :
       {"", "lorentz", "lorentzian", "gaussian", "Fabry Perot", "fabry-perot", "Gauss", "None"}) {
    EXPECT_EQ(Distributions::DB_UNKNOWN, Distributions::FromString(text)) << '"' << text << '"';
  }
}

TEST(OpticalComponents, TranslatesEveryRowBothWays) {
  ExpectTable<OpticalComponents, std::string>({{-1, "unknown"},
                                               {0, "none"},
                                               {1, "shortpass_filter"},
                                               {2, "longpass_filter"},
                                               {3, "bandpass_filter"},
                                               {4, "notch_filter"},
                                               {5, "linear_polarizer"},
                                               {6, "circular_polarizer"},
                                               {7, "source"}});
  EXPECT_EQ(7, OpticalComponents::OC_SOURCE);
  ExpectOutsideThrows<OpticalComponents>(-2, 8);
}

TEST(OpticalComponents, UnknownTextGivesUnknown) {
  for (const char* text : {"", "Source", "bandpass", "shortpass-filter", "polarizer"}) {
    EXPECT_EQ(OpticalComponents::OC_UNKNOWN, OpticalComponents::FromString(text))
        << '"' << text << '"';
  }
}

TEST(RejectionFilters, TranslatesEveryRowBothWays) {
  ExpectTable<RejectionFilters, std::string>({{0, "none"},
                                              {1, "custom"},
                                              {2, "bandpass_450eo"},
                                              {3, "bandpass_460xi-650xi"},
                                              {4, "bandpass_600eo-875eo"},
                                              {5, "bandpass_600eo-975eo"},
                                              {6, "bandpass_675eo-975eo"},
                                              {7, "bandpass_600xi-975xi"},
                                              {8, "bandpass_600xi-875eo"},
                                              {9, "bandpass_600xi-875lc"},
                                              {11, "bandpass_600eo-875lc"},
                                              {10, "bandpass_675eo-975xi"}});
}

TEST(RejectionFilters, KeepsTheNumbersOfTheLastTwoFilters) {
  EXPECT_EQ(10, RejectionFilters::FromString("bandpass_675eo-975xi"));
  EXPECT_EQ(11, RejectionFilters::FromString("bandpass_600eo-875lc"));
  EXPECT_EQ(10, RejectionFilters::RF_BANDPASS_675EO_975XI);
  EXPECT_EQ(11, RejectionFilters::RF_BANDPASS_600EO_875LC);
}

TEST(RejectionFilters, HasNoUnknownValue) {
  // -1 is the unknown value of the other enumerations but not of this one.
  ExpectOutsideThrows<RejectionFilters>(-1, 12);
}

TEST(RejectionFilters, UnknownTextCountsAsCustom) {
  for (const char* text : {"", "unknown", "None", "Custom", "bandpass_450EO", "bandpass_450eo ",
                           "bandpass_600eo_875lc"}) {
    EXPECT_EQ(RejectionFilters::RF_CUSTOM, RejectionFilters::FromString(text))
        << '"' << text << '"';
  }
}

TEST(InversionOptimizationAlgorithms, TranslatesEveryRowBothWays) {
  ExpectTable<InversionOptimizationAlgorithms, std::wstring>(
      {{-1, L"Unknown"}, {0, L"Vardell"}, {1, L"Tikhonov"}});
  EXPECT_EQ(1, InversionOptimizationAlgorithms::IOA_TIKHONOV);
  ExpectOutsideThrows<InversionOptimizationAlgorithms>(-2, 2);
}

TEST(InversionOptimizationAlgorithms, UnknownTextGivesUnknown) {
  for (const wchar_t* text : {L"", L"unknown", L"tikhonov", L"VARDELL", L"Tikhonov "}) {
    EXPECT_EQ(InversionOptimizationAlgorithms::IOA_UNKNOWN,
              InversionOptimizationAlgorithms::FromString(text));
  }
}

enum eColour : std::int32_t { RED = 0, GREEN = 1, BLUE = 2 };

TEST(Translator, LooksUpBothWaysAndThrowsForWhatIsAbsent) {
  Translator<eColour> colours;
  colours.Register("red", RED);
  colours.Register("green", GREEN);

  EXPECT_TRUE(colours.HasKey("red"));
  EXPECT_FALSE(colours.HasKey("blue"));
  EXPECT_FALSE(colours.HasKey("Red"));
  EXPECT_TRUE(colours.HasValue(GREEN));
  EXPECT_FALSE(colours.HasValue(BLUE));
  EXPECT_EQ(GREEN, colours.ValueOf("green"));
  EXPECT_EQ("red", colours.TextOf(RED));

  ExpectInvalidArgument([&] { colours.ValueOf("blue"); }, "Key does not exist.");
  ExpectInvalidArgument([&] { colours.TextOf(BLUE); }, "Value does not exist.");
}

TEST(Translator, IgnoresADuplicateTextWhole) {
  Translator<eColour> colours;
  colours.Register("red", RED);
  colours.Register("red", BLUE);

  EXPECT_EQ(RED, colours.ValueOf("red"));
  EXPECT_EQ("red", colours.TextOf(RED));
  EXPECT_FALSE(colours.HasValue(BLUE));
}

TEST(Translator, ASecondTextOfAValueBecomesItsText) {
  Translator<eColour> colours;
  colours.Register("red", RED);
  colours.Register("crimson", RED);

  EXPECT_EQ(RED, colours.ValueOf("red"));
  EXPECT_EQ(RED, colours.ValueOf("crimson"));
  EXPECT_EQ("crimson", colours.TextOf(RED));
}

TEST(Translator, KeepsItsLinksValidAsItGrows) {
  // Enough entries to rebalance the trees many times over; every link must still reach the key
  // of its partner.
  Translator<std::int32_t, std::wstring> numbers;
  for (std::int32_t i = 0; i < 500; ++i) {
    numbers.Register(std::to_wstring(i * 7919 % 500), i);
  }
  for (std::int32_t i = 0; i < 500; ++i) {
    const std::wstring text = std::to_wstring(i * 7919 % 500);
    ASSERT_EQ(i, numbers.ValueOf(text));
    ASSERT_EQ(text, numbers.TextOf(i));
  }
}

}  // namespace
}  // namespace kelto::hyperspectral

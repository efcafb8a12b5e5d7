#include <kelto/hyperspectral/foundation/enumerations.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelto::hyperspectral {
namespace {

auto InvalidArgument(const std::string& text) {
  return ::testing::ThrowsMessage<std::invalid_argument>(::testing::StrEq(text));
}

// Every row both ways, and the values just outside the table are not translatable. The texts
// are written to files, so they are spelled out here and not derived from the code.
template <typename E, typename Text>
void ExpectTable(const std::vector<std::pair<std::int32_t, Text>>& rows, std::int32_t below,
                 std::int32_t above) {
  using Enum = decltype(E::FromString(Text{}));
  for (const auto& [number, text] : rows) {
    EXPECT_EQ(text, E::ToString(static_cast<Enum>(number))) << "value " << number;
    EXPECT_EQ(number, static_cast<std::int32_t>(E::FromString(text))) << "value " << number;
  }
  for (const std::int32_t number : {below, above}) {
    EXPECT_THAT([&] { E::ToString(static_cast<Enum>(number)); },
                InvalidArgument("Value does not exist."))
        << number;
  }
}

// Texts that are no row, and older names that are read but never written, give these values.
template <typename E, typename Text, typename Enum>
void ExpectReadAs(const std::vector<Text>& texts, Enum value) {
  for (const Text& text : texts) {
    EXPECT_EQ(value, E::FromString(text)) << std::string(text.begin(), text.end());
  }
}

TEST(Enumerations, TranslateEveryRowBothWays) {
  ExpectTable<CorrectionAlgorithms, std::string>(
      {{-1, "unknown"}, {0, "tacktile_0"}, {1, "pitchfork_0"}, {2, "m0"}, {3, "m1"}}, -2, 4);
  ExpectTable<CorrectionMatrixTypes, std::string>(
      {{-1, "unknown"}, {0, "reflectance"}, {1, "irradiance"}}, -2, 2);
  ExpectTable<Distributions, std::string>(
      {{-1, "unknown"}, {0, "none"}, {1, "Gaussian"}, {2, "Lorentzian"}, {3, "Fabry-Perot"}}, -2,
      4);
  ExpectTable<OpticalComponents, std::string>({{-1, "unknown"},
                                               {0, "none"},
                                               {1, "shortpass_filter"},
                                               {2, "longpass_filter"},
                                               {3, "bandpass_filter"},
                                               {4, "notch_filter"},
                                               {5, "linear_polarizer"},
                                               {6, "circular_polarizer"},
                                               {7, "source"}},
                                              -2, 8);
  // No unknown value here: -1 is as untranslatable as 12. The last two filters keep their
  // numbers out of the order of their names.
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
                                              {10, "bandpass_675eo-975xi"}},
                                             -1, 12);
  ExpectTable<InversionOptimizationAlgorithms, std::wstring>(
      {{-1, L"Unknown"}, {0, L"Vardell"}, {1, L"Tikhonov"}}, -2, 2);
}

TEST(Enumerations, OtherTextsGiveTheUnknownValueAndOlderNamesAreReadOnly) {
  using Texts = std::vector<std::string>;
  ExpectReadAs<CorrectionAlgorithms>(Texts{"", "M0", "m2", " m0", "m0 ", "Unknown", "tacktile"},
                                     CorrectionAlgorithms::CA_UNKNOWN);
  ExpectReadAs<CorrectionMatrixTypes>(
      Texts{"", "Reflectance", "Hyperspectral", "RADIOMETRIC", "hyperspectral ", "radiance"},
      CorrectionMatrixTypes::CT_UNKNOWN);
  ExpectReadAs<Distributions>(
      Texts{"", "lorentz", "lorentzian", "gaussian", "Fabry Perot", "fabry-perot", "Gauss", "None"},
      Distributions::DB_UNKNOWN);
  ExpectReadAs<OpticalComponents>(Texts{"", "Source", "bandpass", "shortpass-filter", "polarizer"},
                                  OpticalComponents::OC_UNKNOWN);
  // A rejection filter of another name is a custom one.
  ExpectReadAs<RejectionFilters>(Texts{"", "unknown", "None", "Custom", "bandpass_450EO",
                                       "bandpass_450eo ", "bandpass_600eo_875lc"},
                                 RejectionFilters::RF_CUSTOM);
  ExpectReadAs<InversionOptimizationAlgorithms>(
      std::vector<std::wstring>{L"", L"unknown", L"tikhonov", L"VARDELL", L"Tikhonov "},
      InversionOptimizationAlgorithms::IOA_UNKNOWN);

  ExpectReadAs<CorrectionMatrixTypes>(Texts{"hyperspectral"},
                                      CorrectionMatrixTypes::CT_REFLECTANCE);
  ExpectReadAs<CorrectionMatrixTypes>(Texts{"radiometric"}, CorrectionMatrixTypes::CT_IRRADIANCE);
  ExpectReadAs<Distributions>(Texts{"Lorentz"}, Distributions::DB_LORENTZIAN);
}

}  // namespace
}  // namespace kelto::hyperspectral

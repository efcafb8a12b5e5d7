#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelto/common/filter_pattern.h>
#include <kelto/common/filter_response.h>
#include <kelto/common/matrix.h>
#include <kelto/common/property_container.h>
#include <kelto/common/sensor_types.h>
#include <kelto/common/spectrum.h>
#include <kelto/common/translator.h>

namespace kelto::common {
namespace {

// Each name's position is its value; names match exactly.
template <typename Type>
void ExpectTextForms(std::vector<std::string> const& names,
                     std::vector<std::string> const& unknown) {
  for (std::size_t value = 0; value < names.size(); ++value) {
    const auto type = static_cast<typename Type::eType>(value);
    EXPECT_EQ(Type::ToString(type), names[value]);
    EXPECT_EQ(Type::FromString(names[value]), type);
  }
  EXPECT_EQ(Type::ToString(static_cast<typename Type::eType>(-1)), "Unknown");
  EXPECT_EQ(Type::ToString(static_cast<typename Type::eType>(42)), "Unknown");
  for (std::string const& text : unknown) {
    EXPECT_EQ(Type::FromString(text), Type::Unknown) << text;
  }
}

TEST(ValueTypes, TextFormsRoundTripAndUnknownTextIsUnknown) {
  ExpectTextForms<SensorTypes>({"Unknown", "VKR9", "GENERIC", "TEM480"}, {"vkr9", " VKR9", ""});
  EXPECT_EQ(SensorTypes::TEM480, 3);
  ExpectTextForms<FilterPattern>(
      {"Unknown", "QL100", "QL150", "TZT32", "MZT3x3", "MZT4x4", "MZT5x5", "DUAL_MZT"}, {"MZT4X4"});
}

TEST(Matrix, RowMajorStorage) {
  Matrix matrix;
  EXPECT_EQ(matrix.Rows(), 0u);
  matrix.Initialize(2, 3, 0.5);
  EXPECT_EQ(matrix.Rows(), 2u);
  EXPECT_EQ(matrix.Columns(), 3u);
  const double row[] = {7, 8, 9};
  std::copy(row, row + 3, matrix.Data() + 1 * matrix.Columns());
  EXPECT_EQ(matrix(0, 2), 0.5);
  EXPECT_EQ(matrix(1, 0), 7.0);
  EXPECT_EQ(matrix(1, 2), 9.0);

  matrix.Initialize(1, 1, -1.0);
  EXPECT_EQ(matrix(0, 0), -1.0);
  EXPECT_EQ(matrix.Columns(), 1u);

  const unsigned long huge = std::numeric_limits<unsigned long>::max() / 2;
  EXPECT_THROW(matrix.Initialize(huge, 4, 0.0), std::invalid_argument);
  EXPECT_EQ(matrix.Rows(), 1u);
}

struct DerivedSpectrum : Spectrum {
  void Clear() override {
    Spectrum::Clear();
    tag = 0;
  }
  int tag = 5;
};

TEST(Spectrum, ClearResetsEverythingThroughTheBase) {
  DerivedSpectrum spectrum;
  spectrum.wavelength_start_nm = 600;
  spectrum.wavelength_end_nm = 975;
  spectrum.wavelength_resolution_nm = 1;
  spectrum.wavelengths.SetValues({600, 601});
  spectrum.values.SetValues({0.1, 0.2});

  static_cast<Spectrum&>(spectrum).Clear();
  EXPECT_EQ(spectrum.tag, 0);
  EXPECT_EQ(
      spectrum.wavelength_start_nm + spectrum.wavelength_end_nm + spectrum.wavelength_resolution_nm,
      0.0);
  EXPECT_EQ(spectrum.wavelengths.Size() + spectrum.values.Size(), 0u);
}

TEST(FilterResponse, CopiesBothArrays) {
  std::vector<double> response = {0.1, 0.9, 0.2};
  std::vector<double> wavelengths = {500, 510, 520};
  const FilterResponse filter(response.data(), wavelengths.data(), 3, 17);
  response[0] = 5;
  EXPECT_EQ(filter.response, (std::vector<double>{0.1, 0.9, 0.2}));
  EXPECT_EQ(filter.wavelengths, (std::vector<double>{500, 510, 520}));
  EXPECT_EQ(filter.index, 17u);

  const FilterResponse empty(nullptr, nullptr, 0, 1);
  EXPECT_TRUE(empty.response.empty());
  EXPECT_THROW(FilterResponse(nullptr, wavelengths.data(), 3, 0), std::invalid_argument);
}

enum eColour : std::int32_t { RED = 0, GREEN = 1, BLUE = 2 };

TEST(Translator, LooksUpBothWaysStrictlyOrWithAFallbackAndKeepsItsLinksAsItGrows) {
  const auto invalid = [](const std::string& text) {
    return ::testing::ThrowsMessage<std::invalid_argument>(::testing::StrEq(text));
  };
  Translator<eColour> colours;
  colours.Register("red", RED);
  colours.Register("green", GREEN);
  EXPECT_EQ(GREEN, colours.ValueOf("green"));
  EXPECT_EQ("red", colours.TextOf(RED));
  EXPECT_THAT([&] { colours.ValueOf("blue"); }, invalid("Key does not exist."));
  EXPECT_THAT([&] { colours.TextOf(BLUE); }, invalid("Value does not exist."));
  EXPECT_EQ(BLUE, colours.ValueOr("Red", BLUE));
  EXPECT_EQ(RED, colours.ValueOr("red", BLUE));
  EXPECT_EQ("none", colours.TextOr(BLUE, "none"));
  EXPECT_EQ("green", colours.TextOr(GREEN, "none"));

  // A duplicate text is ignored whole; a second text of a value becomes its text.
  colours.Register("red", BLUE);
  EXPECT_EQ(RED, colours.ValueOf("red"));
  EXPECT_EQ("none", colours.TextOr(BLUE, "none"));
  colours.Register("crimson", RED);
  EXPECT_EQ(RED, colours.ValueOf("red"));
  EXPECT_EQ(RED, colours.ValueOf("crimson"));
  EXPECT_EQ("crimson", colours.TextOf(RED));

  // Enough entries to rebalance the trees many times over; every link must still reach the key of
  // its partner. Enough entries to rebalance the trees many times over; every link must still reach
  // the key of its partner.
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

TEST(PropertyContainer, StoresReplacesAndRemovesByExactNameAndCopiesDeeply) {
  PropertyContainer properties;
  properties.SetProperty("unit", "DN");
  properties.SetProperty("origin", "dark frame");
  properties.SetProperty("unit", "W/m2");
  EXPECT_EQ(properties.GetProperty("unit"), "W/m2");
  EXPECT_FALSE(properties.HasProperty("Unit"));
  EXPECT_EQ(properties.GetProperty("Unit", "none"), "none");

  const PropertyContainer copy = properties;
  EXPECT_TRUE(properties.RemoveProperty("origin"));
  EXPECT_FALSE(properties.RemoveProperty("origin"));
  EXPECT_EQ(properties.GetProperties(), (std::map<std::string, std::string>{{"unit", "W/m2"}}));
  EXPECT_EQ(copy.GetProperties(),
            (std::map<std::string, std::string>{{"origin", "dark frame"}, {"unit", "W/m2"}}));
}

}  // namespace
}  // namespace kelto::common

#include <kelto/common/strings.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace kelto::common {
namespace {

// Each case parses text into a value that held 7: whether it was taken, and the value after. A
// refused text leaves the value as it was.
template <typename T>
void ExpectParses(bool (*parse)(std::string_view, T&),
                  std::vector<std::tuple<std::string, bool, T>> const& cases) {
  for (auto const& [text, ok, expected] : cases) {
    T value = 7;
    EXPECT_EQ(parse(text, value), ok) << '"' << text << '"';
    EXPECT_EQ(value, ok ? expected : T(7)) << '"' << text << '"';
  }
}

TEST(StringsParse, WholeNumberTextWithSignAndSurroundingWhiteSpaceInRange) {
  ExpectParses<int>(Strings::ParseInt, {{"+1", true, 1},
                                        {" 2 ", true, 2},
                                        {"\t-3\r\n", true, -3},
                                        {"-2147483648", true, std::numeric_limits<int>::min()},
                                        {"2147483648", false, 0},
                                        {"1.5", false, 0}});
  std::vector<std::tuple<std::string, bool, double>> doubles = {{" +2.5e3 ", true, 2500.0},
                                                                {"-0.125", true, -0.125},
                                                                {"1e400", false, 0},
                                                                {"-1e400", false, 0}};
  for (const char* text : {"", "   ", "abc", "1x", "1 2", "+-1", "++1", "0x10", "1.5.2"}) {
    doubles.emplace_back(text, false, 0.0);
  }
  ExpectParses<double>(Strings::ParseDouble, doubles);
  ExpectParses<unsigned long>(Strings::ParseUnsignedLong, {{"18446744073709551615", true, ~0UL},
                                                           {"18446744073709551616", false, 0},
                                                           {"-1", false, 0},
                                                           {"-0", false, 0},
                                                           {" -0", false, 0}});
}

TEST(StringsFormat, SignificantDigitsAndSpecialValues) {
  using Limits = std::numeric_limits<double>;
  for (auto const& [value, digits, text] : std::vector<std::tuple<double, int, std::string>>{
           {470.123456789, 6, "470.123"},
           {0.000123456789, 3, "0.000123"},
           {2.0, 6, "2"},
           {1234567.0, 6, "1.23457e+06"},
           {0.1, 30, "0.10000000000000001"},  // at most 17
           {0.34, 0, "0.3"},
           {Limits::infinity(), 6, "inf"},
           {-Limits::infinity(), 6, "-inf"},
           {Limits::quiet_NaN(), 6, "nan"}}) {
    EXPECT_EQ(Strings::FormatDouble(value, digits), text) << value;
  }
  double back = 0.0;
  ASSERT_TRUE(Strings::ParseDouble("nan", back));
  EXPECT_TRUE(std::isnan(back));
}

TEST(StringsFormat, NumbersDoNotFollowTheProcessLocale) {
  const char* chosen = nullptr;
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) {
      chosen = name;
      break;
    }
  }
  if (chosen == nullptr) {
    GTEST_SKIP() << "no locale with a decimal comma is installed";
  }
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  double value = 0.0;
  const bool parsed = Strings::ParseDouble("1.5", value);
  const bool comma_parsed = Strings::ParseDouble("2,5", value);
  const std::string text = Strings::FormatDouble(1.5, 6);
  std::setlocale(LC_ALL, "C");
  EXPECT_TRUE(parsed) << chosen;
  EXPECT_FALSE(comma_parsed) << chosen;
  EXPECT_EQ(value, 1.5);
  EXPECT_EQ(text, "1.5");
}

TEST(StringsUnicode, NonAsciiRoundTripsAndInvalidSequencesBecomeReplacementCharacters) {
  const std::string utf8 = "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9D\x84\x9E";  // Grüße € 𝄞
  const std::wstring wide = Strings::StringToUnicode(utf8);
  EXPECT_EQ(wide, (std::wstring{L'G', L'r', wchar_t(0xFC), wchar_t(0xDF), L'e', L' ',
                                wchar_t(0x20AC), L' ', wchar_t(0x1D11E)}));
  EXPECT_EQ(Strings::UnicodeToString(wide), utf8);
  EXPECT_EQ(Strings::UnicodeToString(L""), "");

  const wchar_t replacement = wchar_t(0xFFFD);
  EXPECT_EQ(Strings::StringToUnicode(std::string("a\xFF") + "b"),
            (std::wstring{L'a', replacement, L'b'}));
  // A sequence cut short at the end of the text.
  EXPECT_EQ(Strings::StringToUnicode("a\xE2\x82"), (std::wstring{L'a', replacement, replacement}));
  // An overlong form must not smuggle in a '/', and an encoded surrogate is no character.
  for (const std::string text : {"\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80"}) {
    const std::wstring replaced = Strings::StringToUnicode(text);
    ASSERT_FALSE(replaced.empty());
    EXPECT_EQ(replaced, std::wstring(replaced.size(), replacement)) << text;
  }
  EXPECT_EQ(Strings::UnicodeToString(std::wstring{wchar_t(0xD800), L'x', wchar_t(0x110000)}),
            "\xEF\xBF\xBDx\xEF\xBF\xBD");
}

}  // namespace
}  // namespace kelto::common

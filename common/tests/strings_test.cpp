#include <kelto/common/strings.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace kelto::common {
namespace {

TEST(StringsParse, AcceptsSignAndSurroundingWhiteSpace) {
  int i = 0;
  EXPECT_TRUE(Strings::ParseInt("+1", i));
  EXPECT_EQ(i, 1);
  EXPECT_TRUE(Strings::ParseInt(" 2 ", i));
  EXPECT_EQ(i, 2);
  EXPECT_TRUE(Strings::ParseInt("\t-3\r\n", i));
  EXPECT_EQ(i, -3);

  double d = 0.0;
  EXPECT_TRUE(Strings::ParseDouble(" +2.5e3 ", d));
  EXPECT_EQ(d, 2500.0);
  EXPECT_TRUE(Strings::ParseDouble("-0.125", d));
  EXPECT_EQ(d, -0.125);

  unsigned long u = 0;
  EXPECT_TRUE(Strings::ParseUnsignedLong("18446744073709551615", u));
  EXPECT_EQ(u, std::numeric_limits<unsigned long>::max());
}

TEST(StringsParse, RefusesTextThatIsNotEntirelyANumberAndKeepsTheOutput) {
  for (const char* text : {"", "   ", "abc", "1x", "1 2", "+-1", "++1", "0x10", "1.5.2"}) {
    double d = 7.0;
    EXPECT_FALSE(Strings::ParseDouble(text, d)) << '"' << text << '"';
    EXPECT_EQ(d, 7.0) << '"' << text << '"';
  }
  int i = 7;
  EXPECT_FALSE(Strings::ParseInt("1.5", i));
  EXPECT_EQ(i, 7);
}

TEST(StringsParse, RefusesNumbersOutOfRange) {
  double d = 7.0;
  EXPECT_FALSE(Strings::ParseDouble("1e400", d));
  EXPECT_FALSE(Strings::ParseDouble("-1e400", d));
  EXPECT_EQ(d, 7.0);

  int i = 7;
  EXPECT_FALSE(Strings::ParseInt("2147483648", i));
  EXPECT_TRUE(Strings::ParseInt("-2147483648", i));
  EXPECT_EQ(i, std::numeric_limits<int>::min());

  unsigned long u = 7;
  EXPECT_FALSE(Strings::ParseUnsignedLong("18446744073709551616", u));
  EXPECT_FALSE(Strings::ParseUnsignedLong("-1", u));
  EXPECT_FALSE(Strings::ParseUnsignedLong("-0", u));
  EXPECT_FALSE(Strings::ParseUnsignedLong(" -0", u));
  EXPECT_EQ(u, 7u);
}

TEST(StringsParse, DoublesSplitOnSeparatorRunsAndStopAtTheFirstBadField) {
  std::vector<double> values;
  EXPECT_TRUE(Strings::ParseDoubles(" 1,  2.5 ,,3 ", ", ", values));
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.5, 3.0}));

  values.clear();
  EXPECT_FALSE(Strings::ParseDoubles("1 2 x 4", " ", values));
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.0}));

  values.clear();
  EXPECT_TRUE(Strings::ParseDoubles("1 2 3 4 5", " ", values, 2));
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.0}));
}

TEST(StringsFormat, SeventeenDigitsReadBackExactly) {
  const double cases[] = {0.1,
                          1.0 / 3.0,
                          470.88590604026845,
                          -1e-300,
                          std::numeric_limits<double>::max(),
                          std::numeric_limits<double>::denorm_min(),
                          std::numeric_limits<double>::lowest(),
                          123456789012345678.0};
  for (double value : cases) {
    double back = 0.0;
    ASSERT_TRUE(Strings::ParseDouble(Strings::FormatDouble(value, 17), back)) << value;
    EXPECT_EQ(back, value);
  }
  double zero = 1.0;
  ASSERT_TRUE(Strings::ParseDouble(Strings::FormatDouble(-0.0, 17), zero));
  EXPECT_TRUE(zero == 0.0 && std::signbit(zero));
}

TEST(StringsFormat, SignificantDigitsAndSpecialValues) {
  EXPECT_EQ(Strings::FormatDouble(470.123456789, 6), "470.123");
  EXPECT_EQ(Strings::FormatDouble(0.000123456789, 3), "0.000123");
  EXPECT_EQ(Strings::FormatDouble(2.0, 6), "2");
  EXPECT_EQ(Strings::FormatDouble(1234567.0, 6), "1.23457e+06");
  EXPECT_EQ(Strings::FormatDouble(0.1, 30), Strings::FormatDouble(0.1, 17));
  EXPECT_EQ(Strings::FormatDouble(0.34, 0), "0.3");

  EXPECT_EQ(Strings::FormatDouble(std::numeric_limits<double>::infinity(), 6), "inf");
  EXPECT_EQ(Strings::FormatDouble(-std::numeric_limits<double>::infinity(), 6), "-inf");
  const std::string nan = Strings::FormatDouble(std::numeric_limits<double>::quiet_NaN(), 6);
  EXPECT_EQ(nan, "nan");
  double back = 0.0;
  ASSERT_TRUE(Strings::ParseDouble(nan, back));
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

TEST(StringsUnicode, NonAsciiTextRoundTrips) {
  const std::string utf8 = "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9D\x84\x9E";  // Grüße € 𝄞
  const std::wstring wide = Strings::StringToUnicode(utf8);
  EXPECT_EQ(wide, (std::wstring{L'G', L'r', wchar_t(0xFC), wchar_t(0xDF), L'e', L' ',
                                wchar_t(0x20AC), L' ', wchar_t(0x1D11E)}));
  EXPECT_EQ(Strings::UnicodeToString(wide), utf8);
  EXPECT_EQ(Strings::UnicodeToString(L""), "");
}

TEST(StringsUnicode, InvalidSequencesBecomeReplacementCharacters) {
  const wchar_t replacement = wchar_t(0xFFFD);
  EXPECT_EQ(Strings::StringToUnicode("a\xFF"
                                     "b"),
            (std::wstring{L'a', replacement, L'b'}));
  // A sequence cut short at the end of the text.
  EXPECT_EQ(Strings::StringToUnicode("a\xE2\x82"), (std::wstring{L'a', replacement, replacement}));

  // An overlong form must not smuggle in a '/', and an encoded surrogate is no character.
  for (const std::string text : {"\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80"}) {
    const std::wstring wide = Strings::StringToUnicode(text);
    ASSERT_FALSE(wide.empty());
    for (wchar_t c : wide) {
      EXPECT_EQ(c, replacement);
    }
  }
  EXPECT_EQ(Strings::UnicodeToString(std::wstring{wchar_t(0xD800), L'x', wchar_t(0x110000)}),
            "\xEF\xBF\xBDx\xEF\xBF\xBD");
}

}  // namespace
}  // namespace kelto::common

#include <kelto/common/time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kelto::common {
namespace {

using std::chrono::microseconds;

time::TimePoint AtSeconds(long long s, long long us = 0) {
  return time::TimePoint(microseconds(s * 1'000'000 + us));
}

std::string Iso(time::TimePoint const& t) {
  return time::ToString(t, false, "%FT%TZ");
}

// Every text must be refused with std::invalid_argument naming it.
template <typename Parse>
void ExpectRefused(Parse parse, std::vector<std::string> const& texts) {
  for (std::string const& text : texts) {
    try {
      parse(text);
      ADD_FAILURE() << "accepted \"" << text << '"';
    } catch (std::invalid_argument const& error) {
      EXPECT_THAT(error.what(), ::testing::HasSubstr('"' + text + '"'));
    }
  }
}

TEST(TimeParse, BothFormsWithFractionsDownToMicroseconds) {
  const long long may17 = 1715938200;  // 2024-05-17T09:30:00Z
  for (auto const& [text, expected] : std::vector<std::pair<std::string, time::TimePoint>>{
           {"2024-05-17T09:30:00Z", AtSeconds(may17)},
           {"2024-05-17T09:30:00", AtSeconds(may17)},
           {"20240517T093000", AtSeconds(may17)},
           {"20240517T093000Z", AtSeconds(may17)},
           {"  2024-05-17T09:30:00Z\n", AtSeconds(may17)},
           {"1970-01-01T00:00:00Z", AtSeconds(0)},
           {"1900-01-01T00:00:00Z", AtSeconds(-2208988800LL)},
           {"9999-12-31T23:59:59Z", AtSeconds(253402300799LL)},
           // Fractions keep microseconds and drop the rest.
           {"2024-05-17T09:30:00.25Z", AtSeconds(may17, 250000)},
           {"2024-05-17T09:30:00.000001", AtSeconds(may17, 1)},
           {"20240517T093000.9999999", AtSeconds(may17, 999999)},
           // Leap days follow the Gregorian rules.
           {"2000-02-29T00:00:00Z", AtSeconds(951782400)},
           {"1600-02-29T00:00:00Z", AtSeconds(-11670998400LL)}}) {
    EXPECT_EQ(time::UniversalTimeFromString(text), expected) << text;
  }
  EXPECT_EQ(time::UniversalTimeFromString("2024-03-01T00:00:00Z") -
                time::UniversalTimeFromString("2024-02-28T00:00:00Z"),
            std::chrono::hours(48));
  ExpectRefused(
      time::UniversalTimeFromString,
      {"", "not-a-date-time", "2024-13-01T00:00:00Z", "2024-00-10T00:00:00Z",
       "2024-05-32T00:00:00Z", "2024-05-17T24:00:00Z", "2024-05-17T09:60:00Z",
       "2024-05-17 09:30:00", "2024-05-17T09:30", "2024-05-17T09:30:00ZZ", "2024-05-17T09:30:00.Z",
       "2024-5-17T09:30:00Z", "20240517T09:30:00", "2024-05-17", "2024-05-17T09:30:00+02:00",
       "300000-01-01T00:00:00Z", "2023-02-29T00:00:00Z", "1900-02-29T00:00:00Z"});
}

TEST(TimeRoundTrip, WrittenFormReadsBackAndPointsBeforeTheEpochRoundDown) {
  for (const std::string text :
       {"2024-05-17T09:30:00Z", "1900-01-01T00:00:00Z", "1969-12-31T23:59:59Z",
        "0001-01-01T00:00:00Z", "9999-12-31T23:59:59Z", "2024-02-29T12:00:00Z"}) {
    EXPECT_EQ(Iso(time::UniversalTimeFromString(text)), text);
  }

  const time::TimePoint later_year = AtSeconds(253402300800LL);  // 10000-01-01
  EXPECT_EQ(Iso(later_year), "10000-01-01T00:00:00Z");
  EXPECT_EQ(time::UniversalTimeFromString(Iso(later_year)), later_year);

  const time::TimePoint now = time::CurrentUniversalTime();
  EXPECT_EQ(time::UniversalTimeFromString(time::ToString(now, false, "%FT%T.%fZ")), now);

  // Half a second before 1970: the second shown is 23:59:59, not 00:00:00.
  const time::TimePoint t = AtSeconds(0, -500000);
  EXPECT_EQ(time::ToString(t, false, "%F %T.%f"), "1969-12-31 23:59:59.500000");
  EXPECT_EQ(time::UniversalTimeFromString("1969-12-31T23:59:59.5Z"), t);
}

TEST(TimeFormat, ConversionsAndUnknownConversionsThrow) {
  const time::TimePoint t = AtSeconds(1715938200 + 5 * 3600 + 7, 42);  // Fri 2024-05-17 14:30:07
  EXPECT_EQ(time::ToString(t, false, "%Y|%y|%m|%d|%e|%j|%H|%I|%M|%S|%f|%p"),
            "2024|24|05|17|17|138|14|02|30|07|000042|PM");
  EXPECT_EQ(time::ToString(t, false, "%a %A %b %h %B %u %w"), "Fri Friday May May May 5 5");
  EXPECT_EQ(time::ToString(t, false, "%R %z %Z 100%%%t%n"), "14:30 +0000 UTC 100%\t\n");
  EXPECT_EQ(time::ToString(AtSeconds(0), false, "%e %I %p %a %u %w"), " 1 12 AM Thu 4 4");
  EXPECT_EQ(time::ToString(AtSeconds(3 * 86400), false, "%a %u %w"), "Sun 7 0");
  EXPECT_EQ(time::ToString(t, false, "no conversion"), "no conversion");
  // Unknown conversions throw.
  EXPECT_THROW(time::ToString(AtSeconds(0), false, "%Q"), std::invalid_argument);
  EXPECT_THROW(time::ToString(AtSeconds(0), false, "%F %"), std::invalid_argument);
  EXPECT_THROW(time::ToString(time::Date(), "%E"), std::invalid_argument);
}

// Sets TZ for one test and restores it, so that local time has a known offset.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* old = std::getenv("TZ");
    had_old_ = old != nullptr;
    old_ = had_old_ ? old : "";
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~ScopedTimeZone() {
    if (had_old_) {
      ::setenv("TZ", old_.c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }

 private:
  bool had_old_ = false;
  std::string old_;
};

TEST(TimeFormat, TheFlagSelectsLocalTimeAndNowIsTheSystemClock) {
  const ScopedTimeZone zone("XYZ-02:30");  // POSIX form: two and a half hours east of UTC
  const time::TimePoint t = AtSeconds(1715938200);
  EXPECT_EQ(time::ToString(t, true, "%FT%T %z %Z"), "2024-05-17T12:00:00 +0230 XYZ");
  EXPECT_EQ(time::ToString(t, false, "%FT%T %z %Z"), "2024-05-17T09:30:00 +0000 UTC");
  // The offset carries the date over midnight.
  EXPECT_EQ(time::ToString(AtSeconds(1715938200 + 14 * 3600), true, "%F %R"), "2024-05-18 02:00");

  // The current time is the system clock in microseconds.
  const auto before = std::chrono::floor<microseconds>(std::chrono::system_clock::now());
  const time::TimePoint now = time::CurrentUniversalTime();
  const auto after = std::chrono::floor<microseconds>(std::chrono::system_clock::now());
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

TEST(Date, BothFormsReadAndTheExtendedFormReadsBack) {
  const time::Date date = time::DateFromString("2024-05-17");
  EXPECT_EQ(date.time_since_epoch().count(), 19860);
  EXPECT_EQ(time::DateFromString("20240517"), date);
  EXPECT_EQ(time::ToString(date, "%F"), "2024-05-17");
  EXPECT_EQ(time::ToString(date, "%d.%m.%Y %T %a"), "17.05.2024 00:00:00 Fri");

  EXPECT_EQ(time::DateFromString("1900-01-01").time_since_epoch().count(), -25567);
  for (const std::string text : {"1900-01-01", "0001-01-01", "2000-02-29", "9999-12-31"}) {
    EXPECT_EQ(time::ToString(time::DateFromString(text), "%F"), text);
  }
  // A date range far beyond that of a time point.
  const time::Date far(time::Date::duration(2'000'000'000));
  EXPECT_EQ(time::DateFromString(time::ToString(far, "%F")), far);
  ExpectRefused(time::DateFromString, {"", "2023-02-29", "2024-05-17T00:00:00Z", "17.05.2024",
                                       "2024-05", "202405170", "not-a-date-time", "9999999-01-01"});
}

}  // namespace
}  // namespace kelto::common

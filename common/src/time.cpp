#include <kelto/common/time.h>

#include <ctime>
#include <limits>
#include <stdexcept>
#include <string_view>

#include <kelto/common/strings.h>

namespace kelto::common::time {

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
constexpr std::int64_t kMicrosecondsPerDay = 86'400 * kMicrosecondsPerSecond;
// The days a TimePoint can hold, with room for the time of day.
constexpr std::int64_t kMaxDays =
    std::numeric_limits<std::int64_t>::max() / kMicrosecondsPerDay - 1;

std::int64_t FloorDiv(std::int64_t value, std::int64_t divisor) {
  const std::int64_t quotient = value / divisor;
  return value % divisor != 0 && (value < 0) != (divisor < 0) ? quotient - 1 : quotient;
}

std::int64_t FloorMod(std::int64_t value, std::int64_t divisor) {
  return value - FloorDiv(value, divisor) * divisor;
}

// Proleptic Gregorian calendar by arithmetic (days since 1970-01-01), so that any year works,
// unlike the C library's conversions that stop at the range of time_t or of the host's zone.
std::int64_t DaysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = FloorDiv(year, 400);
  const std::int64_t year_of_era = year - era * 400;
  const std::int64_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + day_of_era - 719468;
}

struct Civil {
  std::int64_t year;
  std::int64_t month;
  std::int64_t day;
};

Civil CivilFromDays(std::int64_t days) {
  days += 719468;
  const std::int64_t era = FloorDiv(days, 146097);
  const std::int64_t day_of_era = days - era * 146097;
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::int64_t shifted_month = (5 * day_of_year + 2) / 153;
  const std::int64_t day = day_of_year - (153 * shifted_month + 2) / 5 + 1;
  const std::int64_t month = shifted_month < 10 ? shifted_month + 3 : shifted_month - 9;
  return {year_of_era + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

std::int64_t DaysInMonth(std::int64_t year, std::int64_t month) {
  static constexpr std::int64_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  return month == 2 && leap ? 29 : kDays[month - 1];
}

// A cursor over the text; any surprise fails the whole parse.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool AtEnd() const { return at_ == text_.size(); }

  bool Accept(char c) {
    if (AtEnd() || text_[at_] != c) {
      return false;
    }
    ++at_;
    return true;
  }

  std::size_t DigitRun() const {
    std::size_t end = at_;
    while (end < text_.size() && text_[end] >= '0' && text_[end] <= '9') {
      ++end;
    }
    return end - at_;
  }

  // Exactly count digits.
  bool Digits(std::size_t count, std::int64_t& value) {
    if (DigitRun() < count) {
      return false;
    }
    value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      value = value * 10 + (text_[at_++] - '0');
    }
    return true;
  }

 private:
  std::string_view text_;
  std::size_t at_ = 0;
};

// "YYYYMMDD" (basic) or "YYYY-MM-DD" (extended, where the year may have a sign and up to seven
// digits, as %Y writes far years).
bool ReadDate(Reader& reader, std::int64_t& days, bool& basic) {
  const bool negative = reader.Accept('-');
  const std::size_t run = reader.DigitRun();
  std::int64_t year = 0;
  std::int64_t month = 0;
  std::int64_t day = 0;
  basic = run == 8 && !negative;
  const bool read =
      basic ? reader.Digits(4, year) && reader.Digits(2, month) && reader.Digits(2, day)
            : run >= 4 && run <= 7 && reader.Digits(run, year) && reader.Accept('-') &&
                  reader.Digits(2, month) && reader.Accept('-') && reader.Digits(2, day);
  if (!read || month < 1 || month > 12) {
    return false;
  }
  year = negative ? -year : year;
  if (day < 1 || day > DaysInMonth(year, month)) {
    return false;
  }
  days = DaysFromCivil(year, month, day);
  return true;
}

// "THHMMSS" or "THH:MM:SS", then an optional fraction and an optional "Z".
bool ReadTimeOfDay(Reader& reader, bool basic, std::int64_t& microseconds) {
  std::int64_t hour = 0;
  std::int64_t minute = 0;
  std::int64_t second = 0;
  const bool read = reader.Accept('T') && reader.Digits(2, hour) && (basic || reader.Accept(':')) &&
                    reader.Digits(2, minute) && (basic || reader.Accept(':')) &&
                    reader.Digits(2, second);
  if (!read || hour > 23 || minute > 59 || second > 59) {
    return false;
  }
  std::int64_t fraction = 0;
  if (reader.Accept('.') || reader.Accept(',')) {
    const std::size_t run = reader.DigitRun();
    if (run == 0) {
      return false;
    }
    // Digits below the microsecond are dropped, not rounded, so that a time never moves into the
    // next second.
    for (std::size_t i = 0; i < run; ++i) {
      std::int64_t digit = 0;
      reader.Digits(1, digit);
      fraction = i < 6 ? fraction * 10 + digit : fraction;
    }
    for (std::size_t i = run; i < 6; ++i) {
      fraction *= 10;
    }
  }
  reader.Accept('Z');
  microseconds = ((hour * 60 + minute) * 60 + second) * kMicrosecondsPerSecond + fraction;
  return reader.AtEnd();
}

// Long texts come from files; the message names them without copying them whole.
std::string Quote(const std::string& text) {
  constexpr std::size_t kShown = 64;
  return "\"" + (text.size() > kShown ? text.substr(0, kShown) + "..." : text) + "\"";
}

struct Fields {
  std::int64_t days = 0;          // since 1970-01-01 in the zone of the fields
  std::int64_t microseconds = 0;  // since midnight
  long offset_seconds = 0;
  std::string zone = "UTC";
};

constexpr const char* kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};
constexpr const char* kMonths[] = {"January",   "February", "March",    "April",
                                   "May",       "June",     "July",     "August",
                                   "September", "October",  "November", "December"};

void AppendNumber(std::string& out, std::int64_t value, std::size_t width, char fill = '0') {
  const std::string digits = std::to_string(value < 0 ? -value : value);
  if (value < 0) {
    out += '-';
  }
  if (digits.size() < width) {
    out.append(width - digits.size(), fill);
  }
  out += digits;
}

void Format(std::string& out, const Fields& fields, const std::string& format) {
  const Civil civil = CivilFromDays(fields.days);
  const std::int64_t seconds = fields.microseconds / kMicrosecondsPerSecond;
  const std::int64_t hour = seconds / 3600;
  const std::int64_t weekday = FloorMod(fields.days + 4, 7);  // 1970-01-01 was a Thursday
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      out += format[i];
      continue;
    }
    if (++i == format.size()) {
      throw std::invalid_argument("the time format \"" + format + "\" ends in '%'");
    }
    switch (format[i]) {
      case 'Y':
        AppendNumber(out, civil.year, 4);
        break;
      case 'y':
        AppendNumber(out, FloorMod(civil.year, 100), 2);
        break;
      case 'm':
        AppendNumber(out, civil.month, 2);
        break;
      case 'd':
        AppendNumber(out, civil.day, 2);
        break;
      case 'e':
        AppendNumber(out, civil.day, 2, ' ');
        break;
      case 'j':
        AppendNumber(out, fields.days - DaysFromCivil(civil.year, 1, 1) + 1, 3);
        break;
      case 'H':
        AppendNumber(out, hour, 2);
        break;
      case 'I':
        AppendNumber(out, hour % 12 == 0 ? 12 : hour % 12, 2);
        break;
      case 'M':
        AppendNumber(out, seconds / 60 % 60, 2);
        break;
      case 'S':
        AppendNumber(out, seconds % 60, 2);
        break;
      case 'f':
        AppendNumber(out, fields.microseconds % kMicrosecondsPerSecond, 6);
        break;
      case 'p':
        out += hour < 12 ? "AM" : "PM";
        break;
      case 'a':
        out.append(kWeekdays[weekday], 3);
        break;
      case 'A':
        out += kWeekdays[weekday];
        break;
      case 'b':
      case 'h':
        out.append(kMonths[civil.month - 1], 3);
        break;
      case 'B':
        out += kMonths[civil.month - 1];
        break;
      case 'u':
        AppendNumber(out, weekday == 0 ? 7 : weekday, 1);
        break;
      case 'w':
        AppendNumber(out, weekday, 1);
        break;
      case 'z': {
        const long offset =
            fields.offset_seconds < 0 ? -fields.offset_seconds : fields.offset_seconds;
        out += fields.offset_seconds < 0 ? '-' : '+';
        AppendNumber(out, offset / 3600, 2);
        AppendNumber(out, offset / 60 % 60, 2);
        break;
      }
      case 'Z':
        out += fields.zone;
        break;
      case 'F':
        Format(out, fields, "%Y-%m-%d");
        break;
      case 'T':
        Format(out, fields, "%H:%M:%S");
        break;
      case 'R':
        Format(out, fields, "%H:%M");
        break;
      case '%':
        out += '%';
        break;
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      default:
        throw std::invalid_argument(std::string("unknown conversion '%") + format[i] +
                                    "' in the time format \"" + format + "\"");
    }
  }
}

}  // namespace

TimePoint CurrentUniversalTime() {
  return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

TimePoint UniversalTimeFromString(const std::string& text) {
  Reader reader(Strings::Trim(text));
  std::int64_t days = 0;
  std::int64_t microseconds = 0;
  bool basic = false;
  if (!ReadDate(reader, days, basic) || !ReadTimeOfDay(reader, basic, microseconds)) {
    throw std::invalid_argument("not a UTC time of the form 2024-05-17T09:30:00Z: " + Quote(text));
  }
  if (days > kMaxDays || days < -kMaxDays) {
    throw std::invalid_argument("the time is out of range: " + Quote(text));
  }
  return TimePoint(std::chrono::microseconds(days * kMicrosecondsPerDay + microseconds));
}

std::string ToString(TimePoint const& time, const bool& local, const std::string& format) {
  const std::int64_t count = time.time_since_epoch().count();
  Fields fields;
  if (local) {
    const auto seconds = static_cast<std::time_t>(FloorDiv(count, kMicrosecondsPerSecond));
    std::tm parts{};
    if (localtime_r(&seconds, &parts) != nullptr) {
      fields.offset_seconds = parts.tm_gmtoff;
      fields.zone = parts.tm_zone == nullptr ? "" : parts.tm_zone;
    }
  }
  // Days and time of day apart, so that adding the zone's offset can't overflow at the ends of
  // the range.
  fields.days = FloorDiv(count, kMicrosecondsPerDay);
  const std::int64_t of_day = count - fields.days * kMicrosecondsPerDay +
                              std::int64_t{fields.offset_seconds} * kMicrosecondsPerSecond;
  fields.days += FloorDiv(of_day, kMicrosecondsPerDay);
  fields.microseconds = FloorMod(of_day, kMicrosecondsPerDay);
  std::string out;
  Format(out, fields, format);
  return out;
}

Date DateFromString(const std::string& text) {
  Reader reader(Strings::Trim(text));
  std::int64_t days = 0;
  bool basic = false;
  if (!ReadDate(reader, days, basic) || !reader.AtEnd()) {
    throw std::invalid_argument("not a date of the form 2024-05-17: " + Quote(text));
  }
  if (days > std::numeric_limits<Date::rep>::max() ||
      days < std::numeric_limits<Date::rep>::min()) {
    throw std::invalid_argument("the date is out of range: " + Quote(text));
  }
  return Date(Date::duration(static_cast<Date::rep>(days)));
}

std::string ToString(Date const& date, const std::string& format) {
  Fields fields;
  fields.days = date.time_since_epoch().count();
  std::string out;
  Format(out, fields, format);
  return out;
}

}  // namespace kelto::common::time

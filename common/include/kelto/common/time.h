// Time stamps and dates of the family's files: calibrations stamp when a matrix was computed and
// when a component was measured, and modules time their work. Text forms are the ISO 8601 forms,
// read and written independently of the process locale and of the C library's time range.
// Thread-safety: no shared state (no static buffers of the C library); safe from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <ratio>
#include <string>

#include <kelto/common/export.h>

namespace kelto::common::time {

using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;
using Date = std::chrono::time_point<std::chrono::system_clock,
                                     std::chrono::duration<std::int32_t, std::ratio<86400>>>;

// Now, UTC, to the microsecond.
KELTO_COMMON_EXPORT TimePoint CurrentUniversalTime();

// Reads "2024-05-17T09:30:00Z" (optionally with a fraction of a second, of which microseconds are
// kept, and with or without the Z) and the basic form "20240517T093000" of older files. The text
// is UTC. Throws std::invalid_argument for any other text.
KELTO_COMMON_EXPORT TimePoint UniversalTimeFromString(const std::string& text);

// Formats by a strftime-like format: %Y %y %m %d %e %j %H %I %M %S %p %a %A %b %h %B %u %w %z %Z
// %F %T %R %% %n %t, and %f for the six digits of the microseconds. Names are English whatever
// the locale. local picks the local time zone, otherwise UTC; "%FT%TZ" of a UTC time gives
// "2024-05-17T09:30:00Z". Throws std::invalid_argument for an unknown conversion.
KELTO_COMMON_EXPORT std::string ToString(TimePoint const& time, const bool& local,
                                         const std::string& format);

// Reads "2024-05-17" and "20240517". Throws std::invalid_argument for any other text.
KELTO_COMMON_EXPORT Date DateFromString(const std::string& text);

// Formats a date as ToString of its midnight, UTC; "%F" gives "2024-05-17".
KELTO_COMMON_EXPORT std::string ToString(Date const& date, const std::string& format);

}  // namespace kelto::common::time

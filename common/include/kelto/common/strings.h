// Text helpers of the family: the number forms of XML and CSV files, and wide strings. Numbers
// are read and written independently of the process locale, so that a host program that sets a
// locale with a decimal comma still reads and writes the same files.
// Thread-safety: no state and no locale; safe from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kelto/common/export.h>

namespace kelto::common::Strings {

// The UTF-8 text of a wide string.
KELTO_COMMON_EXPORT std::string UnicodeToString(const std::wstring& text);
// The wide string of UTF-8 text; a malformed byte sequence becomes U+FFFD.
KELTO_COMMON_EXPORT std::wstring StringToUnicode(const std::string& text);

// The text without leading and trailing ASCII white space.
KELTO_COMMON_EXPORT std::string_view Trim(std::string_view text);

// Parsers of a whole number text (surrounding white space allowed, a leading '+' allowed).
// They return false and leave the output alone when the text is not entirely a number of that
// type, or does not fit it.
KELTO_COMMON_EXPORT bool ParseDouble(std::string_view text, double& value);
KELTO_COMMON_EXPORT bool ParseInt(std::string_view text, int& value);
KELTO_COMMON_EXPORT bool ParseUnsignedLong(std::string_view text, unsigned long& value);

// Splits on any run of the given separator characters and parses each field as a double. Empty
// fields are skipped. At most max_count values are stored. Returns false at the first field that
// is not a number, keeping the values before it.
KELTO_COMMON_EXPORT bool ParseDoubles(std::string_view text, std::string_view separators,
                                      std::vector<double>& values,
                                      std::size_t max_count = static_cast<std::size_t>(-1));

// Shortest "%g"-like text with the given number of significant digits (1 to 17); "nan", "inf"
// and "-inf" for the special values. With 17 digits, the default, every double reads back as
// itself, which is what error messages that quote a value want.
KELTO_COMMON_EXPORT std::string FormatDouble(double value, int significant_digits = 17);

}  // namespace kelto::common::Strings

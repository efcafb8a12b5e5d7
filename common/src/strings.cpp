#include <kelto/common/strings.h>

#include <charconv>
#include <limits>

namespace kelto::common::Strings {

namespace {

void AppendUtf8(std::string& out, char32_t code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

constexpr char32_t kReplacement = 0xFFFD;

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// from_chars refuses a leading '+', which hand-edited files do hold.
std::string_view PrepareNumber(std::string_view text) {
  text = Trim(text);
  if (!text.empty() && text.front() == '+' && (text.size() < 2 || text[1] != '-')) {
    text.remove_prefix(1);
  }
  return text;
}

template <typename T>
bool ParseWhole(std::string_view text, T& value) {
  text = PrepareNumber(text);
  if (text.empty()) {
    return false;
  }
  T parsed{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size()) {
    return false;
  }
  value = parsed;
  return true;
}

}  // namespace

std::string UnicodeToString(const std::wstring& text) {
  std::string out;
  out.reserve(text.size());
  for (wchar_t c : text) {
    const auto code = static_cast<char32_t>(c);
    const bool valid = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    AppendUtf8(out, valid ? code : kReplacement);
  }
  return out;
}

std::wstring StringToUnicode(const std::string& text) {
  std::wstring out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const auto lead = static_cast<unsigned char>(text[i]);
    int length = lead < 0x80           ? 1
                 : (lead >> 5) == 0x6  ? 2
                 : (lead >> 4) == 0xE  ? 3
                 : (lead >> 3) == 0x1E ? 4
                                       : 0;
    if (length == 0 || i + static_cast<std::size_t>(length) > text.size()) {
      out += static_cast<wchar_t>(kReplacement);
      ++i;
      continue;
    }
    char32_t code = length == 1 ? lead : lead & (0x7F >> length);
    bool valid = true;
    for (int k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
      valid = valid && (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    valid =
        valid && code >= kSmallest[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    out += static_cast<wchar_t>(valid ? code : kReplacement);
    i += valid ? static_cast<std::size_t>(length) : 1;
  }
  return out;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsSpace(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

bool ParseDouble(std::string_view text, double& value) {
  return ParseWhole(text, value);
}

bool ParseInt(std::string_view text, int& value) {
  return ParseWhole(text, value);
}

bool ParseUnsignedLong(std::string_view text, unsigned long& value) {
  // from_chars would read "-1" as an error already; this keeps "-0" out as well.
  if (!Trim(text).empty() && Trim(text).front() == '-') {
    return false;
  }
  return ParseWhole(text, value);
}

bool ParseDoubles(std::string_view text, std::string_view separators, std::vector<double>& values,
                  std::size_t max_count) {
  // A table instead of find_first_of: this loop reads every response of a calibration, and a
  // search of the separators per character costs more than the number conversion.
  bool is_separator[256] = {};
  for (char c : separators) {
    is_separator[static_cast<unsigned char>(c)] = true;
  }
  const char* at = text.data();
  const char* const end = at + text.size();
  while (values.size() < max_count) {
    while (at < end && is_separator[static_cast<unsigned char>(*at)]) {
      ++at;
    }
    if (at == end) {
      break;
    }
    const char* field_end = at;
    while (field_end < end && !is_separator[static_cast<unsigned char>(*field_end)]) {
      ++field_end;
    }
    double value = 0.0;
    if (!ParseDouble(std::string_view(at, static_cast<std::size_t>(field_end - at)), value)) {
      return false;
    }
    values.push_back(value);
    at = field_end;
  }
  return true;
}

std::string FormatDouble(double value, int significant_digits) {
  if (significant_digits < 1) {
    significant_digits = 1;
  } else if (significant_digits > 17) {
    significant_digits = 17;
  }
  char buffer[64];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof(buffer), value,
                                          std::chars_format::general, significant_digits);
  if (error != std::errc()) {
    return "nan";
  }
  return std::string(buffer, end);
}

}  // namespace kelto::common::Strings

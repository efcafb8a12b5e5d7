#include <kelto/common/utilities.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include <kelto/common/strings.h>

namespace kelto::common::Utilities {

namespace {

int Digits(unsigned long precision) {
  return static_cast<int>(std::min<unsigned long>(precision, 17));
}

void AppendRow(std::string& text, const double* values, std::size_t count, int digits) {
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) {
      text += ',';
    }
    text += Strings::FormatDouble(values[i], digits);
  }
  text += '\n';
}

void WriteText(std::string const& text, filesystem::Path const& path) {
  std::ofstream stream(path.Native(), std::ios::binary | std::ios::trunc);
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  stream.close();
  if (!stream) {
    throw std::runtime_error("cannot write the CSV file " + path.ToString());
  }
}

}  // namespace

void WriteCsv(std::vector<double> const& values, bool one_per_line, filesystem::Path const& path,
              unsigned long precision) {
  std::string text;
  if (one_per_line) {
    for (double value : values) {
      AppendRow(text, &value, 1, Digits(precision));
    }
  } else {
    AppendRow(text, values.data(), values.size(), Digits(precision));
  }
  WriteText(text, path);
}

void WriteCsv(std::vector<std::vector<double>> const& rows, filesystem::Path const& path,
              unsigned long precision) {
  std::string text;
  for (const std::vector<double>& row : rows) {
    AppendRow(text, row.data(), row.size(), Digits(precision));
  }
  WriteText(text, path);
}

void WriteCsv(const double* data, unsigned long rows, unsigned long columns,
              filesystem::Path const& path, unsigned long precision) {
  if (data == nullptr && rows != 0 && columns != 0) {
    throw std::invalid_argument("WriteCsv: no data for a block of " + std::to_string(rows) +
                                " by " + std::to_string(columns) + " values");
  }
  std::string text;
  for (unsigned long r = 0; r < rows; ++r) {
    AppendRow(text, data + r * columns, columns, Digits(precision));
  }
  WriteText(text, path);
}

}  // namespace kelto::common::Utilities

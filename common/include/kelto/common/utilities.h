// CSV output of the debug dumps: modules write their intermediate vectors and matrices with these
// so that a computation can be followed in a spreadsheet. Values are separated by ",", one row per
// line, each with the given number of significant digits, independently of the process locale.
// Thread-safety: no shared state; threads may write different files at once.
#pragma once

#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/path.h>

namespace kelto::common::Utilities {

// One vector: one value per line when one_per_line is true, otherwise all on one line.
KELTO_COMMON_EXPORT void WriteCsv(std::vector<double> const& values, bool one_per_line,
                                  filesystem::Path const& path, unsigned long precision);

// One line per row; rows may differ in length.
KELTO_COMMON_EXPORT void WriteCsv(std::vector<std::vector<double>> const& rows,
                                  filesystem::Path const& path, unsigned long precision);

// A row-major block of rows by columns. Throws std::invalid_argument for a null block that claims
// values.
KELTO_COMMON_EXPORT void WriteCsv(const double* data, unsigned long rows, unsigned long columns,
                                  filesystem::Path const& path, unsigned long precision);

// All three replace the file and throw std::runtime_error naming it when it can't be written.

}  // namespace kelto::common::Utilities

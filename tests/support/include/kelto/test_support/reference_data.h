// Reference tables that scripts compute outside the library (SciPy, NumPy) and write as text:
// records of named rows of numbers, read at run time by the tests that compare against them.
// The file form: "record <kind> <name>" opens a record, then each line "<row> <value>..." adds a
// row; blank lines and lines starting with "#" are skipped. Values keep 17 significant digits.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kelto::testing {

struct ReferenceRecord {
  std::string kind, name;
  std::map<std::string, std::vector<double>> rows;

  // The row of that name; a missing row throws std::out_of_range naming it.
  const std::vector<double>& Row(const std::string& row) const;
};

// Every record of the file, in order; throws std::runtime_error naming the file and line when the
// file cannot be opened or a line is not of the form above.
std::vector<ReferenceRecord> ReadReferenceRecords(const std::filesystem::path& file);

}  // namespace kelto::testing

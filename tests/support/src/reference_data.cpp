#include <kelto/test_support/reference_data.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kelto::testing {

const std::vector<double>& ReferenceRecord::Row(const std::string& row) const {
  const auto found = rows.find(row);
  if (found == rows.end()) {
    throw std::out_of_range("reference record " + kind + " " + name + " has no row " + row);
  }
  return found->second;
}

std::vector<ReferenceRecord> ReadReferenceRecords(const std::filesystem::path& file) {
  std::ifstream in(file);
  if (!in) {
    throw std::runtime_error("cannot open reference data " + file.string());
  }
  std::vector<ReferenceRecord> records;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    std::istringstream words(line);
    std::string head;
    if (!(words >> head) || head[0] == '#') {
      continue;
    }
    const std::string where = file.string() + ":" + std::to_string(number);
    if (head == "record") {
      ReferenceRecord record;
      if (!(words >> record.kind >> record.name)) {
        throw std::runtime_error(where + ": a record needs a kind and a name");
      }
      records.push_back(std::move(record));
      continue;
    }
    if (records.empty()) {
      throw std::runtime_error(where + ": a row before the first record");
    }
    std::vector<double>& row = records.back().rows[head];
    std::string value;
    while (words >> value) {
      std::size_t used = 0;
      try {
        row.push_back(std::stod(value, &used));
      } catch (const std::exception&) {
        used = 0;
      }
      if (used != value.size()) {
        throw std::runtime_error(where + ": not a number: " + value);
      }
    }
  }
  return records;
}

}  // namespace kelto::testing

#include <kelto/common/utilities.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "temporary_directory.h"

namespace kelto::common {
namespace {

std::string ReadBack(std::filesystem::path const& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

class WriteCsvTest : public ::testing::Test {
 protected:
  std::filesystem::path File(const char* name) const { return directory_.path() / name; }

  testing::TemporaryDirectory directory_;
};

TEST_F(WriteCsvTest, SingleVectorOnePerLineOrOnOneLine) {
  const std::vector<double> values = {1.0, 0.5, 1.0 / 3.0, -2.5e-7};
  Utilities::WriteCsv(values, true, File("column.csv"), 6);
  EXPECT_EQ(ReadBack(File("column.csv")), "1\n0.5\n0.333333\n-2.5e-07\n");
  Utilities::WriteCsv(values, false, File("row.csv"), 6);
  EXPECT_EQ(ReadBack(File("row.csv")), "1,0.5,0.333333,-2.5e-07\n");
  Utilities::WriteCsv(std::vector<double>{}, true, File("empty.csv"), 6);
  EXPECT_EQ(ReadBack(File("empty.csv")), "");
}

TEST_F(WriteCsvTest, RowsOfDifferentLengths) {
  Utilities::WriteCsv({{1.0, 2.0}, {3.0}, {}, {470.123456789, 5.0}}, File("rows.csv"), 6);
  EXPECT_EQ(ReadBack(File("rows.csv")), "1,2\n3\n\n470.123,5\n");
}

TEST_F(WriteCsvTest, BlockIsRowMajor) {
  const double block[] = {1, 2, 3, 4, 5, 6};
  Utilities::WriteCsv(block, 2, 3, File("block.csv"), 6);
  EXPECT_EQ(ReadBack(File("block.csv")), "1,2,3\n4,5,6\n");
  Utilities::WriteCsv(block, 3, 2, File("block.csv"), 6);
  EXPECT_EQ(ReadBack(File("block.csv")), "1,2\n3,4\n5,6\n");
  Utilities::WriteCsv(nullptr, 0, 0, File("none.csv"), 6);
  EXPECT_EQ(ReadBack(File("none.csv")), "");
  EXPECT_THROW(Utilities::WriteCsv(nullptr, 2, 3, File("null.csv"), 6), std::invalid_argument);
}

TEST_F(WriteCsvTest, PrecisionIsSignificantDigits) {
  Utilities::WriteCsv({0.1, 123456.789}, false, File("p17.csv"), 17);
  EXPECT_EQ(ReadBack(File("p17.csv")), "0.10000000000000001,123456.789\n");
  Utilities::WriteCsv({0.1, 123456.789}, false, File("p3.csv"), 3);
  EXPECT_EQ(ReadBack(File("p3.csv")), "0.1,1.23e+05\n");
  Utilities::WriteCsv({1.0 / 3.0}, false, File("p99.csv"), 99);
  EXPECT_EQ(ReadBack(File("p99.csv")), "0.33333333333333331\n");
}

TEST_F(WriteCsvTest, ReplacesAnExistingFile) {
  Utilities::WriteCsv({1, 2, 3, 4, 5, 6, 7, 8}, true, File("again.csv"), 6);
  Utilities::WriteCsv({9}, true, File("again.csv"), 6);
  EXPECT_EQ(ReadBack(File("again.csv")), "9\n");
}

TEST_F(WriteCsvTest, UnwritablePathThrowsNamingIt) {
  const std::string path = (directory_.path() / "missing" / "x.csv").string();
  const double one = 1.0;
  for (int overload = 0; overload < 3; ++overload) {
    try {
      if (overload == 0) {
        Utilities::WriteCsv({1.0}, true, path, 6);
      } else if (overload == 1) {
        Utilities::WriteCsv({{1.0}}, path, 6);
      } else {
        Utilities::WriteCsv(&one, 1, 1, path, 6);
      }
      ADD_FAILURE() << "overload " << overload << " wrote " << path;
    } catch (std::runtime_error const& error) {
      EXPECT_THAT(error.what(), ::testing::HasSubstr(path));
    }
  }
}

}  // namespace
}  // namespace kelto::common

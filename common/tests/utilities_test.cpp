#include <kelto/common/utilities.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelto/test_support/temporary_directory.h>

namespace kelto::common {
namespace {

// Every form writes the same file, so that each case also shows an existing file is replaced.
class WriteCsvTest : public ::testing::Test {
 protected:
  std::string Contents() const {
    std::ifstream stream(path_, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
  }

  kelto::testing::TemporaryDirectory directory_;
  const std::string path_ = (directory_.path() / "out.csv").string();
};

TEST_F(WriteCsvTest, EveryFormWithItsLinesAndDigitsOrAnErrorNamingThePath) {
  const std::vector<double> values = {1.0, 0.5, 1.0 / 3.0, -2.5e-7};
  Utilities::WriteCsv(values, true, path_, 6);
  EXPECT_EQ(Contents(), "1\n0.5\n0.333333\n-2.5e-07\n");
  Utilities::WriteCsv(values, false, path_, 6);
  EXPECT_EQ(Contents(), "1,0.5,0.333333,-2.5e-07\n");
  Utilities::WriteCsv(std::vector<double>{}, true, path_, 6);
  EXPECT_EQ(Contents(), "");
  Utilities::WriteCsv({{1.0, 2.0}, {3.0}, {}, {470.123456789, 5.0}}, path_, 6);
  EXPECT_EQ(Contents(), "1,2\n3\n\n470.123,5\n");
  const double block[] = {1, 2, 3, 4, 5, 6};
  Utilities::WriteCsv(block, 2, 3, path_, 6);
  EXPECT_EQ(Contents(), "1,2,3\n4,5,6\n");
  Utilities::WriteCsv(block, 3, 2, path_, 6);
  EXPECT_EQ(Contents(), "1,2\n3,4\n5,6\n");
  Utilities::WriteCsv(nullptr, 0, 0, path_, 6);
  EXPECT_EQ(Contents(), "");
  EXPECT_THROW(Utilities::WriteCsv(nullptr, 2, 3, path_, 6), std::invalid_argument);
  // The precision is significant digits, at most 17.
  Utilities::WriteCsv({0.1, 123456.789}, false, path_, 17);
  EXPECT_EQ(Contents(), "0.10000000000000001,123456.789\n");
  Utilities::WriteCsv({0.1, 123456.789}, false, path_, 3);
  EXPECT_EQ(Contents(), "0.1,1.23e+05\n");
  Utilities::WriteCsv({1.0 / 3.0}, false, path_, 99);
  EXPECT_EQ(Contents(), "0.33333333333333331\n");

  // An unwritable path throws, naming it.
  const std::string path = (directory_.path() / "missing" / "x.csv").string();
  const double one = 1.0;
  for (const auto& write :
       std::vector<std::function<void()>>{[&] { Utilities::WriteCsv({1.0}, true, path, 6); },
                                          [&] { Utilities::WriteCsv({{1.0}}, path, 6); },
                                          [&] { Utilities::WriteCsv(&one, 1, 1, path, 6); }}) {
    try {
      write();
      ADD_FAILURE() << "wrote " << path;
    } catch (std::runtime_error const& error) {
      EXPECT_THAT(error.what(), ::testing::HasSubstr(path));
    }
  }
}

}  // namespace
}  // namespace kelto::common

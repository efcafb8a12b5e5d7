#include <kelto/common/path.h>

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include <kelto/test_support/temporary_directory.h>

namespace kelto::common {
namespace {

using filesystem::Path;

TEST(Path, KeepsItsTextJoinsWithOneSeparatorAndStemDropsTheLastExtension) {
  const Path path("./calibrations//sensor.xml");
  EXPECT_EQ(path.ToString(), "./calibrations//sensor.xml");
  EXPECT_EQ((Path("debug_dump") / Path("peaks.csv")).GetPath(), "debug_dump/peaks.csv");
  EXPECT_EQ((Path("debug_dump/") / "peaks.csv").GetPath(), "debug_dump/peaks.csv");
  EXPECT_EQ((Path(std::string("a")) / "b" / "c").ToString(), "a/b/c");
  Path assigned("first");
  assigned = Path("second/file.txt");
  EXPECT_EQ(assigned, Path("second/file.txt"));

  // The stem drops only the last extension.
  EXPECT_EQ(Path("dir/sensor_calibration.xml").Stem(), "sensor_calibration");
  EXPECT_EQ(Path("dir/archive.tar.gz").Stem(), "archive.tar");
  EXPECT_EQ(Path("dir/.hidden").Stem(), ".hidden");
  EXPECT_EQ(Path("no_extension").Stem(), "no_extension");
}

TEST(Path, ExistsAndCreateDirectories) {
  const kelto::testing::TemporaryDirectory directory;
  const Path root(directory.path());
  EXPECT_TRUE(root.Exists());
  EXPECT_FALSE((root / "absent").Exists());

  const Path nested = root / "a" / "b" / "c";
  filesystem::CreateDirectories(nested);
  EXPECT_TRUE(nested.Exists());
  EXPECT_NO_THROW(filesystem::CreateDirectories(nested));
  EXPECT_NO_THROW(filesystem::CreateDirectories(root));

  const Path file = root / "plain.txt";
  std::ofstream(file.Native()) << "x";
  EXPECT_TRUE(file.Exists());
  EXPECT_THROW(filesystem::CreateDirectories(file), std::runtime_error);
  EXPECT_THROW(filesystem::CreateDirectories(file / "below"), std::runtime_error);
}

}  // namespace
}  // namespace kelto::common

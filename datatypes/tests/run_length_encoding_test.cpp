#include <kelto/datatypes/run_length_encoding.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace kelto::datatypes {
namespace {

using Pixels = std::vector<std::pair<int, int>>;

TEST(RunLengthEncoding, RasterizeKeepsRunOrderAndOverlapsEqualityTheOrderRunsStayInInt) {
  RunLengthEncoding encoding;
  EXPECT_TRUE(encoding.IsEmpty());
  EXPECT_TRUE(RunLengthEncodingOperations::Rasterize(encoding).empty());
  encoding.AddRun(5, 2, 3);
  encoding.AddRun(-2, -1, 2);
  encoding.AddRun(0, 7, 1);
  encoding.AddRun(-1, -1, 2);  // overlaps the second run; both are kept as given
  EXPECT_FALSE(encoding.IsEmpty());
  EXPECT_EQ(encoding.GetRuns().size(), 4UL);
  EXPECT_EQ(encoding.GetNrOfPixels(), 8UL);
  EXPECT_EQ(RunLengthEncodingOperations::Rasterize(encoding),
            (Pixels{{5, 2}, {6, 2}, {7, 2}, {-2, -1}, {-1, -1}, {0, 7}, {-1, -1}, {0, -1}}));
  // Equality compares the runs in order.
  RunLengthEncoding copy = encoding;
  EXPECT_EQ(copy, encoding);
  copy.AddRun(0, 0, 1);
  EXPECT_NE(copy, encoding);
  RunLengthEncoding reordered;
  for (auto it = encoding.GetRuns().rbegin(); it != encoding.GetRuns().rend(); ++it) {
    reordered.AddRun(it->x, it->y, it->length);
  }
  EXPECT_NE(reordered, encoding);
  encoding.Clear();
  EXPECT_EQ(encoding, RunLengthEncoding());
  EXPECT_TRUE(encoding.IsEmpty());
  EXPECT_EQ(encoding.GetNrOfPixels(), 0UL);

  // Runs must be positive and end within int.
  constexpr int kMax = std::numeric_limits<int>::max();
  RunLengthEncoding bounded;
  EXPECT_THAT([&] { bounded.AddRun(0, 0, 0); },
              ::testing::ThrowsMessage<std::invalid_argument>(
                  ::testing::HasSubstr("run length 0 is not positive")));
  EXPECT_THROW(bounded.AddRun(0, 0, -3), std::invalid_argument);
  EXPECT_THROW(bounded.AddRun(kMax, 0, 2), std::invalid_argument);
  EXPECT_THROW(bounded.AddRun(2, 0, kMax), std::invalid_argument);
  EXPECT_TRUE(bounded.IsEmpty());

  bounded.AddRun(kMax - 1, 0, 2);
  bounded.AddRun(1, 0, kMax);
  bounded.AddRun(std::numeric_limits<int>::min(), 0, kMax);
  EXPECT_EQ(bounded.GetNrOfPixels(), 2UL + 2UL * static_cast<unsigned long>(kMax));
  EXPECT_EQ(bounded.GetRuns().front(), (RunLengthEncoding::Run{kMax - 1, 0, 2}));
}

}  // namespace
}  // namespace kelto::datatypes

#include <kelto/geometry/circle_shape.h>
#include <kelto/geometry/polygon_shape.h>
#include <kelto/geometry/rectangle_shape.h>
#include <kelto/geometry/shape_to_run_length_encoding_visitor.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace kelto::datatypes {
// Readable failures for run lists.
void PrintTo(RunLengthEncoding::Run const& run, std::ostream* out) {
  *out << "{x " << run.x << ", y " << run.y << ", length " << run.length << "}";
}
}  // namespace kelto::datatypes

namespace kelto::geometry {
namespace {

using PixelRun = datatypes::RunLengthEncoding::Run;
using Runs = std::vector<PixelRun>;

Runs RunsOf(AbstractShape const& shape) {
  ShapeToRunLengthEncodingVisitor visitor;
  return visitor.Convert(shape).GetRuns();
}

Runs RunsOf(AbstractShape const& shape, common::RegionOfInterest const& clip) {
  ShapeToRunLengthEncodingVisitor visitor(clip);
  return visitor.Convert(shape).GetRuns();
}

unsigned long PixelCount(Runs const& runs) {
  unsigned long count = 0;
  for (PixelRun const& run : runs) {
    count += static_cast<unsigned long>(run.length);
  }
  return count;
}

TEST(RectangleShape, CoversThePixelsWhoseCentresLieInsideAndNoNeighboursPixel) {
  EXPECT_EQ(RunsOf(RectangleShape(1, 2, 3, 2)), (Runs{{1, 2, 3}, {1, 3, 3}}));
  // Centres 0.5 and 1.5 lie in [0.5, 2.5); 2.5 is on the right edge and stays out.
  EXPECT_EQ(RunsOf(RectangleShape(0.5, 0.0, 2.0, 1.0)), (Runs{{0, 0, 2}}));
  // Edges between centres.
  EXPECT_EQ(RunsOf(RectangleShape(0.2, 0.2, 1.2, 0.4)), (Runs{{0, 0, 1}}));
  EXPECT_EQ(RunsOf(RectangleShape(0.6, 0.6, 0.8, 0.8)), Runs{});
  EXPECT_EQ(RunsOf(RectangleShape(-3, -1, 2, 1)), (Runs{{-3, -1, 2}}));
  EXPECT_TRUE(RunsOf(RectangleShape(4, 4, 0, 3)).empty());

  // Neighbours sharing an edge share no pixel.
  const Runs left = RunsOf(RectangleShape(0.0, 0.0, 2.5, 3.0));
  const Runs right = RunsOf(RectangleShape(2.5, 0.0, 2.0, 3.0));
  std::set<std::pair<int, int>> pixels;
  for (Runs const* runs : {&left, &right}) {
    for (PixelRun const& run : *runs) {
      for (int i = 0; i < run.length; ++i) {
        EXPECT_TRUE(pixels.insert({run.x + i, run.y}).second) << run.x + i << "," << run.y;
      }
    }
  }
  EXPECT_EQ(pixels.size(), 12UL);
  EXPECT_EQ(left, (Runs{{0, 0, 2}, {0, 1, 2}, {0, 2, 2}}));

  // Bad sizes and coordinates are refused.
  EXPECT_THROW(RectangleShape(0, 0, -1, 2), std::invalid_argument);
  EXPECT_THROW(RectangleShape(0, 0, 2, -1), std::invalid_argument);
  EXPECT_THROW(RectangleShape(std::nan(""), 0, 2, 2), std::invalid_argument);
  EXPECT_THROW(RectangleShape(0, 0, std::numeric_limits<double>::infinity(), 2),
               std::invalid_argument);
  EXPECT_THROW(RectangleShape(0, 0, 2e12, 2), std::invalid_argument);
}

TEST(PolygonShape, CoversCentresInsideByEvenOddAndRefusesBadVertices) {
  const PolygonShape polygon({{1.0, 2.0}, {4.0, 2.0}, {4.0, 4.5}, {1.0, 4.5}});
  EXPECT_EQ(RunsOf(polygon), RunsOf(RectangleShape(1.0, 2.0, 3.0, 2.5)));
  // The same in the other winding.
  const PolygonShape reversed({{1.0, 4.5}, {4.0, 4.5}, {4.0, 2.0}, {1.0, 2.0}});
  EXPECT_EQ(RunsOf(reversed), RunsOf(polygon));

  // Line y of a triangle holds the centres x + 0.5 < 3.5 - y.
  // Line y holds the centres x + 0.5 < 3.5 - y.
  EXPECT_EQ(RunsOf(PolygonShape({{0, 0}, {4, 0}, {0, 4}})),
            (Runs{{0, 0, 3}, {0, 1, 2}, {0, 2, 1}}));

  // A U: the bottom bar on line 0, then two legs one pixel wide on lines 1 to 3.
  const PolygonShape u({{0, 0}, {5, 0}, {5, 4}, {4, 4}, {4, 1}, {1, 1}, {1, 4}, {0, 4}});
  const Runs runs = RunsOf(u);
  EXPECT_EQ(runs,
            (Runs{{0, 0, 5}, {0, 1, 1}, {4, 1, 1}, {0, 2, 1}, {4, 2, 1}, {0, 3, 1}, {4, 3, 1}}));
  EXPECT_EQ(PixelCount(runs), 11UL);

  // A bow tie of two triangles meeting at (3, 2): each line is covered on both sides and the
  // middle stays empty.
  const Runs bow_tie = RunsOf(PolygonShape({{0, 0}, {6, 4}, {6, 0}, {0, 4}}));
  EXPECT_EQ(
      bow_tie,
      (Runs{
          {0, 0, 1}, {5, 0, 1}, {0, 1, 2}, {4, 1, 2}, {0, 2, 2}, {4, 2, 2}, {0, 3, 1}, {5, 3, 1}}));
  EXPECT_EQ(PixelCount(bow_tie), 12UL);
  // A square wound twice is crossed twice on every edge, so nothing is inside.
  EXPECT_TRUE(RunsOf(PolygonShape({{0, 0}, {2, 0}, {2, 2}, {0, 2}, {0, 0}, {2, 0}, {2, 2}, {0, 2}}))
                  .empty());

  // Too few or bad vertices are refused.
  EXPECT_THROW(PolygonShape({{0, 0}, {1, 1}}), std::invalid_argument);
  EXPECT_THROW(PolygonShape({}), std::invalid_argument);
  EXPECT_THROW(PolygonShape({{0, 0}, {1, std::nan("")}, {2, 0}}), std::invalid_argument);
}

TEST(CircleShape, IncludesItsBoundaryAndCountsTheLatticePointsOfTheDisc) {
  // Centre on a pixel centre with radius 1: the four neighbours lie on the circle.
  EXPECT_EQ(RunsOf(CircleShape(2.5, 2.5, 1.0)), (Runs{{2, 1, 1}, {1, 2, 3}, {2, 3, 1}}));
  EXPECT_EQ(RunsOf(CircleShape(2.5, 2.5, 0.0)), (Runs{{2, 2, 1}}));
  EXPECT_TRUE(RunsOf(CircleShape(2.0, 2.0, 0.0)).empty());
  // Centre on a pixel corner: the four pixels around it.
  EXPECT_EQ(RunsOf(CircleShape(0.0, 0.0, 1.0)), (Runs{{-1, -1, 2}, {-1, 0, 2}}));

  // Lattice points with dx^2 + dy^2 <= 100: 317.
  const Runs runs = RunsOf(CircleShape(50.5, 50.5, 10.0));
  EXPECT_EQ(PixelCount(runs), 317UL);
  ASSERT_EQ(runs.size(), 21UL);
  EXPECT_EQ(runs.front(), (PixelRun{50, 40, 1}));
  EXPECT_EQ(runs[10], (PixelRun{40, 50, 21}));
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const PixelRun& mirrored = runs[runs.size() - 1 - i];
    EXPECT_EQ(runs[i].length, mirrored.length) << i;
    EXPECT_EQ(runs[i].x, 101 - runs[i].x - runs[i].length) << i;
  }

  EXPECT_THROW(CircleShape(0, 0, -0.5), std::invalid_argument);
  EXPECT_THROW(CircleShape(std::numeric_limits<double>::infinity(), 0, 1), std::invalid_argument);
}

TEST(ShapeToRunLengthEncodingVisitor, ClipsShapesOfAnySizeRunsWithinIntAndRefusesBadClips) {
  const common::RegionOfInterest image(0, 0, 4, 3);
  EXPECT_EQ(RunsOf(RectangleShape(-2, -2, 5, 10), image), (Runs{{0, 0, 3}, {0, 1, 3}, {0, 2, 3}}));
  EXPECT_EQ(RunsOf(RectangleShape(2, 1, 10, 1), image), (Runs{{2, 1, 2}}));
  EXPECT_EQ(RunsOf(PolygonShape({{-4, 0}, {8, 0}, {2, 6}}), image),
            (Runs{{0, 0, 4}, {0, 1, 4}, {0, 2, 4}}));
  EXPECT_EQ(RunsOf(CircleShape(0.0, 0.0, 1.0), image), (Runs{{0, 0, 1}}));
  EXPECT_EQ(RunsOf(CircleShape(3.5, 1.5, 1.0), image), (Runs{{3, 0, 1}, {2, 1, 2}, {3, 2, 1}}));
  EXPECT_TRUE(RunsOf(RectangleShape(4, 0, 2, 2), image).empty());
  EXPECT_TRUE(RunsOf(CircleShape(-5, -5, 2), image).empty());
  // A clip that is not at the origin.
  EXPECT_EQ(RunsOf(RectangleShape(0, 0, 10, 10), common::RegionOfInterest(3, 4, 2, 1)),
            (Runs{{3, 4, 2}}));

  // Huge shapes cost only their visible part.
  const Runs whole = {{0, 0, 4}, {0, 1, 4}, {0, 2, 4}};
  EXPECT_EQ(RunsOf(CircleShape(1.5, 1.0, 1e11), image), whole);
  EXPECT_EQ(RunsOf(PolygonShape({{-1e11, -1e11}, {1e11, -1e11}, {0, 1e11}}), image), whole);

  // Without a clip, runs stay within int.
  constexpr int kMax = std::numeric_limits<int>::max();
  EXPECT_EQ(RunsOf(RectangleShape(kMax - 7.0, 0, 100, 1)), (Runs{{kMax - 7, 0, 8}}));
  // A line wider than an int counts is split into runs.
  const Runs wide = RunsOf(RectangleShape(-1e10, 0, 2e10, 1));
  ASSERT_EQ(wide.size(), 3UL);
  EXPECT_EQ(wide[0], (PixelRun{std::numeric_limits<int>::min(), 0, kMax}));
  EXPECT_EQ(PixelCount(wide), 1UL << 32);

  EXPECT_THROW(ShapeToRunLengthEncodingVisitor(common::RegionOfInterest(0, 0, -1, 2)),
               std::invalid_argument);
  EXPECT_THROW(ShapeToRunLengthEncodingVisitor(common::RegionOfInterest(std::nan(""), 0, 1, 2)),
               std::invalid_argument);

  ShapeToRunLengthEncodingVisitor visitor;
  const datatypes::RunLengthEncoding first = visitor.Convert(RectangleShape(0, 0, 2, 1));
  const datatypes::RunLengthEncoding second = visitor.Convert(CircleShape(5.5, 5.5, 0));
  EXPECT_EQ(first.GetRuns(), (Runs{{0, 0, 2}}));
  EXPECT_EQ(second.GetRuns(), (Runs{{5, 5, 1}}));
}

}  // namespace
}  // namespace kelto::geometry

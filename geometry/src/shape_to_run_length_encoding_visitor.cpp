#include <kelto/geometry/shape_to_run_length_encoding_visitor.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include <kelto/geometry/circle_shape.h>
#include <kelto/geometry/polygon_shape.h>
#include <kelto/geometry/rectangle_shape.h>

namespace kelto::geometry {

namespace {

constexpr long long kIntMin = std::numeric_limits<int>::min();
constexpr long long kIntEnd = static_cast<long long>(std::numeric_limits<int>::max()) + 1;

// The first pixel index whose centre lies at or after position. Positions beyond the int range
// stay just outside it, so that clamped bounds keep their order.
long long FirstCentreFrom(double position) {
  const double index = std::ceil(position - 0.5);
  return static_cast<long long>(
      std::clamp(index, static_cast<double>(kIntMin - 1), static_cast<double>(kIntEnd)));
}

}  // namespace

ShapeToRunLengthEncodingVisitor::ShapeToRunLengthEncodingVisitor()
    : x_begin_(kIntMin), x_end_(kIntEnd), y_begin_(kIntMin), y_end_(kIntEnd) {}

ShapeToRunLengthEncodingVisitor::ShapeToRunLengthEncodingVisitor(
    common::RegionOfInterest const& clip)
    : ShapeToRunLengthEncodingVisitor() {
  for (double value : {clip.offset_x, clip.offset_y, clip.width, clip.height}) {
    if (!std::isfinite(value)) {
      throw std::invalid_argument("clip region with a value that is not finite");
    }
  }
  if (clip.width < 0.0 || clip.height < 0.0) {
    throw std::invalid_argument("clip region with negative width or height");
  }
  x_begin_ = std::max(x_begin_, FirstCentreFrom(clip.offset_x));
  x_end_ = std::min(x_end_, FirstCentreFrom(clip.offset_x + clip.width));
  y_begin_ = std::max(y_begin_, FirstCentreFrom(clip.offset_y));
  y_end_ = std::min(y_end_, FirstCentreFrom(clip.offset_y + clip.height));
}

ShapeToRunLengthEncodingVisitor::~ShapeToRunLengthEncodingVisitor() = default;

datatypes::RunLengthEncoding ShapeToRunLengthEncodingVisitor::Convert(AbstractShape const& shape) {
  encoding_.Clear();
  shape.Accept(*this);
  datatypes::RunLengthEncoding result = std::move(encoding_);
  encoding_.Clear();
  return result;
}

void ShapeToRunLengthEncodingVisitor::_AddRun(long long y, long long begin, long long end) {
  if (y < y_begin_ || y >= y_end_) {
    return;
  }
  begin = std::max(begin, x_begin_);
  end = std::min(end, x_end_);
  // Without a clip a line can hold more pixels than an int counts.
  while (begin < end) {
    const long long length = std::min<long long>(end - begin, std::numeric_limits<int>::max());
    encoding_.AddRun(static_cast<int>(begin), static_cast<int>(y), static_cast<int>(length));
    begin += length;
  }
}

void ShapeToRunLengthEncodingVisitor::Visit(RectangleShape const& shape) {
  const long long x_begin = FirstCentreFrom(shape.GetX());
  const long long x_end = FirstCentreFrom(shape.GetX() + shape.GetWidth());
  const long long y_end = std::min(y_end_, FirstCentreFrom(shape.GetY() + shape.GetHeight()));
  for (long long y = std::max(y_begin_, FirstCentreFrom(shape.GetY())); y < y_end; ++y) {
    _AddRun(y, x_begin, x_end);
  }
}

void ShapeToRunLengthEncodingVisitor::Visit(PolygonShape const& shape) {
  auto const& vertices = shape.GetVertices();
  double top = vertices.front().second;
  double bottom = top;
  for (auto const& vertex : vertices) {
    top = std::min(top, vertex.second);
    bottom = std::max(bottom, vertex.second);
  }
  std::vector<double> crossings;
  const long long y_end = std::min(y_end_, FirstCentreFrom(bottom));
  for (long long y = std::max(y_begin_, FirstCentreFrom(top)); y < y_end; ++y) {
    const double centre_y = static_cast<double>(y) + 0.5;
    crossings.clear();
    for (std::size_t i = 0; i < vertices.size(); ++i) {
      auto const& [x0, y0] = vertices[i];
      auto const& [x1, y1] = vertices[(i + 1) % vertices.size()];
      // Half-open in y: an edge counts for the lines whose centres lie in [its top, its bottom),
      // so a vertex shared by two edges is crossed once and horizontal edges never.
      if ((y0 <= centre_y) != (y1 <= centre_y)) {
        crossings.push_back(x0 + (centre_y - y0) * (x1 - x0) / (y1 - y0));
      }
    }
    std::sort(crossings.begin(), crossings.end());
    for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
      _AddRun(y, FirstCentreFrom(crossings[i]), FirstCentreFrom(crossings[i + 1]));
    }
  }
}

void ShapeToRunLengthEncodingVisitor::Visit(CircleShape const& shape) {
  const double cx = shape.GetCentreX();
  const double cy = shape.GetCentreY();
  const double r2 = shape.GetRadius() * shape.GetRadius();
  // One line more on each side than the estimate: whether a line holds pixels is decided by the
  // squared distance, not by the rounding of cy +- radius.
  const long long y_end = std::min(y_end_, FirstCentreFrom(cy + shape.GetRadius()) + 1);
  for (long long y = std::max(y_begin_, FirstCentreFrom(cy - shape.GetRadius()) - 1); y < y_end;
       ++y) {
    const double dy = static_cast<double>(y) + 0.5 - cy;
    const double rest = r2 - dy * dy;
    if (rest < 0.0) {
      continue;
    }
    auto inside = [&](long long x) {
      const double dx = static_cast<double>(x) + 0.5 - cx;
      return dx * dx <= rest;
    };
    // The square root's estimate is off by a pixel at most; the squared test decides. Bounded by
    // the clip, so that a huge circle costs what its visible part costs.
    const double half = std::sqrt(rest);
    long long first = std::max(x_begin_, FirstCentreFrom(cx - half));
    long long last = std::min(x_end_ - 1, FirstCentreFrom(cx + half));
    while (first > x_begin_ && inside(first - 1)) {
      --first;
    }
    while (first <= last && !inside(first)) {
      ++first;
    }
    while (last < x_end_ - 1 && inside(last + 1)) {
      ++last;
    }
    while (last >= first && !inside(last)) {
      --last;
    }
    _AddRun(y, first, last + 1);
  }
}

}  // namespace kelto::geometry

#include <kelto/geometry/polygon_shape.h>

#include <stdexcept>
#include <string>

namespace kelto::geometry {

PolygonShape::PolygonShape(std::vector<std::pair<double, double>> vertices)
    : vertices_(std::move(vertices)) {
  if (vertices_.size() < 3) {
    throw std::invalid_argument("polygon with " + std::to_string(vertices_.size()) +
                                " vertices, at least 3 needed");
  }
  for (auto const& [x, y] : vertices_) {
    _CheckCoordinate(x, "vertex x");
    _CheckCoordinate(y, "vertex y");
  }
}

void PolygonShape::Accept(ShapeVisitor& visitor) const {
  visitor.Visit(*this);
}

}  // namespace kelto::geometry

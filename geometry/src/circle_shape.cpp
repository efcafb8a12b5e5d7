#include <kelto/geometry/circle_shape.h>

#include <stdexcept>

namespace kelto::geometry {

CircleShape::CircleShape(double centre_x, double centre_y, double radius)
    : centre_x_(centre_x), centre_y_(centre_y), radius_(radius) {
  _CheckCoordinate(centre_x, "centre x");
  _CheckCoordinate(centre_y, "centre y");
  _CheckCoordinate(radius, "radius");
  if (radius < 0.0) {
    throw std::invalid_argument("circle with negative radius");
  }
}

void CircleShape::Accept(ShapeVisitor& visitor) const {
  visitor.Visit(*this);
}

}  // namespace kelto::geometry

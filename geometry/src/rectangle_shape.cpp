#include <kelto/geometry/rectangle_shape.h>

#include <stdexcept>

namespace kelto::geometry {

RectangleShape::RectangleShape(double x, double y, double width, double height)
    : x_(x), y_(y), width_(width), height_(height) {
  _CheckCoordinate(x, "x");
  _CheckCoordinate(y, "y");
  _CheckCoordinate(width, "width");
  _CheckCoordinate(height, "height");
  _CheckCoordinate(x + width, "right edge");
  _CheckCoordinate(y + height, "bottom edge");
  if (width < 0.0 || height < 0.0) {
    throw std::invalid_argument("rectangle with negative width or height");
  }
}

void RectangleShape::Accept(ShapeVisitor& visitor) const {
  visitor.Visit(*this);
}

}  // namespace kelto::geometry

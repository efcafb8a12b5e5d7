#include <kelto/geometry/abstract_shape.h>

#include <cmath>
#include <stdexcept>
#include <string>

namespace kelto::geometry {

ShapeVisitor::~ShapeVisitor() = default;

AbstractShape::~AbstractShape() = default;

void AbstractShape::_CheckCoordinate(double value, const char* what) {
  if (!(std::fabs(value) <= kMaximumCoordinate)) {
    throw std::invalid_argument(std::string(what) + " " + std::to_string(value) +
                                " is not a finite coordinate within +-1e12");
  }
}

}  // namespace kelto::geometry

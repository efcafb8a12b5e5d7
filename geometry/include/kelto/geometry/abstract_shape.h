// Shapes on an image in pixel coordinates, and the visitor through which code that works on
// shapes (as the conversion to run-length encodings) reaches the concrete kinds. Pixel (x, y)
// covers the square from (x, y) to (x + 1, y + 1); its centre is (x + 0.5, y + 0.5).
// Thread-safety: shapes have no lock; read by many threads while none changes them.
#pragma once

#include <kelto/geometry/export.h>

namespace kelto::geometry {

class CircleShape;
class PolygonShape;
class RectangleShape;

class KELTO_GEOMETRY_EXPORT ShapeVisitor {
 public:
  virtual ~ShapeVisitor();

  virtual void Visit(RectangleShape const& shape) = 0;
  virtual void Visit(PolygonShape const& shape) = 0;
  virtual void Visit(CircleShape const& shape) = 0;
};

class KELTO_GEOMETRY_EXPORT AbstractShape {
 public:
  // Shapes refuse coordinates of larger magnitude: they lie far beyond any pixel, and staying
  // below this keeps every intersection of the rasterisation finite and exact enough.
  static constexpr double kMaximumCoordinate = 1e12;

  virtual ~AbstractShape();

  virtual void Accept(ShapeVisitor& visitor) const = 0;

 protected:
  AbstractShape() = default;
  AbstractShape(AbstractShape const&) = default;
  AbstractShape& operator=(AbstractShape const&) = default;

  // Throws std::invalid_argument naming what when value is not finite or too large.
  static void _CheckCoordinate(double value, const char* what);
};

}  // namespace kelto::geometry

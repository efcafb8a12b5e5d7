// An axis-parallel rectangle, the usual selection of a region of an image.
// Thread-safety: a plain value; read by many threads while none changes it.
#pragma once

#include <kelto/geometry/abstract_shape.h>
#include <kelto/geometry/export.h>

namespace kelto::geometry {

class KELTO_GEOMETRY_EXPORT RectangleShape : public AbstractShape {
 public:
  // The area from (x, y) to (x + width, y + height). Throws std::invalid_argument for a negative
  // size or a coordinate that AbstractShape refuses.
  RectangleShape(double x, double y, double width, double height);

  void Accept(ShapeVisitor& visitor) const override;

  double GetX() const { return x_; }
  double GetY() const { return y_; }
  double GetWidth() const { return width_; }
  double GetHeight() const { return height_; }

 private:
  double x_;
  double y_;
  double width_;
  double height_;
};

}  // namespace kelto::geometry

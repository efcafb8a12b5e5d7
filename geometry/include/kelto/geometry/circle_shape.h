// A disc, as the spot of a light source or a round sample on an image.
// Thread-safety: a plain value; read by many threads while none changes it.
#pragma once

#include <kelto/geometry/abstract_shape.h>
#include <kelto/geometry/export.h>

namespace kelto::geometry {

class KELTO_GEOMETRY_EXPORT CircleShape : public AbstractShape {
 public:
  // Throws std::invalid_argument for a negative radius or a coordinate that AbstractShape
  // refuses.
  CircleShape(double centre_x, double centre_y, double radius);

  void Accept(ShapeVisitor& visitor) const override;

  double GetCentreX() const { return centre_x_; }
  double GetCentreY() const { return centre_y_; }
  double GetRadius() const { return radius_; }

 private:
  double centre_x_;
  double centre_y_;
  double radius_;
};

}  // namespace kelto::geometry

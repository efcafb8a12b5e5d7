// A closed polygon of straight edges, for regions that are neither rectangles nor circles. It may
// be concave or cross itself; inside is decided by the even-odd rule.
// Thread-safety: a plain value; read by many threads while none changes it.
#pragma once

#include <utility>
#include <vector>

#include <kelto/geometry/abstract_shape.h>
#include <kelto/geometry/export.h>

namespace kelto::geometry {

class KELTO_GEOMETRY_EXPORT PolygonShape : public AbstractShape {
 public:
  // Vertices as (x, y) in order; the last one joins the first. Throws std::invalid_argument for
  // fewer than three vertices or a coordinate that AbstractShape refuses.
  explicit PolygonShape(std::vector<std::pair<double, double>> vertices);

  void Accept(ShapeVisitor& visitor) const override;

  std::vector<std::pair<double, double>> const& GetVertices() const { return vertices_; }

 private:
  std::vector<std::pair<double, double>> vertices_;
};

}  // namespace kelto::geometry

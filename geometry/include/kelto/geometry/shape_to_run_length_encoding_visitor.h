// Turns a shape into the pixels it covers, as a run-length encoding, for the code that reads
// spectra of a region out of an image.
//
// A pixel belongs to a shape when its centre (x + 0.5, y + 0.5) lies inside. A centre on the
// boundary of a rectangle or polygon belongs to it on the left and top edges and not on the right
// and bottom ones, so that shapes sharing an edge share no pixel and a rectangle on whole pixel
// coordinates covers exactly its area. A circle includes its boundary, so that it stays symmetric
// about its centre. Runs come line by line from the top, left to right within a line.
// Thread-safety: a visitor keeps the conversion under way; each thread uses its own.
#pragma once

#include <kelto/common/region_of_interest.h>
#include <kelto/datatypes/run_length_encoding.h>
#include <kelto/geometry/abstract_shape.h>
#include <kelto/geometry/export.h>

namespace kelto::geometry {

class KELTO_GEOMETRY_EXPORT ShapeToRunLengthEncodingVisitor : public ShapeVisitor {
 public:
  // Keeps every pixel whose coordinates are ints.
  ShapeToRunLengthEncodingVisitor();
  // Keeps only the pixels whose centres lie in clip, by the rule of rectangles: clip (0, 0,
  // width, height) keeps the pixels of an image of that size. Throws std::invalid_argument for a
  // negative or non-finite clip.
  explicit ShapeToRunLengthEncodingVisitor(common::RegionOfInterest const& clip);
  ~ShapeToRunLengthEncodingVisitor() override;

  datatypes::RunLengthEncoding Convert(AbstractShape const& shape);

  void Visit(RectangleShape const& shape) override;
  void Visit(PolygonShape const& shape) override;
  void Visit(CircleShape const& shape) override;

 private:
  // Pixels begin <= x < end of line y, within the clip.
  void _AddRun(long long y, long long begin, long long end);

  // Pixel index bounds, end exclusive.
  long long x_begin_;
  long long x_end_;
  long long y_begin_;
  long long y_end_;
  datatypes::RunLengthEncoding encoding_;
};

}  // namespace kelto::geometry

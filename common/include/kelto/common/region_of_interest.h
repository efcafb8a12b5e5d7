// A rectangle on the sensor in pixels, as a calibration's filter zones store their area. Read and
// written as the child values "offset_x", "offset_y", "width" and "height"; the record that owns
// the rectangle runs its sanity checks.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <kelto/common/export.h>
#include <kelto/common/xml_serializable_interface.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT RegionOfInterest : public XMLSerializableInterface {
 public:
  RegionOfInterest() = default;
  RegionOfInterest(double offset_x_, double offset_y_, double width_, double height_);

  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // Pushes (Error, SanityCheck, condition) for each failed condition: an empty rectangle, or one
  // that starts left of or above the sensor.
  void RunSanityChecks(ParsingResult& result) const;

  bool operator==(RegionOfInterest const& other) const;
  bool operator!=(RegionOfInterest const& other) const { return !(*this == other); }

  double offset_x = 0.0;
  double offset_y = 0.0;
  double width = 0.0;
  double height = 0.0;
};

}  // namespace kelto::common

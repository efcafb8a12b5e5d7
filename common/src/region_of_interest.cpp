#include <kelto/common/region_of_interest.h>

#include <utility>

namespace kelto::common {

using Event = XMLSerializableInterface::ParsingResult::Event;

RegionOfInterest::RegionOfInterest(double offset_x_, double offset_y_, double width_,
                                   double height_)
    : offset_x(offset_x_), offset_y(offset_y_), width(width_), height(height_) {}

void RegionOfInterest::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  result << Event(ParsingResult::Ok, Event::ReadStart, _GetTagName(node));
  const std::pair<const char*, double*> items[] = {
      {"offset_x", &offset_x}, {"offset_y", &offset_y}, {"width", &width}, {"height", &height}};
  for (const auto& [name, field] : items) {
    _ReadValue(result, *field, node, name, 0.0);
  }
}

void RegionOfInterest::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "region_of_interest");
  _SetValue(node, "offset_x", offset_x);
  _SetValue(node, "offset_y", offset_y);
  _SetValue(node, "width", width);
  _SetValue(node, "height", height);
}

void RegionOfInterest::RunSanityChecks(ParsingResult& result) const {
  _Check(result, 0 < width, "0 < width");
  _Check(result, 0 < height, "0 < height");
  _Check(result, 0.0 <= offset_x, "0.0 <= offset_x");
  _Check(result, 0.0 <= offset_y, "0.0 <= offset_y");
}

bool RegionOfInterest::operator==(RegionOfInterest const& other) const {
  return offset_x == other.offset_x && offset_y == other.offset_y && width == other.width &&
         height == other.height;
}

}  // namespace kelto::common

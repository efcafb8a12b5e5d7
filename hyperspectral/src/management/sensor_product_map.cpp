#include <kelto/hyperspectral/management/sensor_product_map.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <utility>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = SensorProduct::ParsingResult;
using Event = ParsingResult::Event;

namespace {

// A die lies on the lattice when its distance from the start is a whole number of pitches,
// counted with the remainder of the truncating division, so that positions before the start
// match too. The distance is taken in 64 bits: two int positions can lie further apart than an
// int holds. A pitch of 0 describes no lattice, and such a product matches nothing.
bool OnLattice(int position, int start, int pitch) {
  if (pitch == 0) {
    return false;
  }
  const std::int64_t distance = static_cast<std::int64_t>(position) - start;
  return distance % pitch == 0;
}

bool Holds(const std::vector<int>& values, int value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

const SensorProduct* _GetSensorProduct(const SensorProductMap& map, int lot, int wafer, int x,
                                       int y) {
  for (const SensorProduct& product : map.products) {
    if (Holds(product.lot, lot) && Holds(product.wafer, wafer) &&
        OnLattice(x, product.x_start, product.x_modulo) &&
        OnLattice(y, product.y_start, product.y_modulo)) {
      return &product;
    }
  }
  return nullptr;
}

}  // namespace

void SensorProduct::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  if (tag != "sensor_product") {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The XML node is not of type SensorProduct");
  }
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&SensorProduct::_ReadXML_v0, &SensorProduct::_ReadXML_v1},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kUnsupportedError);
  RunSanityChecks(result);
}

void SensorProduct::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "sensor_product");
  _SetVersion(node, 1ul);
  _WriteXML_v1(node);
}

void SensorProduct::RunSanityChecks(ParsingResult& result) const {
  _Check(result, 0 != x_modulo, "0 != x_modulo");
  _Check(result, 0 != y_modulo, "0 != y_modulo");
}

void SensorProduct::_ReadLattice(ParsingResult& result, _xmlNode* const& node) {
  _ReadAttribute(result, lot, node, "lot", std::vector<int>());
  _ReadAttribute(result, wafer, node, "wafer", std::vector<int>());
  _ReadAttribute(result, x_start, node, "x_start", 0);
  _ReadAttribute(result, x_modulo, node, "x_modulo", 0);
  _ReadAttribute(result, y_start, node, "y_start", 0);
  _ReadAttribute(result, y_modulo, node, "y_modulo", 0);
}

void SensorProduct::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadLattice(result, node);
  internal_product_number.clear();
  product_tag.clear();
  product_description.clear();
}

void SensorProduct::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadLattice(result, node);
  for (auto [field, name] : {std::pair{&internal_product_number, "internal_product_number"},
                             std::pair{&product_tag, "product_tag"},
                             std::pair{&product_description, "product_description"}}) {
    _ReadValue(result, *field, node, name, std::string(), ParsingResult::Error,
               Event::MissingValue);
  }
}

void SensorProduct::_WriteXML_v1(_xmlNode*& node) const {
  _SetAttribute(node, "lot", lot, VSM_ATTRIBUTES);
  _SetAttribute(node, "wafer", wafer, VSM_ATTRIBUTES);
  _SetAttribute(node, "x_start", x_start);
  _SetAttribute(node, "x_modulo", x_modulo);
  _SetAttribute(node, "y_start", y_start);
  _SetAttribute(node, "y_modulo", y_modulo);
  _SetValue(node, "internal_product_number", internal_product_number);
  _SetValue(node, "product_tag", product_tag);
  _SetValue(node, "product_description", product_description);
}

void SensorProductMap::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  if (tag != "sensor_products") {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The XML node is not of type SensorProductMap");
  }
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&SensorProductMap::_ReadXML_v0}, common::NewerVersion::kReadByNewest,
                        common::Unversioned::kUnsupportedError);
}

void SensorProductMap::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "sensor_products");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void SensorProductMap::RunSanityChecks(ParsingResult& /*result*/) const {}

void SensorProductMap::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadAttribute(result, x_max, node, "x_max", 0);
  _ReadAttribute(result, y_max, node, "y_max", 0);
  products.clear();
  std::deque<_xmlNode*> elements;
  _GetElements(elements, node, "sensor_product");
  for (_xmlNode* element : elements) {
    SensorProduct product;
    product.ReadXML(result, element);
    products.push_back(product);
  }
}

void SensorProductMap::_WriteXML_v0(_xmlNode*& node) const {
  _SetAttribute(node, "x_max", x_max);
  _SetAttribute(node, "y_max", y_max);
  for (const SensorProduct& product : products) {
    _SetElement(node, "sensor_product", product);
  }
}

namespace utilities {

bool HasSensorProduct(const SensorProductMap& map, const int& lot, const int& wafer, const int& x,
                      const int& y) {
  return _GetSensorProduct(map, lot, wafer, x, y) != nullptr;
}

const SensorProduct* GetSensorProduct(const SensorProductMap& map, const int& lot, const int& wafer,
                                      const int& x, const int& y) {
  return _GetSensorProduct(map, lot, wafer, x, y);
}

}  // namespace utilities

}  // namespace kelto::hyperspectral

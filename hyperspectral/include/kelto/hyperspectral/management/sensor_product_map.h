// Which products are cut from which dies. Several products share the same wafers: a
// SensorProduct names the lots and wafers that carry it and a regular lattice of die positions
// on the wafer, and a SensorProductMap lists all products of a "sensor_products" file. The
// lookup in utilities finds the product of one die.
// Thread-safety: records without a lock; the lookups only read the map.
#pragma once

#include <string>
#include <vector>

#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SensorProduct : public common::XMLSerializableInterface {
 public:
  SensorProduct() = default;

  // A wrong tag is reported and read all the same. Version 1 and newer, and 0, which has no
  // texts; a negative version reads nothing. The sanity checks run at the end.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;
  // A pitch of 0 is no lattice at all: (Error, SanityCheck, "0 != x_modulo") and the same for
  // y_modulo. Such a product never matches a die.
  void RunSanityChecks(ParsingResult& result) const;

  std::vector<int> lot;
  std::vector<int> wafer;
  int x_start = 0;   // first die column of the lattice
  int x_modulo = 0;  // column pitch, in dies
  int y_start = 0;   // first die row
  int y_modulo = 0;  // row pitch, in dies
  std::string internal_product_number;
  std::string product_tag;
  std::string product_description;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v1(_xmlNode*& node) const;

 private:
  // The lots, wafers and lattice, which every version holds alike.
  void _ReadLattice(ParsingResult& result, _xmlNode* const& node);
};

class KELTO_HYPERSPECTRAL_EXPORT SensorProductMap : public common::XMLSerializableInterface {
 public:
  SensorProductMap() = default;

  // A wrong tag is reported and read all the same; every version from 0 up is read as 0, a
  // negative one reads nothing. The products are read in file order and check themselves.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;
  // The products checked themselves while being read; the map adds nothing.
  void RunSanityChecks(ParsingResult& result) const;

  // The size of the wafer in dies; the lookup does not use them.
  int x_max = 0;
  int y_max = 0;
  std::vector<SensorProduct> products;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v0(_xmlNode*& node) const;
};

namespace utilities {

// Whether GetSensorProduct finds a product for the die.
KELTO_HYPERSPECTRAL_EXPORT bool HasSensorProduct(const SensorProductMap& map, const int& lot,
                                                 const int& wafer, const int& x, const int& y);
// The first product in file order whose lots hold `lot`, whose wafers hold `wafer` and whose
// lattice holds the die (x, y); null if there is none. The lattice extends from its start in
// both directions. The pointer points into `map`.
KELTO_HYPERSPECTRAL_EXPORT const SensorProduct* GetSensorProduct(const SensorProductMap& map,
                                                                 const int& lot, const int& wafer,
                                                                 const int& x, const int& y);

}  // namespace utilities

}  // namespace kelto::hyperspectral

// A vector of doubles that reads and writes itself as one XML element with the attributes
// "nr_elements" and "values". Older calibration files store band responses and custom correction
// coefficients in this form, and spectra (rejection filters) hold their curves in it.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <utility>
#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/xml_serializable_interface.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT Vector : public XMLSerializableInterface {
 public:
  Vector() = default;
  explicit Vector(std::vector<double> values);

  // The element's own attributes. The values replace the content; a count that disagrees with
  // the values, or values that aren't numbers, are events, and the vector keeps the numbers that
  // the text holds, never more than the count.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  // Tag "vector", values with six significant digits.
  void WriteXML(_xmlNode*& node) const override;

  double* Begin() { return values_.data(); }
  double* End() { return values_.data() + values_.size(); }
  const double* Begin() const { return values_.data(); }
  const double* End() const { return values_.data() + values_.size(); }
  unsigned long Size() const { return values_.size(); }
  // As std::vector::resize: new elements get value, the others stay.
  void Resize(const unsigned long& size, const double& value);
  // Unchecked, as the standard containers.
  double& operator[](const unsigned long& index) { return values_[index]; }
  const double& operator[](const unsigned long& index) const { return values_[index]; }

  const std::vector<double>& Values() const { return values_; }
  void SetValues(std::vector<double> values) { values_ = std::move(values); }

  bool operator==(Vector const& other) const { return values_ == other.values_; }
  bool operator!=(Vector const& other) const { return !(*this == other); }

 private:
  std::vector<double> values_;
};

}  // namespace kelto::common

// A dense row-major matrix of doubles. Correction matrices hand their coefficients out in it:
// the caller sizes it and then writes row r at element r times the column count of Data().
// Thread-safety: no lock; read by many threads while none writes, written by one.
#pragma once

#include <vector>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT Matrix {
 public:
  Matrix() = default;

  // rows by columns elements, each value. Throws std::invalid_argument when the element count
  // does not fit in memory's address range.
  void Initialize(const unsigned long& rows, const unsigned long& columns, const double& value);

  unsigned long Rows() const { return rows_; }
  unsigned long Columns() const { return columns_; }
  double* Data() { return values_.data(); }
  const double* Data() const { return values_.data(); }
  // Unchecked, as the standard containers.
  double& operator()(unsigned long row, unsigned long column) {
    return values_[row * columns_ + column];
  }
  const double& operator()(unsigned long row, unsigned long column) const {
    return values_[row * columns_ + column];
  }

  bool operator==(Matrix const& other) const {
    return rows_ == other.rows_ && columns_ == other.columns_ && values_ == other.values_;
  }

 private:
  unsigned long rows_ = 0;
  unsigned long columns_ = 0;
  std::vector<double> values_;
};

}  // namespace kelto::common

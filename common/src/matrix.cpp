#include <kelto/common/matrix.h>

#include <stdexcept>
#include <string>

namespace kelto::common {

void Matrix::Initialize(const unsigned long& rows, const unsigned long& columns,
                        const double& value) {
  if (columns != 0 && rows > values_.max_size() / columns) {
    throw std::invalid_argument("Matrix::Initialize: " + std::to_string(rows) + " by " +
                                std::to_string(columns) + " elements are too many");
  }
  values_.assign(rows * columns, value);
  rows_ = rows;
  columns_ = columns;
}

}  // namespace kelto::common

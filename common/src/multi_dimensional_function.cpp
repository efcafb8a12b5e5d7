#include <kelto/common/multi_dimensional_function.h>

namespace kelto::common {

// Out of line, so that the virtual table has one home in this library.
MultiDimensionalFunction::~MultiDimensionalFunction() = default;

}  // namespace kelto::common

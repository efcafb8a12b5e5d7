#include <kelto/datatypes/vector.h>

namespace kelto::datatypes {

// The one instantiation the family uses lives here, with its virtual table.
template class Vector<double>;
template class ColumnVector<double>;
template class RowVector<double>;

}  // namespace kelto::datatypes

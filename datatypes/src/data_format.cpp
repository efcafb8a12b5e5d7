#include <kelto/datatypes/data_format.h>

namespace kelto::datatypes {

DataFormat::~DataFormat() = default;

}  // namespace kelto::datatypes

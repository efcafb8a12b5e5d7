// Root of the format records that travel with an image. A reader that keeps a format of its own
// copies the image's one through Clone, which keeps the dynamic type.
// Thread-safety: no lock; read by many threads while none changes it.
#pragma once

#include <memory>

#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class KELTO_DATATYPES_EXPORT DataFormat {
 public:
  virtual ~DataFormat();

  // A new record of the same dynamic type and contents, owned by the caller.
  virtual std::unique_ptr<DataFormat> Clone() const = 0;

 protected:
  DataFormat() = default;
  DataFormat(DataFormat const&) = default;
  DataFormat& operator=(DataFormat const&) = default;
};

}  // namespace kelto::datatypes

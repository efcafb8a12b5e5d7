// What a context directory holds for its camera. The loader reads only the directory's
// description so far and fills nothing in here yet; callers pass a Context through it so that
// their code stays the same once it does.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT Context {
 public:
  virtual ~Context() = default;
};

}  // namespace kelto::hyperspectral

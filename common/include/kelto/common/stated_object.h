// The run state that controllers and processing modules carry beside their parameters.
// ControllerModule moves it through stopped and running; a derived controller marks itself busy
// for the length of a read by writing the member directly.
// Thread-safety: the state is atomic, so any thread may read it while another runs an operation.
#pragma once

#include <atomic>
#include <cstdint>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT StatedObject {
 public:
  enum eObjectState : std::int32_t { OS_STOPPED = 0, OS_RUNNING = 1, OS_BUSY = 2 };

  StatedObject() = default;
  // The state belongs to one object; copying it would let two objects claim one run.
  StatedObject(StatedObject const&) = delete;
  StatedObject& operator=(StatedObject const&) = delete;
  virtual ~StatedObject();

  eObjectState GetObjectState() const { return object_state.load(); }

 protected:
  // Atomic so that a caller may ask for the state while another thread runs an operation that
  // changes it; derived classes still assign it directly ("object_state = OS_BUSY").
  // Mutable: the const reads of a controller mark it busy while they take samples.
  mutable std::atomic<eObjectState> object_state{OS_STOPPED};
};

}  // namespace kelto::common

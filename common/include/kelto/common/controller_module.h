// Base of objects that are set up while stopped, started, and then used while running
// (DataAccessor). One mutex serialises the object's operations; the run state tells which of
// them are allowed, and _AssertState enforces it.
#pragma once

#include <string>

#include <boost/thread/mutex.hpp>

#include <kelto/common/export.h>
#include <kelto/common/parameter_container.h>
#include <kelto/common/parameterized_object.h>
#include <kelto/common/stated_object.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT ControllerModule : public ParameterizedObject, public StatedObject {
 public:
  class KELTO_COMMON_EXPORT Parameters : public ParameterizedObject::Parameters {
   public:
    Parameters() = default;
    ~Parameters() override;
  };

  explicit ControllerModule(const std::string& name);
  ~ControllerModule() override;

  const std::string& GetName() const { return name_; }

  // Under the lock: from stopped only (else std::logic_error, see _AssertState), _Initialize,
  // then _Start, and the state is running. If a hook throws, the state stays stopped.
  void Start();
  // Under the lock: from running only, _Pause, and the state is stopped. Unlike Stop the derived
  // class may keep what _Initialize made; the next Start initializes again all the same.
  void Pause();
  // Under the lock: _Stop, and the state is stopped, whatever it was.
  void Stop();

  using ParameterizedObject::GetParameters;
  using ParameterizedObject::SetParameters;
  // Under the lock: _GetParameters.
  void GetParameters(ParameterizedObject::Parameters& parameters) const override;
  // Under the lock: _SetParameters.
  void SetParameters(ParameterizedObject::Parameters const& parameters) override;

 protected:
  // Throws std::logic_error "controller \"<name>\" is <current>, it must be <state>" (the states
  // read "stopped", "running", "busy") unless the object is in the given state.
  void _AssertState(const StatedObject::eObjectState& state) const;

  // The hooks run under the lock that the public operations hold; they must not call those
  // operations of the same object.
  virtual void _GetParameters(ParameterizedObject::Parameters& parameters) const;
  // _CheckParameters, _SetConfigurationParameters, then _SetRuntimeParameters with the flag
  // saying whether the controller is running.
  virtual void _SetParameters(ParameterizedObject::Parameters const& parameters);
  virtual void _CheckParameters(ParameterizedObject::Parameters const& parameters) const;
  virtual void _Initialize() = 0;
  virtual void _Start() = 0;
  virtual void _Pause() = 0;
  virtual void _Stop() = 0;
  virtual void _SetConfigurationParameters(ParameterizedObject::Parameters const& parameters);
  virtual void _SetRuntimeParameters(ParameterizedObject::Parameters const& parameters,
                                     const bool& running);

  // The object's lock, for the derived class's own operations.
  boost::mutex& _GetMutex() const { return mutex_; }

 private:
  std::string name_;
  mutable boost::mutex mutex_;
};

}  // namespace kelto::common

#include <kelto/common/controller_module.h>

#include <stdexcept>

namespace kelto::common {

namespace {

std::string StateText(StatedObject::eObjectState state) {
  switch (state) {
    case StatedObject::OS_STOPPED:
      return "stopped";
    case StatedObject::OS_RUNNING:
      return "running";
    case StatedObject::OS_BUSY:
      return "busy";
  }
  return "in state " + std::to_string(static_cast<int>(state));
}

}  // namespace

ControllerModule::Parameters::~Parameters() = default;

ControllerModule::ControllerModule(const std::string& name) : name_(name) {
  _SetParametersFactory<Parameters>();
}

ControllerModule::~ControllerModule() = default;

void ControllerModule::Start() {
  boost::unique_lock<boost::mutex> lock(mutex_);
  _AssertState(OS_STOPPED);
  _Initialize();
  _Start();
  object_state = OS_RUNNING;
}

void ControllerModule::Pause() {
  boost::unique_lock<boost::mutex> lock(mutex_);
  _AssertState(OS_RUNNING);
  _Pause();
  object_state = OS_STOPPED;
}

void ControllerModule::Stop() {
  boost::unique_lock<boost::mutex> lock(mutex_);
  _Stop();
  object_state = OS_STOPPED;
}

void ControllerModule::GetParameters(ParameterizedObject::Parameters& parameters) const {
  boost::unique_lock<boost::mutex> lock(mutex_);
  _GetParameters(parameters);
}

void ControllerModule::SetParameters(ParameterizedObject::Parameters const& parameters) {
  boost::unique_lock<boost::mutex> lock(mutex_);
  _SetParameters(parameters);
}

void ControllerModule::_AssertState(const StatedObject::eObjectState& state) const {
  const eObjectState current = GetObjectState();
  if (current != state) {
    throw std::logic_error("controller \"" + name_ + "\" is " + StateText(current) +
                           ", it must be " + StateText(state));
  }
}

void ControllerModule::_GetParameters(ParameterizedObject::Parameters& /*parameters*/) const {}

void ControllerModule::_SetParameters(ParameterizedObject::Parameters const& parameters) {
  _CheckParameters(parameters);
  _SetConfigurationParameters(parameters);
  _SetRuntimeParameters(parameters, GetObjectState() != OS_STOPPED);
}

void ControllerModule::_CheckParameters(
    ParameterizedObject::Parameters const& /*parameters*/) const {}

void ControllerModule::_SetConfigurationParameters(
    ParameterizedObject::Parameters const& /*parameters*/) {}

void ControllerModule::_SetRuntimeParameters(ParameterizedObject::Parameters const& /*parameters*/,
                                             const bool& /*running*/) {}

}  // namespace kelto::common

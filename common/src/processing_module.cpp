#include <kelto/common/processing_module.h>

namespace kelto::common {

ProcessingModule::Parameters::~Parameters() = default;

ProcessingModule::InitializationData::~InitializationData() = default;

ProcessingModule::ProcessingModule(const std::string& name) : name_(name) {
  _SetParametersFactory<Parameters>();
}

ProcessingModule::~ProcessingModule() = default;

void ProcessingModule::Initialize(InitializationData const& data) {
  _Initialize(data);
  initialized_ = true;
}

void ProcessingModule::Deallocate() {
  _Deallocate();
  initialized_ = false;
}

void ProcessingModule::SetConfigurationParameters(
    ParameterizedObject::Parameters const& parameters) {
  _CheckParameters(parameters);
  _SetConfigurationParameters(parameters);
}

void ProcessingModule::SetRuntimeParameters(ParameterizedObject::Parameters const& parameters) {
  _CheckParameters(parameters);
  _SetRuntimeParameters(parameters);
}

void ProcessingModule::GetParameters(ParameterizedObject::Parameters& parameters) const {
  _GetParameters(parameters);
}

void ProcessingModule::SetParameters(ParameterizedObject::Parameters const& parameters) {
  _SetParameters(parameters);
}

void ProcessingModule::_SetParameters(ParameterizedObject::Parameters const& parameters) {
  _CheckParameters(parameters);
  _SetConfigurationParameters(parameters);
  _SetRuntimeParameters(parameters);
}

}  // namespace kelto::common

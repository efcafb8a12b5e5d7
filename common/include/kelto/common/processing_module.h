// Base of every computing module (the PM_ classes): parameters in two halves, configuration and
// runtime, behind one checking gate, and an initialize/deallocate cycle around the module's data.
// A module overrides the hooks; the public operations fix their order.
// Thread-safety: the public computations of a derived module hold its mutex; the operations here
// (parameters, Initialize, Deallocate) take none and belong to the thread that drives the module.
#pragma once

#include <stdexcept>
#include <string>

#include <boost/thread/mutex.hpp>

#include <kelto/common/export.h>
#include <kelto/common/logger.h>
#include <kelto/common/parameter_container.h>
#include <kelto/common/parameterized_object.h>
#include <kelto/common/stated_object.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT ProcessingModule : public ParameterizedObject, public StatedObject {
 public:
  // Every module's own Parameters derive from this one.
  class KELTO_COMMON_EXPORT Parameters : public ParameterizedObject::Parameters {
   public:
    Parameters() = default;
    ~Parameters() override;
  };

  // A module that needs no data takes this base; one that does derives from it.
  class KELTO_COMMON_EXPORT InitializationData {
   public:
    InitializationData() = default;
    InitializationData(InitializationData const&) = default;
    InitializationData& operator=(InitializationData const&) = default;
    virtual ~InitializationData();
  };

  // The texts of the type checks in the hooks.
  static constexpr const char* kIncompatibleParameters = "incompatible parameters object";
  static constexpr const char* kIncompatibleInitializationData =
      "incompatible initialization data object";

  explicit ProcessingModule(const std::string& name);
  ~ProcessingModule() override;

  const std::string& GetName() const { return name_; }
  bool IsInitialized() const { return initialized_; }

  // _Initialize; the module counts as initialized once it returns. Calling it again
  // re-initializes: the module's _Initialize replaces what it holds.
  void Initialize(InitializationData const& data);
  // _Deallocate, after which the module is no longer initialized.
  void Deallocate();

  // Each runs _CheckParameters first, so that a refused structure changes nothing, then its
  // half of the change.
  void SetConfigurationParameters(ParameterizedObject::Parameters const& parameters);
  void SetRuntimeParameters(ParameterizedObject::Parameters const& parameters);

  using ParameterizedObject::GetParameters;
  using ParameterizedObject::SetParameters;
  // _GetParameters.
  void GetParameters(ParameterizedObject::Parameters& parameters) const override;
  // _SetParameters: the check, then configuration, then runtime.
  void SetParameters(ParameterizedObject::Parameters const& parameters) override;

 protected:
  // The hooks. None of them locks: a module's public computations hold its mutex, and a parent
  // calls its children's public operations from inside its own hooks.
  virtual void _GetParameters(ParameterizedObject::Parameters& parameters) const = 0;
  // Called by each module's constructor after _SetupParameterContainer, and behind every
  // SetParameters: _CheckParameters, _SetConfigurationParameters, _SetRuntimeParameters.
  virtual void _SetParameters(ParameterizedObject::Parameters const& parameters);
  // The gate: throws (std::invalid_argument for a bad value) before anything changes.
  virtual void _CheckParameters(ParameterizedObject::Parameters const& parameters) const = 0;
  virtual void _SetConfigurationParameters(ParameterizedObject::Parameters const& parameters) = 0;
  virtual void _SetRuntimeParameters(ParameterizedObject::Parameters const& parameters) = 0;
  virtual void _Initialize(InitializationData const& data) = 0;
  virtual void _Deallocate() = 0;
  // Returns the module to its condition right after _Initialize.
  virtual void _Reset() = 0;

  // The module's lock, held by its public computations for their whole length.
  boost::mutex& _GetMutex() const { return mutex_; }

  // The dynamic type checks of the hooks: the object as a P (or D), or Logger::StaticError and
  // std::runtime_error with the text above.
  template <typename P>
  static const P& _CastParameters(ParameterizedObject::Parameters const& parameters) {
    return _Cast<const P>(&parameters, kIncompatibleParameters);
  }
  template <typename P>
  static P& _CastParameters(ParameterizedObject::Parameters& parameters) {
    return _Cast<P>(&parameters, kIncompatibleParameters);
  }
  template <typename D>
  static const D& _CastInitializationData(InitializationData const& data) {
    return _Cast<const D>(&data, kIncompatibleInitializationData);
  }

 private:
  template <typename T, typename Base>
  static T& _Cast(Base* object, const char* text) {
    T* cast = dynamic_cast<T*>(object);
    if (cast == nullptr) {
      Logger::StaticError(text);
      throw std::runtime_error(text);
    }
    return *cast;
  }

  std::string name_;
  bool initialized_ = false;
  mutable boost::mutex mutex_;
};

}  // namespace kelto::common

// The parameter frame of processing modules and controllers. A parameter lives twice: as a plain
// field of the object's Parameters structure, which code reads and writes, and as a Parameter in
// the object's ParameterTranslator, which generic editors and XML files see through a
// ParameterContainer. A module ties the two together once, in its _SetupParameterContainer.
// Thread-safety: no lock of its own; ControllerModule locks around it, ProcessingModule does not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/parameter.h>
#include <kelto/common/path.h>

namespace kelto::common {

class ParameterContainer;
class ParameterTranslator;

// Which Parameter kind stands for a field type, the criterion that _AddParameter takes for it,
// and the criterion that a field gets when none is given.
template <typename T, typename = void>
struct ParameterFieldTraits;

template <typename T>
struct ParameterFieldTraits<T, std::enable_if_t<std::is_floating_point_v<T>>> {
  using Kind = RealParameter;
  using Criterion = RealParameter::Criteria;
  static Criterion DefaultCriterion() {
    return {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max()};
  }
  static Kind::Criteria ToCriteria(const Criterion& criterion) { return criterion; }
};

// bool gets (0, 1); an unsigned field (0, its maximum as a bit pattern), which for unsigned long
// is the all-ones -1.
template <typename T>
struct ParameterFieldTraits<T, std::enable_if_t<std::is_integral_v<T>>> {
  static_assert(sizeof(T) <= sizeof(std::int64_t), "integer fields are at most 64 bits");
  using Kind = IntegerParameter;
  using Criterion = IntegerParameter::Criteria;
  static Criterion DefaultCriterion() {
    return {static_cast<std::int64_t>(std::numeric_limits<T>::min()),
            static_cast<std::int64_t>(std::numeric_limits<T>::max())};
  }
  static Kind::Criteria ToCriteria(const Criterion& criterion) { return criterion; }
};

// The criterion is the table of enumerators that may be chosen, with their texts; no default
// table exists, so a field registered without one offers nothing to choose.
template <typename T>
struct ParameterFieldTraits<T, std::enable_if_t<std::is_enum_v<T>>> {
  static_assert(sizeof(T) <= sizeof(int), "enumeration fields are at most 32 bits");
  using Kind = EnumParameter;
  using Criterion = std::unordered_map<T, std::string>;
  static Criterion DefaultCriterion() { return {}; }
  static Kind::Criteria ToCriteria(const Criterion& criterion) {
    Kind::Criteria table;
    for (const auto& [value, text] : criterion) {
      table.emplace(static_cast<int>(value), text);
    }
    return table;
  }
};

template <>
struct ParameterFieldTraits<filesystem::Path> {
  using Kind = PathParameter;
  using Criterion = PathParameter::Criteria;
  static Criterion DefaultCriterion() { return {}; }
  static Kind::Criteria ToCriteria(const Criterion& criterion) { return criterion; }
};

template <>
struct ParameterFieldTraits<std::string> {
  using Kind = StringParameter;
  using Criterion = StringParameter::Criteria;
  static Criterion DefaultCriterion() { return ".*"; }
  static Kind::Criteria ToCriteria(const Criterion& criterion) { return criterion; }
};

class KELTO_COMMON_EXPORT ParameterizedObject {
 public:
  // Base of every parameter structure. Objects learn what they were given by dynamic cast, so
  // the dynamic type of a structure is part of every interface that takes one.
  class KELTO_COMMON_EXPORT Parameters {
   public:
    Parameters() = default;
    Parameters(Parameters const&) = default;
    Parameters& operator=(Parameters const&) = default;
    virtual ~Parameters();
  };

  class KELTO_COMMON_EXPORT AbstractParametersFactory {
   public:
    AbstractParametersFactory() = default;
    AbstractParametersFactory(AbstractParametersFactory const&) = delete;
    AbstractParametersFactory& operator=(AbstractParametersFactory const&) = delete;
    virtual ~AbstractParametersFactory();
    virtual std::unique_ptr<Parameters> CreateParameters() const = 0;
    // sizeof the structure that CreateParameters makes: fields are registered only inside it.
    virtual std::size_t GetParametersSize() const = 0;
  };

  template <typename P>
  class ParametersFactory : public AbstractParametersFactory {
    static_assert(std::is_base_of_v<Parameters, P>, "P must derive from Parameters");

   public:
    std::unique_ptr<Parameters> CreateParameters() const override { return std::make_unique<P>(); }
    std::size_t GetParametersSize() const override { return sizeof(P); }
  };

  ParameterizedObject();
  // The translator's links to children point at other objects' insides; neither copy nor move.
  ParameterizedObject(ParameterizedObject const&) = delete;
  ParameterizedObject& operator=(ParameterizedObject const&) = delete;
  virtual ~ParameterizedObject();

  // Fills the structure with the current values; its dynamic type says whose values are wanted.
  virtual void GetParameters(Parameters& parameters) const = 0;
  // The object's container: its text, one Parameter per registered field with the current value
  // (hidden ones included, marked hidden), in registration order, and the containers of the
  // linked children under their link names.
  virtual void GetParameters(ParameterContainer& container) const;
  virtual void SetParameters(Parameters const& parameters) = 0;
  // Starts from the current values, takes the value of every visible parameter of the container
  // that matches a registered field by title and group and by kind, applies the result through
  // SetParameters(Parameters const&), then hands each child container to the child linked under
  // its name. Hidden parameters keep the values that the object has: its parent decides them.
  // Parameters and children that match nothing are logged by Logger::StaticInfo and ignored, so
  // that a container saved by another version still applies. If a child refuses its values the
  // values applied before stay.
  virtual void SetParameters(ParameterContainer const& container);

  // A new structure of the object's own type, with its defaults (not the current values).
  std::unique_ptr<Parameters> CreateParameters() const;

 protected:
  void _SetContainerName(const std::string& name);
  void _SetContainerDescription(const std::string& description);
  void _SetContainerInfo(const std::string& title, const std::string& name,
                         const std::string& description);

  // Replaces the factory, so that CreateParameters makes a P.
  template <typename P>
  void _SetParametersFactory();

  // Byte distance of a field from the start of its structure; throws std::invalid_argument when
  // the field is not inside the reference.
  template <typename P, typename T>
  static unsigned long _GetDistance(const P& reference, const T& field);

  // Registers the field at that distance with the kind of ParameterFieldTraits<T>. A second
  // registration at the same distance is ignored and the first stays, texts included. Throws
  // std::invalid_argument when another field is registered under the same title and group, or
  // when the field does not lie inside the structure of the factory, which must be set first.
  template <typename T>
  void _AddParameter(const unsigned long& distance, const std::string& title,
                     const std::string& description, const std::string& group,
                     const typename ParameterFieldTraits<T>::Criterion& criterion);

  // The usual form: makes P the factory's type, measures the field against the reference (a
  // default P kept for the purpose) and registers it with the default criterion, or with the
  // criterion given. Returns the registered parameter (the first one at that distance).
  template <typename T, typename P, typename = std::enable_if_t<std::is_base_of_v<Parameters, P>>>
  Parameter& _AddParameter(const P& reference, const T& field, const std::string& title,
                           const std::string& description, const std::string& group);
  template <typename T, typename P, typename = std::enable_if_t<std::is_base_of_v<Parameters, P>>>
  Parameter& _AddParameter(const P& reference, const T& field, const std::string& title,
                           const std::string& description, const std::string& group,
                           const typename ParameterFieldTraits<T>::Criterion& criterion);

  // Hides the own parameter at that distance; throws std::invalid_argument when none is there.
  void _HideParameter(const unsigned long& distance);
  // Hides a parameter of a linked child, which this object then sets itself; throws
  // std::invalid_argument when the child is not linked or has no parameter there.
  void _HideParameter(ParameterizedObject& child, const unsigned long& distance);

  // Nests the child's container under name. The child must live as long as this object (a
  // module owns its children). Linking the same child again does nothing; a second child under
  // a name in use is std::invalid_argument.
  void _LinkParameterizedObject(ParameterizedObject& child, const std::string& name);

  bool _ContainsParameterLink(const unsigned long& distance) const;
  bool _ContainsParameterContainerLink(ParameterizedObject const& child) const;

  ParameterTranslator& _GetTranslator() { return *translator_; }
  const ParameterTranslator& _GetTranslator() const { return *translator_; }

 private:
  std::unique_ptr<ParameterTranslator> translator_;
  std::unique_ptr<AbstractParametersFactory> factory_;
  std::string container_title_;
  std::string container_name_;
  std::string container_description_;
};

}  // namespace kelto::common

// The links need the complete Parameters type above, and the templates above need the links: the
// translator's header defines them.
#include <kelto/common/parameter_translator.h>

// The bridge between a parameter structure's plain fields and their Parameter objects. Each
// ParameterizedObject owns one translator: a link per registered field, found by the field's byte
// distance in the structure or by title and group, and the links to its children's containers.
// Thread-safety: no lock; guarded, where needed, by the lock of the object that owns it.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/parameter.h>
#include <kelto/common/parameterized_object.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT ParameterTranslator {
 public:
  using Parameters = ParameterizedObject::Parameters;

  // One registered field: where it lies in the structure, and how its value crosses between the
  // field and a Parameter.
  class KELTO_COMMON_EXPORT ParameterLinkBase {
   public:
    explicit ParameterLinkBase(const unsigned long& distance);
    ParameterLinkBase(ParameterLinkBase const&) = default;
    ParameterLinkBase& operator=(ParameterLinkBase const&) = default;
    virtual ~ParameterLinkBase();

    const unsigned long& GetDistance() const { return distance_; }

    // Construct and destroy the field's value in raw storage laid out like the structure;
    // nothing to do for arithmetic and enumeration fields.
    virtual void InitializeData(unsigned char* data) const = 0;
    virtual void CleanData(unsigned char* data) const = 0;
    // A plain Parameter of the link's kind, with the link's texts, criterion and hidden flag and
    // the field's value in the given structure.
    virtual std::unique_ptr<Parameter> CreateParameterWithValue(
        Parameters const& parameters) const = 0;
    // Stores the parameter's value in the field; a parameter of another kind is ignored.
    virtual void ExtractValue(Parameters& parameters, Parameter const& parameter) const = 0;
    virtual const Parameter& ToParameter() const = 0;
    virtual Parameter& ToParameter() = 0;
    virtual void SetProperties(const std::string& title, const std::string& description,
                               const std::string& group) = 0;

   private:
    unsigned long distance_;
  };

  // Value is the field's type; Kind the Parameter kind that shows it. Conversions on the way to
  // the field: an integer by plain conversion (an unsigned long keeps its bit pattern), a bool
  // is true for any non-zero value, an enumeration takes the value's low 32 bits.
  template <typename Kind, typename Value>
  class ParameterLink : public ParameterLinkBase, public Kind {
   public:
    ParameterLink(const unsigned long& distance, const std::string& title,
                  const std::string& description, const std::string& group)
        : ParameterLinkBase(distance), Kind(title, description, group) {}

    void InitializeData(unsigned char* data) const override {
      if constexpr (!std::is_trivially_default_constructible_v<Value>) {
        new (data + GetDistance()) Value();
      }
    }

    void CleanData(unsigned char* data) const override {
      if constexpr (!std::is_trivially_destructible_v<Value>) {
        std::launder(reinterpret_cast<Value*>(data + GetDistance()))->~Value();
      }
    }

    std::unique_ptr<Parameter> CreateParameterWithValue(
        Parameters const& parameters) const override {
      std::unique_ptr<Parameter> clone = this->Clone();
      const Value& field = *reinterpret_cast<const Value*>(
          reinterpret_cast<const unsigned char*>(&parameters) + GetDistance());
      dynamic_cast<Kind&>(*clone).SetValue(static_cast<typename Kind::Value>(field));
      return clone;
    }

    void ExtractValue(Parameters& parameters, Parameter const& parameter) const override {
      const auto* kind = dynamic_cast<const Kind*>(&parameter);
      if (kind == nullptr) {
        return;
      }
      Value& field =
          *reinterpret_cast<Value*>(reinterpret_cast<unsigned char*>(&parameters) + GetDistance());
      const typename Kind::Value& value = kind->GetValue();
      if constexpr (std::is_same_v<Value, bool>) {
        field = value != 0;
      } else if constexpr (std::is_enum_v<Value>) {
        field = static_cast<Value>(static_cast<std::int32_t>(value));
      } else {
        field = static_cast<Value>(value);
      }
    }

    const Parameter& ToParameter() const override { return *this; }
    Parameter& ToParameter() override { return *this; }

    void SetProperties(const std::string& title, const std::string& description,
                       const std::string& group) override {
      Kind::SetProperties(title, description, group);
    }
  };

  // A child whose container nests in this object's under name.
  struct ContainerLink {
    ParameterizedObject* object;
    std::string name;
  };

  ParameterTranslator();
  ParameterTranslator(ParameterTranslator const&) = delete;
  ParameterTranslator& operator=(ParameterTranslator const&) = delete;
  ~ParameterTranslator();

  // Appends the link and enters its key, title followed directly by group. Returns false and
  // drops the link when a field at its distance is registered already; throws
  // std::invalid_argument when another field has the same key.
  bool AddParameterLink(std::unique_ptr<ParameterLinkBase> link);
  void AddParameterContainerLink(ParameterizedObject& object, const std::string& name);

  // Null when nothing matches. The search by title and group also finds a link whose texts
  // were changed after it was registered.
  ParameterLinkBase* FindParameterLink(const unsigned long& distance) const;
  ParameterLinkBase* FindParameterLink(const std::string& title, const std::string& group) const;
  ParameterizedObject* FindParameterContainerLink(const std::string& name) const;

  // In registration order.
  const std::list<std::unique_ptr<ParameterLinkBase>>& GetParameterLinks() const { return links_; }
  const std::vector<ContainerLink>& GetParameterContainerLinks() const { return containers_; }

  bool _ContainsParameterLink(const unsigned long& distance) const;
  bool _ContainsParameterContainerLink(ParameterizedObject const& object) const;

 private:
  using LinkList = std::list<std::unique_ptr<ParameterLinkBase>>;
  LinkList links_;
  std::unordered_map<std::string, LinkList::const_iterator> keys_;
  std::vector<ContainerLink> containers_;
};

// ---------------------------------------------------------------------------------------------
// The templates of ParameterizedObject, which need the links.

template <typename P>
void ParameterizedObject::_SetParametersFactory() {
  factory_ = std::make_unique<ParametersFactory<P>>();
}

template <typename P, typename T>
unsigned long ParameterizedObject::_GetDistance(const P& reference, const T& field) {
  const auto start = reinterpret_cast<std::uintptr_t>(static_cast<const Parameters*>(&reference));
  const auto address = reinterpret_cast<std::uintptr_t>(&field);
  if (address < start || address + sizeof(T) > start + sizeof(P)) {
    throw std::invalid_argument("the field is not a member of the parameters structure");
  }
  return static_cast<unsigned long>(address - start);
}

template <typename T>
void ParameterizedObject::_AddParameter(
    const unsigned long& distance, const std::string& title, const std::string& description,
    const std::string& group, const typename ParameterFieldTraits<T>::Criterion& criterion) {
  using Traits = ParameterFieldTraits<T>;
  if (translator_->_ContainsParameterLink(distance)) {
    return;
  }
  if (distance > factory_->GetParametersSize() ||
      factory_->GetParametersSize() - distance < sizeof(T)) {
    throw std::invalid_argument("parameter \"" + title +
                                "\" lies outside the structure of the parameters factory");
  }
  auto link = std::make_unique<ParameterTranslator::ParameterLink<typename Traits::Kind, T>>(
      distance, title, description, group);
  link->GetValidationCriteria() = Traits::ToCriteria(criterion);
  translator_->AddParameterLink(std::move(link));
}

template <typename T, typename P, typename>
Parameter& ParameterizedObject::_AddParameter(const P& reference, const T& field,
                                              const std::string& title,
                                              const std::string& description,
                                              const std::string& group) {
  return _AddParameter<T, P>(reference, field, title, description, group,
                             ParameterFieldTraits<T>::DefaultCriterion());
}

template <typename T, typename P, typename>
Parameter& ParameterizedObject::_AddParameter(
    const P& reference, const T& field, const std::string& title, const std::string& description,
    const std::string& group, const typename ParameterFieldTraits<T>::Criterion& criterion) {
  _SetParametersFactory<P>();
  const unsigned long distance = _GetDistance(reference, field);
  _AddParameter<T>(distance, title, description, group, criterion);
  return translator_->FindParameterLink(distance)->ToParameter();
}

}  // namespace kelto::common

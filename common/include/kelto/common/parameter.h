// Self-describing parameter values: a title, description and group for people, a validation
// criterion and a value. Modules publish their settings as these objects through their
// ParameterContainer, so that generic editors and XML files can show, check and change them.
// Thread-safety: no lock; parameters belong to the thread that holds their object.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/path.h>
#include <kelto/common/xml_serializable_interface.h>

namespace kelto::common {

// XML form, version 0, of every kind:
//   <parameter version="0" kind="real|integer|enum|path|string">
//     <title/> <description/> <group/> <hidden>false</hidden>
//     <value/> and the criterion of the kind (see each kind)
//   </parameter>
// A missing title or value is an Error MissingValue, the other items a Warning MissingValue.
class KELTO_COMMON_EXPORT Parameter : public XMLSerializableInterface {
 public:
  explicit Parameter(const std::string& title = "", const std::string& description = "",
                     const std::string& group = "");
  Parameter(Parameter const&) = default;
  Parameter& operator=(Parameter const&) = default;
  ~Parameter() override;

  // A copy of this parameter as its plain kind (a link clones to the kind it extends).
  virtual std::unique_ptr<Parameter> Clone() const = 0;
  // A new parameter of the named kind, or null for a name that is not one.
  static std::unique_ptr<Parameter> Create(const std::string& kind);

  const std::string& GetTitle() const { return title_; }
  const std::string& GetDescription() const { return description_; }
  const std::string& GetGroup() const { return group_; }

  // A hidden parameter is set by its owner's parent; generic views leave it out.
  bool IsHidden() const { return hidden_; }
  void SetHidden(bool hidden) { hidden_ = hidden; }

  // Version 0 only; an absent version is Error MissingVersion and any other Error
  // UnsupportedVersion, with nothing read.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

 protected:
  virtual void _WriteXML_v0(_xmlNode*& node) const = 0;
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) = 0;

 public:
  // "real", "integer", "enum", "path" or "string": the kind attribute of the XML form.
  virtual std::string GetKind() const = 0;
  virtual void SetProperties(const std::string& title, const std::string& description,
                             const std::string& group);

 protected:
  // The items that all kinds share, and one scalar item of a kind, with its event when absent.
  void _WriteProperties(_xmlNode*& node) const;
  void _ReadProperties(ParsingResult& result, _xmlNode* const& node);
  template <typename T>
  static void _ReadItem(ParsingResult& result, _xmlNode* const& node, const std::string& name,
                        T& value, bool required) {
    if (!_GetValue(value, node, name, value)) {
      result << ParsingResult::Event(required ? ParsingResult::Error : ParsingResult::Warning,
                                     ParsingResult::Event::MissingValue, name);
    }
  }

 private:
  std::string title_;
  std::string description_;
  std::string group_;
  bool hidden_ = false;
};

// What the five kinds share: a value of their type, a validation criterion, and a copy as the
// plain kind (a ParameterLink derives from its kind and clones to it).
template <typename Kind, typename V, typename C>
class TypedParameter : public Parameter {
 public:
  using Value = V;
  using Criteria = C;

  const Value& GetValue() const { return value_; }
  void SetValue(const Value& value) { value_ = value; }
  Criteria& GetValidationCriteria() { return criteria_; }
  const Criteria& GetValidationCriteria() const { return criteria_; }

  std::unique_ptr<Parameter> Clone() const override {
    return std::make_unique<Kind>(static_cast<const Kind&>(*this));
  }

 protected:
  TypedParameter(const std::string& title, const std::string& description, const std::string& group,
                 Criteria criteria)
      : Parameter(title, description, group), criteria_(std::move(criteria)) {}

  Value value_{};
  Criteria criteria_;
};

// Criterion (minimum, maximum), both included; a NaN is never valid. XML: <value>, <minimum>,
// <maximum>, doubles with 17 significant digits.
class KELTO_COMMON_EXPORT RealParameter
    : public TypedParameter<RealParameter, double, std::pair<double, double>> {
 public:
  explicit RealParameter(const std::string& title = "", const std::string& description = "",
                         const std::string& group = "");

  bool IsValid(const Value& value) const;
  std::string GetKind() const override { return "real"; }

 protected:
  void _WriteXML_v0(_xmlNode*& node) const override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
};

// Criterion (minimum, maximum), both included. A maximum below the minimum is read as an unsigned
// range: unsigned fields are registered with (0, -1), the all-ones pattern as maximum, and then
// every value passes as its unsigned bit pattern. XML: <value>, <minimum>, <maximum> in decimal.
class KELTO_COMMON_EXPORT IntegerParameter
    : public TypedParameter<IntegerParameter, std::int64_t, std::pair<std::int64_t, std::int64_t>> {
 public:
  explicit IntegerParameter(const std::string& title = "", const std::string& description = "",
                            const std::string& group = "");

  bool IsValid(const Value& value) const;
  std::string GetKind() const override { return "integer"; }

 protected:
  void _WriteXML_v0(_xmlNode*& node) const override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
};

// Criterion: the enumerators that may be chosen, by value, with their texts. XML: <value> and
// <enumerators> holding <enumerator value="1" text="Gaussian"/> items.
class KELTO_COMMON_EXPORT EnumParameter
    : public TypedParameter<EnumParameter, int, std::map<int, std::string>> {
 public:
  explicit EnumParameter(const std::string& title = "", const std::string& description = "",
                         const std::string& group = "");

  bool IsValid(const Value& value) const;
  std::string GetKind() const override { return "enum"; }

 protected:
  void _WriteXML_v0(_xmlNode*& node) const override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
};

// Criterion: the paths that may be chosen, by their text; an empty list allows any path. XML:
// <value> and <allowed_paths> holding <path> items.
class KELTO_COMMON_EXPORT PathParameter
    : public TypedParameter<PathParameter, filesystem::Path, std::vector<std::string>> {
 public:
  explicit PathParameter(const std::string& title = "", const std::string& description = "",
                         const std::string& group = "");

  bool IsValid(const Value& value) const;
  std::string GetKind() const override { return "path"; }

 protected:
  void _WriteXML_v0(_xmlNode*& node) const override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
};

// Criterion: an ECMAScript regular expression that the whole value must match. XML: <value> and
// <pattern>.
class KELTO_COMMON_EXPORT StringParameter
    : public TypedParameter<StringParameter, std::string, std::string> {
 public:
  // Longer patterns are refused by IsValid: they can only come from a damaged or hostile file,
  // and compiling them could exhaust the stack.
  static constexpr std::size_t kMaxPatternLength = 1024;

  explicit StringParameter(const std::string& title = "", const std::string& description = "",
                           const std::string& group = "");

  // False as well when the pattern is not a valid expression: nothing can match it.
  bool IsValid(const Value& value) const;
  std::string GetKind() const override { return "string"; }

 protected:
  void _WriteXML_v0(_xmlNode*& node) const override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
};

}  // namespace kelto::common

// The generic, self-describing form of an object's parameters: its text, its Parameter objects in
// the order a view shows them, and the containers of its children by name. Editors fill one with
// GetParameters, change values and hand it back through SetParameters; files store it as XML.
// Thread-safety: no lock; a container belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <kelto/common/export.h>
#include <kelto/common/parameter.h>
#include <kelto/common/xml_serializable_interface.h>

namespace kelto::common {

// XML form, version 0:
//   <parameter_container version="0">
//     <name/> <title/> <description/>
//     <parameters> <parameter kind="..."/>... </parameters>        (see Parameter)
//     <children> <parameter_container version="0" link="name">...</parameter_container>...
//     </children>
//   </parameter_container>
// Reading replaces the whole content. A parameter of an unknown kind is (Warning, SanityCheck,
// sentence) and left out; one without a kind is (Error, MissingAttribute, "kind"); a child
// without a link name is (Error, MissingAttribute, "link") and kept under "".
class KELTO_COMMON_EXPORT ParameterContainer : public XMLSerializableInterface {
 public:
  ParameterContainer() = default;
  ParameterContainer(const std::string& name, const std::string& description,
                     const std::string& title = "");
  ParameterContainer(ParameterContainer const& other);
  ParameterContainer& operator=(ParameterContainer const& other);
  ParameterContainer(ParameterContainer&&) noexcept = default;
  ParameterContainer& operator=(ParameterContainer&&) noexcept = default;
  ~ParameterContainer() override;

  const std::string& GetName() const { return name_; }
  const std::string& GetTitle() const { return title_; }
  const std::string& GetDescription() const { return description_; }
  void SetInfo(const std::string& title, const std::string& name, const std::string& description);

  // The container keeps its own copy (a plain parameter of the same kind).
  void AddParameter(const Parameter& parameter);
  void AddParameter(std::unique_ptr<Parameter> parameter);
  std::size_t GetParameterCount() const { return parameters_.size(); }
  Parameter& GetParameter(std::size_t index) { return *parameters_.at(index); }
  const Parameter& GetParameter(std::size_t index) const { return *parameters_.at(index); }
  // The first parameter with that title and group, or null.
  Parameter* FindParameter(const std::string& title, const std::string& group);
  const Parameter* FindParameter(const std::string& title, const std::string& group) const;
  // What a generic view shows: the parameters that are not hidden, in order.
  std::vector<Parameter*> GetVisibleParameters();
  std::vector<const Parameter*> GetVisibleParameters() const;

  void AddChild(const std::string& name, const ParameterContainer& child);
  std::size_t GetChildCount() const { return children_.size(); }
  const std::string& GetChildName(std::size_t index) const { return child_names_.at(index); }
  ParameterContainer& GetChild(std::size_t index) { return children_.at(index); }
  const ParameterContainer& GetChild(std::size_t index) const { return children_.at(index); }
  // The first child under that name, or null.
  ParameterContainer* FindChild(const std::string& name);
  const ParameterContainer* FindChild(const std::string& name) const;

  // Empties the parameters and the children; the text stays.
  void Clear();

  // Version 0 only; an absent version is Error MissingVersion and any other Error
  // UnsupportedVersion, with nothing read.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v0(_xmlNode*& node) const;

 private:
  std::string name_;
  std::string title_;
  std::string description_;
  std::vector<std::unique_ptr<Parameter>> parameters_;
  std::vector<std::string> child_names_;
  std::vector<ParameterContainer> children_;
};

}  // namespace kelto::common

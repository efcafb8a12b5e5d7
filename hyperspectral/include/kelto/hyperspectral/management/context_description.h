// The record of "context_description.xml", the file that marks a directory as the context of one
// camera: the kind of sensor, the camera's identity and the layout version of the directory.
// ContextDao reads it to decide how to load the directory.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <string>

#include <kelto/common/logger.h>
#include <kelto/common/path.h>
#include <kelto/common/sensor_types.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT ContextDescription : public common::XMLSerializableInterface {
 public:
  // The name of the file in a context directory.
  static constexpr const char* kFileName = "context_description.xml";

  ContextDescription() = default;
  // The version reference always points at the object's own stored version.
  ContextDescription(const ContextDescription& other);
  ContextDescription& operator=(const ContextDescription& other);

  // Stores the element's version (-1 when absent) before anything else; 1 and above are read by
  // the version 1 reader, 0 reads nothing, a negative version is (Error, UnsupportedVersion).
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  // Always version 1, whatever version was read.
  void WriteXML(_xmlNode*& node) const override;
  // The description has nothing to check beyond what its reader reports.
  void RunSanityChecks(ParsingResult& result) const;

  // Reads the file into `description`. A missing file is std::invalid_argument "The context
  // description file does not exist: <path>"; a file that can't be read without an error is
  // std::runtime_error "An error occurred while reading the context description <path>: <reason>",
  // after the read's events went to the logger. Both are logged as errors in the form
  // "LoadContextDescription (<source line>) - <text>"; a null logger logs nothing.
  static void LoadContextDescription(ContextDescription& description,
                                     const common::filesystem::Path& path, common::Logger* logger);

  // The layout version of the directory, as the file stated it.
  const int& version = version_;
  common::SensorTypes::eType sensor_type = common::SensorTypes::Unknown;
  std::string camera_id;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v1(_xmlNode*& node) const;

 private:
  // A description made in code describes the layout that this library writes.
  int version_ = 1;
};

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/management/context_description.h>

#include <stdexcept>

#include <boost/format.hpp>

#include "context_log.h"

namespace kelto::hyperspectral {

using ParsingResult = ContextDescription::ParsingResult;
using Event = ParsingResult::Event;

namespace context_log {

std::string Format(const char* function, int line, const std::string& text) {
  return (boost::format("%1% (%2%) - %3%") % function % line % text).str();
}

void Error(common::Logger* logger, const char* function, int line, const std::string& text) {
  if (logger != nullptr) {
    logger->Error(Format(function, line, text));
  }
}

void Info(common::Logger* logger, const char* function, int line, const std::string& text) {
  if (logger != nullptr) {
    logger->Info(Format(function, line, text));
  }
}

void ReadDescription(ContextDescription& description, const common::filesystem::Path& path,
                     common::Logger* logger, const char* function) {
  // Strict: a document in error ends in an exception, and the exception is what refuses it.
  ParsingResult result(false, true, true, true, true);
  try {
    description.ReadFile(result, path);
  } catch (const std::exception& error) {
    const std::string text = "An error occurred while reading the context description " +
                             path.ToString() + ": " + error.what();
    Error(logger, function, __LINE__, text);
    if (logger != nullptr) {
      ParsingResult::PushEventsToLogger(*logger, result.events());
    }
    throw std::runtime_error(text);
  }
}

}  // namespace context_log

ContextDescription::ContextDescription(const ContextDescription& other)
    : XMLSerializableInterface(other),
      sensor_type(other.sensor_type),
      camera_id(other.camera_id),
      version_(other.version_) {}

ContextDescription& ContextDescription::operator=(const ContextDescription& other) {
  XMLSerializableInterface::operator=(other);
  sensor_type = other.sensor_type;
  camera_id = other.camera_id;
  version_ = other.version_;
  return *this;
}

void ContextDescription::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  version_ = _GetVersion(node);
  if (version_ > 0) {
    _ReadXML_v1(result, node);
  } else if (version_ == 0) {
    _ReadXML_v0(result, node);
  } else {
    result << Event(ParsingResult::Error, Event::UnsupportedVersion, tag);
  }
}

void ContextDescription::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "context_description");
  _SetVersion(node, 1ul);
  _WriteXML_v1(node);
}

void ContextDescription::RunSanityChecks(ParsingResult& /*result*/) const {}

// The first layout had no description file; a description of version 0 says nothing more.
void ContextDescription::_ReadXML_v0(ParsingResult& /*result*/, _xmlNode* const& /*node*/) {}

void ContextDescription::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  std::string type_text;
  _ReadValue(result, type_text, node, "sensor_type",
             common::SensorTypes::ToString(common::SensorTypes::Unknown));
  sensor_type = common::SensorTypes::FromString(type_text);
  _ReadValue(result, camera_id, node, "camera_id", std::string());
}

void ContextDescription::_WriteXML_v1(_xmlNode*& node) const {
  _SetValue(node, "sensor_type", common::SensorTypes::ToString(sensor_type));
  _SetValue(node, "camera_id", camera_id);
}

void ContextDescription::LoadContextDescription(ContextDescription& description,
                                                const common::filesystem::Path& path,
                                                common::Logger* logger) {
  if (!path.Exists()) {
    const std::string text = "The context description file does not exist: " + path.ToString();
    context_log::Error(logger, "LoadContextDescription", __LINE__, text);
    throw std::invalid_argument(text);
  }
  context_log::ReadDescription(description, path, logger, "LoadContextDescription");
}

}  // namespace kelto::hyperspectral

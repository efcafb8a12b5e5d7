// The record files that kelto-hsi knows, by the root element of the file: how to make an empty
// record of that kind and how to summarise one for a person. A new record kind is one more entry
// in the table of record_kinds.cpp.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <kelto/common/xml_serializable_interface.h>

namespace kelto::tools {

struct RecordKind {
  std::string root;        // the root element, "sensor_info"
  std::string class_name;  // the record class, "SensorInfo"
  std::function<std::unique_ptr<common::XMLSerializableInterface>()> make;
  // Writes a summary for people; `detailed` adds what a list of bands and matrices would show.
  std::function<void(const common::XMLSerializableInterface&, std::ostream&, bool detailed)>
      summarise;
};

const std::vector<RecordKind>& RecordKinds();
// The kind of a root element, or nullptr.
const RecordKind* FindRecordKind(const std::string& root);

}  // namespace kelto::tools

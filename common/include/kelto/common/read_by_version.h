// The version dispatch of a record's ReadXML. Each record states its own rules (which versions
// have a reader, what a newer version and an element without a version mean), because the file
// history of each record differs; this helper only carries them out, the same way everywhere.
// Used by every record of the family, and open to records of a program's own.
// Thread-safety: keeps no state; it works on the one record being read, as its thread does.
#pragma once

#include <initializer_list>
#include <string>

#include <kelto/common/xml_serializable_interface.h>

namespace kelto::common {

// What a version above the newest reader means.
enum class NewerVersion {
  kReadByNewest,  // read by the newest reader, without an event
  kRefuse,        // (Error, UnsupportedVersion, tag), nothing read
};

// What an element without a version attribute means.
enum class Unversioned {
  kReadSilently,         // read by the unversioned reader, without an event
  kWarnAndRead,          // (Warning, MissingVersion, tag), then the unversioned reader
  kMissingVersionError,  // (Error, MissingVersion, tag), nothing read
  kUnsupportedError,     // (Error, UnsupportedVersion, tag), nothing read
};

template <typename Record>
using VersionReader = void (Record::*)(XMLSerializableInterface::ParsingResult&, _xmlNode* const&);

// readers[v] reads version v. Member pointers to virtual readers call the override of the
// record's dynamic type. Any version that is neither known, newer, nor absent (a negative number
// below -1) is (Error, UnsupportedVersion, tag).
template <typename Record>
void ReadByVersion(Record& record, XMLSerializableInterface::ParsingResult& result,
                   _xmlNode* const& node, std::string const& tag, int version,
                   std::initializer_list<VersionReader<Record>> readers, NewerVersion newer,
                   Unversioned unversioned, VersionReader<Record> unversioned_reader = nullptr) {
  using ParsingResult = XMLSerializableInterface::ParsingResult;
  using Event = ParsingResult::Event;
  const int newest = static_cast<int>(readers.size()) - 1;
  if (version >= 0 && version <= newest) {
    (record.*readers.begin()[version])(result, node);
    return;
  }
  if (version > newest && newer == NewerVersion::kReadByNewest) {
    (record.*readers.begin()[newest])(result, node);
    return;
  }
  if (version == -1) {
    switch (unversioned) {
      case Unversioned::kWarnAndRead:
        result << Event(ParsingResult::Warning, Event::MissingVersion, tag);
        (record.*unversioned_reader)(result, node);
        return;
      case Unversioned::kReadSilently:
        (record.*unversioned_reader)(result, node);
        return;
      case Unversioned::kMissingVersionError:
        result << Event(ParsingResult::Error, Event::MissingVersion, tag);
        return;
      case Unversioned::kUnsupportedError:
        break;
    }
  }
  result << Event(ParsingResult::Error, Event::UnsupportedVersion, tag);
}

}  // namespace kelto::common

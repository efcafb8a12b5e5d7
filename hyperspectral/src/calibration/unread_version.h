// Readers of historic versions that this build does not read yet: they report the version as
// unsupported and read nothing, so that such a file loads without a crash and says why it is
// incomplete.
#pragma once

#include <kelto/common/xml_serializable_interface.h>

namespace kelto::hyperspectral {

// A helper class only so that it may use the base's protected tools.
class UnreadVersion : public common::XMLSerializableInterface {
 public:
  static void Report(ParsingResult& result, _xmlNode* const& node) {
    result << ParsingResult::Event(ParsingResult::Error, ParsingResult::Event::UnsupportedVersion,
                                   _GetTagName(node));
  }
};

inline void ReportUnreadVersion(common::XMLSerializableInterface::ParsingResult& result,
                                _xmlNode* const& node) {
  UnreadVersion::Report(result, node);
}

}  // namespace kelto::hyperspectral

// `kelto-hsi check` and `kelto-hsi info`: read any record file the tools know by its root element,
// run every check of the record (also those that reading leaves to the caller), summarise the
// record and give a verdict with the tools' exit codes (exit_codes.h): 0 sound, 1 warnings,
// 2 errors, 3 a file that can't be read or holds no record the tools know.
#pragma once

#include <string>

namespace kelto::tools {

struct CheckRequest {
  std::string file;
  bool detailed = false;  // info: every band and virtual band listed
  bool verbose = false;   // every event of the read, also those in state Ok
  bool json = false;      // one JSON document on standard output instead of the summary
};

int RunCheck(const CheckRequest& request);

}  // namespace kelto::tools

// Calibration files on the command line: `kelto-hsi convert` brings calibrations of any age to the
// current form, `kelto-hsi scan` loads a directory of calibrations as a program would, through the
// calibration container, and `kelto-hsi rename` gives a calibration file its standard name.
#pragma once

#include <string>
#include <vector>

namespace kelto::tools {

struct ConvertRequest {
  std::vector<std::string> inputs;  // files, or directories of *.xml
  std::string output;               // a file for one input file, else a directory
  bool force = false;               // write also what reads with errors
  bool json = false;
};

struct ScanRequest {
  std::string directory;
  bool json = false;
};

struct RenameRequest {
  std::string file;
  bool apply = false;
  bool json = false;
};

int RunConvert(const ConvertRequest& request);
int RunScan(const ScanRequest& request);
int RunRename(const RenameRequest& request);

}  // namespace kelto::tools

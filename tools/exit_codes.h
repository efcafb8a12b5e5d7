// The one table of exit codes of the command-line tools; every command returns one of these, and
// `--help` and the README repeat them.
#pragma once

namespace kelto::tools {

enum ExitCode : int {
  kOk = 0,
  kWarnings = 1,      // check, info, scan: the file has warnings
  kErrors = 2,        // check, info, scan: the file has errors; also parameters or a calibration
                      // that a computation can't use
  kUnreadable = 3,    // a calibration or record that can't be read, or holds another kind
  kBadImage = 4,      // an image or header that is bad or can't be opened
  kUnsupported = 5,   // an unsupported sample type or a cube too large
  kSizeMismatch = 6,  // header and data sizes disagree
  kPixelOutside = 7,  // a pixel outside the image
  kBadMatrix = 8,     // a correction matrix missing, unfit for the image, or broken
  kNoData = 9,        // a pixel without data
  kNotWritten = 10,   // an output that could not be written (nothing is left under its name)
  kUsage = 64,        // every usage error (EX_USAGE)
};

// The table as the footer of every command's --help gives it.
inline constexpr const char* kExitCodeHelp =
    "Exit status: 0 done; check, info: 1 warnings, 2 errors in the file; 2 parameters or a "
    "calibration that a computation can't use; 3 a calibration or record that can't be read, or a "
    "file holding another kind of record; 4 an image or header that is bad or can't be opened; 5 "
    "an unsupported sample type or a cube too large; 6 header and data sizes disagree; 7 a pixel "
    "outside the image; 8 a correction matrix missing, unfit for the image, or broken; 9 a pixel "
    "without data; 10 an output that could not be written (nothing is left under its name); 64 a "
    "usage error.";

}  // namespace kelto::tools

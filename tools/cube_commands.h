// Whole cubes on the command line: `kelto-hsi correct` streams a cube through a correction matrix
// (optionally by dark and white references to reflectance first) into a new float cube, a block
// of lines at a time and on several threads, so that cubes far larger than memory are corrected.
#pragma once

#include <string>

namespace kelto::tools {

struct CorrectRequest {
  std::string calibration;
  std::string input;
  std::string output;
  std::string matrix;    // empty: the calibration's first
  std::string dark;      // with white: reflectance; each a cube of the input's size, or any cube
  std::string white;     // of its bands whose mean spectrum is used
  unsigned threads = 0;  // 0: every core
  unsigned long block_lines = 0;  // 0: a block of about 8 MiB
  std::string format = "ENVI";    // or "GTiff"
  bool json = false;
};

int RunCorrect(const CorrectRequest& request);

}  // namespace kelto::tools

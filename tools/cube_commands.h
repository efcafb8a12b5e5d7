// Whole cubes on the command line: `kelto-hsi cube` assembles raw sensor frames into a cube, and
// `kelto-hsi correct` streams a cube through a correction matrix
// (optionally by dark and white references to reflectance first) into a new float cube, a block
// of lines at a time and on several threads, so that cubes far larger than memory are corrected.
#pragma once

#include <string>
#include <vector>

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

// `kelto-hsi cube`: raw sensor frames (one band each, 8 to 16 bit, any format GDAL reads) to a
// float32 cube of one band per calibration band, frames stacked in the order given.
struct CubeRequest {
  std::string calibration;
  std::vector<std::string> frames;
  std::string output;
  std::string format = "ENVI";
  bool json = false;
};

int RunCube(const CubeRequest& request);

}  // namespace kelto::tools

// The main job on the command line: `kelto-hsi peaks` fills every band's peaks of a calibration
// from its measured responses, `kelto-hsi matrix` computes a correction matrix and stores it in the
// calibration. Both check what they read before computing, write their output completely or not
// at all, and return the tools' exit codes (exit_codes.h).
#pragma once

#include <string>
#include <vector>

namespace kelto::tools {

struct AnalysisRequest {
  std::string calibration;  // the sensor_calibration file read
  std::string output;       // the file written
  // A key of the embedded parameter documents, or a parameter file when it names an existing
  // path; empty: the document of the calibration's type name.
  std::string parameters;
  bool json = false;  // the summary as JSON on standard output
  // peaks: sort the bands even when that reorders the coefficients of stored matrices.
  bool force = false;
  // matrix:
  std::string name;        // of the new matrix; one of the same name is replaced
  bool all_bands = false;  // every band rather than the bands' own selection
  // An irradiance matrix, for bands as measured, rather than a reflectance matrix, whose rows
  // apply to white-referenced bands.
  bool irradiance = false;
  std::vector<std::string> external_optics;  // optical_component files the matrix assumes
  std::string debug_dir;                     // when set, the computation's debug files go there
};

int RunPeaks(const AnalysisRequest& request);
int RunMatrix(const AnalysisRequest& request);

}  // namespace kelto::tools

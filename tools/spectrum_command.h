// `kelto-hsi spectrum`: the corrected (or, with --raw, the scaled) spectrum of one pixel of an
// image cube, with the tools' exit codes (exit_codes.h). Band k of the cube is band number k of
// the calibration, counted over all its filter zones: a matrix weighs the cube's bands by
// position, so the command warns when the cube's wavelengths say otherwise.
#pragma once

#include <string>
#include <utility>

namespace kelto::tools {

struct SpectrumRequest {
  std::string calibration;
  std::string image;
  std::pair<int, int> pixel{0, 0};
  std::string matrix;  // empty: the calibration's first
  bool raw = false;    // the scaled spectrum of the image's bands, uncorrected
  bool json = false;
};

int RunSpectrum(const SpectrumRequest& request);

}  // namespace kelto::tools

// A small simulated scene with ground truth, seen through a calibrated filter sensor: patches of
// known reflectance spectra, each band value the integral of the band's response times the
// spectrum, scaled and quantised to unsigned 16 bits, framed by a border of "no data". Written as
// an ENVI cube (raw samples and a text header) with every band at every pixel: band sequential
// for mosaics and tiles, and for a wedge line by line, as the frames of a line scan assemble. The
// demo and the accuracy figures of the correction are measured on it.
#pragma once

#include <string>
#include <vector>

#include <kelto/hyperspectral/calibration/sensor_calibration.h>

namespace kelto::tools {

class SceneSimulator {
 public:
  struct Patch {
    std::string name;
    int x, y, width, height;  // pixels of the scene
  };

  static constexpr int kSize = 64;
  static constexpr int kBorder = 4;
  static constexpr unsigned short kFillValue = 65535;

  explicit SceneSimulator(const hyperspectral::SensorCalibration& calibration);

  // Reflectance of a patch's material at a wavelength: "vegetation" (green peak, red edge),
  // "soil" (a rising ramp), "water" (dark, falling) and "grey" (flat). Throws
  // std::invalid_argument for another name.
  static double Reflectance(const std::string& material, double wavelength_nm);
  const std::vector<Patch>& Patches() const { return patches_; }

  // The stored value of every band for a material, before quantisation: scale times the
  // integral of the band's response, the optics' transmission and the reflectance over the
  // calibration grid.
  std::vector<double> BandValues(const std::string& material) const;
  // The integral of each band's response through the optics: a band value divided by the scale
  // and by this is the band's own, uncorrected estimate of the reflectance.
  std::vector<double> ResponseAreas() const;
  // Stored samples divide by this to give the integrals.
  double Scale() const { return scale_; }
  // The stored value of every band for a white target (reflectance 1), before quantisation:
  // what a stored sample is divided by to be white referenced, as reflectance matrices expect.
  std::vector<double> WhiteResponse() const;

  // Writes `<stem>.raw` and `<stem>.hdr` (ENVI, unsigned 16-bit, with "data ignore value",
  // "reflectance scale factor", "wavelength" and "fwhm" of the bands' main peaks), each under a
  // temporary name first. Band sequential, or band interleaved by line for a line-scan sensor.
  void WriteEnvi(const std::string& stem) const;
  // For a calibration of one mosaic zone: the scene as the sensor records it, a raw frame of one
  // pattern repetition per scene pixel (`<stem>-raw.pgm`, 16-bit PGM), with a dark frame
  // (`<stem>-dark.pgm`, the sensor's offset, which every frame carries) and a white frame
  // (`<stem>-white.pgm`, a white target filling the view). The border of the scene is black.
  // Does nothing for other calibrations.
  void WriteRawFrames(const std::string& stem) const;

 private:
  std::vector<const hyperspectral::FilterZone::BandInfo*> bands_;
  std::vector<double> grid_nm_;
  std::vector<double> optics_;  // transmission of the optics in front of the sensor
  std::vector<Patch> patches_;
  double scale_ = 1.0;
  bool line_scan_ = false;
  // The pattern of a calibration of one mosaic zone, and each band's place in it.
  unsigned long pattern_width_ = 0;
  unsigned long pattern_height_ = 0;
  std::vector<unsigned long>
      pattern_positions_;  // every zone a wedge: a frame holds one line of the scene
};

}  // namespace kelto::tools

// Hypercubes from raw sensor frames: rearranges the pixels of a frame, as the filter zones of a
// calibration lay its bands out on the chip, into cube lines of one band per calibration band, in
// the band numbering over all zones that the correction matrices use. `kelto-hsi cube` and
// programs that acquire frames use it.
//
// A mosaic zone gives one cube pixel per repetition of its pattern, with one band per pattern
// position; a tiled zone one cube pixel per position inside a tile; a wedge zone, per frame, one
// cube line whose band values are the mean of that band's stripe of rows per column. Pattern
// position p lies in column p % pattern_width and row p / pattern_width of its pattern.
//
// Thread-safety: read-only after construction; one object serves any number of threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <kelto/hyperspectral/calibration/filter_info.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT RawFrameAssembler {
 public:
  // All zones with bands must share one spatial grid: one mosaic or tiled zone, or wedge zones
  // over the same columns. Throws std::invalid_argument naming the zones otherwise, or when a zone
  // has no usable geometry (an empty pattern, a pattern larger than its area, a band's pattern
  // position outside the pattern).
  explicit RawFrameAssembler(const FilterInfo& filter);

  // Bands over all zones, in band numbering.
  unsigned long GetBandCount() const { return static_cast<unsigned long>(sources_.size()); }
  // The wavelength and FWHM of each band's first peak (0 for a band without peaks), nm.
  const std::vector<double>& GetWavelengths() const { return wavelengths_; }
  const std::vector<double>& GetFwhms() const { return fwhms_; }

  // The cube pixels per line and cube lines that a frame of that size gives: a frame smaller than
  // the zones' area gives the whole repetitions it holds. Throws std::invalid_argument when the
  // frame holds no whole cube pixel.
  unsigned long GetCubeWidth(unsigned long frame_width, unsigned long frame_height) const;
  unsigned long GetCubeLines(unsigned long frame_width, unsigned long frame_height) const;

  // Writes the cube lines of one frame (dense, row after row, samples of the library's sample
  // type codes) to lines, by pixel: band b of cube pixel x on cube line y at
  // lines[(y * GetCubeWidth() + x) * GetBandCount() + b]. Throws std::invalid_argument for an
  // unknown sample type or a frame without whole cube pixels.
  void Assemble(const void* frame, std::uint32_t sample_type, unsigned long frame_width,
                unsigned long frame_height, float* lines) const;

 private:
  // Where one band's samples lie: the first sensor pixel of cube pixel (0, 0), the sensor step
  // from one cube pixel to the next along x and y, and the rows averaged for one value (wedges).
  struct Source {
    unsigned long x = 0;
    unsigned long y = 0;
    unsigned long rows = 1;
  };

  FilterZone::eFilterLayout layout_ = FilterZone::NO_FILTER;
  // The zones' common area, and the sensor steps between cube pixels.
  unsigned long area_x_ = 0;
  unsigned long area_y_ = 0;
  unsigned long area_width_ = 0;
  unsigned long area_height_ = 0;
  unsigned long step_x_ = 1;
  unsigned long step_y_ = 1;
  // Along each axis the cube spans this many sensor pixels of the area (a tile's size for tiles).
  unsigned long span_x_ = 0;
  unsigned long span_y_ = 0;
  std::vector<Source> sources_;
  std::vector<double> wavelengths_;
  std::vector<double> fwhms_;
};

}  // namespace kelto::hyperspectral

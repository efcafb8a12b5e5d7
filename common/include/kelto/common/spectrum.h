// A curve over wavelength: the grid (start, end and step in nanometres), the wavelengths and the
// values. Base of the spectra that calibrations carry, such as the rejection filter in front of a
// sensor, which adds its own file form.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <kelto/common/export.h>
#include <kelto/common/vector.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT Spectrum {
 public:
  Spectrum() = default;
  Spectrum(Spectrum const&) = default;
  Spectrum& operator=(Spectrum const&) = default;
  Spectrum(Spectrum&&) = default;
  Spectrum& operator=(Spectrum&&) = default;
  virtual ~Spectrum() = default;

  // Back to the default: an empty curve on a zero grid.
  virtual void Clear();

  double wavelength_start_nm = 0.0;
  double wavelength_end_nm = 0.0;
  double wavelength_resolution_nm = 0.0;
  Vector wavelengths;
  Vector values;
};

}  // namespace kelto::common

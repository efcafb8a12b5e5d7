// What is known about the contents of a band image beyond its format: whether its samples are
// scaled real values and whether the spectral correction has been applied. Readers decide by these
// flags whether to scale and correct what they read.
// Thread-safety: plain flags without a lock, like the image that holds them.
#pragma once

#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

struct KELTO_DATATYPES_EXPORT BandImageDataInfo {
  virtual ~BandImageDataInfo() = default;

  // The samples are real values times the format's scale, and the image may be scaled and
  // corrected. False for raw digital numbers.
  bool is_normalised = false;
};

struct KELTO_DATATYPES_EXPORT HypercubeDataInfo : BandImageDataInfo {
  bool is_spectrally_corrected = false;
};

}  // namespace kelto::datatypes

// A multi-band image as its readers see it: a format, what is known about its contents, and a
// band storage to read the samples through. The libraries of the family never load or keep an
// image; they receive one from their caller.
// Thread-safety: no lock; read by many threads while none changes the image, changed by one.
#pragma once

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/datatypes/band_image_data_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class KELTO_DATATYPES_EXPORT AbstractBandImage {
 public:
  virtual ~AbstractBandImage();

  virtual const BandImageDataFormat& GetDataFormat() const = 0;
  virtual const BandImageDataInfo& GetDataInfo() const = 0;
  virtual BandImageDataInfo& GetDataInfo() = 0;
  // The storage is a table of sample addresses, so a const image hands out the same storage as
  // a changeable one: const protects the format and the tables, not the samples.
  virtual BandStorageMixin* GetBandStorage() const = 0;
  virtual BandStorageMixin* GetBandStorage() = 0;

 protected:
  AbstractBandImage() = default;
  AbstractBandImage(AbstractBandImage const&) = default;
  AbstractBandImage& operator=(AbstractBandImage const&) = default;
};

}  // namespace kelto::datatypes

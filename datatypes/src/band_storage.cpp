#include <kelto/datatypes/band_storage.h>

#include "checked_size.h"

namespace kelto::datatypes {

BandStorageMixin::~BandStorageMixin() = default;

BandStorage_BIP::BandStorage_BIP(AbstractBandImage* image, unsigned char* samples,
                                 unsigned long width, unsigned long height,
                                 unsigned long nr_of_bands, unsigned long element_size)
    : BandStorageMixin(image) {
  detail::CheckedProduct({width, height, nr_of_bands, element_size}, "band image");
  detail::CheckedProduct({width, height, sizeof(unsigned char*)}, "pixel table");
  const unsigned long pixel_bytes = nr_of_bands * element_size;
  pixel_addresses_.resize(width * height);
  lines_.resize(height);
  for (unsigned long y = 0; y < height; ++y) {
    lines_[y] = pixel_addresses_.data() + y * width;
    for (unsigned long x = 0; x < width; ++x) {
      pixel_addresses_[y * width + x] = samples + (y * width + x) * pixel_bytes;
    }
  }
  pixels = lines_.data();
}

BandStorage_BIP::~BandStorage_BIP() = default;

BandStorage_BSQ::BandStorage_BSQ(AbstractBandImage* image, unsigned char* samples,
                                 unsigned long width, unsigned long height,
                                 unsigned long nr_of_bands, unsigned long element_size)
    : BandStorageMixin(image) {
  detail::CheckedProduct({width, height, nr_of_bands, element_size}, "band image");
  detail::CheckedProduct({nr_of_bands, height, sizeof(unsigned char*)}, "line table");
  const unsigned long line_bytes = width * element_size;
  line_addresses_.resize(nr_of_bands * height);
  band_lines_.resize(nr_of_bands);
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    band_lines_[b] = line_addresses_.data() + b * height;
    for (unsigned long y = 0; y < height; ++y) {
      line_addresses_[b * height + y] = samples + (b * height + y) * line_bytes;
    }
  }
  bands = band_lines_.data();
}

BandStorage_BSQ::~BandStorage_BSQ() = default;

}  // namespace kelto::datatypes

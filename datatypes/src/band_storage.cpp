#include <kelto/datatypes/band_storage.h>

#include "checked_size.h"

namespace kelto::datatypes {

BandStorageMixin::~BandStorageMixin() = default;

namespace {

// Both storages are a table of `outer` rows of `inner` addresses each, spaced `stride` bytes
// apart over the sample block: pixels of lines for BIP, lines of bands for BSQ.
unsigned char* const* const* BuildTable(unsigned char* samples, unsigned long outer,
                                        unsigned long inner, unsigned long stride,
                                        std::vector<unsigned char*>& addresses,
                                        std::vector<unsigned char* const*>& rows) {
  addresses.resize(outer * inner);
  rows.resize(outer);
  for (unsigned long o = 0; o < outer; ++o) {
    rows[o] = addresses.data() + o * inner;
    for (unsigned long i = 0; i < inner; ++i) {
      addresses[o * inner + i] = samples + (o * inner + i) * stride;
    }
  }
  return rows.data();
}

}  // namespace

BandStorage_BIP::BandStorage_BIP(AbstractBandImage* image, unsigned char* samples,
                                 unsigned long width, unsigned long height,
                                 unsigned long nr_of_bands, unsigned long element_size)
    : BandStorageMixin(image) {
  detail::CheckedProduct({width, height, nr_of_bands, element_size}, "band image");
  detail::CheckedProduct({width, height, sizeof(unsigned char*)}, "pixel table");
  pixels = BuildTable(samples, height, width, nr_of_bands * element_size, pixel_addresses_, lines_);
}

BandStorage_BIP::~BandStorage_BIP() = default;

BandStorage_BSQ::BandStorage_BSQ(AbstractBandImage* image, unsigned char* samples,
                                 unsigned long width, unsigned long height,
                                 unsigned long nr_of_bands, unsigned long element_size)
    : BandStorageMixin(image) {
  detail::CheckedProduct({width, height, nr_of_bands, element_size}, "band image");
  detail::CheckedProduct({nr_of_bands, height, sizeof(unsigned char*)}, "line table");
  bands =
      BuildTable(samples, nr_of_bands, height, width * element_size, line_addresses_, band_lines_);
}

BandStorage_BSQ::~BandStorage_BSQ() = default;

}  // namespace kelto::datatypes

#include <kelto/datatypes/band_storage.h>

#include <algorithm>
#include <string>

#include "checked_size.h"

namespace kelto::datatypes {

BandStorageMixin::~BandStorageMixin() = default;

namespace {

// Both storages are a table of `outer` rows of `inner` addresses each, spaced `stride` bytes
// apart over the sample block: pixels of lines for BIP, lines of bands for BSQ. An image without
// pixels has no table, since no position of it may be read. With stride 0 (no sample between
// two entries) every row holds the same addresses, so all rows share one: the tables of an
// image without samples grow with its extents, not with their product.
struct Table {
  unsigned long outer;
  unsigned long inner;
  unsigned long stride;
  bool has_pixels;

  unsigned long DistinctRows() const { return stride == 0 ? std::min(outer, 1UL) : outer; }

  // Row pointers and addresses together; throws std::length_error beyond the largest object.
  unsigned long Bytes(const char* what) const {
    if (!has_pixels) {
      return 0;
    }
    const unsigned long addresses = detail::CheckedProduct({DistinctRows(), inner}, what);
    return detail::CheckedProduct({detail::CheckedSum(outer, addresses, what), sizeof(void*)},
                                  what);
  }

  // Bytes, refused beyond the machine's memory as well: a storage over a caller's block has no
  // other limit.
  unsigned long BytesInMemory(const char* what) const {
    const unsigned long bytes = Bytes(what);
    if (bytes > detail::PhysicalMemoryBytes()) {
      throw std::length_error(std::string(what) + " of " + std::to_string(bytes) +
                              " bytes is too large for the machine's memory");
    }
    return bytes;
  }

  unsigned char* const* const* Build(unsigned char* samples, std::vector<unsigned char*>& addresses,
                                     std::vector<unsigned char* const*>& rows) const {
    if (!has_pixels) {
      return nullptr;
    }
    const unsigned long distinct = DistinctRows();
    addresses.resize(distinct * inner);
    for (unsigned long o = 0; o < distinct; ++o) {
      for (unsigned long i = 0; i < inner; ++i) {
        addresses[o * inner + i] = samples + (o * inner + i) * stride;
      }
    }
    rows.resize(outer);
    for (unsigned long o = 0; o < outer; ++o) {
      rows[o] = addresses.data() + (distinct == outer ? o * inner : 0);
    }
    return rows.data();
  }
};

// The sample block must be countable before any table over it is: this also bounds the strides.
void CheckImage(unsigned long width, unsigned long height, unsigned long nr_of_bands,
                unsigned long element_size) {
  detail::CheckedProduct({width, height, nr_of_bands, element_size}, "band image");
}

Table PixelTable(unsigned long width, unsigned long height, unsigned long nr_of_bands,
                 unsigned long element_size) {
  CheckImage(width, height, nr_of_bands, element_size);
  return {height, width, nr_of_bands * element_size, width != 0 && height != 0};
}

Table LineTable(unsigned long width, unsigned long height, unsigned long nr_of_bands,
                unsigned long element_size) {
  CheckImage(width, height, nr_of_bands, element_size);
  return {nr_of_bands, height, width * element_size, width != 0 && height != 0};
}

}  // namespace

BandStorage_BIP::BandStorage_BIP(AbstractBandImage* image, unsigned char* samples,
                                 unsigned long width, unsigned long height,
                                 unsigned long nr_of_bands, unsigned long element_size)
    : BandStorageMixin(image) {
  const Table table = PixelTable(width, height, nr_of_bands, element_size);
  table.BytesInMemory("pixel table");
  pixels = table.Build(samples, pixel_addresses_, lines_);
}

unsigned long BandStorage_BIP::TableBytes(unsigned long width, unsigned long height,
                                          unsigned long nr_of_bands, unsigned long element_size) {
  return PixelTable(width, height, nr_of_bands, element_size).Bytes("pixel table");
}

BandStorage_BIP::~BandStorage_BIP() = default;

BandStorage_BSQ::BandStorage_BSQ(AbstractBandImage* image, unsigned char* samples,
                                 unsigned long width, unsigned long height,
                                 unsigned long nr_of_bands, unsigned long element_size)
    : BandStorageMixin(image) {
  const Table table = LineTable(width, height, nr_of_bands, element_size);
  table.BytesInMemory("line table");
  bands = table.Build(samples, line_addresses_, band_lines_);
}

unsigned long BandStorage_BSQ::TableBytes(unsigned long width, unsigned long height,
                                          unsigned long nr_of_bands, unsigned long element_size) {
  return LineTable(width, height, nr_of_bands, element_size).Bytes("line table");
}

BandStorage_BSQ::~BandStorage_BSQ() = default;

}  // namespace kelto::datatypes

// The two ways a band image lays out its samples, as pointer tables over one block of bytes, so
// that a read in an innermost loop is two or three plain loads. A reader finds the storage by
// dynamic cast and picks the sample type from the format's data_type: the tables hold bytes, the
// same object serves every sample type, and no position is checked.
// Thread-safety: no lock; the tables only read the image's memory, which the image's owner
// keeps unchanged while other threads read.
#pragma once

#include <cstring>
#include <vector>

#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class AbstractBandImage;

// The sample `index` of type T counted from address, which must lie in samples of that type.
// Goes through memcpy because the block holds bytes, not objects of T; compilers make it one load.
template <typename T>
inline T LoadSample(const unsigned char* address, unsigned long index) {
  T value;
  std::memcpy(&value, address + index * sizeof(T), sizeof(T));
  return value;
}

class KELTO_DATATYPES_EXPORT BandStorageMixin {
 public:
  explicit BandStorageMixin(AbstractBandImage* image) : image_(image) {}
  virtual ~BandStorageMixin();

  BandStorageMixin(BandStorageMixin const&) = delete;
  BandStorageMixin& operator=(BandStorageMixin const&) = delete;

  // The image whose samples the tables address.
  AbstractBandImage* GetImage() const { return image_; }

 private:
  AbstractBandImage* image_;
};

// Band interleaved by pixel: the samples of one pixel follow each other, band after band, and
// pixels follow each other along a line.
class KELTO_DATATYPES_EXPORT BandStorage_BIP : public BandStorageMixin {
 public:
  // Tables over samples, which must hold width x height x nr_of_bands samples of element_size
  // bytes; they stay the caller's. Throws std::length_error when the samples could not be
  // counted or the table would not fit in the machine's memory.
  BandStorage_BIP(AbstractBandImage* image, unsigned char* samples, unsigned long width,
                  unsigned long height, unsigned long nr_of_bands, unsigned long element_size);
  ~BandStorage_BIP() override;

  // Bytes of the tables the constructor builds for that shape, throwing as it does: a pointer
  // per line and per pixel, but a pointer per line and per pixel of one line alone when pixels
  // have no samples, and nothing when the image has no pixel.
  static unsigned long TableBytes(unsigned long width, unsigned long height,
                                  unsigned long nr_of_bands, unsigned long element_size);

  // pixels[y][x]: the address of the first sample of pixel (x, y); null when the image has no
  // pixel.
  unsigned char* const* const* pixels = nullptr;

 private:
  std::vector<unsigned char*> pixel_addresses_;
  std::vector<unsigned char* const*> lines_;
};

// Band sequential: each band is a whole image of its own, line after line.
class KELTO_DATATYPES_EXPORT BandStorage_BSQ : public BandStorageMixin {
 public:
  // As BandStorage_BIP.
  BandStorage_BSQ(AbstractBandImage* image, unsigned char* samples, unsigned long width,
                  unsigned long height, unsigned long nr_of_bands, unsigned long element_size);
  ~BandStorage_BSQ() override;

  // As BandStorage_BIP's: a pointer per band and per line of every band, per line of one band
  // alone when lines have no samples, nothing when the image has no pixel.
  static unsigned long TableBytes(unsigned long width, unsigned long height,
                                  unsigned long nr_of_bands, unsigned long element_size);

  // bands[b][y]: the address of line y of band b, whose x-th sample is sample x of that line;
  // null when the image has no pixel.
  unsigned char* const* const* bands = nullptr;

 private:
  std::vector<unsigned char*> line_addresses_;
  std::vector<unsigned char* const*> band_lines_;
};

}  // namespace kelto::datatypes

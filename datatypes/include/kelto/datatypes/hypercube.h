// A band image whose bands lie on the wavelength axis, holding its samples in memory. This is the
// image that callers hand to the data access of the hyperspectral library.
// Thread-safety: no lock; read by many threads while none writes samples or changes the format.
#pragma once

#include <memory>
#include <vector>

#include <kelto/datatypes/abstract_band_image.h>
#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class KELTO_DATATYPES_EXPORT Hypercube : public AbstractBandImage {
 public:
  // Zeroed storage for format.width x format.height x format.GetNrOfBands() samples of
  // format.element_size bytes, band sequential for interleave 0 and by pixel for every other
  // value.
  //
  // Memory: the image takes RequiredBytes(format), its samples and their pointer tables, plus a
  // copy of the format and a few hundred bytes. That sum is decided before anything is
  // allocated: beyond memory_limit_bytes the constructor throws std::length_error at once. The
  // one-argument form takes the machine's physical memory as the limit; a program that must
  // leave room for others passes its own.
  //
  // Throws std::invalid_argument when element_size is 0 or is not the size of a known data_type
  // (unknown codes take any size of at least one byte, since no reader interprets them), and
  // std::length_error when the image needs more than the limit or could not even be counted.
  explicit Hypercube(BandImageDataFormat const& format);
  Hypercube(BandImageDataFormat const& format, unsigned long memory_limit_bytes);
  ~Hypercube() override;

  // The storage tables point into this object's own block.
  Hypercube(Hypercube const&) = delete;
  Hypercube& operator=(Hypercube const&) = delete;

  const BandImageDataFormat& GetDataFormat() const override { return format_; }
  const BandImageDataInfo& GetDataInfo() const override { return info_; }
  BandImageDataInfo& GetDataInfo() override { return info_; }
  // The same record as GetDataInfo, with the flag that only a hypercube has.
  virtual const HypercubeDataInfo& GetHypercubeInfo() const { return info_; }
  virtual HypercubeDataInfo& GetHypercubeInfo() { return info_; }
  BandStorageMixin* GetBandStorage() const override { return storage_.get(); }
  BandStorageMixin* GetBandStorage() override { return storage_.get(); }

  // The whole sample block, in the storage order of the format.
  unsigned char* GetSamples() { return samples_.data(); }
  const unsigned char* GetSamples() const { return samples_.data(); }
  unsigned long GetSampleBytes() const { return samples_.size(); }

  // Bytes of the samples and tables of an image of that format, with the constructor's checks
  // but without its limit.
  static unsigned long RequiredBytes(BandImageDataFormat const& format);
  // The default limit: the machine's physical memory in bytes.
  static unsigned long PhysicalMemoryBytes();

 private:
  BandImageDataFormat format_;
  HypercubeDataInfo info_;
  std::vector<unsigned char> samples_;
  std::unique_ptr<BandStorageMixin> storage_;
};

}  // namespace kelto::datatypes

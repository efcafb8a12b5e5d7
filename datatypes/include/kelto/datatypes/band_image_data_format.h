// Everything needed to interpret the samples of a band image: the sample type and size, the value
// range and scaling, the size of the image, the storage order and one description per band.
// Readers of an image pick the C++ type of a sample by data_type.
// Thread-safety: no lock; read by many threads while none changes it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/data_format.h>
#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class KELTO_DATATYPES_EXPORT BandImageDataFormat : public DataFormat {
 public:
  // Values of data_type and the sample type each is read as. Some codes read alike: 4 and 5,
  // 7 and 8, 9 and 12. Code 9 reads 64 bits unsigned, whatever its place in the list suggests.
  // Any code above kDouble is as unknown as kNoSampleType.
  //
  // These are the family's own codes, not the "data type" of an ENVI header, which numbers the
  // same types otherwise (ENVI's 12 is unsigned 16 bits, ours 12 is unsigned 64 bits). A reader
  // of ENVI files translates:
  //
  //   sample type           here          ENVI
  //   char, signed char     1, 2          none (ENVI's bytes are unsigned)
  //   unsigned char         3             1
  //   short (16 bits)       4, 5          2
  //   unsigned short        6             12
  //   int (32 bits)         7, 8          3
  //   unsigned int          10            13
  //   long (64 bits)        11            14
  //   unsigned long         9, 12         15
  //   float                 13            4
  //   double                14            5
  //   complex               none          6, 9
  enum eSampleType : std::uint32_t {
    kNoSampleType = 0,
    kChar = 1,
    kSignedChar = 2,
    kUnsignedChar = 3,
    kShort = 4,
    kInt16 = 5,
    kUnsignedShort = 6,
    kInt = 7,
    kInt32 = 8,
    kUInt64 = 9,
    kUnsignedInt = 10,
    kLong = 11,
    kUnsignedLong = 12,
    kFloat = 13,
    kDouble = 14,
  };

  // Values of interleave. An image stores every other value by pixel as well, but not every
  // reader accepts them.
  enum eInterleave : std::uint32_t {
    kBandSequential = 0,
    kBandInterleavedByPixel = 2,
  };

  // Bytes of a sample of that type code, 0 for an unknown code.
  static unsigned long SampleSize(std::uint32_t data_type);

  BandImageDataFormat() = default;
  BandImageDataFormat(BandImageDataFormat const& other);
  BandImageDataFormat& operator=(BandImageDataFormat const& other);
  BandImageDataFormat(BandImageDataFormat&& other) noexcept = default;
  BandImageDataFormat& operator=(BandImageDataFormat&& other) noexcept = default;
  ~BandImageDataFormat() override;

  std::unique_ptr<DataFormat> Clone() const override;

  // Appends a copy of band that keeps its dynamic type.
  void AddBand(BandInfo const& band);
  void ClearBands();
  unsigned long GetNrOfBands() const { return bands_.size(); }
  // Throws std::out_of_range for index >= GetNrOfBands().
  BandInfo const& GetBand(unsigned long index) const;
  // In band order; never holds a null entry.
  std::vector<std::unique_ptr<BandInfo>> const& GetBands() const { return bands_; }

  unsigned long element_size = 0;
  std::uint32_t data_type = kNoSampleType;
  double maximum_value = 0.0;
  double minimum_value = 0.0;
  // Stored samples are real values times scale; 1.0 means they are the real values.
  double scale = 1.0;
  // A sample equal to fill_value has no data.
  double fill_value = 0.0;
  unsigned long width = 0;
  unsigned long height = 0;
  std::uint32_t interleave = kBandSequential;

 private:
  std::vector<std::unique_ptr<BandInfo>> bands_;
};

}  // namespace kelto::datatypes

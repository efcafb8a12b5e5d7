#include <kelto/datatypes/band_image_data_format.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace kelto::datatypes {

unsigned long BandImageDataFormat::SampleSize(std::uint32_t data_type) {
  switch (data_type) {
    case kChar:
    case kSignedChar:
    case kUnsignedChar:
      return 1;
    case kShort:
    case kInt16:
    case kUnsignedShort:
      return sizeof(short);
    case kInt:
    case kInt32:
    case kUnsignedInt:
      return sizeof(int);
    case kUInt64:
    case kUnsignedLong:
    case kLong:
      return sizeof(long);
    case kFloat:
      return sizeof(float);
    case kDouble:
      return sizeof(double);
    default:
      return 0;
  }
}

BandImageDataFormat::BandImageDataFormat(BandImageDataFormat const& other)
    : DataFormat(other),
      element_size(other.element_size),
      data_type(other.data_type),
      maximum_value(other.maximum_value),
      minimum_value(other.minimum_value),
      scale(other.scale),
      fill_value(other.fill_value),
      width(other.width),
      height(other.height),
      interleave(other.interleave) {
  bands_.reserve(other.bands_.size());
  for (auto const& band : other.bands_) {
    bands_.push_back(band->Clone());
  }
}

BandImageDataFormat& BandImageDataFormat::operator=(BandImageDataFormat const& other) {
  if (this != &other) {
    BandImageDataFormat copy(other);
    *this = std::move(copy);
  }
  return *this;
}

BandImageDataFormat::~BandImageDataFormat() = default;

std::unique_ptr<DataFormat> BandImageDataFormat::Clone() const {
  return std::make_unique<BandImageDataFormat>(*this);
}

void BandImageDataFormat::AddBand(BandInfo const& band) {
  bands_.push_back(band.Clone());
}

void BandImageDataFormat::ClearBands() {
  bands_.clear();
}

BandInfo const& BandImageDataFormat::GetBand(unsigned long index) const {
  if (index >= bands_.size()) {
    throw std::out_of_range("band " + std::to_string(index) + " of a format with " +
                            std::to_string(bands_.size()) + " bands");
  }
  return *bands_[index];
}

}  // namespace kelto::datatypes

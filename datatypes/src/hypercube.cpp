#include <kelto/datatypes/hypercube.h>

#include <stdexcept>
#include <string>

#include "checked_size.h"

namespace kelto::datatypes {

namespace {

unsigned long CheckedSampleBytes(BandImageDataFormat const& format) {
  const unsigned long expected = BandImageDataFormat::SampleSize(format.data_type);
  if (expected != 0 && format.element_size != expected) {
    throw std::invalid_argument("element_size " + std::to_string(format.element_size) +
                                " does not fit data_type " + std::to_string(format.data_type) +
                                " of " + std::to_string(expected) + " bytes");
  }
  return detail::CheckedProduct(
      {format.width, format.height, format.GetNrOfBands(), format.element_size}, "band image");
}

}  // namespace

Hypercube::Hypercube(BandImageDataFormat const& format)
    : format_(format), samples_(CheckedSampleBytes(format), 0) {
  const unsigned long nr_of_bands = format_.GetNrOfBands();
  if (format_.interleave == BandImageDataFormat::kBandSequential) {
    storage_ = std::make_unique<BandStorage_BSQ>(this, samples_.data(), format_.width,
                                                 format_.height, nr_of_bands, format_.element_size);
  } else {
    storage_ = std::make_unique<BandStorage_BIP>(this, samples_.data(), format_.width,
                                                 format_.height, nr_of_bands, format_.element_size);
  }
}

Hypercube::~Hypercube() = default;

}  // namespace kelto::datatypes

#include <kelto/datatypes/hypercube.h>

#include <stdexcept>
#include <string>

#include <kelto/datatypes/band_storage.h>

#include "checked_size.h"

namespace kelto::datatypes {

namespace {

void CheckElementSize(BandImageDataFormat const& format) {
  const unsigned long expected = BandImageDataFormat::SampleSize(format.data_type);
  if (format.element_size == 0 || (expected != 0 && format.element_size != expected)) {
    throw std::invalid_argument(
        "element_size " + std::to_string(format.element_size) + " does not fit data_type " +
        std::to_string(format.data_type) +
        (expected != 0 ? " of " + std::to_string(expected) + " bytes" : std::string()));
  }
}

unsigned long SampleBytes(BandImageDataFormat const& format) {
  return detail::CheckedProduct(
      {format.width, format.height, format.GetNrOfBands(), format.element_size}, "band image");
}

bool BandSequential(BandImageDataFormat const& format) {
  return format.interleave == BandImageDataFormat::kBandSequential;
}

// The format, once the whole image is known to fit the limit: checked before anything of the
// image, its copy of the format included, is allocated.
BandImageDataFormat const& Within(BandImageDataFormat const& format, unsigned long limit) {
  const unsigned long required = Hypercube::RequiredBytes(format);
  if (required > limit) {
    throw std::length_error(
        "band image of " + std::to_string(format.width) + " x " + std::to_string(format.height) +
        " pixels of " + std::to_string(format.GetNrOfBands()) + " bands of " +
        std::to_string(format.element_size) + " bytes needs " + std::to_string(required) +
        " bytes with its tables, more than the limit of " + std::to_string(limit) + " bytes");
  }
  return format;
}

}  // namespace

unsigned long Hypercube::RequiredBytes(BandImageDataFormat const& format) {
  CheckElementSize(format);
  const unsigned long samples = SampleBytes(format);
  const auto table =
      BandSequential(format) ? &BandStorage_BSQ::TableBytes : &BandStorage_BIP::TableBytes;
  return detail::CheckedSum(
      samples, table(format.width, format.height, format.GetNrOfBands(), format.element_size),
      "band image with its tables");
}

unsigned long Hypercube::PhysicalMemoryBytes() {
  return detail::PhysicalMemoryBytes();
}

Hypercube::Hypercube(BandImageDataFormat const& format)
    : Hypercube(format, PhysicalMemoryBytes()) {}

Hypercube::Hypercube(BandImageDataFormat const& format, unsigned long memory_limit_bytes)
    : format_(Within(format, memory_limit_bytes)), samples_(SampleBytes(format_), 0) {
  const unsigned long nr_of_bands = format_.GetNrOfBands();
  if (BandSequential(format_)) {
    storage_ = std::make_unique<BandStorage_BSQ>(this, samples_.data(), format_.width,
                                                 format_.height, nr_of_bands, format_.element_size);
  } else {
    storage_ = std::make_unique<BandStorage_BIP>(this, samples_.data(), format_.width,
                                                 format_.height, nr_of_bands, format_.element_size);
  }
}

Hypercube::~Hypercube() = default;

}  // namespace kelto::datatypes

// Test helper for the data accessor: small hypercubes whose samples are written through the
// image's own pointer tables, distinct at every pixel and band, and correction matrices of
// distinct weights.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>
#include <kelto/hyperspectral/access/data_accessor.h>

namespace kelto::hyperspectral::testing {

using datatypes::BandImageDataFormat;
using Pixel = DataAccessor::Pixel;

constexpr unsigned long kWidth = 4;
constexpr unsigned long kHeight = 3;
constexpr double kScale = 1000.0;
constexpr double kFill = 65535.0;

inline const char* const kNotRunning =
    "controller \"Data access controller\" is stopped, it must be running";

inline BandImageDataFormat MakeFormat(std::uint32_t data_type, std::uint32_t interleave,
                                      unsigned long nr_of_bands, unsigned long width = kWidth,
                                      unsigned long height = kHeight) {
  BandImageDataFormat format;
  format.data_type = data_type;
  const unsigned long size = BandImageDataFormat::SampleSize(data_type);
  format.element_size = size == 0 ? 2 : size;
  format.width = width;
  format.height = height;
  format.interleave = interleave;
  for (unsigned long b = 0; b < nr_of_bands; ++b) {
    format.AddBand(
        datatypes::HypercubeBandInfo("band " + std::to_string(b), 450.0 + 25.0 * b, 12.0));
  }
  return format;
}

// Writes one sample by the layout of each storage.
template <typename T>
void WriteSample(datatypes::AbstractBandImage& image, unsigned long x, unsigned long y,
                 unsigned long b, T value) {
  unsigned char* address = nullptr;
  if (image.GetDataFormat().interleave == 0) {
    auto& storage = dynamic_cast<datatypes::BandStorage_BSQ&>(*image.GetBandStorage());
    address = storage.bands[b][y] + x * sizeof(T);
  } else {
    auto& storage = dynamic_cast<datatypes::BandStorage_BIP&>(*image.GetBandStorage());
    address = storage.pixels[y][x] + b * sizeof(T);
  }
  std::memcpy(address, &value, sizeof(T));
}

inline std::vector<Pixel> AllPixels(unsigned long width = kWidth, unsigned long height = kHeight) {
  std::vector<Pixel> pixels;
  for (unsigned long y = 0; y < height; ++y) {
    for (unsigned long x = 0; x < width; ++x) {
      pixels.emplace_back(static_cast<int>(x), static_cast<int>(y));
    }
  }
  return pixels;
}

// Distinct at every pixel and band, below the fill value.
inline double RawSample(unsigned long x, unsigned long y, unsigned long b) {
  return 500.0 + 97.0 * b + 13.0 * x + 7.0 * y;
}

// A template on the image's own type: called through AbstractBandImage&, a devirtualised call of
// Hypercube's inline GetDataFormat does not link against the shared library.
template <typename Image>
void FillWithRawSamples(Image& image) {
  const BandImageDataFormat& format = image.GetDataFormat();
  for (const Pixel& pixel : AllPixels(format.width, format.height)) {
    const auto x = static_cast<unsigned long>(pixel.first);
    const auto y = static_cast<unsigned long>(pixel.second);
    for (unsigned long b = 0; b < format.GetNrOfBands(); ++b) {
      WriteSample(image, x, y, b, static_cast<unsigned short>(RawSample(x, y, b)));
    }
  }
}

// An unsigned short hypercube holding RawSample, scale 1000, maximum 4000, fill value 65535.
inline std::unique_ptr<datatypes::Hypercube> MakeCube(unsigned long nr_of_bands,
                                                      bool normalised = true,
                                                      std::uint32_t interleave = 0,
                                                      unsigned long width = kWidth,
                                                      unsigned long height = kHeight) {
  BandImageDataFormat format =
      MakeFormat(BandImageDataFormat::kUnsignedShort, interleave, nr_of_bands, width, height);
  format.scale = kScale;
  format.maximum_value = 4000.0;
  format.fill_value = kFill;
  auto cube = std::make_unique<datatypes::Hypercube>(format);
  cube->GetDataInfo().is_normalised = normalised;
  FillWithRawSamples(*cube);
  return cube;
}

// Rows of distinct weights, negative ones among them; the first virtual band lies at 472.886 nm.
inline CorrectionMatrix MakeMatrix(unsigned long rows, unsigned long columns) {
  CorrectionMatrix matrix;
  matrix.name = "test";
  for (unsigned long r = 0; r < rows; ++r) {
    CorrectionMatrix::VirtualBand band;
    band.wavelength_nm = 472.886 + 50.5 * r;
    band.fwhm_nm = 10.0 + r;
    for (unsigned long c = 0; c < columns; ++c) {
      band.coefficients.push_back(0.1 * (r + 1) - 0.03 * c + (r == c ? 0.9 : 0.0));
    }
    matrix.virtual_bands.push_back(band);
  }
  return matrix;
}

}  // namespace kelto::hyperspectral::testing

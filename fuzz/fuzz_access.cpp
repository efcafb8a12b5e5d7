// The targets of the data access and the block correction: small images of every sample type,
// storage order, scale and fill, with correction matrices of any shape and any numbers, all
// taken from the fuzzer's bytes. Shapes stay small, so that a run is fast and no allocation
// depends on more than a few bytes of input.
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/hypercube.h>
#include <kelto/hyperspectral/access/block_corrector.h>
#include <kelto/hyperspectral/access/data_accessor.h>

#include "fuzz_targets.h"

namespace kelto::fuzz {

namespace {

using datatypes::BandImageDataFormat;
using hyperspectral::BlockCorrector;
using hyperspectral::CorrectionMatrix;
using hyperspectral::DataAccessor;

constexpr unsigned long kMaxSide = 6;
constexpr unsigned long kMaxBands = 8;

// Virtual bands of `count` coefficients each; now and then one band is a coefficient short or
// long, and any coefficient may be any double.
CorrectionMatrix MakeMatrix(ByteReader& bytes, unsigned long count) {
  CorrectionMatrix matrix;
  const unsigned long virtual_bands = bytes.Small(kMaxBands);
  for (unsigned long v = 0; v < virtual_bands; ++v) {
    CorrectionMatrix::VirtualBand band;
    band.wavelength_nm = bytes.Number();
    band.fwhm_nm = bytes.Number();
    unsigned long length = count;
    const std::uint8_t odd = bytes.Byte();
    if (odd == 1 && length > 0) {
      --length;
    } else if (odd == 2) {
      ++length;
    }
    for (unsigned long c = 0; c < length; ++c) {
      band.coefficients.push_back(bytes.Number());
    }
    matrix.virtual_bands.push_back(band);
  }
  return matrix;
}

// A format of any sample type code (unknown ones too), interleave and small size; the element
// size is the type's own unless the bytes ask for another.
BandImageDataFormat MakeFormat(ByteReader& bytes) {
  BandImageDataFormat format;
  format.data_type = static_cast<std::uint32_t>(bytes.Small(16));
  format.interleave = static_cast<std::uint32_t>(bytes.Small(3));
  format.width = bytes.Small(kMaxSide);
  format.height = bytes.Small(kMaxSide);
  format.element_size = BandImageDataFormat::SampleSize(format.data_type);
  if (bytes.Byte() == 0xff) {
    format.element_size = bytes.Small(16);
  }
  format.scale = bytes.Number();
  format.maximum_value = bytes.Number();
  format.fill_value = bytes.Number();
  const unsigned long bands = bytes.Small(kMaxBands);
  for (unsigned long b = 0; b < bands; ++b) {
    format.AddBand(datatypes::HypercubeBandInfo("b", bytes.Number(), bytes.Number()));
  }
  return format;
}

void FillSamples(ByteReader& bytes, unsigned char* samples, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    samples[i] = bytes.Byte();
  }
}

DataAccessor::Pixel MakePixel(ByteReader& bytes) {
  // Mostly inside a small image, now and then just outside or far away.
  const auto coordinate = [&bytes]() -> int {
    const std::uint8_t value = bytes.Byte();
    return value == 0xff ? std::numeric_limits<int>::min() : static_cast<int>(value % 9) - 1;
  };
  const int x = coordinate();
  return {x, coordinate()};
}

}  // namespace

int FuzzDataAccessor(const std::uint8_t* data, std::size_t size) {
  ByteReader bytes(data, size);
  const BandImageDataFormat format = MakeFormat(bytes);
  std::unique_ptr<datatypes::Hypercube> cube;
  try {
    cube = std::make_unique<datatypes::Hypercube>(format);
  } catch (const std::invalid_argument&) {
    return 0;  // an element size that is not the sample type's
  }
  cube->GetHypercubeInfo().is_normalised = bytes.Flag();
  cube->GetHypercubeInfo().is_spectrally_corrected = bytes.Flag();
  FillSamples(bytes, cube->GetSamples(), cube->GetSampleBytes());
  const bool with_matrix = bytes.Flag();
  const CorrectionMatrix matrix = MakeMatrix(bytes, format.GetNrOfBands());

  DataAccessor accessor(cube.get());
  if (with_matrix) {
    accessor.SetCorrectionMatrix(&matrix);
  }
  try {
    accessor.Start();
  } catch (const std::runtime_error&) {
    return 0;  // a virtual band with fewer coefficients than the image has bands
  }
  const unsigned long out_bands = accessor.GetDataFormat()->GetNrOfBands();
  const bool normalised = cube->GetHypercubeInfo().is_normalised;
  try {
    const DataAccessor::Pixel pixel = MakePixel(bytes);
    std::vector<double> spectrum = accessor.GetSpectrum(pixel);
    // A normalised image hands out what its output format describes; an image without bands
    // has empty spectra, corrected or not.
    if (normalised && format.GetNrOfBands() > 0 && spectrum.size() != out_bands) {
      Fail("GetSpectrum's length is not the output format's band count",
           std::to_string(spectrum.size()) + " values, " + std::to_string(out_bands) + " bands");
    }
    try {
      accessor.CorrectSpectrum(spectrum);
    } catch (const std::logic_error&) {
      // No coefficients apply to this image.
    }
    std::vector<double> wavelengths(spectrum.size() + bytes.Small(1));
    for (double& wavelength : wavelengths) {
      wavelength = bytes.Number();
    }
    accessor.SmoothenSpectrum(spectrum, wavelengths);
    const std::vector<DataAccessor::Pixel> pixels = {MakePixel(bytes), MakePixel(bytes)};
    (void)accessor.GetSpectrums(pixels);
    (void)accessor.GetBand(pixels, bytes.Small(kMaxBands + 1));
  } catch (const std::runtime_error&) {
    // "out of range pixel", "out of range band"
  } catch (const std::logic_error&) {
    // "Unexpected output data type." for an unknown sample type, and the busy state after it
  }
  accessor.Reset();
  return 0;
}

int FuzzBlockCorrector(const std::uint8_t* data, std::size_t size) {
  ByteReader bytes(data, size);
  const unsigned long bands = bytes.Small(kMaxBands);
  const CorrectionMatrix matrix = MakeMatrix(bytes, bands);
  std::unique_ptr<BlockCorrector> corrector;
  try {
    corrector = std::make_unique<BlockCorrector>(matrix);
  } catch (const std::invalid_argument&) {
    return 0;  // no virtual bands, ragged, or not finite
  }
  const auto sample_type = static_cast<std::uint32_t>(bytes.Small(16));
  const unsigned long element = BandImageDataFormat::SampleSize(sample_type);
  const unsigned long pixels = bytes.Small(kMaxSide);
  const unsigned long lines = bytes.Small(kMaxSide);
  // Usually the matrix's band count, now and then another.
  const unsigned long input_bands = bytes.Byte() == 0xff ? bytes.Small(kMaxBands) : bands;
  const bool by_pixel = bytes.Flag();
  std::vector<unsigned char> block(pixels * lines * input_bands * element);
  const double scale = bytes.Number();
  const double fill = bytes.Number();
  FillSamples(bytes, block.data(), block.size());

  const unsigned long virtual_bands = corrector->GetVirtualBandCount();
  std::vector<float> output(pixels * lines * virtual_bands);
  const auto samples = by_pixel ? BlockCorrector::Samples::PixelInterleaved(
                                      block.data(), sample_type, pixels, lines, input_bands)
                                : BlockCorrector::Samples::BandSequential(
                                      block.data(), sample_type, pixels, lines, input_bands);
  const auto target =
      by_pixel
          ? BlockCorrector::Target::PixelInterleaved(output.data(), pixels, lines, virtual_bands)
          : BlockCorrector::Target::BandSequential(output.data(), pixels, lines, virtual_bands);
  try {
    if (bytes.Flag()) {
      corrector->Correct(samples, scale, fill, target);
    } else {
      // References of one value per band, or blocks like the input (its own samples).
      BlockCorrector::Reference dark;
      BlockCorrector::Reference white;
      for (BlockCorrector::Reference* reference : {&dark, &white}) {
        if (bytes.Flag()) {
          reference->block = samples;
        } else {
          reference->spectrum.resize(bytes.Small(kMaxBands));
          for (double& value : reference->spectrum) {
            value = bytes.Number();
          }
        }
      }
      corrector->CorrectReflectance(samples, dark, white, fill, target);
    }
  } catch (const std::invalid_argument&) {
    return 0;  // an unknown sample type, or bands or references that do not fit the matrix
  }
  // A pixel with a fill sample is NaN in every virtual band.
  for (unsigned long p = 0; p < pixels * lines; ++p) {
    bool has_fill = false;
    for (unsigned long b = 0; b < input_bands && !std::isnan(fill); ++b) {
      const std::size_t at =
          by_pixel ? (p * input_bands + b) * element : (b * pixels * lines + p) * element;
      double sample = 0.0;
      switch (sample_type) {
        case BandImageDataFormat::kFloat: {
          float value;
          std::memcpy(&value, block.data() + at, sizeof value);
          sample = value;
          break;
        }
        case BandImageDataFormat::kDouble:
          std::memcpy(&sample, block.data() + at, sizeof sample);
          break;
        default:
          continue;  // integer samples: the float conversion decides; not modelled here
      }
      has_fill = has_fill || sample == fill;
    }
    for (unsigned long v = 0; v < virtual_bands; ++v) {
      const float value = by_pixel ? output[p * virtual_bands + v] : output[v * pixels * lines + p];
      if (has_fill && !std::isnan(value)) {
        Fail("a pixel with a fill sample was corrected",
             "pixel " + std::to_string(p) + ", virtual band " + std::to_string(v));
      }
    }
  }
  return 0;
}

}  // namespace kelto::fuzz

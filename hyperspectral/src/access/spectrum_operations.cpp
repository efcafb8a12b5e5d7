#include <kelto/hyperspectral/access/spectrum_operations.h>

#include <stdexcept>

#include <kelto/datatypes/band_storage.h>
#include <kelto/geometry/shape_to_run_length_encoding_visitor.h>

namespace kelto::hyperspectral {

using datatypes::BandImageDataFormat;

SpectrumOperations::~SpectrumOperations() = default;

std::vector<double> SpectrumOperations::ComputeMeanSpectrum(
    const std::vector<std::vector<double>>& spectrums) {
  if (spectrums.empty()) {
    return {};
  }
  std::vector<double> mean(spectrums.front().size(), 0.0);
  for (auto const& spectrum : spectrums) {
    if (spectrum.size() > mean.size()) {
      throw std::invalid_argument("spectrum longer than the first");
    }
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
      mean[i] += spectrum[i];
    }
  }
  const auto count = static_cast<double>(spectrums.size());
  for (double& value : mean) {
    value /= count;
  }
  return mean;
}

void SpectrumOperations::ForceInBoundaries(std::vector<double>& spectrum, const double& lower,
                                           const double& upper) {
  for (double& element : spectrum) {
    double value = lower > element ? lower : element;
    if (value > upper) {
      value = upper;
    }
    element = value;
  }
}

std::vector<double> SpectrumOperations::ExtractSpectrum(
    const kelto::datatypes::AbstractBandImage& image, const std::pair<int, int>& pixel) {
  BandImageDataFormat const& format = image.GetDataFormat();
  if (format.data_type != BandImageDataFormat::kFloat) {
    throw std::invalid_argument("invalid data type");
  }
  if (format.interleave != BandImageDataFormat::kBandSequential &&
      format.interleave != BandImageDataFormat::kBandInterleavedByPixel) {
    throw std::invalid_argument("unsuported interleave");
  }
  const auto [x, y] = pixel;
  if (x < 0 || static_cast<unsigned long>(x) >= format.width || y < 0 ||
      static_cast<unsigned long>(y) >= format.height) {
    throw std::runtime_error("out of range pixel");
  }
  const unsigned long nr_of_bands = format.GetNrOfBands();
  std::vector<double> spectrum;
  spectrum.reserve(nr_of_bands);
  if (format.interleave == BandImageDataFormat::kBandSequential) {
    auto const& storage = dynamic_cast<datatypes::BandStorage_BSQ const&>(*image.GetBandStorage());
    for (unsigned long b = 0; b < nr_of_bands; ++b) {
      spectrum.push_back(datatypes::LoadSample<float>(storage.bands[b][y], x));
    }
  } else {
    auto const& storage = dynamic_cast<datatypes::BandStorage_BIP const&>(*image.GetBandStorage());
    const unsigned char* samples = storage.pixels[y][x];
    for (unsigned long b = 0; b < nr_of_bands; ++b) {
      spectrum.push_back(datatypes::LoadSample<float>(samples, b));
    }
  }
  return spectrum;
}

std::vector<std::vector<double>> SpectrumOperations::ExtractSpectrums(
    const kelto::datatypes::AbstractBandImage& image,
    const std::vector<std::pair<int, int>>& pixels) {
  std::vector<std::vector<double>> spectrums;
  spectrums.reserve(pixels.size());
  for (auto const& pixel : pixels) {
    spectrums.push_back(ExtractSpectrum(image, pixel));
  }
  return spectrums;
}

std::vector<std::vector<double>> SpectrumOperations::ExtractSpectrums(
    const kelto::datatypes::AbstractBandImage& image,
    const kelto::datatypes::RunLengthEncoding& region) {
  return ExtractSpectrums(image, datatypes::RunLengthEncodingOperations::Rasterize(region));
}

std::vector<std::vector<double>> SpectrumOperations::ExtractSpectrums(
    const kelto::datatypes::AbstractBandImage& image, const kelto::geometry::AbstractShape& shape) {
  geometry::ShapeToRunLengthEncodingVisitor visitor;
  return ExtractSpectrums(image, visitor.Convert(shape));
}

}  // namespace kelto::hyperspectral

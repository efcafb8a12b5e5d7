// A stateless toolbox for raw spectra of images of float samples: extraction at pixels, over a
// run-length encoding or a shape, averaging and clamping. Unlike DataAccessor it neither scales
// nor corrects, takes no lock, and accepts only float samples stored band sequential (0) or
// interleaved by pixel (2).
// Thread-safety: stateless; safe from any thread on an image that none changes.
#pragma once

#include <utility>
#include <vector>

#include <kelto/datatypes/abstract_band_image.h>
#include <kelto/datatypes/run_length_encoding.h>
#include <kelto/geometry/abstract_shape.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SpectrumOperations {
 public:
  SpectrumOperations() = default;
  virtual ~SpectrumOperations();

  // The element-wise mean; empty for an empty list. The result is as long as the first spectrum;
  // a shorter one adds over its own length. Throws std::invalid_argument "spectrum longer than
  // the first" rather than write beyond the result.
  static std::vector<double> ComputeMeanSpectrum(const std::vector<std::vector<double>>& spectrums);

  // Each element raised to lower, then lowered to upper: where lower exceeds upper all end at
  // upper. NaN stays NaN.
  static void ForceInBoundaries(std::vector<double>& spectrum, const double& lower,
                                const double& upper);

  // The samples of pixel (x, y), band by band, as doubles. Throws, in this order of tests,
  // std::invalid_argument "invalid data type" unless data_type is float (13),
  // std::invalid_argument "unsuported interleave" unless interleave is 0 or 2,
  // std::runtime_error "out of range pixel" for a pixel outside the image, and std::bad_cast
  // when the storage is not the one interleave names.
  static std::vector<double> ExtractSpectrum(const kelto::datatypes::AbstractBandImage& image,
                                             const std::pair<int, int>& pixel);

  // ExtractSpectrum of each pixel in order. An empty list gives an empty result without looking
  // at the image.
  static std::vector<std::vector<double>> ExtractSpectrums(
      const kelto::datatypes::AbstractBandImage& image,
      const std::vector<std::pair<int, int>>& pixels);
  // The pixels of region in the order of its runs.
  static std::vector<std::vector<double>> ExtractSpectrums(
      const kelto::datatypes::AbstractBandImage& image,
      const kelto::datatypes::RunLengthEncoding& region);
  // The pixels that shape covers, unclipped: a shape reaching beyond the image fails with
  // "out of range pixel".
  static std::vector<std::vector<double>> ExtractSpectrums(
      const kelto::datatypes::AbstractBandImage& image,
      const kelto::geometry::AbstractShape& shape);
};

}  // namespace kelto::hyperspectral

// Whole-cube correction: applies a correction matrix to every pixel of a block of band-image
// samples in one matrix product, near the speed of memory, and optionally turns the samples into
// reflectance by dark and white references first. Unlike DataAccessor, which hands out one pixel
// and follows the image's own flags, it always applies the matrix. Used by `kelto-hsi correct`,
// the Python package and any program that corrects whole cubes.
//
// Thread-safety: after construction the object is read-only; any number of threads may correct
// disjoint blocks with one object at the same time. The library starts no thread itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <kelto/datatypes/hypercube.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT BlockCorrector {
 public:
  // A block of samples in any storage order: the sample of band b of pixel p on line l lies at
  // data + l * line_stride + p * pixel_stride + b * band_stride bytes, so band sequential, by line
  // and by pixel storage, GDAL blocks and numpy arrays of any order are all one case. The sample
  // type is the library's code (datatypes::BandImageDataFormat::eSampleType), not ENVI's.
  struct Samples {
    const void* data = nullptr;
    std::uint32_t sample_type = 0;
    std::ptrdiff_t pixel_stride = 0;
    std::ptrdiff_t line_stride = 0;
    std::ptrdiff_t band_stride = 0;
    unsigned long pixels = 0;
    unsigned long lines = 0;
    unsigned long bands = 0;

    // The strides of a dense block stored band after band, or pixel after pixel (band fastest).
    static Samples BandSequential(const void* data, std::uint32_t sample_type, unsigned long pixels,
                                  unsigned long lines, unsigned long bands);
    static Samples PixelInterleaved(const void* data, std::uint32_t sample_type,
                                    unsigned long pixels, unsigned long lines, unsigned long bands);
  };

  // Where the corrected values go, as float: virtual band v of pixel p on line l at
  // data + l * line_stride + p * pixel_stride + v * band_stride bytes. The caller owns it.
  struct Target {
    float* data = nullptr;
    std::ptrdiff_t pixel_stride = 0;
    std::ptrdiff_t line_stride = 0;
    std::ptrdiff_t band_stride = 0;

    static Target BandSequential(float* data, unsigned long pixels, unsigned long lines,
                                 unsigned long virtual_bands);
    static Target PixelInterleaved(float* data, unsigned long pixels, unsigned long lines,
                                   unsigned long virtual_bands);
  };

  // A dark or white reference: one value per band for every pixel (spectrum), or, when spectrum
  // is empty, a block of the same pixels, lines and bands as the input (block).
  struct Reference {
    std::vector<double> spectrum;
    Samples block;
  };

  // Prepares the coefficients, one row per virtual band. Throws std::invalid_argument for a matrix
  // without virtual bands, with bands of different coefficient counts, or with a coefficient that
  // is not finite.
  explicit BlockCorrector(const CorrectionMatrix& matrix);

  // Coefficients per virtual band: the band count the input must have.
  unsigned long GetBandCount() const { return bands_; }
  unsigned long GetVirtualBandCount() const { return virtual_bands_; }

  // out(v) := sum over b of coefficient(v, b) * sample(b) / scale, for every pixel of the block;
  // a pixel with a sample equal to fill in any band gets NaN in every virtual band (a NaN fill
  // marks nothing). Samples are converted to float once and multiplied in float. Throws
  // std::invalid_argument when the band count is not GetBandCount(), the sample type is unknown, or
  // a pointer is null for a block that is not empty.
  void Correct(const Samples& input, double scale, double fill, const Target& output) const;
  // The same for a whole cube in its own storage order.
  void Correct(const datatypes::Hypercube& cube, double scale, double fill,
               const Target& output) const;

  // Reflectance first: (sample - dark) / (white - dark) per band, then the matrix. A pixel with a
  // fill sample, or where white - dark is not positive in any band, gets NaN in every virtual band.
  // Throws std::invalid_argument as Correct does, and when a reference has neither one value per
  // band nor a block of the input's size.
  void CorrectReflectance(const Samples& input, const Reference& dark, const Reference& white,
                          double fill, const Target& output) const;

 private:
  // One conversion of the input (and references) and one product per chunk of a line.
  void _Run(const Samples& input, double scale, double fill, const Reference* dark,
            const Reference* white, const Target& output) const;

  unsigned long bands_ = 0;
  unsigned long virtual_bands_ = 0;
  // The matrix transposed: bands_ rows of the virtual bands' coefficients, each row padded with
  // zeros to the product's width.
  std::vector<float> coefficients_;
};

}  // namespace kelto::hyperspectral

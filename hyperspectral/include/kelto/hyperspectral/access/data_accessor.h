// Reads bands and corrected spectra out of a band image. The caller sets the accessor up while it
// is stopped (an image, optionally a correction matrix), starts it, which builds the output format
// and the dense coefficients once, and reads while it runs. Image and matrix stay the caller's and
// must outlive their use here.
// Thread-safety: set-up, Start, Stop and the reads hold the accessor's lock, so threads may share
// one accessor; SmoothenSpectrum takes none. The image is not protected against its other users.
//
// Only a normalised image is scaled and corrected. An image whose GetDataInfo().is_normalised is
// false (the default of a new Hypercube) is taken for raw digital numbers: GetSpectrum hands out
// its samples as they are, neither divided by the format's scale nor multiplied by the matrix,
// even with a matrix set, and nothing says so. To get corrected values, set is_normalised (and
// the format's scale, 1.0 for samples that are real values already) before reading.
//
// The corrected spectrum of one pixel (the tests compile and run this example):
// ```cpp
// std::vector<double> Corrected(datatypes::Hypercube& cube, DataAccessor::Pixel pixel,
//                               const SensorCalibration& sensor, const std::string& matrix) {
//   cube.GetDataInfo().is_normalised = true;  // samples are real values times the format's scale
//   DataAccessor accessor(&cube);  // cube and matrix must outlive the accessor's reads
//   accessor.SetCorrectionMatrix(&sensor.system_info.spectral_correction_info.GetMatrix(matrix));
//   accessor.Start();  // builds the dense coefficients once
//   return accessor.GetSpectrum(pixel);  // one value per virtual band of the matrix
// }
// ```
#pragma once

#include <Eigen/Core>

#include <memory>
#include <utility>
#include <vector>

#include <kelto/common/controller_module.h>
#include <kelto/datatypes/abstract_band_image.h>
#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT DataAccessor : public common::ControllerModule {
 public:
  using Pixel = std::pair<int, int>;  // x, y

  explicit DataAccessor(datatypes::AbstractBandImage* data);
  ~DataAccessor() override;
  DataAccessor(DataAccessor const&) = delete;
  DataAccessor& operator=(DataAccessor const&) = delete;

  // Set-up, allowed while stopped only; they store the pointers, and the next start gives them
  // effect.
  void SetData(datatypes::AbstractBandImage* data);
  void SetCorrectionMatrix(const CorrectionMatrix* correction_matrix);
  // Stops, forgets image and matrix, and releases everything built by the start.
  void Reset();

  // The image's data record; std::logic_error without an image.
  const datatypes::BandImageDataInfo& GetDataInfo() const;
  // The format of what the reads hand out (doubles, real values, the virtual bands when a matrix
  // applies); null before the first start.
  const datatypes::BandImageDataFormat* GetDataFormat() const { return data_format.get(); }

  // The scaled, and where a matrix applies corrected, spectrum of a pixel; the raw samples of an
  // image that is not normalised, whatever the matrix. Samples equal to the fill value are not
  // masked: they enter the correction as the numbers they are. std::runtime_error
  // "out of range pixel" outside the image. An unknown sample type throws std::logic_error
  // "Unexpected output data type." and leaves the accessor busy: it refuses further reads until
  // it is stopped.
  std::vector<double> GetSpectrum(const Pixel& pixel) const;
  // GetSpectrum of each pixel, in order, under one lock. The sample type is tested first (as in
  // GetSpectrum), then every pixel before the image is touched: "out of range pixel" leaves the
  // accessor running.
  std::vector<std::vector<double>> GetSpectrums(const std::vector<Pixel>& pixels) const;
  // One band of the image (never corrected), scaled, fill values kept. The sample type is tested
  // first, then pixels and band ("out of range pixel", "out of range band", the accessor left
  // running); an empty list gives an empty vector, whatever the band.
  std::vector<double> GetBand(const std::vector<Pixel>& pixels, const unsigned long& band) const;
  // Replaces spectrum with the result of the latest correction made by GetSpectrum or
  // GetSpectrums; the values passed in are not used. Does nothing to an empty spectrum; throws
  // std::logic_error when the last start built no coefficients that apply (no matrix, a plain
  // image, or a cube that is corrected already).
  void CorrectSpectrum(std::vector<double>& spectrum) const;
  // Gaussian smoothing over wavelength with a full width at half maximum of 15 nm; values equal
  // to the image's fill value neither take part nor change. wavelengths must be at least as long
  // as spectrum (std::invalid_argument otherwise). Takes no lock.
  void SmoothenSpectrum(std::vector<double>& spectrum,
                        const std::vector<double>& wavelengths) const;

 protected:
  // Builds the output format and, for a hypercube with a matrix, the dense coefficients.
  // std::runtime_error "Cannot initialize : data not set." without an image; std::runtime_error
  // when a virtual band has fewer coefficients than the image has bands.
  void _Initialize() override;
  void _Start() override {}
  void _Pause() override {}
  void _Stop() override {}

 private:
  // The image's sample table, resolved once per read.
  struct SampleTable;
  // The lock and the busy state of one read.
  class ReadBracket;

  template <typename T>
  std::vector<double> _GetSpectrum(const SampleTable& table, const Pixel& pixel) const;
  template <typename T>
  std::vector<double> _GetBandData(const SampleTable& table, const std::vector<Pixel>& pixels,
                                   const unsigned long& band) const;
  // Scaled where the image is normalised, then corrected where correct (_CorrectionApplies, asked
  // once per read) and the length fits the coefficients.
  std::vector<double> _ProcessSpectrum(std::vector<double> raw, bool correct) const;
  std::vector<double> _ApplySpectralCorrection(const std::vector<double>& spectrum) const;
  // Whether spectra are corrected: a hypercube not corrected yet, a matrix, and coefficients.
  bool _CorrectionApplies() const;
  // Throws "out of range pixel" unless 0 <= x < width and 0 <= y < height.
  void _TestPixel(const Pixel& pixel) const;

  datatypes::AbstractBandImage* data = nullptr;
  std::unique_ptr<datatypes::BandImageDataFormat> data_format;
  const CorrectionMatrix* correction_matrix = nullptr;
  std::unique_ptr<Eigen::MatrixXd> correction_coefficients;
  // The latest correction; written by const reads, under the lock.
  mutable std::unique_ptr<Eigen::VectorXd> corrected_spectrum;
};

}  // namespace kelto::hyperspectral

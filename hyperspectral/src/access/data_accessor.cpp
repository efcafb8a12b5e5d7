#include <kelto/hyperspectral/access/data_accessor.h>

#include "../foundation/gaussian_kernel.h"
#include "sample_type.h"

#include <Eigen/Dense>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/locks.hpp>

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

namespace kelto::hyperspectral {

namespace {

using datatypes::AbstractBandImage;
using datatypes::BandImageDataFormat;
using datatypes::BandStorage_BIP;
using datatypes::BandStorage_BSQ;
using datatypes::Hypercube;

constexpr double kSmoothingFwhmNm = 15.0;
constexpr const char* kPixelOutOfRange = "out of range pixel";
constexpr const char* kBandOutOfRange = "out of range band";

// Divides every value but the fill value by scale, where the image stores scaled values.
void Unscale(std::vector<double>& values, double scale, double fill_value) {
  if (scale == 1.0) {
    return;
  }
  for (double& value : values) {
    if (value != fill_value) {
      value /= scale;
    }
  }
}

bool InImage(const BandImageDataFormat& format, const DataAccessor::Pixel& pixel) {
  return pixel.first >= 0 && static_cast<std::uint64_t>(pixel.first) < format.width &&
         pixel.second >= 0 && static_cast<std::uint64_t>(pixel.second) < format.height;
}

// The image's format as the reads hand it out: doubles, in real values where the image is
// normalised, with the image's bands.
std::unique_ptr<BandImageDataFormat> OutputFormat(const AbstractBandImage& image) {
  const BandImageDataFormat& image_format = image.GetDataFormat();
  std::unique_ptr<datatypes::DataFormat> clone = image_format.Clone();
  auto* cloned_format = dynamic_cast<BandImageDataFormat*>(clone.get());
  if (cloned_format == nullptr) {
    throw std::logic_error("DataAccessor: the image's format is not a band image format");
  }
  clone.release();
  std::unique_ptr<BandImageDataFormat> format(cloned_format);
  format->data_type = BandImageDataFormat::kDouble;
  format->element_size = sizeof(double);
  format->maximum_value = image_format.maximum_value;
  format->scale = image_format.scale;
  format->fill_value = image_format.fill_value;
  if (image.GetDataInfo().is_normalised) {
    format->maximum_value = format->maximum_value / format->scale;
    format->scale = 1.0;
  }
  return format;
}

// The matrix's coefficients in the dense form of the product: one row per virtual band, one
// column per band of the image.
std::unique_ptr<Eigen::MatrixXd> Coefficients(const CorrectionMatrix& matrix,
                                              unsigned long image_bands) {
  const auto rows = static_cast<Eigen::Index>(matrix.virtual_bands.size());
  const auto columns = static_cast<Eigen::Index>(image_bands);
  auto coefficients = std::make_unique<Eigen::MatrixXd>(rows, columns);
  for (Eigen::Index r = 0; r < rows; ++r) {
    const std::vector<double>& row = matrix.virtual_bands[static_cast<std::size_t>(r)].coefficients;
    // A matrix made for another sensor must not be read past its rows' ends.
    if (row.size() < static_cast<std::size_t>(columns)) {
      throw std::runtime_error("Cannot initialize : virtual band " + std::to_string(r) +
                               " of the correction matrix has " + std::to_string(row.size()) +
                               " coefficients for an image of " + std::to_string(columns) +
                               " bands.");
    }
    for (Eigen::Index c = 0; c < columns; ++c) {
      (*coefficients)(r, c) = row[static_cast<std::size_t>(c)];
    }
  }
  return coefficients;
}

// The virtual bands of the matrix in place of the format's bands, each named by its wavelength.
void SetVirtualBands(BandImageDataFormat& format, const CorrectionMatrix& matrix) {
  format.ClearBands();
  for (const auto& virtual_band : matrix.virtual_bands) {
    datatypes::HypercubeBandInfo band;
    std::ostringstream name;
    name.imbue(std::locale::classic());
    name << virtual_band.wavelength_nm;
    band.name = name.str();
    band.wavelength_nm = virtual_band.wavelength_nm;
    band.fwhm_nm = virtual_band.fwhm_nm;
    format.AddBand(band);
  }
}

}  // namespace

// The storage of the image resolved once per read: the pointer table of its sample order.
// Every interleave but 0 is read by pixel. A storage of the other order throws std::bad_cast.
struct DataAccessor::SampleTable {
  explicit SampleTable(const AbstractBandImage& image) {
    if (image.GetDataFormat().interleave != 0) {
      pixels = dynamic_cast<const BandStorage_BIP&>(*image.GetBandStorage()).pixels;
    } else {
      bands = dynamic_cast<const BandStorage_BSQ&>(*image.GetBandStorage()).bands;
    }
  }

  unsigned char* const* const* pixels = nullptr;  // pixels[y][x], when read by pixel
  unsigned char* const* const* bands = nullptr;   // bands[b][y], when band sequential
};

// One read: the lock, the running state asserted, busy while samples are taken. Done and Refuse
// return the state to running; any other failure (an unknown sample type, a storage that
// disagrees with the format) leaves it busy on purpose, so that the accessor refuses reads until
// it is stopped. The lock goes in any case.
class DataAccessor::ReadBracket {
 public:
  explicit ReadBracket(const DataAccessor& accessor)
      : accessor_(accessor), lock_(accessor._GetMutex()) {
    accessor_._AssertState(OS_RUNNING);
    accessor_.object_state = OS_BUSY;
  }

  void Done() const { accessor_.object_state = OS_RUNNING; }

  // Refuses the read's pixels or band: running again, then std::runtime_error with text.
  [[noreturn]] void Refuse(const char* text) const {
    Done();
    throw std::runtime_error(text);
  }

  void TestPixels(const std::vector<Pixel>& pixels) const {
    const BandImageDataFormat& format = accessor_.data->GetDataFormat();
    for (const Pixel& pixel : pixels) {
      if (!InImage(format, pixel)) {
        Refuse(kPixelOutOfRange);
      }
    }
  }

 private:
  const DataAccessor& accessor_;
  boost::unique_lock<boost::mutex> lock_;
};

DataAccessor::DataAccessor(datatypes::AbstractBandImage* image)
    : common::ControllerModule("Data access controller") {
  SetData(image);
}

DataAccessor::~DataAccessor() = default;

void DataAccessor::SetData(datatypes::AbstractBandImage* image) {
  boost::lock_guard<boost::mutex> lock(_GetMutex());
  _AssertState(OS_STOPPED);
  data = image;
}

void DataAccessor::SetCorrectionMatrix(const CorrectionMatrix* matrix) {
  boost::lock_guard<boost::mutex> lock(_GetMutex());
  _AssertState(OS_STOPPED);
  correction_matrix = matrix;
}

void DataAccessor::Reset() {
  common::ControllerModule::Stop();
  data = nullptr;
  correction_matrix = nullptr;
  data_format.reset();
  correction_coefficients.reset();
  corrected_spectrum.reset();
}

const datatypes::BandImageDataInfo& DataAccessor::GetDataInfo() const {
  if (data == nullptr) {
    throw std::logic_error("DataAccessor::GetDataInfo: no image set");
  }
  return data->GetDataInfo();
}

// Everything is built aside and stored at the end, so that a start that fails leaves what the
// previous one built.
void DataAccessor::_Initialize() {
  if (data == nullptr) {
    throw std::runtime_error("Cannot initialize : data not set.");
  }
  std::unique_ptr<BandImageDataFormat> format = OutputFormat(*data);
  const auto* cube = dynamic_cast<const Hypercube*>(data);
  if (cube == nullptr || cube->GetHypercubeInfo().is_spectrally_corrected ||
      correction_matrix == nullptr) {
    data_format = std::move(format);
    return;
  }
  auto coefficients = Coefficients(*correction_matrix, data->GetDataFormat().GetNrOfBands());
  auto spectrum = std::make_unique<Eigen::VectorXd>(coefficients->rows());
  SetVirtualBands(*format, *correction_matrix);
  data_format = std::move(format);
  correction_coefficients = std::move(coefficients);
  corrected_spectrum = std::move(spectrum);
}

void DataAccessor::_TestPixel(const Pixel& pixel) const {
  if (data == nullptr) {
    throw std::logic_error("DataAccessor: no image set");
  }
  if (!InImage(data->GetDataFormat(), pixel)) {
    throw std::runtime_error(kPixelOutOfRange);
  }
}

template <typename T>
std::vector<double> DataAccessor::_GetSpectrum(const SampleTable& table, const Pixel& pixel) const {
  const unsigned long bands = data->GetDataFormat().GetNrOfBands();
  const auto x = static_cast<std::size_t>(pixel.first);
  const auto y = static_cast<std::size_t>(pixel.second);
  std::vector<double> spectrum(bands, 0.0);
  if (table.pixels != nullptr) {
    const unsigned char* samples = table.pixels[y][x];
    for (unsigned long b = 0; b < bands; ++b) {
      spectrum[b] = static_cast<double>(datatypes::LoadSample<T>(samples, b));
    }
  } else {
    for (unsigned long b = 0; b < bands; ++b) {
      spectrum[b] = static_cast<double>(datatypes::LoadSample<T>(table.bands[b][y], x));
    }
  }
  return spectrum;
}

template <typename T>
std::vector<double> DataAccessor::_GetBandData(const SampleTable& table,
                                               const std::vector<Pixel>& pixels,
                                               const unsigned long& band) const {
  std::vector<double> values;
  values.reserve(pixels.size());
  if (table.pixels != nullptr) {
    for (const Pixel& pixel : pixels) {
      values.push_back(static_cast<double>(
          datatypes::LoadSample<T>(table.pixels[pixel.second][pixel.first], band)));
    }
  } else {
    for (const Pixel& pixel : pixels) {
      values.push_back(static_cast<double>(datatypes::LoadSample<T>(
          table.bands[band][pixel.second], static_cast<unsigned long>(pixel.first))));
    }
  }
  return values;
}

std::vector<double> DataAccessor::GetSpectrum(const Pixel& pixel) const {
  _TestPixel(pixel);
  const ReadBracket read(*this);
  std::vector<double> raw = WithSampleType(data->GetDataFormat().data_type, [&](auto sample) {
    return _GetSpectrum<decltype(sample)>(SampleTable(*data), pixel);
  });
  read.Done();
  return _ProcessSpectrum(std::move(raw), _CorrectionApplies());
}

// The pixels are tested once the sample type is known, so that an unknown type is refused first.
std::vector<std::vector<double>> DataAccessor::GetSpectrums(
    const std::vector<Pixel>& pixels) const {
  const ReadBracket read(*this);
  std::vector<std::vector<double>> spectrums;
  WithSampleType(data->GetDataFormat().data_type, [&](auto sample) {
    read.TestPixels(pixels);
    if (pixels.empty()) {
      return 0;
    }
    const SampleTable table(*data);
    const bool correct = _CorrectionApplies();
    spectrums.reserve(pixels.size());
    for (const Pixel& pixel : pixels) {
      spectrums.push_back(_ProcessSpectrum(_GetSpectrum<decltype(sample)>(table, pixel), correct));
    }
    return 0;
  });
  read.Done();
  return spectrums;
}

// As GetSpectrums, the sample type first; no pixel, no test of the band.
std::vector<double> DataAccessor::GetBand(const std::vector<Pixel>& pixels,
                                          const unsigned long& band) const {
  const ReadBracket read(*this);
  const BandImageDataFormat& format = data->GetDataFormat();
  std::vector<double> values = WithSampleType(format.data_type, [&](auto sample) {
    if (pixels.empty()) {
      return std::vector<double>();
    }
    read.TestPixels(pixels);
    if (band >= format.GetNrOfBands()) {
      read.Refuse(kBandOutOfRange);
    }
    return _GetBandData<decltype(sample)>(SampleTable(*data), pixels, band);
  });
  if (data->GetDataInfo().is_normalised) {
    Unscale(values, format.scale, format.fill_value);
  }
  read.Done();
  return values;
}

bool DataAccessor::_CorrectionApplies() const {
  // A start on a plain image, a corrected cube or without a matrix keeps the coefficients of an
  // earlier start; these conditions keep them from use.
  const auto* cube = dynamic_cast<const Hypercube*>(data);
  return cube != nullptr && !cube->GetHypercubeInfo().is_spectrally_corrected &&
         correction_matrix != nullptr && correction_coefficients != nullptr;
}

std::vector<double> DataAccessor::_ProcessSpectrum(std::vector<double> spectrum,
                                                   bool correct) const {
  if (!data->GetDataInfo().is_normalised) {
    return spectrum;
  }
  const BandImageDataFormat& format = data->GetDataFormat();
  Unscale(spectrum, format.scale, format.fill_value);
  // The length test is the only defence against an image and a matrix that do not belong
  // together.
  if (!correct || static_cast<Eigen::Index>(spectrum.size()) != correction_coefficients->cols()) {
    return spectrum;
  }
  return _ApplySpectralCorrection(spectrum);
}

std::vector<double> DataAccessor::_ApplySpectralCorrection(
    const std::vector<double>& spectrum) const {
  if (spectrum.empty()) {
    return {};
  }
  const Eigen::Map<const Eigen::VectorXd> input(spectrum.data(),
                                                static_cast<Eigen::Index>(spectrum.size()));
  Eigen::VectorXd product = Eigen::VectorXd::Zero(correction_coefficients->rows());
  product.noalias() += *correction_coefficients * input;
  if (corrected_spectrum == nullptr || corrected_spectrum->size() != product.size()) {
    corrected_spectrum = std::make_unique<Eigen::VectorXd>(product.size());
  }
  *corrected_spectrum = product;
  return std::vector<double>(product.data(), product.data() + product.size());
}

void DataAccessor::CorrectSpectrum(std::vector<double>& spectrum) const {
  if (spectrum.empty()) {
    return;
  }
  boost::lock_guard<boost::mutex> lock(_GetMutex());
  _AssertState(OS_RUNNING);
  if (!_CorrectionApplies() || corrected_spectrum == nullptr) {
    throw std::logic_error(
        "DataAccessor::CorrectSpectrum: no correction coefficients (start the accessor on a "
        "hypercube with a correction matrix)");
  }
  const auto rows = static_cast<std::size_t>(correction_coefficients->rows());
  spectrum.resize(rows);
  for (std::size_t i = 0; i < rows && i < static_cast<std::size_t>(corrected_spectrum->size());
       ++i) {
    spectrum[i] = (*corrected_spectrum)(static_cast<Eigen::Index>(i));
  }
}

void DataAccessor::SmoothenSpectrum(std::vector<double>& spectrum,
                                    const std::vector<double>& wavelengths) const {
  if (spectrum.empty()) {
    return;
  }
  if (data == nullptr) {
    throw std::logic_error("DataAccessor::SmoothenSpectrum: no image set");
  }
  if (wavelengths.size() < spectrum.size()) {
    throw std::invalid_argument("DataAccessor::SmoothenSpectrum: fewer wavelengths than values");
  }
  const double fill_value = data->GetDataFormat().fill_value;
  std::vector<bool> is_fill(spectrum.size(), false);
  std::vector<double> values;
  std::vector<double> valid_wavelengths;
  for (std::size_t i = 0; i < spectrum.size(); ++i) {
    if (spectrum[i] == fill_value) {
      is_fill[i] = true;
    } else {
      values.push_back(spectrum[i]);
      valid_wavelengths.push_back(wavelengths[i]);
    }
  }
  const datatypes::Matrix<double> kernel = GaussianKernel(valid_wavelengths, kSmoothingFwhmNm);
  std::size_t next = 0;
  for (std::size_t i = 0; i < spectrum.size(); ++i) {
    if (is_fill[i]) {
      continue;
    }
    double value = 0.0;
    for (std::size_t j = 0; j < values.size(); ++j) {
      value += kernel.rows[next][j] * values[j];
    }
    spectrum[i] = value;
    ++next;
  }
}

}  // namespace kelto::hyperspectral

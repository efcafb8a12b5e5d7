#include <kelto/hyperspectral/access/data_accessor.h>

#include "sample_type.h"

#include <Eigen/Dense>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/locks.hpp>

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

#include <kelto/common/three_parameters_function.h>
#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

namespace kelto::hyperspectral {

namespace {

using datatypes::BandImageDataFormat;
using datatypes::BandStorage_BIP;
using datatypes::BandStorage_BSQ;
using datatypes::Hypercube;

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

constexpr double kSmoothingFwhmNm = 15.0;

}  // namespace

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

void DataAccessor::_Initialize() {
  if (data == nullptr) {
    throw std::runtime_error("Cannot initialize : data not set.");
  }
  // Everything is built aside and stored at the end, so that a start that fails leaves what the
  // previous one built.
  const BandImageDataFormat& image_format = data->GetDataFormat();
  std::unique_ptr<datatypes::DataFormat> clone = image_format.Clone();
  auto* cloned_format = dynamic_cast<BandImageDataFormat*>(clone.get());
  if (cloned_format == nullptr) {
    throw std::logic_error("DataAccessor: the image's format is not a band image format");
  }
  clone.release();
  std::unique_ptr<BandImageDataFormat> format(cloned_format);

  // Every value handed out is a double in real units.
  format->data_type = BandImageDataFormat::kDouble;
  format->element_size = sizeof(double);
  format->maximum_value = image_format.maximum_value;
  format->scale = image_format.scale;
  format->fill_value = image_format.fill_value;
  if (data->GetDataInfo().is_normalised) {
    format->maximum_value = format->maximum_value / format->scale;
    format->scale = 1.0;
  }

  const auto* cube = dynamic_cast<const Hypercube*>(data);
  if (cube == nullptr || cube->GetHypercubeInfo().is_spectrally_corrected ||
      correction_matrix == nullptr) {
    data_format = std::move(format);
    return;
  }

  const auto& virtual_bands = correction_matrix->virtual_bands;
  const auto rows = static_cast<Eigen::Index>(virtual_bands.size());
  const auto columns = static_cast<Eigen::Index>(image_format.GetNrOfBands());
  auto coefficients = std::make_unique<Eigen::MatrixXd>(rows, columns);
  for (Eigen::Index r = 0; r < rows; ++r) {
    const std::vector<double>& row = virtual_bands[static_cast<std::size_t>(r)].coefficients;
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
  auto spectrum = std::make_unique<Eigen::VectorXd>(rows);

  // The output bands are the virtual bands, named by their wavelength.
  format->ClearBands();
  for (const auto& virtual_band : virtual_bands) {
    datatypes::HypercubeBandInfo band;
    std::ostringstream name;
    name.imbue(std::locale::classic());
    name << virtual_band.wavelength_nm;
    band.name = name.str();
    band.wavelength_nm = virtual_band.wavelength_nm;
    band.fwhm_nm = virtual_band.fwhm_nm;
    format->AddBand(band);
  }
  data_format = std::move(format);
  correction_coefficients = std::move(coefficients);
  corrected_spectrum = std::move(spectrum);
}

void DataAccessor::_TestPixel(const Pixel& pixel) const {
  if (data == nullptr) {
    throw std::logic_error("DataAccessor: no image set");
  }
  const BandImageDataFormat& format = data->GetDataFormat();
  if (pixel.first < 0 || static_cast<std::uint64_t>(pixel.first) >= format.width ||
      pixel.second < 0 || static_cast<std::uint64_t>(pixel.second) >= format.height) {
    throw std::runtime_error("out of range pixel");
  }
}

template <typename T>
std::vector<double> DataAccessor::_GetSpectrum(const Pixel& pixel) const {
  const BandImageDataFormat& format = data->GetDataFormat();
  const unsigned long bands = format.GetNrOfBands();
  const auto x = static_cast<std::size_t>(pixel.first);
  const auto y = static_cast<std::size_t>(pixel.second);
  std::vector<double> spectrum(bands, 0.0);
  if (format.interleave != 0) {
    const auto& storage = dynamic_cast<const BandStorage_BIP&>(*data->GetBandStorage());
    const unsigned char* samples = storage.pixels[y][x];
    for (unsigned long b = 0; b < bands; ++b) {
      spectrum[b] = static_cast<double>(datatypes::LoadSample<T>(samples, b));
    }
  } else {
    const auto& storage = dynamic_cast<const BandStorage_BSQ&>(*data->GetBandStorage());
    for (unsigned long b = 0; b < bands; ++b) {
      spectrum[b] = static_cast<double>(datatypes::LoadSample<T>(storage.bands[b][y], x));
    }
  }
  return spectrum;
}

template <typename T>
std::vector<double> DataAccessor::_GetBandData(const std::vector<Pixel>& pixels,
                                               const unsigned long& band) const {
  std::vector<double> values;
  values.reserve(pixels.size());
  if (data->GetDataFormat().interleave == 0) {
    const auto& storage = dynamic_cast<const BandStorage_BSQ&>(*data->GetBandStorage());
    for (const Pixel& pixel : pixels) {
      values.push_back(static_cast<double>(datatypes::LoadSample<T>(
          storage.bands[band][pixel.second], static_cast<unsigned long>(pixel.first))));
    }
  } else {
    const auto& storage = dynamic_cast<const BandStorage_BIP&>(*data->GetBandStorage());
    for (const Pixel& pixel : pixels) {
      values.push_back(static_cast<double>(
          datatypes::LoadSample<T>(storage.pixels[pixel.second][pixel.first], band)));
    }
  }
  return values;
}

std::vector<double> DataAccessor::GetSpectrum(const Pixel& pixel) const {
  _TestPixel(pixel);
  boost::lock_guard<boost::mutex> lock(_GetMutex());
  _AssertState(OS_RUNNING);
  object_state = OS_BUSY;
  // An unknown type leaves the state busy on purpose: the accessor then refuses reads until it
  // is stopped.
  const std::vector<double> raw =
      WithSampleType(data->GetDataFormat().data_type,
                     [this, &pixel](auto sample) { return _GetSpectrum<decltype(sample)>(pixel); });
  object_state = OS_RUNNING;
  return _ProcessSpectrum(raw);
}

std::vector<std::vector<double>> DataAccessor::GetSpectrums(
    const std::vector<Pixel>& pixels) const {
  boost::unique_lock<boost::mutex> lock(_GetMutex());
  _AssertState(OS_RUNNING);
  for (const Pixel& pixel : pixels) {
    _TestPixel(pixel);
  }
  object_state = OS_BUSY;
  std::vector<std::vector<double>> spectrums;
  spectrums.reserve(pixels.size());
  WithSampleType(data->GetDataFormat().data_type, [&](auto sample) {
    for (const Pixel& pixel : pixels) {
      spectrums.push_back(_ProcessSpectrum(_GetSpectrum<decltype(sample)>(pixel)));
    }
    return 0;
  });
  object_state = OS_RUNNING;
  return spectrums;
}

std::vector<double> DataAccessor::GetBand(const std::vector<Pixel>& pixels,
                                          const unsigned long& band) const {
  boost::unique_lock<boost::mutex> lock(_GetMutex());
  _AssertState(OS_RUNNING);
  const BandImageDataFormat& format = data->GetDataFormat();
  for (const Pixel& pixel : pixels) {
    _TestPixel(pixel);
  }
  if (band >= format.GetNrOfBands()) {
    throw std::runtime_error("out of range band");
  }
  object_state = OS_BUSY;
  std::vector<double> values = WithSampleType(
      format.data_type, [&](auto sample) { return _GetBandData<decltype(sample)>(pixels, band); });
  if (data->GetDataInfo().is_normalised) {
    Unscale(values, format.scale, format.fill_value);
  }
  object_state = OS_RUNNING;
  return values;
}

bool DataAccessor::_CorrectionApplies() const {
  // A start on a plain image, a corrected cube or without a matrix keeps the coefficients of an
  // earlier start; these conditions keep them from use.
  const auto* cube = dynamic_cast<const Hypercube*>(data);
  return cube != nullptr && !cube->GetHypercubeInfo().is_spectrally_corrected &&
         correction_matrix != nullptr && correction_coefficients != nullptr;
}

std::vector<double> DataAccessor::_ProcessSpectrum(const std::vector<double>& raw) const {
  const BandImageDataFormat& format = data->GetDataFormat();
  std::vector<double> spectrum = raw;
  if (!data->GetDataInfo().is_normalised) {
    return spectrum;
  }
  Unscale(spectrum, format.scale, format.fill_value);
  // The length test is the only defence against an image and a matrix that do not belong
  // together.
  if (!_CorrectionApplies() ||
      static_cast<Eigen::Index>(raw.size()) != correction_coefficients->cols()) {
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
  const std::size_t k = values.size();
  const common::GaussDistribution gauss;
  const double width = gauss.FWHMToParam(kSmoothingFwhmNm);
  std::vector<double> smoothed(k, 0.0);
  std::vector<double> weights(k);
  for (std::size_t i = 0; i < k; ++i) {
    double sum = 0.0;
    for (std::size_t j = 0; j < k; ++j) {
      weights[j] = gauss(valid_wavelengths[i], width, 1.0, valid_wavelengths[j]);
      sum += weights[j];
    }
    const double normalisation = 1.0 / sum;
    double value = 0.0;
    for (std::size_t j = 0; j < k; ++j) {
      value += weights[j] * normalisation * values[j];
    }
    smoothed[i] = value;
  }
  std::size_t next = 0;
  for (std::size_t i = 0; i < spectrum.size(); ++i) {
    if (!is_fill[i]) {
      spectrum[i] = smoothed[next++];
    }
  }
}

}  // namespace kelto::hyperspectral

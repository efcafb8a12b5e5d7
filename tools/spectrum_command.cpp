#include "spectrum_command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <limits>
#include <sstream>
#include <vector>

#include <kelto/hyperspectral.h>

#include "command_support.h"
#include "exit_codes.h"
#include "hypercube_loader.h"
#include "record_kinds.h"

namespace kelto::tools {

namespace {

using common::XMLSerializableInterface;
using datatypes::BandImageDataFormat;
using hyperspectral::CorrectionMatrix;
using hyperspectral::DataAccessor;
using hyperspectral::SensorCalibration;
using ParsingResult = XMLSerializableInterface::ParsingResult;

// The wavelength of a band of a format, NaN when it has none.
double Wavelength(const BandImageDataFormat& format, std::size_t band) {
  const auto* metric = band < format.GetNrOfBands()
                           ? dynamic_cast<const datatypes::MetricBandInfo*>(&format.GetBand(band))
                           : nullptr;
  return metric == nullptr ? std::numeric_limits<double>::quiet_NaN() : metric->wavelength_nm;
}

// The calibration's matrix of that name (the first when the name is empty), or nullptr.
const CorrectionMatrix* FindMatrix(const SensorCalibration& calibration, const std::string& name) {
  for (const CorrectionMatrix& candidate :
       calibration.system_info.spectral_correction_info.correction_matrices) {
    if (name.empty() || candidate.name == name) {
      return &candidate;
    }
  }
  return nullptr;
}

// What `check` reports against the matrix, in the same words: its own sanity checks (which
// reading leaves to the caller) and what a correction can't survive.
std::vector<std::string> BrokenMatrix(const CorrectionMatrix& matrix,
                                      const SensorCalibration& calibration) {
  ParsingResult checks;
  matrix.RunSanityChecks(checks);
  std::vector<std::string> problems;
  for (const auto& event : checks.events()) {
    if (event.state >= ParsingResult::Error) {
      problems.push_back("correction matrix \"" + matrix.name + "\": " + event.ToString());
    }
  }
  for (const std::string& problem : MatrixProblems(matrix, &calibration)) {
    problems.push_back(problem);
  }
  return problems;
}

// The cube's bands go with the calibration's bands by position. Says so, once each, when the
// cube gives no wavelengths to confirm it, and when a band's wavelength is farther than half a
// FWHM from the first peak of the calibration band it is taken for.
void WarnAboutBandMatching(const BandImageDataFormat& format, const SensorCalibration& calibration,
                           const std::string& image) {
  const unsigned long cube_bands = format.GetNrOfBands();
  bool any_wavelength = false;
  for (unsigned long b = 0; b < cube_bands; ++b) {
    any_wavelength = any_wavelength || std::isfinite(Wavelength(format, b));
  }
  if (!any_wavelength) {
    std::cerr << "kelto-hsi: warning: " << image
              << " gives no band wavelengths; its bands are taken for the calibration's bands in "
                 "order (band k for band number k)\n";
    return;
  }
  const unsigned long shared = std::min(cube_bands, calibration.filter_info.GetTotalNrBands());
  unsigned long differing = 0;
  std::ostringstream first;
  for (unsigned long b = 0; b < shared; ++b) {
    const auto& peaks = calibration.filter_info.GetBand(b).peaks;
    const double wavelength = Wavelength(format, b);
    if (peaks.empty() || !std::isfinite(wavelength)) {
      continue;
    }
    const auto& peak = peaks.front();
    if (!(std::abs(wavelength - peak.wavelength_nm) <= peak.fwhm_nm / 2.0)) {
      if (differing == 0) {
        first << "band " << b << " of " << image << " lies at " << wavelength
              << " nm, but calibration band " << b << " peaks at " << peak.wavelength_nm
              << " nm (FWHM " << peak.fwhm_nm << " nm)";
      }
      ++differing;
    }
  }
  if (differing > 0) {
    std::cerr << "kelto-hsi: warning: " << first.str() << "; bands are matched by position, and "
              << differing << " of " << shared
              << " differ by more than half their FWHM: is this the calibration of the cube?\n";
  }
}

// "0-3, 7, 9-10"
std::string BandRanges(const std::vector<unsigned long>& bands) {
  std::ostringstream text;
  for (std::size_t i = 0; i < bands.size();) {
    std::size_t end = i;
    while (end + 1 < bands.size() && bands[end + 1] == bands[end] + 1) {
      ++end;
    }
    text << (i == 0 ? "" : ", ") << bands[i];
    if (end > i) {
      text << '-' << bands[end];
    }
    i = end + 1;
  }
  return text.str();
}

}  // namespace

int RunSpectrum(const SpectrumRequest& request) {
  SensorCalibration calibration;
  std::string problem;
  if (ReadRecordFile(calibration, request.calibration, "sensor_calibration", "a calibration",
                     problem) != RecordProblem::kNone) {
    std::cerr << "kelto-hsi: " << problem << '\n';
    return kUnreadable;
  }

  const CorrectionMatrix* matrix = nullptr;
  if (!request.raw) {
    matrix = FindMatrix(calibration, request.matrix);
    if (matrix == nullptr) {
      std::cerr << "kelto-hsi: " << request.calibration << ": "
                << (request.matrix.empty() ? std::string("holds no correction matrix")
                                           : "has no correction matrix \"" + request.matrix + "\"")
                << " (use --raw for the uncorrected spectrum)\n";
      return kBadMatrix;
    }
    const std::vector<std::string> broken = BrokenMatrix(*matrix, calibration);
    if (!broken.empty()) {
      for (const std::string& text : broken) {
        std::cerr << "kelto-hsi: " << request.calibration << ": " << text << '\n';
      }
      return kBadMatrix;
    }
  }

  std::unique_ptr<CubeReader> reader;
  try {
    reader = std::make_unique<CubeReader>(request.image);
  } catch (const CubeError& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return error.code;
  }
  const BandImageDataFormat& format = reader->Format();
  const auto [x, y] = request.pixel;
  if (x < 0 || y < 0 || static_cast<unsigned long>(x) >= format.width ||
      static_cast<unsigned long>(y) >= format.height) {
    std::cerr << "kelto-hsi: " << request.image << ": pixel " << x << "," << y
              << " lies outside the image of " << format.width << " x " << format.height
              << " pixels\n";
    return kPixelOutside;
  }
  if (matrix != nullptr) {
    for (const auto& band : matrix->virtual_bands) {
      if (band.coefficients.size() != format.GetNrOfBands()) {
        std::cerr << "kelto-hsi: correction matrix \"" << matrix->name << "\" weighs "
                  << band.coefficients.size() << " bands, " << request.image << " has "
                  << format.GetNrOfBands() << ": they do not belong together\n";
        return kBadMatrix;
      }
    }
  }
  // The pixel alone, as a cube of one pixel that the data access reads as it would the whole.
  std::unique_ptr<datatypes::Hypercube> cube;
  try {
    cube =
        LoadWindow(*reader, {static_cast<unsigned long>(x), static_cast<unsigned long>(y), 1, 1});
  } catch (const CubeError& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return error.code;
  }
  const DataAccessor::Pixel pixel{0, 0};
  WarnAboutBandMatching(format, calibration, request.image);

  DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(matrix);
  accessor.Start();
  const BandImageDataFormat& output = *accessor.GetDataFormat();
  // A fill value in any band reaches every virtual band that weighs it: such a pixel has no
  // spectrum to give.
  std::vector<unsigned long> without_data;
  for (unsigned long b = 0; b < format.GetNrOfBands(); ++b) {
    if (accessor.GetBand({pixel}, b).front() == format.fill_value) {
      without_data.push_back(b);
    }
  }
  const bool no_data = !without_data.empty();
  std::vector<double> values;
  if (no_data) {
    std::cerr << "kelto-hsi: " << request.image << ": pixel " << x << "," << y
              << " has no data in band" << (without_data.size() == 1 ? " " : "s ")
              << BandRanges(without_data) << " (" << without_data.size() << " of "
              << format.GetNrOfBands() << " bands hold the fill value " << format.fill_value
              << ")\n";
  } else {
    values = accessor.GetSpectrum(pixel);
  }

  // Without a matrix the rows are the cube's own bands, which may have no wavelengths.
  bool any_wavelength = false;
  for (unsigned long i = 0; i < output.GetNrOfBands(); ++i) {
    any_wavelength = any_wavelength || std::isfinite(Wavelength(output, i));
  }
  if (request.json) {
    nlohmann::json spectrum = nlohmann::json::array();
    for (unsigned long i = 0; i < output.GetNrOfBands(); ++i) {
      const double wavelength = Wavelength(output, i);
      spectrum.push_back(
          {{"band", i},
           {"wavelength_nm", std::isfinite(wavelength) ? nlohmann::json(wavelength) : nullptr},
           {"value", no_data ? nlohmann::json(nullptr) : nlohmann::json(values[i])}});
    }
    const nlohmann::json document = {
        {"calibration", request.calibration},
        {"image", request.image},
        {"pixel", {{"x", x}, {"y", y}}},
        {"matrix", matrix == nullptr ? nlohmann::json(nullptr) : nlohmann::json(matrix->name)},
        {"no_data", no_data},
        {"bands_without_data", without_data},
        {"spectrum", spectrum},
        {"peak_memory_kib", PeakMemoryKib()}};
    std::cout << document.dump(2) << '\n';
    return no_data ? kNoData : kOk;
  }
  if (no_data) {
    return kNoData;
  }
  std::cout << (any_wavelength ? "wavelength" : "band") << ",value\n" << std::setprecision(8);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (any_wavelength) {
      std::cout << Wavelength(output, i);
    } else {
      std::cout << i;
    }
    std::cout << ',' << values[i] << '\n';
  }
  return kOk;
}

}  // namespace kelto::tools

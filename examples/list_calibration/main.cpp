// Reads a calibration file and lists what a correction works with: every band (numbered over all
// filter zones, the way the columns of a correction matrix are) with its peaks, and every
// correction matrix with the wavelengths of its virtual bands.
//
//   list_calibration CALIBRATION.xml
//
// Exits 1 when the calibration is in error (its problems go to standard error), 64 without a file.

#include <iostream>

#include <kelto/hyperspectral.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: list_calibration CALIBRATION.xml\n";
    return 64;
  }
  using kelto::hyperspectral::CorrectionMatrix;
  using kelto::hyperspectral::FilterZone;
  using kelto::hyperspectral::SensorCalibration;

  SensorCalibration calibration;
  SensorCalibration::ParsingResult result;  // every problem of the file becomes an event here
  calibration.ReadFile(result, argv[1]);
  // Reading checks the sensor and the filters, but leaves the optics and the correction matrices
  // to the program that uses them.
  calibration.system_info.RunSanityChecks(result);
  for (const auto& event : result.events()) {
    if (event.state != SensorCalibration::ParsingResult::Ok) {
      std::cerr << event.ToString() << '\n';
    }
  }
  if (result.state() == SensorCalibration::ParsingResult::Error) {
    return 1;
  }

  std::cout << calibration.GetTypeName() << ": " << calibration.filter_info.GetTotalNrBands()
            << " bands\n";
  unsigned long number = 0;
  for (const FilterZone& zone : calibration.filter_info.filter_zones) {
    for (const FilterZone::BandInfo& band : zone.bands) {
      std::cout << "band " << number++ << ", zone " << zone.index << ", position "
                << band.pattern_position_index << (band.selected ? ", selected" : "") << ':';
      for (const auto& peak : band.peaks) {
        std::cout << ' ' << peak.wavelength_nm << " nm (FWHM " << peak.fwhm_nm << " nm, order "
                  << peak.order << ')';
      }
      std::cout << '\n';
    }
  }
  for (const CorrectionMatrix& matrix :
       calibration.system_info.spectral_correction_info.correction_matrices) {
    std::cout << "matrix \"" << matrix.name << "\", "
              << kelto::hyperspectral::CorrectionMatrixTypes::ToString(matrix.type) << ", "
              << matrix.virtual_bands.size() << " virtual bands at";
    for (const CorrectionMatrix::VirtualBand& band : matrix.virtual_bands) {
      std::cout << ' ' << band.wavelength_nm;
    }
    std::cout << " nm\n";
  }
  return 0;
}

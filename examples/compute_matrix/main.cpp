// Computes a correction matrix from the measured band responses of a calibration, tuned by the
// parameter document embedded for the calibration's sensor and filter type, stores it in the
// calibration under a name and writes the calibration to a new file.
//
//   compute_matrix CALIBRATION.xml NAME OUTPUT.xml
//
// Prints the wavelengths of the virtual bands. Exits 1 when the calibration can't be used, 64 on
// wrong arguments.

#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <kelto/hyperspectral.h>

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: compute_matrix CALIBRATION.xml NAME OUTPUT.xml\n";
    return 64;
  }
  using kelto::hyperspectral::CorrectionMatrix;
  using kelto::hyperspectral::PM_SensorResponseAnalysis;
  using kelto::hyperspectral::SensorCalibration;
  try {
    SensorCalibration calibration;
    SensorCalibration::ParsingResult result;
    calibration.ReadFile(result, argv[1]);
    calibration.system_info.RunSanityChecks(result);  // the optics take part in the computation
    if (result.state() == SensorCalibration::ParsingResult::Error) {
      std::cerr << argv[1] << ": the calibration is in error\n";
      return 1;
    }

    // The parameter document of "VKR9-MZT4x4-470_620" and the like travels inside the library;
    // it tunes the module and its two children at once.
    PM_SensorResponseAnalysis analysis{PM_SensorResponseAnalysis::Parameters()};
    kelto::hyperspectral::utilities::SetCorrectionMatrixParameters(analysis,
                                                                   calibration.GetTypeName());
    PM_SensorResponseAnalysis::InitializationData data;
    data.filter_info = calibration.filter_info;  // the grid and every band's measured response
    analysis.Initialize(data);

    CorrectionMatrix matrix;
    matrix.name = argv[2];
    analysis.ComputeCorrectionMatrix(matrix, calibration.system_info.optical_components);
    if (matrix.virtual_bands.empty()) {
      std::cerr << "no band qualifies as a virtual filter\n";
      return 1;
    }
    std::cout << matrix.virtual_bands.size() << " virtual bands at";
    for (const CorrectionMatrix::VirtualBand& band : matrix.virtual_bands) {
      std::cout << ' ' << band.wavelength_nm;
    }
    std::cout << " nm\n";

    calibration.system_info.spectral_correction_info.correction_matrices.push_back(matrix);
    // Written beside the target and renamed when complete, so that a failed write leaves no
    // half-written calibration under its name.
    const std::string output = argv[3];
    const std::string part = output + ".part";
    try {
      calibration.WriteFile(part);
      std::filesystem::rename(part, output);
    } catch (const std::exception&) {
      std::error_code ignored;
      std::filesystem::remove(part, ignored);
      throw;
    }
  } catch (const std::exception& error) {
    // Parameters a module refuses, or an output that can't be written.
    std::cerr << "compute_matrix: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

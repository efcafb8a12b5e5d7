#include "analysis_commands.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "command_support.h"
#include "exit_codes.h"
#include "pending_file.h"
#include "record_kinds.h"

namespace kelto::tools {

namespace {

using common::XMLSerializableInterface;
using hyperspectral::CorrectionMatrixParameters;
using hyperspectral::FilterZone;
using hyperspectral::PM_SensorResponseAnalysis;
using hyperspectral::SensorCalibration;

// What the analysis needs of a calibration, beyond what its records check: a grid of at least
// five rising points and, in every band, one finite value per grid point.
void CheckForAnalysis(const SensorCalibration& calibration) {
  const std::vector<double>& grid = calibration.filter_info.calibration_info.sample_points_nm;
  if (grid.size() < 5) {
    throw CommandError{kErrors, "the calibration's grid has " + std::to_string(grid.size()) +
                                    " sample points; the analysis needs at least 5"};
  }
  for (std::size_t i = 0; i < grid.size(); ++i) {
    if (!std::isfinite(grid[i]) || (i > 0 && !(grid[i] > grid[i - 1]))) {
      throw CommandError{kErrors, "the calibration's grid does not rise strictly at sample point " +
                                      std::to_string(i)};
    }
  }
  if (calibration.filter_info.GetTotalNrBands() == 0) {
    throw CommandError{kErrors, "the calibration has no bands"};
  }
  unsigned long number = 0;
  for (const FilterZone& zone : calibration.filter_info.filter_zones) {
    for (const FilterZone::BandInfo& band : zone.bands) {
      const std::string name = "band " + std::to_string(number) + " (zone " +
                               std::to_string(zone.index) + ", pattern position " +
                               std::to_string(band.pattern_position_index) + ")";
      if (band.response.size() != grid.size()) {
        throw CommandError{kErrors, name + ": the response has " +
                                        std::to_string(band.response.size()) + " values for " +
                                        std::to_string(grid.size()) + " grid points"};
      }
      for (std::size_t i = 0; i < grid.size(); ++i) {
        if (!std::isfinite(band.response[i])) {
          throw CommandError{
              kErrors, name + ": the response is not finite at " + std::to_string(grid[i]) + " nm"};
        }
      }
      ++number;
    }
  }
}

std::string KnownKeys() {
  std::string keys;
  for (const std::string& key : hyperspectral::utilities::GetCorrectionMatrixParameterKeys()) {
    keys += "\n  " + key;
  }
  return keys;
}

// The parameter document named by the argument (a file when the path exists, a key otherwise),
// or the embedded one of the calibration's type; `source` says which for the summary.
CorrectionMatrixParameters LoadParameters(const std::string& argument,
                                          const SensorCalibration& calibration,
                                          std::string& source) {
  CorrectionMatrixParameters parameters;
  if (!argument.empty() && std::filesystem::exists(argument)) {
    ReadRecord(parameters, argument, "correction_matrix_parameters", "parameter file");
    source = argument;
    return parameters;
  }
  const std::string key = argument.empty() ? calibration.GetTypeName() : argument;
  try {
    hyperspectral::utilities::LoadCorrectionMatrixParameters(parameters, key);
  } catch (const std::invalid_argument&) {
    throw CommandError{
        kErrors,
        (argument.empty() ? "no parameter document for the calibration's type \"" + key +
                                "\"; pass --parameters KEY or a parameter file. Known keys:"
                          : "no parameter file or key \"" + key + "\". Known keys:") +
            KnownKeys()};
  }
  source = key;
  return parameters;
}

// Reads and checks the calibration, and sets up a module with its parameters.
struct Setup {
  SensorCalibration calibration;
  std::string parameters_source;
  std::unique_ptr<PM_SensorResponseAnalysis> analysis;
};

Setup Prepare(const AnalysisRequest& request) {
  Setup setup;
  ReadRecord(setup.calibration, request.calibration, "sensor_calibration", "calibration");
  CheckForAnalysis(setup.calibration);
  const CorrectionMatrixParameters parameters =
      LoadParameters(request.parameters, setup.calibration, setup.parameters_source);
  setup.analysis =
      std::make_unique<PM_SensorResponseAnalysis>(PM_SensorResponseAnalysis::Parameters());
  try {
    hyperspectral::utilities::SetCorrectionMatrixParameters(*setup.analysis, parameters);
    PM_SensorResponseAnalysis::Parameters own;
    setup.analysis->GetParameters(own);
    own.debug_dump = !request.debug_dir.empty();
    own.debug_dump_dir = request.debug_dir.empty() ? own.debug_dump_dir : request.debug_dir;
    if (request.irradiance) {
      own.correction_matrix_type = hyperspectral::CorrectionMatrixTypes::CT_IRRADIANCE;
    }
    setup.analysis->SetParameters(own);
  } catch (const std::invalid_argument& error) {
    throw CommandError{
        kErrors, "the parameters " + setup.parameters_source + " can't be used: " + error.what()};
  }
  if (::isatty(STDERR_FILENO) != 0) {
    setup.analysis->SetProgressCallback(
        [](unsigned long done, unsigned long total) { ShowProgress("band", done, total); });
  }
  return setup;
}

void Write(const SensorCalibration& calibration, const std::string& output) {
  try {
    PendingFile file(output);
    calibration.WriteFile(file.Path());
    file.Commit();
  } catch (const std::exception& error) {
    throw CommandError{kNotWritten, "cannot write " + output + ": " + error.what()};
  }
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool SortedByPatternPosition(const FilterZone& zone) {
  return std::is_sorted(zone.bands.begin(), zone.bands.end(),
                        &FilterZone::_ComparePaternPositionIndex);
}

}  // namespace

int RunPeaks(const AnalysisRequest& request) {
  return RunCommand(
      [&] {
        const auto start = std::chrono::steady_clock::now();
        Setup setup = Prepare(request);
        SensorCalibration& calibration = setup.calibration;
        const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
        const bool sorted =
            std::all_of(calibration.filter_info.filter_zones.begin(),
                        calibration.filter_info.filter_zones.end(), SortedByPatternPosition);
        if (!sorted && !matrices.empty() && !request.force) {
          throw CommandError{
              kErrors,
              "the bands must be sorted by pattern position, which reorders the bands "
              "that the calibration's " +
                  std::to_string(matrices.size()) +
                  " correction matrices weigh; pass --force to sort them anyway"};
        }
        // The module numbers the bands in the order it is given; the peaks come back sorted.
        PM_SensorResponseAnalysis::InitializationData data;
        data.filter_info = calibration.filter_info;
        for (FilterZone& zone : data.filter_info.filter_zones) {
          FilterZone::SortOnPatternPositionIndex(zone.bands);
        }
        setup.analysis->Initialize(data);
        setup.analysis->ComputePeaks(calibration.filter_info,
                                     calibration.system_info.optical_components);
        calibration.modified = common::time::CurrentUniversalTime();
        Write(calibration, request.output);

        unsigned long bands = 0;
        unsigned long with_peaks = 0;
        unsigned long peaks = 0;
        for (const FilterZone& zone : calibration.filter_info.filter_zones) {
          for (const FilterZone::BandInfo& band : zone.bands) {
            ++bands;
            with_peaks += band.peaks.empty() ? 0 : 1;
            peaks += band.peaks.size();
          }
        }
        const double seconds = SecondsSince(start);
        std::cerr << "peaks: " << bands << " bands, " << with_peaks << " with peaks, " << peaks
                  << " peaks, parameters " << setup.parameters_source << ", " << std::fixed
                  << std::setprecision(2) << seconds << " s\n";
        if (request.json) {
          std::cout << nlohmann::json{{"calibration", request.calibration},
                                      {"output", request.output},
                                      {"parameters", setup.parameters_source},
                                      {"bands", bands},
                                      {"bands_with_peaks", with_peaks},
                                      {"peaks", peaks},
                                      {"seconds", seconds}}
                           .dump(2)
                    << '\n';
        }
        return static_cast<int>(kOk);
      },
      "the calibration can't be analysed");
}

int RunMatrix(const AnalysisRequest& request) {
  return RunCommand(
      [&] {
        const auto start = std::chrono::steady_clock::now();
        Setup setup = Prepare(request);
        SensorCalibration& calibration = setup.calibration;
        hyperspectral::CorrectionMatrix matrix;
        matrix.name = request.name;
        for (const std::string& file : request.external_optics) {
          hyperspectral::OpticalComponent component;
          ReadRecord(component, file, "optical_component", "optical component");
          matrix.optical_components.push_back(component);
        }
        PM_SensorResponseAnalysis::InitializationData data;
        data.filter_info = calibration.filter_info;
        setup.analysis->Initialize(data);
        const unsigned long bands = calibration.filter_info.GetTotalNrBands();
        if (request.all_bands) {
          setup.analysis->ComputeCorrectionMatrix(
              matrix, calibration.system_info.optical_components, std::vector<bool>(bands, true));
        } else {
          setup.analysis->ComputeCorrectionMatrix(matrix,
                                                  calibration.system_info.optical_components);
        }
        if (matrix.virtual_bands.empty()) {
          throw CommandError{kErrors, "no band qualifies as a virtual filter with the parameters " +
                                          setup.parameters_source +
                                          " (too little energy, contribution or fit "
                                          "quality, or masked off); nothing written"};
        }
        unsigned long used = 0;
        for (unsigned long b = 0; b < bands; ++b) {
          used += std::any_of(matrix.virtual_bands.begin(), matrix.virtual_bands.end(),
                              [b](const auto& band) { return band.coefficients[b] != 0.0; })
                      ? 1
                      : 0;
        }
        auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
        const auto same = std::find_if(matrices.begin(), matrices.end(), [&](const auto& stored) {
          return stored.name == matrix.name;
        });
        if (same != matrices.end()) {
          *same = matrix;
        } else {
          matrices.push_back(matrix);
        }
        calibration.modified = common::time::CurrentUniversalTime();
        Write(calibration, request.output);

        const double seconds = SecondsSince(start);
        std::cerr << "matrix \"" << matrix.name << "\": " << bands << " bands, " << used
                  << " selected, " << matrix.virtual_bands.size() << " virtual bands, parameters "
                  << setup.parameters_source << ", " << std::fixed << std::setprecision(2)
                  << seconds << " s\n";
        if (request.json) {
          nlohmann::json wavelengths = nlohmann::json::array();
          for (const auto& band : matrix.virtual_bands) {
            wavelengths.push_back(band.wavelength_nm);
          }
          std::cout << nlohmann::json{{"calibration", request.calibration},
                                      {"output", request.output},
                                      {"name", matrix.name},
                                      {"parameters", setup.parameters_source},
                                      {"bands", bands},
                                      {"selected_bands", used},
                                      {"virtual_bands", matrix.virtual_bands.size()},
                                      {"virtual_band_wavelengths_nm", wavelengths},
                                      {"seconds", seconds}}
                           .dump(2)
                    << '\n';
        }
        return static_cast<int>(kOk);
      },
      "the calibration can't be analysed");
}

}  // namespace kelto::tools

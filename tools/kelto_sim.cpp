// kelto-sim: writes the simulated sample data of the library. `calibrations DIR` writes one
// calibration file per sample, named after its type; `scene DIR` writes the ENVI scene seen
// through the 4x4 mosaic sample. Everything goes through the library's own writers.

#include <CLI/CLI.hpp>

#include <cmath>
#include <iomanip>
#include <iostream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "calibration_simulator.h"
#include "hypercube_loader.h"
#include "scene_simulator.h"

namespace {

using kelto::common::filesystem::Path;

void WriteCalibrations(const std::string& directory) {
  kelto::common::filesystem::CreateDirectories(directory);
  for (const auto& calibration : kelto::tools::CalibrationSimulator::Samples()) {
    const Path file = Path(directory) / (calibration.GetTypeName() + ".xml");
    calibration.WriteFile(file);
    std::cout << file.ToString() << '\n';
  }
}

void WriteScene(const std::string& directory) {
  kelto::common::filesystem::CreateDirectories(directory);
  const auto samples = kelto::tools::CalibrationSimulator::Samples();
  const kelto::tools::SceneSimulator scene(samples.front());
  const std::string stem = (Path(directory) / "scene").ToString();
  scene.WriteEnvi(stem);
  std::cout << stem << ".hdr\n" << stem << ".raw\n";
}

// Reads the scene through the data access with the calibration's first correction matrix and
// compares the spectrum of each patch's centre with the truth, beside what the bands alone say.
int Evaluate(const std::string& calibration_file, const std::string& scene_file,
             const std::string& shown_patch) {
  using kelto::hyperspectral::SensorCalibration;
  SensorCalibration calibration;
  SensorCalibration::ParsingResult result(false, true);
  calibration.ReadFile(result, calibration_file);
  const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
  if (matrices.empty()) {
    throw std::runtime_error(calibration_file + ": holds no correction matrix");
  }
  const kelto::tools::SceneSimulator scene(calibration);
  const std::vector<double> areas = scene.ResponseAreas();
  const auto cube = kelto::tools::LoadHypercube(scene_file);
  kelto::hyperspectral::DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(&matrices.front());
  accessor.Start();

  double corrected_sum = 0.0;
  double uncorrected_sum = 0.0;
  std::size_t count = 0;
  for (const auto& patch : scene.Patches()) {
    const std::pair<int, int> centre{patch.x + patch.width / 2, patch.y + patch.height / 2};
    const std::vector<double> corrected = accessor.GetSpectrum(centre);
    const bool shown = shown_patch == "all" || shown_patch == patch.name;
    if (shown) {
      std::cout << patch.name << " at " << centre.first << "," << centre.second
                << ":\n  wavelength      truth  corrected  uncorrected\n";
    }
    for (std::size_t b = 0; b < corrected.size(); ++b) {
      const double wavelength = matrices.front().virtual_bands[b].wavelength_nm;
      const double truth = kelto::tools::SceneSimulator::Reflectance(patch.name, wavelength);
      const double uncorrected = accessor.GetBand({centre}, b).front() / areas[b];
      const double corrected_error = (corrected[b] - truth) / truth;
      const double uncorrected_error = (uncorrected - truth) / truth;
      corrected_sum += corrected_error * corrected_error;
      uncorrected_sum += uncorrected_error * uncorrected_error;
      ++count;
      if (shown) {
        std::cout << std::fixed << std::setprecision(1) << std::setw(12) << wavelength
                  << std::setprecision(4) << std::setw(11) << truth << std::setw(11) << corrected[b]
                  << std::setw(13) << uncorrected << '\n';
      }
    }
  }
  std::cout << std::defaultfloat << std::setprecision(3)
            << "RMS relative error over all patches and bands: corrected "
            << 100.0 * std::sqrt(corrected_sum / static_cast<double>(count))
            << " %, uncorrected band values "
            << 100.0 * std::sqrt(uncorrected_sum / static_cast<double>(count)) << " %\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"kelto-sim: writes simulated calibrations and a scene with known truth."};
  app.require_subcommand(1);
  std::string directory;
  CLI::App* calibrations = app.add_subcommand(
      "calibrations", "Write the sample calibrations, one <type name>.xml each, into DIR.");
  calibrations->add_option("DIR", directory, "output directory (made if missing)")->required();
  CLI::App* scene = app.add_subcommand(
      "scene",
      "Write scene.hdr and scene.raw into DIR: a 64 x 64 ENVI cube of 16 unsigned 16-bit bands "
      "(vegetation, soil, water and grey patches inside a no-data border) as the 4x4 mosaic "
      "sample sees it.");
  scene->add_option("DIR", directory, "output directory (made if missing)")->required();
  std::string calibration_file;
  std::string scene_file;
  std::string patch = "all";
  CLI::App* evaluate = app.add_subcommand(
      "evaluate",
      "Read SCENE through the data access with the first correction matrix of CALIBRATION and "
      "compare each patch's spectrum with the truth, beside the uncorrected band values.");
  evaluate->add_option("CALIBRATION", calibration_file, "the 4x4 mosaic sample calibration")
      ->required();
  evaluate->add_option("SCENE", scene_file, "scene.hdr written by the scene command")->required();
  evaluate->add_option("--patch", patch,
                       "the patch whose spectra are listed: vegetation, soil, water, grey, all");
  CLI11_PARSE(app, argc, argv);

  try {
    if (calibrations->parsed()) {
      WriteCalibrations(directory);
    } else if (scene->parsed()) {
      WriteScene(directory);
    } else if (evaluate->parsed()) {
      return Evaluate(calibration_file, scene_file, patch);
    }
  } catch (const std::exception& error) {
    std::cerr << "kelto-sim: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

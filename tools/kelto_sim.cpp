// kelto-sim: writes the simulated sample data of the library and measures corrections on it.
// `calibrations DIR` writes one calibration file per sample and `scene DIR` one ENVI scene per
// sample, each named after the sample's type; `evaluate` compares the corrected spectra of a
// scene with the truth the simulator knows. Everything goes through the library's own writers.

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <optional>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "calibration_simulator.h"
#include "exit_codes.h"
#include "hypercube_loader.h"
#include "pending_file.h"
#include "record_kinds.h"
#include "scene_simulator.h"
#include "usage.h"

namespace {

using kelto::common::filesystem::Path;
using kelto::hyperspectral::CorrectionMatrix;
using kelto::hyperspectral::SensorCalibration;
using kelto::tools::CalibrationSimulator;
using kelto::tools::SceneSimulator;

// The exit codes shared with kelto-hsi; a scene that can't be loaded exits with the loader's
// code (4, 5 or 6).
using namespace kelto::tools;  // NOLINT: the exit codes
constexpr ExitCode kUnusable =
    kErrors;  // no such matrix, or a calibration the evaluation can't use
constexpr ExitCode kBadScene = kBadImage;      // not a scene of the simulator
constexpr ExitCode kUnfitMatrix = kBadMatrix;  // another number of bands than the scene has
constexpr ExitCode kCannotWrite = kNotWritten;

void WriteCalibrations(const std::string& directory) {
  kelto::common::filesystem::CreateDirectories(directory);
  for (const auto& calibration : CalibrationSimulator::Samples()) {
    const Path file = Path(directory) / (calibration.GetTypeName() + ".xml");
    kelto::tools::PendingFile pending(file.ToString());
    calibration.WriteFile(pending.Path());
    pending.Commit();
    std::cout << file.ToString() << '\n';
  }
}

void WriteScenes(const std::string& directory) {
  kelto::common::filesystem::CreateDirectories(directory);
  for (const auto& calibration : CalibrationSimulator::Samples()) {
    const std::string stem = (Path(directory) / calibration.GetTypeName()).ToString();
    const SceneSimulator scene(calibration);
    scene.WriteEnvi(stem);
    scene.WriteRawFrames(stem);
    std::cout << stem << ".hdr\n" << stem << ".raw\n";
  }
}

struct EvaluateRequest {
  std::string calibration;
  std::string scene;
  std::string matrix;  // empty: the calibration's first
  std::string patch;   // the patch whose values are listed, "all", or empty for none
  bool json = false;
};

// One estimate of a reflectance against the truth at its wavelength.
struct Row {
  double wavelength_nm;
  double truth;
  double value;
};

// The three estimates at the centre of one patch: every physical band alone, against the truth
// at its true main peak, and the virtual bands of the true-peak matrix and of the matrix judged.
struct PatchResult {
  const SceneSimulator::Patch* patch = nullptr;
  std::pair<int, int> centre{0, 0};
  std::vector<Row> bands;
  std::vector<Row> true_peaks;
  std::vector<Row> matrix;
};

// The virtual bands of a reflectance matrix applied to white-referenced band values.
std::vector<Row> Correct(const CorrectionMatrix& matrix, const std::vector<double>& referenced,
                         const std::string& material) {
  std::vector<Row> rows;
  for (const auto& band : matrix.virtual_bands) {
    double value = 0.0;
    for (std::size_t b = 0; b < referenced.size(); ++b) {
      value += band.coefficients[b] * referenced[b];
    }
    rows.push_back(
        {band.wavelength_nm, SceneSimulator::Reflectance(material, band.wavelength_nm), value});
  }
  return rows;
}

// The RMS relative error of all rows of the lists, in percent.
double RmsPercent(const std::vector<const std::vector<Row>*>& lists) {
  double sum = 0.0;
  std::size_t count = 0;
  for (const auto* rows : lists) {
    for (const Row& row : *rows) {
      const double error = (row.value - row.truth) / row.truth;
      sum += error * error;
      ++count;
    }
  }
  return count == 0 ? 0.0 : 100.0 * std::sqrt(sum / static_cast<double>(count));
}

nlohmann::json RowsJson(const std::vector<Row>& rows) {
  nlohmann::json list = nlohmann::json::array();
  for (const Row& row : rows) {
    list.push_back(
        {{"wavelength_nm", row.wavelength_nm}, {"truth", row.truth}, {"value", row.value}});
  }
  return list;
}

void PrintRows(const std::string& title, const std::vector<Row>& rows) {
  std::cout << "  " << title << ":\n    wavelength      truth      value\n";
  for (const Row& row : rows) {
    std::cout << std::fixed << std::setprecision(1) << std::setw(14) << row.wavelength_nm
              << std::setprecision(4) << std::setw(11) << row.truth << std::setw(11) << row.value
              << '\n';
  }
}

// The simulated sample of the calibration's type: the truth behind its scene. Its peaks are the
// true ones, whatever a fit may since have stored in the calibration file.
std::optional<SensorCalibration> SimulatedSample(const std::string& type_name) {
  for (auto& sample : CalibrationSimulator::Samples()) {
    if (sample.GetTypeName() == type_name) {
      return std::move(sample);
    }
  }
  return std::nullopt;
}

// Reads the centre of each patch of SCENE, white references its bands with the simulator's
// white response and compares three estimates of the patch's reflectance with the truth. The
// patches are uniform, so their centres stand for them.
int Evaluate(const EvaluateRequest& request) {
  SensorCalibration calibration;
  std::string problem;
  if (kelto::tools::ReadRecordFile(calibration, request.calibration, "sensor_calibration",
                                   "a calibration", problem) != RecordProblem::kNone) {
    std::cerr << "kelto-sim: " << problem << '\n';
    return kUnreadable;
  }
  const std::string type_name = calibration.GetTypeName();
  const std::optional<SensorCalibration> sample = SimulatedSample(type_name);
  if (!sample) {
    std::cerr << "kelto-sim: " << request.calibration << ": no sample of type \"" << type_name
              << "\" is simulated, so its scene has no known truth\n";
    return kUnusable;
  }

  const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
  const auto found = std::find_if(matrices.begin(), matrices.end(), [&](const auto& candidate) {
    return request.matrix.empty() || candidate.name == request.matrix;
  });
  if (found == matrices.end()) {
    std::cerr << "kelto-sim: " << request.calibration << ": "
              << (request.matrix.empty() ? std::string("holds no correction matrix")
                                         : "has no correction matrix \"" + request.matrix + "\"")
              << '\n';
    return kUnusable;
  }
  const CorrectionMatrix& matrix = *found;
  // Only reflectances have a truth here: the scene knows no illumination.
  if (matrix.type != kelto::hyperspectral::CorrectionMatrixTypes::CT_REFLECTANCE) {
    std::cerr << "kelto-sim: correction matrix \"" << matrix.name
              << "\" is not a reflectance matrix; only reflectances can be compared with the "
                 "scene's truth\n";
    return kUnusable;
  }

  std::unique_ptr<kelto::datatypes::Hypercube> cube;
  try {
    cube = kelto::tools::LoadHypercube(request.scene);
  } catch (const kelto::tools::CubeError& error) {
    std::cerr << "kelto-sim: " << error.what() << '\n';
    return error.code;
  }
  const auto& format = cube->GetDataFormat();
  const unsigned long band_count = format.GetNrOfBands();
  if (format.width != SceneSimulator::kSize || format.height != SceneSimulator::kSize) {
    std::cerr << "kelto-sim: " << request.scene << ": " << format.width << " x " << format.height
              << " pixels, not a scene of the simulator (" << SceneSimulator::kSize << " x "
              << SceneSimulator::kSize << ")\n";
    return kBadScene;
  }
  for (const auto& band : matrix.virtual_bands) {
    if (band.coefficients.size() != band_count) {
      std::cerr << "kelto-sim: correction matrix \"" << matrix.name << "\" weighs "
                << band.coefficients.size() << " bands, " << request.scene << " has " << band_count
                << ": they do not belong together\n";
      return kUnfitMatrix;
    }
  }
  if (sample->filter_info.GetTotalNrBands() != band_count) {
    std::cerr << "kelto-sim: " << request.calibration << ": a " << type_name << " has "
              << sample->filter_info.GetTotalNrBands() << " bands, yet its matrix and the scene "
              << band_count << "\n";
    return kUnusable;
  }
  // Another type's scene may have as many bands; its wavelengths, the true centres of the bands
  // that saw it, tell it apart. Half a nanometre is well below the closest band spacing.
  for (unsigned long b = 0; b < band_count; ++b) {
    const auto* band =
        dynamic_cast<const kelto::datatypes::MetricBandInfo*>(format.GetBands()[b].get());
    const double centre_nm = sample->filter_info.GetBand(b).peaks.front().wavelength_nm;
    if (band == nullptr || !(std::abs(band->wavelength_nm - centre_nm) <= 0.5)) {
      std::cerr << "kelto-sim: " << request.scene << ": band " << b
                << " is not at the wavelength of the " << type_name << " band (" << centre_nm
                << " nm): not the scene of that type\n";
      return kBadScene;
    }
  }

  const SceneSimulator simulator(*sample);
  const std::vector<double> white = simulator.WhiteResponse();
  const CorrectionMatrix true_peaks = CalibrationSimulator::TruePeakCorrection(*sample);
  kelto::hyperspectral::DataAccessor accessor(cube.get());
  accessor.Start();

  std::vector<PatchResult> results;
  for (const auto& patch : simulator.Patches()) {
    PatchResult patch_result;
    patch_result.patch = &patch;
    patch_result.centre = {patch.x + patch.width / 2, patch.y + patch.height / 2};
    // The accessor hands out stored samples divided by the file's scale; the white response is
    // in stored samples.
    const std::vector<double> scaled = accessor.GetSpectrum(patch_result.centre);
    std::vector<double> referenced;
    for (unsigned long b = 0; b < band_count; ++b) {
      const double stored = scaled[b] * format.scale;
      if (stored == format.fill_value) {
        std::cerr << "kelto-sim: " << request.scene << ": no data in band " << b
                  << " at the centre of the " << patch.name << " patch, "
                  << patch_result.centre.first << "," << patch_result.centre.second << '\n';
        return kBadScene;
      }
      referenced.push_back(stored / white[b]);
      const double centre_nm = sample->filter_info.GetBand(b).peaks.front().wavelength_nm;
      patch_result.bands.push_back(
          {centre_nm, SceneSimulator::Reflectance(patch.name, centre_nm), referenced.back()});
    }
    patch_result.true_peaks = Correct(true_peaks, referenced, patch.name);
    patch_result.matrix = Correct(matrix, referenced, patch.name);
    results.push_back(std::move(patch_result));
  }

  std::vector<const std::vector<Row>*> all_bands;
  std::vector<const std::vector<Row>*> all_true_peaks;
  std::vector<const std::vector<Row>*> all_matrix;
  for (const auto& patch_result : results) {
    all_bands.push_back(&patch_result.bands);
    all_true_peaks.push_back(&patch_result.true_peaks);
    all_matrix.push_back(&patch_result.matrix);
  }
  const auto listed = [&request](const PatchResult& patch_result) {
    return request.patch == "all" || request.patch == patch_result.patch->name;
  };

  if (request.json) {
    nlohmann::json patches = nlohmann::json::array();
    for (const auto& patch_result : results) {
      nlohmann::json entry = {{"name", patch_result.patch->name},
                              {"x", patch_result.centre.first},
                              {"y", patch_result.centre.second},
                              {"uncorrected_rms_percent", RmsPercent({&patch_result.bands})},
                              {"true_peaks_rms_percent", RmsPercent({&patch_result.true_peaks})},
                              {"matrix_rms_percent", RmsPercent({&patch_result.matrix})}};
      if (listed(patch_result)) {
        entry["bands"] = RowsJson(patch_result.bands);
        entry["true_peaks"] = RowsJson(patch_result.true_peaks);
        entry["matrix"] = RowsJson(patch_result.matrix);
      }
      patches.push_back(entry);
    }
    const nlohmann::json document = {{"calibration", request.calibration},
                                     {"type_name", type_name},
                                     {"scene", request.scene},
                                     {"matrix", matrix.name},
                                     {"uncorrected_rms_percent", RmsPercent(all_bands)},
                                     {"true_peaks_rms_percent", RmsPercent(all_true_peaks)},
                                     {"matrix_rms_percent", RmsPercent(all_matrix)},
                                     {"patches", patches}};
    std::cout << document.dump(2) << '\n';
    return kOk;
  }

  std::cout << type_name << ", matrix \"" << matrix.name << "\" (" << matrix.virtual_bands.size()
            << " virtual bands), scene " << request.scene << '\n';
  for (const auto& patch_result : results) {
    if (listed(patch_result)) {
      std::cout << patch_result.patch->name << " at " << patch_result.centre.first << ","
                << patch_result.centre.second << ":\n";
      PrintRows("bands alone, white referenced, at their true centres", patch_result.bands);
      PrintRows("true-peak matrix", patch_result.true_peaks);
      PrintRows("matrix \"" + matrix.name + "\"", patch_result.matrix);
    }
  }
  const auto print_line = [](const std::string& label, double bands, double true_peaks,
                             double judged) {
    std::cout << std::left << std::setw(22) << label << std::right << std::fixed
              << std::setprecision(3) << std::setw(12) << bands << std::setw(12) << true_peaks
              << std::setw(12) << judged << '\n';
  };
  std::cout << "RMS relative error, %  uncorrected  true peaks      matrix\n";
  for (const auto& patch_result : results) {
    print_line("  " + patch_result.patch->name, RmsPercent({&patch_result.bands}),
               RmsPercent({&patch_result.true_peaks}), RmsPercent({&patch_result.matrix}));
  }
  print_line("  all patches", RmsPercent(all_bands), RmsPercent(all_true_peaks),
             RmsPercent(all_matrix));
  return kOk;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "kelto-sim: writes simulated calibrations and scenes with known truth, and measures "
      "corrections on them.",
      "kelto-sim"};
  app.require_subcommand(1);
  std::string directory;
  CLI::App* calibrations = app.add_subcommand(
      "calibrations",
      "Write the sample calibrations, one <type name>.xml each, into DIR.\nExit status: 0 done, "
      "10 a file can't be written (nothing is left under its name), 64 usage.");
  calibrations->add_option("DIR", directory, "output directory (made if missing)")->required();
  CLI::App* scene = app.add_subcommand(
      "scene",
      "Write one ENVI scene per sample calibration into DIR, <type name>.hdr and .raw: "
      "vegetation, soil, water and grey patches inside a no-data border, 64 x 64 pixels of "
      "unsigned 16-bit samples, every band at every pixel. The wedge's scene is 64 lines of a "
      "line scan, stored band interleaved by line as its frames come.\nExit status as for "
      "calibrations.");
  scene->add_option("DIR", directory, "output directory (made if missing)")->required();

  EvaluateRequest request;
  CLI::App* evaluate = app.add_subcommand(
      "evaluate",
      "Compare the reflectances of SCENE's patches, read at their centres, with the truth: each "
      "band alone (white referenced, at its true centre), the matrix computed from the true "
      "peaks of the calibration's type, and the correction matrix judged. Prints the RMS "
      "relative errors per patch and over all.\nExit status: 0 done, 2 no such matrix, not a "
      "reflectance matrix, or a calibration of a type the simulator doesn't make, 3 calibration "
      "unreadable, in error or another kind of record, 4 scene unreadable or not a simulated scene "
      "(5, 6 as for kelto-hsi "
      "spectrum), 8 the matrix weighs another number of bands than the scene has, 64 usage.");
  evaluate
      ->add_option("CALIBRATION", request.calibration,
                   "a calibration of one of the sample types, e.g. a sample with a fitted matrix")
      ->required();
  evaluate->add_option("SCENE", request.scene, "the scene of that type written by scene")
      ->required();
  evaluate->add_option("--matrix", request.matrix,
                       "name of the correction matrix judged (default: the calibration's first)");
  evaluate
      ->add_option("--patch", request.patch,
                   "list the values of a patch beside the truth: vegetation, soil, water, grey "
                   "or all")
      ->check(CLI::IsMember({"vegetation", "soil", "water", "grey", "all"}));
  evaluate->add_flag("--json", request.json, "print one JSON document");

  AddExitCodeFooters(app);
  if (const int code = ParseCommandLine(app, argc, argv); code >= 0) {
    return code;
  }

  try {
    if (calibrations->parsed()) {
      WriteCalibrations(directory);
    } else if (scene->parsed()) {
      WriteScenes(directory);
    } else if (evaluate->parsed()) {
      return Evaluate(request);
    }
  } catch (const std::exception& error) {
    std::cerr << "kelto-sim: " << error.what() << '\n';
    // The evaluation has checked its files before it computes, so what fails there is the
    // calibration's use.
    return evaluate->parsed() ? kUnusable : kCannotWrite;
  }
  return kOk;
}

// kelto-hsi: the command-line face of the library. `check` reads any record file the library
// knows by its root element, summarises it and lists every event of the read; `info` does the
// same with the bands, peaks and correction matrices spelled out; `peaks` and `matrix` run the
// analysis of a calibration's measured responses; `spectrum` corrects one pixel of a cube.

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cmath>
#include <iomanip>
#include <iostream>
#include <limits>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "analysis_commands.h"
#include "cube_commands.h"
#include "exit_codes.h"
#include "hypercube_loader.h"
#include "record_kinds.h"

namespace {

using kelto::common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

using namespace kelto::tools;  // NOLINT: the exit codes

constexpr ExitCode kNoMatrix = kBadMatrix;

// The table of exit codes, as --help repeats it.
const char* const kExitCodes =
    "Exit status: 0 done; check and info: 1 warnings, 2 errors in the file; 2 parameters or a "
    "calibration that the computation can't use; 3 a calibration or record that can't be read; 4 "
    "an image that can't be opened; 5 an unsupported sample type; 6 header and data sizes "
    "disagree; 7 a pixel outside the image; 8 a correction matrix missing or unfit; 9 a pixel "
    "without data; 10 an output that could not be written; 64 a usage error.";

// Reads nothing but the name of the root element, through the same safe parser as the records.
class RootProbe : public XMLSerializableInterface {
 public:
  void ReadXML(ParsingResult&, _xmlNode* const& node) override { root = _GetTagName(node); }
  void WriteXML(_xmlNode*&) const override {}
  std::string root;
};

// Every event, or (for the detailed view of large records) the number of records read and the
// events that tell of a problem.
void PrintEvents(const ParsingResult& result, std::ostream& out, bool problems_only) {
  std::size_t records = 0;
  out << "events:\n";
  for (const Event& event : result.events()) {
    records += event.source == Event::ReadStart ? 1 : 0;
    if (problems_only && event.state == ParsingResult::Ok) {
      continue;
    }
    out << "  " << std::left << std::setw(8) << Event::ToString(event.state) << std::setw(19)
        << Event::ToString(event.source) << event.detail << '\n';
  }
  if (problems_only) {
    out << "  (" << records << " records read; only problems are listed)\n";
  }
  out << "state: " << Event::ToString(result.state()) << '\n';
}

int Check(const std::string& file, bool detailed) {
  RootProbe probe;
  try {
    ParsingResult strict(false, true);
    probe.ReadFile(strict, file);
  } catch (const std::exception& error) {
    std::cerr << "kelto-hsi: cannot read " << error.what() << '\n';
    return kUnreadable;
  }
  const kelto::tools::RecordKind* kind = kelto::tools::FindRecordKind(probe.root);
  if (kind == nullptr) {
    std::cerr << "kelto-hsi: " << file << ": unknown record \"" << probe.root << "\"; known roots:";
    for (const auto& known : kelto::tools::RecordKinds()) {
      std::cerr << ' ' << known.root;
    }
    std::cerr << '\n';
    return kUnreadable;
  }

  auto record = kind->make();
  ParsingResult result;
  record->ReadFile(result, file);
  std::cout << "file:          " << file << '\n'
            << "record:        " << kind->root << " (" << kind->class_name << ")\n";
  kind->summarise(*record, std::cout, detailed);
  PrintEvents(result, std::cout, detailed);
  switch (result.state()) {
    case ParsingResult::Ok:
      return kOk;
    case ParsingResult::Warning:
      return kWarnings;
    default:
      return kErrors;
  }
}

struct SpectrumRequest {
  std::string calibration;
  std::string image;
  std::pair<int, int> pixel{0, 0};
  std::string matrix;  // empty: the calibration's first
  bool raw = false;    // the scaled spectrum of the image's bands, uncorrected
  bool json = false;
};

int Spectrum(const SpectrumRequest& request) {
  using kelto::hyperspectral::CorrectionMatrix;
  kelto::hyperspectral::SensorCalibration calibration;
  ParsingResult result;
  calibration.ReadFile(result, request.calibration);
  if (result.state() >= ParsingResult::Error) {
    std::cerr << "kelto-hsi: " << request.calibration << ": the calibration is in error:\n";
    for (const Event& event : result.events()) {
      if (event.state != ParsingResult::Ok) {
        std::cerr << "  " << event.ToString() << '\n';
      }
    }
    return kUnreadable;
  }

  const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
  const CorrectionMatrix* matrix = nullptr;
  if (!request.raw) {
    for (const CorrectionMatrix& candidate : matrices) {
      if (request.matrix.empty() || candidate.name == request.matrix) {
        matrix = &candidate;
        break;
      }
    }
    if (matrix == nullptr) {
      std::cerr << "kelto-hsi: " << request.calibration << ": "
                << (request.matrix.empty() ? std::string("holds no correction matrix")
                                           : "has no correction matrix \"" + request.matrix + "\"")
                << " (use --raw for the uncorrected spectrum)\n";
      return kNoMatrix;
    }
  }

  std::unique_ptr<kelto::datatypes::Hypercube> cube;
  try {
    cube = kelto::tools::LoadHypercube(request.image);
  } catch (const kelto::tools::CubeError& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return error.code;
  }
  const auto& format = cube->GetDataFormat();
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
        return kNoMatrix;
      }
    }
  }

  kelto::hyperspectral::DataAccessor accessor(cube.get());
  accessor.SetCorrectionMatrix(matrix);
  accessor.Start();
  std::vector<double> values = accessor.GetSpectrum(request.pixel);
  const auto& bands = accessor.GetDataFormat()->GetBands();

  // Fill values contaminate a corrected spectrum; say so rather than print it as if sound.
  std::size_t fill_count = 0;
  for (unsigned long b = 0; b < format.GetNrOfBands(); ++b) {
    fill_count += accessor.GetBand({request.pixel}, b).front() == format.fill_value ? 1 : 0;
  }
  if (fill_count > 0) {
    std::cerr << "kelto-hsi: warning: pixel " << x << "," << y << " holds no data in " << fill_count
              << " of " << format.GetNrOfBands() << " bands\n";
  }

  const auto wavelength = [&bands](std::size_t i) {
    const auto* band = i < bands.size()
                           ? dynamic_cast<const kelto::datatypes::MetricBandInfo*>(bands[i].get())
                           : nullptr;
    return band == nullptr ? std::numeric_limits<double>::quiet_NaN() : band->wavelength_nm;
  };
  if (request.json) {
    nlohmann::json spectrum = nlohmann::json::array();
    for (std::size_t i = 0; i < values.size(); ++i) {
      spectrum.push_back({{"wavelength_nm", wavelength(i)}, {"value", values[i]}});
    }
    const nlohmann::json document = {
        {"calibration", request.calibration},
        {"image", request.image},
        {"pixel", {{"x", x}, {"y", y}}},
        {"matrix", matrix == nullptr ? nlohmann::json(nullptr) : nlohmann::json(matrix->name)},
        {"bands_without_data", fill_count},
        {"spectrum", spectrum}};
    std::cout << document.dump(2) << '\n';
    return kOk;
  }
  std::cout << "wavelength,value\n" << std::setprecision(8);
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::cout << wavelength(i) << ',' << values[i] << '\n';
  }
  return kOk;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "kelto-hsi: reads, checks and summarises the calibration records of sensors with "
      "on-chip spectral filters."};
  app.set_version_flag("--version", kelto::common::GetVersionString());
  app.require_subcommand(1);

  std::string file;
  CLI::App* check = app.add_subcommand(
      "check",
      "Read a record file (known by its root element), print a summary and every event of the "
      "read.\nExit status: 0 no problem, 1 warnings, 2 errors, 3 the file can't be read at all.");
  check
      ->add_option("FILE", file,
                   "the record file: sensor_calibration, sensor_info, filter_info, "
                   "calibration_info or correction_matrix")
      ->required();

  CLI::App* info = app.add_subcommand(
      "info",
      "Like check, with every band (index, selection, peaks as wavelength/FWHM/order) and every "
      "correction matrix with its virtual bands listed, and only the events that tell of a "
      "problem.\nExit status as for check.");
  info->add_option("FILE", file, "the record file, e.g. a sensor_calibration")->required();

  SpectrumRequest request;
  std::string pixel_text;
  CLI::App* spectrum = app.add_subcommand(
      "spectrum",
      "Print the corrected spectrum of one pixel of an image cube (ENVI, GeoTIFF or any other "
      "format GDAL reads) as \"wavelength,value\" lines, corrected by a correction matrix of the "
      "calibration.\nExit status: 0 done, 3 calibration unreadable or in error, 4 image can't be "
      "opened, 5 unsupported sample type, 6 header and data size disagree, 7 pixel outside the "
      "image, 8 no such matrix or one that does not fit the image.");
  spectrum->add_option("CALIBRATION", request.calibration, "the sensor_calibration file")
      ->required();
  spectrum->add_option("IMAGE", request.image, "the image cube (an ENVI header or data file)")
      ->required();
  spectrum->add_option("--pixel", pixel_text, "the pixel as X,Y, counted from 0")->required();
  CLI::Option* matrix_option =
      spectrum->add_option("--matrix", request.matrix,
                           "name of the correction matrix (default: the calibration's first)");
  spectrum->add_flag("--raw", request.raw, "the scaled spectrum of the image's bands, uncorrected")
      ->excludes(matrix_option);
  spectrum->add_flag("--json", request.json, "print a JSON document instead of CSV lines");

  // The library's log tells of timings and of errors that reach this program as exceptions, whose
  // texts it prints itself.
  kelto::common::Logger::SetSink(
      [](kelto::common::Logger::eLevel, const std::string&, const std::string&) {});

  AnalysisRequest analysis;
  std::string mask = "selected";
  CLI::App* peaks = app.add_subcommand(
      "peaks",
      "Fit the peaks of every band of CALIBRATION from its measured responses (seen through the "
      "calibration's optical components) and write the calibration with them to OUT. Each zone's "
      "bands are sorted by pattern position first.\nExit status: 0 done, 2 the calibration or "
      "the parameters can't be used, 3 a calibration or parameter file can't be read, 10 OUT "
      "can't be written, 64 usage.");
  CLI::App* matrix = app.add_subcommand(
      "matrix",
      "Compute a correction matrix from the measured responses of CALIBRATION and write the "
      "calibration with it (replacing a matrix of the same name) to OUT.\nExit status as for "
      "peaks.");
  for (CLI::App* command : {peaks, matrix}) {
    command->add_option("CALIBRATION", analysis.calibration, "the sensor_calibration file")
        ->required();
    command
        ->add_option("--parameters", analysis.parameters,
                     "a key of the embedded parameter documents (such as VKR9-MZT4x4-470_620) or "
                     "a correction_matrix_parameters file; default: the calibration's type")
        ->type_name("KEY|FILE");
    command->add_option("-o,--output", analysis.output, "the calibration file written")->required();
    command->add_flag("--json", analysis.json, "print the summary as JSON on standard output");
  }
  peaks->add_flag("--force", analysis.force,
                  "sort the bands even when that reorders the bands of stored correction "
                  "matrices");
  matrix->add_option("--name", analysis.name, "name of the new matrix")->required();
  matrix->add_option("--mask", mask, "the bands used: selected (their own flags) or all")
      ->check(CLI::IsMember({"selected", "all"}));
  std::string type = "reflectance";
  matrix
      ->add_option("--type", type,
                   "reflectance (rows for white-referenced bands, each summing to 1) or "
                   "irradiance (rows for bands as measured)")
      ->check(CLI::IsMember({"reflectance", "irradiance"}));
  matrix->add_option("--external-optics", analysis.external_optics,
                     "optical_component files in front of the system that the matrix assumes");
  matrix->add_option("--debug-dir", analysis.debug_dir,
                     "write every intermediate result of the computation as CSV files here");
  CorrectRequest correct;
  CLI::App* correct_command = app.add_subcommand(
      "correct",
      "Correct every pixel of the cube IN with a correction matrix of CALIBRATION and write the "
      "virtual bands as a float32 cube OUT (with their wavelengths and FWHM, NaN where a pixel "
      "has no data, and IN's georeferencing). With --dark and --white the bands become "
      "reflectance first, (IN - dark) / (white - dark); each reference is a cube of IN's size, "
      "used pixel by pixel, or any cube of IN's bands, whose mean spectrum is used. Cube bands go "
      "with calibration bands by index. The cube is streamed a block of lines at a time.");
  correct_command->add_option("CALIBRATION", correct.calibration, "the sensor_calibration file")
      ->required();
  correct_command->add_option("IN", correct.input, "the cube (ENVI, GeoTIFF, any GDAL format)")
      ->required();
  correct_command->add_option("-o,--output", correct.output, "the corrected cube written")
      ->required();
  correct_command->add_option("--matrix", correct.matrix,
                              "name of the correction matrix (default: the calibration's first)");
  correct_command->add_option("--dark", correct.dark, "dark reference cube");
  correct_command->add_option("--white", correct.white, "white reference cube");
  correct_command->add_option("--threads", correct.threads, "threads (default: every core)");
  correct_command->add_option("--block-lines", correct.block_lines,
                              "lines per block (default: a block of about 8 MiB)");
  correct_command->add_option("--format", correct.format, "output format")
      ->check(CLI::IsMember({"ENVI", "GTiff"}));
  correct_command->add_flag("--json", correct.json, "print the summary as JSON on standard output");
  CubeRequest cube;
  CLI::App* cube_command = app.add_subcommand(
      "cube",
      "Assemble raw sensor frames (one band each, 8 to 16 bit, PGM, TIFF, ENVI or any format GDAL "
      "reads) into a float32 cube OUT of one band per calibration band, in the band numbering of "
      "the correction matrices, with each band's wavelength and FWHM (its first peak). A mosaic "
      "gives one cube pixel per repetition of its pattern, tiles one per position in a tile; a "
      "frame of a wedge gives one cube line (each band the mean of its stripe of rows), and "
      "frames are stacked in the order given: registering bands that saw different ground lines "
      "is left to the caller. All zones must share one spatial grid.");
  cube_command->add_option("CALIBRATION", cube.calibration, "the sensor_calibration file")
      ->required();
  cube_command->add_option("RAW", cube.frames, "the raw frames")->required();
  cube_command->add_option("-o,--output", cube.output, "the cube written")->required();
  cube_command->add_option("--format", cube.format, "output format")
      ->check(CLI::IsMember({"ENVI", "GTiff"}));
  cube_command->add_flag("--json", cube.json, "print the summary as JSON on standard output");
  app.footer(kExitCodes);
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    command->footer(kExitCodes);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success) ? code : kUsage;
  }
  try {
    if (peaks->parsed()) {
      return RunPeaks(analysis);
    }
    if (correct_command->parsed()) {
      return RunCorrect(correct);
    }
    if (cube_command->parsed()) {
      return RunCube(cube);
    }
    if (matrix->parsed()) {
      analysis.all_bands = mask == "all";
      analysis.irradiance = type == "irradiance";
      return RunMatrix(analysis);
    }
    if (check->parsed() || info->parsed()) {
      return Check(file, info->parsed());
    }
    if (spectrum->parsed()) {
      const std::size_t comma = pixel_text.find(',');
      if (comma == std::string::npos ||
          !kelto::common::Strings::ParseInt(pixel_text.substr(0, comma), request.pixel.first) ||
          !kelto::common::Strings::ParseInt(pixel_text.substr(comma + 1), request.pixel.second)) {
        std::cerr << "kelto-hsi: --pixel wants X,Y as two whole numbers, not \"" << pixel_text
                  << "\"\n";
        return kUsage;
      }
      return Spectrum(request);
    }
  } catch (const std::exception& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return kUnreadable;
  }
  return 0;
}

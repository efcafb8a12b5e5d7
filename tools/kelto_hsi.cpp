// kelto-hsi: the command-line face of the library. `check` reads any record file the library
// knows by its root element, checks it and gives a verdict; `info` does the same with the bands,
// peaks and correction matrices spelled out; `peaks` and `matrix` run the analysis of a
// calibration's measured responses; `spectrum` corrects one pixel of a cube. Each command lives
// in a source file of its own; this one holds the command line.

#include <CLI/CLI.hpp>

#include <iostream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "analysis_commands.h"
#include "calibration_commands.h"
#include "check_command.h"
#include "cube_commands.h"
#include "exit_codes.h"
#include "spectrum_command.h"
#include "usage.h"

using namespace kelto::tools;  // NOLINT: the commands and the exit codes

int main(int argc, char** argv) {
  CLI::App app{
      "kelto-hsi: reads, checks and summarises the calibration records of sensors with "
      "on-chip spectral filters.",
      "kelto-hsi"};
  app.set_version_flag("--version", kelto::common::GetVersionString());
  app.require_subcommand(1);

  CheckRequest check_request;
  CLI::App* check = app.add_subcommand(
      "check",
      "Read a record file (known by its root element), run every check of the record, also those "
      "of its optics and correction matrices, print a summary, the events that tell of a problem "
      "and a one-line verdict.\nExit status: 0 sound, 1 warnings, 2 errors, 3 the file can't be "
      "read or holds no record kelto-hsi knows.");
  check
      ->add_option("FILE", check_request.file,
                   "the record file: sensor_calibration, sensor_info, filter_info, "
                   "calibration_info or correction_matrix")
      ->required();
  CLI::App* info = app.add_subcommand(
      "info",
      "Like check, with every band (index, selection, peaks as wavelength/FWHM/order) and every "
      "correction matrix with its virtual bands listed.\nExit status as for check.");
  info->add_option("FILE", check_request.file, "the record file, e.g. a sensor_calibration")
      ->required();
  for (CLI::App* command : {check, info}) {
    command->add_flag("--verbose", check_request.verbose,
                      "list every event of the read, also those that tell of no problem");
    command->add_flag("--json", check_request.json,
                      "print one JSON document: the events (state, source, text), the verdict "
                      "and the exit code");
  }

  SpectrumRequest request;
  std::string pixel_text;
  CLI::App* spectrum = app.add_subcommand(
      "spectrum",
      "Print the corrected spectrum of one pixel of an image cube (ENVI, GeoTIFF or any other "
      "format GDAL reads) as \"wavelength,value\" lines, corrected by a correction matrix of the "
      "calibration. Band k of the cube is band number k of the calibration (counted over all its "
      "filter zones): the bands go together by position, and a warning tells when the cube has "
      "no wavelengths or a band's wavelength is farther than half a FWHM from the first peak of "
      "its calibration band. A pixel with the fill value (\"data ignore value\") in any band has "
      "no spectrum.\nExit status: 0 done, 3 calibration unreadable, in error or another kind of "
      "record, 4 image can't be opened, 5 unsupported sample type, 6 header and data size "
      "disagree, 7 pixel outside the image, 8 no such matrix, a broken one or one that does not "
      "fit the image, 9 a pixel without data.");
  spectrum->add_option("CALIBRATION", request.calibration, "the sensor_calibration file")
      ->required();
  spectrum->add_option("IMAGE", request.image, "the image cube (an ENVI header or data file)")
      ->required();
  spectrum->add_option("--pixel", pixel_text, "the pixel as X,Y, counted from 0")->required();
  CLI::Option* matrix_option =
      spectrum->add_option("--matrix", request.matrix,
                           "name of the correction matrix (default: the calibration's first)");
  spectrum
      ->add_flag("--raw", request.raw,
                 "the scaled spectrum of the image's bands, uncorrected (\"band,value\" lines "
                 "when the cube has no wavelengths)")
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
  ConvertRequest convert;
  CLI::App* convert_command = app.add_subcommand(
      "convert",
      "Read calibrations of any age (files, or directories of *.xml) and write them in the current "
      "form: one file to a file, several or a directory into a directory, each under its own "
      "name. Every event above Ok of each read is printed. A read with an error is not written "
      "unless --force; some old forms always report errors (a calibration without version reports "
      "\"!filter_zones.empty ()\" and that its sensor element is not of type SensorInfo), so "
      "these need --force.");
  convert_command->add_option("OLD", convert.inputs, "calibration files or directories")
      ->required();
  convert_command->add_option("-o,--output", convert.output, "the file or directory written")
      ->required();
  convert_command->add_flag("--force", convert.force, "write also what reads with errors");
  convert_command->add_flag("--json", convert.json, "print a JSON report on standard output");
  ScanRequest scan;
  CLI::App* scan_command = app.add_subcommand(
      "scan",
      "Load every *.xml calibration of DIR, in name order, through the calibration container as "
      "a program would, and say of each: accepted (with its sensor_id and standard name), refused "
      "(with the reasons), or skipped as a second file of a sensor_id already loaded.\nExit "
      "status: 0 all accepted, 1 the worst is a refusal for warnings or a skipped file, 2 a file "
      "was refused for errors.");
  scan_command->add_option("DIR", scan.directory, "the directory")->required();
  scan_command->add_flag("--json", scan.json, "print a JSON report on standard output");
  RenameRequest rename;
  CLI::App* rename_command = app.add_subcommand(
      "rename",
      "Print the standard name of a calibration file (its type, then its sensor_id); with --apply "
      "rename the file to it in its directory, refusing when the name is taken or would not "
      "parse back.");
  rename_command->add_option("FILE", rename.file, "the calibration file")->required();
  rename_command->add_flag("--apply", rename.apply, "rename the file");
  rename_command->add_flag("--json", rename.json, "print a JSON document");
  AddExitCodeFooters(app);
  if (const int code = ParseCommandLine(app, argc, argv); code >= 0) {
    return code;
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
    if (convert_command->parsed()) {
      return RunConvert(convert);
    }
    if (scan_command->parsed()) {
      return RunScan(scan);
    }
    if (rename_command->parsed()) {
      return RunRename(rename);
    }
    if (matrix->parsed()) {
      analysis.all_bands = mask == "all";
      analysis.irradiance = type == "irradiance";
      return RunMatrix(analysis);
    }
    if (check->parsed() || info->parsed()) {
      check_request.detailed = info->parsed();
      return RunCheck(check_request);
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
      return RunSpectrum(request);
    }
  } catch (const std::exception& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return kUnreadable;
  }
  return 0;
}

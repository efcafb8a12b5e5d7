// kelto-sim: writes the simulated sample data of the library. `calibrations DIR` writes one
// calibration file per sample, named after its type, through the library's own writer.

#include <CLI/CLI.hpp>

#include <iostream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "calibration_simulator.h"

int main(int argc, char** argv) {
  CLI::App app{"kelto-sim: writes simulated calibrations with known true peaks."};
  app.require_subcommand(1);
  std::string directory;
  CLI::App* calibrations = app.add_subcommand(
      "calibrations", "Write the sample calibrations, one <type name>.xml each, into DIR.");
  calibrations->add_option("DIR", directory, "output directory (made if missing)")->required();
  CLI11_PARSE(app, argc, argv);

  try {
    kelto::common::filesystem::CreateDirectories(directory);
    for (const auto& calibration : kelto::tools::CalibrationSimulator::Samples()) {
      const kelto::common::filesystem::Path file =
          kelto::common::filesystem::Path(directory) / (calibration.GetTypeName() + ".xml");
      calibration.WriteFile(file);
      std::cout << file.ToString() << '\n';
    }
  } catch (const std::exception& error) {
    std::cerr << "kelto-sim: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

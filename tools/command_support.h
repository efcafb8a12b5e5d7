// What the commands of kelto-hsi share: a failure that ends a command with its exit code, the
// reading of a record file with the tool's verdict on it, and the frame that turns failures into
// a message on standard error and the exit code.
#pragma once

#include <iostream>
#include <stdexcept>
#include <string>

#include <kelto/common/xml_serializable_interface.h>

#include "exit_codes.h"
#include "hypercube_loader.h"

namespace kelto::tools {

// Ends a command with its exit code and a message for standard error.
struct CommandError {
  ExitCode code;
  std::string message;
};

// The most memory the process has held so far, in KiB, as the --json of the commands that read
// cubes reports it.
long PeakMemoryKib();

// The events above Ok of a read, one per line, each line starting with a line end.
std::string ProblemEvents(const common::XMLSerializableInterface::ParsingResult& result);

// Reads a record file whose root element must be `root`: CommandError kUnreadable when it can't
// be read or holds another record, kErrors when it reads with errors. `what` names the file in
// messages ("calibration", "parameter file").
void ReadRecord(common::XMLSerializableInterface& record, const std::string& path,
                const std::string& root, const std::string& what);

// The progress line of a long command on a terminal: "<what> done of total", wiped at the end.
void ShowProgress(const char* what, unsigned long done, unsigned long total);

// Runs a command's body: a CommandError or CubeError becomes its message and code, and a
// std::invalid_argument from the library (data it can't work with) becomes `context`, the text
// and kErrors.
template <typename Body>
int RunCommand(Body body, const std::string& context) {
  try {
    return body();
  } catch (const CommandError& error) {
    std::cerr << "kelto-hsi: " << error.message << '\n';
    return error.code;
  } catch (const CubeError& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return error.code;
  } catch (const std::invalid_argument& error) {
    std::cerr << "kelto-hsi: " << context << ": " << error.what() << '\n';
    return kErrors;
  }
}

}  // namespace kelto::tools

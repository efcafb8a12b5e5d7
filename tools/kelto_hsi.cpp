// kelto-hsi: the command-line face of the library. `check` reads any record file the library
// knows by its root element, summarises it and lists every event of the read; `info` does the
// same with the bands, peaks and correction matrices spelled out.

#include <CLI/CLI.hpp>

#include <iomanip>
#include <iostream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "record_kinds.h"

namespace {

using kelto::common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

// Exit codes of `check`: the summary state of the read, or that the file can't be read at all.
enum ExitCode : int { kOk = 0, kWarnings = 1, kErrors = 2, kUnreadable = 3 };

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

  CLI11_PARSE(app, argc, argv);
  try {
    if (check->parsed() || info->parsed()) {
      return Check(file, info->parsed());
    }
  } catch (const std::exception& error) {
    std::cerr << "kelto-hsi: " << error.what() << '\n';
    return kUnreadable;
  }
  return 0;
}

// The record files that the tools know, by the root element of the file: how to make an empty
// record of that kind, how to check one beyond what its reading checks, and how to summarise one
// for a person. A new record kind is one more entry in the table of record_kinds.cpp.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>

namespace kelto::tools {

struct RecordKind {
  std::string root;        // the root element, "sensor_info"
  std::string class_name;  // the record class, "SensorInfo"
  std::function<std::unique_ptr<common::XMLSerializableInterface>()> make;
  // Writes a summary for people; `detailed` adds what a list of bands and matrices would show.
  std::function<void(const common::XMLSerializableInterface&, std::ostream&, bool detailed)>
      summarise;
  // Runs the sanity checks that reading leaves to the caller (the optics and the correction
  // matrices of a calibration) and the tools' own checks of what a correction can't survive,
  // adding their events to the result.
  std::function<void(const common::XMLSerializableInterface&,
                     common::XMLSerializableInterface::ParsingResult&)>
      check;
};

const std::vector<RecordKind>& RecordKinds();
// The kind of a root element, or nullptr.
const RecordKind* FindRecordKind(const std::string& root);

// The name of the root element of an XML file, read through the records' own safe parser; an
// empty name, and the reason in `problem`, when the file can't be read or is not well-formed.
std::string ReadRootElement(const std::string& path, std::string& problem);

// Reads a record file that must hold a record of the given root element, such as a calibration
// (root "sensor_calibration", `what` "a calibration"). The root is looked at first, so that a
// file of another kind is named as such rather than read as a broken record. Returns the read's
// result; `problem` is empty when the record was read, else one of the reasons below.
enum class RecordProblem {
  kNone,
  kUnreadable,   // missing, not a file, not well-formed XML
  kOtherRecord,  // "FILE holds a sensor_info record, not a calibration"
  kInError,      // read, with events in state Error (listed in `problem`)
};
RecordProblem ReadRecordFile(common::XMLSerializableInterface& record, const std::string& path,
                             const std::string& root, const std::string& what,
                             std::string& problem);

// What a correction matrix can't be applied with, beyond its own sanity checks: coefficients
// that are not finite, virtual bands of different lengths and, within a calibration, a
// coefficient count other than its number of bands or a virtual band outside its wavelength grid.
// One sentence per kind of problem, naming the matrix and its first virtual band at fault.
std::vector<std::string> MatrixProblems(const hyperspectral::CorrectionMatrix& matrix,
                                        const hyperspectral::SensorCalibration* calibration);

}  // namespace kelto::tools

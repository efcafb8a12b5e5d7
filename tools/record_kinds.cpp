#include "record_kinds.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

namespace kelto::tools {

namespace {

using common::XMLSerializableInterface;
using hyperspectral::CalibrationInfo;
using hyperspectral::CorrectionMatrix;
using hyperspectral::FilterInfo;
using hyperspectral::FilterZone;
using hyperspectral::SensorCalibration;
using hyperspectral::SensorInfo;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

template <typename Record>
std::unique_ptr<XMLSerializableInterface> Make() {
  return std::make_unique<Record>();
}

// Labels in one column, so that the summaries read as a table.
std::ostream& Label(std::ostream& out, const std::string& label) {
  return out << std::left << std::setw(15) << (label + ":");
}

void DescribeSensor(const SensorInfo& sensor, std::ostream& out) {
  Label(out, "sensor") << sensor.GetTypeName() << ", " << sensor.width_px << " x "
                       << sensor.height_px << " px, pitch " << sensor.pixel_pitch_um << " um, "
                       << sensor.bit_depth << " bit, overall gain " << sensor.overall_gain
                       << " DN/e-\n";
  if (sensor.sensor_type == common::SensorTypes::VKR9) {
    Label(out, "gains") << "analog " << sensor.analog_gain << ", digital " << sensor.digital_gain
                        << ", full well " << sensor.full_well_capacity_e << " e-\n";
  } else if (sensor.sensor_type == common::SensorTypes::TEM480) {
    Label(out, "gain mode") << (sensor.gain_mode.empty() ? "(none)" : sensor.gain_mode) << '\n';
  }
}

void DescribeGrid(const CalibrationInfo& grid, std::ostream& out) {
  const std::vector<double>& points = grid.sample_points_nm;
  Label(out, "grid") << points.size() << " sample points";
  if (!points.empty()) {
    out << ", " << points.front() << " to " << points.back() << " nm";
  }
  out << '\n';
}

void DescribePeaks(const FilterZone::BandInfo& band, std::ostream& out) {
  for (const auto& peak : band.peaks) {
    out << "  " << std::fixed << std::setprecision(1) << peak.wavelength_nm << "/" << peak.fwhm_nm
        << "/" << peak.order << std::defaultfloat << std::setprecision(6);
  }
}

void DescribeFilter(const FilterInfo& filter, std::ostream& out, bool detailed) {
  Label(out, "filter") << filter.GetTypeName() << ", " << filter.filter_zones.size() << " zone(s), "
                       << filter.GetTotalNrBands() << " bands\n";
  DescribeGrid(filter.calibration_info, out);
  for (const FilterZone& zone : filter.filter_zones) {
    const common::RegionOfInterest& area = zone.filter_area;
    Label(out, "zone " + std::to_string(zone.index))
        << FilterZone::ToString(zone.filter_layout()) << ", area " << area.offset_x << ","
        << area.offset_y << " " << area.width << " x " << area.height << " px, pattern "
        << zone.pattern_width << " x " << zone.pattern_height << ", cell " << zone.filter_width
        << " x " << zone.filter_height << " px, " << zone.spectral_range_start_nm << " to "
        << zone.spectral_range_end_nm << " nm, " << zone.bands.size() << " bands\n";
    if (!detailed) {
      continue;
    }
    out << "    band  index  selected  peaks (wavelength nm / FWHM nm / order)\n";
    for (std::size_t i = 0; i < zone.bands.size(); ++i) {
      const FilterZone::BandInfo& band = zone.bands[i];
      out << "    " << std::right << std::setw(4) << i << "  " << std::setw(5)
          << band.pattern_position_index << "  " << std::setw(8) << (band.selected ? "yes" : "no")
          << " ";
      DescribePeaks(band, out);
      out << std::left << '\n';
    }
  }
}

void DescribeMatrix(const CorrectionMatrix& matrix, std::ostream& out, bool detailed) {
  Label(out, "matrix") << "\"" << matrix.name << "\", "
                       << hyperspectral::CorrectionAlgorithms::ToString(matrix.algorithm) << " "
                       << matrix.algorithm_version.first << "." << matrix.algorithm_version.second
                       << ", " << hyperspectral::CorrectionMatrixTypes::ToString(matrix.type)
                       << ", " << matrix.virtual_bands.size() << " virtual bands\n";
  if (!detailed) {
    return;
  }
  for (std::size_t i = 0; i < matrix.virtual_bands.size(); ++i) {
    const auto& band = matrix.virtual_bands[i];
    out << "    " << std::right << std::setw(4) << i << "  " << std::fixed << std::setprecision(1)
        << band.wavelength_nm << " nm, FWHM " << band.fwhm_nm << " nm, " << band.coefficients.size()
        << " coefficients" << std::defaultfloat << std::setprecision(6) << std::left << '\n';
  }
}

void DescribeCalibration(const SensorCalibration& calibration, std::ostream& out, bool detailed) {
  Label(out, "calibration") << calibration.GetTypeName() << '\n';
  Label(out, "sensor id") << calibration.sensor_id << '\n';
  Label(out, "created") << common::time::ToString(calibration.created, false, "%FT%TZ")
                        << ", modified "
                        << common::time::ToString(calibration.modified, false, "%FT%TZ") << '\n';
  Label(out, "software") << calibration.software << " " << calibration.software_version << '\n';
  DescribeSensor(calibration.sensor_info, out);
  DescribeFilter(calibration.filter_info, out, detailed);
  const auto& system = calibration.system_info;
  Label(out, "optics") << system.optical_components.size() << " component(s)\n";
  for (const auto& component : system.optical_components) {
    // The label needs what a sound component has (sample points, a source's tag); a file may
    // lack it, and the summary then says so instead of stopping.
    try {
      out << "    " << component.GetFriendlyName() << '\n';
    } catch (std::invalid_argument const& error) {
      out << "    " << hyperspectral::OpticalComponents::ToString(component.type) << ": "
          << error.what() << '\n';
    }
  }
  const auto& matrices = system.spectral_correction_info.correction_matrices;
  Label(out, "corrections") << matrices.size() << " matrix(es)\n";
  for (const CorrectionMatrix& matrix : matrices) {
    DescribeMatrix(matrix, out, detailed);
  }
}

template <typename Record>
void Summarise(const XMLSerializableInterface& record, std::ostream& out, bool detailed);

template <>
void Summarise<SensorInfo>(const XMLSerializableInterface& record, std::ostream& out, bool) {
  DescribeSensor(static_cast<const SensorInfo&>(record), out);
}

template <>
void Summarise<CalibrationInfo>(const XMLSerializableInterface& record, std::ostream& out, bool) {
  DescribeGrid(static_cast<const CalibrationInfo&>(record), out);
}

template <>
void Summarise<FilterInfo>(const XMLSerializableInterface& record, std::ostream& out,
                           bool detailed) {
  DescribeFilter(static_cast<const FilterInfo&>(record), out, detailed);
}

template <>
void Summarise<CorrectionMatrix>(const XMLSerializableInterface& record, std::ostream& out,
                                 bool detailed) {
  DescribeMatrix(static_cast<const CorrectionMatrix&>(record), out, detailed);
}

template <>
void Summarise<SensorCalibration>(const XMLSerializableInterface& record, std::ostream& out,
                                  bool detailed) {
  DescribeCalibration(static_cast<const SensorCalibration&>(record), out, detailed);
}

// Only the optics and the correction matrices escape the checks of reading.
template <typename Record>
void Check(const XMLSerializableInterface&, ParsingResult&) {}

void AddProblems(const std::vector<std::string>& problems, ParsingResult& result) {
  for (const std::string& problem : problems) {
    result << Event(ParsingResult::Error, Event::SanityCheck, problem);
  }
}

template <>
void Check<CorrectionMatrix>(const XMLSerializableInterface& record, ParsingResult& result) {
  const auto& matrix = static_cast<const CorrectionMatrix&>(record);
  matrix.RunSanityChecks(result);
  AddProblems(MatrixProblems(matrix, nullptr), result);
}

template <>
void Check<SensorCalibration>(const XMLSerializableInterface& record, ParsingResult& result) {
  const auto& calibration = static_cast<const SensorCalibration&>(record);
  calibration.system_info.RunSanityChecks(result);
  for (const CorrectionMatrix& matrix :
       calibration.system_info.spectral_correction_info.correction_matrices) {
    AddProblems(MatrixProblems(matrix, &calibration), result);
  }
}

template <typename Record>
RecordKind Kind(const char* root, const char* class_name) {
  return {root, class_name, Make<Record>, Summarise<Record>, Check<Record>};
}

// Reads nothing but the name of the root element.
class RootProbe : public XMLSerializableInterface {
 public:
  void ReadXML(ParsingResult&, _xmlNode* const& node) override { root = _GetTagName(node); }
  void WriteXML(_xmlNode*&) const override {}
  std::string root;
};

std::string Number(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// One kind of problem of a matrix: the first virtual band at fault and how many share it.
struct Finding {
  std::string text;
  std::size_t count = 0;

  void Note(const std::string& first) {
    text = count == 0 ? first : text;
    ++count;
  }
  void AddTo(std::vector<std::string>& problems, const std::string& matrix) const {
    if (count > 0) {
      problems.push_back(
          "correction matrix \"" + matrix + "\": " + text +
          (count > 1 ? " (and " + std::to_string(count - 1) + " more virtual bands)" : ""));
    }
  }
};

}  // namespace

const std::vector<RecordKind>& RecordKinds() {
  static const std::vector<RecordKind> kinds = {
      Kind<SensorCalibration>("sensor_calibration", "SensorCalibration"),
      Kind<SensorInfo>("sensor_info", "SensorInfo"),
      Kind<FilterInfo>("filter_info", "FilterInfo"),
      Kind<CalibrationInfo>("calibration_info", "CalibrationInfo"),
      Kind<CorrectionMatrix>("correction_matrix", "CorrectionMatrix"),
  };
  return kinds;
}

const RecordKind* FindRecordKind(const std::string& root) {
  for (const RecordKind& kind : RecordKinds()) {
    if (kind.root == root) {
      return &kind;
    }
  }
  return nullptr;
}

std::string ReadRootElement(const std::string& path, std::string& problem) {
  RootProbe probe;
  try {
    // Throws when the file can't be read or parsed; the probe itself never reports an error.
    ParsingResult strict(false, true);
    probe.ReadFile(strict, path);
  } catch (const std::exception& error) {
    problem = error.what();
    return "";
  }
  problem.clear();
  return probe.root;
}

RecordProblem ReadRecordFile(XMLSerializableInterface& record, const std::string& path,
                             const std::string& root, const std::string& what,
                             std::string& problem) {
  const std::string found = ReadRootElement(path, problem);
  if (found.empty()) {
    return RecordProblem::kUnreadable;
  }
  if (found != root) {
    problem = path + " holds a " + found + " record, not " + what;
    return RecordProblem::kOtherRecord;
  }
  ParsingResult result;
  record.ReadFile(result, path);
  if (result.state() >= ParsingResult::Error) {
    problem = path + " can't be used as " + what + "; reading it reported errors:";
    for (const Event& event : result.events()) {
      if (event.state != ParsingResult::Ok) {
        problem += "\n  " + event.ToString();
      }
    }
    return RecordProblem::kInError;
  }
  return RecordProblem::kNone;
}

std::vector<std::string> MatrixProblems(const CorrectionMatrix& matrix,
                                        const SensorCalibration* calibration) {
  const auto& bands = matrix.virtual_bands;
  if (bands.empty()) {
    return {};
  }
  // Without a calibration, the first virtual band stands for the number of source bands.
  const std::size_t expected = calibration != nullptr ? calibration->filter_info.GetTotalNrBands()
                                                      : bands.front().coefficients.size();
  const std::string against = calibration != nullptr
                                  ? "the calibration has " + std::to_string(expected) + " bands"
                                  : "the first weighs " + std::to_string(expected);
  const std::vector<double>* grid =
      calibration != nullptr ? &calibration->filter_info.calibration_info.sample_points_nm
                             : nullptr;
  Finding not_finite;
  Finding length;
  Finding outside;
  for (std::size_t i = 0; i < bands.size(); ++i) {
    const CorrectionMatrix::VirtualBand& band = bands[i];
    const std::string name = "virtual band " + std::to_string(i);
    const auto bad = std::find_if(band.coefficients.begin(), band.coefficients.end(),
                                  [](double value) { return !std::isfinite(value); });
    if (bad != band.coefficients.end()) {
      not_finite.Note(name + " has a coefficient that is not finite, " + Number(*bad) +
                      " for band " + std::to_string(bad - band.coefficients.begin()));
    }
    if (band.coefficients.size() != expected) {
      length.Note(name + " weighs " + std::to_string(band.coefficients.size()) + " bands, " +
                  against);
    }
    // NaN lies outside any grid.
    if (grid != nullptr && !grid->empty() &&
        !(band.wavelength_nm >= grid->front() && band.wavelength_nm <= grid->back())) {
      outside.Note(name + " at " + Number(band.wavelength_nm) +
                   " nm lies outside the calibration's grid, " + Number(grid->front()) + " to " +
                   Number(grid->back()) + " nm");
    }
  }
  std::vector<std::string> problems;
  not_finite.AddTo(problems, matrix.name);
  length.AddTo(problems, matrix.name);
  outside.AddTo(problems, matrix.name);
  return problems;
}

}  // namespace kelto::tools

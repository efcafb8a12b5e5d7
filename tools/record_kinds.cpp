#include "record_kinds.h"

#include <iomanip>

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
    out << "    " << component.GetFriendlyName() << '\n';
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

template <typename Record>
RecordKind Kind(const char* root, const char* class_name) {
  return {root, class_name, Make<Record>, Summarise<Record>};
}

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

}  // namespace kelto::tools

#include "record_kinds.h"

#include <iomanip>

#include <kelto/hyperspectral.h>

namespace kelto::tools {

namespace {

using hyperspectral::CalibrationInfo;
using hyperspectral::SensorInfo;

template <typename Record>
std::unique_ptr<common::XMLSerializableInterface> Make() {
  return std::make_unique<Record>();
}

void SummariseSensorInfo(const common::XMLSerializableInterface& record, std::ostream& out) {
  const auto& sensor = static_cast<const SensorInfo&>(record);
  out << "sensor type:   " << sensor.GetTypeName() << '\n'
      << "pixels:        " << sensor.width_px << " x " << sensor.height_px << '\n'
      << "pixel pitch:   " << sensor.pixel_pitch_um << " um\n"
      << "bit depth:     " << sensor.bit_depth << '\n'
      << "overall gain:  " << sensor.overall_gain << " DN/e-\n";
  if (sensor.sensor_type == common::SensorTypes::VKR9) {
    out << "analog gain:   " << sensor.analog_gain << '\n'
        << "digital gain:  " << sensor.digital_gain << '\n'
        << "full well:     " << sensor.full_well_capacity_e << " e-\n";
  } else if (sensor.sensor_type == common::SensorTypes::TEM480) {
    out << "gain mode:     " << (sensor.gain_mode.empty() ? "(none)" : sensor.gain_mode) << '\n';
  }
}

void SummariseCalibrationInfo(const common::XMLSerializableInterface& record, std::ostream& out) {
  const auto& grid = static_cast<const CalibrationInfo&>(record).sample_points_nm;
  out << "sample points: " << grid.size() << '\n';
  if (!grid.empty()) {
    out << "wavelengths:   " << grid.front() << " to " << grid.back() << " nm";
    if (grid.size() > 1) {
      out << ", mean step " << (grid.back() - grid.front()) / static_cast<double>(grid.size() - 1)
          << " nm";
    }
    out << '\n';
  }
}

}  // namespace

const std::vector<RecordKind>& RecordKinds() {
  static const std::vector<RecordKind> kinds = {
      {"sensor_info", "SensorInfo", Make<SensorInfo>, SummariseSensorInfo},
      {"calibration_info", "CalibrationInfo", Make<CalibrationInfo>, SummariseCalibrationInfo},
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

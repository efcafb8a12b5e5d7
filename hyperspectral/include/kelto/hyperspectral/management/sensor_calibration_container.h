// The calibrations that a program has found, each loaded from a file of its own and kept by
// value, looked up by sensor_id. A file whose read reports anything above Ok is refused with one
// message per event; of two files with the same sensor_id the first one stays.
// Thread-safety: no lock; a container belongs to one thread at a time.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <kelto/common/message_reporter.h>
#include <kelto/common/path.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SensorCalibrationContainer {
 public:
  // Reads the file and keeps the calibration if the read gave no event above Ok. Otherwise each
  // such event goes to the reporter as "<path> - <event>" (nothing is sent for a null reporter)
  // and the container stays as it was; a warning is enough to refuse a file. A calibration whose
  // sensor_id is already held is dropped without a message. The caller sees a refusal only
  // through HasSensorCalibration.
  void AddSensorCalibration(const common::filesystem::Path& path,
                            common::MessageReporter* reporter);

  // All calibrations in the order in which they were added.
  const std::vector<SensorCalibration>& GetSensorCalibration() const;
  // A copy of the calibration of that id; std::logic_error "Sensor calibration id not found"
  // (also logged) when there is none.
  SensorCalibration GetSensorCalibration(const std::string& sensor_id) const;
  bool HasSensorCalibration(const std::string& sensor_id) const;
  // The stem of the file that the calibration of that id came from; std::logic_error "Sensor
  // calibration not found" (also logged) when there is none.
  std::string GetFileName(const std::string& sensor_id) const;

 private:
  std::vector<SensorCalibration> calibrations_;
  std::map<std::string, std::string> file_names_;
};

}  // namespace kelto::hyperspectral

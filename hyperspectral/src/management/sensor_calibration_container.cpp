#include <kelto/hyperspectral/management/sensor_calibration_container.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <kelto/common/logger.h>

namespace kelto::hyperspectral {

using ParsingResult = SensorCalibration::ParsingResult;

namespace {

std::vector<SensorCalibration>::const_iterator Find(
    const std::vector<SensorCalibration>& calibrations, const std::string& sensor_id) {
  return std::find_if(
      calibrations.begin(), calibrations.end(),
      [&](const SensorCalibration& calibration) { return calibration.sensor_id == sensor_id; });
}

}  // namespace

void SensorCalibrationContainer::AddSensorCalibration(const common::filesystem::Path& path,
                                                      common::MessageReporter* reporter) {
  // Without throwing, a read always returns and its events tell the whole story, which is what
  // the refusal below is made of.
  ParsingResult result(false, false, true, true, true);
  SensorCalibration calibration;
  calibration.ReadFile(result, path);

  bool refused = false;
  for (const ParsingResult::Event& event : result.events()) {
    if (event.state == ParsingResult::Ok) {
      continue;
    }
    refused = true;
    if (reporter != nullptr) {
      common::MessageReporter::Error(path.ToString() + " - " + event.ToString());
    }
  }
  if (refused) {
    return;
  }
  if (file_names_.count(calibration.sensor_id) != 0) {
    return;
  }
  const std::string sensor_id = calibration.sensor_id;
  calibrations_.push_back(std::move(calibration));
  file_names_.emplace(sensor_id, path.Stem());
}

const std::vector<SensorCalibration>& SensorCalibrationContainer::GetSensorCalibration() const {
  return calibrations_;
}

SensorCalibration SensorCalibrationContainer::GetSensorCalibration(
    const std::string& sensor_id) const {
  const auto found = Find(calibrations_, sensor_id);
  if (found == calibrations_.end()) {
    const char* text = "Sensor calibration id not found";
    common::Logger::StaticError(text);
    throw std::logic_error(text);
  }
  return *found;
}

bool SensorCalibrationContainer::HasSensorCalibration(const std::string& sensor_id) const {
  return Find(calibrations_, sensor_id) != calibrations_.end();
}

std::string SensorCalibrationContainer::GetFileName(const std::string& sensor_id) const {
  const auto found = file_names_.find(sensor_id);
  if (found == file_names_.end()) {
    const char* text = "Sensor calibration not found";
    common::Logger::StaticError(text);
    throw std::logic_error(text);
  }
  return found->second;
}

}  // namespace kelto::hyperspectral

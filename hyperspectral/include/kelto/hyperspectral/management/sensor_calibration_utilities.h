// The structured name of a calibration file: sensor type, filter family, spectral range and a
// four-part version, as in "VKR9-MZT4x4-470_620-1.2.3.4". Tools name calibration files by it,
// and a calibration loaded from a file can be brought in line with what its name says.
// Thread-safety: no state; safe from any thread on separate calibrations.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include <kelto/common/filter_pattern.h>
#include <kelto/common/sensor_types.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

// What a calibration file name says, part by part.
class KELTO_HYPERSPECTRAL_EXPORT SensorCalibrationParts {
 public:
  virtual ~SensorCalibrationParts() = default;

  common::SensorTypes::eType sensor_type = common::SensorTypes::Unknown;
  common::FilterPattern::eType filter_pattern = common::FilterPattern::Unknown;
  std::int32_t spectral_range_start_nm = 0;
  std::int32_t spectral_range_end_nm = 0;
  // The dotted version, left to right; -1 until a name has been parsed.
  std::array<std::int32_t, 4> version = {-1, -1, -1, -1};
  // Whatever follows the version, kept whole ("_test" of "...-1.0.0.0_test").
  std::string suffix;
};

class KELTO_HYPERSPECTRAL_EXPORT SensorCalibrationUtilities {
 public:
  // Names longer than this are refused before they are matched: the regular expression engine
  // recurses once per character and would exhaust the stack on a hostile name, while a file
  // system allows at most a few hundred characters in a name anyway.
  static constexpr std::size_t kMaxFilenameLength = 1024;

  // calibration.GetTypeName(), "-", the calibration's sensor_id: the name (without extension)
  // that ParseSensorCalibrationFilename reads back.
  static std::string GetSensorCalibrationFilename(const SensorCalibration& calibration);

  // Splits a name (a file stem, no directory, no extension). Throws std::invalid_argument
  // "Invalid sensor calibration filename: <name>" for a name of another form, "Invalid sensor
  // type: <part>" and "Invalid filter type: <part>" for parts that are not known; a number too
  // long for 32 bits throws std::out_of_range from std::stoi. The range "RGB-NIR" is 470 to 850.
  static SensorCalibrationParts ParseSensorCalibrationFilename(const std::string& name);

  // Sets the spectral range of the calibration's first filter zone to the range in the name,
  // widened for the two mosaics whose name states a narrower range than the zone covers (4 by 4
  // at 600_850 becomes 595 to 860, 5 by 5 at 670_950 becomes 665 to 975). A calibration without
  // zones is left as it is. A name that doesn't parse throws std::invalid_argument "Ill-formed
  // sensor calibration file: <reason>" and leaves the calibration untouched.
  static void UpdateSensorCalibration(SensorCalibration& calibration, const std::string& name);
};

}  // namespace kelto::hyperspectral

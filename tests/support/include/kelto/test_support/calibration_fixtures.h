// Calibration pieces that several tests of the hyperspectral library build on: header only, for
// the tests that link that library.
#pragma once

#include <kelto/hyperspectral/calibration/sensor_info.h>

namespace kelto::testing {

// The VKR9 chip as the bundled calibrations describe it: 2048 x 1088 pixels of 5.5 um, 10 bits,
// and an overall gain that agrees with its full well and gains.
inline hyperspectral::SensorInfo Vkr9Sensor() {
  hyperspectral::SensorInfo sensor;
  sensor.sensor_type = common::SensorTypes::VKR9;
  sensor.width_px = 2048;
  sensor.height_px = 1088;
  sensor.pixel_pitch_um = 5.5;
  sensor.bit_depth = 10;
  sensor.analog_gain = 3.2;
  sensor.digital_gain = 1.0;
  sensor.full_well_capacity_e = 13500;
  sensor.overall_gain = 0.2427;
  return sensor;
}

}  // namespace kelto::testing

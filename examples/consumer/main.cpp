// Reads a sensor block from text, checks it and writes it back, and loads an embedded parameter
// document: the smallest useful program against the installed libraries. Exits non-zero if
// anything is off.

#include <iostream>

#include <kelto/hyperspectral.h>

int main() {
  using kelto::hyperspectral::SensorInfo;
  const std::string xml = R"(<sensor_info version="2" sensor_type="TEM480">
      <width_px>640</width_px><height_px>512</height_px><pixel_pitch_um>15</pixel_pitch_um>
      <bit_depth>14</bit_depth><overall_gain>0.5</overall_gain><gain_mode>high</gain_mode>
    </sensor_info>)";

  SensorInfo sensor;
  SensorInfo::ParsingResult result;
  sensor.ReadString(result, xml);
  for (const auto& event : result.events()) {
    std::cout << event.ToString() << '\n';
  }

  SensorInfo copy;
  SensorInfo::ParsingResult again;
  copy.ReadString(again, sensor.WriteString());

  // The parameter documents travel inside the installed library.
  kelto::hyperspectral::CorrectionMatrixParameters parameters;
  kelto::hyperspectral::utilities::LoadCorrectionMatrixParameters(parameters,
                                                                  "VKR9-MZT4x4-470_620");

  const bool ok = parameters.peak_detection.peaks_nr_max == 2 && result.state() == 0 &&
                  again.state() == 0 && copy == sensor && sensor.GetTypeName() == "TEM480" &&
                  SensorInfo::TEM480_GainModes::FromString(sensor.gain_mode) ==
                      SensorInfo::TEM480_GainModes::GM_HIGH;
  std::cout << "libkelto " << kelto::common::GetVersionString() << ": "
            << (ok ? "sensor block read, checked and written" : "FAILED") << '\n';
  return ok ? 0 : 1;
}

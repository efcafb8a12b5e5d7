// A deterministic simulator of sensor calibrations: it builds the records of a calibration as a
// measuring station would fill them, with physically plausible band responses, and writes them
// through the library's own writer. The bundled sample calibrations come from here, and so do the
// fixtures of tests and benchmarks.
#pragma once

#include <string>
#include <vector>

#include <kelto/hyperspectral/calibration/sensor_calibration.h>

namespace kelto::tools {

// One band's filter as built: a Fabry-Perot transmission peak with a weaker neighbouring order
// and a little broadband leakage, seen through the detector's quantum efficiency.
struct SimulatedFilter {
  double centre_nm;
  double fwhm_nm;
};

class CalibrationSimulator {
 public:
  // The calibrations bundled as samples, each named by its GetTypeName().
  static std::vector<hyperspectral::SensorCalibration> Samples();

  // The response of one filter on the grid: transmission times quantum efficiency. `ingaas`
  // selects the detector (InGaAs for short-wave infrared, else silicon).
  static std::vector<double> Response(const SimulatedFilter& filter,
                                      const std::vector<double>& grid_nm, bool ingaas);
  // The band with its response and the true peaks the response was made from: the main peak
  // (order 1) and the neighbouring order where it falls on the grid (order 2).
  static hyperspectral::FilterZone::BandInfo Band(const SimulatedFilter& filter,
                                                  unsigned long pattern_position,
                                                  const std::vector<double>& grid_nm, bool ingaas);
  // Quantum efficiency of the detector at a wavelength, as a fraction.
  static double QuantumEfficiency(double wavelength_nm, bool ingaas);

  // A bandpass filter in front of the sensor that passes start_nm to end_nm (half-transmission
  // edges) and blocks the rest, as the visible mosaics carry to keep leakage and neighbouring
  // orders out.
  static hyperspectral::OpticalComponent Bandpass(double start_nm, double end_nm,
                                                  const std::vector<double>& grid_nm);
  // The transmission of all optical components of the calibration on its grid (1 without any);
  // components sampled on another grid are interpolated linearly.
  static std::vector<double> OpticsTransmission(
      const hyperspectral::SensorCalibration& calibration);

  // The reference of every evaluation, "true_peaks": the correction matrix that the library's own
  // stages make, with the calibration's parameter document, from the bands' true main peaks
  // instead of fitted ones (every band used, responses through the optics normalised for
  // reflectance, one virtual filter per band, then the document's post-processing). Its rows apply
  // to white-referenced bands.
  static hyperspectral::CorrectionMatrix TruePeakCorrection(
      const hyperspectral::SensorCalibration& calibration);
};

}  // namespace kelto::tools

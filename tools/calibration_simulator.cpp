#include "calibration_simulator.h"

#include <algorithm>
#include <cmath>
#include <list>
#include <stdexcept>

#include <kelto/common/three_parameters_function.h>
#include <kelto/common/version.h>
#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>
#include <kelto/hyperspectral/correction/utilities.h>

namespace kelto::tools {

namespace {

using hyperspectral::FilterZone;
using hyperspectral::SensorCalibration;
using BandInfo = FilterZone::BandInfo;
using Peak = FilterZone::BandInfo::PeakInfo;

// Thin-film cavities of these sensors work in the second order, so the neighbouring orders lie
// at 2/3 and 2 times the centre; the nearer one that falls on the grid is kept.
constexpr double kCavityOrder = 2.0;
constexpr double kNeighbourHeight = 0.3;
constexpr double kPeakTransmission = 0.85;
constexpr double kLeakage = 0.015;

const common::FabryPerotDistribution kCavity(true);

std::vector<double> Grid(double start_nm, double end_nm) {
  std::vector<double> grid;
  for (double wavelength = start_nm; wavelength <= end_nm; wavelength += 1.0) {
    grid.push_back(wavelength);
  }
  return grid;
}

// The neighbouring order of a filter on the grid, or a centre of 0 if none falls on it.
SimulatedFilter Neighbour(const SimulatedFilter& filter, const std::vector<double>& grid_nm) {
  for (double factor : {kCavityOrder / (kCavityOrder + 1.0), kCavityOrder}) {
    const double centre = filter.centre_nm * factor;
    if (centre >= grid_nm.front() && centre <= grid_nm.back()) {
      return {centre, filter.fwhm_nm * factor};
    }
  }
  return {0.0, 0.0};
}

double Transmission(const SimulatedFilter& filter, double wavelength_nm) {
  return kCavity(filter.centre_nm, kCavity.FWHMToParam(filter.fwhm_nm), 1.0, wavelength_nm);
}

SensorCalibration Calibration(const std::string& sensor_id) {
  SensorCalibration calibration;
  calibration.sensor_id = sensor_id;
  calibration.created = common::time::UniversalTimeFromString("2026-01-15T08:00:00Z");
  calibration.modified = common::time::UniversalTimeFromString("2026-01-15T09:30:00Z");
  calibration.software = "kelto-sim";
  calibration.software_version = common::GetVersionString();
  return calibration;
}

// A calibration of the VKR9 chip whose responses are sampled on grid_nm.
SensorCalibration Vkr9(const std::string& sensor_id, const std::vector<double>& grid_nm) {
  SensorCalibration calibration = Calibration(sensor_id);
  calibration.filter_info.calibration_info.sample_points_nm = grid_nm;
  hyperspectral::SensorInfo& sensor = calibration.sensor_info;
  sensor.sensor_type = common::SensorTypes::VKR9;
  sensor.width_px = 2048;
  sensor.height_px = 1088;
  sensor.pixel_pitch_um = 5.5;
  sensor.bit_depth = 10;
  sensor.analog_gain = 3.2;
  sensor.digital_gain = 1.0;
  sensor.full_well_capacity_e = 13500;
  sensor.overall_gain = 0.2427;
  return calibration;
}

// A zone whose bands have evenly spread centres from first to last, with widths growing
// linearly from fwhm_first to fwhm_last.
FilterZone Zone(FilterZone::eFilterLayout layout, unsigned long index,
                common::RegionOfInterest area, unsigned long pattern_width,
                unsigned long pattern_height, double first_nm, double last_nm, double fwhm_first_nm,
                double fwhm_last_nm, const std::vector<double>& grid_nm, bool ingaas) {
  FilterZone zone(layout);
  zone.index = index;
  zone.filter_area = area;
  zone.pattern_width = pattern_width;
  zone.pattern_height = pattern_height;
  zone.filter_width = static_cast<unsigned long>(area.width) / pattern_width;
  zone.filter_height = static_cast<unsigned long>(area.height) / pattern_height;
  if (layout == FilterZone::MOSAIC) {
    zone.filter_width = 1;
    zone.filter_height = 1;
  }
  zone.spectral_range_start_nm = first_nm;
  zone.spectral_range_end_nm = last_nm;
  const unsigned long count = pattern_width * pattern_height;
  for (unsigned long i = 0; i < count; ++i) {
    const double t = count == 1 ? 0.0 : static_cast<double>(i) / static_cast<double>(count - 1);
    const SimulatedFilter filter{first_nm + t * (last_nm - first_nm),
                                 fwhm_first_nm + t * (fwhm_last_nm - fwhm_first_nm)};
    zone.bands.push_back(CalibrationSimulator::Band(filter, i, grid_nm, ingaas));
  }
  return zone;
}

}  // namespace

double CalibrationSimulator::QuantumEfficiency(double wavelength_nm, bool ingaas) {
  if (ingaas) {
    // A flat plateau with the cut-on of the substrate and the cut-off of the band gap.
    return 0.8 / (1.0 + std::exp((wavelength_nm - 1650.0) / 20.0)) /
           (1.0 + std::exp((950.0 - wavelength_nm) / 25.0));
  }
  // Silicon: best in the red, falling towards the blue and into the near infrared.
  const double u = (wavelength_nm - 600.0) / 210.0;
  return 0.62 * std::exp(-0.5 * u * u);
}

std::vector<double> CalibrationSimulator::Response(const SimulatedFilter& filter,
                                                   const std::vector<double>& grid_nm,
                                                   bool ingaas) {
  const SimulatedFilter neighbour = Neighbour(filter, grid_nm);
  std::vector<double> response;
  response.reserve(grid_nm.size());
  for (double wavelength : grid_nm) {
    double transmission = Transmission(filter, wavelength);
    if (neighbour.centre_nm > 0.0) {
      transmission += kNeighbourHeight * Transmission(neighbour, wavelength);
    }
    transmission += kLeakage * (1.0 + 0.3 * std::sin(wavelength / 37.0));
    response.push_back(kPeakTransmission * transmission * QuantumEfficiency(wavelength, ingaas));
  }
  return response;
}

BandInfo CalibrationSimulator::Band(const SimulatedFilter& filter, unsigned long pattern_position,
                                    const std::vector<double>& grid_nm, bool ingaas) {
  BandInfo band;
  band.pattern_position_index = pattern_position;
  band.selected = true;
  band.response = Response(filter, grid_nm, ingaas);

  // The share of each peak is its area, height times width, through the detector.
  const SimulatedFilter neighbour = Neighbour(filter, grid_nm);
  const double main_area = filter.fwhm_nm * QuantumEfficiency(filter.centre_nm, ingaas);
  const double neighbour_area =
      neighbour.centre_nm > 0.0
          ? kNeighbourHeight * neighbour.fwhm_nm * QuantumEfficiency(neighbour.centre_nm, ingaas)
          : 0.0;
  const auto peak = [&](const SimulatedFilter& source, unsigned long order, double height,
                        double area) {
    Peak result;
    result.shape = hyperspectral::Distributions::DB_FABRY_PEROT;
    result.order = order;
    result.wavelength_nm = source.centre_nm;
    result.fwhm_nm = source.fwhm_nm;
    result.quantum_efficiency =
        kPeakTransmission * height * QuantumEfficiency(source.centre_nm, ingaas);
    result.contribution = area / (main_area + neighbour_area);
    result.fit_error = 0.0;
    return result;
  };
  band.peaks.push_back(peak(filter, 1, 1.0, main_area));
  if (neighbour.centre_nm > 0.0) {
    band.peaks.push_back(peak(neighbour, 2, kNeighbourHeight, neighbour_area));
  }
  return band;
}

hyperspectral::OpticalComponent CalibrationSimulator::Bandpass(double start_nm, double end_nm,
                                                               const std::vector<double>& grid_nm) {
  hyperspectral::OpticalComponent filter;
  filter.type = hyperspectral::OpticalComponents::OC_BANDPASS_FILTER;
  filter.manufacturer = "kelto-sim";
  filter.part_id = "BP-" + std::to_string(static_cast<int>(start_nm)) + "-" +
                   std::to_string(static_cast<int>(end_nm));
  filter.tag = "bandpass";
  filter.description = "simulated interference bandpass filter";
  filter.measurement = "simulated";
  filter.measured = common::time::DateFromString("2026-01-10");
  filter.sample_points_nm = grid_nm;
  for (double wavelength : grid_nm) {
    // Steep interference edges, 95 % in the pass band, 0.1 % blocking outside.
    const double edge = 1.0 / (1.0 + std::exp(-(wavelength - start_nm) / 2.5)) /
                        (1.0 + std::exp((wavelength - end_nm) / 2.5));
    filter.response.push_back(0.001 + 0.949 * edge);
  }
  filter.transmission_range_start_nm = start_nm;
  filter.transmission_range_end_nm = end_nm;
  return filter;
}

std::vector<double> CalibrationSimulator::OpticsTransmission(const SensorCalibration& calibration) {
  const std::vector<double>& grid = calibration.filter_info.calibration_info.sample_points_nm;
  std::vector<double> transmission(grid.size(), 1.0);
  for (const auto& component : calibration.system_info.optical_components) {
    const std::vector<double>& x = component.sample_points_nm;
    const std::vector<double>& t = component.response;
    if (x.size() != t.size() || x.empty()) {
      throw std::invalid_argument("optics: component \"" + component.part_id +
                                  "\" has no usable transmission curve");
    }
    for (std::size_t i = 0; i < grid.size(); ++i) {
      const auto upper = std::lower_bound(x.begin(), x.end(), grid[i]);
      double value = upper == x.end() ? t.back() : t[static_cast<std::size_t>(upper - x.begin())];
      if (upper != x.begin() && upper != x.end() && *upper != grid[i]) {
        const auto k = static_cast<std::size_t>(upper - x.begin());
        const double f = (grid[i] - x[k - 1]) / (x[k] - x[k - 1]);
        value = t[k - 1] + f * (t[k] - t[k - 1]);
      }
      transmission[i] *= value;
    }
  }
  return transmission;
}

hyperspectral::CorrectionMatrix CalibrationSimulator::TruePeakCorrection(
    const SensorCalibration& calibration) {
  using hyperspectral::PM_SensorResponseAnalysis;
  PM_SensorResponseAnalysis analysis{PM_SensorResponseAnalysis::Parameters()};
  hyperspectral::utilities::SetCorrectionMatrixParameters(analysis, calibration.GetTypeName());
  hyperspectral::PM_PeakDetection::Parameters detection;
  analysis.GetParameters(detection);
  PM_SensorResponseAnalysis::InitializationData data;
  data.filter_info = calibration.filter_info;
  analysis.Initialize(data);

  // Every band's true main peak, in the shape that the document fits.
  std::list<hyperspectral::PM_SpectralCorrectionComputation::PeakInfo> peaks;
  for (unsigned long b = 0; b < calibration.filter_info.GetTotalNrBands(); ++b) {
    const Peak& truth = calibration.filter_info.GetBand(b).peaks.front();
    hyperspectral::PM_SpectralCorrectionComputation::PeakInfo peak;
    peak.wavelength = truth.wavelength_nm;
    peak.fwhm = truth.fwhm_nm;
    peak.shape = detection.distribution;
    peak.band = b;
    peaks.push_back(peak);
  }
  hyperspectral::CorrectionMatrix matrix;
  matrix.name = "true_peaks";
  analysis.ComputeCorrectionMatrixForPeaks(matrix, calibration.system_info.optical_components,
                                           peaks);
  matrix.created = calibration.modified;  // the samples stay the same from run to run
  return matrix;
}

std::vector<SensorCalibration> CalibrationSimulator::Samples() {
  std::vector<SensorCalibration> samples;
  const std::vector<double> visible = Grid(400.0, 1000.0);

  SensorCalibration mosaic4 = Vkr9("17.4.4.1", visible);
  mosaic4.filter_info.filter_zones.push_back(
      Zone(FilterZone::MOSAIC, 0, {0, 0, 2048, 1088}, 4, 4, 470, 620, 10, 13, visible, false));
  mosaic4.system_info.optical_components.push_back(Bandpass(460.0, 630.0, visible));
  samples.push_back(mosaic4);

  SensorCalibration mosaic5 = Vkr9("17.5.5.2", visible);
  mosaic5.filter_info.filter_zones.push_back(
      Zone(FilterZone::MOSAIC, 0, {0, 0, 2045, 1085}, 5, 5, 600, 1000, 14, 20, visible, false));
  samples.push_back(mosaic5);

  SensorCalibration wedge = Vkr9("12.150.0.3", visible);
  wedge.filter_info.filter_zones.push_back(
      Zone(FilterZone::WEDGE, 0, {0, 0, 2048, 250}, 1, 50, 470, 600, 8, 9, visible, false));
  wedge.filter_info.filter_zones.push_back(
      Zone(FilterZone::WEDGE, 1, {0, 250, 2048, 500}, 1, 100, 600, 900, 9, 12, visible, false));
  samples.push_back(wedge);

  SensorCalibration tiles = Vkr9("14.32.0.4", visible);
  tiles.filter_info.filter_zones.push_back(
      Zone(FilterZone::TILED, 0, {0, 0, 2048, 1088}, 8, 4, 600, 1000, 15, 18, visible, false));
  samples.push_back(tiles);

  SensorCalibration swir = Calibration("31.4.4.5");
  hyperspectral::SensorInfo& sensor = swir.sensor_info;
  sensor.sensor_type = common::SensorTypes::TEM480;
  sensor.width_px = 640;
  sensor.height_px = 512;
  sensor.pixel_pitch_um = 15.0;
  sensor.bit_depth = 14;
  sensor.overall_gain = 0.35;
  sensor.gain_mode = "high";
  const std::vector<double> infrared = Grid(1000.0, 1750.0);
  swir.filter_info.calibration_info.sample_points_nm = infrared;
  swir.filter_info.filter_zones.push_back(
      Zone(FilterZone::MOSAIC, 0, {0, 0, 640, 512}, 4, 4, 1100, 1700, 20, 30, infrared, true));
  samples.push_back(swir);
  for (SensorCalibration& sample : samples) {
    sample.system_info.spectral_correction_info.correction_matrices.push_back(
        TruePeakCorrection(sample));
  }
  return samples;
}

}  // namespace kelto::tools

#include <kelto/hyperspectral/management/filter_responses.h>

#include <stdexcept>
#include <string>

namespace kelto::hyperspectral::Utilities {

namespace {

void CopyPeak(const FilterZone::BandInfo::PeakInfo& peak, common::FilterResponse::Peak& target) {
  target.wavelength_nm = peak.wavelength_nm;
  target.fwhm_nm = peak.fwhm_nm;
  target.quantum_efficiency = peak.quantum_efficiency;
}

}  // namespace

std::vector<common::FilterResponse> GetFilterResponses(
    const SensorCalibration& calibration, const bool& selected_only,
    std::vector<common::FilterResponse>& responses) {
  responses.clear();
  const std::vector<double>& grid = calibration.filter_info.calibration_info.sample_points_nm;
  const std::deque<FilterZone>& zones = calibration.filter_info.filter_zones;
  for (std::size_t z = 0; z < zones.size(); ++z) {
    const std::deque<FilterZone::BandInfo>& bands = zones[z].bands;
    for (std::size_t b = 0; b < bands.size(); ++b) {
      const FilterZone::BandInfo& band = bands[b];
      if (selected_only && !band.selected) {
        continue;
      }
      // The response is taken over the whole grid; one that ends early has no value for the
      // last wavelengths, and reading on would read past its end.
      if (band.response.size() < grid.size()) {
        responses.clear();
        throw std::invalid_argument("Band " + std::to_string(b) + " of filter zone " +
                                    std::to_string(z) + " has " +
                                    std::to_string(band.response.size()) + " response values for " +
                                    std::to_string(grid.size()) + " sample points");
      }
      common::FilterResponse response(band.response.data(), grid.data(), grid.size(),
                                      band.pattern_position_index);
      if (!band.peaks.empty()) {
        CopyPeak(band.peaks[0], response.first_peak);
      }
      if (band.peaks.size() > 1) {
        CopyPeak(band.peaks[1], response.second_peak);
      }
      responses.push_back(response);
    }
  }
  return std::vector<common::FilterResponse>(responses.begin(), responses.end());
}

std::vector<common::FilterResponse> GetFilterResponses(const SensorCalibration& calibration,
                                                       const bool& selected_only) {
  std::vector<common::FilterResponse> responses;
  GetFilterResponses(calibration, selected_only, responses);
  return responses;
}

}  // namespace kelto::hyperspectral::Utilities

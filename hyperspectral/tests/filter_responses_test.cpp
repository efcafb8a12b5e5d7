#include <kelto/hyperspectral/management/filter_responses.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace kelto::hyperspectral {
namespace {

using Band = FilterZone::BandInfo;
using Peak = Band::PeakInfo;

Peak MakePeak(double wavelength_nm, double fwhm_nm, double quantum_efficiency) {
  Peak peak;
  peak.wavelength_nm = wavelength_nm;
  peak.fwhm_nm = fwhm_nm;
  peak.quantum_efficiency = quantum_efficiency;
  peak.contribution = 0.5;
  return peak;
}

Band MakeBand(unsigned long index, bool selected, std::vector<double> response,
              std::vector<Peak> peaks) {
  Band band;
  band.pattern_position_index = index;
  band.selected = selected;
  band.response = std::move(response);
  band.peaks.assign(peaks.begin(), peaks.end());
  return band;
}

// Two zones on a three-point grid: a mosaic with bands 2 (two peaks), 0 (three peaks, not
// selected) and 1 (no peak), and a wedge with band 0 (one peak).
SensorCalibration TwoZones() {
  SensorCalibration calibration;
  calibration.filter_info.calibration_info.sample_points_nm = {500.0, 510.0, 520.0};
  FilterZone mosaic(FilterZone::MOSAIC);
  mosaic.bands.push_back(MakeBand(2, true, {0.1, 0.2, 0.3},
                                  {MakePeak(510.0, 12.0, 0.6), MakePeak(1020.0, 20.0, 0.1)}));
  mosaic.bands.push_back(MakeBand(
      0, false, {0.4, 0.5, 0.6},
      {MakePeak(500.0, 8.0, 0.7), MakePeak(1000.0, 9.0, 0.2), MakePeak(1500.0, 10.0, 0.05)}));
  mosaic.bands.push_back(MakeBand(1, true, {0.7, 0.8, 0.9}, {}));
  FilterZone wedge(FilterZone::WEDGE);
  wedge.bands.push_back(MakeBand(0, true, {1.0, 1.1, 1.2}, {MakePeak(520.0, 15.0, 0.9)}));
  calibration.filter_info.filter_zones = {mosaic, wedge};
  return calibration;
}

void ExpectPeak(const common::FilterResponse::Peak& peak, double wavelength_nm, double fwhm_nm,
                double quantum_efficiency) {
  EXPECT_EQ(peak.wavelength_nm, wavelength_nm);
  EXPECT_EQ(peak.fwhm_nm, fwhm_nm);
  EXPECT_EQ(peak.quantum_efficiency, quantum_efficiency);
}

TEST(FilterResponses, EveryBandZoneByZoneInStoredOrder) {
  const std::vector<common::FilterResponse> all = Utilities::GetFilterResponses(TwoZones(), false);
  ASSERT_EQ(all.size(), 4u);
  const std::vector<double> grid = {500.0, 510.0, 520.0};
  const std::vector<unsigned long> indices = {2, 0, 1, 0};
  const std::vector<std::vector<double>> responses = {
      {0.1, 0.2, 0.3}, {0.4, 0.5, 0.6}, {0.7, 0.8, 0.9}, {1.0, 1.1, 1.2}};
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].index, indices[i]) << i;
    EXPECT_EQ(all[i].response, responses[i]) << i;
    EXPECT_EQ(all[i].wavelengths, grid) << i;
  }
  // The first two peaks only; a band without peaks keeps the constructor's zeros.
  ExpectPeak(all[0].first_peak, 510.0, 12.0, 0.6);
  ExpectPeak(all[0].second_peak, 1020.0, 20.0, 0.1);
  ExpectPeak(all[1].first_peak, 500.0, 8.0, 0.7);
  ExpectPeak(all[1].second_peak, 1000.0, 9.0, 0.2);
  ExpectPeak(all[2].first_peak, 0.0, 0.0, 0.0);
  ExpectPeak(all[2].second_peak, 0.0, 0.0, 0.0);
  ExpectPeak(all[3].first_peak, 520.0, 15.0, 0.9);
  ExpectPeak(all[3].second_peak, 0.0, 0.0, 0.0);
}

TEST(FilterResponses, SelectedOnlySkipsTheOthers) {
  const std::vector<common::FilterResponse> selected =
      Utilities::GetFilterResponses(TwoZones(), true);
  ASSERT_EQ(selected.size(), 3u);
  EXPECT_EQ(selected[0].index, 2u);
  EXPECT_EQ(selected[1].index, 1u);
  EXPECT_EQ(selected[2].index, 0u);
  EXPECT_EQ(selected[2].response, (std::vector<double>{1.0, 1.1, 1.2}));

  SensorCalibration none = TwoZones();
  for (FilterZone& zone : none.filter_info.filter_zones) {
    for (Band& band : zone.bands) {
      band.selected = false;
    }
  }
  EXPECT_TRUE(Utilities::GetFilterResponses(none, true).empty());
  EXPECT_EQ(Utilities::GetFilterResponses(none, false).size(), 4u);
}

TEST(FilterResponses, TheOutputListIsReplacedAndTheResultIsACopyOfIt) {
  std::vector<common::FilterResponse> responses(7);
  const std::vector<common::FilterResponse> result =
      Utilities::GetFilterResponses(TwoZones(), true, responses);
  ASSERT_EQ(responses.size(), 3u);
  ASSERT_EQ(result.size(), 3u);
  for (std::size_t i = 0; i < result.size(); ++i) {
    EXPECT_EQ(result[i].index, responses[i].index);
    EXPECT_EQ(result[i].response, responses[i].response);
    EXPECT_EQ(result[i].first_peak.wavelength_nm, responses[i].first_peak.wavelength_nm);
    EXPECT_NE(result[i].response.data(), responses[i].response.data());
  }
  // A calibration without zones, or with a zone without bands, empties the list too.
  Utilities::GetFilterResponses(SensorCalibration(), false, responses);
  EXPECT_TRUE(responses.empty());
  SensorCalibration empty_zone;
  empty_zone.filter_info.filter_zones.push_back(FilterZone(FilterZone::MOSAIC));
  responses.resize(2);
  EXPECT_TRUE(Utilities::GetFilterResponses(empty_zone, false, responses).empty());
  EXPECT_TRUE(responses.empty());
}

TEST(FilterResponses, TheGridDecidesTheCount) {
  // A response longer than the grid is cut to the grid.
  SensorCalibration longer = TwoZones();
  longer.filter_info.filter_zones[1].bands[0].response.push_back(9.9);
  const std::vector<common::FilterResponse> all = Utilities::GetFilterResponses(longer, false);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[3].response, (std::vector<double>{1.0, 1.1, 1.2}));

  // A shorter one has no values for the last wavelengths: refused, and the list left empty.
  SensorCalibration shorter = TwoZones();
  shorter.filter_info.filter_zones[1].bands[0].response.pop_back();
  std::vector<common::FilterResponse> responses(2);
  try {
    Utilities::GetFilterResponses(shorter, false, responses);
    ADD_FAILURE() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_EQ(std::string(error.what()),
              "Band 0 of filter zone 1 has 2 response values for 3 sample points");
  }
  EXPECT_TRUE(responses.empty());

  // An unselected short band is not looked at when only the selected ones are wanted.
  SensorCalibration unselected = TwoZones();
  unselected.filter_info.filter_zones[0].bands[1].response.clear();
  EXPECT_EQ(Utilities::GetFilterResponses(unselected, true).size(), 3u);
  EXPECT_THROW(Utilities::GetFilterResponses(unselected, false), std::invalid_argument);
}

}  // namespace
}  // namespace kelto::hyperspectral

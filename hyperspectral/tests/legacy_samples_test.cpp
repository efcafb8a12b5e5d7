// The hand-written files of tests/data/legacy/, one per historic form of a record and one whole
// calibration per old root version: each is read as a user's old file would be, with the exact
// list of what it reports beyond the bookkeeping, and the values it must land on.
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/filter_zone.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/calibration/rejection_filter.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using BandInfo = FilterZone::BandInfo;
using PeakInfo = FilterZone::BandInfo::PeakInfo;

std::string Sample(const std::string& name) {
  return std::string(KELTO_TEST_DATA_DIR) + "/legacy/" + name;
}

// Reads a sample into the record and gives the events worse than Ok.
template <typename Record>
EventList ReadSample(Record& record, const std::string& name) {
  ParsingResult result;
  record.ReadFile(result, Sample(name));
  return NotOk(result);
}

TEST(LegacySamples, Peaks) {
  PeakInfo peak;
  EXPECT_EQ(ReadSample(peak, "peak_v0.xml"), EventList{});
  EXPECT_EQ(peak.order, 1u);
  EXPECT_EQ(peak.wavelength_nm, 612.5);
  EXPECT_EQ(peak.fwhm_nm, 11.25);
  EXPECT_EQ(peak.quantum_efficiency, 0.5);  // 512 of 1024
  EXPECT_EQ(peak.shape, Distributions::DB_LORENTZIAN);
  EXPECT_EQ(peak.contribution, 1.0);
  EXPECT_TRUE(Checks(peak).empty());

  peak.fit_error = 0.5;
  EXPECT_EQ(ReadSample(peak, "peak_v1.xml"), EventList{});
  EXPECT_EQ(peak.order, 2u);
  EXPECT_EQ(peak.shape, Distributions::DB_LORENTZIAN);  // the older name "Lorentz"
  EXPECT_EQ(peak.quantum_efficiency, 0.125);
  EXPECT_EQ(peak.contribution, 0.3);
  EXPECT_EQ(peak.fit_error, 0.0);
}

TEST(LegacySamples, Bands) {
  BandInfo band;
  EXPECT_EQ(ReadSample(band, "band_v0.xml"), (EventList{Warning(kMissingElement, "fwhm_nm")}));
  EXPECT_EQ(band.pattern_position_index, 3u);
  EXPECT_TRUE(band.selected);
  EXPECT_EQ(band.response, (std::vector<double>{0.0, 0.25, 1.0, 0.5}));
  ASSERT_EQ(band.peaks.size(), 1u);
  EXPECT_EQ(band.peaks[0].wavelength_nm, 640.0);
  EXPECT_EQ(band.peaks[0].fwhm_nm, 0.0);
  EXPECT_EQ(Checks(band), (EventList{Check("0.0 < fwhm_nm")}));

  EXPECT_EQ(ReadSample(band, "band_v1.xml"), EventList{});
  EXPECT_EQ(band.pattern_position_index, 5u);
  EXPECT_FALSE(band.selected);
  EXPECT_EQ(band.response, (std::vector<double>{0.1, 1.0, 0.05}));
  ASSERT_EQ(band.peaks.size(), 2u);
  EXPECT_EQ(band.peaks[0].order, 1u);
  EXPECT_EQ(band.peaks[0].wavelength_nm, 880.0);
  EXPECT_EQ(band.peaks[0].fwhm_nm, 14.0);
  EXPECT_EQ(band.peaks[1].order, 2u);
  EXPECT_EQ(band.peaks[1].wavelength_nm, 440.0);
  EXPECT_EQ(band.peaks[1].fwhm_nm, 7.0);

  // Renumbered by share: the version 0 peak (share 1.0), then 0.7, then 0.2.
  EXPECT_EQ(ReadSample(band, "band_v2.xml"), EventList{});
  EXPECT_EQ(band.pattern_position_index, 1u);
  EXPECT_EQ(band.response, (std::vector<double>{2.0, 0.0}));
  ASSERT_EQ(band.peaks.size(), 3u);
  const double wavelengths[] = {940.0, 620.0, 470.0};
  for (unsigned long i = 0; i < 3; ++i) {
    EXPECT_EQ(band.peaks[i].wavelength_nm, wavelengths[i]) << i;
    EXPECT_EQ(band.peaks[i].order, i + 1) << i;
  }
  EXPECT_EQ(band.peaks[0].quantum_efficiency, 0.25);
  EXPECT_EQ(band.peaks[2].shape, Distributions::DB_GAUSSIAN);
}

TEST(LegacySamples, OpticalComponents) {
  OpticalComponent component;
  EXPECT_EQ(ReadSample(component, "optical_component_v0.xml"), EventList{});
  EXPECT_EQ(component.type, OpticalComponents::OC_BANDPASS_FILTER);
  EXPECT_EQ(component.part_id, "BP-450");
  EXPECT_EQ(component.measured, common::time::DateFromString("2011-03-07"));
  EXPECT_EQ(component.sample_points_nm, (std::vector<double>{400.0, 450.0, 500.0}));
  EXPECT_EQ(component.response, (std::vector<double>{0.1, 0.9, 0.2}));
  EXPECT_EQ(component.GetFriendlyName(), "bandpass filter: 425.0-475.0nm (Acme Optics)");
  EXPECT_TRUE(Checks(component).empty());

  EXPECT_EQ(ReadSample(component, "optical_component_v1.xml"),
            (EventList{Error(kMissingElement, "created")}));
  EXPECT_EQ(component.type, OpticalComponents::OC_SOURCE);
  EXPECT_EQ(component.measured, common::time::DateFromString("1900-01-01"));
  EXPECT_EQ(component.sample_points_nm, (std::vector<double>{400.0, 405.0, 410.0, 415.0}));
  EXPECT_EQ(component.GetFriendlyName(), "source: halogen 3200K (Lumen Works)");
}

TEST(LegacySamples, CorrectionMatrices) {
  using Version = std::pair<unsigned long, unsigned long>;
  CorrectionMatrix matrix;
  EXPECT_EQ(ReadSample(matrix, "correction_matrix_v0.xml"), EventList{});
  EXPECT_EQ(matrix.name, "hyperspectral");
  EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_TACKTILE_0);
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_UNKNOWN);
  ASSERT_EQ(matrix.virtual_bands.size(), 2u);
  EXPECT_EQ(matrix.virtual_bands[1].wavelength_nm, 640.0);
  EXPECT_EQ(matrix.virtual_bands[1].fwhm_nm, 15.0);
  EXPECT_EQ(matrix.virtual_bands[1].coefficients, (std::vector<double>{-0.5, 1.5, 0.125}));
  EXPECT_TRUE(Checks(matrix).empty());

  EXPECT_EQ(ReadSample(matrix, "correction_matrix_v1.xml"), EventList{});
  ASSERT_EQ(matrix.virtual_bands.size(), 1u);
  EXPECT_EQ(matrix.virtual_bands[0].fwhm_nm, 20.0);
  EXPECT_EQ(matrix.virtual_bands[0].coefficients, (std::vector<double>{0.75, 0.25}));

  EXPECT_EQ(ReadSample(matrix, "correction_matrix_v2.xml"), EventList{});
  EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("2012-06-30T14:05:00Z"));
  EXPECT_EQ(matrix.name, "daylight");
  EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_PITCHFORK_0);
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE);
  EXPECT_EQ(matrix.algorithm_version, (Version{0, 0}));
  ASSERT_EQ(matrix.virtual_bands.size(), 1u);
  EXPECT_EQ(matrix.virtual_bands[0].fwhm_nm, 12.5);

  EXPECT_EQ(ReadSample(matrix, "correction_matrix_v3.xml"), EventList{});
  EXPECT_EQ(matrix.created, common::time::UniversalTimeFromString("2013-01-02T03:04:05Z"));
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE);
  ASSERT_EQ(matrix.optical_components.size(), 1u);
  EXPECT_EQ(matrix.optical_components[0].measured, common::time::DateFromString("2012-11-20"));

  EXPECT_EQ(ReadSample(matrix, "correction_matrix_v4.xml"), EventList{});
  EXPECT_EQ(matrix.created, common::time::TimePoint());
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_IRRADIANCE);
  EXPECT_EQ(matrix.algorithm_version, (Version{2, 7}));
  EXPECT_TRUE(matrix.virtual_bands.empty());
  EXPECT_EQ(matrix.minimum_band_energy, 1.0);

  EXPECT_EQ(ReadSample(matrix, "correction_matrix_v5.xml"), EventList{});
  EXPECT_EQ(matrix.algorithm_version, (Version{1, 0}));
  EXPECT_EQ(matrix.minimum_band_energy, 0.05);
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE);
  ASSERT_EQ(matrix.virtual_bands.size(), 1u);
  EXPECT_EQ(matrix.virtual_bands[0].coefficients, (std::vector<double>{0.0, 0.5, 0.5}));
}

TEST(LegacySamples, RejectionFilter) {
  RejectionFilter filter;
  EXPECT_EQ(ReadSample(filter, "rejection_filter_v0.xml"), EventList{});
  EXPECT_EQ(filter.type, RejectionFilters::RF_BANDPASS_600EO_875EO);
  EXPECT_EQ(filter.wavelengths.Values(), (std::vector<double>{600.0, 625.0, 650.0, 675.0, 700.0}));
  const OpticalComponent component = filter.Convert();
  EXPECT_EQ(component.sample_points_nm.size(), 101u);
  EXPECT_EQ(component.response, (std::vector<double>{0.1, 0.6, 0.9, 0.7, 0.2}));
  EXPECT_EQ(component.tag, "bandpass_600eo-875eo");
  EXPECT_EQ(component.GetFriendlyName(), "bandpass filter: 625.0-675.0nm ()");
}

std::vector<unsigned long> Indices(const FilterZone& zone) {
  std::vector<unsigned long> indices;
  for (const BandInfo& band : zone.bands) {
    indices.push_back(band.pattern_position_index);
  }
  return indices;
}

TEST(LegacySamples, UnversionedMosaicFilter) {
  MosaicFilterZone zone;
  EXPECT_EQ(ReadSample(zone, "filter_unversioned_mosaic.xml"),
            (EventList{Warning(kMissingVersion, "filter"),
                       CheckWarning("active_area_width and mosaic_pattern_width")}));
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 8.0, 2048.0, 1080.0));
  EXPECT_EQ(zone.pattern_width, 4u);
  EXPECT_EQ(zone.pattern_height, 4u);
  EXPECT_EQ(zone.filter_width, 1u);
  EXPECT_EQ(zone.filter_height, 1u);
  EXPECT_EQ(zone.spectral_range_start_nm, 470.0);
  EXPECT_EQ(zone.spectral_range_end_nm, 620.0);
  ASSERT_EQ(zone.bands.size(), 16u);
  // Sorted on the new index, which counts rows from the top: the file's band 12 comes first,
  // its band 0 is 12th, its band 15 is 3rd.
  for (unsigned long i = 0; i < 16; ++i) {
    EXPECT_EQ(zone.bands[i].pattern_position_index, i);
  }
  const auto band_of_file = [&](unsigned long b) -> const BandInfo& {
    return zone.bands.at((3 - b / 4) * 4 + b % 4);
  };
  EXPECT_EQ(zone.bands[12].peaks.at(0).wavelength_nm, 470.0);
  EXPECT_EQ(zone.bands[3].peaks.at(0).wavelength_nm, 620.0);
  for (unsigned long b = 0; b < 16; ++b) {
    const BandInfo& band = band_of_file(b);
    ASSERT_EQ(band.peaks.size(), 1u);
    EXPECT_EQ(band.peaks[0].wavelength_nm, 470.0 + 10.0 * static_cast<double>(b)) << b;
    EXPECT_EQ(band.peaks[0].fwhm_nm, 8.0 + static_cast<double>(b % 4)) << b;
    // No selection list: every band takes part but band 5, switched off by its sign.
    EXPECT_EQ(band.selected, b != 5) << b;
    // Three samples, 64 (b + 1) (s + 1) in 10-bit numbers.
    const double unit = static_cast<double>(b + 1) / 16.0;
    EXPECT_EQ(band.response, (std::vector<double>{unit, 2.0 * unit, 3.0 * unit})) << b;
  }
  EXPECT_TRUE(Checks(zone).empty());
}

TEST(LegacySamples, UnversionedWedgeFilter) {
  WedgeFilterZone zone;
  EXPECT_EQ(
      ReadSample(zone, "filter_unversioned_wedge.xml"),
      (EventList{Warning(kMissingVersion, "filter"), Warning(kMissingValue, "active_area_offset_x"),
                 Warning(kLegacyDefault, "bands"),
                 CheckWarning("active_area_height and pattern_height")}));
  // The area begins at the first band's offset and holds four stripes of 10 lines.
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 100.0, 2048.0, 40.0));
  EXPECT_EQ(zone.pattern_width, 1u);
  EXPECT_EQ(zone.pattern_height, 4u);
  EXPECT_EQ(zone.filter_width, 2048u);
  EXPECT_EQ(zone.filter_height, 10u);
  EXPECT_EQ(Indices(zone), (std::vector<unsigned long>{0, 1, 2, 3}));
  // The file's last band lies on top.
  const double wavelengths[] = {900.0, 800.0, 700.0, 600.0};
  const double widths[] = {13.0, 0.0, 11.0, 10.0};
  const bool selected[] = {true, false, true, true};
  const std::vector<double> responses[] = {
      {0.0, 0.0, 1.0}, {0.0, 0.5, 0.0}, {0.0, 0.5, 0.0}, {1.0, 0.0, 0.0}};
  for (unsigned long i = 0; i < 4; ++i) {
    EXPECT_EQ(zone.bands[i].peaks.at(0).wavelength_nm, wavelengths[i]) << i;
    EXPECT_EQ(zone.bands[i].peaks.at(0).fwhm_nm, widths[i]) << i;
    EXPECT_EQ(zone.bands[i].selected, selected[i]) << i;
    EXPECT_EQ(zone.bands[i].response, responses[i]) << i;
  }
  EXPECT_EQ(Checks(zone), (EventList{Check("0.0 < fwhm_nm")}));
}

TEST(LegacySamples, UnversionedTiledFilter) {
  TiledFilterZone zone;
  EXPECT_EQ(ReadSample(zone, "filter_unversioned_tiled.xml"),
            (EventList{Warning(kMissingVersion, "filter")}));
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(16.0, 32.0, 512.0, 512.0));
  EXPECT_EQ(zone.pattern_width, 2u);
  EXPECT_EQ(zone.pattern_height, 2u);
  EXPECT_EQ(zone.filter_width, 256u);
  EXPECT_EQ(zone.filter_height, 256u);
  // Bands 0 to 3 on tiles 3 to 0, then on the mirrored row: tiles 1, 0, 3, 2.
  EXPECT_EQ(Indices(zone), (std::vector<unsigned long>{0, 1, 2, 3}));
  std::vector<double> wavelengths;
  for (const BandInfo& band : zone.bands) {
    wavelengths.push_back(band.peaks.at(0).wavelength_nm);
    EXPECT_TRUE(band.response.empty());
  }
  EXPECT_EQ(wavelengths, (std::vector<double>{750.0, 650.0, 950.0, 850.0}));
  EXPECT_TRUE(Checks(zone).empty());
}

TEST(LegacySamples, WedgeZoneOfVersionZero) {
  WedgeFilterZone zone;
  EXPECT_EQ(ReadSample(zone, "filter_zone_v0_wedge.xml"), EventList{});
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 100.0, 2048.0, 50.0));
  EXPECT_EQ(zone.pattern_height, 5u);
  EXPECT_EQ(zone.filter_height, 10u);
  ASSERT_EQ(zone.bands.size(), 5u);
  EXPECT_EQ(zone.bands[4].response, (std::vector<double>{0.0, 0.25}));
  // Widened, the area holds five whole stripes again.
  EXPECT_TRUE(Checks(zone).empty());
}

TEST(LegacySamples, FilterBlocks) {
  FilterInfo filter;
  EXPECT_EQ(ReadSample(filter, "filter_info_unversioned.xml"),
            (EventList{Check("!filter_zones.empty ()")}));
  EXPECT_EQ(filter.calibration_info.sample_points_nm,
            (std::vector<double>{600.0, 600.25, 600.5, 600.75, 601.0}));

  EXPECT_EQ(ReadSample(filter, "filter_info_v0.xml"),
            (EventList{Check("(i == filter_zone.index)")}));
  EXPECT_EQ(filter.calibration_info.sample_points_nm, (std::vector<double>{470.0, 685.0, 900.0}));
  ASSERT_EQ(filter.filter_zones.size(), 2u);
  EXPECT_EQ(filter.filter_zones[1].index, 0u);
  EXPECT_EQ(filter.filter_zones[1].filter_layout(), FilterZone::WEDGE);
  EXPECT_EQ(filter.GetTotalNrBands(), 3u);
  EXPECT_EQ(filter.GetTypeName(), "QL150-470_900");
}

// What a calibration of the current form holds after the legacy one is written and read back:
// times to the second, and a matrix of unknown type as a reflectance matrix.
SensorCalibration WrittenForm(SensorCalibration calibration) {
  const auto seconds = [](common::time::TimePoint time) {
    return std::chrono::floor<std::chrono::seconds>(time);
  };
  calibration.created = seconds(calibration.created);
  calibration.modified = seconds(calibration.modified);
  for (CorrectionMatrix& matrix :
       calibration.system_info.spectral_correction_info.correction_matrices) {
    if (matrix.type == CorrectionMatrixTypes::CT_UNKNOWN) {
      matrix.type = CorrectionMatrixTypes::CT_REFLECTANCE;
    }
  }
  return calibration;
}

// A legacy calibration written in the current form reads back whole and without complaint.
void ExpectCurrentFormReadsBack(const SensorCalibration& legacy) {
  SensorCalibration current;
  const auto result = Read(current, legacy.WriteString());
  EXPECT_EQ(NotOk(result), EventList{});
  EXPECT_TRUE(current == WrittenForm(legacy));
}

TEST(LegacySamples, UnversionedCalibration) {
  SensorCalibration calibration;
  const auto before = common::time::CurrentUniversalTime();
  calibration.modified = before;
  EXPECT_EQ(
      ReadSample(calibration, "calibration_unversioned.xml"),
      (EventList{Warning(kMissingVersion, "sensor_calibration"),
                 Check("The .xml file is not of type SensorInfo"),
                 Warning(kMissingVersion, "sensor"), Check("!filter_zones.empty ()"),
                 Warning(kMissingVersion, "filter"), Warning(kMissingValue, "active_area_width")}));
  EXPECT_EQ(calibration.sensor_id, "0.0.0.0");
  EXPECT_EQ(calibration.created, common::time::TimePoint());
  EXPECT_EQ(calibration.modified, before);  // not in such a file
  EXPECT_EQ(calibration.sensor_info.sensor_type, common::SensorTypes::VKR9);
  EXPECT_EQ(calibration.sensor_info.width_px, 64);
  EXPECT_EQ(calibration.filter_info.calibration_info.sample_points_nm,
            (std::vector<double>{470.0, 480.0, 490.0}));
  ASSERT_EQ(calibration.filter_info.filter_zones.size(), 1u);
  const FilterZone& zone = calibration.filter_info.filter_zones[0];
  EXPECT_EQ(zone.filter_layout(), FilterZone::MOSAIC);
  // 10 rows above the bottom and 32 high on a chip of 48 rows: 6 rows below the top.
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 6.0, 64.0, 32.0));
  EXPECT_EQ(Indices(zone), (std::vector<unsigned long>{0, 1, 2, 3}));
  EXPECT_EQ(zone.bands[0].peaks.at(0).wavelength_nm, 560.0);
  EXPECT_EQ(zone.bands[0].response, (std::vector<double>{0.25, 0.5, 1.0}));
  EXPECT_EQ(calibration.GetTypeName(), "VKR9-MZT2x2-470_620");
  EXPECT_TRUE(Checks(calibration).empty());
  ExpectCurrentFormReadsBack(calibration);
}

TEST(LegacySamples, CalibrationOfVersionZero) {
  SensorCalibration calibration;
  ParsingResult result;
  calibration.ReadFile(result, Sample("calibration_v0.xml"));
  EXPECT_EQ(NotOk(result), EventList{});
  EXPECT_EQ(result.state(), kOk);
  EXPECT_EQ(calibration.modified, common::time::TimePoint());
  ASSERT_EQ(calibration.filter_info.filter_zones.size(), 1u);
  const FilterZone& zone = calibration.filter_info.filter_zones[0];
  EXPECT_EQ(zone.filter_layout(), FilterZone::WEDGE);
  // Widened from the three selected stripes to all five.
  EXPECT_EQ(zone.filter_area, common::RegionOfInterest(0.0, 100.0, 2048.0, 50.0));
  EXPECT_EQ(zone.pattern_height, 5u);
  EXPECT_EQ(zone.bands[3].response, (std::vector<double>{0.0, 0.5, 0.25}));
  EXPECT_EQ(calibration.filter_info.calibration_info.sample_points_nm,
            (std::vector<double>{600.0, 800.0, 1000.0}));
  // The rejection filter as the system's one component, the matrix as its one matrix.
  ASSERT_EQ(calibration.system_info.optical_components.size(), 1u);
  const OpticalComponent& filter = calibration.system_info.optical_components[0];
  EXPECT_EQ(filter.type, OpticalComponents::OC_BANDPASS_FILTER);
  EXPECT_EQ(filter.tag, "bandpass_600eo-975eo");
  EXPECT_EQ(filter.sample_points_nm.size(), 401u);
  EXPECT_EQ(filter.transmission_range_start_nm, 700.0);
  EXPECT_EQ(filter.transmission_range_end_nm, 900.0);
  const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
  ASSERT_EQ(matrices.size(), 1u);
  EXPECT_EQ(matrices[0].name, "hyperspectral");
  EXPECT_EQ(matrices[0].virtual_bands.size(), 2u);
  EXPECT_EQ(matrices[0].virtual_bands[1].fwhm_nm, 20.0);
  EXPECT_EQ(calibration.GetTypeName(), "VKR9-QL5-600_1000");
  ExpectCurrentFormReadsBack(calibration);
}

TEST(LegacySamples, CalibrationOfVersionOne) {
  SensorCalibration calibration;
  EXPECT_EQ(ReadSample(calibration, "calibration_v1.xml"), EventList{});
  EXPECT_EQ(calibration.sensor_id, "12.4.7.1");
  // The fraction of the stamp is gone.
  EXPECT_EQ(calibration.created, common::time::UniversalTimeFromString("2012-03-15T10:15:30Z"));
  EXPECT_EQ(calibration.modified, calibration.created);
  // The gains of the grid win over those of the sensor block; the capacity is the block's.
  const SensorInfo& sensor = calibration.sensor_info;
  EXPECT_EQ(sensor.analog_gain, 2.0);
  EXPECT_EQ(sensor.digital_gain, 1.5);
  EXPECT_EQ(sensor.overall_gain, 0.2275);
  EXPECT_EQ(sensor.full_well_capacity_e, 13500);
  const FilterZone& zone = calibration.filter_info.filter_zones.at(0);
  EXPECT_EQ(zone.filter_layout(), FilterZone::TILED);
  EXPECT_EQ(zone.bands.at(1).response, (std::vector<double>{0.0, 0.35, 0.0}));
  EXPECT_EQ(zone.bands.at(3).peaks.at(0).order, 1u);
  const OpticalComponent& lens = calibration.system_info.optical_components.at(0);
  EXPECT_EQ(lens.sample_points_nm, (std::vector<double>{600.0, 700.0, 800.0, 900.0, 1000.0}));
  EXPECT_EQ(lens.measured, common::time::DateFromString("2012-03-14"));
  const CorrectionMatrix& matrix =
      calibration.system_info.spectral_correction_info.correction_matrices.at(0);
  EXPECT_EQ(matrix.type, CorrectionMatrixTypes::CT_REFLECTANCE);
  EXPECT_EQ(matrix.algorithm, CorrectionAlgorithms::CA_PITCHFORK_0);
  EXPECT_EQ(calibration.GetTypeName(), "VKR9-TZT4-600_1000");
  ExpectCurrentFormReadsBack(calibration);
}

TEST(LegacySamples, CalibrationOfVersionTwo) {
  SensorCalibration calibration;
  EXPECT_EQ(ReadSample(calibration, "calibration_v2.xml"), EventList{});
  EXPECT_EQ(calibration.sensor_id, "20.1.3.9");
  EXPECT_EQ(calibration.created, common::time::UniversalTimeFromString("2016-04-01T12:00:00Z"));
  EXPECT_EQ(calibration.filter_info.calibration_info.sample_points_nm,
            (std::vector<double>{470.0, 545.0, 620.0}));
  const FilterZone& zone = calibration.filter_info.filter_zones.at(0);
  EXPECT_EQ(zone.filter_layout(), FilterZone::MOSAIC);
  EXPECT_EQ(zone.bands.at(0).peaks.at(0).fit_error, 0.02);
  EXPECT_EQ(zone.bands.at(3).peaks.at(0).fit_error, 0.0);
  const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
  ASSERT_EQ(matrices.size(), 2u);
  EXPECT_EQ(matrices[0].algorithm_version, (std::pair<unsigned long, unsigned long>{1, 2}));
  EXPECT_EQ(matrices[0].minimum_band_energy, 1.0);
  EXPECT_EQ(matrices[1].type, CorrectionMatrixTypes::CT_IRRADIANCE);
  EXPECT_EQ(matrices[1].minimum_band_energy, 0.5);
  EXPECT_EQ(calibration.system_info.optical_components.at(0).measured,
            common::time::DateFromString("2016-03-30"));
  EXPECT_EQ(calibration.GetTypeName(), "VKR9-MZT2x2-470_620");
  ExpectCurrentFormReadsBack(calibration);
}

// ----- hostile files

std::string SampleText(const std::string& name) {
  std::ifstream file(Sample(name), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// One defect put into a sample calibration, and all it must report beyond the bookkeeping.
struct Hostile {
  std::string what;
  std::string sample;
  std::vector<std::pair<std::string, std::string>> edits;
  EventList events;
};

// What calibration_unversioned.xml reports as it stands.
const EventList kUnversioned = {Warning(kMissingVersion, "sensor_calibration"),
                                Check("The .xml file is not of type SensorInfo"),
                                Warning(kMissingVersion, "sensor"),
                                Check("!filter_zones.empty ()"),
                                Warning(kMissingVersion, "filter"),
                                Warning(kMissingValue, "active_area_width")};

EventList Unversioned(const EventList& more) {
  EventList events = kUnversioned;
  events.insert(events.end(), more.begin(), more.end());
  return events;
}

const std::string kMosaic = "calibration_unversioned.xml";
const std::string kSelection = "<active_bands>0, 1, 2, 3</active_bands>";
const std::string kTooMany = "nr_bands is more bands than a zone can have";
const std::string kZoneBands = "bands.size () == pattern_width*pattern_height";
const std::string kCalibrationBands =
    "filter_zone.bands.size () == filter_zone.pattern_height*filter_zone.pattern_width";
const std::string kNoResponse = "0 < band.response.size ()";
const std::string kMisfit =
    "band.response.size () == filter_info.calibration_info.sample_points_nm.size ()";

TEST(LegacyHostileFiles, CountsBeyondAnyFilterAndBrokenPatternsAreEventsOnly) {
  const std::vector<Hostile> cases = {
      {"a zone of four billion bands",
       kMosaic,
       {{kSelection, kSelection + "<nr_bands>4000000000</nr_bands>"}},
       Unversioned({Check("nr_bands"), Check(kTooMany), Error(kMissingValue, "filter_responses"),
                    Check(kZoneBands), Check(kCalibrationBands)})},
      {"a band number far beyond any filter",
       kMosaic,
       {{R"(<band number="3">600</band>)", R"(<band number="2000000000">600</band>)"}},
       Unversioned({Check(kTooMany), Error(kMissingValue, "filter_responses"), Check(kZoneBands),
                    Check(kCalibrationBands)})},
      {"a grid of twenty billion samples",
       kMosaic,
       {{"<calibration_resolution>10<", "<calibration_resolution>1e-9<"}},
       {Warning(kMissingVersion, "sensor_calibration"),
        Check("The .xml file is not of type SensorInfo"), Warning(kMissingVersion, "sensor"),
        Check("The range of calibration_data gives no wavelength grid"),
        CheckWarning("!sample_points_nm.empty ()"), Check("!filter_zones.empty ()"),
        Warning(kMissingVersion, "filter"), Warning(kMissingValue, "active_area_width"),
        Check("The range of calibration_data gives no number of samples that filter_responses "
              "can hold"),
        CheckWarning("!sample_points_nm.empty ()"), CheckWarning(kNoResponse),
        CheckWarning(kNoResponse), CheckWarning(kNoResponse), CheckWarning(kNoResponse)}},
      {"fewer responses than samples times bands",
       kMosaic,
       {{"256, 512, 1024, 512", "256, 512"}},
       Unversioned({Error(kMissingValue, "filter_responses"), CheckWarning(kNoResponse),
                    CheckWarning(kMisfit), CheckWarning(kNoResponse), CheckWarning(kMisfit),
                    CheckWarning(kNoResponse), CheckWarning(kMisfit), CheckWarning(kNoResponse),
                    CheckWarning(kMisfit)})},
      {"a negative height",
       kMosaic,
       {{"<active_area_height>32<", "<active_area_height>-32<"}},
       Unversioned({Check("0 < height")})},
      {"a wedge without bands",
       kMosaic,
       {{R"(type="3")", R"(type="0")"},
        {R"(<band number="0">480</band>)", ""},
        {R"(<band number="1">520</band>)", ""},
        {R"(<band number="2">560</band>)", ""},
        {R"(<band number="3">600</band>)", ""}},
       Unversioned({Error(kMissingValue, "filter_responses"),
                    Check("lines_per_band can't be shared out over a wedge without bands"),
                    Warning(kLegacyDefault, "lines_per_band"),
                    Warning(kLegacyDefault, "first_band_offset"), Check("0 < pattern_height"),
                    Check("0 < filter_height")})},
      {"tiles without columns",
       kMosaic,
       {{R"(type="3")", R"(type="1")"},
        {kSelection, kSelection + "<tileCols>0</tileCols>"
                                  "<tileRows>2</tileRows>"}},
       Unversioned({Check("The rows of tiles without columns can't be turned upside down"),
                    Check("0 < width"), Check("0.0 <= offset_y"), Check("0 < pattern_width"),
                    Check(kZoneBands), Check(kCalibrationBands)})},
      {"a tile table with more bands than the zone, and one far beyond",
       kMosaic,
       {{R"(type="3")", R"(type="1")"},
        {kSelection, kSelection + R"(<tileCols>2</tileCols><tileRows>2</tileRows>
            <tileToBandNr><band tile="0">0</band><band tile="1">1</band><band tile="2">2e9</band>
            <band tile="2">2</band><band tile="3">3</band><band tile="3">4</band></tileToBandNr>)"}},
       Unversioned({Check("tileToBandNr holds a band number that no zone has"),
                    Check("tileToBandNr holds more bands than the zone"), Check("0.0 <= offset_y"),
                    Check("sensor_info.width_px >= filter_zone.filter_area.offset_x + "
                          "filter_zone.filter_area.width")})},
      {"a rejection filter of a trillion points",
       "calibration_v0.xml",
       {{"<wavelength_end_nm>1000<", "<wavelength_end_nm>1e12<"}},
       {Check("The wavelength range of rejection_filter gives no grid that a filter has")}},
  };
  for (const Hostile& hostile : cases) {
    std::string text = SampleText(hostile.sample);
    for (const auto& [from, to] : hostile.edits) {
      text = Replace(text, from, to);
    }
    SensorCalibration calibration;
    const auto result = Read(calibration, text);
    EXPECT_EQ(NotOk(result), hostile.events) << hostile.what;
    EXPECT_LE(calibration.filter_info.GetTotalNrBands(), 5u) << hostile.what;
    EXPECT_LE(calibration.filter_info.calibration_info.sample_points_nm.size(), 3u) << hostile.what;
    for (const OpticalComponent& component : calibration.system_info.optical_components) {
      EXPECT_LE(component.sample_points_nm.size(), 401u) << hostile.what;
    }
  }
}

TEST(LegacyHostileFiles, NumbersThatStofOrStoiCannotReadLeaveTheWholeRead) {
  // Through the calibration's own reader the exception reaches the caller as it was thrown.
  SensorCalibration calibration;
  const std::string selection =
      Replace(SampleText(kMosaic), kSelection, "<bandSelection><band>all</band></bandSelection>");
  EXPECT_THROW(ReadOrThrow(calibration, selection), std::invalid_argument);
  const std::string date =
      Replace(SampleText("calibration_v1.xml"), "<created>2012-03-14<", "<created>2012-Mar-14<");
  EXPECT_THROW(ReadOrThrow(calibration, date), std::invalid_argument);
  const std::string year = Replace(SampleText("calibration_v1.xml"), "<created>2012-03-14<",
                                   "<created>20120000000-03-14<");
  EXPECT_THROW(ReadOrThrow(calibration, year), std::out_of_range);

  // A whole-document read stops at it with one event, and the process goes on.
  EXPECT_EQ(NotOk(Read(calibration, selection)),
            Unversioned({Check("string: reading stopped: stof")}));
  EXPECT_EQ(NotOk(Read(calibration, date)), (EventList{Check("string: reading stopped: stoi")}));
  ParsingResult strict(false, true);
  EXPECT_THROW(calibration.ReadString(strict, year), std::runtime_error);
}

}  // namespace
}  // namespace kelto::hyperspectral

"""Calibrations and parameter documents: reading with events, writing, round trips, the records'
fields, changes through references, copies and pickling."""

import copy
import datetime
import pickle

import numpy as np
import pytest

import kelto
from conftest import CALIBRATION_DIR, DATA_DIR, MOSAIC, SAMPLES


class TestRoundTrips:
    @pytest.mark.parametrize("path", SAMPLES, ids=lambda p: p.stem)
    def test_every_sample_reads_cleanly_and_writes_back_equal(self, path, tmp_path):
        original = kelto.read_calibration(path, strict=True)
        assert all(state != kelto.ParserState.ERROR for state, _, _ in original.events)
        assert original.filter_info.band_count > 0
        written = tmp_path / "written.xml"
        original.write(written)
        again = kelto.read_calibration(written, strict=True)
        assert again == original
        # A second write is byte for byte the first: nothing drifts through a cycle.
        again.write(tmp_path / "again.xml")
        assert (tmp_path / "again.xml").read_bytes() == written.read_bytes()

    def test_xml_text_round_trip(self, calibration):
        text = calibration.to_xml()
        assert text.lstrip().startswith("<?xml")
        other = kelto.Calibration()
        events = other.read_xml(text)
        assert events[0][1] == kelto.EventSource.READ_START
        assert other == calibration

    def test_a_change_survives_the_round_trip(self, calibration, tmp_path):
        calibration.sensor_info.width_px = 4096
        calibration.filter_info.filter_zones[0].bands[2].selected = False
        calibration.write(tmp_path / "changed.xml")
        again = kelto.read_calibration(tmp_path / "changed.xml")
        assert again.sensor_info.width_px == 4096
        assert again.filter_info.filter_zones[0].bands[2].selected is False
        assert again == calibration


class TestEvents:
    def test_events_are_state_source_text_tuples(self, calibration):
        assert calibration.events
        state, source, text = calibration.events[0]
        assert (state, source, text) == (kelto.ParserState.OK, kelto.EventSource.READ_START,
                                         "sensor_calibration")
        # The states and sources compare equal to the library's numbers.
        assert state == 0 and source == 40

    def test_a_defective_file_reports_errors_or_raises_when_strict(self):
        defective = DATA_DIR / "sensor_info_defective.xml"
        sensor = kelto.SensorInfo()
        events = sensor.read(defective)
        errors = [e for e in events if e[0] == kelto.ParserState.ERROR]
        assert errors and all(isinstance(text, str) for _, _, text in errors)
        # Read as a calibration the file is wrong at the root, and strict reading refuses it.
        with pytest.raises(kelto.ParseError) as raised:
            kelto.read_calibration(defective, strict=True)
        assert raised.value.events and "error" in str(raised.value)
        lenient = kelto.read_calibration(defective)
        assert any(e[0] == kelto.ParserState.ERROR for e in lenient.events)

    def test_a_file_that_is_not_xml_is_an_event_not_a_crash(self, tmp_path):
        junk = tmp_path / "junk.xml"
        junk.write_bytes(b"\x00\xff not xml <<<")
        calibration = kelto.read_calibration(junk)
        assert calibration.events[-1][0] == kelto.ParserState.ERROR
        with pytest.raises(kelto.ParseError):
            kelto.read_calibration(junk, strict=True)

    def test_a_missing_file_raises_file_not_found(self, tmp_path):
        with pytest.raises(FileNotFoundError):
            kelto.read_calibration(tmp_path / "missing.xml")
        with pytest.raises(FileNotFoundError):
            kelto.read_parameters(tmp_path / "missing.xml")

    def test_an_unwritable_path_raises_os_error(self, calibration, tmp_path):
        with pytest.raises(OSError):
            calibration.write(tmp_path / "no" / "such" / "dir" / "out.xml")

    def test_sanity_checks_of_a_changed_record(self):
        sensor = kelto.SensorInfo()
        sensor.width_px = -1
        texts = [text for _, _, text in sensor.check()]
        assert any("width_px" in text for text in texts)


class TestFields:
    def test_sensor_zones_bands_and_peaks(self, calibration):
        assert calibration.type_name == "VKR9-MZT4x4-470_620"
        assert calibration.sensor_info.sensor_type == kelto.SensorType.VKR9
        zone = calibration.filter_info.filter_zones[0]
        assert zone.filter_layout == kelto.FilterLayout.MOSAIC
        assert (zone.pattern_width, zone.pattern_height) == (4, 4)
        assert len(zone.bands) == 16 == calibration.filter_info.band_count
        grid = calibration.filter_info.calibration_info.sample_points_nm
        band = zone.bands[0]
        assert isinstance(band.response, np.ndarray) and band.response.dtype == np.float64
        assert band.response.shape == grid.shape
        peak = band.peaks[0]
        assert grid[0] <= peak.wavelength_nm <= grid[-1]
        assert peak.shape in (kelto.Distribution.GAUSSIAN, kelto.Distribution.LORENTZIAN,
                              kelto.Distribution.FABRY_PEROT)
        # Bands in band-number order are the zones' bands in stored order.
        assert [b.pattern_position_index for b in calibration.filter_info.bands] == \
            [b.pattern_position_index for b in zone.bands]
        assert calibration.filter_info.band(-1) == zone.bands[15]
        with pytest.raises(IndexError):
            calibration.filter_info.band(16)

    def test_correction_matrices_by_name(self, calibration):
        matrices = calibration.correction_matrices
        assert list(matrices) == ["true_peaks"]
        matrix = matrices["true_peaks"]
        assert matrix.coefficients.shape == (len(matrix.virtual_bands), 16)
        assert matrix.band_count == 16
        assert np.array_equal(matrix.wavelengths,
                              [v.wavelength_nm for v in matrix.virtual_bands])
        assert np.array_equal(matrix.fwhms, [v.fwhm_nm for v in matrix.virtual_bands])
        assert np.all(np.diff(matrix.wavelengths) > 0)
        assert np.array_equal(matrix.coefficients[3], matrix.virtual_bands[3].coefficients)
        assert isinstance(matrix.created, datetime.datetime)
        assert matrix.created.tzinfo is not None

    def test_wavelengths_ready_for_band_info_and_envi(self, calibration):
        matrix = calibration.correction_matrices["true_peaks"]
        fields = kelto.band_info(matrix)
        assert fields["centers"] == matrix.wavelengths.tolist()
        assert fields["bandwidths"] == matrix.fwhms.tolist()
        header = kelto.envi_metadata(matrix)
        assert [float(w) for w in header["wavelength"]] == pytest.approx(matrix.wavelengths)
        assert len(header["band names"]) == len(matrix.virtual_bands)

    def test_vectors_are_read_only_copies_changed_by_assignment(self, calibration):
        band = calibration.filter_info.filter_zones[0].bands[0]
        response = band.response
        with pytest.raises(ValueError):
            response[0] = 1.0
        band.response = response * 2
        assert np.array_equal(band.response, response * 2)
        band.response = [1, 2, 3]
        assert band.response.tolist() == [1.0, 2.0, 3.0]
        with pytest.raises(ValueError):
            band.response = [[1.0, 2.0]]

    def test_nested_records_and_list_elements_are_references(self, calibration):
        calibration.sensor_info.bit_depth = 10
        assert calibration.sensor_info.bit_depth == 10
        peaks = calibration.filter_info.filter_zones[0].bands[1].peaks
        peaks[0].wavelength_nm = 999.0
        assert calibration.filter_info.band(1).peaks[0].wavelength_nm == 999.0
        matrix = calibration.correction_matrices["true_peaks"]
        matrix.name = "renamed"
        assert list(calibration.correction_matrices) == ["renamed"]

    def test_lists_behave_like_python_lists(self, calibration):
        bands = calibration.filter_info.filter_zones[0].bands
        count = len(bands)
        extra = copy.copy(bands[0])
        extra.pattern_position_index = 99
        bands.append(extra)
        assert len(bands) == count + 1 and bands[-1].pattern_position_index == 99
        bands.insert(0, extra)
        assert bands[0] == bands[-1]
        del bands[0]
        del bands[-1]
        assert len(bands) == count
        assert bands == list(bands) and bands != list(bands)[1:] and bands != 3
        with pytest.raises(IndexError):
            bands[count]
        # A Python list is accepted wherever a list of records is.
        zone = calibration.filter_info.filter_zones[0]
        zone.bands = [bands[0], bands[1]]
        assert len(calibration.filter_info.filter_zones[0].bands) == 2
        with pytest.raises(TypeError):
            zone.bands = [1, 2]

    def test_copies_are_deep(self, calibration):
        other = copy.deepcopy(calibration)
        assert other == calibration
        other.filter_info.filter_zones[0].bands[0].selected = \
            not calibration.filter_info.filter_zones[0].bands[0].selected
        assert other != calibration

    def test_times_are_utc_datetimes(self, calibration):
        moment = datetime.datetime(2024, 5, 17, 9, 30, 0, 123456, tzinfo=datetime.timezone.utc)
        calibration.modified = moment
        assert calibration.modified == moment
        calibration.modified = "2024-05-17T09:30:00Z"
        assert calibration.modified == moment.replace(microsecond=0)
        calibration.modified = datetime.datetime(2024, 5, 17, 9, 30)  # naive: taken as UTC
        assert calibration.modified == moment.replace(microsecond=0)
        with pytest.raises(ValueError):
            calibration.modified = "yesterday"
        component = calibration.system_info.optical_components[0]
        component.measured = datetime.date(2023, 2, 1)
        assert component.measured == datetime.date(2023, 2, 1)


class TestPickling:
    def test_records_pickle_exactly(self, calibration):
        again = pickle.loads(pickle.dumps(calibration))
        assert again == calibration
        assert again.events == calibration.events
        zone = pickle.loads(pickle.dumps(calibration.filter_info.filter_zones[0]))
        assert zone.filter_layout == kelto.FilterLayout.MOSAIC
        assert zone == calibration.filter_info.filter_zones[0]

    def test_a_matrix_pickles_without_rounding(self, calibration):
        matrix = copy.copy(calibration.correction_matrices["true_peaks"])
        band = matrix.virtual_bands[0]
        band.coefficients = band.coefficients + 1e-13  # beyond the six digits of the file form
        again = pickle.loads(pickle.dumps(matrix))
        assert again == matrix
        assert np.array_equal(again.coefficients, matrix.coefficients)
        assert again.created == matrix.created and again.type == matrix.type


class TestParameters:
    def test_embedded_documents(self):
        keys = kelto.parameter_keys()
        assert "VKR9-MZT4x4-470_620" in keys and len(keys) == 11
        parameters = kelto.load_parameters("VKR9-MZT4x4-470_620")
        assert parameters.peak_detection.peaks_nr_max > 0
        assert parameters.inversion.algorithm == kelto.InversionAlgorithm.TIKHONOV
        assert parameters.inversion.tikhonov_alpha > 0
        with pytest.raises(ValueError, match="not found"):
            kelto.load_parameters("no-such-sensor")

    def test_document_round_trip(self, tmp_path):
        parameters = kelto.load_parameters("VKR9-QL150-470_900")
        parameters.band_selection.minimum_contribution = 0.5
        parameters.post_processing.resampling_wavelengths = [500, 600, 700]
        parameters.write(tmp_path / "parameters.xml")
        again = kelto.read_parameters(tmp_path / "parameters.xml", strict=True)
        assert again.band_selection.minimum_contribution == 0.5
        assert again.post_processing.resampling_wavelengths.tolist() == [500, 600, 700]
        assert again.to_xml() == parameters.to_xml()
        assert pickle.loads(pickle.dumps(parameters)).to_xml() == parameters.to_xml()

    def test_a_calibration_is_no_parameter_document(self):
        with pytest.raises(kelto.ParseError):
            kelto.read_parameters(MOSAIC, strict=True)


def test_the_sample_directory_is_complete():
    # Guards the parametrised cases above from passing on an empty glob.
    assert len(SAMPLES) == 5 and CALIBRATION_DIR.is_dir()

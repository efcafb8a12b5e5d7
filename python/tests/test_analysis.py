"""The main computation from Python: fitted peaks against the samples' true peaks, correction
matrices against kelto-hsi matrix, and the refusals of input the analysis can't use."""

import logging
import subprocess

import numpy as np
import pytest

import kelto
from conftest import MOSAIC


def true_peaks(calibration):
    return [band.peaks[0].wavelength_nm for band in calibration.filter_info.bands]


class TestPeaks:
    def test_fitted_peaks_lie_near_the_true_ones(self, calibration):
        truth = true_peaks(calibration)
        for band in calibration.filter_info.bands:
            band.peaks.clear()
        result = kelto.compute_peaks(calibration)
        assert result is calibration
        fitted = true_peaks(calibration)
        assert np.max(np.abs(np.array(fitted) - truth)) < 3.0
        for band in calibration.filter_info.bands:
            orders = [peak.order for peak in band.peaks]
            assert orders == list(range(1, len(orders) + 1))

    def test_unsorted_bands_with_matrices_need_force(self, calibration):
        bands = calibration.filter_info.filter_zones[0].bands
        first = bands[0]
        del bands[0]
        bands.append(first)
        with pytest.raises(ValueError, match="force"):
            kelto.compute_peaks(calibration)
        kelto.compute_peaks(calibration, force=True)
        positions = [b.pattern_position_index for b in calibration.filter_info.bands]
        assert positions == sorted(positions)


class TestCorrectionMatrix:
    def test_equal_to_kelto_hsi_matrix(self, calibration, kelto_hsi, tmp_path):
        output = tmp_path / "matrix.xml"
        subprocess.run([kelto_hsi, "matrix", str(MOSAIC), "--name", "measured", "-o",
                        str(output)], check=True, capture_output=True)
        tool = kelto.read_calibration(output, strict=True).correction_matrices["measured"]
        ours = kelto.compute_correction_matrix(calibration, "measured")
        assert ours is not None and ours.name == "measured"
        assert ours.type == kelto.MatrixType.REFLECTANCE
        assert ours.band_count == calibration.filter_info.band_count
        np.testing.assert_array_equal(ours.wavelengths, tool.wavelengths)
        np.testing.assert_array_equal(ours.fwhms, tool.fwhms)
        # The file keeps six significant digits of each coefficient.
        np.testing.assert_allclose(ours.coefficients, tool.coefficients, rtol=1e-5, atol=1e-9)

    def test_stored_under_its_name_and_replaced_by_a_new_one(self, calibration):
        kelto.compute_correction_matrix(calibration, "measured")
        irradiance = kelto.compute_correction_matrix(calibration, "measured", type="irradiance")
        assert irradiance.type == kelto.MatrixType.IRRADIANCE
        assert list(calibration.correction_matrices) == ["true_peaks", "measured"]
        assert calibration.correction_matrices["measured"] == irradiance

    def test_parameters_by_key_file_or_object(self, calibration, tmp_path):
        by_default = kelto.compute_correction_matrix(calibration, "a")
        document = kelto.load_parameters(calibration.type_name)
        by_key = kelto.compute_correction_matrix(calibration, "a", calibration.type_name)
        assert by_key.virtual_bands == by_default.virtual_bands
        document.write(tmp_path / "parameters.xml")
        by_file = kelto.compute_correction_matrix(calibration, "a", tmp_path / "parameters.xml")
        assert by_file.virtual_bands == by_default.virtual_bands
        # A stricter fit-error limit leaves fewer bands, or none at all.
        document.band_selection.peak_fit_error_max = 0.0
        with pytest.raises(ValueError, match="no band qualifies"):
            kelto.compute_correction_matrix(calibration, "b", document)
        assert "b" not in calibration.correction_matrices

    def test_the_library_log_reaches_python_logging(self, calibration, caplog):
        with caplog.at_level(logging.INFO, logger="kelto"):
            kelto.compute_correction_matrix(calibration, "logged")
        assert any(record.name == "kelto" and "correction matrix calculation" in record.message
                   for record in caplog.records)

    def test_a_matrix_computed_here_corrects_the_scene(self, calibration, scene):
        matrix = kelto.compute_correction_matrix(calibration, "measured", type="irradiance")
        corrected = kelto.correct(scene.data, matrix, scale=scene.scale, fill=scene.fill)
        assert corrected.shape == (64, 64, len(matrix.virtual_bands))
        assert np.isfinite(corrected[18, 18]).all()


class TestRefusals:
    def test_unknown_parameter_key(self, calibration):
        with pytest.raises(ValueError, match="known keys"):
            kelto.compute_correction_matrix(calibration, "x", "NO-SUCH-KEY")

    def test_a_calibration_the_analysis_cannot_use(self, calibration):
        calibration.filter_info.calibration_info.sample_points_nm = [500, 510, 520]
        with pytest.raises(ValueError, match="at least 5"):
            kelto.compute_peaks(calibration)

    def test_a_band_with_a_gap(self, calibration):
        band = calibration.filter_info.filter_zones[0].bands[3]
        response = band.response.copy()
        response[10] = np.nan
        band.response = response
        with pytest.raises(ValueError, match="band 3"):
            kelto.compute_correction_matrix(calibration, "x")

    def test_a_calibration_without_bands(self):
        empty = kelto.Calibration()
        empty.filter_info.calibration_info.sample_points_nm = np.arange(500, 600, 10.0)
        with pytest.raises(ValueError, match="no bands"):
            kelto.compute_correction_matrix(empty, "x", "VKR9-MZT4x4-470_620")

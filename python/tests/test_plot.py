"""The plots: PNG files of the expected size from the functions and from python3 -m kelto plot,
and clear failures for what can't be drawn."""

import os
import struct
import subprocess
import sys

import numpy as np
import pytest

import kelto
from conftest import CALIBRATION_DIR, MOSAIC, SAMPLES, SCENE
from kelto import plot


def png_size(path):
    data = path.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    assert data[12:16] == b"IHDR"
    return struct.unpack(">II", data[16:24])


def drawn_pixels(path):
    """How many pixels differ from the most common colour (the background)."""
    from matplotlib import image
    pixels = image.imread(str(path))[..., :3].reshape(-1, 3)
    colours, counts = np.unique(pixels, axis=0, return_counts=True)
    return len(pixels) - counts.max()


class TestFunctions:
    @pytest.mark.parametrize("path", SAMPLES, ids=lambda p: p.stem)
    def test_responses_of_every_sample(self, path, tmp_path):
        calibration = kelto.read_calibration(path)
        output = tmp_path / "responses.png"
        figure = plot.responses(calibration, path=output, figsize=(8, 4), dpi=50)
        assert png_size(output) == (400, 200)
        assert drawn_pixels(output) > 1000
        axes = figure.axes[0]
        # One curve per band and one marker per fitted peak.
        bands = calibration.filter_info.bands
        peaks = sum(len(b.peaks) for b in bands)
        assert len(axes.lines) == len(bands) + peaks

    def test_matrix_image_and_synthesised_responses(self, calibration, tmp_path):
        output = tmp_path / "matrix.png"
        figure = plot.matrix(calibration, "true_peaks", path=output)
        assert png_size(output) == (1000, 500)
        image_axes, curve_axes = figure.axes[:2]
        coefficients = calibration.correction_matrices["true_peaks"].coefficients
        np.testing.assert_array_equal(image_axes.images[0].get_array(), coefficients)
        # A solid synthesised curve and a dashed ideal per virtual band.
        assert len(curve_axes.lines) == 2 * coefficients.shape[0]
        with pytest.raises(KeyError, match="true_peaks"):
            plot.matrix(calibration, "no-such-matrix")

    def test_spectrum_raw_beside_corrected(self, scene, scene_matrix, tmp_path):
        output = tmp_path / "spectrum.svg"
        figure = plot.spectrum(scene.data, scene_matrix, (18, 18), scale=scene.scale,
                               fill=scene.fill, band_wavelengths=scene.wavelengths, path=output)
        assert output.read_text().lstrip().startswith("<?xml")
        raw_axes, corrected_axes = figure.axes
        np.testing.assert_allclose(raw_axes.lines[0].get_ydata(),
                                   scene.data[18, 18] / scene.scale)
        np.testing.assert_allclose(
            corrected_axes.lines[0].get_ydata(),
            kelto.correct(scene.data, scene_matrix, scene.scale, scene.fill)[18, 18])
        with pytest.raises(IndexError):
            plot.spectrum(scene.data, scene_matrix, (64, 0))

    def test_a_matrix_of_another_calibration_is_refused(self, calibration):
        other = kelto.read_calibration(CALIBRATION_DIR / "VKR9-MZT5x5-600_1000.xml")
        assert other.filter_info.band_count != calibration.filter_info.band_count
        with pytest.raises(ValueError, match="weighs"):
            plot.matrix(other, calibration.correction_matrices["true_peaks"])


def run_kelto(*arguments):
    return subprocess.run([sys.executable, "-m", "kelto", *map(str, arguments)],
                          capture_output=True, text=True, env=dict(os.environ, MPLBACKEND="Agg"))


class TestCommandLine:
    def test_every_form_writes_its_png(self, tmp_path):
        forms = {
            "responses.png": ["plot", MOSAIC],
            "matrix.png": ["plot", "matrix", MOSAIC, "--matrix", "true_peaks"],
            "spectrum.png": ["plot", "spectrum", MOSAIC, SCENE, "--pixel", "18,18"],
        }
        for name, arguments in forms.items():
            output = tmp_path / name
            done = run_kelto(*arguments, "-o", output, "--size", "6x3", "--dpi", "80")
            assert done.returncode == 0, done.stderr
            assert f"wrote {output}" in done.stdout
            assert png_size(output) == (480, 240)

    def test_usage_errors_and_failures(self, tmp_path):
        assert run_kelto().returncode == 2
        assert run_kelto("draw", MOSAIC).returncode == 2
        assert run_kelto("plot", "spectrum", MOSAIC, SCENE, "-o", tmp_path / "x.png"
                         ).returncode == 2  # --pixel is required
        missing = run_kelto("plot", tmp_path / "missing.xml", "-o", tmp_path / "x.png")
        assert missing.returncode == 1 and "missing.xml" in missing.stderr
        outside = run_kelto("plot", "spectrum", MOSAIC, SCENE, "--pixel", "99,0", "-o",
                            tmp_path / "x.png")
        assert outside.returncode == 1 and "outside" in outside.stderr
        assert not (tmp_path / "x.png").exists()

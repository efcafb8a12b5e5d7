"""kelto.correct: equal to kelto-hsi correct and to the matrix product written out in numpy, in
every memory order and sample type, without copying the input, and with Python exceptions for
every misuse."""

import subprocess
import threading
import tracemalloc

import numpy as np
import pytest

import kelto
from conftest import MOSAIC, SCENE
from kelto import envi

SUPPORTED = ["uint8", "uint16", "int16", "int32", "uint32", "float32", "float64"]


def reference(cube, matrix, scale=1.0, fill=None, dark=None, white=None):
    """The definition in float64: each pixel's bands (divided by scale, or turned into
    reflectance) times the transposed coefficients, NaN for pixels without data."""
    values = np.asarray(cube, dtype=np.float64)
    if dark is not None:
        span = np.asarray(white, np.float64) - np.asarray(dark, np.float64)
        with np.errstate(divide="ignore", invalid="ignore"):
            values = (values - np.asarray(dark, np.float64)) / span
        bad = np.broadcast_to(span <= 0, values.shape).any(axis=-1)
    else:
        values = values / scale
        bad = np.zeros(values.shape[:-1], dtype=bool)
    out = values @ matrix.coefficients.T
    if fill is not None:
        bad |= (np.asarray(cube) == fill).any(axis=-1)
    out[bad] = np.nan
    return out


def synthetic_matrix(bands, virtual_bands, seed=7):
    """A dense matrix of small coefficients with virtual bands 500, 510, ... nm."""
    rng = np.random.default_rng(seed)
    matrix = kelto.CorrectionMatrix()
    matrix.name = "synthetic"
    matrix.algorithm = kelto.CorrectionAlgorithm.M1
    matrix.type = kelto.MatrixType.REFLECTANCE
    for v in range(virtual_bands):
        band = kelto.VirtualBand()
        band.wavelength_nm = 500.0 + 10 * v
        band.fwhm_nm = 12.0
        band.coefficients = rng.uniform(-1, 1, bands).round(3)
        matrix.virtual_bands.append(band)
    return matrix


@pytest.fixture(scope="module")
def cube():
    return np.random.default_rng(3).integers(0, 200, size=(37, 29, 16), dtype=np.uint16)


@pytest.fixture(scope="module")
def matrix():
    return synthetic_matrix(16, 6)


class TestSampleScene:
    def test_equal_to_kelto_hsi_correct(self, scene, scene_matrix, kelto_hsi, tmp_path):
        output = tmp_path / "corrected.img"
        subprocess.run([kelto_hsi, "correct", str(MOSAIC), str(SCENE), "--matrix", "true_peaks",
                        "-o", str(output)], check=True, capture_output=True)
        tool = envi.open_cube(output)
        assert np.allclose(tool.wavelengths, scene_matrix.wavelengths, rtol=1e-6)
        # The tool corrects blocks read by pixel; the same samples by pixel give the same floats.
        by_pixel = np.ascontiguousarray(scene.data)
        ours = kelto.correct(by_pixel, scene_matrix, scale=scene.scale, fill=scene.fill)
        np.testing.assert_array_equal(ours, tool.data)
        # Read in place from the band-sequential file, the samples are converted one by one in
        # double precision; the result differs by float rounding at most.
        in_place = kelto.correct(scene.data, scene_matrix, scale=scene.scale, fill=scene.fill)
        np.testing.assert_allclose(in_place, tool.data, rtol=2e-6, atol=1e-6)
        assert np.array_equal(np.isnan(in_place), np.isnan(tool.data))

    def test_equal_to_the_product_in_numpy(self, scene, scene_matrix):
        assert scene.scale == 13348 and scene.fill == 65535
        ours = kelto.correct(scene.data, scene_matrix, scale=scene.scale, fill=scene.fill)
        expected = reference(scene.data, scene_matrix, scene.scale, scene.fill)
        assert ours.dtype == np.float32
        assert ours.shape == (64, 64, len(scene_matrix.virtual_bands))
        np.testing.assert_allclose(ours, expected, rtol=1e-5, atol=1e-5)

    def test_equal_to_kelto_hsi_spectrum(self, scene, scene_matrix, kelto_hsi):
        # kelto-hsi spectrum takes the pixel through the data accessor, the library's other
        # road to a corrected spectrum, in double precision.
        printed = subprocess.run([kelto_hsi, "spectrum", str(MOSAIC), str(SCENE), "--pixel",
                                  "18,18", "--matrix", "true_peaks"], check=True,
                                 capture_output=True, text=True).stdout
        rows = [line.split(",") for line in printed.split() if line[:1].isdigit()]
        wavelengths, values = np.array(rows, dtype=np.float64).T
        ours = kelto.correct(scene.data, scene_matrix, scale=scene.scale, fill=scene.fill)
        np.testing.assert_allclose(wavelengths, scene_matrix.wavelengths, rtol=1e-6)
        np.testing.assert_allclose(ours[18, 18], values, rtol=1e-5, atol=1e-6)


class TestLayoutsAndTypes:
    def test_every_memory_order_gives_the_same_result(self, cube, matrix):
        # Float sums of 16 products of about 100, accumulated in an order that depends on the
        # layout: equal to float rounding.
        def same(result, expected):
            np.testing.assert_allclose(result, expected, rtol=1e-5, atol=1e-3)

        expected = kelto.correct(cube, matrix)
        same(expected, reference(cube, matrix))
        band_sequential = np.ascontiguousarray(cube.transpose(2, 0, 1)).transpose(1, 2, 0)
        line_interleaved = np.ascontiguousarray(cube.transpose(0, 2, 1)).transpose(0, 2, 1)
        for layout in (np.asfortranarray(cube), band_sequential, line_interleaved):
            assert not layout.flags.c_contiguous
            same(kelto.correct(layout, matrix), expected)
        same(kelto.correct(cube[::-1, ::-1], matrix), expected[::-1, ::-1])
        same(kelto.correct(cube[3::2, 1::3], matrix), expected[3::2, 1::3])
        reversed_bands = cube[:, :, ::-1]
        flipped = synthetic_matrix(16, 6)
        for band in flipped.virtual_bands:
            band.coefficients = band.coefficients[::-1]
        same(kelto.correct(reversed_bands, flipped), expected)

    @pytest.mark.parametrize("dtype", SUPPORTED)
    def test_every_supported_sample_type(self, cube, matrix, dtype):
        # The samples (0 to 199) are exact in every type, so every type gives the same floats.
        expected = kelto.correct(cube, matrix)
        np.testing.assert_array_equal(kelto.correct(cube.astype(dtype), matrix), expected)
        scaled = kelto.correct(cube.astype(dtype), matrix, scale=200.0)
        np.testing.assert_allclose(scaled, reference(cube, matrix, 200.0), rtol=1e-5, atol=1e-6)

    def test_a_misaligned_input_is_read(self, cube, matrix):
        raw = np.zeros(cube.nbytes + 1, dtype=np.uint8)
        shifted = raw[1:].view(np.uint16).reshape(cube.shape)
        shifted[...] = cube
        assert not shifted.flags.aligned
        np.testing.assert_array_equal(kelto.correct(shifted, matrix), kelto.correct(cube, matrix))

    def test_nested_lists_are_taken_as_numpy_makes_them(self, matrix):
        floats = [[[float(b) for b in range(16)]]]
        np.testing.assert_allclose(kelto.correct(floats, matrix)[0, 0],
                                   np.arange(16) @ matrix.coefficients.T, rtol=1e-6)
        with pytest.raises(TypeError, match="int64"):
            kelto.correct([[list(range(16))]], matrix)

    def test_empty_cube(self, matrix):
        assert kelto.correct(np.zeros((0, 5, 16), np.uint16), matrix).shape == (0, 5, 6)


class TestFillAndReflectance:
    def test_fill_marks_whole_pixels(self, cube, matrix):
        holed = cube.copy()
        holed[4, 5, 9] = 65535
        holed[10, 0, 0] = 65535
        out = kelto.correct(holed, matrix, fill=65535)
        assert np.isnan(out[4, 5]).all() and np.isnan(out[10, 0]).all()
        assert np.count_nonzero(np.isnan(out).any(axis=-1)) == 2
        np.testing.assert_allclose(out, reference(holed, matrix, fill=65535), rtol=1e-5,
                                   atol=1e-3)
        # Without a fill value the sample is a number like any other.
        assert not np.isnan(kelto.correct(holed, matrix)).any()

    def test_reflectance_by_spectra_and_by_blocks(self, cube, matrix):
        rng = np.random.default_rng(11)
        dark = rng.uniform(0, 5, 16)
        white = rng.uniform(250, 300, 16)
        out = kelto.correct(cube, matrix, dark=dark, white=white)
        np.testing.assert_allclose(out, reference(cube, matrix, dark=dark, white=white),
                                   rtol=1e-4, atol=1e-5)
        dark_block = rng.uniform(0, 5, cube.shape).astype(np.float32)
        white_block = np.full(cube.shape, 280, dtype=np.uint16)
        white_block[2, 3, 4] = 0  # white below dark: no reflectance there
        out = kelto.correct(cube, matrix, dark=dark_block, white=white_block)
        expected = reference(cube, matrix, dark=dark_block, white=white_block)
        assert np.isnan(out[2, 3]).all()
        np.testing.assert_allclose(out, expected, rtol=1e-4, atol=1e-5)

    def test_into_a_given_array_of_any_order(self, cube, matrix):
        expected = kelto.correct(cube, matrix)
        out = np.full((6, 29, 37), -1, dtype=np.float32).transpose(2, 1, 0)
        result = kelto.correct(cube, matrix, out=out)
        assert result is out or np.shares_memory(result, out)
        np.testing.assert_array_equal(out, expected)


class TestNoCopy:
    @pytest.mark.parametrize("order", ["C", "F"])
    def test_the_input_is_read_in_place(self, order):
        cube = np.asarray(np.random.default_rng(5).integers(0, 4096, (512, 256, 16),
                                                            dtype=np.uint16), order=order)
        few = synthetic_matrix(16, 4)  # a result of half the input's size
        tracemalloc.start()
        try:
            out = kelto.correct(cube, few, scale=4095.0, fill=65535)
            _, peak = tracemalloc.get_traced_memory()
        finally:
            tracemalloc.stop()
        assert peak < cube.nbytes
        # Nothing beyond the result itself is allocated in Python's sight.
        assert peak - out.nbytes < 64 * 1024
        given = np.empty((512, 256, 4), dtype=np.float32)
        tracemalloc.start()
        try:
            kelto.correct(cube, few, out=given)
            _, peak = tracemalloc.get_traced_memory()
        finally:
            tracemalloc.stop()
        assert peak < 64 * 1024

    def test_resident_memory_does_not_grow_by_a_copy(self):
        # tracemalloc sees Python's allocations only; the peak resident size sees the library's.
        try:
            with open("/proc/self/clear_refs", "w") as refs:
                refs.write("5")
        except OSError:
            pytest.skip("the peak resident size can't be reset here")
        cube = np.ones((2048, 1024, 16), dtype=np.uint16, order="F")  # 64 MiB
        out = np.full((2048, 1024, 2), -1.0, dtype=np.float32)  # every page touched
        few = synthetic_matrix(16, 2)

        def kib(field):
            with open("/proc/self/status") as status:
                for line in status:
                    if line.startswith(field):
                        return int(line.split()[1])
            raise AssertionError(field)

        with open("/proc/self/clear_refs", "w") as refs:
            refs.write("5")
        before = kib("VmRSS:")
        kelto.correct(cube, few, out=out)
        assert (kib("VmHWM:") - before) * 1024 < cube.nbytes / 8


class TestThreads:
    def test_threads_correct_disjoint_blocks_of_one_output(self, cube, matrix):
        expected = kelto.correct(cube, matrix)
        out = np.empty_like(expected)
        threads = [threading.Thread(target=kelto.correct, args=(cube[rows], matrix),
                                    kwargs={"out": out[rows]})
                   for rows in (slice(0, 10), slice(10, 25), slice(25, None))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        np.testing.assert_array_equal(out, expected)


class TestErrors:
    def test_wrong_number_of_dimensions(self, cube, matrix):
        for bad in (cube[0], cube[None], np.float32(3.0)):
            with pytest.raises(ValueError, match="three dimensions"):
                kelto.correct(bad, matrix)

    def test_wrong_band_count(self, cube, matrix):
        with pytest.raises(ValueError, match="15 bands"):
            kelto.correct(cube[:, :, :15], matrix)

    @pytest.mark.parametrize("dtype", ["int8", "int64", "uint64", "float16", "bool",
                                       "complex64", ">u2", "object"])
    def test_unsupported_dtypes(self, cube, matrix, dtype):
        with pytest.raises(TypeError, match="unsupported dtype"):
            kelto.correct(cube.astype(dtype), matrix)

    def test_bad_references_output_and_matrix(self, cube, matrix):
        with pytest.raises(ValueError, match="both"):
            kelto.correct(cube, matrix, dark=np.zeros(16))
        with pytest.raises(ValueError, match="shape"):
            kelto.correct(cube, matrix, dark=np.zeros(15), white=np.ones(15))
        with pytest.raises(ValueError, match="out must be"):
            kelto.correct(cube, matrix, out=np.empty((37, 29, 5), np.float32))
        with pytest.raises(ValueError, match="out must be"):
            kelto.correct(cube, matrix, out=np.empty((37, 29, 6), np.float64))
        read_only = np.empty((37, 29, 6), np.float32)
        read_only.flags.writeable = False
        with pytest.raises(ValueError, match="writeable"):
            kelto.correct(cube, matrix, out=read_only)
        with pytest.raises(ValueError):
            kelto.correct(cube, matrix, scale=0.0)
        with pytest.raises(ValueError):
            kelto.correct(cube, kelto.CorrectionMatrix())
        broken = synthetic_matrix(16, 2)
        broken.virtual_bands[1].coefficients = np.full(16, np.nan)
        with pytest.raises(ValueError):
            kelto.correct(cube, broken)
        with pytest.raises(TypeError):
            kelto.correct(cube, "true_peaks")
        with pytest.raises(TypeError, match="fill"):
            kelto.correct(cube, matrix, fill="none")

#!/usr/bin/env python3
"""kelto.correct beside the plain numpy road on the same cubes in one run: the cube as an array
of shape (lines, pixels, bands) of uint16, once in pixel order (C) and once band-sequential (a
transposed view, as a memory map of a BSQ file gives it), against numpy's conversion to float32,
matmul by the transposed matrix and NaN for the pixels holding the fill value. One thread on
both sides: kelto.correct runs on the calling thread, and numpy's BLAS (Debian's OpenBLAS,
package libopenblas0-pthread) is held to one thread.

Run after building: /usr/bin/python3 bench/bench_python_correct.py (it finds the package in
build/python, or wherever PYTHONPATH says)."""

import os
import pathlib
import sys

os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")
os.environ.setdefault("OMP_NUM_THREADS", "1")
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "build" / "python"))

import time  # noqa: E402

import numpy as np  # noqa: E402

import kelto  # noqa: E402

CASES = [(2048, 1088, 16), (1024, 512, 150)]
FILL = 65535
REPEATS = 3


def coefficients(bands):
    v = np.arange(bands)[:, None]
    b = np.arange(bands)[None, :]
    return np.where(v == b, 1.2, -0.2 / (1 + np.abs(v - b))).astype(np.float32)


def as_matrix(values):
    matrix = kelto.CorrectionMatrix()
    matrix.name = "bench"
    for row, weights in enumerate(values):
        band = kelto.VirtualBand()
        band.wavelength_nm = 500.0 + row
        band.fwhm_nm = 10.0
        band.coefficients = weights
        matrix.virtual_bands.append(band)
    return matrix


def numpy_correct(cube, weights):
    flat = cube.reshape(-1, cube.shape[-1])
    out = flat.astype(np.float32) @ weights.T
    out[(flat == FILL).any(axis=1)] = np.nan
    return out.reshape(cube.shape[:-1] + (weights.shape[0],))


def best_of(function):
    best = float("inf")
    result = None
    for _ in range(REPEATS):
        start = time.perf_counter()
        result = function()
        best = min(best, time.perf_counter() - start)
    return best, result


def blas():
    for name in ("libblas.so.3-x86_64-linux-gnu", "libblas.so.3"):
        path = os.path.join("/etc/alternatives", name)
        if os.path.exists(path):
            return os.path.realpath(path)
    return "unknown"


def main():
    print(f"kelto {kelto.__version__}, numpy {np.__version__}, BLAS {blas()}, "
          f"OPENBLAS_NUM_THREADS={os.environ['OPENBLAS_NUM_THREADS']}")
    rng = np.random.default_rng(12345)
    for pixels, lines, bands in CASES:
        cube = rng.integers(0, 1024, size=(lines, pixels, bands), dtype=np.uint16)
        cube[::97, ::89, 3] = FILL
        weights = coefficients(bands)
        matrix = as_matrix(weights.astype(np.float64))
        band_sequential = np.ascontiguousarray(cube.transpose(2, 0, 1)).transpose(1, 2, 0)
        spectra = pixels * lines
        rows = []
        seconds, expected = best_of(lambda: numpy_correct(cube, weights))
        rows.append(("numpy astype+matmul, C order", seconds))
        seconds, ours = best_of(lambda: kelto.correct(cube, matrix, fill=FILL))
        rows.append(("kelto.correct, C order", seconds))
        np.testing.assert_allclose(ours, expected, rtol=1e-4, atol=1e-3)
        seconds, _ = best_of(lambda: numpy_correct(band_sequential, weights))
        rows.append(("numpy astype+matmul, band-sequential view", seconds))
        seconds, ours = best_of(lambda: kelto.correct(band_sequential, matrix, fill=FILL))
        rows.append(("kelto.correct, band-sequential view", seconds))
        np.testing.assert_allclose(ours, expected, rtol=1e-4, atol=1e-3)
        moved = cube.nbytes + ours.nbytes
        print(f"\n{pixels} x {lines} pixels x {bands} bands (uint16, {cube.nbytes / 2**20:.0f} MiB)")
        for label, seconds in rows:
            print(f"  {label:44s} {seconds * 1e3:8.1f} ms  {spectra / seconds / 1e6:7.2f} M "
                  f"spectra/s  {moved / seconds / 1e9:5.2f} GB/s")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""The work of bench_block_correction done as a numpy user would: the cube as an array of shape
(lines, pixels, bands), converted to float32 and multiplied by the transposed matrix, with the
pixels holding the fill value set to NaN. One BLAS thread, as the C++ benchmark has one thread.

Run with Debian's OpenBLAS under numpy (package libopenblas0-pthread): the reference BLAS that
Debian installs by default is no fair peer. The BLAS in use is printed."""

import os

os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")
os.environ.setdefault("OMP_NUM_THREADS", "1")

import time  # noqa: E402

import numpy as np  # noqa: E402

CASES = [(2048, 1088, 16), (2048, 1000, 150)]
FILL = 65535


def matrix(bands):
    v = np.arange(bands)[:, None]
    b = np.arange(bands)[None, :]
    return np.where(v == b, 1.2, -0.2 / (1 + np.abs(v - b))).astype(np.float32)


def blas():
    for name in ("libblas.so.3-x86_64-linux-gnu", "libblas.so.3"):
        path = os.path.join("/etc/alternatives", name)
        if os.path.exists(path):
            return os.path.realpath(path)
    return "unknown"


def main():
    print("numpy", np.__version__, "BLAS", blas())
    rng = np.random.default_rng(12345)
    for pixels, lines, bands in CASES:
        cube = rng.integers(0, 1024, size=(lines, pixels, bands), dtype=np.uint16)
        coefficients = matrix(bands)
        best = float("inf")
        for _ in range(3):
            start = time.perf_counter()
            flat = cube.reshape(-1, bands)
            out = flat.astype(np.float32) @ coefficients.T
            out[(flat == FILL).any(axis=1)] = np.nan
            best = min(best, time.perf_counter() - start)
        spectra = pixels * lines
        moved = cube.nbytes + out.nbytes
        print(f"numpy {pixels} x {lines} x {bands}: {best * 1e3:.1f} ms, "
              f"{spectra / best / 1e6:.2f} M spectra/s, {moved / best / 1e9:.2f} GB/s")


if __name__ == "__main__":
    main()

"""Shared fixtures: the bundled sample data, the sample scene and kelto-hsi.

Run by ctest with PYTHONPATH at the build tree's package; run by hand the same way:
    PYTHONPATH=build/python /usr/bin/python3 -m pytest python/tests
"""

import os
import pathlib

import pytest

import kelto
from kelto import envi

DATA_DIR = pathlib.Path(os.environ.get(
    "KELTO_DATA_DIR",
    pathlib.Path(__file__).resolve().parents[2] / "hyperspectral" / "tests" / "data"))
CALIBRATION_DIR = DATA_DIR / "calibrations"
SAMPLES = sorted(CALIBRATION_DIR.glob("*.xml"))
MOSAIC = CALIBRATION_DIR / "VKR9-MZT4x4-470_620.xml"
SCENE = DATA_DIR / "scene" / "VKR9-MZT4x4-470_620.hdr"


@pytest.fixture
def calibration():
    """A fresh copy of the 4x4 mosaic sample, free to change."""
    return kelto.read_calibration(MOSAIC, strict=True)


@pytest.fixture(scope="session")
def scene():
    return envi.open_cube(SCENE)


@pytest.fixture(scope="session")
def scene_matrix():
    return kelto.read_calibration(MOSAIC).correction_matrices["true_peaks"]


@pytest.fixture(scope="session")
def kelto_hsi():
    path = os.environ.get("KELTO_HSI")
    if not path or not os.access(path, os.X_OK):
        pytest.skip("kelto-hsi is not built (set KELTO_HSI to its path)")
    return path

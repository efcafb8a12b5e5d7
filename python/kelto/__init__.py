"""Calibration and spectral correction of image sensors with on-chip spectral filters.

Read a calibration, compute or pick a correction matrix, and apply it to cubes held as numpy
arrays of shape (rows, columns, bands)::

    import kelto
    calibration = kelto.read_calibration("VKR9-MZT4x4-470_620.xml")
    matrix = calibration.correction_matrices["true_peaks"]
    corrected = kelto.correct(cube, matrix, scale=13348, fill=65535)

Records are the library's own objects: a nested record or an element of a list is a reference
into its owner, so changing it changes the owner; numeric vectors come out as read-only float64
arrays (copies) and are changed by assigning a new sequence. The plots are in kelto.plot, the
Dask front in kelto.dask, a small ENVI reader in kelto.envi.
"""

import logging as _logging
import os as _os

import numpy as _np

from ._kelto import (  # noqa: F401
    __version__,
    Band,
    BandList,
    Calibration,
    CalibrationInfo,
    CorrectionAlgorithm,
    CorrectionMatrix,
    CorrectionMatrixList,
    CorrectionMatrixParameters,
    Distribution,
    EventSource,
    FilterInfo,
    FilterLayout,
    FilterZone,
    FilterZoneList,
    InversionAlgorithm,
    MatrixType,
    OpticalComponent,
    OpticalComponentList,
    OpticalComponentType,
    ParserState,
    Peak,
    PeakList,
    Record,
    RegionOfInterest,
    SensorInfo,
    SensorType,
    SpectralCorrectionInfo,
    SystemInfo,
    VirtualBand,
    VirtualBandList,
    correct,
    load_parameters,
    parameter_keys,
)
from . import _kelto

__all__ = [
    "Band", "Calibration", "CalibrationInfo", "CorrectionMatrix", "CorrectionMatrixParameters",
    "FilterInfo", "FilterZone", "OpticalComponent", "Peak", "SensorInfo", "SystemInfo",
    "VirtualBand", "MatrixType", "ParserState", "EventSource", "ParseError", "read_calibration",
    "read_parameters", "load_parameters", "parameter_keys", "compute_peaks",
    "compute_correction_matrix", "correct", "band_info", "envi_metadata",
]


# The library's own log (timings, and the errors that also reach the caller as exceptions) goes
# to the logger "kelto", silent until the application configures logging.
_logging.getLogger("kelto").addHandler(_logging.NullHandler())


class ParseError(ValueError):
    """A record file read with strict=True that holds an error. `events` has every event of the
    read as (state, source, text)."""

    def __init__(self, path, events):
        errors = [e for e in events if e[0] == ParserState.ERROR]
        lines = "; ".join(f"{source.name}: {text}" for _, source, text in errors[:5])
        more = f" and {len(errors) - 5} more" if len(errors) > 5 else ""
        super().__init__(f"{_os.fspath(path)}: {len(errors)} error(s): {lines}{more}")
        self.path = path
        self.events = events


def _read(record, path, strict):
    events = record.read(path)
    if strict and any(state == ParserState.ERROR for state, _, _ in events):
        raise ParseError(path, events)
    return events


def read_calibration(path, strict=False):
    """Reads a calibration file of any version.

    The returned Calibration has the read's events in `events`, as (state, source, text)
    tuples. A problem in the file never raises unless strict is true, in which case an event of
    state ERROR raises ParseError. A missing file raises FileNotFoundError."""
    calibration = Calibration()
    calibration.events = _read(calibration, path, strict)
    return calibration


def read_parameters(path, strict=False):
    """Reads a parameter document ("correction_matrix_parameters") file; see read_calibration.
    The events are in the returned object's `events`."""
    parameters = CorrectionMatrixParameters()
    parameters.events = _read(parameters, path, strict)
    return parameters


# A fresh record has had no read and so no events.
Calibration.events = ()


def _parameters_for(calibration, parameters):
    """The parameter document of a computation: the embedded one of the calibration's type by
    default, a key, a parameter file, or a CorrectionMatrixParameters."""
    if isinstance(parameters, CorrectionMatrixParameters):
        return parameters
    if parameters is None:
        key = calibration.type_name
    else:
        key = _os.fspath(parameters)
        if _os.path.exists(key):
            return read_parameters(key, strict=True)
    try:
        return load_parameters(key)
    except ValueError:
        known = ", ".join(parameter_keys())
        what = "the calibration's type" if parameters is None else "the key or file"
        raise ValueError(f"no parameter document for {what} {key!r}; known keys: {known}; or "
                         "pass a parameter file or a CorrectionMatrixParameters") from None


def _check_for_analysis(calibration):
    """What the analysis needs beyond what the records check: a grid of at least five rising
    points and, in every band, one finite value per grid point."""
    grid = calibration.filter_info.calibration_info.sample_points_nm
    if grid.size < 5:
        raise ValueError(f"the calibration's grid has {grid.size} sample points; the analysis "
                         "needs at least 5")
    if not (_np.all(_np.isfinite(grid)) and _np.all(_np.diff(grid) > 0)):
        raise ValueError("the calibration's grid does not rise strictly")
    bands = calibration.filter_info.bands
    if not bands:
        raise ValueError("the calibration has no bands")
    for number, band in enumerate(bands):
        response = band.response
        if response.size != grid.size or not _np.all(_np.isfinite(response)):
            raise ValueError(f"band {number} (pattern position {band.pattern_position_index}): "
                             f"the response needs one finite value per grid point "
                             f"({response.size} values for {grid.size} points)")


def compute_peaks(calibration, parameters=None, force=False):
    """Fits up to two peaks per band of the calibration's measured responses (through its
    optical components) and stores them in its bands, greatest contribution first.

    parameters: None for the embedded document of the calibration's type, a key of
    parameter_keys(), a parameter file, or a CorrectionMatrixParameters. The bands of each zone
    come out sorted by pattern position; as that reorders the columns of stored correction
    matrices, a calibration with matrices and unsorted bands needs force=True."""
    _check_for_analysis(calibration)
    document = _parameters_for(calibration, parameters)
    unsorted = any(
        [b.pattern_position_index for b in zone.bands]
        != sorted(b.pattern_position_index for b in zone.bands)
        for zone in calibration.filter_info.filter_zones)
    if unsorted and calibration.system_info.spectral_correction_info.correction_matrices \
            and not force:
        raise ValueError("the bands must be sorted by pattern position, which reorders the bands "
                         "that the calibration's correction matrices weigh; pass force=True")
    _kelto._compute_peaks(calibration, document)
    return calibration


def compute_correction_matrix(calibration, name, parameters=None, type=None, all_bands=False):
    """Computes a correction matrix from the calibration's measured responses and stores it in
    the calibration under `name` (replacing a matrix of that name); returns the stored matrix.

    parameters: as for compute_peaks. type: MatrixType.REFLECTANCE (the default, for
    white-referenced bands) or MatrixType.IRRADIANCE (for bands as measured), or their names.
    all_bands: use every band instead of the bands' own selection. ValueError when no band
    qualifies as a virtual filter."""
    _check_for_analysis(calibration)
    document = _parameters_for(calibration, parameters)
    if isinstance(type, str):
        try:
            type = MatrixType.__members__[type.upper()]
        except KeyError:
            raise ValueError(f"unknown matrix type {type!r}; reflectance or irradiance") from None
    matrix = _kelto._compute_correction_matrix(calibration, name, document, type, all_bands)
    if not matrix.virtual_bands:
        raise ValueError("no band qualifies as a virtual filter (too little energy, contribution "
                         "or fit quality, or not selected)")
    matrices = calibration.system_info.spectral_correction_info.correction_matrices
    for index, stored in enumerate(matrices):
        if stored.name == name:
            matrices[index] = matrix
            return matrices[index]
    matrices.append(matrix)
    return matrices[len(matrices) - 1]


def band_info(matrix):
    """The virtual bands of a matrix as Spectral Python's BandInfo fields: set them on a
    spectral.BandInfo (centers, bandwidths, band_quantity, band_unit)."""
    return {
        "centers": matrix.wavelengths.tolist(),
        "bandwidths": matrix.fwhms.tolist(),
        "band_quantity": "Wavelength",
        "band_unit": "nm",
    }


def envi_metadata(matrix):
    """The header fields of an ENVI cube of the matrix's virtual bands, as a dict for Spectral
    Python's envi.save_image(metadata=...) or GDAL's "ENVI" metadata domain."""
    return {
        "wavelength": [f"{w:.9g}" for w in matrix.wavelengths],
        "fwhm": [f"{w:.9g}" for w in matrix.fwhms],
        "wavelength units": "Nanometers",
        "band names": [f"{w:.1f} nm" for w in matrix.wavelengths],
    }


# Pickling: a record travels as its fields, exactly (the XML form rounds vectors), and is rebuilt
# by its class's constructor and setters. The fields are the properties that can be set.
def _fields(cls):
    names = []
    for klass in reversed(cls.__mro__):
        for name, value in vars(klass).items():
            if isinstance(value, property) and value.fset is not None and name not in names:
                names.append(name)
    return names


def _restore(cls, arguments, state):
    record = cls(*arguments)
    for name, value in state.items():
        setattr(record, name, value)
    return record


def _reduce(record):
    cls = type(record)
    arguments = record.__getinitargs__() if hasattr(record, "__getinitargs__") else ()
    state = {name: getattr(record, name) for name in _fields(cls)}
    state.update(getattr(record, "__dict__", {}))
    return (_restore, (cls, arguments, state))


def _install_pickling():
    records = [RegionOfInterest, SensorInfo, CalibrationInfo, Peak, Band, FilterZone, FilterInfo,
               OpticalComponent, VirtualBand, CorrectionMatrix, SpectralCorrectionInfo,
               SystemInfo, Calibration, CorrectionMatrixParameters]
    records += [getattr(CorrectionMatrixParameters, part) for part in (
        "PeakDetection", "PeakShapeFitting", "BandSelection", "Inversion", "PostProcessing")]
    for cls in records:
        cls.__reduce__ = _reduce


_install_pickling()

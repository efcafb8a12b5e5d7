"""A small reader of ENVI cubes as numpy memory maps of shape (rows, columns, bands).

Band-sequential and line-interleaved files come out as strided views of the file, which
kelto.correct reads in place: a cube is never loaded whole. For everything else ENVI can hold
(compression, other formats) use GDAL or Spectral Python; their arrays work the same way.
"""

import os
import re
from collections import namedtuple

import numpy as np

# ENVI's "data type" codes.
_DTYPES = {1: "u1", 2: "i2", 3: "i4", 4: "f4", 5: "f8", 12: "u2", 13: "u4", 14: "i8", 15: "u8"}

Cube = namedtuple("Cube", "data header wavelengths fwhm scale fill")
Cube.__doc__ = """An opened cube: data of shape (rows, columns, bands) (a read-only memory map),
the header's fields by lower-case name, the band wavelengths and widths (None when absent), the
"reflectance scale factor" (1.0 when absent) and the "data ignore value" (None when absent)."""


def read_header(path):
    """The fields of an ENVI header as a dict of lower-case names to text; {...} lists are
    kept as their inner text."""
    with open(path, encoding="utf-8", errors="replace") as file:
        text = file.read()
    if not text.lstrip().startswith("ENVI"):
        raise ValueError(f"{path} is not an ENVI header")
    fields = {}
    for match in re.finditer(r"^\s*([^=\n]+?)\s*=\s*(\{[^}]*\}|[^\n]*)", text, re.MULTILINE):
        value = match.group(2).strip()
        if value.startswith("{"):
            value = value[1:-1].strip()
        fields[match.group(1).strip().lower()] = value
    return fields


def _numbers(text):
    return np.array([float(v) for v in text.replace("\n", " ").split(",") if v.strip()])


def _data_file(header_path, fields):
    if "data file" in fields:
        return os.path.join(os.path.dirname(header_path), fields["data file"])
    stem = os.path.splitext(header_path)[0]
    for candidate in (stem, stem + ".raw", stem + ".img", stem + ".dat", stem + ".bsq",
                      stem + ".bil", stem + ".bip"):
        if os.path.isfile(candidate):
            return candidate
    raise FileNotFoundError(f"no data file beside {header_path}")


def open_cube(path):
    """Opens an ENVI cube by its header (or its data file with the header beside it)."""
    path = os.fspath(path)
    header_path = path if path.endswith(".hdr") else os.path.splitext(path)[0] + ".hdr"
    if not os.path.isfile(header_path):
        raise FileNotFoundError(f"no ENVI header {header_path}")
    fields = read_header(header_path)
    try:
        columns, rows, bands = (int(fields[k]) for k in ("samples", "lines", "bands"))
        code = int(fields.get("data type", "0"))
    except (KeyError, ValueError) as error:
        raise ValueError(f"{header_path}: a size or the data type is missing or bad") from error
    if code not in _DTYPES:
        raise ValueError(f"{header_path}: unsupported data type {code}")
    order = ">" if fields.get("byte order", "0").strip() == "1" else "<"
    dtype = np.dtype(order + _DTYPES[code])
    interleave = fields.get("interleave", "bsq").strip().lower()
    shapes = {"bsq": (bands, rows, columns), "bil": (rows, bands, columns),
              "bip": (rows, columns, bands)}
    axes = {"bsq": (1, 2, 0), "bil": (0, 2, 1), "bip": (0, 1, 2)}
    if interleave not in shapes:
        raise ValueError(f"{header_path}: unknown interleave {interleave}")
    data_path = path if not path.endswith(".hdr") else _data_file(header_path, fields)
    offset = int(fields.get("header offset", "0"))
    expected = offset + rows * columns * bands * dtype.itemsize
    if os.path.getsize(data_path) < expected:
        raise ValueError(f"{data_path} holds {os.path.getsize(data_path)} bytes, the header "
                         f"describes {expected}")
    stored = np.memmap(data_path, dtype=dtype, mode="r", offset=offset, shape=shapes[interleave])
    data = stored.transpose(axes[interleave])
    wavelengths = _numbers(fields["wavelength"]) if "wavelength" in fields else None
    fwhm = _numbers(fields["fwhm"]) if "fwhm" in fields else None
    scale = 1.0
    if "reflectance scale factor" in fields:
        scale = float(fields["reflectance scale factor"].split(",")[0])
    fill = None
    if "data ignore value" in fields:
        fill = float(fields["data ignore value"])
    return Cube(data, fields, wavelengths, fwhm, scale, fill)

#!/usr/bin/python3
"""Writes the seed inputs of fuzz/corpus/ from the sample, legacy and resource files and a few
hand-made shapes. Run from the repository root; the output is committed, so this runs only when
the seeds should change. The calibration and parameter targets also read the sample folders
directly (see fuzz/CMakeLists.txt)."""

import copy
import os
import random
import struct
import xml.etree.ElementTree as ET

DATA = "hyperspectral/tests/data"
OUT = "fuzz/corpus"

# The first byte of an input of the record target picks the record (fuzz_records.cpp, Records()).
RECORD_BYTE = {
    "sensor_calibration": 0, "sensor_info": 1, "filter_info": 2,
    "filter_zone": {"NO_FILTER": 3, "WEDGE": 4, "TILED": 5, "MOSAIC": 6},
    "band": 7, "band_info": 7, "peak": 8, "peak_info": 8, "calibration_info": 9,
    "correction_matrix": 10, "virtual_band": 11, "spectral_correction_info": 12,
    "system_info": 13, "optical_component": 14, "rejection_filter": 15,
}


def write(target, name, data):
    folder = os.path.join(OUT, target)
    os.makedirs(folder, exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def record_byte(element):
    entry = RECORD_BYTE.get(element.tag)
    if isinstance(entry, dict):
        layout = element.get("layout") or "WEDGE"
        return entry.get(layout, 4)
    return entry


def shrink(element, keep=2, values=6):
    """Keeps the first `keep` items of every list and the first `values` numbers of every vector,
    so that a seed is small and the fuzzer runs fast; the samples themselves seed the replay."""
    for parent in element.iter():
        for tag in ("band", "virtual_band", "peak", "filter_zone", "optical_component"):
            items = parent.findall(tag)
            for item in items[keep:]:
                parent.remove(item)
        if "nr_elements" in parent.attrib and "values" in parent.attrib:
            numbers = parent.get("values").split()[:values]
            parent.set("nr_elements", str(len(numbers)))
            parent.set("values", " ".join(numbers))
    return element


def record_seeds():
    seen = set()
    sources = [os.path.join(DATA, "legacy", f) for f in sorted(os.listdir(os.path.join(DATA, "legacy")))]
    sources += [os.path.join(DATA, f) for f in ("sensor_info_vkr9.xml", "sensor_info_defective.xml",
                                                 "calibration_info_v1.xml")]
    for path in sources:
        root = ET.parse(path).getroot()
        byte = record_byte(root)
        if byte is not None:
            write("record", os.path.basename(path), bytes([byte]) + open(path, "rb").read())
    # Every record of a current calibration, cut out of a sample, once per tag and layout.
    for name in sorted(os.listdir(os.path.join(DATA, "calibrations"))):
        root = shrink(ET.parse(os.path.join(DATA, "calibrations", name)).getroot())
        write("calibration", "small-" + name, ET.tostring(root, encoding="unicode"))
        for element in root.iter():
            byte = record_byte(element)
            key = (element.tag, element.get("layout"))
            if byte is None or key in seen:
                continue
            seen.add(key)
            text = ET.tostring(shrink(copy.deepcopy(element)), encoding="unicode")
            write("record", "%s-%s" % ("-".join(k for k in key if k), name), bytes([byte]) + text.encode())


def context_seeds():
    write("context_description", "v1.xml",
          '<?xml version="1.0" encoding="UTF-8"?>\n<context_description version="1">\n'
          '  <sensor_type>VKR9</sensor_type>\n  <camera_id>cam-17</camera_id>\n</context_description>\n')
    write("context_description", "v0.xml", '<context_description version="0"/>')
    write("context_description", "tem480.xml",
          '<context_description version="2"><sensor_type>TEM480</sensor_type>'
          '<camera_id></camera_id></context_description>')


def product_seeds():
    product = ('<sensor_product version="1" lot="7 8" wafer="1 25" x_start="-3" x_modulo="4" '
               'y_start="2" y_modulo="7"><internal_product_number>IPN 2</internal_product_number>'
               '<product_tag>mosaic</product_tag><product_description>4 by 4 &lt;mosaic&gt; &amp; more'
               '</product_description></sensor_product>')
    write("product_map", "two.xml",
          '<?xml version="1.0" encoding="UTF-8"?>\n<sensor_products version="0" x_max="60" y_max="45">'
          + product + product.replace('x_modulo="4"', 'x_modulo="0"').replace('version="1"', 'version="0"')
          + '</sensor_products>')
    write("product_map", "empty.xml", '<sensor_products version="0" x_max="1" y_max="1"/>')


def binary_seeds():
    rng = random.Random(12)
    for target in ("data_accessor", "block_corrector"):
        for i in range(12):
            write(target, "shape-%02d" % i, bytes(rng.randrange(256) for _ in range(64 + 48 * i)))
    # Shapes spelled out: a 4 x 3 cube of 3 bands (type 6, by pixel), normalised, with a matrix.
    small = bytes([6, 2, 4, 3, 0, 16 + 100, 16 + 100, 16 + 65, 3]) + bytes([16, 16, 16]) * 2 + \
        bytes([16 + 50, 16 + 10, 16 + 60, 16 + 10, 16 + 70, 16 + 10]) + bytes([1, 0, 1]) + \
        bytes(range(72)) + bytes([2, 16 + 5, 16 + 1, 0, 16 + 1, 16 + 2, 16 + 3, 16 + 6, 16 + 1, 0,
                                  16 + 3, 16 + 2, 16 + 1, 1, 1, 2, 3, 4, 5, 6])
    write("data_accessor", "cube-4x3x3", small)
    corrector = bytes([3, 2, 0, 16 + 1, 16 + 2, 16 + 3, 16 + 1, 16 + 1, 0, 16 + 4, 16 + 5, 16 + 6,
                       13, 4, 2, 3, 1, 16 + 1, 16 + 0]) + \
        b"".join(struct.pack("<f", v) for v in range(24)) + bytes([1])
    write("block_corrector", "float-4x2x3", corrector)


def envi(samples, lines, bands, data_type, interleave, extra=""):
    return ("ENVI\nsamples = %d\nlines = %d\nbands = %d\nheader offset = 0\nfile type = ENVI Standard\n"
            "data type = %d\ninterleave = %s\nbyte order = 0\n%s" % (samples, lines, bands, data_type,
                                                                       interleave, extra))


def cube_seeds():
    sizes = {1: 1, 2: 2, 3: 4, 4: 4, 5: 8, 12: 2, 13: 4, 14: 8, 15: 8, 6: 8}
    for i, (data_type, size) in enumerate(sorted(sizes.items())):
        interleave = ("bsq", "bil", "bip")[i % 3]
        header = envi(3, 2, 4, data_type, interleave,
                      "data ignore value = 7\nreflectance scale factor = 1000\n"
                      "wavelength units = Nanometers\nwavelength = {470, 480, 490, 500}\n"
                      "fwhm = {10, 10, 11, 11}\n")
        write("cube_reader", "type%d-%s" % (data_type, interleave),
              header.encode() + b"\0" + bytes((7 * k) % 256 for k in range(3 * 2 * 4 * size)))
    write("cube_reader", "big-endian",
          envi(2, 2, 2, 2, "bsq").replace("byte order = 0", "byte order = 1").encode() + b"\0" + bytes(range(16)))
    write("cube_reader", "micrometers",
          envi(2, 1, 2, 4, "bip", "wavelength units = Micrometers\nwavelength = {0.47, 0.48}\n").encode()
          + b"\0" + struct.pack("<4f", 1, 2, 3, 4))
    write("cube_reader", "offset", envi(2, 1, 1, 1, "bsq").replace("header offset = 0", "header offset = 3")
          .encode() + b"\0" + bytes(5))
    for name in sorted(os.listdir(os.path.join(DATA, "scene"))):
        if name.endswith(".hdr"):
            # The sample headers with a short data file, which the reader must refuse.
            write("cube_reader", "short-" + name, open(os.path.join(DATA, "scene", name), "rb").read()
                  + b"\0" + bytes(64))


def dictionary():
    """fuzz/xml.dict: the element and attribute names of every sample, legacy and resource file and
    of the hand-made seeds, the enumeration texts they hold, and XML's own punctuation."""
    elements, attributes, words = set(), set(), set()
    folders = [os.path.join(DATA, "legacy"), os.path.join(DATA, "calibrations"), DATA,
               "hyperspectral/resources", os.path.join(OUT, "context_description"),
               os.path.join(OUT, "product_map")]
    for folder in folders:
        for name in sorted(os.listdir(folder)):
            if not name.endswith(".xml"):
                continue
            for element in ET.parse(os.path.join(folder, name)).getroot().iter():
                elements.add(element.tag)
                for key, value in element.attrib.items():
                    attributes.add(key)
                    if value.replace("_", "").isalnum() and not value[0].isdigit() and len(value) < 24:
                        words.add(value)
                text = (element.text or "").strip()
                if text and text.replace("_", "").isalpha() and len(text) < 24:
                    words.add(text)
    lines = ["# Element and attribute names the readers know, the words they parse, and XML's own.",
             "# Written by fuzz/make_seeds.py."]
    lines += ['"<%s>"' % e for e in sorted(elements)]
    lines += ['"</%s>"' % e for e in sorted(elements)]
    lines += ['" %s=\\""' % a for a in sorted(attributes)]
    lines += ['"%s"' % w for w in sorted(words)]
    lines += ['"<?xml version=\\"1.0\\" encoding=\\"UTF-8\\"?>"', '"/>"', '"<![CDATA["', '"]]>"',
              '"&amp;"', '"&#x0;"', '"<!--"', '"-->"', '"<!DOCTYPE"', '"xmlns:"', '"nan"', '"inf"',
              '"-nan"', '"1e308"', '"4294967296"', '"-1"', '"not-a-date-time"', '"2024-05-17T09:30:00Z"',
              '"20240517T093000"', '"true"', '"false"']
    with open("fuzz/xml.dict", "w") as f:
        f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    dictionary()
    record_seeds()
    context_seeds()
    product_seeds()
    binary_seeds()
    cube_seeds()

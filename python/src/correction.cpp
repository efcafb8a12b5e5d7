// kelto.correct: numpy cubes of shape (rows, columns, bands) through the block correction. The
// array's strides are the block's strides, so any memory order (C, Fortran, a transposed view, a
// memory map of a band-sequential file) is read in place, and the GIL is released while the
// product runs, so that threads (Dask's among them) correct blocks side by side.
#include <cmath>
#include <limits>
#include <string>

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/hyperspectral/access/block_corrector.h>

#include "bindings.h"

namespace kelto::python {

namespace {

using datatypes::BandImageDataFormat;
using hyperspectral::BlockCorrector;
using hyperspectral::CorrectionMatrix;

constexpr const char* kSupported = "uint8, uint16, int16, int32, uint32, float32 or float64";

// The library's code of the array's sample type; only native byte order reads right.
std::uint32_t SampleType(const py::array& array, const char* what) {
  const py::dtype dtype = array.dtype();
  const auto is = [&](auto zero) { return dtype.equal(py::dtype::of<decltype(zero)>()); };
  if (is(std::uint8_t{}))
    return BandImageDataFormat::kUnsignedChar;
  if (is(std::uint16_t{}))
    return BandImageDataFormat::kUnsignedShort;
  if (is(std::int16_t{}))
    return BandImageDataFormat::kInt16;
  if (is(std::int32_t{}))
    return BandImageDataFormat::kInt32;
  if (is(std::uint32_t{}))
    return BandImageDataFormat::kUnsignedInt;
  if (is(float{}))
    return BandImageDataFormat::kFloat;
  if (is(double{}))
    return BandImageDataFormat::kDouble;
  throw py::type_error(std::string(what) + " has the unsupported dtype " +
                       py::str(static_cast<const py::object&>(dtype)).cast<std::string>() +
                       "; kelto.correct takes " + kSupported + " in native byte order");
}

BlockCorrector::Samples ToSamples(const py::array& array, const char* what) {
  BlockCorrector::Samples samples;
  samples.sample_type = SampleType(array, what);
  samples.data = array.data();
  samples.line_stride = array.strides(0);
  samples.pixel_stride = array.strides(1);
  samples.band_stride = array.strides(2);
  samples.lines = static_cast<unsigned long>(array.shape(0));
  samples.pixels = static_cast<unsigned long>(array.shape(1));
  samples.bands = static_cast<unsigned long>(array.shape(2));
  return samples;
}

std::string Shape(const py::array& array) {
  std::string text = "(";
  for (py::ssize_t d = 0; d < array.ndim(); ++d) {
    text += (d == 0 ? "" : ", ") + std::to_string(array.shape(d));
  }
  return text + (array.ndim() == 1 ? ",)" : ")");
}

// A dark or white reference: one value per band, or a block of the cube's shape.
BlockCorrector::Reference ToReference(const py::object& value, const py::array& cube,
                                      const char* what) {
  const auto array = py::array::ensure(value);
  if (!array) {
    throw py::type_error(std::string(what) + " must be an array");
  }
  BlockCorrector::Reference reference;
  if (array.ndim() == 1 && array.shape(0) == cube.shape(2)) {
    reference.spectrum = FromArray(array, what);
    return reference;
  }
  if (array.ndim() == 3 && array.shape(0) == cube.shape(0) && array.shape(1) == cube.shape(1) &&
      array.shape(2) == cube.shape(2)) {
    reference.block = ToSamples(array, what);
    return reference;
  }
  throw py::value_error(std::string(what) + " has the shape " + Shape(array) +
                        "; it must hold one value per band (" + std::to_string(cube.shape(2)) +
                        ") or have the cube's shape " + Shape(cube));
}

py::array Correct(const py::object& cube_like, const CorrectionMatrix& matrix, double scale,
                  const py::object& fill, const py::object& dark, const py::object& white,
                  const py::object& out) {
  const LogFlush flush;
  // An array is taken as it is; anything else (nested lists, a scalar) as numpy makes it.
  const auto cube = py::array::ensure(cube_like);
  if (!cube) {
    throw py::error_already_set();
  }
  if (cube.ndim() != 3) {
    throw py::value_error("the cube must have three dimensions (rows, columns, bands), not " +
                          std::to_string(cube.ndim()) + " of shape " + Shape(cube));
  }
  const BlockCorrector::Samples input = ToSamples(cube, "the cube");
  const BlockCorrector corrector(matrix);
  if (input.bands != corrector.GetBandCount()) {
    throw py::value_error("the cube has " + std::to_string(input.bands) +
                          " bands, correction matrix \"" + matrix.name + "\" weighs " +
                          std::to_string(corrector.GetBandCount()));
  }
  if (dark.is_none() != white.is_none()) {
    throw py::value_error("reflectance needs both dark and white");
  }
  if (!(scale > 0.0) || !std::isfinite(scale)) {
    throw py::value_error("scale must be a positive finite number");
  }
  double fill_value = std::numeric_limits<double>::quiet_NaN();
  if (!fill.is_none()) {
    try {
      fill_value = py::float_(fill).cast<double>();
    } catch (const py::error_already_set&) {
      throw py::type_error("fill must be a number or None");
    }
  }

  const auto rows = cube.shape(0);
  const auto columns = cube.shape(1);
  const auto virtual_bands = static_cast<py::ssize_t>(corrector.GetVirtualBandCount());
  py::array_t<float> result;
  if (out.is_none()) {
    result = py::array_t<float>({rows, columns, virtual_bands});
  } else {
    const auto given = py::array::ensure(out);
    if (!given || !given.dtype().equal(py::dtype::of<float>()) || given.ndim() != 3 ||
        given.shape(0) != rows || given.shape(1) != columns || given.shape(2) != virtual_bands) {
      throw py::value_error("out must be a float32 array of shape (" + std::to_string(rows) + ", " +
                            std::to_string(columns) + ", " + std::to_string(virtual_bands) + ")");
    }
    // The product writes whole floats: a misaligned view would be undefined behaviour.
    if (!given.writeable() || !given.attr("flags").attr("aligned").cast<bool>()) {
      throw py::value_error("out must be writeable and aligned");
    }
    result = py::reinterpret_borrow<py::array_t<float>>(given);
  }
  BlockCorrector::Target target;
  target.data = result.mutable_data();
  target.line_stride = result.strides(0);
  target.pixel_stride = result.strides(1);
  target.band_stride = result.strides(2);

  if (dark.is_none()) {
    py::gil_scoped_release unlocked;
    corrector.Correct(input, scale, fill_value, target);
  } else {
    const BlockCorrector::Reference dark_reference = ToReference(dark, cube, "dark");
    const BlockCorrector::Reference white_reference = ToReference(white, cube, "white");
    py::gil_scoped_release unlocked;
    corrector.CorrectReflectance(input, dark_reference, white_reference, fill_value, target);
  }
  return std::move(result);
}

}  // namespace

void BindCorrection(py::module_& m) {
  m.def("correct", &Correct, py::arg("cube"), py::arg("matrix"), py::arg("scale") = 1.0,
        py::arg("fill") = py::none(), py::arg("dark") = py::none(), py::arg("white") = py::none(),
        py::arg("out") = py::none(),
        R"(Applies a correction matrix to every pixel of a cube.

cube: an array of shape (rows, columns, bands) of dtype uint8, uint16, int16, int32, uint32,
    float32 or float64, in any memory order: it is read in place through its strides, never
    copied.
matrix: a CorrectionMatrix with one coefficient per band of the cube.
scale: stored samples are real values times scale (ENVI's "reflectance scale factor");
    each sample is divided by it.
fill: a sample value that means "no data" (ENVI's "data ignore value"); a pixel with it in any
    band is NaN in every output band.
dark, white: references that turn the samples into reflectance, (sample - dark) / (white -
    dark), before the matrix: each one value per band or an array of the cube's shape. A pixel
    where white - dark is not positive is NaN. scale cancels out and is not used.
out: an optional float32 array of shape (rows, columns, virtual bands) to write into, in any
    memory order (a memory-mapped file, say).

Returns float32 values of shape (rows, columns, virtual bands). The GIL is released while the
product runs.)");
}

}  // namespace kelto::python

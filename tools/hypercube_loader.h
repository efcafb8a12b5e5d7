// Opens an image cube from a file through GDAL (ENVI in any interleave, sample type and byte
// order, GeoTIFF stacks and the other formats GDAL reads) and holds it as a Hypercube with its
// band wavelengths, fill value and scale. Used by the command-line tools only: the libraries never
// load an image.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <kelto/datatypes/hypercube.h>

namespace kelto::tools {

// Why a cube could not be loaded; `code` is the tool's exit status for it.
class CubeError : public std::runtime_error {
 public:
  enum Code : int {
    kCannotOpen = 4,    // missing, unreadable, or no format GDAL knows
    kUnsupported = 5,   // a sample type or layout that a hypercube can't hold
    kSizeMismatch = 6,  // the header promises more samples than the data file holds
  };
  CubeError(Code code_, const std::string& message) : std::runtime_error(message), code(code_) {}
  Code code;
};

// Reads the whole cube. Samples keep their type; the storage is pixel interleaved when the file
// is, band sequential otherwise. A band's wavelength and width are NaN when the file gives none.
// The fill value is the bands' "no data" value ("data ignore
// value" of an ENVI header), NaN without one. The scale is an ENVI "reflectance scale factor" or
// the inverse of GDAL's band scale; the cube is marked normalised in any case, so that the data
// access scales and corrects its spectra. Throws CubeError naming the file and the problem.
std::unique_ptr<datatypes::Hypercube> LoadHypercube(const std::string& path);

}  // namespace kelto::tools

// Opens an image cube from a file through GDAL (ENVI in any interleave, sample type and byte
// order, GeoTIFF stacks and the other formats GDAL reads) and holds it as a Hypercube with its
// band wavelengths, fill value and scale. Used by the command-line tools only: the libraries never
// load an image.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/datatypes/hypercube.h>

namespace kelto::tools {

// Why a cube could not be loaded; `code` is the tool's exit status for it.
class CubeError : public std::runtime_error {
 public:
  enum Code : int {
    kCannotOpen = 4,    // missing, unreadable, no format GDAL knows, or a header GDAL would
                        // misread (an ENVI "byte order" other than 0 or 1)
    kUnsupported = 5,   // a sample type or layout that a hypercube can't hold
    kSizeMismatch = 6,  // the header promises more samples than the data file holds
  };
  CubeError(Code code_, const std::string& message) : std::runtime_error(message), code(code_) {}
  Code code;
};

// An open cube whose samples are read a stretch of lines at a time, so that a cube larger than
// memory can be worked through; the format describes it as LoadHypercube would hold it (without
// the samples). Not thread-safe: callers that read from several threads share one lock.
class CubeReader {
 public:
  // Opens and checks the cube; throws CubeError as LoadHypercube does. A band list of an
  // ENVI header ("wavelength", "fwhm") of another length than "bands" is taken for absent, with
  // a warning on standard error.
  explicit CubeReader(const std::string& path);
  ~CubeReader();
  CubeReader(CubeReader const&) = delete;
  CubeReader& operator=(CubeReader const&) = delete;

  const datatypes::BandImageDataFormat& Format() const { return format_; }
  // The file as the caller named it (an ENVI cube's header or its data file).
  const std::string& NamedPath() const { return named_path_; }
  // A rectangle of pixels, which must lie in the cube.
  struct Window {
    unsigned long x = 0;
    unsigned long y = 0;
    unsigned long width = 0;
    unsigned long height = 0;
  };
  // Lines [first, first + count) of every band into buffer, sample (x, line, band) at byte
  // x * pixel_space + (line - first) * line_space + band * band_space, in the format's sample
  // type. Throws CubeError (kSizeMismatch) when the file can't give them.
  void ReadLines(unsigned long first, unsigned long count, void* buffer, long long pixel_space,
                 long long line_space, long long band_space) const;
  // The pixels of window in every band, laid out as ReadLines lays out lines, (x, y) of the
  // window at x * pixel_space + y * line_space; one pixel reads only its samples.
  void ReadWindow(const Window& window, void* buffer, long long pixel_space, long long line_space,
                  long long band_space) const;
  // The same, converted to double and stored by pixel (band fastest).
  void ReadLinesAsDouble(unsigned long first, unsigned long count, double* buffer) const;
  // An uncompressed ENVI cube in the machine's byte order: its data file, where the samples
  // start, and the strides in bytes of a sample, a line and a band, so that a caller may read
  // it with plain file reads. Empty for any other cube.
  struct RawLayout {
    std::string data_file;
    long long offset = 0;
    long long pixel_stride = 0;
    long long line_stride = 0;
    long long band_stride = 0;
  };
  const std::optional<RawLayout>& GetRawLayout() const { return raw_layout_; }
  // The cube's georeferencing, when it has any: the affine transform and the projection (WKT).
  bool GetGeoTransform(double transform[6]) const;
  std::string GetProjection() const;

 private:
  void _Read(const Window& window, void* buffer, int type, long long pixel_space,
             long long line_space, long long band_space) const;

  struct Dataset;
  std::unique_ptr<Dataset> dataset_;
  std::string named_path_;
  std::string path_;
  datatypes::BandImageDataFormat format_;
  std::optional<RawLayout> raw_layout_;
};

// Reads the whole cube. Samples keep their type; the storage is pixel interleaved when the file
// is, band sequential otherwise. A band's wavelength and width are NaN when the file gives none.
// The fill value is the bands' "no data" value ("data ignore
// value" of an ENVI header), NaN without one. The scale is an ENVI "reflectance scale factor" or
// the inverse of GDAL's band scale; the cube is marked normalised in any case, so that the data
// access scales and corrects its spectra. Throws CubeError naming the file and the problem.
std::unique_ptr<datatypes::Hypercube> LoadHypercube(const std::string& path);

// The pixels of window alone, held as LoadHypercube holds a whole cube: the cube's format with
// the window's size. Memory is that of the window, whatever the cube's size.
std::unique_ptr<datatypes::Hypercube> LoadWindow(const CubeReader& reader,
                                                 const CubeReader::Window& window);

}  // namespace kelto::tools

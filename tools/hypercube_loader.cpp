#include "hypercube_loader.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <vector>

#include <kelto/common/strings.h>
#include <kelto/datatypes/band_info.h>

namespace kelto::tools {

namespace {

using datatypes::BandImageDataFormat;

// GDAL reports through a process-wide handler; the tools keep it quiet and say what went wrong
// in their own words, with GDAL's last message as the detail.
class QuietGdal {
 public:
  QuietGdal() {
    static std::once_flag registered;
    std::call_once(registered, [] { GDALAllRegister(); });
    CPLPushErrorHandler(CPLQuietErrorHandler);
    CPLErrorReset();
  }
  ~QuietGdal() { CPLPopErrorHandler(); }
  QuietGdal(QuietGdal const&) = delete;
  QuietGdal& operator=(QuietGdal const&) = delete;
  static std::string LastMessage() {
    const std::string message = CPLGetLastErrorMsg();
    return message.empty() ? "GDAL gave no reason" : message;
  }
};

// GDAL's raw drivers (ENVI among them) refuse a data file shorter than its header only for
// larger cubes, as a file they can't open, and accept one that lacks up to a sample. Their check
// is off while a cube is opened; CheckRawSize and the read decide instead, the same for every
// size.
class RawSizeCheckOff {
 public:
  RawSizeCheckOff() {
    const char* previous = CPLGetThreadLocalConfigOption(kOption, nullptr);
    had_previous_ = previous != nullptr;
    previous_ = had_previous_ ? previous : "";
    CPLSetThreadLocalConfigOption(kOption, "NO");
  }
  ~RawSizeCheckOff() {
    CPLSetThreadLocalConfigOption(kOption, had_previous_ ? previous_.c_str() : nullptr);
  }
  RawSizeCheckOff(RawSizeCheckOff const&) = delete;
  RawSizeCheckOff& operator=(RawSizeCheckOff const&) = delete;

 private:
  static constexpr const char* kOption = "RAW_CHECK_FILE_SIZE";
  bool had_previous_ = false;
  std::string previous_;
};

struct DatasetCloser {
  void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};

// The sample type code of a GDAL band type, 0 for those a hypercube does not hold.
std::uint32_t SampleType(GDALRasterBand& band) {
  switch (band.GetRasterDataType()) {
    case GDT_Byte: {
      const char* pixel_type = band.GetMetadataItem("PIXELTYPE", "IMAGE_STRUCTURE");
      return pixel_type != nullptr && std::string(pixel_type) == "SIGNEDBYTE"
                 ? BandImageDataFormat::kSignedChar
                 : BandImageDataFormat::kUnsignedChar;
    }
    case GDT_Int16:
      return BandImageDataFormat::kShort;
    case GDT_UInt16:
      return BandImageDataFormat::kUnsignedShort;
    case GDT_Int32:
      return BandImageDataFormat::kInt;
    case GDT_UInt32:
      return BandImageDataFormat::kUnsignedInt;
    case GDT_Int64:
      return BandImageDataFormat::kLong;
    case GDT_UInt64:
      return BandImageDataFormat::kUnsignedLong;
    case GDT_Float32:
      return BandImageDataFormat::kFloat;
    case GDT_Float64:
      return BandImageDataFormat::kDouble;
    default:
      return BandImageDataFormat::kNoSampleType;
  }
}

double MaximumValue(std::uint32_t sample_type) {
  switch (sample_type) {
    case BandImageDataFormat::kSignedChar:
      return std::numeric_limits<signed char>::max();
    case BandImageDataFormat::kUnsignedChar:
      return std::numeric_limits<unsigned char>::max();
    case BandImageDataFormat::kShort:
      return std::numeric_limits<short>::max();
    case BandImageDataFormat::kUnsignedShort:
      return std::numeric_limits<unsigned short>::max();
    case BandImageDataFormat::kInt:
      return std::numeric_limits<int>::max();
    case BandImageDataFormat::kUnsignedInt:
      return std::numeric_limits<unsigned int>::max();
    case BandImageDataFormat::kLong:
      return static_cast<double>(std::numeric_limits<long>::max());
    case BandImageDataFormat::kUnsignedLong:
      return static_cast<double>(std::numeric_limits<unsigned long>::max());
    case BandImageDataFormat::kFloat:
      return std::numeric_limits<float>::max();
    default:
      return std::numeric_limits<double>::max();
  }
}

// The numbers of an ENVI list "{470, 480.5, ...}"; empty when the item is missing or unreadable.
std::vector<double> EnviList(GDALDataset& dataset, const char* item) {
  const char* text = dataset.GetMetadataItem(item, "ENVI");
  std::vector<double> values;
  if (text == nullptr) {
    return values;
  }
  std::string list = text;
  for (char& c : list) {
    if (c == '{' || c == '}') {
      c = ' ';
    }
  }
  if (!common::Strings::ParseDoubles(list, ", \t\r\n", values)) {
    values.clear();
  }
  return values;
}

// A per-band list of the header ("wavelength", "fwhm"), or empty when it has none. A list of
// another length than "bands" can't say which band each value belongs to: the tools warn and
// take it for absent.
std::vector<double> BandList(GDALDataset& dataset, const char* item, std::size_t band_count,
                             const std::string& path) {
  std::vector<double> values = EnviList(dataset, item);
  if (!values.empty() && values.size() != band_count) {
    std::cerr << program_invocation_short_name << ": warning: " << path << ": the \"" << item
              << "\" list has " << values.size() << " values for " << band_count
              << " bands; the cube is read without it\n";
    values.clear();
  }
  return values;
}

// Nanometres per unit of the cube's wavelengths.
double WavelengthFactor(GDALDataset& dataset) {
  const char* units = dataset.GetMetadataItem("wavelength_units", "ENVI");
  const std::string text = units == nullptr ? "" : units;
  if (text == "Micrometers" || text == "micrometers" || text == "um" || text == "Microns") {
    return 1000.0;
  }
  return 1.0;
}

// The "header offset" of an ENVI header, the bytes before the samples; 0 when absent. A value
// that is not a whole number of bytes from 0 to 2^62 would have the reads start nowhere, so the
// header is refused as broken, as a bad byte order is.
long long HeaderOffset(GDALDataset& dataset, const std::string& path) {
  const char* text = dataset.GetMetadataItem("header_offset", "ENVI");
  double offset = 0.0;
  if (text != nullptr && (!common::Strings::ParseDouble(text, offset) || !(offset >= 0.0) ||
                          offset > 0x1p62 || offset != std::floor(offset))) {
    throw CubeError(CubeError::kCannotOpen, path + ": \"header offset\" is \"" + text +
                                                "\"; an ENVI header gives a whole number of bytes");
  }
  return static_cast<long long>(offset);
}

// A raw ENVI data file shorter than its header promises: GDAL opens it and then reads zeros or
// fails, so it is refused here with both sizes.
void CheckRawSize(GDALDataset& dataset, const std::string& path,
                  std::optional<unsigned long long> sample_bytes, long long header_offset) {
  if (dataset.GetDriver() == nullptr ||
      std::string(dataset.GetDriver()->GetDescription()) != "ENVI") {
    return;
  }
  char** files = dataset.GetFileList();
  const std::string data_file = files != nullptr && files[0] != nullptr ? files[0] : path;
  CSLDestroy(files);
  VSIStatBufL stat;
  if (VSIStatL(data_file.c_str(), &stat) != 0) {
    throw CubeError(CubeError::kCannotOpen, path + ": cannot read the data file " + data_file);
  }
  const auto header_bytes = static_cast<unsigned long long>(header_offset);
  const bool fits = sample_bytes.has_value() &&
                    *sample_bytes <= std::numeric_limits<unsigned long long>::max() - header_bytes;
  if (!fits || static_cast<unsigned long long>(stat.st_size) < header_bytes + *sample_bytes) {
    throw CubeError(
        CubeError::kSizeMismatch,
        path + ": header and data size disagree: the header describes " +
            (fits ? std::to_string(header_bytes + *sample_bytes) : std::string("more than 2^64")) +
            " bytes, " + data_file + " holds " + std::to_string(stat.st_size));
  }
}

// width x height x bands x sample size, none when that does not fit 64 bits (a header can claim
// anything).
std::optional<unsigned long long> SampleBytes(const BandImageDataFormat& format) {
  unsigned long long product = 1;
  for (const unsigned long long factor : {static_cast<unsigned long long>(format.width),
                                          static_cast<unsigned long long>(format.height),
                                          static_cast<unsigned long long>(format.GetNrOfBands()),
                                          static_cast<unsigned long long>(format.element_size)}) {
    if (factor != 0 && product > std::numeric_limits<unsigned long long>::max() / factor) {
      return std::nullopt;
    }
    product *= factor;
  }
  return product;
}

// A file on disk, or one of GDAL's in-memory files (/vsimem/), which a program can hand over
// like a file on disk. GDAL's other virtual file systems (network, archives) stay closed.
bool IsRegularFile(const std::string& path) {
  if (path.rfind("/vsimem/", 0) == 0) {
    VSIStatBufL stat;
    return VSIStatL(path.c_str(), &stat) == 0 && VSI_ISREG(stat.st_mode);
  }
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
}

// GDAL opens an ENVI cube by its data file; a user naturally names the header. The data file
// is the header's stem with no extension or one of the usual ones.
std::string DataFileOf(const std::string& path) {
  std::filesystem::path header(path);
  std::string extension = header.extension().string();
  for (char& c : extension) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (extension != ".hdr") {
    return path;
  }
  for (const char* candidate : {"", ".raw", ".img", ".dat", ".bsq", ".bil", ".bip"}) {
    std::filesystem::path data = header;
    data.replace_extension(candidate);
    if (IsRegularFile(data.string())) {
      return data.string();
    }
  }
  throw CubeError(CubeError::kCannotOpen,
                  path +
                      ": no data file beside the header (looked for the same name without "
                      "extension and with .raw, .img, .dat, .bsq, .bil, .bip)");
}

// GDAL makes the bands of an ENVI header one at a time, growing its table by one each time, so
// a header of tens of thousands of bands keeps it busy for seconds before anything can be checked.
// Cubes have hundreds of bands at the most; a header beyond this is refused before GDAL reads it.
constexpr long kMaxEnviBands = 10000;

// The largest "bands" an ENVI header beside or at path gives, 0 when there is none. Only the first
// MiB of a header is looked at, as GDAL's reader does with long headers.
long EnviBands(const std::string& path) {
  std::filesystem::path header(path);
  std::vector<std::string> candidates = {path, path + ".hdr"};
  candidates.push_back(header.replace_extension(".hdr").string());
  for (const std::string& candidate : candidates) {
    VSILFILE* file = VSIFOpenL(candidate.c_str(), "rb");
    if (file == nullptr) {
      continue;
    }
    std::string text(1 << 20, '\0');
    text.resize(VSIFReadL(text.data(), 1, text.size(), file));
    VSIFCloseL(file);
    if (text.compare(0, 4, "ENVI") != 0) {
      continue;
    }
    // Keys are read whatever their case.
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    long bands = 0;
    std::size_t at = 0;
    while ((at = text.find('\n', at)) != std::string::npos) {
      const std::size_t start = text.find_first_not_of(" \t", ++at);
      if (start == std::string::npos || text.compare(start, 5, "bands") != 0) {
        continue;
      }
      const std::size_t equals = text.find_first_not_of(" \t", start + 5);
      if (equals != std::string::npos && text[equals] == '=') {
        bands = std::max(bands, std::strtol(text.c_str() + equals + 1, nullptr, 10));
      }
    }
    return bands;
  }
  return 0;
}

}  // namespace

struct CubeReader::Dataset {
  QuietGdal quiet;
  std::unique_ptr<GDALDataset, DatasetCloser> dataset;
  GDALDataType type = GDT_Unknown;
};

CubeReader::CubeReader(const std::string& named_path) : dataset_(std::make_unique<Dataset>()) {
  if (!IsRegularFile(named_path)) {
    throw CubeError(CubeError::kCannotOpen, named_path + ": no such file");
  }
  named_path_ = named_path;
  path_ = DataFileOf(named_path);
  if (const long bands = EnviBands(named_path); bands > kMaxEnviBands) {
    throw CubeError(CubeError::kUnsupported, named_path + ": the header gives " +
                                                 std::to_string(bands) + " bands; at most " +
                                                 std::to_string(kMaxEnviBands) + " are read");
  }
  {
    RawSizeCheckOff size_check_off;
    dataset_->dataset.reset(GDALDataset::FromHandle(
        GDALOpenEx(path_.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
  }
  GDALDataset* dataset = dataset_->dataset.get();
  if (dataset == nullptr) {
    throw CubeError(CubeError::kCannotOpen,
                    path_ + ": not an image cube GDAL can read (" + QuietGdal::LastMessage() + ")");
  }
  const bool envi = dataset->GetDriver() != nullptr &&
                    std::string(dataset->GetDriver()->GetDescription()) == "ENVI";
  // GDAL reads any value but 1 as little-endian; a header that says neither is broken.
  const char* byte_order = dataset->GetMetadataItem("byte_order", "ENVI");
  if (envi && byte_order != nullptr && std::string(byte_order) != "0" &&
      std::string(byte_order) != "1") {
    throw CubeError(CubeError::kCannotOpen,
                    named_path + ": \"byte order\" is \"" + byte_order +
                        "\"; an ENVI header gives 0 (little-endian) or 1 (big-endian)");
  }
  const long long header_offset = envi ? HeaderOffset(*dataset, named_path) : 0;
  const int band_count = dataset->GetRasterCount();
  if (band_count < 1) {
    throw CubeError(CubeError::kUnsupported, path_ + ": the file holds no bands");
  }
  const std::uint32_t sample_type = SampleType(*dataset->GetRasterBand(1));
  dataset_->type = dataset->GetRasterBand(1)->GetRasterDataType();
  if (sample_type == BandImageDataFormat::kNoSampleType) {
    throw CubeError(CubeError::kUnsupported, path_ + ": unknown data type " +
                                                 GDALGetDataTypeName(dataset_->type) +
                                                 " (complex samples can't form a spectrum)");
  }
  for (int b = 2; b <= band_count; ++b) {
    if (dataset->GetRasterBand(b)->GetRasterDataType() != dataset_->type) {
      throw CubeError(CubeError::kUnsupported, path_ + ": bands of different data types");
    }
  }

  BandImageDataFormat& format = format_;
  format.data_type = sample_type;
  format.element_size = BandImageDataFormat::SampleSize(sample_type);
  format.width = static_cast<unsigned long>(dataset->GetRasterXSize());
  format.height = static_cast<unsigned long>(dataset->GetRasterYSize());
  const char* interleave = dataset->GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
  format.interleave = interleave != nullptr && std::string(interleave) == "PIXEL"
                          ? BandImageDataFormat::kBandInterleavedByPixel
                          : BandImageDataFormat::kBandSequential;
  format.maximum_value = MaximumValue(sample_type);
  int has_fill = 0;
  const double fill = dataset->GetRasterBand(1)->GetNoDataValue(&has_fill);
  format.fill_value = has_fill ? fill : std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> scale = EnviList(*dataset, "reflectance_scale_factor");
  int has_scale = 0;
  const double gdal_scale = dataset->GetRasterBand(1)->GetScale(&has_scale);
  if (!scale.empty() && scale.front() > 0.0) {
    format.scale = scale.front();
  } else if (has_scale && gdal_scale != 0.0 && gdal_scale != 1.0) {
    format.scale = 1.0 / gdal_scale;
  }

  const double factor = WavelengthFactor(*dataset);
  const auto bands = static_cast<std::size_t>(band_count);
  const std::vector<double> wavelengths = BandList(*dataset, "wavelength", bands, named_path);
  const std::vector<double> widths = BandList(*dataset, "fwhm", bands, named_path);
  for (int b = 0; b < band_count; ++b) {
    const auto index = static_cast<std::size_t>(b);
    datatypes::HypercubeBandInfo band;
    band.name = dataset->GetRasterBand(b + 1)->GetDescription();
    // NaN rather than 0 where the file has none, so that no band passes for one at 0 nm.
    const double none = std::numeric_limits<double>::quiet_NaN();
    band.wavelength_nm = index < wavelengths.size() ? wavelengths[index] * factor : none;
    band.fwhm_nm = index < widths.size() ? widths[index] * factor : none;
    // Formats without an ENVI header (GeoTIFF) carry them as band metadata, in nanometres.
    // GDAL copies an ENVI header's lists there too, also those the header's own lists dropped.
    GDALRasterBand& raster = *dataset->GetRasterBand(b + 1);
    for (const auto& [item, value] :
         {std::pair<const char*, double*>{"wavelength", &band.wavelength_nm},
          std::pair<const char*, double*>{"fwhm", &band.fwhm_nm}}) {
      const char* text = raster.GetMetadataItem(item);
      if (!envi && std::isnan(*value) && text != nullptr) {
        common::Strings::ParseDouble(text, *value);
      }
    }
    format.AddBand(band);
  }
  CheckRawSize(*dataset, path_, SampleBytes(format), header_offset);

  // ENVI's raw layout, in little-endian order as x86-64 holds numbers.
  const char* envi_interleave = dataset->GetMetadataItem("interleave", "ENVI");
  if (envi && (byte_order == nullptr || std::string(byte_order) == "0") &&
      envi_interleave != nullptr) {
    char** files = dataset->GetFileList();
    RawLayout layout;
    layout.data_file = files != nullptr && files[0] != nullptr ? files[0] : path_;
    CSLDestroy(files);
    layout.offset = header_offset;
    const auto size = static_cast<long long>(format.element_size);
    const auto width = static_cast<long long>(format.width);
    const auto bands = static_cast<long long>(format.GetNrOfBands());
    const std::string order = envi_interleave;
    if (order == "bip") {
      layout = {layout.data_file, layout.offset, size * bands, size * bands * width, size};
    } else if (order == "bil") {
      layout = {layout.data_file, layout.offset, size, size * width * bands, size * width};
    } else if (order == "bsq") {
      layout = {layout.data_file, layout.offset, size, size * width,
                size * width * static_cast<long long>(format.height)};
    }
    if (layout.pixel_stride != 0) {
      raw_layout_ = layout;
    }
  }
}

CubeReader::~CubeReader() = default;

void CubeReader::ReadLines(unsigned long first, unsigned long count, void* buffer,
                           long long pixel_space, long long line_space,
                           long long band_space) const {
  ReadWindow({0, first, format_.width, count}, buffer, pixel_space, line_space, band_space);
}

void CubeReader::ReadWindow(const Window& window, void* buffer, long long pixel_space,
                            long long line_space, long long band_space) const {
  _Read(window, buffer, dataset_->type, pixel_space, line_space, band_space);
}

void CubeReader::ReadLinesAsDouble(unsigned long first, unsigned long count, double* buffer) const {
  const auto pixel = static_cast<long long>(sizeof(double) * format_.GetNrOfBands());
  _Read({0, first, format_.width, count}, buffer, GDT_Float64, pixel,
        pixel * static_cast<long long>(format_.width), static_cast<long long>(sizeof(double)));
}

void CubeReader::_Read(const Window& window, void* buffer, int type, long long pixel_space,
                       long long line_space, long long band_space) const {
  GDALDataset& dataset = *dataset_->dataset;
  const auto x = static_cast<int>(window.x);
  const auto y = static_cast<int>(window.y);
  const auto width = static_cast<int>(window.width);
  const auto height = static_cast<int>(window.height);
  if (dataset.RasterIO(GF_Read, x, y, width, height, buffer, width, height,
                       static_cast<GDALDataType>(type), dataset.GetRasterCount(), nullptr,
                       pixel_space, line_space, band_space, nullptr) != CE_None) {
    throw CubeError(CubeError::kSizeMismatch,
                    path_ + ": the samples can't be read (" + QuietGdal::LastMessage() + ")");
  }
}

bool CubeReader::GetGeoTransform(double transform[6]) const {
  return dataset_->dataset->GetGeoTransform(transform) == CE_None;
}

std::string CubeReader::GetProjection() const {
  const char* projection = dataset_->dataset->GetProjectionRef();
  return projection == nullptr ? "" : projection;
}

std::unique_ptr<datatypes::Hypercube> LoadHypercube(const std::string& named_path) {
  const CubeReader reader(named_path);
  return LoadWindow(reader, {0, 0, reader.Format().width, reader.Format().height});
}

std::unique_ptr<datatypes::Hypercube> LoadWindow(const CubeReader& reader,
                                                 const CubeReader::Window& window) {
  BandImageDataFormat format = reader.Format();
  format.width = window.width;
  format.height = window.height;
  const auto too_large = [&] {
    return CubeError(CubeError::kUnsupported,
                     reader.NamedPath() + ": " + std::to_string(format.width) + " x " +
                         std::to_string(format.height) + " pixels of " +
                         std::to_string(format.GetNrOfBands()) + " bands do not fit in memory");
  };
  std::unique_ptr<datatypes::Hypercube> cube;
  try {
    cube = std::make_unique<datatypes::Hypercube>(format);
  } catch (const std::length_error&) {
    throw too_large();
  } catch (const std::bad_alloc&) {
    throw too_large();
  }
  cube->GetHypercubeInfo().is_normalised = true;
  const auto size = static_cast<long long>(format.element_size);
  const auto width = static_cast<long long>(format.width);
  const auto height = static_cast<long long>(format.height);
  const auto bands = static_cast<long long>(format.GetNrOfBands());
  const bool by_pixel = format.interleave != BandImageDataFormat::kBandSequential;
  const long long pixel_space = by_pixel ? size * bands : size;
  reader.ReadWindow(window, cube->GetSamples(), pixel_space, pixel_space * width,
                    by_pixel ? size : size * width * height);
  return cube;
}

}  // namespace kelto::tools

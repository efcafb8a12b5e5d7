#include "cube_commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <cpl_conv.h>
#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal_priv.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include <kelto/hyperspectral.h>

#include "command_support.h"

namespace kelto::tools {

namespace {

using datatypes::BandImageDataFormat;
using hyperspectral::BlockCorrector;
using hyperspectral::CorrectionMatrix;

// GDAL keeps at most this much of the files in its own cache, so that the memory of a run is the
// blocks in flight and this, whatever the cube's size.
constexpr long long kGdalCacheBytes = 8ll << 20;
constexpr unsigned long kBlockBytes = 8ul << 20;

// The files of an output, made in a directory of their own beside the target and moved to the
// target's directory only when complete; anything left is removed with the directory.
class StagedOutput {
 public:
  explicit StagedOutput(const std::string& target) : target_(target) {
    const std::filesystem::path parent =
        target_.has_parent_path() ? target_.parent_path() : std::filesystem::path(".");
    staging_ = parent / ("." + target_.filename().string() + ".part" + std::to_string(::getpid()));
    std::error_code ignored;
    std::filesystem::remove_all(staging_, ignored);
    if (!std::filesystem::create_directory(staging_, ignored)) {
      throw CommandError{kNotWritten,
                         "cannot write " + target + ": its directory can't be written"};
    }
  }
  ~StagedOutput() {
    std::error_code ignored;
    std::filesystem::remove_all(staging_, ignored);
  }
  StagedOutput(StagedOutput const&) = delete;
  StagedOutput& operator=(StagedOutput const&) = delete;

  // Where the driver writes the main file.
  std::string Path() const { return (staging_ / target_.filename()).string(); }

  // Moves every file made to the target's directory, the main file last.
  void Commit() {
    const std::filesystem::path main = staging_ / target_.filename();
    const std::filesystem::path directory =
        target_.has_parent_path() ? target_.parent_path() : std::filesystem::path(".");
    for (const auto& entry : std::filesystem::directory_iterator(staging_)) {
      if (entry.path() != main) {
        std::filesystem::rename(entry.path(), directory / entry.path().filename());
      }
    }
    std::filesystem::rename(main, target_);
  }

 private:
  std::filesystem::path target_;
  std::filesystem::path staging_;
};

struct DatasetCloser {
  void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};
using Dataset = std::unique_ptr<GDALDataset, DatasetCloser>;

std::string EnviList(const std::vector<double>& values) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::setprecision(9) << '{';
  for (std::size_t i = 0; i < values.size(); ++i) {
    text << (i == 0 ? "" : ", ") << values[i];
  }
  text << '}';
  return text.str();
}

const CorrectionMatrix& FindMatrix(const hyperspectral::SensorCalibration& calibration,
                                   const std::string& name, const std::string& path) {
  const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
  for (const CorrectionMatrix& matrix : matrices) {
    if (name.empty() || matrix.name == name) {
      return matrix;
    }
  }
  throw CommandError{kBadMatrix,
                     path + (name.empty() ? std::string(": holds no correction matrix")
                                          : ": has no correction matrix \"" + name + "\"")};
}

// A reference cube: of the input's size it is used pixel by pixel, read block by block beside
// the input; of any other size by its mean spectrum over the samples with data.
struct ReferenceCube {
  std::unique_ptr<CubeReader> reader;
  BlockCorrector::Reference reference;
  std::vector<unsigned char> block;
};

ReferenceCube OpenReference(const std::string& path, const BandImageDataFormat& input) {
  ReferenceCube cube;
  cube.reader = std::make_unique<CubeReader>(path);
  const BandImageDataFormat& format = cube.reader->Format();
  const unsigned long bands = format.GetNrOfBands();
  if (bands != input.GetNrOfBands()) {
    throw CommandError{kBadImage, path + " has " + std::to_string(bands) + " bands, the cube " +
                                      std::to_string(input.GetNrOfBands())};
  }
  if (format.width == input.width && format.height == input.height) {
    return cube;
  }
  std::vector<double> sums(bands, 0.0);
  std::vector<unsigned long> counts(bands, 0);
  std::vector<double> line(format.width * bands);
  for (unsigned long y = 0; y < format.height; ++y) {
    cube.reader->ReadLinesAsDouble(y, 1, line.data());
    for (std::size_t i = 0; i < line.size(); ++i) {
      if (!std::isnan(line[i]) && line[i] != format.fill_value) {
        sums[i % bands] += line[i];
        ++counts[i % bands];
      }
    }
  }
  for (unsigned long b = 0; b < bands; ++b) {
    if (counts[b] == 0) {
      throw CommandError{kBadImage, path + ": band " + std::to_string(b) + " holds no data"};
    }
    cube.reference.spectrum.push_back(sums[b] / static_cast<double>(counts[b]));
  }
  cube.reader.reset();
  return cube;
}

// Reads lines [first, first + count) of a cube by pixel into buffer, as BlockCorrector samples.
BlockCorrector::Samples ReadBlock(const CubeReader& reader, unsigned long first,
                                  unsigned long count, std::vector<unsigned char>& buffer) {
  const BandImageDataFormat& format = reader.Format();
  const unsigned long bands = format.GetNrOfBands();
  buffer.resize(format.width * count * bands * format.element_size);
  const auto samples = BlockCorrector::Samples::PixelInterleaved(buffer.data(), format.data_type,
                                                                 format.width, count, bands);
  reader.ReadLines(first, count, buffer.data(), samples.pixel_stride, samples.line_stride,
                   samples.band_stride);
  return samples;
}

// A float32 cube of `wavelengths.size()` bands by pixel, with the bands' wavelengths and FWHM,
// NaN as "no data", and the georeferencing of `georeferenced` when it has any.
Dataset CreateOutput(const std::string& path, const std::string& driver_name, unsigned long width,
                     unsigned long height, const std::vector<double>& wavelengths,
                     const std::vector<double>& widths, const std::string& description,
                     const CubeReader* georeferenced) {
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driver_name.c_str());
  if (driver == nullptr) {
    throw CommandError{kUsage, "unknown output format " + driver_name};
  }
  char** options = nullptr;
  if (driver_name == "ENVI") {
    options = CSLSetNameValue(options, "INTERLEAVE", "BIP");
  } else {
    options = CSLSetNameValue(options, "INTERLEAVE", "PIXEL");
    options = CSLSetNameValue(options, "BIGTIFF", "IF_SAFER");
  }
  Dataset dataset(driver->Create(path.c_str(), static_cast<int>(width), static_cast<int>(height),
                                 static_cast<int>(wavelengths.size()), GDT_Float32, options));
  CSLDestroy(options);
  if (!dataset) {
    throw CommandError{kNotWritten, "cannot write " + path + " (" + CPLGetLastErrorMsg() + ")"};
  }
  for (std::size_t b = 0; b < wavelengths.size(); ++b) {
    GDALRasterBand* raster = dataset->GetRasterBand(static_cast<int>(b + 1));
    std::ostringstream name;
    name.imbue(std::locale::classic());
    name << std::fixed << std::setprecision(1) << wavelengths[b] << " nm";
    raster->SetDescription(name.str().c_str());
    raster->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
    if (driver_name != "ENVI") {
      raster->SetMetadataItem("wavelength", std::to_string(wavelengths[b]).c_str());
      raster->SetMetadataItem("fwhm", std::to_string(widths[b]).c_str());
      raster->SetMetadataItem("wavelength_units", "Nanometers");
    }
  }
  if (driver_name == "ENVI") {
    // The header describes the cube by its description, which is the file's (staged) name.
    dataset->SetDescription(description.c_str());
    dataset->SetMetadataItem("wavelength", EnviList(wavelengths).c_str(), "ENVI");
    dataset->SetMetadataItem("fwhm", EnviList(widths).c_str(), "ENVI");
    dataset->SetMetadataItem("wavelength_units", "Nanometers", "ENVI");
  }
  double transform[6];
  if (georeferenced != nullptr && georeferenced->GetGeoTransform(transform)) {
    dataset->SetGeoTransform(transform);
  }
  const std::string projection = georeferenced == nullptr ? "" : georeferenced->GetProjection();
  if (!projection.empty()) {
    dataset->SetProjection(projection.c_str());
  }
  return dataset;
}

// Writes lines [first, first + count) of a cube by pixel.
void WriteLines(GDALDataset& dataset, unsigned long first, unsigned long count, float* values,
                const std::string& path) {
  const int bands = dataset.GetRasterCount();
  const auto pixel_space = static_cast<GSpacing>(sizeof(float)) * bands;
  const int width = dataset.GetRasterXSize();
  if (dataset.RasterIO(GF_Write, 0, static_cast<int>(first), width, static_cast<int>(count), values,
                       width, static_cast<int>(count), GDT_Float32, bands, nullptr, pixel_space,
                       pixel_space * width, sizeof(float), nullptr) != CE_None) {
    throw CommandError{kNotWritten, "cannot write " + path + " (" + CPLGetLastErrorMsg() + ")"};
  }
}

// Reads lines [first, first + count) of a raw ENVI cube with plain file reads into buffer, in the
// file's own layout: one read for a cube by pixel or by line, one per band for a band sequential
// one. Safe to call from several threads at once.
BlockCorrector::Samples ReadRawBlock(const CubeReader& reader, unsigned long first,
                                     unsigned long count, std::vector<unsigned char>& buffer) {
  const CubeReader::RawLayout& layout = *reader.GetRawLayout();
  const BandImageDataFormat& format = reader.Format();
  const unsigned long bands = format.GetNrOfBands();
  const bool sequential = layout.band_stride > layout.line_stride;
  const auto run = static_cast<std::size_t>(layout.line_stride) * count;
  buffer.resize(sequential ? run * bands : run);
  const int file = ::open(layout.data_file.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    throw CubeError(CubeError::kCannotOpen, layout.data_file + ": cannot be read");
  }
  bool complete = true;
  for (unsigned long b = 0; b < (sequential ? bands : 1); ++b) {
    const long long at = layout.offset + static_cast<long long>(b) * layout.band_stride +
                         static_cast<long long>(first) * layout.line_stride;
    std::size_t got = 0;
    while (got < run) {
      const ssize_t n = ::pread(file, buffer.data() + b * run + got, run - got,
                                static_cast<off_t>(at) + static_cast<off_t>(got));
      if (n <= 0) {
        complete = false;
        break;
      }
      got += static_cast<std::size_t>(n);
    }
  }
  ::close(file);
  if (!complete) {
    throw CubeError(CubeError::kSizeMismatch, layout.data_file + ": the samples can't be read");
  }
  BlockCorrector::Samples samples;
  samples.data = buffer.data();
  samples.sample_type = format.data_type;
  samples.pixel_stride = layout.pixel_stride;
  samples.line_stride = layout.line_stride;
  samples.band_stride = sequential ? static_cast<std::ptrdiff_t>(run) : layout.band_stride;
  samples.pixels = format.width;
  samples.lines = count;
  samples.bands = bands;
  return samples;
}

// The data file of an output, written at given places by any number of threads.
class FileWriter {
 public:
  FileWriter(const std::string& path, std::size_t size)
      : path_(path), file_(::open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    if (file_ < 0 || ::ftruncate(file_, static_cast<off_t>(size)) != 0) {
      throw CommandError{kNotWritten, "cannot write " + path};
    }
  }
  ~FileWriter() {
    if (file_ >= 0) {
      ::close(file_);
    }
  }
  FileWriter(FileWriter const&) = delete;
  FileWriter& operator=(FileWriter const&) = delete;

  void Write(std::size_t at, const void* data, std::size_t size) const {
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::size_t done = 0;
    while (done < size) {
      const ssize_t n = ::pwrite(file_, bytes + done, size - done, static_cast<off_t>(at + done));
      if (n <= 0) {
        throw CommandError{kNotWritten, "cannot write " + path_ + " (the disk may be full)"};
      }
      done += static_cast<std::size_t>(n);
    }
  }
  void Close(const std::string& target) {
    const int file = file_;
    file_ = -1;
    if (::close(file) != 0) {
      throw CommandError{kNotWritten, "cannot write " + target};
    }
  }

 private:
  std::string path_;
  int file_;
};

// Closes a dataset that GDAL wrote, so that its errors count.
void CloseOutput(Dataset& output, const std::string& path) {
  CPLErrorReset();
  output->FlushCache();
  output.reset();
  if (CPLGetLastErrorType() >= CE_Failure) {
    throw CommandError{kNotWritten, "cannot write " + path + " (" + CPLGetLastErrorMsg() + ")"};
  }
}

// Closes the output and moves it into place; the closing flushes, so its errors count.
void Finish(Dataset& output, StagedOutput& staged, const std::string& path) {
  CloseOutput(output, path);
  try {
    staged.Commit();
  } catch (const std::exception& error) {
    throw CommandError{kNotWritten, "cannot write " + path + ": " + error.what()};
  }
}

// GDAL set up for the commands: quiet, a bounded cache, and no .aux.xml beside the outputs.
void PrepareGdal() {
  GDALAllRegister();
  CPLPushErrorHandler(CPLQuietErrorHandler);
  GDALSetCacheMax64(kGdalCacheBytes);
  CPLSetConfigOption("GDAL_PAM_ENABLED", "NO");
}

}  // namespace

int RunCorrect(const CorrectRequest& request) {
  return RunCommand(
      [&] {
        const auto start = std::chrono::steady_clock::now();
        if (request.dark.empty() != request.white.empty()) {
          throw CommandError{kUsage, "reflectance needs both --dark and --white"};
        }
        hyperspectral::SensorCalibration calibration;
        ReadRecord(calibration, request.calibration, "sensor_calibration", "calibration");
        const CorrectionMatrix& matrix =
            FindMatrix(calibration, request.matrix, request.calibration);
        std::unique_ptr<BlockCorrector> corrector;
        try {
          corrector = std::make_unique<BlockCorrector>(matrix);
        } catch (const std::invalid_argument& error) {
          throw CommandError{kBadMatrix, error.what()};
        }

        PrepareGdal();
        const CubeReader input(request.input);
        const BandImageDataFormat& format = input.Format();
        const unsigned long bands = format.GetNrOfBands();
        if (bands != corrector->GetBandCount()) {
          throw CommandError{kBadMatrix, "correction matrix \"" + matrix.name + "\" weighs " +
                                             std::to_string(corrector->GetBandCount()) +
                                             " bands, " + request.input + " has " +
                                             std::to_string(bands)};
        }
        const bool reflectance = !request.dark.empty();
        ReferenceCube dark;
        ReferenceCube white;
        if (reflectance) {
          dark = OpenReference(request.dark, format);
          white = OpenReference(request.white, format);
        }

        const unsigned long virtual_bands = corrector->GetVirtualBandCount();
        const unsigned long line_bytes =
            format.width * (bands * format.element_size + virtual_bands * sizeof(float));
        const unsigned long block_lines =
            request.block_lines != 0 ? request.block_lines
                                     : std::max(1ul, kBlockBytes / std::max(1ul, line_bytes));
        const unsigned threads = request.threads != 0
                                     ? request.threads
                                     : std::max(1u, std::thread::hardware_concurrency());

        StagedOutput staged(request.output);
        std::vector<double> wavelengths;
        std::vector<double> widths;
        for (const auto& band : matrix.virtual_bands) {
          wavelengths.push_back(band.wavelength_nm);
          widths.push_back(band.fwhm_nm);
        }
        Dataset output =
            CreateOutput(staged.Path(), request.format, format.width, format.height, wavelengths,
                         widths, "corrected by matrix " + matrix.name, &input);
        // An ENVI output is written by the threads themselves, beside the header GDAL made.
        std::unique_ptr<FileWriter> writer;
        if (request.format == "ENVI") {
          CloseOutput(output, request.output);
          writer = std::make_unique<FileWriter>(
              staged.Path(), format.width * format.height * virtual_bands * sizeof(float));
        }
        std::mutex gdal;  // GDAL's datasets serve one thread at a time
        const auto read = [&](const CubeReader& reader, unsigned long first, unsigned long count,
                              std::vector<unsigned char>& buffer) {
          if (reader.GetRawLayout()) {
            return ReadRawBlock(reader, first, count, buffer);
          }
          const std::lock_guard<std::mutex> lock(gdal);
          return ReadBlock(reader, first, count, buffer);
        };
        const unsigned long blocks = (format.height + block_lines - 1) / block_lines;
        std::atomic<unsigned long> next{0};
        std::atomic<unsigned long> lines_done{0};
        std::atomic<bool> failed{false};
        std::exception_ptr failure;
        const bool show = ::isatty(STDERR_FILENO) != 0;
        const auto work = [&] {
          std::vector<unsigned char> samples;
          std::vector<unsigned char> dark_samples;
          std::vector<unsigned char> white_samples;
          std::vector<float> corrected;
          try {
            for (unsigned long k = next++; k < blocks && !failed; k = next++) {
              const unsigned long first = k * block_lines;
              const unsigned long count = std::min(block_lines, format.height - first);
              const auto block = read(input, first, count, samples);
              corrected.resize(format.width * count * virtual_bands);
              const auto target = BlockCorrector::Target::PixelInterleaved(
                  corrected.data(), format.width, count, virtual_bands);
              if (reflectance) {
                BlockCorrector::Reference d = dark.reference;
                BlockCorrector::Reference w = white.reference;
                if (dark.reader) {
                  d.block = read(*dark.reader, first, count, dark_samples);
                }
                if (white.reader) {
                  w.block = read(*white.reader, first, count, white_samples);
                }
                corrector->CorrectReflectance(block, d, w, format.fill_value, target);
              } else {
                corrector->Correct(block, format.scale, format.fill_value, target);
              }
              if (writer) {
                writer->Write(first * format.width * virtual_bands * sizeof(float),
                              corrected.data(), corrected.size() * sizeof(float));
              } else {
                const std::lock_guard<std::mutex> lock(gdal);
                WriteLines(*output, first, count, corrected.data(), request.output);
              }
              const unsigned long done = lines_done += count;
              if (show) {
                const std::lock_guard<std::mutex> lock(gdal);
                ShowProgress("line", done, format.height);
              }
            }
          } catch (...) {
            const std::lock_guard<std::mutex> lock(gdal);
            if (!failed.exchange(true)) {
              failure = std::current_exception();
            }
          }
        };
        std::vector<std::thread> workers;
        for (unsigned t = 1; t < threads; ++t) {
          workers.emplace_back(work);
        }
        work();
        for (auto& worker : workers) {
          worker.join();
        }
        if (failure) {
          std::rethrow_exception(failure);
        }
        if (writer) {
          writer->Close(request.output);
          staged.Commit();
        } else {
          Finish(output, staged, request.output);
        }

        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double spectra = static_cast<double>(format.width * format.height);
        std::cerr << "correct: " << format.width << " x " << format.height << " pixels of " << bands
                  << " bands to " << virtual_bands << " virtual bands"
                  << (reflectance ? " of reflectance" : "") << ", matrix \"" << matrix.name
                  << "\", " << threads << " thread(s), " << std::fixed << std::setprecision(2)
                  << seconds << " s (" << spectra / seconds / 1e6 << " M spectra/s)\n";
        if (request.json) {
          std::cout << nlohmann::json{{"calibration", request.calibration},
                                      {"input", request.input},
                                      {"output", request.output},
                                      {"matrix", matrix.name},
                                      {"pixels", format.width},
                                      {"lines", format.height},
                                      {"bands", bands},
                                      {"virtual_bands", virtual_bands},
                                      {"reflectance", reflectance},
                                      {"threads", threads},
                                      {"block_lines", block_lines},
                                      {"seconds", seconds},
                                      {"peak_memory_kib", PeakMemoryKib()}}
                           .dump(2)
                    << '\n';
        }
        return static_cast<int>(kOk);
      },
      "the cube can't be corrected");
}

int RunCube(const CubeRequest& request) {
  return RunCommand(
      [&] {
        hyperspectral::SensorCalibration calibration;
        ReadRecord(calibration, request.calibration, "sensor_calibration", "calibration");
        std::unique_ptr<hyperspectral::RawFrameAssembler> assembler;
        try {
          assembler = std::make_unique<hyperspectral::RawFrameAssembler>(calibration.filter_info);
        } catch (const std::invalid_argument& error) {
          throw CommandError{kErrors, request.calibration + ": " + error.what()};
        }
        PrepareGdal();
        unsigned long frame_width = 0;
        unsigned long frame_height = 0;
        unsigned long width = 0;
        unsigned long lines_per_frame = 0;
        std::vector<std::unique_ptr<CubeReader>> frames;
        for (const std::string& path : request.frames) {
          frames.push_back(std::make_unique<CubeReader>(path));
          const BandImageDataFormat& format = frames.back()->Format();
          if (format.GetNrOfBands() != 1) {
            throw CommandError{kBadImage, path + ": a raw frame has one band, this file " +
                                              std::to_string(format.GetNrOfBands())};
          }
          if (frames.size() == 1) {
            frame_width = format.width;
            frame_height = format.height;
            width = assembler->GetCubeWidth(frame_width, frame_height);
            lines_per_frame = assembler->GetCubeLines(frame_width, frame_height);
            if (width == 0 || lines_per_frame == 0) {
              throw CommandError{kBadImage, path + ": a frame of " + std::to_string(frame_width) +
                                                " x " + std::to_string(frame_height) +
                                                " pixels holds no whole cube pixel of the "
                                                "calibration's zones"};
            }
          } else if (format.width != frame_width || format.height != frame_height) {
            throw CommandError{kBadImage, path + " is not of the first frame's size"};
          }
        }
        const unsigned long bands = assembler->GetBandCount();
        StagedOutput staged(request.output);
        Dataset output = CreateOutput(staged.Path(), request.format, width,
                                      lines_per_frame * frames.size(), assembler->GetWavelengths(),
                                      assembler->GetFwhms(), "assembled from raw frames", nullptr);
        std::vector<unsigned char> samples;
        std::vector<float> lines(width * lines_per_frame * bands);
        for (std::size_t f = 0; f < frames.size(); ++f) {
          const BandImageDataFormat& format = frames[f]->Format();
          samples.resize(frame_width * frame_height * format.element_size);
          const auto size = static_cast<long long>(format.element_size);
          frames[f]->ReadLines(0, frame_height, samples.data(), size,
                               size * static_cast<long long>(frame_width), 0);
          assembler->Assemble(samples.data(), format.data_type, frame_width, frame_height,
                              lines.data());
          WriteLines(*output, f * lines_per_frame, lines_per_frame, lines.data(), request.output);
        }
        Finish(output, staged, request.output);
        std::cerr << "cube: " << frames.size() << " frame(s) of " << frame_width << " x "
                  << frame_height << " pixels to " << width << " x "
                  << lines_per_frame * frames.size() << " pixels of " << bands << " bands\n";
        if (request.json) {
          std::cout << nlohmann::json{{"calibration", request.calibration},
                                      {"frames", request.frames},
                                      {"output", request.output},
                                      {"pixels", width},
                                      {"lines", lines_per_frame * frames.size()},
                                      {"bands", bands}}
                           .dump(2)
                    << '\n';
        }
        return static_cast<int>(kOk);
      },
      "the frames can't be assembled");
}

}  // namespace kelto::tools

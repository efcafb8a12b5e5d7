// The loader of the command-line tools against cubes written byte by byte here: ENVI in every
// interleave, sample type and byte order, GeoTIFF stacks written through GDAL, and the files it
// must refuse with the right exit code and a message a user can act on.

#include <cpl_string.h>
#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

#include <kelto/test_support/temporary_directory.h>
#include "hypercube_loader.h"

namespace kelto::tools {
namespace {

namespace fs = std::filesystem;
using datatypes::BandImageDataFormat;
using datatypes::BandStorage_BIP;
using datatypes::BandStorage_BSQ;
using datatypes::Hypercube;
using datatypes::HypercubeBandInfo;
using datatypes::LoadSample;

constexpr unsigned long kWidth = 5;
constexpr unsigned long kHeight = 3;
constexpr unsigned long kBands = 4;

// The sample written at band b, pixel (x, y): distinct everywhere, with unequal bytes so that a
// swapped byte order or a shifted offset changes it, and near the ends of the type's range so
// that a sample read as the wrong type changes too.
template <typename T>
T Pattern(unsigned long b, unsigned long x, unsigned long y) {
  const unsigned long i = b * 100 + y * 10 + x;
  const bool negative = (b + x + y) % 2 == 1;
  if constexpr (std::is_same_v<T, unsigned char>) {
    return static_cast<T>(1 + b * 60 + y * 5 + x);
  } else if constexpr (std::is_same_v<T, signed char>) {
    return static_cast<T>(negative ? -static_cast<int>(1 + b * 30 + y * 5 + x)
                                   : static_cast<int>(1 + b * 30 + y * 5 + x));
  } else if constexpr (std::is_same_v<T, unsigned short>) {
    return static_cast<T>(65534 - 97 * i);
  } else if constexpr (std::is_same_v<T, unsigned int>) {
    return static_cast<T>(4000000000UL - 1000003UL * i);
  } else if constexpr (std::is_same_v<T, unsigned long>) {
    return 18000000000000000000UL - 1000000000039UL * i;
  } else if constexpr (std::is_floating_point_v<T>) {
    const T magnitude = std::is_same_v<T, float> ? static_cast<T>(0.375 * i + 1.5)
                                                 : static_cast<T>(1048576.5 * i + 1.0 / 3.0);
    return negative ? -magnitude : magnitude;
  } else {
    // short, int, long
    const long long magnitude = sizeof(T) == 2   ? 97LL * static_cast<long long>(i + 1)
                                : sizeof(T) == 4 ? 16777259LL + 65537LL * static_cast<long long>(i)
                                                 : 1099511627791LL * static_cast<long long>(i + 1);
    return static_cast<T>(negative ? -magnitude : magnitude);
  }
}

bool HostIsBigEndian() {
  const std::uint16_t probe = 1;
  unsigned char first = 0;
  std::memcpy(&first, &probe, 1);
  return first == 0;
}

// The samples of the pattern in the file order of an ENVI interleave ("bsq", "bil", "bip"),
// each in the byte order asked for.
template <typename T>
std::string RawSamples(const std::string& interleave, bool big_endian) {
  std::string bytes;
  for (unsigned long i = 0; i < kBands * kHeight * kWidth; ++i) {
    // Band, line, sample for "bsq"; line, band, sample for "bil"; line, sample, band for "bip".
    const unsigned long b = interleave == "bsq"   ? i / (kHeight * kWidth)
                            : interleave == "bil" ? i / kWidth % kBands
                                                  : i % kBands;
    const unsigned long y = interleave == "bsq" ? i / kWidth % kHeight : i / (kBands * kWidth);
    const unsigned long x = interleave == "bip" ? i / kBands % kWidth : i % kWidth;
    const T value = Pattern<T>(b, x, y);
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    if (big_endian != HostIsBigEndian()) {
      std::reverse(raw, raw + sizeof(T));
    }
    bytes.append(raw, sizeof(T));
  }
  return bytes;
}

void WriteFile(const fs::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(out.good()) << path;
}

// An ENVI header of the test cube's size with the lines that vary between cases.
std::string EnviHeader(int data_type, const std::string& interleave, int byte_order,
                       unsigned long header_offset, const std::string& extra_lines = "",
                       unsigned long bands = kBands) {
  std::ostringstream header;
  header << "ENVI\ndescription = {written by the loader test}\n"
         << "samples = " << kWidth << "\nlines = " << kHeight << "\nbands = " << bands
         << "\nheader offset = " << header_offset << "\nfile type = ENVI Standard\n"
         << "data type = " << data_type << "\ninterleave = " << interleave
         << "\nbyte order = " << byte_order << '\n'
         << extra_lines;
  return header.str();
}

// Writes `<stem>.hdr` and the data file `<stem><data_extension>`: header_offset bytes that are
// not samples, then the pattern.
template <typename T>
void WriteEnvi(const fs::path& stem, int data_type, const std::string& interleave, int byte_order,
               unsigned long header_offset, const std::string& extra_lines = "",
               const std::string& data_extension = ".raw") {
  WriteFile(fs::path(stem.string() + ".hdr"),
            EnviHeader(data_type, interleave, byte_order, header_offset, extra_lines));
  WriteFile(fs::path(stem.string() + data_extension),
            std::string(header_offset, '\x5A') + RawSamples<T>(interleave, byte_order == 1));
}

// Every sample of the cube, read through its storage tables, against the pattern; a cube of a
// window against the pattern of the window.
template <typename T>
void ExpectPattern(const Hypercube& cube,
                   const CubeReader::Window& window = {0, 0, kWidth, kHeight}) {
  const BandImageDataFormat& format = cube.GetDataFormat();
  ASSERT_EQ(format.width, window.width);
  ASSERT_EQ(format.height, window.height);
  ASSERT_EQ(format.GetNrOfBands(), kBands);
  ASSERT_EQ(format.element_size, sizeof(T));
  const auto* bsq = dynamic_cast<const BandStorage_BSQ*>(cube.GetBandStorage());
  const auto* bip = dynamic_cast<const BandStorage_BIP*>(cube.GetBandStorage());
  ASSERT_EQ(bsq != nullptr, format.interleave == BandImageDataFormat::kBandSequential);
  ASSERT_EQ(bip != nullptr, format.interleave == BandImageDataFormat::kBandInterleavedByPixel);
  std::size_t wrong = 0;
  std::ostringstream first_wrong;
  for (unsigned long b = 0; b < kBands; ++b) {
    for (unsigned long y = 0; y < window.height; ++y) {
      for (unsigned long x = 0; x < window.width; ++x) {
        const T read = bsq != nullptr ? LoadSample<T>(bsq->bands[b][y], x)
                                      : LoadSample<T>(bip->pixels[y][x], b);
        const T written = Pattern<T>(b, window.x + x, window.y + y);
        if (std::memcmp(&read, &written, sizeof(T)) != 0 && wrong++ == 0) {
          first_wrong << std::setprecision(17) << "band " << b << " pixel " << x << "," << y
                      << ": read " << +read << ", written " << +written;
        }
      }
    }
  }
  EXPECT_EQ(wrong, 0U) << first_wrong.str();
}

std::string Text(double value) {
  std::ostringstream text;
  text << std::setprecision(17) << value;
  return text.str();
}

// A fresh directory per test, removed afterwards.
class HypercubeLoaderTest : public ::testing::Test {
 protected:
  kelto::testing::TemporaryDirectory directory_;
  const fs::path dir_ = directory_.path();
};

// Equal, or both not a number.
bool Same(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

// A sample type as ENVI and GDAL name it, the loader's code for it, and a no-data value of that
// type.
template <typename T, int Envi, std::uint32_t Code, GDALDataType Gdal>
struct SampleType {
  using Sample = T;
  static constexpr int kEnvi = Envi;
  static constexpr std::uint32_t kCode = Code;
  static constexpr GDALDataType kGdal = Gdal;
  static double Fill() {
    if constexpr (std::is_floating_point_v<T>) {
      return -9999.25;
    } else if constexpr (std::is_signed_v<T>) {
      return sizeof(T) == 8 ? -99999999999.0 : sizeof(T) == 1 ? -128.0 : -9999.0;
    } else {
      return sizeof(T) == 1 ? 255.0 : sizeof(T) == 8 ? 123456789012.0 : 65535.0;
    }
  }
};

template <typename Type>
class HypercubeLoaderEnviTypes : public HypercubeLoaderTest {};

// The ENVI sample types GDAL 3.6 reads. It refuses the 64-bit integers of ENVI (data types 14
// and 15); the loader meets those through GeoTIFF below.
using EnviTypes = ::testing::Types<
    SampleType<unsigned char, 1, BandImageDataFormat::kUnsignedChar, GDT_Byte>,
    SampleType<short, 2, BandImageDataFormat::kShort, GDT_Int16>,
    SampleType<int, 3, BandImageDataFormat::kInt, GDT_Int32>,
    SampleType<float, 4, BandImageDataFormat::kFloat, GDT_Float32>,
    SampleType<double, 5, BandImageDataFormat::kDouble, GDT_Float64>,
    SampleType<unsigned short, 12, BandImageDataFormat::kUnsignedShort, GDT_UInt16>,
    SampleType<unsigned int, 13, BandImageDataFormat::kUnsignedInt, GDT_UInt32>>;
TYPED_TEST_SUITE(HypercubeLoaderEnviTypes, EnviTypes);

TYPED_TEST(HypercubeLoaderEnviTypes, SamplesAndFormatInEveryInterleaveAndByteOrder) {
  using T = typename TypeParam::Sample;
  for (const std::string interleave : {"bsq", "bil", "bip"}) {
    for (const int byte_order : {0, 1}) {
      // Big-endian files also start after a header block of odd length, so that no sample is
      // aligned and a skipped offset shifts every byte.
      const unsigned long offset = byte_order == 1 ? 13 : 0;
      SCOPED_TRACE(interleave + ", byte order " + std::to_string(byte_order));
      const fs::path stem = this->dir_ / (interleave + std::to_string(byte_order));
      WriteEnvi<T>(stem, TypeParam::kEnvi, interleave, byte_order, offset,
                   "data ignore value = " + Text(TypeParam::Fill()) + "\n");

      const auto cube = LoadHypercube(stem.string() + ".hdr");
      ASSERT_NE(cube, nullptr);
      const BandImageDataFormat& format = cube->GetDataFormat();
      EXPECT_EQ(format.data_type, TypeParam::kCode);
      EXPECT_EQ(format.element_size, BandImageDataFormat::SampleSize(TypeParam::kCode));
      EXPECT_EQ(format.interleave, interleave == "bip"
                                       ? BandImageDataFormat::kBandInterleavedByPixel
                                       : BandImageDataFormat::kBandSequential);
      EXPECT_EQ(format.fill_value, TypeParam::Fill());
      EXPECT_EQ(format.scale, 1.0);
      EXPECT_EQ(cube->GetSampleBytes(), kWidth * kHeight * kBands * sizeof(T));
      ExpectPattern<T>(*cube);
      // A window holds its own pixels only, in the same storage order.
      const CubeReader reader(stem.string() + ".hdr");
      for (const CubeReader::Window& window :
           {CubeReader::Window{3, 2, 1, 1}, CubeReader::Window{1, 0, 2, 3},
            CubeReader::Window{0, 1, kWidth, 1}}) {
        const auto part = LoadWindow(reader, window);
        EXPECT_EQ(part->GetDataFormat().interleave, format.interleave);
        EXPECT_EQ(part->GetSampleBytes(), window.width * window.height * kBands * sizeof(T));
        ExpectPattern<T>(*part, window);
      }
    }
  }
}

using HypercubeLoaderEnvi = HypercubeLoaderTest;

TEST_F(HypercubeLoaderEnvi, HeaderListsGiveBandsFillAndScale) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Band names, wavelengths and widths: none when empty.
  struct Case {
    std::string interleave, lines;
    double fill, scale, tolerance;
    std::vector<double> wavelengths, widths;
    std::vector<std::string> names;
  };
  const std::string nanometres =
      "data ignore value = 65535\nreflectance scale factor = 10000\n"
      "wavelength units = Nanometers\nband names = {blue, green, red, edge}\n"
      "wavelength = {\n 470.5, 480,\n 490.25, 500}\nfwhm = {10, 10.5, 11, 12.75}\n";
  // Micrometre lists become nanometres.
  const std::string micrometres =
      "wavelength units = Micrometers\nwavelength = {0.47, 0.5125, 1.6, 2.2}\n"
      "fwhm = {0.01, 0.0125, 0.05, 0.1}\n";
  // GDAL adds the wavelength to the name: "blue (470.5 Nanometers)".
  const std::vector<std::string> names = {"blue", "green", "red", "edge"};
  const Case cases[] = {
      {"bsq", nanometres, 65535, 10000, 0, {470.5, 480, 490.25, 500}, {10, 10.5, 11, 12.75}, names},
      {"bip", micrometres, nan, 1, 1e-9, {470, 512.5, 1600, 2200}, {10, 12.5, 50, 100}, {}},
      // Without the optional items: no fill, unit scale and no wavelengths.
      {"bil", "", nan, 1, 0, {}, {}, {}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.interleave);
    WriteEnvi<unsigned short>(dir_ / c.interleave, 12, c.interleave, 0, 0, c.lines);
    const auto cube = LoadHypercube((dir_ / (c.interleave + ".hdr")).string());
    const BandImageDataFormat& format = cube->GetDataFormat();
    EXPECT_TRUE(Same(format.fill_value, c.fill)) << format.fill_value;
    EXPECT_EQ(format.scale, c.scale);
    EXPECT_TRUE(cube->GetHypercubeInfo().is_normalised);
    ASSERT_EQ(format.GetNrOfBands(), kBands);
    for (unsigned long b = 0; b < kBands; ++b) {
      const auto* band = dynamic_cast<const HypercubeBandInfo*>(&format.GetBand(b));
      ASSERT_NE(band, nullptr) << b;
      const double wavelength = c.wavelengths.empty() ? nan : c.wavelengths[b];
      const double width = c.widths.empty() ? nan : c.widths[b];
      EXPECT_TRUE(Same(band->wavelength_nm, wavelength) ||
                  std::abs(band->wavelength_nm - wavelength) <= c.tolerance)
          << b << ": " << band->wavelength_nm;
      EXPECT_TRUE(Same(band->fwhm_nm, width) || std::abs(band->fwhm_nm - width) <= c.tolerance)
          << b << ": " << band->fwhm_nm;
      if (!c.names.empty()) {
        EXPECT_EQ(band->name.rfind(c.names[b], 0), 0U) << band->name;
      }
    }
    ExpectPattern<unsigned short>(*cube);
  }
}

TEST_F(HypercubeLoaderEnvi, BandListsOfAnotherLengthAreWarnedAboutAndDropped) {
  // Whether the wavelengths and the widths are kept, the header's lists, what is warned.
  struct Case {
    bool wavelengths_kept, widths_kept;
    std::string name, lines;
    std::vector<std::string> warnings;
  };
  const std::string widths = "fwhm = {10, 10, 10, 10}\n";
  const std::string wavelengths = "wavelength = {470, 480, 490, 500}\n";
  const std::string six = "fwhm = {10, 10, 10, 10, 10, 10}\n";
  const auto has = [](const std::string& list, int values) {
    return "\"" + list + "\" list has " + std::to_string(values) + " values for 4 bands";
  };
  const Case cases[] = {
      {0, 1, "short", "wavelength = {470, 480, 490}\n" + widths, {has("wavelength", 3)}},
      {0, 0, "long", "wavelength = {470, 480, 490, 500, 510}\n", {has("wavelength", 5)}},
      {1, 0, "widths", wavelengths + "fwhm = {10, 10}\n", {has("fwhm", 2)}},
      {0, 0, "both", "wavelength = {470}\n" + six, {has("wavelength", 1), has("fwhm", 6)}},
      {1, 1, "fitting", wavelengths + widths, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    WriteEnvi<unsigned short>(dir_ / c.name, 12, "bsq", 0, 0, c.lines);
    const std::string header = (dir_ / (c.name + ".hdr")).string();
    ::testing::internal::CaptureStderr();
    const auto cube = LoadHypercube(header);
    const std::string warned = ::testing::internal::GetCapturedStderr();
    for (unsigned long b = 0; b < kBands; ++b) {
      const auto& band = dynamic_cast<const HypercubeBandInfo&>(cube->GetDataFormat().GetBand(b));
      EXPECT_EQ(std::isnan(band.wavelength_nm), !c.wavelengths_kept) << b;
      EXPECT_EQ(std::isnan(band.fwhm_nm), !c.widths_kept) << b;
    }
    EXPECT_EQ(warned.empty(), c.warnings.empty()) << warned;
    for (const std::string& part : c.warnings) {
      EXPECT_NE(warned.find(part), std::string::npos) << warned;
      EXPECT_NE(warned.find(header + ": "), std::string::npos) << warned;
    }
    ExpectPattern<unsigned short>(*cube);
  }
}

TEST_F(HypercubeLoaderEnvi, HeaderOrDataFileNamedOpenTheSameCube) {
  for (const std::string extension : {"", ".raw", ".img", ".dat", ".bsq", ".bil", ".bip"}) {
    SCOPED_TRACE("data file extension \"" + extension + "\"");
    const fs::path stem =
        dir_ / ("cube_" + (extension.empty() ? std::string("bare") : extension.substr(1)));
    WriteEnvi<unsigned int>(stem, 13, "bsq", 1, 0, "", extension);
    ExpectPattern<unsigned int>(*LoadHypercube(stem.string() + ".hdr"));
    ExpectPattern<unsigned int>(*LoadHypercube(stem.string() + extension));
  }
}

// Writes the files into dir_, loads `open` there and expects a CubeError with the code whose
// message names the file `named` and holds every part.
class HypercubeLoaderErrors : public HypercubeLoaderTest {
 protected:
  void ExpectError(CubeError::Code code, const std::string& open, const std::string& named,
                   const std::vector<std::string>& parts,
                   const std::vector<std::pair<std::string, std::string>>& files = {}) {
    SCOPED_TRACE(open);
    for (const auto& [name, bytes] : files) {
      WriteFile(dir_ / name, bytes);
    }
    std::string message;
    try {
      LoadHypercube((dir_ / open).string());
      ADD_FAILURE() << "loaded without error";
    } catch (const CubeError& error) {
      EXPECT_EQ(error.code, code) << error.what();
      message = error.what();
    }
    std::vector<std::string> all = parts;
    all.push_back((named.empty() ? dir_ : dir_ / named).string());
    for (const std::string& part : all) {
      EXPECT_NE(message.find(part), std::string::npos) << message << " lacks " << part;
    }
  }
};

TEST_F(HypercubeLoaderErrors, MissingUnknownAndBadHeaderFilesCannotBeOpened) {
  const auto code = CubeError::kCannotOpen;
  ExpectError(code, "absent.hdr", "absent.hdr", {"no such file"});
  ExpectError(code, "", "", {});
  ExpectError(code, "lonely.hdr", "lonely.hdr", {"no data file beside the header"},
              {{"lonely.hdr", EnviHeader(12, "bsq", 0, 0)}});
  ExpectError(code, "notes.txt", "notes.txt", {"not an image cube"},
              {{"notes.txt", "samples were taken on a sunny day\nwidth = 5\n"}});
  // A header that is no ENVI header, with bytes beside it.
  ExpectError(code, "junk.hdr", "junk.raw", {"not an image cube"},
              {{"junk.hdr", "this is not a header\n"},
               {"junk.raw", std::string(kWidth * kHeight * kBands * 2, '\x01')}});
  // A byte order or header offset no reader could use makes a bad header.
  const std::string samples = RawSamples<unsigned short>("bsq", false);
  const std::string header = EnviHeader(12, "bsq", 0, 0);
  // The line as written, the line instead, what the message must hold.
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"byte order = 0", "byte order = 2", "\"byte order\" is \"2\""},
      {"byte order = 0", "byte order = -1", "\"byte order\" is \"-1\""},
      {"byte order = 0", "byte order = 10", "\"byte order\" is \"10\""},
      {"header offset = 0", "header offset = 1e308", "\"header offset\" is \"1e308\""},
      {"header offset = 0", "header offset = 12.5", "\"header offset\" is \"12.5\""},
      {"header offset = 0", "header offset = 5e18", "\"header offset\" is \"5e18\""},
  };
  int index = 0;
  for (const auto& [line, instead, what] : cases) {
    SCOPED_TRACE(instead);
    std::string broken = header;
    broken.replace(broken.find(line), line.size(), instead);
    const std::string stem = "bad" + std::to_string(index++);
    ExpectError(code, stem + ".hdr", stem + ".hdr", {what},
                {{stem + ".hdr", broken}, {stem + ".raw", samples}});
  }
}

TEST_F(HypercubeLoaderErrors, ComplexSamplesMixedBandTypesAndVastCubesAreUnsupported) {
  const auto code = CubeError::kUnsupported;
  ExpectError(code, "complex.hdr", "complex.raw", {"CFloat32", "complex"},
              {{"complex.hdr", EnviHeader(6, "bsq", 0, 0)},
               {"complex.raw", std::string(kWidth * kHeight * kBands * 8, '\0')}});
  ExpectError(code, "mixed.vrt", "mixed.vrt", {"bands of different data types"},
              {{"mixed.vrt",
                "<VRTDataset rasterXSize=\"2\" rasterYSize=\"2\">\n"
                "  <VRTRasterBand dataType=\"UInt16\" band=\"1\"/>\n"
                "  <VRTRasterBand dataType=\"Float32\" band=\"2\"/>\n</VRTDataset>\n"}});
  // GDAL would spend seconds making the bands before anything could be checked.
  ExpectError(code, "wide.hdr", "wide.hdr", {"50000 bands", "at most 10000"},
              {{"wide.hdr", EnviHeader(12, "bsq", 0, 0, "", 50000)},
               {"wide.raw", std::string(kWidth * kHeight * 2, '\0')}});
  // More samples than one object can span: refused before anything is allocated.
  ExpectError(code, "vast.vrt", "vast.vrt",
              {"2147483647 x 2147483647 pixels of 2 bands", "do not fit in memory"},
              {{"vast.vrt",
                "<VRTDataset rasterXSize=\"2147483647\" rasterYSize=\"2147483647\">\n"
                "  <VRTRasterBand dataType=\"Float64\" band=\"1\"/>\n"
                "  <VRTRasterBand dataType=\"Float64\" band=\"2\"/>\n</VRTDataset>\n"}});
}

TEST_F(HypercubeLoaderErrors, DataFileShorterThanTheHeaderPromises) {
  const auto code = CubeError::kSizeMismatch;
  const std::string samples = RawSamples<unsigned short>("bsq", false);
  const std::string promised = std::to_string(samples.size());
  ExpectError(code, "short.hdr", "short.raw",
              {"header and data size disagree", promised + " bytes",
               "holds " + std::to_string(samples.size() - 1)},
              {{"short.hdr", EnviHeader(12, "bsq", 0, 0)}, {"short.raw", samples.substr(1)}});
  // Every sample is there, but the header block in front of them is not.
  ExpectError(code, "offset.hdr", "offset.raw",
              {std::to_string(samples.size() + 64) + " bytes", "holds " + promised},
              {{"offset.hdr", EnviHeader(12, "bsq", 0, 64)}, {"offset.raw", samples}});
  // GDAL refuses a file of less than half its size itself when the cube has more than ten
  // bands; the loader tells that the same way as any other short file.
  const std::size_t quarter = kWidth * kHeight * 12 / 2;
  ExpectError(code, "many.hdr", "many.raw",
              {"header and data size disagree", std::to_string(4 * quarter) + " bytes",
               "holds " + std::to_string(quarter)},
              {{"many.hdr", EnviHeader(12, "bsq", 0, 0, "", 12)},
               {"many.raw", std::string(quarter, '\x01')}});
  // Longer than promised is fine: the samples are all there.
  WriteFile(dir_ / "long.hdr", EnviHeader(12, "bsq", 0, 0));
  WriteFile(dir_ / "long.raw", samples + "trailer");
  ExpectPattern<unsigned short>(*LoadHypercube((dir_ / "long.hdr").string()));
}

// A GeoTIFF stack written through GDAL with the pattern as samples, a no-data value and a GDAL
// scale on every band.
template <typename T>
void WriteGeoTiff(const fs::path& path, GDALDataType type, const char* interleave,
                  const char* pixel_type, double fill, double gdal_scale) {
  GDALAllRegister();
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
  ASSERT_NE(driver, nullptr);
  char** options = CSLSetNameValue(nullptr, "INTERLEAVE", interleave);
  if (pixel_type != nullptr) {
    options = CSLSetNameValue(options, "PIXELTYPE", pixel_type);
  }
  GDALDataset* dataset =
      driver->Create(path.string().c_str(), static_cast<int>(kWidth), static_cast<int>(kHeight),
                     static_cast<int>(kBands), type, options);
  CSLDestroy(options);
  ASSERT_NE(dataset, nullptr);
  for (unsigned long b = 0; b < kBands; ++b) {
    GDALRasterBand* band = dataset->GetRasterBand(static_cast<int>(b + 1));
    std::vector<T> samples;
    for (unsigned long y = 0; y < kHeight; ++y) {
      for (unsigned long x = 0; x < kWidth; ++x) {
        samples.push_back(Pattern<T>(b, x, y));
      }
    }
    if constexpr (std::is_same_v<T, long>) {
      EXPECT_EQ(band->SetNoDataValueAsInt64(static_cast<std::int64_t>(fill)), CE_None);
    } else if constexpr (std::is_same_v<T, unsigned long>) {
      EXPECT_EQ(band->SetNoDataValueAsUInt64(static_cast<std::uint64_t>(fill)), CE_None);
    } else {
      EXPECT_EQ(band->SetNoDataValue(fill), CE_None);
    }
    EXPECT_EQ(band->SetScale(gdal_scale), CE_None);
    EXPECT_EQ(band->RasterIO(GF_Write, 0, 0, static_cast<int>(kWidth), static_cast<int>(kHeight),
                             samples.data(), static_cast<int>(kWidth), static_cast<int>(kHeight),
                             type, 0, 0, nullptr),
              CE_None);
  }
  GDALClose(GDALDataset::ToHandle(dataset));
}

template <typename Type>
class HypercubeLoaderGeoTiff : public HypercubeLoaderTest {};

// Signed bytes, and the 64-bit integers GDAL reads only from GeoTIFF.
using GeoTiffTypes = ::testing::Types<
    SampleType<unsigned short, 12, BandImageDataFormat::kUnsignedShort, GDT_UInt16>,
    SampleType<signed char, 0, BandImageDataFormat::kSignedChar, GDT_Byte>,
    SampleType<long, 14, BandImageDataFormat::kLong, GDT_Int64>,
    SampleType<unsigned long, 15, BandImageDataFormat::kUnsignedLong, GDT_UInt64>>;
TYPED_TEST_SUITE(HypercubeLoaderGeoTiff, GeoTiffTypes);

TYPED_TEST(HypercubeLoaderGeoTiff, StackKeepsEveryBitTheFillAndTheInverseScale) {
  using T = typename TypeParam::Sample;
  // A GDAL scale of 1 leaves the samples as they are.
  const double gdal_scale = std::is_same_v<T, unsigned short> ? 0.0002 : 1.0;
  const char* pixel_type = std::is_same_v<T, signed char> ? "SIGNEDBYTE" : nullptr;
  for (const char* interleave : {"PIXEL", "BAND"}) {
    SCOPED_TRACE(interleave);
    const fs::path path = this->dir_ / (std::string(interleave) + ".tif");
    WriteGeoTiff<T>(path, TypeParam::kGdal, interleave, pixel_type, TypeParam::Fill(), gdal_scale);
    const auto cube = LoadHypercube(path.string());
    const BandImageDataFormat& format = cube->GetDataFormat();
    EXPECT_EQ(format.data_type, TypeParam::kCode);
    EXPECT_EQ(format.interleave, std::string(interleave) == "PIXEL"
                                     ? BandImageDataFormat::kBandInterleavedByPixel
                                     : BandImageDataFormat::kBandSequential);
    EXPECT_EQ(format.fill_value, TypeParam::Fill());
    EXPECT_DOUBLE_EQ(format.scale, 1.0 / gdal_scale);
    EXPECT_TRUE(cube->GetHypercubeInfo().is_normalised);
    ExpectPattern<T>(*cube);
  }
}

}  // namespace
}  // namespace kelto::tools

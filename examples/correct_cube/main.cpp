// Corrects the spectrum of one pixel of an image cube with a correction matrix of its calibration,
// through DataAccessor. The cube is an ENVI file of unsigned 16-bit samples stored band after band
// (as the bundled scenes are); a program with other images builds its Hypercube the same way from
// its own samples.
//
//   correct_cube CALIBRATION.xml CUBE.hdr X Y [MATRIX]
//
// Prints "wavelength,value" lines, one per virtual band. Exits 1 when a file can't be used, 64 on
// wrong arguments.

#include <cstdint>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelto/hyperspectral.h>

namespace {

using kelto::datatypes::BandImageDataFormat;
using kelto::datatypes::Hypercube;

// The "key = value" items of an ENVI header; lists keep their braces.
std::map<std::string, std::string> ReadHeader(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error(path + ": can't be opened");
  }
  std::map<std::string, std::string> items;
  std::string line;
  while (std::getline(file, line)) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) {
      continue;
    }
    const auto trim = [](std::string text) {
      text.erase(0, text.find_first_not_of(" \t\r"));
      text.erase(text.find_last_not_of(" \t\r") + 1);
      return text;
    };
    items[trim(line.substr(0, equals))] = trim(line.substr(equals + 1));
  }
  return items;
}

const std::string& Text(const std::map<std::string, std::string>& header, const std::string& key) {
  const auto found = header.find(key);
  if (found == header.end()) {
    throw std::runtime_error("the header has no \"" + key + "\"");
  }
  return found->second;
}

double Number(const std::map<std::string, std::string>& header, const std::string& key) {
  try {
    return std::stod(Text(header, key));
  } catch (const std::logic_error&) {
    throw std::runtime_error("the header's \"" + key + "\" is not a number");
  }
}

// The cube of the header and its data file (the header's name with .raw instead of .hdr).
std::unique_ptr<Hypercube> LoadCube(const std::string& header_path) {
  const auto header = ReadHeader(header_path);
  // ENVI's sample type 12 is unsigned 16 bits; the library numbers sample types its own way.
  if (Number(header, "data type") != 12 || Text(header, "interleave") != "bsq" ||
      Number(header, "byte order") != 0) {
    throw std::runtime_error(header_path + ": only little-endian band-sequential uint16 cubes");
  }
  BandImageDataFormat format;
  format.data_type = BandImageDataFormat::kUnsignedShort;
  format.element_size = sizeof(std::uint16_t);
  format.width = static_cast<unsigned long>(Number(header, "samples"));
  format.height = static_cast<unsigned long>(Number(header, "lines"));
  format.interleave = BandImageDataFormat::kBandSequential;
  format.maximum_value = 65535.0;
  // Samples are reflectances times this factor, and this value marks a sample without data.
  format.scale = Number(header, "reflectance scale factor");
  format.fill_value = Number(header, "data ignore value");
  std::istringstream wavelengths(Text(header, "wavelength").substr(1));
  const auto bands = static_cast<unsigned long>(Number(header, "bands"));
  for (unsigned long b = 0; b < bands; ++b) {
    kelto::datatypes::HypercubeBandInfo band;
    char separator = 0;
    wavelengths >> band.wavelength_nm >> separator;
    format.AddBand(band);
  }

  auto cube = std::make_unique<Hypercube>(format);
  std::string data_path = header_path.substr(0, header_path.size() - 4) + ".raw";
  std::ifstream data(data_path, std::ios::binary);
  data.read(reinterpret_cast<char*>(cube->GetSamples()),
            static_cast<std::streamsize>(cube->GetSampleBytes()));
  if (!data) {
    throw std::runtime_error(data_path + ": holds fewer samples than the header describes");
  }
  // Without this flag the accessor takes the samples for raw digital numbers: it neither scales
  // them nor applies the correction matrix, and says nothing about it.
  cube->GetHypercubeInfo().is_normalised = true;
  return cube;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) {
    std::cerr << "usage: correct_cube CALIBRATION.xml CUBE.hdr X Y [MATRIX]\n";
    return 64;
  }
  using kelto::hyperspectral::CorrectionMatrix;
  using kelto::hyperspectral::SensorCalibration;
  kelto::hyperspectral::DataAccessor::Pixel pixel;
  try {
    pixel = {std::stoi(argv[3]), std::stoi(argv[4])};
  } catch (const std::logic_error&) {
    std::cerr << "correct_cube: X and Y are whole numbers\n";
    return 64;
  }
  try {
    SensorCalibration calibration;
    SensorCalibration::ParsingResult result;
    calibration.ReadFile(result, argv[1]);
    calibration.system_info.RunSanityChecks(result);
    if (result.state() == SensorCalibration::ParsingResult::Error) {
      std::cerr << argv[1] << ": the calibration is in error\n";
      return 1;
    }
    const auto& matrices = calibration.system_info.spectral_correction_info.correction_matrices;
    const CorrectionMatrix* matrix = nullptr;
    for (const CorrectionMatrix& candidate : matrices) {
      if (argc == 5 || candidate.name == argv[5]) {
        matrix = &candidate;
        break;
      }
    }
    if (matrix == nullptr) {
      std::cerr << argv[1] << ": no such correction matrix\n";
      return 1;
    }

    const std::unique_ptr<Hypercube> cube = LoadCube(argv[2]);
    // Band k of the cube is band number k of the calibration: the matrix weighs them by position.
    for (const CorrectionMatrix::VirtualBand& band : matrix->virtual_bands) {
      if (band.coefficients.size() != cube->GetDataFormat().GetNrOfBands()) {
        std::cerr << "the matrix weighs another number of bands than the cube has\n";
        return 1;
      }
    }

    // Image and matrix stay ours; the accessor only points at them.
    kelto::hyperspectral::DataAccessor accessor(cube.get());
    accessor.SetCorrectionMatrix(matrix);
    accessor.Start();
    // The correction does not mask the fill value: a pixel without data in one band would give
    // numbers made from it in every virtual band.
    for (unsigned long b = 0; b < cube->GetDataFormat().GetNrOfBands(); ++b) {
      if (accessor.GetBand({pixel}, b).front() == cube->GetDataFormat().fill_value) {
        std::cerr << "the pixel has no data in band " << b << '\n';
        return 1;
      }
    }
    const std::vector<double> spectrum = accessor.GetSpectrum(pixel);
    // After the start, the accessor's format describes what it hands out: the virtual bands.
    const auto& bands = accessor.GetDataFormat()->GetBands();
    std::cout << "wavelength,value\n";
    std::cout.precision(8);
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
      const auto& band = dynamic_cast<const kelto::datatypes::MetricBandInfo&>(*bands[i]);
      std::cout << band.wavelength_nm << ',' << spectrum[i] << '\n';
    }
  } catch (const std::exception& error) {
    std::cerr << "correct_cube: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

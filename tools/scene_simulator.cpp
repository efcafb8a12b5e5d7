#include "scene_simulator.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "calibration_simulator.h"
#include "pending_file.h"

namespace kelto::tools {

namespace {

double Sigmoid(double x) {
  return 1.0 / (1.0 + std::exp(-x));
}

double Gauss(double x, double centre, double sigma) {
  const double u = (x - centre) / sigma;
  return std::exp(-0.5 * u * u);
}

// The integral of f over the grid by the trapezoid rule.
template <typename F>
double Integral(const std::vector<double>& grid, F f) {
  double sum = 0.0;
  for (std::size_t i = 1; i < grid.size(); ++i) {
    sum += 0.5 * (f(i - 1) + f(i)) * (grid[i] - grid[i - 1]);
  }
  return sum;
}

const char* const kMaterials[] = {"vegetation", "soil", "water", "grey"};

}  // namespace

SceneSimulator::SceneSimulator(const hyperspectral::SensorCalibration& calibration)
    : grid_nm_(calibration.filter_info.calibration_info.sample_points_nm),
      optics_(CalibrationSimulator::OpticsTransmission(calibration)) {
  const auto& zones = calibration.filter_info.filter_zones;
  line_scan_ = !zones.empty() && std::all_of(zones.begin(), zones.end(), [](const auto& zone) {
    return zone.filter_layout() == hyperspectral::FilterZone::WEDGE;
  });
  for (const auto& zone : zones) {
    for (const auto& band : zone.bands) {
      if (band.response.size() != grid_nm_.size() || band.peaks.empty()) {
        throw std::invalid_argument("scene: every band needs a measured response and a peak");
      }
      bands_.push_back(&band);
      pattern_positions_.push_back(band.pattern_position_index);
    }
  }
  if (zones.size() == 1 && zones.front().filter_layout() == hyperspectral::FilterZone::MOSAIC) {
    pattern_width_ = zones.front().pattern_width;
    pattern_height_ = zones.front().pattern_height;
  }
  const int half = (kSize - 2 * kBorder) / 2;
  patches_ = {{"vegetation", kBorder, kBorder, half, half},
              {"soil", kBorder + half, kBorder, half, half},
              {"water", kBorder, kBorder + half, half, half},
              {"grey", kBorder + half, kBorder + half, half, half}};
  // The brightest band of the brightest material lands near 40000 of the 65535 counts.
  double brightest = 0.0;
  for (const char* material : kMaterials) {
    const std::vector<double> values = BandValues(material);
    brightest = std::max(brightest, *std::max_element(values.begin(), values.end()));
  }
  scale_ = std::floor(40000.0 / brightest);
}

double SceneSimulator::Reflectance(const std::string& material, double wavelength_nm) {
  const double w = wavelength_nm;
  if (material == "vegetation") {
    // Chlorophyll: a green peak between blue and red absorption, then the red edge near 715 nm.
    return 0.04 + 0.08 * Gauss(w, 550.0, 30.0) + 0.46 * Sigmoid((w - 715.0) / 12.0);
  }
  if (material == "soil") {
    return 0.10 + 0.25 * (w - 400.0) / 600.0;
  }
  if (material == "water") {
    return 0.005 + 0.075 * std::exp(-(w - 400.0) / 110.0);
  }
  if (material == "grey") {
    return 0.30;
  }
  throw std::invalid_argument("scene: unknown material \"" + material + "\"");
}

std::vector<double> SceneSimulator::BandValues(const std::string& material) const {
  std::vector<double> values;
  for (const auto* band : bands_) {
    values.push_back(scale_ * Integral(grid_nm_, [&](std::size_t i) {
                       return band->response[i] * optics_[i] * Reflectance(material, grid_nm_[i]);
                     }));
  }
  return values;
}

std::vector<double> SceneSimulator::ResponseAreas() const {
  std::vector<double> areas;
  for (const auto* band : bands_) {
    areas.push_back(
        Integral(grid_nm_, [&](std::size_t i) { return band->response[i] * optics_[i]; }));
  }
  return areas;
}

std::vector<double> SceneSimulator::WhiteResponse() const {
  std::vector<double> white = ResponseAreas();
  for (double& value : white) {
    value *= scale_;
  }
  return white;
}

void SceneSimulator::WriteEnvi(const std::string& stem) const {
  std::vector<std::vector<unsigned short>> counts;
  for (const Patch& patch : patches_) {
    std::vector<unsigned short> quantised;
    for (double value : BandValues(patch.name)) {
      quantised.push_back(static_cast<unsigned short>(std::lround(value)));
    }
    counts.push_back(quantised);
  }

  // The value of a band at a pixel: the patch's count, or the fill value outside the patches.
  const auto sample = [&](std::size_t b, int x, int y) {
    for (std::size_t p = 0; p < patches_.size(); ++p) {
      const Patch& patch = patches_[p];
      if (x >= patch.x && x < patch.x + patch.width && y >= patch.y && y < patch.y + patch.height) {
        return counts[p][b];
      }
    }
    return kFillValue;
  };
  PendingFile raw_file(stem + ".raw");
  std::ofstream raw(raw_file.Path(), std::ios::binary | std::ios::trunc);
  const auto write_line = [&](std::size_t b, int y) {
    for (int x = 0; x < kSize; ++x) {
      const unsigned short value = sample(b, x, y);
      // Little endian, as "byte order = 0" says, whatever the machine's order.
      const char bytes[2] = {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
      raw.write(bytes, 2);
    }
  };
  if (line_scan_) {
    // A wedge sees one line of the scene through all bands in each frame; frames follow one
    // another as the scene moves past.
    for (int y = 0; y < kSize; ++y) {
      for (std::size_t b = 0; b < bands_.size(); ++b) {
        write_line(b, y);
      }
    }
  } else {
    for (std::size_t b = 0; b < bands_.size(); ++b) {
      for (int y = 0; y < kSize; ++y) {
        write_line(b, y);
      }
    }
  }
  raw.close();

  std::ostringstream wavelengths;
  std::ostringstream widths;
  for (std::size_t b = 0; b < bands_.size(); ++b) {
    const auto& peak = bands_[b]->peaks.front();
    wavelengths << (b == 0 ? "" : ", ") << peak.wavelength_nm;
    widths << (b == 0 ? "" : ", ") << peak.fwhm_nm;
  }
  PendingFile header_file(stem + ".hdr");
  std::ofstream header(header_file.Path(), std::ios::trunc);
  header << "ENVI\n"
         << "description = {kelto-sim scene: vegetation, soil, water and grey patches}\n"
         << "samples = " << kSize << "\nlines = " << kSize << "\nbands = " << bands_.size()
         << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = 12\n"
         << "interleave = " << (line_scan_ ? "bil" : "bsq") << "\nbyte order = 0\n"
         << "data ignore value = " << kFillValue << "\n"
         << "reflectance scale factor = " << std::setprecision(17) << scale_ << "\n"
         << "wavelength units = Nanometers\n"
         << "wavelength = {" << wavelengths.str() << "}\n"
         << "fwhm = {" << widths.str() << "}\n";
  header.close();
  if (!raw || !header) {
    throw std::runtime_error("scene: cannot write " + stem + ".raw/.hdr");
  }
  // The data before its header: a header found always describes complete data.
  raw_file.Commit();
  header_file.Commit();
}

void SceneSimulator::WriteRawFrames(const std::string& stem) const {
  if (pattern_width_ == 0 || pattern_height_ == 0) {
    return;
  }
  // The white target reaches about 60000 counts in the band that sees most of it; the dark
  // offset differs a little from one pattern position to the next, as on a real chip.
  const std::vector<double> areas = ResponseAreas();
  const double gain = 60000.0 / *std::max_element(areas.begin(), areas.end());
  std::vector<std::size_t> band_at(pattern_width_ * pattern_height_, 0);
  for (std::size_t b = 0; b < bands_.size(); ++b) {
    band_at[pattern_positions_[b]] = b;
  }
  std::vector<std::vector<double>> signals;
  for (const Patch& patch : patches_) {
    signals.push_back(BandValues(patch.name));
  }
  const auto dark = [](unsigned long position) { return 60.0 + static_cast<double>(position); };
  const unsigned long width = kSize * pattern_width_;
  const unsigned long height = kSize * pattern_height_;
  const auto write = [&](const std::string& name, auto signal) {
    PendingFile file(stem + "-" + name + ".pgm");
    std::ofstream out(file.Path(), std::ios::binary | std::ios::trunc);
    out << "P5\n" << width << ' ' << height << "\n65535\n";
    for (unsigned long y = 0; y < height; ++y) {
      for (unsigned long x = 0; x < width; ++x) {
        const unsigned long position = (y % pattern_height_) * pattern_width_ + x % pattern_width_;
        const double value =
            dark(position) + signal(band_at[position], static_cast<int>(x / pattern_width_),
                                    static_cast<int>(y / pattern_height_));
        const auto count = static_cast<unsigned short>(std::lround(value));
        // 16-bit PGM samples are big endian.
        const char bytes[2] = {static_cast<char>(count >> 8), static_cast<char>(count & 0xFF)};
        out.write(bytes, 2);
      }
    }
    out.close();
    if (!out) {
      throw std::runtime_error("scene: cannot write " + file.Path());
    }
    file.Commit();
  };
  write("raw", [&](std::size_t b, int x, int y) {
    for (std::size_t p = 0; p < patches_.size(); ++p) {
      const Patch& patch = patches_[p];
      if (x >= patch.x && x < patch.x + patch.width && y >= patch.y && y < patch.y + patch.height) {
        return gain * signals[p][b] / scale_;
      }
    }
    return 0.0;
  });
  write("dark", [](std::size_t, int, int) { return 0.0; });
  write("white", [&](std::size_t b, int, int) { return gain * areas[b]; });
}

}  // namespace kelto::tools

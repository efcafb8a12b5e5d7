#include <kelto/hyperspectral/access/raw_frame_assembler.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/datatypes/band_storage.h>

#include "sample_type.h"

namespace kelto::hyperspectral {

namespace {

std::string Describe(const FilterZone& zone) {
  return "zone " + std::to_string(zone.index) + " (" + FilterZone::ToString(zone.filter_layout()) +
         ")";
}

unsigned long Whole(double value) {
  return value > 0.0 ? static_cast<unsigned long>(value) : 0ul;
}

// How many cube pixels fit from first to end (exclusive) at that step.
unsigned long Fit(unsigned long first, unsigned long end, unsigned long step) {
  return end > first ? (end - first + step - 1) / step : 0;
}

}  // namespace

RawFrameAssembler::RawFrameAssembler(const FilterInfo& filter) {
  std::vector<const FilterZone*> zones;
  for (const FilterZone& zone : filter.filter_zones) {
    if (zone.filter_layout() != FilterZone::NO_FILTER && !zone.bands.empty()) {
      zones.push_back(&zone);
    }
  }
  if (zones.empty()) {
    throw std::invalid_argument("the calibration has no filter zone with bands");
  }
  const FilterZone& front = *zones.front();
  layout_ = front.filter_layout();
  area_x_ = Whole(front.filter_area.offset_x);
  area_y_ = Whole(front.filter_area.offset_y);
  area_width_ = Whole(front.filter_area.width);
  area_height_ = Whole(front.filter_area.height);
  for (const FilterZone* zone : zones) {
    const bool shared = zone->filter_layout() == FilterZone::WEDGE &&
                        layout_ == FilterZone::WEDGE &&
                        Whole(zone->filter_area.offset_x) == area_x_ &&
                        Whole(zone->filter_area.width) == area_width_;
    if (zone != &front && !shared) {
      throw std::invalid_argument(Describe(front) + " and " + Describe(*zone) +
                                  " do not share one spatial grid: a cube needs one mosaic or "
                                  "tiled zone, or wedge zones over the same columns");
    }
  }

  for (const FilterZone* zone : zones) {
    const unsigned long x = Whole(zone->filter_area.offset_x);
    const unsigned long y = Whole(zone->filter_area.offset_y);
    const unsigned long width = Whole(zone->filter_area.width);
    const unsigned long height = Whole(zone->filter_area.height);
    const unsigned long columns = zone->pattern_width;
    const unsigned long rows = zone->pattern_height;
    if (columns == 0 || rows == 0 || columns > width || rows > height) {
      throw std::invalid_argument(Describe(*zone) + " has a pattern of " + std::to_string(columns) +
                                  " x " + std::to_string(rows) + " on an area of " +
                                  std::to_string(width) + " x " + std::to_string(height) +
                                  " pixels");
    }
    for (const FilterZone::BandInfo& band : zone->bands) {
      const unsigned long position = band.pattern_position_index;
      if (position >= columns * rows) {
        throw std::invalid_argument(Describe(*zone) + ": pattern position " +
                                    std::to_string(position) + " lies outside its pattern");
      }
      Source source;
      switch (zone->filter_layout()) {
        case FilterZone::MOSAIC:
          source.x = x + position % columns;
          source.y = y + position / columns;
          step_x_ = columns;
          step_y_ = rows;
          span_x_ = width;
          span_y_ = height;
          break;
        case FilterZone::TILED:
          span_x_ = width / columns;
          span_y_ = height / rows;
          source.x = x + position % columns * span_x_;
          source.y = y + position / columns * span_y_;
          break;
        default:  // a wedge: a stripe of rows per band
          source.x = x;
          source.rows = height / rows;
          source.y = y + position / columns * source.rows;
          span_x_ = width;
          break;
      }
      sources_.push_back(source);
      const auto first = std::find_if(band.peaks.begin(), band.peaks.end(),
                                      [](const auto& peak) { return peak.order == 1; });
      const auto* peak = first != band.peaks.end() ? &*first
                         : band.peaks.empty()      ? nullptr
                                                   : &band.peaks.front();
      wavelengths_.push_back(peak == nullptr ? 0.0 : peak->wavelength_nm);
      fwhms_.push_back(peak == nullptr ? 0.0 : peak->fwhm_nm);
    }
  }
}

unsigned long RawFrameAssembler::GetCubeWidth(unsigned long frame_width, unsigned long) const {
  unsigned long width = std::numeric_limits<unsigned long>::max();
  for (const Source& source : sources_) {
    const unsigned long end = std::min(
        frame_width, layout_ == FilterZone::TILED ? source.x + span_x_ : area_x_ + span_x_);
    width = std::min(width, Fit(source.x, end, step_x_));
  }
  return width;
}

unsigned long RawFrameAssembler::GetCubeLines(unsigned long, unsigned long frame_height) const {
  unsigned long lines = std::numeric_limits<unsigned long>::max();
  for (const Source& source : sources_) {
    if (layout_ == FilterZone::WEDGE) {
      lines = std::min(lines, source.y + source.rows <= frame_height ? 1ul : 0ul);
      continue;
    }
    const unsigned long end = std::min(
        frame_height, layout_ == FilterZone::TILED ? source.y + span_y_ : area_y_ + span_y_);
    lines = std::min(lines, Fit(source.y, end, step_y_));
  }
  return lines;
}

void RawFrameAssembler::Assemble(const void* frame, std::uint32_t sample_type,
                                 unsigned long frame_width, unsigned long frame_height,
                                 float* lines) const {
  if (datatypes::BandImageDataFormat::SampleSize(sample_type) == 0) {
    throw std::invalid_argument("unknown sample type " + std::to_string(sample_type));
  }
  const unsigned long width = GetCubeWidth(frame_width, frame_height);
  const unsigned long height = GetCubeLines(frame_width, frame_height);
  if (width == 0 || height == 0) {
    throw std::invalid_argument("a frame of " + std::to_string(frame_width) + " x " +
                                std::to_string(frame_height) +
                                " pixels holds no whole cube pixel of the calibration's zones");
  }
  const unsigned long bands = GetBandCount();
  const auto* samples = static_cast<const unsigned char*>(frame);
  WithSampleType(sample_type, [&](auto zero) {
    using T = decltype(zero);
    const auto at = [&](unsigned long x, unsigned long y) {
      return static_cast<double>(datatypes::LoadSample<T>(samples, y * frame_width + x));
    };
    for (unsigned long y = 0; y < height; ++y) {
      for (unsigned long x = 0; x < width; ++x) {
        float* pixel = lines + (y * width + x) * bands;
        for (unsigned long b = 0; b < bands; ++b) {
          const Source& source = sources_[b];
          const unsigned long sensor_x = source.x + x * step_x_;
          const unsigned long sensor_y = source.y + y * step_y_;
          double sum = 0.0;
          for (unsigned long row = 0; row < source.rows; ++row) {
            sum += at(sensor_x, sensor_y + row);
          }
          pixel[b] = static_cast<float>(sum / static_cast<double>(source.rows));
        }
      }
    }
  });
}

}  // namespace kelto::hyperspectral

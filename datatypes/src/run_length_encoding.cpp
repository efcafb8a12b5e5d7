#include <kelto/datatypes/run_length_encoding.h>

#include <limits>
#include <stdexcept>
#include <string>

namespace kelto::datatypes {

RunLengthEncoding::~RunLengthEncoding() = default;

void RunLengthEncoding::AddRun(int x, int y, int length) {
  if (length < 1) {
    throw std::invalid_argument("run length " + std::to_string(length) + " is not positive");
  }
  if (x > std::numeric_limits<int>::max() - (length - 1)) {
    throw std::invalid_argument("run of " + std::to_string(length) + " pixels from x " +
                                std::to_string(x) + " passes the largest int");
  }
  runs_.push_back({x, y, length});
}

unsigned long RunLengthEncoding::GetNrOfPixels() const {
  unsigned long count = 0;
  for (Run const& run : runs_) {
    count += static_cast<unsigned long>(run.length);
  }
  return count;
}

std::vector<std::pair<int, int>> RunLengthEncodingOperations::Rasterize(
    RunLengthEncoding const& encoding) {
  std::vector<std::pair<int, int>> pixels;
  pixels.reserve(encoding.GetNrOfPixels());
  for (RunLengthEncoding::Run const& run : encoding.GetRuns()) {
    for (int i = 0; i < run.length; ++i) {
      pixels.emplace_back(run.x + i, run.y);
    }
  }
  return pixels;
}

}  // namespace kelto::datatypes

// A set of pixels as horizontal runs, the form in which shapes select pixels of an image. Runs are
// kept in the order they were added and are neither merged nor sorted, so a pixel added twice is
// listed twice.
// Thread-safety: no lock; read by many threads while none adds runs.
#pragma once

#include <utility>
#include <vector>

#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class KELTO_DATATYPES_EXPORT RunLengthEncoding {
 public:
  // The pixels x, x + 1, ..., x + length - 1 of line y.
  struct Run {
    int x = 0;
    int y = 0;
    int length = 0;

    bool operator==(Run const& other) const {
      return x == other.x && y == other.y && length == other.length;
    }
  };

  RunLengthEncoding() = default;
  virtual ~RunLengthEncoding();

  // Throws std::invalid_argument for a length below 1 or a run whose last pixel would lie beyond
  // the largest int.
  void AddRun(int x, int y, int length);
  void Clear() { runs_.clear(); }

  std::vector<Run> const& GetRuns() const { return runs_; }
  // Summed over the runs, a pixel listed twice counting twice.
  unsigned long GetNrOfPixels() const;
  bool IsEmpty() const { return runs_.empty(); }

  bool operator==(RunLengthEncoding const& other) const { return runs_ == other.runs_; }
  bool operator!=(RunLengthEncoding const& other) const { return !(*this == other); }

 private:
  std::vector<Run> runs_;
};

class KELTO_DATATYPES_EXPORT RunLengthEncodingOperations {
 public:
  // Every pixel of the set as (x, y), run after run and left to right within a run.
  static std::vector<std::pair<int, int>> Rasterize(RunLengthEncoding const& encoding);
};

}  // namespace kelto::datatypes

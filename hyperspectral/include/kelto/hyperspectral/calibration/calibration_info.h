// The wavelength grid on which all measured filter responses of a calibration are sampled. Held
// by FilterInfo; reads the six historic forms of "calibration_info" (a range and a step, later
// explicit sample points) and writes the current one.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <vector>

#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT CalibrationInfo : public common::XMLSerializableInterface {
 public:
  // A grid computed from a range and a step never holds more points than this; a file asking for
  // more has no usable grid.
  static constexpr unsigned long kMaxSamplePoints = 1000000;

  CalibrationInfo() = default;

  // Reads versions 0 to 4 with their own readers and anything newer as version 5. The sanity
  // checks are not run here; the owning filter block runs them.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // Warnings: an empty grid (and nothing more is checked), or a grid that runs backwards.
  void RunSanityChecks(ParsingResult& result) const;

  std::vector<double> sample_points_nm;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v4(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v5(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v5(_xmlNode*& node) const;

  // The grid start, start + step, ... with round((end - start) / step) + 1 points, each computed
  // by multiplication. Returns false and leaves the grid empty when the range gives no count of
  // points (end far below start, a step that is not a number) or more than kMaxSamplePoints.
  bool _CalculateSamplePoints(double start, double end, double step);

 private:
  // Versions 0 to 2: a range and a step under the given element names.
  void _ReadRange(ParsingResult& result, _xmlNode* const& node, const char* start_name,
                  const char* end_name, const char* step_name);
  // Versions 2 and 3: acquisition settings that are checked for presence and dropped.
  void _ReadDroppedSettings(ParsingResult& result, _xmlNode* const& node);
};

// Same size and exactly equal points; a NaN on either side makes the grids unequal.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(CalibrationInfo const& left,
                                           CalibrationInfo const& right);

}  // namespace kelto::hyperspectral

// The filter block of a calibration: the wavelength grid of all measured responses and the filter
// zones of the chip. It numbers the bands of all zones in one sequence (the band number used by
// every matrix of the correction) and names the filter family. Owned by SensorCalibration.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <deque>
#include <string>

#include <kelto/common/region_of_interest.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/calibration_info.h>
#include <kelto/hyperspectral/calibration/filter_zone.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT FilterInfo : public common::XMLSerializableInterface {
 public:
  FilterInfo() = default;

  // Version 1 and newer, 0, and the unversioned form (the grid's range alone, whose zone the
  // calibration reads); each zone is read by the subclass of its "layout" and stored as a plain
  // FilterZone that keeps its layout. Checks run afterwards. An unversioned range that gives no
  // grid of at most CalibrationInfo::kMaxSamplePoints points is (Error, SanityCheck, sentence)
  // and leaves the grid empty.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;
  // The grid's checks, then per zone its index, its own checks and its place after every earlier
  // zone (below or to the right of each).
  void RunSanityChecks(ParsingResult& result) const;

  unsigned long GetTotalNrBands() const;
  // The band of that number over all zones in stored order; std::runtime_error
  // "invalid band index" past the last band.
  FilterZone::BandInfo& GetBand(unsigned long const& index);
  FilterZone::BandInfo const& GetBand(unsigned long const& index) const;
  // The whole-pixel rectangle around all zones; a default rectangle without zones.
  common::RegionOfInterest GetFilterZonesBoundingBox() const;
  // The filter family: "MZT4x4-470_620", "QL100-600_1000", "TZT32-600_1000", "QL150-470_900",
  // "DUAL_MZT-470_875" or "unknown".
  std::string GetTypeName() const;

  CalibrationInfo calibration_info;
  std::deque<FilterZone> filter_zones;

 protected:
  virtual void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v1(_xmlNode*& node) const;

 private:
  // One "filter_zone" item, read by the subclass of its layout and stored.
  void _ReadZone(ParsingResult& result, _xmlNode* const& item);
};

KELTO_HYPERSPECTRAL_EXPORT bool operator==(FilterInfo const& left, FilterInfo const& right);

}  // namespace kelto::hyperspectral

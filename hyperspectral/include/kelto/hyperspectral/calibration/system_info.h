// What lies around the sensor in a calibration: the optical components of the system and the
// block of correction matrices. Part of SensorCalibration.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <deque>

#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/calibration/spectral_correction_info.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SystemInfo : public common::XMLSerializableInterface {
 public:
  SystemInfo() = default;

  // Every version from 0 upward has the one form; any negative version, -1 included, is refused.
  // The sanity checks are left to the caller.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // The checks of each component in order, then those of the correction block.
  void RunSanityChecks(ParsingResult& result) const;

  std::deque<OpticalComponent> optical_components;
  SpectralCorrectionInfo spectral_correction_info;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v0(_xmlNode*& node) const;
};

// Components equal in order, then the correction blocks equal.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(SystemInfo const& left, SystemInfo const& right);

}  // namespace kelto::hyperspectral

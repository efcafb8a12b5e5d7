// The band-rejecting filter that old calibrations (root version 0) mount in front of the sensor:
// a curve on a regular wavelength grid, tagged with one of the known filter names. Calibrations
// now list such a filter among the optical components of their system, which Convert gives.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <kelto/common/spectrum.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT RejectionFilter : public common::Spectrum,
                                                   public common::XMLSerializableInterface {
 public:
  RejectionFilter() = default;

  // The empty curve on a zero grid, and no filter.
  void Clear() override;

  // Version 0 only: a newer version is refused like a negative one. A wavelength range whose
  // one-nanometre grid no real filter has (beyond CalibrationInfo::kMaxSamplePoints points, or
  // ending two nanometres or more below its start) is (Error, SanityCheck, sentence), and the
  // filter is left cleared.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // The filter as a band-pass component: its curve on a one-nanometre grid over its range, tagged
  // with its name, transmitting where the curve reaches one half. Throws std::invalid_argument
  // for a range that the reader would have refused.
  OpticalComponent Convert() const;

  RejectionFilters::eRejectionFilters type = RejectionFilters::RF_NONE;

 protected:
  virtual void _WriteXML_v0(_xmlNode*& node) const;

 private:
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
};

}  // namespace kelto::hyperspectral

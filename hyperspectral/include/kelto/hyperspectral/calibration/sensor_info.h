// The sensor chip of a calibration: type, pixel grid, pitch, bit depth and gains. Which gain
// fields exist depends on the chip family. Part of SensorCalibration; read from every historic
// form of the "sensor_info" element and written in the current one.
// Thread-safety: a record without a lock, used by one thread at a time; the gain mode texts are
// read-only after load.
#pragma once

#include <cstdint>
#include <string>

#include <kelto/common/sensor_types.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SensorInfo : public common::XMLSerializableInterface {
 public:
  // The gain modes of a TEM480 chip, as stored in "gain_mode".
  class KELTO_HYPERSPECTRAL_EXPORT TEM480_GainModes {
   public:
    enum eTEM480_GainModes : std::int32_t {
      GM_UNKNOWN = -1,
      GM_LOW = 0,
      GM_MEDIUM = 1,
      GM_HIGH = 2
    };

    // A value that is not a mode gives "unknown".
    static std::string ToString(eTEM480_GainModes const& mode);
    // Exact, case-sensitive; a text that is not a mode gives GM_UNKNOWN.
    static eTEM480_GainModes FromString(std::string const& text);
  };

  SensorInfo() = default;

  // Reads any version: 2, 1, 0 and the unversioned form; a newer version is refused. A wrong tag
  // is reported and read all the same. The sanity checks always run afterwards.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // Pushes one (Error, SanityCheck, condition) event per failed condition; never stops early.
  void RunSanityChecks(ParsingResult& result) const;
  std::string GetTypeName() const;

  common::SensorTypes::eType sensor_type = common::SensorTypes::Unknown;
  int width_px = 0;
  int height_px = 0;
  double pixel_pitch_um = 0.0;
  int bit_depth = 0;
  double analog_gain = 0.0;      // VKR9 only
  double digital_gain = 0.0;     // VKR9 only
  int full_well_capacity_e = 0;  // VKR9 only
  double overall_gain = 0.0;     // digital numbers per electron
  std::string gain_mode;         // TEM480 only: a text of TEM480_GainModes

 protected:
  virtual void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v2(_xmlNode*& node) const;

 private:
  // The two oldest forms differ only in the name of the pitch element.
  void _ReadLegacy(ParsingResult& result, _xmlNode* const& node, std::string const& pitch_name);
};

KELTO_HYPERSPECTRAL_EXPORT bool operator==(SensorInfo const& left, SensorInfo const& right);

}  // namespace kelto::hyperspectral

// The root record of a calibration file: one physical sensor with its identity, history, chip,
// filters, optics and correction matrices. Everything beneath it is owned by value, so copies
// are deep. Read from "sensor_calibration" files of any version, written in version 3.
// Thread-safety: none of its own; a calibration belongs to one thread at a time.
//
// Reading one, and saying what is wrong with the file (the tests compile and run this example):
// ```cpp
// std::string TypeOfCalibration(const common::filesystem::Path& file) {
//   using Result = SensorCalibration::ParsingResult;
//   SensorCalibration calibration;
//   Result result;  // Result(false, true) would throw on a file in error instead
//   calibration.ReadFile(result, file);
//   for (const Result::Event& event : result.events()) {
//     if (event.state != Result::Ok) std::cerr << event.ToString() << '\n';
//   }
//   return result.state() == Result::Error ? "" : calibration.GetTypeName();
// }
// ```
#pragma once

#include <string>

#include <kelto/common/time.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/filter_info.h>
#include <kelto/hyperspectral/calibration/sensor_info.h>
#include <kelto/hyperspectral/calibration/system_info.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SensorCalibration : public common::XMLSerializableInterface {
 public:
  // Identity "0.0.0.0", both times now, software "kelto" of this library's version.
  SensorCalibration();

  // Version 3, anything newer as 3, and the older forms; the tag of the root is not checked.
  // The sensor and filter blocks check themselves while being read, and the whole calibration is
  // checked again at the end, so a defect in those blocks is reported twice. A file without
  // version always reports "!filter_zones.empty ()": its filter block is checked before its one
  // zone is added. A few texts of the oldest zones and optical components are read by std::stof
  // and std::stoi, whose std::invalid_argument or std::out_of_range leaves this function.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  // Times are written to the second ("%FT%TZ"): a calibration made now reads back with the
  // fraction of its seconds gone.
  void WriteXML(_xmlNode*& node) const override;
  // The sensor and filter blocks' checks, then each zone against the sensor and each band's
  // response against the grid. The system block is not checked on this path.
  void RunSanityChecks(ParsingResult& result) const;

  // "<sensor type>-<filter family>", as "VKR9-MZT4x4-470_620": the key of the parameter
  // documents and the start of a calibration's file name.
  std::string GetTypeName() const;

  std::string sensor_id = "0.0.0.0";
  common::time::TimePoint created;
  common::time::TimePoint modified;
  std::string software = "kelto";
  std::string software_version;
  SensorInfo sensor_info;
  FilterInfo filter_info;
  SystemInfo system_info;

 protected:
  virtual void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v3(_xmlNode*& node) const;

 private:
  // A time attribute, of which the first `length` characters are read.
  void _ReadTime(ParsingResult& result, _xmlNode* const& node, const char* name,
                 common::time::TimePoint& time, std::size_t length = std::string::npos);
  // A block of the calibration in the element `name` of the node, (Error, MissingElement, name)
  // without it.
  void _ReadBlock(ParsingResult& result, _xmlNode* const& node,
                  common::XMLSerializableInterface& block, const char* name);
  void _ReadStamped(ParsingResult& result, _xmlNode* const& node, bool gains_in_grid);
  void _ReadGridGains(ParsingResult& result, _xmlNode* const& node);
};

// Identity, times, software, then the three blocks; the first difference decides.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(SensorCalibration const& left,
                                           SensorCalibration const& right);

}  // namespace kelto::hyperspectral

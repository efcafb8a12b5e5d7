// One element in the light path of a camera (a filter, a polariser, a light source): its identity
// and its measured transmission curve. Listed by SystemInfo for the optics of the system and by
// CorrectionMatrix for the optics that its computation assumed.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <kelto/common/time.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT OpticalComponent : public common::XMLSerializableInterface {
 public:
  OpticalComponent() = default;

  // Reads versions 0, 1, 2 and anything newer as 2. A version 0 or 1 date whose parts aren't
  // numbers ends the read with std::stoi's exception (see _ParseDate). The sanity checks are left
  // to the caller.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // Warnings only: a component with a doubtful curve stays usable.
  void RunSanityChecks(ParsingResult& result) const;

  // A one-line label such as "longpass filter: 650.0nm (Acme)". Throws std::invalid_argument
  // when the component lacks what its type's label needs: a source's tag of at least seven
  // characters (a prefix, then the lamp's name), or sample points for the types labelled by
  // their range.
  std::string GetFriendlyName() const;

  OpticalComponents::eType type = OpticalComponents::OC_NONE;
  std::string manufacturer;
  std::string part_id;
  std::string tag;
  std::string description;
  std::string measurement;
  common::time::Date measured{common::time::Date::duration(-25567)};  // 1900-01-01
  std::vector<double> sample_points_nm;
  std::vector<double> response;  // transmission at each sample point, as a fraction
  double transmission_range_start_nm = 0.0;
  double transmission_range_end_nm = 0.0;

 protected:
  virtual void _WriteXML_v2(_xmlNode*& node) const;

  // The "created" date of versions 0 and 1: any "year-month-day" text, the three parts read by
  // std::stoi (which throws std::invalid_argument or std::out_of_range, "stoi", for a part that
  // isn't a number or doesn't fit), the year narrowed to 16 bits and month and day to 8, without
  // a range check. A text of another form, or longer than any date, is 1900-01-01.
  static common::time::Date _ParseDate(const std::string& text);

 private:
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
  void _ReadIdentity(ParsingResult& result, _xmlNode* const& node);
  void _ReadCreated(ParsingResult& result, _xmlNode* const& node);

  // An item of the component: (Error, MissingElement, name) when it is absent.
  template <typename T, typename Default>
  void _ReadItem(ParsingResult& result, _xmlNode* const& node, T& field, const char* name,
                 Default const& default_value);
};

// Every field exactly; a NaN on either side makes the components unequal.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(OpticalComponent const& left,
                                           OpticalComponent const& right);

}  // namespace kelto::hyperspectral

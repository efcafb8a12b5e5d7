// The enumerations that calibration records, optics records and parameter documents store as
// text. The text forms are part of the file formats: they are compared exactly and must never
// change. Each class only scopes its enum type and the two translations.
// Thread-safety: the translations are read-only after load; any thread may call them.
#pragma once

#include <cstdint>
#include <string>

#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT CorrectionAlgorithms {
 public:
  enum eCorrectionAlgorithm : std::int32_t {
    CA_UNKNOWN = -1,
    CA_TACKTILE_0 = 0,
    CA_PITCHFORK_0 = 1,
    CA_M0 = 2,
    CA_M1 = 3,
  };

  CorrectionAlgorithms() = delete;

  // Throws std::invalid_argument "Value does not exist." for a value outside the enumeration.
  static std::string ToString(const eCorrectionAlgorithm& value);
  // Unknown text gives CA_UNKNOWN.
  static eCorrectionAlgorithm FromString(const std::string& text);
};

class KELTO_HYPERSPECTRAL_EXPORT CorrectionMatrixTypes {
 public:
  enum eCorrectionMatrixType : std::int32_t {
    CT_UNKNOWN = -1,
    CT_REFLECTANCE = 0,
    CT_IRRADIANCE = 1,
  };

  CorrectionMatrixTypes() = delete;

  // Throws std::invalid_argument "Value does not exist." for a value outside the enumeration.
  static std::string ToString(const eCorrectionMatrixType& value);
  // Also reads the older names "hyperspectral" and "radiometric", which ToString never writes,
  // so a file read with them is written back with the current names. Unknown text gives
  // CT_UNKNOWN.
  static eCorrectionMatrixType FromString(const std::string& text);
};

class KELTO_HYPERSPECTRAL_EXPORT Distributions {
 public:
  enum eDistribution : std::int32_t {
    DB_UNKNOWN = -1,
    DB_NONE = 0,
    DB_GAUSSIAN = 1,
    DB_LORENTZIAN = 2,
    DB_FABRY_PEROT = 3,
  };

  Distributions() = delete;

  // Throws std::invalid_argument "Value does not exist." for a value outside the enumeration.
  static std::string ToString(const eDistribution& value);
  // Also reads the older name "Lorentz", written back as "Lorentzian". Unknown text gives
  // DB_UNKNOWN.
  static eDistribution FromString(const std::string& text);
};

class KELTO_HYPERSPECTRAL_EXPORT OpticalComponents {
 public:
  enum eType : std::int32_t {
    OC_UNKNOWN = -1,
    OC_NONE = 0,
    OC_SHORTPASS_FILTER = 1,
    OC_LONGPASS_FILTER = 2,
    OC_BANDPASS_FILTER = 3,
    OC_NOTCH_FILTER = 4,
    OC_LINEAR_POLARIZER = 5,
    OC_CIRCULAR_POLARIZER = 6,
    OC_SOURCE = 7,
  };

  OpticalComponents() = delete;

  // Throws std::invalid_argument "Value does not exist." for a value outside the enumeration.
  static std::string ToString(const eType& value);
  // Unknown text gives OC_UNKNOWN.
  static eType FromString(const std::string& text);
};

// There is no unknown value: a rejection filter the library does not know is a custom one.
// The numbers are stored in files, so they stay as assigned even where they do not follow the
// order of the list (11 stands before 10).
class KELTO_HYPERSPECTRAL_EXPORT RejectionFilters {
 public:
  enum eRejectionFilters : std::int32_t {
    RF_NONE = 0,
    RF_CUSTOM = 1,
    RF_BANDPASS_450EO = 2,
    RF_BANDPASS_460XI_650XI = 3,
    RF_BANDPASS_600EO_875EO = 4,
    RF_BANDPASS_600EO_975EO = 5,
    RF_BANDPASS_675EO_975EO = 6,
    RF_BANDPASS_600XI_975XI = 7,
    RF_BANDPASS_600XI_875EO = 8,
    RF_BANDPASS_600XI_875LC = 9,
    RF_BANDPASS_600EO_875LC = 11,
    RF_BANDPASS_675EO_975XI = 10,
  };

  RejectionFilters() = delete;

  // Throws std::invalid_argument "Value does not exist." for a value outside the enumeration,
  // -1 included.
  static std::string ToString(const eRejectionFilters& value);
  // Unknown text gives RF_CUSTOM.
  static eRejectionFilters FromString(const std::string& text);
};

// The one enumeration whose text is wide.
class KELTO_HYPERSPECTRAL_EXPORT InversionOptimizationAlgorithms {
 public:
  enum eInversionOptimizationAlgorithms : std::int32_t {
    IOA_UNKNOWN = -1,
    IOA_VARDELL = 0,
    IOA_TIKHONOV = 1,
  };

  InversionOptimizationAlgorithms() = delete;

  // Throws std::invalid_argument "Value does not exist." for a value outside the enumeration.
  static std::wstring ToString(const eInversionOptimizationAlgorithms& value);
  // Unknown text gives IOA_UNKNOWN.
  static eInversionOptimizationAlgorithms FromString(const std::wstring& text);
};

}  // namespace kelto::hyperspectral

#include <kelto/hyperspectral/calibration/correction_matrix.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <kelto/common/read_by_version.h>
#include <kelto/common/vector.h>

namespace kelto::hyperspectral {

using ParsingResult = CorrectionMatrix::ParsingResult;
using Event = ParsingResult::Event;
using VirtualBand = CorrectionMatrix::VirtualBand;

namespace {

const std::string kDefaultCreated = "1900-01-01T00:00:00Z";

// The regex engine recurses once per character, so a long text could exhaust the stack; no text
// this long holds two numbers worth reading.
constexpr std::size_t kMaxVersionTextLength = 64;

// "not-a-date-time" is how a time that was never set is written: the zero time point.
bool ParseTime(const std::string& text, common::time::TimePoint& time) {
  if (text == "not-a-date-time") {
    time = common::time::TimePoint();
    return true;
  }
  try {
    time = common::time::UniversalTimeFromString(text);
    return true;
  } catch (const std::invalid_argument&) {
    return false;
  }
}

// The point between the numbers matches any character ("1-2" is major 1, minor 2, and "123" is 1
// and 3): files written under that rule stay readable as they were.
bool ParseAlgorithmVersion(const std::string& text,
                           std::pair<unsigned long, unsigned long>& version) {
  static const std::regex pattern("(\\d+).(\\d+)", std::regex::ECMAScript);
  std::smatch groups;
  if (text.size() > kMaxVersionTextLength || !std::regex_match(text, groups, pattern)) {
    return false;
  }
  std::istringstream major(groups[1].str());
  std::istringstream minor(groups[2].str());
  // Fails only for a number beyond the range of unsigned long.
  return static_cast<bool>(major >> version.first) && static_cast<bool>(minor >> version.second);
}

}  // namespace

void VirtualBand::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(
      *this, result, node, tag, _GetVersion(node),
      {&VirtualBand::_ReadXML_v0, &VirtualBand::_ReadXML_v1, &VirtualBand::_ReadXML_v2},
      common::NewerVersion::kReadByNewest, common::Unversioned::kMissingVersionError);
}

void VirtualBand::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "virtual_band");
  _SetVersion(node, 3ul);
  _WriteXML_v3(node);
}

// The coefficients were a vector element of their own and the width was not stored: the matrix
// of that form gives all its bands one width.
void VirtualBand::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadValue(result, wavelength_nm, node, "wavelength_nm", 0.0);
  fwhm_nm = 0.0;
  _xmlNode* element = nullptr;
  if (!_GetElement(element, node, "custom_spectral_correction", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "custom_spectral_correction");
  }
  // Read even when absent: the vector then reports its own missing count and values, and the
  // band is left without coefficients.
  common::Vector custom;
  custom.ReadXML(result, element);
  coefficients = custom.Values();
}

void VirtualBand::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadValue(result, wavelength_nm, node, "wavelength_nm", 0.0);
  _ReadValue(result, fwhm_nm, node, "fwhm_nm", 0.0);
  _ReadValue(result, coefficients, node, "coefficients", 0.0);
}

// Versions 2 and 3 changed nothing in the band's own form.
void VirtualBand::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v1(result, node);
}

void VirtualBand::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v1(result, node);
}

void VirtualBand::_WriteXML_v3(_xmlNode*& node) const {
  _SetValue(node, "wavelength_nm", wavelength_nm);
  _SetValue(node, "fwhm_nm", fwhm_nm);
  _SetValue(node, "coefficients", coefficients, VSM_ATTRIBUTES, 6);
}

void VirtualBand::RunSanityChecks(ParsingResult& result) const {
  _Check(result, 0.0 <= wavelength_nm, "0.0 <= wavelength_nm");
  _Check(result, 0.0 <= fwhm_nm, "0.0 <= fwhm_nm");
}

bool operator==(VirtualBand const& left, VirtualBand const& right) {
  return left.wavelength_nm == right.wavelength_nm && left.fwhm_nm == right.fwhm_nm &&
         left.coefficients == right.coefficients;
}

void CorrectionMatrix::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&CorrectionMatrix::_ReadXML_v0, &CorrectionMatrix::_ReadXML_v1,
                         &CorrectionMatrix::_ReadXML_v2, &CorrectionMatrix::_ReadXML_v3,
                         &CorrectionMatrix::_ReadXML_v4, &CorrectionMatrix::_ReadXML_v5,
                         &CorrectionMatrix::_ReadXML_v6},
                        common::NewerVersion::kReadByNewest,
                        common::Unversioned::kMissingVersionError);
}

void CorrectionMatrix::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "correction_matrix");
  _SetVersion(node, 6ul);
  _WriteXML_v6(node);
}

// Versions 0 and 1 knew one matrix per calibration, always of the first algorithm, and one width
// for all its bands. Type and algorithm version were not stored and stay as they stood.
void CorrectionMatrix::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  virtual_bands.clear();
  created = common::time::TimePoint();
  name = "hyperspectral";
  algorithm = CorrectionAlgorithms::CA_TACKTILE_0;
  double fwhm_nm = 0.0;
  _ReadValue(result, fwhm_nm, node, "fwhm_virtual_filters_nm", 0.0);
  _xmlNode* list = nullptr;
  if (!_GetElement(list, node, "virtual_bands", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "virtual_bands");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, list, "band");
  for (_xmlNode* const item : items) {
    virtual_bands.emplace_back();
    virtual_bands.back().ReadXML(result, item);
    virtual_bands.back().fwhm_nm = fwhm_nm;
  }
}

void CorrectionMatrix::_ReadXML_v1(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v0(result, node);
}

// Named matrices with a time stamp as a value of its own.
void CorrectionMatrix::_ReadXML_v2(ParsingResult& result, _xmlNode* const& node) {
  std::string timestamp;
  _ReadValue(result, timestamp, node, "timestamp", std::string("not-a-date-time"),
             ParsingResult::Error, Event::MissingAttribute);
  if (!ParseTime(timestamp, created)) {
    result << Event(ParsingResult::Error, Event::MissingValue, "timestamp");
    created = common::time::TimePoint();
  }
  _ReadIdentityAndBands(result, node);
}

void CorrectionMatrix::_ReadXML_v3(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v2(result, node);
  _ReadOpticalComponents(result, node);
}

// A file of this version states the algorithm's version; the older ones stand for 0.0.
void CorrectionMatrix::_ReadXML_v4(ParsingResult& result, _xmlNode* const& node) {
  algorithm_version = {0, 0};
  _ReadXML_v3(result, node);
  _ReadAlgorithmVersion(result, node);
}

void CorrectionMatrix::_ReadXML_v5(ParsingResult& result, _xmlNode* const& node) {
  _ReadXML_v4(result, node);
  _ReadMinimumBandEnergy(result, node);
}

void CorrectionMatrix::_ReadXML_v6(ParsingResult& result, _xmlNode* const& node) {
  std::string created_text;
  if (!_GetAttribute(created_text, node, "created", kDefaultCreated)) {
    // The event keeps the name of the value that older files held instead.
    result << Event(ParsingResult::Error, Event::MissingAttribute, "timestamp");
  }
  if (!ParseTime(created_text, created)) {
    result << Event(ParsingResult::Error, Event::MissingValue, "created");
    created = common::time::UniversalTimeFromString(kDefaultCreated);
  }
  _ReadIdentityAndBands(result, node);
  _ReadOpticalComponents(result, node);
  _ReadAlgorithmVersion(result, node);
  _ReadMinimumBandEnergy(result, node);
}

void CorrectionMatrix::_ReadIdentityAndBands(ParsingResult& result, _xmlNode* const& node) {
  virtual_bands.clear();
  _ReadValue(result, name, node, "name", std::string());

  std::string algorithm_text;
  _ReadValue(result, algorithm_text, node, "algorithm", std::string());
  algorithm = CorrectionAlgorithms::FromString(algorithm_text);
  algorithm_version = {0, 0};

  // Optional and silent: a matrix without a known type is used as a reflectance matrix.
  std::string type_text;
  _GetValue(type_text, node, "type", std::string());
  type = CorrectionMatrixTypes::FromString(type_text);
  if (type == CorrectionMatrixTypes::CT_UNKNOWN) {
    type = CorrectionMatrixTypes::CT_REFLECTANCE;
  }

  _xmlNode* list = nullptr;
  if (!_GetElement(list, node, "virtual_bands", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "virtual_bands");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, list, "virtual_band");
  for (_xmlNode* const item : items) {
    virtual_bands.emplace_back();
    virtual_bands.back().ReadXML(result, item);
  }
}

void CorrectionMatrix::_ReadOpticalComponents(ParsingResult& result, _xmlNode* const& node) {
  optical_components.clear();
  _xmlNode* list = nullptr;
  if (!_GetElement(list, node, "optical_components", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "optical_components");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, list, "optical_component");
  for (_xmlNode* const item : items) {
    optical_components.emplace_back();
    optical_components.back().ReadXML(result, item);
  }
}

void CorrectionMatrix::_ReadAlgorithmVersion(ParsingResult& result, _xmlNode* const& node) {
  std::string version_text;
  _ReadValue(result, version_text, node, "algorithm_version", std::string());
  if (!ParseAlgorithmVersion(version_text, algorithm_version)) {
    result << Event(ParsingResult::Warning, Event::SanityCheck, "algorithm_version");
    algorithm_version = {0, 0};
  }
}

void CorrectionMatrix::_ReadMinimumBandEnergy(ParsingResult& result, _xmlNode* const& node) {
  _ReadValue(result, minimum_band_energy, node, "minimum_band_energy", 0.0);
}

void CorrectionMatrix::_WriteXML_v6(_xmlNode*& node) const {
  _SetAttribute(node, "created", common::time::ToString(created, false, "%FT%TZ"));
  _SetValue(node, "name", name);
  _SetValue(node, "algorithm", CorrectionAlgorithms::ToString(algorithm));
  _SetValue(
      node, "algorithm_version",
      std::to_string(algorithm_version.first) + "." + std::to_string(algorithm_version.second));
  _SetValue(node, "type", CorrectionMatrixTypes::ToString(type));
  _SetValue(node, "minimum_band_energy", minimum_band_energy);
  _xmlNode* list = nullptr;
  _PutChild(list, node, "optical_components");
  for (const OpticalComponent& component : optical_components) {
    _SetElement(list, "optical_component", component);
  }
  _PutChild(list, node, "virtual_bands");
  for (const VirtualBand& band : virtual_bands) {
    _SetElement(list, "virtual_band", band);
  }
}

void CorrectionMatrix::RunSanityChecks(ParsingResult& result) const {
  _Check(result, CorrectionAlgorithms::CA_UNKNOWN != algorithm,
         "CorrectionAlgorithms::CA_UNKNOWN != algorithm");
  for (const VirtualBand& band : virtual_bands) {
    band.RunSanityChecks(result);
  }
}

void CorrectionMatrix::ToMatrix(common::Matrix& matrix, std::vector<double>& wavelengths) const {
  const std::size_t rows = virtual_bands.size();
  const std::size_t columns = rows == 0 ? 0 : virtual_bands.front().coefficients.size();
  if (columns == 0) {
    wavelengths.resize(rows);
    matrix.Initialize(0, 0, 0.0);
    return;
  }
  for (const VirtualBand& band : virtual_bands) {
    if (band.coefficients.size() > columns) {
      throw std::invalid_argument("A virtual band has more coefficients than the first one.");
    }
  }
  wavelengths.resize(rows);
  matrix.Initialize(rows, columns, 0.0);
  for (std::size_t row = 0; row < rows; ++row) {
    const VirtualBand& band = virtual_bands[row];
    std::copy(band.coefficients.begin(), band.coefficients.end(), &matrix(row, 0));
    wavelengths[row] = band.wavelength_nm;
  }
}

bool operator==(CorrectionMatrix const& left, CorrectionMatrix const& right) {
  return left.created == right.created && left.name == right.name &&
         left.algorithm == right.algorithm && left.algorithm_version == right.algorithm_version &&
         left.type == right.type && left.minimum_band_energy == right.minimum_band_energy &&
         left.optical_components == right.optical_components &&
         left.virtual_bands == right.virtual_bands;
}

}  // namespace kelto::hyperspectral

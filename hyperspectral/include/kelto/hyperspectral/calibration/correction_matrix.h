// One named spectral correction: virtual bands, each a linear combination of the raw bands of a
// calibration standing for one output wavelength, with what produced it and the optics it
// assumed. Held by SpectralCorrectionInfo, filled by the correction computation and applied by
// DataAccessor and BlockCorrector, which read the coefficients of its virtual bands; ToMatrix
// gives the same coefficients as one dense matrix to callers that want one.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include <kelto/common/matrix.h>
#include <kelto/common/time.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT CorrectionMatrix : public common::XMLSerializableInterface {
 public:
  // One row of the matrix.
  class KELTO_HYPERSPECTRAL_EXPORT VirtualBand : public common::XMLSerializableInterface {
   public:
    VirtualBand() = default;

    // Reads version 0 (coefficients as a vector element, no width) and versions 1 and later, all
    // in the one current form.
    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;

    // Errors for a negative (or NaN) wavelength or width.
    void RunSanityChecks(ParsingResult& result) const;

    double wavelength_nm = 0.0;
    double fwhm_nm = 0.0;
    // One weight per source band, the source bands numbered over all filter zones.
    std::vector<double> coefficients;

   protected:
    virtual void _WriteXML_v3(_xmlNode*& node) const;

   private:
    void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
    void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
    void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node);
  };

  CorrectionMatrix() = default;

  // Reads versions 0 to 6 and anything newer as 6; each older form fills what it held and
  // leaves the rest. The sanity checks are left to the caller.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // An unknown algorithm, then the checks of each virtual band. Type, name and optics are not
  // checked.
  void RunSanityChecks(ParsingResult& result) const;

  // The coefficients as rows (one per virtual band, as many columns as the first band has) and
  // the band wavelengths. Without bands, or when the first band has no coefficients, the matrix
  // is 0 by 0 (and in the latter case the wavelengths are sized to the bands but not filled). A
  // shorter band leaves zeros behind its coefficients; a longer one breaks the record's invariant
  // and throws std::invalid_argument before anything is changed.
  void ToMatrix(common::Matrix& matrix, std::vector<double>& wavelengths) const;

  common::time::TimePoint created{};  // UTC; written to the second
  std::string name;
  CorrectionAlgorithms::eCorrectionAlgorithm algorithm = CorrectionAlgorithms::CA_UNKNOWN;
  std::pair<unsigned long, unsigned long> algorithm_version{0, 0};  // major, minor
  CorrectionMatrixTypes::eCorrectionMatrixType type = CorrectionMatrixTypes::CT_UNKNOWN;
  double minimum_band_energy = 1.0;
  std::deque<OpticalComponent> optical_components;
  std::deque<VirtualBand> virtual_bands;

 protected:
  virtual void _WriteXML_v6(_xmlNode*& node) const;

 private:
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v4(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v5(ParsingResult& result, _xmlNode* const& node);
  void _ReadXML_v6(ParsingResult& result, _xmlNode* const& node);
  // The parts that versions 2 to 6 share, in their reading order.
  void _ReadIdentityAndBands(ParsingResult& result, _xmlNode* const& node);
  void _ReadOpticalComponents(ParsingResult& result, _xmlNode* const& node);
  void _ReadAlgorithmVersion(ParsingResult& result, _xmlNode* const& node);
  void _ReadMinimumBandEnergy(ParsingResult& result, _xmlNode* const& node);
};

// Exact comparisons throughout; a NaN on either side makes the records unequal.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(CorrectionMatrix::VirtualBand const& left,
                                           CorrectionMatrix::VirtualBand const& right);
KELTO_HYPERSPECTRAL_EXPORT bool operator==(CorrectionMatrix const& left,
                                           CorrectionMatrix const& right);

}  // namespace kelto::hyperspectral

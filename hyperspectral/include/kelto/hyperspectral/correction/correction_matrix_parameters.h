// The file form of the tuning of a correction matrix computation: peak detection, peak shape
// fitting, band selection, inversion and post-processing, each a record of its own. It holds
// values only; utilities::LoadCorrectionMatrixParameters fills it from an embedded document.
// Thread-safety: records without a lock, used by one thread at a time.
#pragma once

#include <string>
#include <vector>

#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

// Every record reads any version from 0 upward as version 0 and refuses a negative or absent one,
// then runs its checks. A tag other than the record's own is reported and read all the same.
// A field whose element is missing is an Error and falls to 0, 0.0, false or empty, not to the
// default below: the defaults are those of a record made in code, never of a document.
class KELTO_HYPERSPECTRAL_EXPORT CorrectionMatrixParameters
    : public common::XMLSerializableInterface {
 public:
  // The type of a matrix, for who needs it in a document of its own; no field of
  // CorrectionMatrixParameters holds one and no element of its document names it.
  class KELTO_HYPERSPECTRAL_EXPORT Generic : public common::XMLSerializableInterface {
   public:
    Generic() = default;

    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    void RunSanityChecks(ParsingResult& result) const;

    CorrectionMatrixTypes::eCorrectionMatrixType correction_matrix_type =
        CorrectionMatrixTypes::CT_UNKNOWN;

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v0(_xmlNode*& node) const;
  };

  class KELTO_HYPERSPECTRAL_EXPORT PeakDetection : public common::XMLSerializableInterface {
   public:
    PeakDetection() = default;

    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    // Zero in either field is an Error; the two are checked independently.
    void RunSanityChecks(ParsingResult& result) const;

    double distance_min_nm = 0.0;  // least distance between two peaks of one filter
    int peaks_nr_max = 0;          // most peaks per filter

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v0(_xmlNode*& node) const;
  };

  class KELTO_HYPERSPECTRAL_EXPORT PeakShapeFitting : public common::XMLSerializableInterface {
   public:
    PeakShapeFitting() = default;

    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    // Nothing is checked: not even fwhm_min <= fwhm_max.
    void RunSanityChecks(ParsingResult& result) const;

    Distributions::eDistribution shape = Distributions::DB_FABRY_PEROT;
    double fwhm_min = 2.0;                 // narrowest accepted peak, nm
    double fwhm_max = 35.0;                // widest accepted peak, nm
    double qe_factor_min = 0.95;           // least ratio of fitted peak to measured maximum
    double qe_factor_max = 1.05;           // greatest such ratio
    double wavelength_shift_max_nm = 3.0;  // greatest shift of the fit from the measured maximum
    double detection_window_nm = 17.0;     // window around a maximum for the fit's start
    int shape_interpolation_factor = 5;    // grid refinement before fitting
    int nr_coarse_iterations = 12;
    int nr_fine_iterations = 12;

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v0(_xmlNode*& node) const;
  };

  class KELTO_HYPERSPECTRAL_EXPORT BandSelection : public common::XMLSerializableInterface {
   public:
    BandSelection() = default;

    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    void RunSanityChecks(ParsingResult& result) const;

    double bands_minimum_distance = 0.0;  // distance under which peaks count as duplicates
    bool peak_clustering = false;
    double peak_fit_error_max = 0.025;
    double minimum_contribution = 0.25;  // least share of a peak in its band

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v0(_xmlNode*& node) const;
  };

  class KELTO_HYPERSPECTRAL_EXPORT Inversion : public common::XMLSerializableInterface {
   public:
    Inversion() = default;

    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    void RunSanityChecks(ParsingResult& result) const;

    // Stored as wide text, the one enumeration of the library that is.
    InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms algorithm =
        InversionOptimizationAlgorithms::IOA_TIKHONOV;
    double tikhonov_alpha = 0.01;

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v0(_xmlNode*& node) const;
  };

  class KELTO_HYPERSPECTRAL_EXPORT PostProcessing : public common::XMLSerializableInterface {
   public:
    PostProcessing() = default;

    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    void RunSanityChecks(ParsingResult& result) const;

    // Not the field of the same name in BandSelection: this one spaces the final bands.
    double bands_minimum_distance = 0.0;
    bool spectral_resampling = false;
    // Written with six significant digits.
    std::vector<double> resampling_wavelengths;
    double smoothing_gaussian_filter_width = 7.5;  // nm

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v0(_xmlNode*& node) const;
  };

  CorrectionMatrixParameters() = default;

  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;
  // Checks nothing itself and does not walk into the five records, which check themselves as
  // they are read.
  void RunSanityChecks(ParsingResult& result) const;

  PeakDetection peak_detection;
  PeakShapeFitting peak_shape_fitting;
  BandSelection band_selection;
  Inversion inversion;
  PostProcessing post_processing;

 protected:
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v0(_xmlNode*& node) const;

 private:
  // The ReadXML of all six records: start event, tag comparison, version dispatch to `reader`,
  // checks.
  template <typename Record>
  static void _Read(Record& record, ParsingResult& result, _xmlNode* const& node,
                    std::string const& tag, const char* sentence,
                    void (Record::*reader)(ParsingResult&, _xmlNode* const&));
};

}  // namespace kelto::hyperspectral

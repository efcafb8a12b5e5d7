// A filter zone: a rectangle of the sensor covered by one arrangement of spectral filters, with
// the bands of that arrangement and the peaks found in each band's measured response. The four
// arrangements are the subclasses below. FilterInfo owns the zones (stored as plain FilterZone
// values that keep their layout); peak detection fills the bands, the correction reads them.
// Thread-safety: records without a lock; a zone belongs to one thread at a time. The layout
// texts are read-only after load.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <kelto/common/region_of_interest.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT FilterZone : public common::XMLSerializableInterface {
 public:
  enum eFilterLayout : std::int32_t { NO_FILTER = 0, WEDGE = 1, TILED = 2, MOSAIC = 3 };

  // One band of the pattern: its place, whether it takes part in the output, its measured
  // response on the calibration grid and the peaks found in it. Stored as "band".
  class KELTO_HYPERSPECTRAL_EXPORT BandInfo : public common::XMLSerializableInterface {
   public:
    // One peak of a band's response, as fitted. Stored as "peak".
    class KELTO_HYPERSPECTRAL_EXPORT PeakInfo : public common::XMLSerializableInterface {
     public:
      PeakInfo() = default;

      // Versions 2, 1, 0, and anything newer as 2; a missing version is an error.
      void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
      void WriteXML(_xmlNode*& node) const override;
      // (Error, SanityCheck, condition) for each failed condition; NaN fails every test.
      void RunSanityChecks(ParsingResult& result) const;

      Distributions::eDistribution shape = Distributions::DB_LORENTZIAN;
      unsigned long order = 1;
      double wavelength_nm = 0.0;
      double fwhm_nm = 0.0;
      double quantum_efficiency = 0.0;  // the peak's height, "QE" in files
      double contribution = 0.0;
      double fit_error = 0.0;

     protected:
      virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
      virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
      virtual void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
      virtual void _WriteXML_v2(_xmlNode*& node) const;
    };

    BandInfo() = default;

    // Versions 4 to 0, and anything newer as 4; a missing version is an error. No checks here:
    // the filter block runs them.
    void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
    void WriteXML(_xmlNode*& node) const override;
    // The checks of each peak in order.
    void RunSanityChecks(ParsingResult& result) const;

    unsigned long pattern_position_index = 0;  // "index" in files
    bool selected = false;
    std::deque<PeakInfo> peaks;
    std::vector<double> response;  // one value per sample point of the calibration grid

   protected:
    virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
    virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
    virtual void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
    virtual void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node);
    virtual void _ReadXML_v4(ParsingResult& result, _xmlNode* const& node);
    virtual void _WriteXML_v4(_xmlNode*& node) const;

   private:
    // Versions 0 to 2: the index under its old name, and the response in 10-bit numbers.
    void _ReadLegacyIndex(ParsingResult& result, _xmlNode* const& node);
    void _ReadLegacyResponse(ParsingResult& result, _xmlNode* const& node);
    void _ReadPeaks(ParsingResult& result, _xmlNode* const& node);
  };

  static constexpr double refractive_index = 1.7;

  // The most bands that a zone of the unversioned form may have, as its "nr_bands" or as counted
  // from its lists; no real filter comes near. A file that asks for more keeps no bands.
  static constexpr unsigned long kMaxBands = 100000;

  explicit FilterZone(eFilterLayout const& layout);

  eFilterLayout const& filter_layout() const { return filter_layout_; }

  // A new zone of the subclass of the layout (NoFilterZone for any value that is not a filter);
  // the caller deletes it.
  static FilterZone* Create(eFilterLayout const& layout);
  // A copy of the zone as the subclass of its layout; the caller deletes it.
  static FilterZone* Create(FilterZone const& zone);
  // "NO_FILTER", "WEDGE", "TILED", "MOSAIC"; "UNKNOWN" for any other value.
  static std::string ToString(eFilterLayout const& layout);
  // Exact match; any other text, "UNKNOWN" too, gives -1. Never throws.
  static void FromString(eFilterLayout& layout, std::string const& text);

  // How far apart in pixels two neighbouring bands of the pattern lie (0 without a neighbour in
  // that direction), and the pixel step between two cells of the same band. The band steps divide
  // by the pattern size: a zone with a zero pattern throws std::logic_error.
  unsigned long GetBandStepX() const;
  unsigned long GetBandStepY() const;
  unsigned long GetPixelStepX() const;
  unsigned long GetPixelStepY() const;

  // Reads the version of the element with the readers of this object's subclass. No checks here.
  // The unversioned form reads its band selection and tile table as std::stof does; a text that
  // isn't a number ends the read with std::stof's exception, which the caller gets.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;
  // A NO_FILTER zone is not checked; others check area, sizes, band count and their bands.
  void RunSanityChecks(ParsingResult& result) const;

  // Operations on a list of bands.
  static void RetainSelectedOnly(std::deque<BandInfo>& bands);
  static void RetainWithPeaksOnly(std::deque<BandInfo>& bands);
  static void SortOnPatternPositionIndex(std::deque<BandInfo>& bands);
  // Needs at least one peak in every band (see RetainWithPeaksOnly).
  static void SortOnWavelength(std::deque<BandInfo>& bands);
  static bool _ComparePaternPositionIndex(BandInfo const& first, BandInfo const& second);
  static bool _CompareWavelength(BandInfo const& first, BandInfo const& second);
  // Both forms take their vectors by value, as the exported interface has always had them: they
  // lay the responses out as rows of the length of the first band's response, into the copies.
  static void GetResponseMatrix(std::vector<double> values, std::vector<double*> rows,
                                std::deque<BandInfo> const& bands);
  static void GetResponseMatrix(std::vector<double const*> rows, std::deque<BandInfo> const& bands);

  unsigned long index = 0;
  common::RegionOfInterest filter_area;
  unsigned long pattern_width = 0;
  unsigned long pattern_height = 0;
  unsigned long filter_width = 0;
  unsigned long filter_height = 0;
  double spectral_range_start_nm = 0.0;
  double spectral_range_end_nm = 0.0;
  std::deque<BandInfo> bands;

 protected:
  virtual void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node);
  virtual void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node);
  virtual void _WriteXML_v3(_xmlNode*& node) const;

  // Old files numbered the pattern from its bottom row: each band's index is moved to the same
  // column of the mirrored row. Needs a pattern_width other than 0.
  void _FlipPatternRows();

 private:
  // Per band number, the comma-separated values of one list of the unversioned form
  // ("wavelength", "fwhm", "fwfm"): one value per peak.
  using BandLists = std::map<int, std::deque<double>>;

  // The parts of the unversioned form, in reading order.
  void _ReadLegacyArea(ParsingResult& result, _xmlNode* const& node);
  void _ReadBandLists(ParsingResult& result, _xmlNode* const& node, const char* name,
                      BandLists& lists, bool required);
  // The numbers of the bands that take part; `listed` of them when the file names none.
  std::set<double> _ReadActiveBands(_xmlNode* const& node, std::size_t listed);
  void _ReadLegacyResponses(ParsingResult& result, _xmlNode* const& node, unsigned long nr_bands);

  eFilterLayout filter_layout_;
};

class KELTO_HYPERSPECTRAL_EXPORT NoFilterZone : public FilterZone {
 public:
  NoFilterZone() : FilterZone(NO_FILTER) {}

 protected:
  // Every reader leaves a fresh zone and reads nothing; the writer writes nothing.
  void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
  void _ReadXML_v1(ParsingResult& result, _xmlNode* const& node) override;
  void _ReadXML_v2(ParsingResult& result, _xmlNode* const& node) override;
  void _ReadXML_v3(ParsingResult& result, _xmlNode* const& node) override;
  void _WriteXML_v3(_xmlNode*& node) const override;
};

// Each band a stripe of lines. Its unversioned form gives the lines per band and the first
// band's offset; its version 0 gave an area of the selected bands only, widened on reading.
class KELTO_HYPERSPECTRAL_EXPORT WedgeFilterZone : public FilterZone {
 public:
  WedgeFilterZone() : FilterZone(WEDGE) {}

 protected:
  void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) override;
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node) override;
};

// Each band one large tile; the unversioned form maps bands to tiles by a table.
class KELTO_HYPERSPECTRAL_EXPORT TiledFilterZone : public FilterZone {
 public:
  TiledFilterZone() : FilterZone(TILED) {}

 protected:
  void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) override;
};

// A small pattern of one-pixel filters repeated over the area.
class KELTO_HYPERSPECTRAL_EXPORT MosaicFilterZone : public FilterZone {
 public:
  MosaicFilterZone() : FilterZone(MOSAIC) {}

 protected:
  void _ReadXML_vNA(ParsingResult& result, _xmlNode* const& node) override;
};

KELTO_HYPERSPECTRAL_EXPORT bool operator==(FilterZone::BandInfo::PeakInfo const& left,
                                           FilterZone::BandInfo::PeakInfo const& right);
KELTO_HYPERSPECTRAL_EXPORT bool operator==(FilterZone::BandInfo const& left,
                                           FilterZone::BandInfo const& right);
// All fields but the layout: a wedge and a tile set with equal fields are equal.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(FilterZone const& left, FilterZone const& right);

}  // namespace kelto::hyperspectral

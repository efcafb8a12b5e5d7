// The description of one band of an image: a name, named properties for anything else a program
// wants to note, and for images whose bands lie on the wavelength axis the band's centre and
// width. A format keeps its bands as copies made by Clone, so each class of this family overrides
// it.
// Thread-safety: plain values without a lock, like the format that holds them.
#pragma once

#include <memory>
#include <string>

#include <kelto/common/property_container.h>
#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

class KELTO_DATATYPES_EXPORT BandInfo : public common::PropertyContainer {
 public:
  BandInfo() = default;
  explicit BandInfo(std::string name_);
  ~BandInfo() override;

  virtual std::unique_ptr<BandInfo> Clone() const;

  std::string name;
};

class KELTO_DATATYPES_EXPORT MetricBandInfo : public BandInfo {
 public:
  MetricBandInfo() = default;
  MetricBandInfo(std::string name_, double wavelength_nm_, double fwhm_nm_);

  std::unique_ptr<BandInfo> Clone() const override;

  double wavelength_nm = 0.0;
  // Full width at half maximum of the band's response.
  double fwhm_nm = 0.0;
};

// A band of a Hypercube.
class KELTO_DATATYPES_EXPORT HypercubeBandInfo : public MetricBandInfo {
 public:
  HypercubeBandInfo() = default;
  HypercubeBandInfo(std::string name_, double wavelength_nm_, double fwhm_nm_);

  std::unique_ptr<BandInfo> Clone() const override;
};

}  // namespace kelto::datatypes

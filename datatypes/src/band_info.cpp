#include <kelto/datatypes/band_info.h>

#include <utility>

namespace kelto::datatypes {

BandInfo::BandInfo(std::string name_) : name(std::move(name_)) {}

BandInfo::~BandInfo() = default;

std::unique_ptr<BandInfo> BandInfo::Clone() const {
  return std::make_unique<BandInfo>(*this);
}

MetricBandInfo::MetricBandInfo(std::string name_, double wavelength_nm_, double fwhm_nm_)
    : BandInfo(std::move(name_)), wavelength_nm(wavelength_nm_), fwhm_nm(fwhm_nm_) {}

std::unique_ptr<BandInfo> MetricBandInfo::Clone() const {
  return std::make_unique<MetricBandInfo>(*this);
}

HypercubeBandInfo::HypercubeBandInfo(std::string name_, double wavelength_nm_, double fwhm_nm_)
    : MetricBandInfo(std::move(name_), wavelength_nm_, fwhm_nm_) {}

std::unique_ptr<BandInfo> HypercubeBandInfo::Clone() const {
  return std::make_unique<HypercubeBandInfo>(*this);
}

}  // namespace kelto::datatypes

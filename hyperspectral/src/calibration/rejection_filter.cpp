#include <kelto/hyperspectral/calibration/rejection_filter.h>

#include <stdexcept>
#include <string>

#include <kelto/common/read_by_version.h>
#include <kelto/hyperspectral/calibration/calibration_info.h>

#include "legacy.h"

namespace kelto::hyperspectral {

using ParsingResult = RejectionFilter::ParsingResult;
using Event = ParsingResult::Event;

namespace {

// The number of points of the one-nanometre grid over the filter's range.
bool GridPoints(double start_nm, double end_nm, std::size_t& count) {
  return legacy::CountOf(end_nm - start_nm + 1.0, CalibrationInfo::kMaxSamplePoints, count);
}

}  // namespace

void RejectionFilter::Clear() {
  Spectrum::Clear();
  type = RejectionFilters::RF_NONE;
}

void RejectionFilter::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&RejectionFilter::_ReadXML_v0}, common::NewerVersion::kRefuse,
                        common::Unversioned::kMissingVersionError);
}

void RejectionFilter::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "rejection_filter");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void RejectionFilter::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  _ReadValue(result, wavelength_start_nm, node, "wavelength_start_nm", 0.0);
  _ReadValue(result, wavelength_end_nm, node, "wavelength_end_nm", 0.0);
  _ReadValue(result, wavelength_resolution_nm, node, "wavelength_resolution_nm", 0.0);
  std::string type_text;
  _ReadValue(result, type_text, node, "type", std::string("none"));
  type = RejectionFilters::FromString(type_text);

  std::size_t points = 0;
  if (!GridPoints(wavelength_start_nm, wavelength_end_nm, points)) {
    result << Event(ParsingResult::Error, Event::SanityCheck,
                    "The wavelength range of rejection_filter gives no grid that a filter has");
    Clear();
    return;
  }

  // A filter without its curve keeps the one it had.
  _xmlNode* element = nullptr;
  if (_GetElement(element, node, "filter_response", 0)) {
    values.ReadXML(result, element);
  }
  if (wavelength_resolution_nm == 0.0) {
    return;
  }
  // Running addition, as the measuring tool spread its wavelengths.
  wavelengths.Resize(values.Size(), wavelength_start_nm);
  for (unsigned long i = 0; i < wavelengths.Size(); ++i) {
    wavelengths[i] = i == 0 ? wavelength_start_nm : wavelengths[i - 1] + wavelength_resolution_nm;
  }
}

void RejectionFilter::_WriteXML_v0(_xmlNode*& node) const {
  _SetValue(node, "wavelength_start_nm", wavelength_start_nm);
  _SetValue(node, "wavelength_end_nm", wavelength_end_nm);
  _SetValue(node, "wavelength_resolution_nm", wavelength_resolution_nm);
  _SetValue(node, "type", RejectionFilters::ToString(type));
  _SetElement(node, "filter_response", values);
}

OpticalComponent RejectionFilter::Convert() const {
  std::size_t points = 0;
  if (!GridPoints(wavelength_start_nm, wavelength_end_nm, points)) {
    throw std::invalid_argument(
        "The wavelength range of the rejection filter gives no grid that a filter has.");
  }
  OpticalComponent component;
  component.type = OpticalComponents::OC_BANDPASS_FILTER;
  // One nanometre apart whatever the resolution of the curve, which can thus have another
  // length than its sample points.
  component.sample_points_nm.resize(points);
  for (std::size_t i = 0; i < points; ++i) {
    component.sample_points_nm[i] =
        i == 0 ? wavelength_start_nm : component.sample_points_nm[i - 1] + 1.0;
  }
  component.tag = RejectionFilters::ToString(type);
  component.transmission_range_start_nm = wavelength_start_nm;
  component.response = values.Values();

  const std::size_t count = values.Size();
  if (count < 2) {
    return component;
  }
  // The span at or above one half. A curve that never gets there starts past its end and ends
  // at its start.
  const double step = (wavelength_end_nm - wavelength_start_nm) / static_cast<double>(count - 1);
  std::size_t first = count;
  std::size_t last = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (values[i] >= 0.5) {
      first = first == count ? i : first;
      last = i;
    }
  }
  component.transmission_range_start_nm = static_cast<double>(first) * step + wavelength_start_nm;
  component.transmission_range_end_nm = static_cast<double>(last) * step + wavelength_start_nm;
  return component;
}

}  // namespace kelto::hyperspectral

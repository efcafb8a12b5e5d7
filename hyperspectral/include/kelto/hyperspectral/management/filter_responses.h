// The measured bands of a calibration as the flat list of filter responses that a correction
// computation works on: zone by zone, and within a zone in the order of its bands, each with the
// calibration's wavelength grid and its first two peaks.
// Thread-safety: no state; safe from any thread on a calibration that none changes.
#pragma once

#include <vector>

#include <kelto/common/filter_response.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral::Utilities {

// Replaces the contents of `responses` with one response per band (only the selected bands when
// `selected_only`), indexed by the band's pattern position, and returns a copy of it. Each
// response has as many values as the grid has points; a band whose response is shorter than the
// grid throws std::invalid_argument, and `responses` is then left empty.
KELTO_HYPERSPECTRAL_EXPORT std::vector<common::FilterResponse> GetFilterResponses(
    const SensorCalibration& calibration, const bool& selected_only,
    std::vector<common::FilterResponse>& responses);

// The same, returning the list alone.
KELTO_HYPERSPECTRAL_EXPORT std::vector<common::FilterResponse> GetFilterResponses(
    const SensorCalibration& calibration, const bool& selected_only);

}  // namespace kelto::hyperspectral::Utilities

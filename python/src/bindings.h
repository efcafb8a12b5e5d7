// Shared pieces of the Python module `kelto._kelto`: the conversions between the records' value
// types and Python's, and the binding functions of each part, called once from module.cpp.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include <kelto/common/time.h>
#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/filter_zone.h>
#include <kelto/hyperspectral/calibration/optical_component.h>

// The lists of records are bound as list-like classes of their own rather than converted to
// Python lists, so that `calibration.filter_info.filter_zones[0].bands[3].selected = False`
// changes the calibration and not a copy of it.
PYBIND11_MAKE_OPAQUE(std::deque<kelto::hyperspectral::FilterZone>)
PYBIND11_MAKE_OPAQUE(std::deque<kelto::hyperspectral::FilterZone::BandInfo>)
PYBIND11_MAKE_OPAQUE(std::deque<kelto::hyperspectral::FilterZone::BandInfo::PeakInfo>)
PYBIND11_MAKE_OPAQUE(std::deque<kelto::hyperspectral::OpticalComponent>)
PYBIND11_MAKE_OPAQUE(std::deque<kelto::hyperspectral::CorrectionMatrix>)
PYBIND11_MAKE_OPAQUE(std::deque<kelto::hyperspectral::CorrectionMatrix::VirtualBand>)

namespace kelto::python {

namespace py = pybind11;

using Events = std::deque<common::XMLSerializableInterface::ParsingResult::Event>;

// A record's numeric vector as a new read-only float64 array: a copy, so that no array outlives
// the vector it shows; read-only, so that writing into it fails instead of changing nothing.
py::array_t<double> ToArray(const std::vector<double>& values);
// Any one-dimensional sequence of numbers; ValueError for other shapes.
std::vector<double> FromArray(const py::object& values, const char* what);

// Time points as timezone-aware datetimes in UTC; a naive datetime is taken as UTC, and ISO 8601
// text is read as the files write it.
py::object ToDateTime(const common::time::TimePoint& time);
common::time::TimePoint FromDateTime(const py::object& value);
py::object ToDate(const common::time::Date& date);
common::time::Date FromDate(const py::object& value);

// (state, source, text) tuples, in the order the read produced them.
py::list ToTuples(const Events& events);

// The library's log goes to Python's logging ("kelto"), queued by the sink and handed over by
// FlushLog, which needs the GIL. A LogFlush made before the GIL is released flushes when the
// bound call ends, by return or by exception.
void InstallLogSink();
void FlushLog();
struct LogFlush {
  LogFlush() = default;
  LogFlush(const LogFlush&) = delete;
  LogFlush& operator=(const LogFlush&) = delete;
  ~LogFlush();
};

void BindEnumerations(py::module_& m);
void BindRecords(py::module_& m);
void BindParameters(py::module_& m);
void BindAnalysis(py::module_& m);
void BindCorrection(py::module_& m);

}  // namespace kelto::python

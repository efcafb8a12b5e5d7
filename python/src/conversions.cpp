// Conversions between the records' value types and Python's, and the enumerations of the records
// and of parse events.
#include <string>

#include <kelto/common/sensor_types.h>
#include <kelto/hyperspectral/foundation/enumerations.h>

#include "bindings.h"

namespace kelto::python {

namespace {

using common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;

py::object Utc() {
  return py::module_::import("datetime").attr("timezone").attr("utc");
}

py::object Epoch() {
  return py::module_::import("datetime").attr("datetime")(1970, 1, 1, py::arg("tzinfo") = Utc());
}

}  // namespace

py::array_t<double> ToArray(const std::vector<double>& values) {
  py::array_t<double> array(static_cast<py::ssize_t>(values.size()));
  std::copy(values.begin(), values.end(), array.mutable_data());
  array.attr("flags").attr("writeable") = false;
  return array;
}

std::vector<double> FromArray(const py::object& values, const char* what) {
  const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(values);
  if (!array || array.ndim() != 1) {
    throw py::value_error(std::string(what) + " must be a one-dimensional sequence of numbers");
  }
  return std::vector<double>(array.data(), array.data() + array.size());
}

py::object ToDateTime(const common::time::TimePoint& time) {
  const py::object timedelta = py::module_::import("datetime").attr("timedelta");
  return Epoch() + timedelta(py::arg("microseconds") = time.time_since_epoch().count());
}

common::time::TimePoint FromDateTime(const py::object& value) {
  if (py::isinstance<py::str>(value)) {
    return common::time::UniversalTimeFromString(value.cast<std::string>());
  }
  const py::object datetime = py::module_::import("datetime").attr("datetime");
  if (!py::isinstance(value, datetime)) {
    throw py::type_error("a time must be a datetime.datetime or ISO 8601 text");
  }
  py::object aware = value;
  if (value.attr("tzinfo").is_none()) {
    aware = value.attr("replace")(py::arg("tzinfo") = Utc());
  }
  const py::object microsecond =
      py::module_::import("datetime").attr("timedelta")(py::arg("microseconds") = 1);
  const auto count = (aware - Epoch()).attr("__floordiv__")(microsecond).cast<long long>();
  return common::time::TimePoint(std::chrono::microseconds(count));
}

py::object ToDate(const common::time::Date& date) {
  const py::object date_type = py::module_::import("datetime").attr("date");
  const py::object timedelta = py::module_::import("datetime").attr("timedelta");
  return date_type(1970, 1, 1) + timedelta(py::arg("days") = date.time_since_epoch().count());
}

common::time::Date FromDate(const py::object& value) {
  if (py::isinstance<py::str>(value)) {
    return common::time::DateFromString(value.cast<std::string>());
  }
  const py::object date_type = py::module_::import("datetime").attr("date");
  if (!py::isinstance(value, date_type) ||
      py::isinstance(value, py::module_::import("datetime").attr("datetime"))) {
    throw py::type_error("a date must be a datetime.date or ISO 8601 text");
  }
  const auto days = (value - date_type(1970, 1, 1)).attr("days").cast<int>();
  return common::time::Date(common::time::Date::duration(days));
}

py::list ToTuples(const Events& events) {
  py::list tuples;
  for (const Event& event : events) {
    tuples.append(py::make_tuple(event.state, event.source, event.detail));
  }
  return tuples;
}

void BindEnumerations(py::module_& m) {
  using namespace hyperspectral;
  py::enum_<ParsingResult::eParserState>(m, "ParserState", "The state of a parse event.")
      .value("OK", ParsingResult::Ok)
      .value("WARNING", ParsingResult::Warning)
      .value("ERROR", ParsingResult::Error);
  py::enum_<Event::eEventSource>(m, "EventSource", "What a parse event is about.")
      .value("UNSUPPORTED_VERSION", Event::UnsupportedVersion)
      .value("MISSING_VERSION", Event::MissingVersion)
      .value("MISSING_ELEMENT", Event::MissingElement)
      .value("MISSING_ATTRIBUTE", Event::MissingAttribute)
      .value("MISSING_VALUE", Event::MissingValue)
      .value("SANITY_CHECK", Event::SanityCheck)
      .value("LEGACY_DEFAULT", Event::LegacyDefault)
      .value("READ_START", Event::ReadStart);
  py::enum_<common::SensorTypes::eType>(m, "SensorType")
      .value("UNKNOWN", common::SensorTypes::Unknown)
      .value("VKR9", common::SensorTypes::VKR9)
      .value("GENERIC", common::SensorTypes::GENERIC)
      .value("TEM480", common::SensorTypes::TEM480);
  py::enum_<FilterZone::eFilterLayout>(m, "FilterLayout")
      .value("NO_FILTER", FilterZone::NO_FILTER)
      .value("WEDGE", FilterZone::WEDGE)
      .value("TILED", FilterZone::TILED)
      .value("MOSAIC", FilterZone::MOSAIC);
  py::enum_<CorrectionAlgorithms::eCorrectionAlgorithm>(m, "CorrectionAlgorithm")
      .value("UNKNOWN", CorrectionAlgorithms::CA_UNKNOWN)
      .value("TACKTILE_0", CorrectionAlgorithms::CA_TACKTILE_0)
      .value("PITCHFORK_0", CorrectionAlgorithms::CA_PITCHFORK_0)
      .value("M0", CorrectionAlgorithms::CA_M0)
      .value("M1", CorrectionAlgorithms::CA_M1);
  py::enum_<CorrectionMatrixTypes::eCorrectionMatrixType>(
      m, "MatrixType",
      "What a correction matrix yields: reflectance (from white-referenced bands) or irradiance "
      "(from bands as measured).")
      .value("UNKNOWN", CorrectionMatrixTypes::CT_UNKNOWN)
      .value("REFLECTANCE", CorrectionMatrixTypes::CT_REFLECTANCE)
      .value("IRRADIANCE", CorrectionMatrixTypes::CT_IRRADIANCE);
  py::enum_<Distributions::eDistribution>(m, "Distribution", "A peak shape.")
      .value("UNKNOWN", Distributions::DB_UNKNOWN)
      .value("NONE", Distributions::DB_NONE)
      .value("GAUSSIAN", Distributions::DB_GAUSSIAN)
      .value("LORENTZIAN", Distributions::DB_LORENTZIAN)
      .value("FABRY_PEROT", Distributions::DB_FABRY_PEROT);
  py::enum_<OpticalComponents::eType>(m, "OpticalComponentType")
      .value("UNKNOWN", OpticalComponents::OC_UNKNOWN)
      .value("NONE", OpticalComponents::OC_NONE)
      .value("SHORTPASS_FILTER", OpticalComponents::OC_SHORTPASS_FILTER)
      .value("LONGPASS_FILTER", OpticalComponents::OC_LONGPASS_FILTER)
      .value("BANDPASS_FILTER", OpticalComponents::OC_BANDPASS_FILTER)
      .value("NOTCH_FILTER", OpticalComponents::OC_NOTCH_FILTER)
      .value("LINEAR_POLARIZER", OpticalComponents::OC_LINEAR_POLARIZER)
      .value("CIRCULAR_POLARIZER", OpticalComponents::OC_CIRCULAR_POLARIZER)
      .value("SOURCE", OpticalComponents::OC_SOURCE);
  py::enum_<InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms>(m,
                                                                               "InversionAlgorithm")
      .value("UNKNOWN", InversionOptimizationAlgorithms::IOA_UNKNOWN)
      .value("VARDELL", InversionOptimizationAlgorithms::IOA_VARDELL)
      .value("TIKHONOV", InversionOptimizationAlgorithms::IOA_TIKHONOV);
}

}  // namespace kelto::python

// The calibration records as Python classes: every field a property, nested records returned by
// reference into their owner, lists of records as list-like classes that change the owner,
// numeric vectors as float64 arrays.
#include <pybind11/operators.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>

#include <kelto/common/region_of_interest.h>
#include <kelto/hyperspectral/calibration/calibration_info.h>
#include <kelto/hyperspectral/calibration/filter_info.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/calibration/sensor_info.h>
#include <kelto/hyperspectral/calibration/spectral_correction_info.h>
#include <kelto/hyperspectral/calibration/system_info.h>

#include "bindings.h"

namespace kelto::python {

namespace {

using common::RegionOfInterest;
using common::XMLSerializableInterface;
using hyperspectral::CalibrationInfo;
using hyperspectral::CorrectionMatrix;
using hyperspectral::FilterInfo;
using hyperspectral::FilterZone;
using hyperspectral::OpticalComponent;
using hyperspectral::SensorCalibration;
using hyperspectral::SensorInfo;
using hyperspectral::SpectralCorrectionInfo;
using hyperspectral::SystemInfo;
using Band = FilterZone::BandInfo;
using Peak = FilterZone::BandInfo::PeakInfo;
using VirtualBand = CorrectionMatrix::VirtualBand;
using ParsingResult = XMLSerializableInterface::ParsingResult;

// Python's index rules: negative counts from the end, anything outside is an IndexError.
std::size_t Index(std::ptrdiff_t index, std::size_t size) {
  const auto count = static_cast<std::ptrdiff_t>(size);
  if (index < 0) {
    index += count;
  }
  if (index < 0 || index >= count) {
    throw py::index_error("list index out of range");
  }
  return static_cast<std::size_t>(index);
}

// A std::deque of records as a mutable sequence. Elements are handed out by reference, kept
// valid by the list object; like any element of a bound container, one taken before removing
// elements from the list must not be used after.
template <typename T>
void BindList(py::module_& m, const char* name, const char* doc) {
  using List = std::deque<T>;
  py::class_<List>(m, name, doc)
      .def(py::init<>())
      .def(py::init([](const py::iterable& items) {
             List list;
             for (const py::handle item : items) {
               list.push_back(item.cast<T>());
             }
             return list;
           }),
           py::arg("items"))
      .def("__len__", [](const List& list) { return list.size(); })
      .def("__bool__", [](const List& list) { return !list.empty(); })
      .def(
          "__getitem__",
          [](List& list, std::ptrdiff_t index) -> T& { return list[Index(index, list.size())]; },
          py::return_value_policy::reference_internal)
      .def("__setitem__", [](List& list, std::ptrdiff_t index,
                             const T& value) { list[Index(index, list.size())] = value; })
      .def("__delitem__",
           [](List& list, std::ptrdiff_t index) {
             list.erase(list.begin() + static_cast<std::ptrdiff_t>(Index(index, list.size())));
           })
      .def(
          "__iter__",
          [](List& list) {
            return py::make_iterator<py::return_value_policy::reference_internal>(list.begin(),
                                                                                  list.end());
          },
          py::keep_alive<0, 1>())
      .def("append", [](List& list, const T& value) { list.push_back(value); })
      .def("extend",
           [](List& list, const py::iterable& items) {
             List added;
             for (const py::handle item : items) {
               added.push_back(item.cast<T>());
             }
             list.insert(list.end(), added.begin(), added.end());
           })
      .def("insert",
           [](List& list, std::ptrdiff_t index, const T& value) {
             const auto size = static_cast<std::ptrdiff_t>(list.size());
             index = index < 0 ? std::max<std::ptrdiff_t>(0, index + size)
                               : std::min<std::ptrdiff_t>(index, size);
             list.insert(list.begin() + index, value);
           })
      .def("clear", [](List& list) { list.clear(); })
      .def("__eq__", [](const List& list, const List& other) { return list == other; })
      .def("__eq__",
           [](const List& list, const py::object& other) {
             // A Python list of records compares by its elements; anything else is unequal.
             try {
               return list == other.cast<List>();
             } catch (const py::cast_error&) {
               return false;
             }
           })
      .def("__repr__",
           [name](const List& list) {
             return std::string(name) + " of " + std::to_string(list.size());
           })
      .def("__reduce__", [](const py::object& self) {
        return py::make_tuple(self.get_type(), py::make_tuple(py::list(self)));
      });
  py::implicitly_convertible<py::list, List>();
  py::implicitly_convertible<py::tuple, List>();
}

template <typename Class, typename C>
void DefVector(Class& cls, const char* name, std::vector<double> C::*member, const char* doc) {
  cls.def_property(
      name, [member](const C& self) { return ToArray(self.*member); },
      [member, name](C& self, const py::object& values) { self.*member = FromArray(values, name); },
      doc);
}

template <typename Class, typename C>
void DefTime(Class& cls, const char* name, common::time::TimePoint C::*member, const char* doc) {
  cls.def_property(
      name, [member](const C& self) { return ToDateTime(self.*member); },
      [member](C& self, const py::object& value) { self.*member = FromDateTime(value); }, doc);
}

// The events of a record's own sanity checks.
template <typename C>
py::list Check(const C& record) {
  ParsingResult result;
  record.RunSanityChecks(result);
  return ToTuples(result.events());
}

template <typename Class, typename C = typename Class::type>
void DefCommon(Class& cls) {
  cls.def(py::init<>())
      .def("check", &Check<C>,
           "Runs the record's sanity checks; returns their events as (state, source, text).")
      .def(py::self == py::self)
      .def("__eq__", [](const C&, const py::object&) { return false; })
      .def(
          "__copy__", [](const C& self) { return C(self); },
          "A deep copy: records own everything beneath them.")
      .def(
          "__deepcopy__", [](const C& self, const py::object&) { return C(self); },
          py::arg("memo"));
}

py::list Read(XMLSerializableInterface& record, const py::object& path_like) {
  const std::string path =
      py::str(py::module_::import("os").attr("fspath")(path_like)).cast<std::string>();
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    errno = ENOENT;
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
  }
  const LogFlush flush;
  ParsingResult result;
  {
    py::gil_scoped_release unlocked;
    record.ReadFile(result, path);
  }
  return ToTuples(result.events());
}

void Write(const XMLSerializableInterface& record, const py::object& path_like) {
  const std::string path =
      py::str(py::module_::import("os").attr("fspath")(path_like)).cast<std::string>();
  try {
    record.WriteFile(path);
  } catch (const std::runtime_error& error) {
    PyErr_SetString(PyExc_OSError, error.what());
    throw py::error_already_set();
  }
}

std::string ShortNumber(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

}  // namespace

void BindRecords(py::module_& m) {
  py::class_<XMLSerializableInterface>(m, "Record", R"(Base of every record kept in an XML file.

A read never raises on account of the file's content: every problem becomes an event
(state, source, text), and the record keeps what could be read.)")
      .def("read", &Read, py::arg("path"),
           "Reads the record from a file; returns the events of the read. A missing file raises "
           "FileNotFoundError.")
      .def(
          "read_xml",
          [](XMLSerializableInterface& record, const std::string& text) {
            const LogFlush flush;
            ParsingResult result;
            record.ReadString(result, text);
            return ToTuples(result.events());
          },
          py::arg("text"), "Reads the record from XML text; returns the events of the read.")
      .def("write", &Write, py::arg("path"),
           "Writes the record as a UTF-8 XML file; OSError when it can't be written.")
      .def("to_xml", &XMLSerializableInterface::WriteString, "The record as an XML document.");

  py::class_<RegionOfInterest, XMLSerializableInterface> region(
      m, "RegionOfInterest", "A rectangle on the sensor in pixels.");
  DefCommon(region);
  region
      .def(py::init<double, double, double, double>(), py::arg("offset_x"), py::arg("offset_y"),
           py::arg("width"), py::arg("height"))
      .def_readwrite("offset_x", &RegionOfInterest::offset_x)
      .def_readwrite("offset_y", &RegionOfInterest::offset_y)
      .def_readwrite("width", &RegionOfInterest::width)
      .def_readwrite("height", &RegionOfInterest::height)
      .def("__repr__", [](const RegionOfInterest& r) {
        return "RegionOfInterest(" + ShortNumber(r.offset_x) + ", " + ShortNumber(r.offset_y) +
               ", " + ShortNumber(r.width) + ", " + ShortNumber(r.height) + ")";
      });

  py::class_<SensorInfo, XMLSerializableInterface> sensor(
      m, "SensorInfo", "The sensor chip: type, pixel grid, pitch, bit depth and gains.");
  DefCommon(sensor);
  sensor.def_readwrite("sensor_type", &SensorInfo::sensor_type)
      .def_readwrite("width_px", &SensorInfo::width_px)
      .def_readwrite("height_px", &SensorInfo::height_px)
      .def_readwrite("pixel_pitch_um", &SensorInfo::pixel_pitch_um)
      .def_readwrite("bit_depth", &SensorInfo::bit_depth)
      .def_readwrite("analog_gain", &SensorInfo::analog_gain)
      .def_readwrite("digital_gain", &SensorInfo::digital_gain)
      .def_readwrite("full_well_capacity_e", &SensorInfo::full_well_capacity_e)
      .def_readwrite("overall_gain", &SensorInfo::overall_gain)
      .def_readwrite("gain_mode", &SensorInfo::gain_mode)
      .def_property_readonly("type_name", &SensorInfo::GetTypeName)
      .def("__repr__", [](const SensorInfo& s) {
        return "SensorInfo(" + s.GetTypeName() + ", " + std::to_string(s.width_px) + " x " +
               std::to_string(s.height_px) + " px)";
      });

  py::class_<CalibrationInfo, XMLSerializableInterface> grid(
      m, "CalibrationInfo", "The wavelength grid on which every band response is sampled.");
  DefCommon(grid);
  DefVector(grid, "sample_points_nm", &CalibrationInfo::sample_points_nm,
            "Wavelengths of the grid, nm.");
  grid.def("__repr__", [](const CalibrationInfo& g) {
    return "CalibrationInfo(" + std::to_string(g.sample_points_nm.size()) + " points)";
  });

  py::class_<Peak, XMLSerializableInterface> peak(m, "Peak", "One fitted peak of a band.");
  DefCommon(peak);
  peak.def_readwrite("shape", &Peak::shape)
      .def_readwrite("order", &Peak::order)
      .def_readwrite("wavelength_nm", &Peak::wavelength_nm)
      .def_readwrite("fwhm_nm", &Peak::fwhm_nm)
      .def_readwrite("quantum_efficiency", &Peak::quantum_efficiency,
                     "The peak's height (\"QE\" in files).")
      .def_readwrite("contribution", &Peak::contribution)
      .def_readwrite("fit_error", &Peak::fit_error)
      .def("__repr__", [](const Peak& p) {
        return "Peak(" + ShortNumber(p.wavelength_nm) + " nm, FWHM " + ShortNumber(p.fwhm_nm) +
               " nm, order " + std::to_string(p.order) + ")";
      });
  BindList<Peak>(m, "PeakList", "The peaks of a band, a list of Peak.");

  py::class_<Band, XMLSerializableInterface> band(
      m, "Band", "One band of a filter pattern: its place, selection, response and peaks.");
  DefCommon(band);
  band.def_readwrite("pattern_position_index", &Band::pattern_position_index)
      .def_readwrite("selected", &Band::selected)
      .def_readwrite("peaks", &Band::peaks);
  DefVector(band, "response", &Band::response,
            "The measured response, one value per point of the calibration grid.");
  band.def("__repr__", [](const Band& b) {
    return "Band(position " + std::to_string(b.pattern_position_index) + ", " +
           std::to_string(b.peaks.size()) + " peaks" + (b.selected ? ", selected)" : ")");
  });
  BindList<Band>(m, "BandList", "The bands of a filter zone, a list of Band.");

  py::class_<FilterZone, XMLSerializableInterface> zone(
      m, "FilterZone", "A rectangle of the sensor under one arrangement of filters.");
  zone.def(py::init<FilterZone::eFilterLayout>(), py::arg("layout"))
      .def("check", &Check<FilterZone>)
      .def(py::self == py::self)
      .def("__eq__", [](const FilterZone&, const py::object&) { return false; })
      .def("__copy__", [](const FilterZone& self) { return FilterZone(self); })
      .def(
          "__deepcopy__",
          [](const FilterZone& self, const py::object&) { return FilterZone(self); },
          py::arg("memo"))
      .def_property_readonly("filter_layout", &FilterZone::filter_layout)
      .def_readwrite("index", &FilterZone::index)
      .def_readwrite("filter_area", &FilterZone::filter_area)
      .def_readwrite("pattern_width", &FilterZone::pattern_width)
      .def_readwrite("pattern_height", &FilterZone::pattern_height)
      .def_readwrite("filter_width", &FilterZone::filter_width)
      .def_readwrite("filter_height", &FilterZone::filter_height)
      .def_readwrite("spectral_range_start_nm", &FilterZone::spectral_range_start_nm)
      .def_readwrite("spectral_range_end_nm", &FilterZone::spectral_range_end_nm)
      .def_readwrite("bands", &FilterZone::bands)
      .def("__getinitargs__", [](const FilterZone& z) { return py::make_tuple(z.filter_layout()); })
      .def("__repr__", [](const FilterZone& z) {
        return "FilterZone(" + FilterZone::ToString(z.filter_layout()) + ", " +
               std::to_string(z.pattern_width) + " x " + std::to_string(z.pattern_height) + ", " +
               std::to_string(z.bands.size()) + " bands)";
      });
  BindList<FilterZone>(m, "FilterZoneList", "The filter zones of a calibration.");

  py::class_<FilterInfo, XMLSerializableInterface> filter(
      m, "FilterInfo", "The filter block: the calibration grid and the filter zones.");
  DefCommon(filter);
  filter.def_readwrite("calibration_info", &FilterInfo::calibration_info)
      .def_readwrite("filter_zones", &FilterInfo::filter_zones)
      .def_property_readonly("band_count", &FilterInfo::GetTotalNrBands,
                             "The number of bands over all zones.")
      .def(
          "band",
          [](FilterInfo& f, std::ptrdiff_t number) -> Band& {
            return f.GetBand(Index(number, f.GetTotalNrBands()));
          },
          py::arg("number"), py::return_value_policy::reference_internal,
          "The band of that number, counted over all zones in stored order: its column in every "
          "correction matrix.")
      .def_property_readonly(
          "bands",
          [](py::object self) {
            auto& f = self.cast<FilterInfo&>();
            py::list bands;
            for (FilterZone& z : f.filter_zones) {
              for (Band& b : z.bands) {
                bands.append(py::cast(&b, py::return_value_policy::reference_internal, self));
              }
            }
            return bands;
          },
          "Every band in band-number order (zones, then their bands, as stored).")
      .def_property_readonly("type_name", &FilterInfo::GetTypeName)
      .def("__repr__", [](const FilterInfo& f) {
        return "FilterInfo(" + f.GetTypeName() + ", " + std::to_string(f.filter_zones.size()) +
               " zones, " + std::to_string(f.GetTotalNrBands()) + " bands)";
      });

  py::class_<OpticalComponent, XMLSerializableInterface> component(
      m, "OpticalComponent", "An element of the light path with its transmission curve.");
  DefCommon(component);
  component.def_readwrite("type", &OpticalComponent::type)
      .def_readwrite("manufacturer", &OpticalComponent::manufacturer)
      .def_readwrite("part_id", &OpticalComponent::part_id)
      .def_readwrite("tag", &OpticalComponent::tag)
      .def_readwrite("description", &OpticalComponent::description)
      .def_readwrite("measurement", &OpticalComponent::measurement)
      .def_property(
          "measured", [](const OpticalComponent& c) { return ToDate(c.measured); },
          [](OpticalComponent& c, const py::object& value) { c.measured = FromDate(value); },
          "The day the curve was measured, a datetime.date.")
      .def_readwrite("transmission_range_start_nm", &OpticalComponent::transmission_range_start_nm)
      .def_readwrite("transmission_range_end_nm", &OpticalComponent::transmission_range_end_nm)
      .def_property_readonly("friendly_name", &OpticalComponent::GetFriendlyName);
  DefVector(component, "sample_points_nm", &OpticalComponent::sample_points_nm,
            "Wavelengths of the curve, nm.");
  DefVector(component, "response", &OpticalComponent::response,
            "Transmission at each sample point, as a fraction.");
  component.def("__repr__", [](const OpticalComponent& c) {
    return "OpticalComponent(" + hyperspectral::OpticalComponents::ToString(c.type) + ", " +
           std::to_string(c.sample_points_nm.size()) + " points)";
  });
  BindList<OpticalComponent>(m, "OpticalComponentList", "A list of OpticalComponent.");

  py::class_<VirtualBand, XMLSerializableInterface> virtual_band(
      m, "VirtualBand", "One row of a correction matrix: an output band.");
  DefCommon(virtual_band);
  virtual_band.def_readwrite("wavelength_nm", &VirtualBand::wavelength_nm)
      .def_readwrite("fwhm_nm", &VirtualBand::fwhm_nm);
  DefVector(virtual_band, "coefficients", &VirtualBand::coefficients,
            "One weight per band of the calibration, in band-number order.");
  virtual_band.def("__repr__", [](const VirtualBand& v) {
    return "VirtualBand(" + ShortNumber(v.wavelength_nm) + " nm, FWHM " + ShortNumber(v.fwhm_nm) +
           " nm)";
  });
  BindList<VirtualBand>(m, "VirtualBandList", "The virtual bands of a matrix.");

  py::class_<CorrectionMatrix, XMLSerializableInterface> matrix(
      m, "CorrectionMatrix",
      "A named spectral correction: virtual bands, each a weighting of the calibration's bands.");
  DefCommon(matrix);
  DefTime(matrix, "created", &CorrectionMatrix::created, "When it was computed (UTC).");
  matrix.def_readwrite("name", &CorrectionMatrix::name)
      .def_readwrite("algorithm", &CorrectionMatrix::algorithm)
      .def_readwrite("algorithm_version", &CorrectionMatrix::algorithm_version, "(major, minor)")
      .def_readwrite("type", &CorrectionMatrix::type)
      .def_readwrite("minimum_band_energy", &CorrectionMatrix::minimum_band_energy)
      .def_readwrite("optical_components", &CorrectionMatrix::optical_components)
      .def_readwrite("virtual_bands", &CorrectionMatrix::virtual_bands)
      .def_property_readonly(
          "band_count",
          [](const CorrectionMatrix& c) {
            return c.virtual_bands.empty() ? 0 : c.virtual_bands.front().coefficients.size();
          },
          "The number of bands the matrix weighs (its columns).")
      .def_property_readonly(
          "coefficients",
          [](const CorrectionMatrix& c) {
            const std::size_t rows = c.virtual_bands.size();
            const std::size_t columns = rows == 0 ? 0 : c.virtual_bands.front().coefficients.size();
            py::array_t<double> array({rows, columns});
            auto view = array.mutable_unchecked<2>();
            for (std::size_t r = 0; r < rows; ++r) {
              const std::vector<double>& row = c.virtual_bands[r].coefficients;
              if (row.size() > columns) {
                throw py::value_error("virtual band " + std::to_string(r) + " has " +
                                      std::to_string(row.size()) + " coefficients, the first " +
                                      std::to_string(columns));
              }
              for (std::size_t k = 0; k < columns; ++k) {
                view(static_cast<py::ssize_t>(r), static_cast<py::ssize_t>(k)) =
                    k < row.size() ? row[k] : 0.0;
              }
            }
            array.attr("flags").attr("writeable") = false;
            return array;
          },
          "The matrix as a read-only float64 array of shape (virtual bands, bands); a shorter "
          "row is padded with zeros.")
      .def_property_readonly(
          "wavelengths",
          [](const CorrectionMatrix& c) {
            std::vector<double> values;
            for (const VirtualBand& v : c.virtual_bands) {
              values.push_back(v.wavelength_nm);
            }
            return ToArray(values);
          },
          "The virtual bands' centre wavelengths, nm.")
      .def_property_readonly(
          "fwhms",
          [](const CorrectionMatrix& c) {
            std::vector<double> values;
            for (const VirtualBand& v : c.virtual_bands) {
              values.push_back(v.fwhm_nm);
            }
            return ToArray(values);
          },
          "The virtual bands' full widths at half maximum, nm.")
      .def("__repr__", [](const CorrectionMatrix& c) {
        const std::size_t columns =
            c.virtual_bands.empty() ? 0 : c.virtual_bands.front().coefficients.size();
        return "CorrectionMatrix(\"" + c.name + "\", " +
               hyperspectral::CorrectionMatrixTypes::ToString(
                   c.type == hyperspectral::CorrectionMatrixTypes::CT_IRRADIANCE ||
                           c.type == hyperspectral::CorrectionMatrixTypes::CT_REFLECTANCE
                       ? c.type
                       : hyperspectral::CorrectionMatrixTypes::CT_UNKNOWN) +
               ", " + std::to_string(c.virtual_bands.size()) + " x " + std::to_string(columns) +
               ")";
      });
  BindList<CorrectionMatrix>(m, "CorrectionMatrixList", "A list of CorrectionMatrix.");

  py::class_<SpectralCorrectionInfo, XMLSerializableInterface> correction(
      m, "SpectralCorrectionInfo", "The correction matrices of a calibration, in file order.");
  DefCommon(correction);
  correction.def_readwrite("correction_matrices", &SpectralCorrectionInfo::correction_matrices);

  py::class_<SystemInfo, XMLSerializableInterface> system(
      m, "SystemInfo", "The optics of the system and the correction matrices.");
  DefCommon(system);
  system.def_readwrite("optical_components", &SystemInfo::optical_components)
      .def_readwrite("spectral_correction_info", &SystemInfo::spectral_correction_info);

  py::class_<SensorCalibration, XMLSerializableInterface> calibration(
      m, "Calibration", py::dynamic_attr(),
      "The calibration of one sensor: identity, chip, filters, optics and correction "
      "matrices. Everything beneath it is owned, so copies are deep.");
  DefCommon(calibration);
  DefTime(calibration, "created", &SensorCalibration::created, "UTC");
  DefTime(calibration, "modified", &SensorCalibration::modified, "UTC");
  calibration.def_readwrite("sensor_id", &SensorCalibration::sensor_id)
      .def_readwrite("software", &SensorCalibration::software)
      .def_readwrite("software_version", &SensorCalibration::software_version)
      .def_readwrite("sensor_info", &SensorCalibration::sensor_info)
      .def_readwrite("filter_info", &SensorCalibration::filter_info)
      .def_readwrite("system_info", &SensorCalibration::system_info)
      .def_property_readonly("type_name", &SensorCalibration::GetTypeName,
                             "\"<sensor type>-<filter family>\", the key of its parameter "
                             "document.")
      .def_property_readonly(
          "correction_matrices",
          [](py::object self) {
            auto& c = self.cast<SensorCalibration&>();
            py::dict matrices;
            for (CorrectionMatrix& matrix :
                 c.system_info.spectral_correction_info.correction_matrices) {
              // Names may repeat; the first of a name is the one a lookup by name finds.
              if (!matrices.contains(matrix.name)) {
                matrices[py::str(matrix.name)] =
                    py::cast(&matrix, py::return_value_policy::reference_internal, self);
              }
            }
            return matrices;
          },
          "The correction matrices by name (the first of a repeated name), each a reference "
          "into the calibration. The list itself is "
          "system_info.spectral_correction_info.correction_matrices.")
      .def("__repr__", [](const SensorCalibration& c) {
        return "Calibration(" + c.GetTypeName() + ", sensor " + c.sensor_id + ", " +
               std::to_string(c.filter_info.GetTotalNrBands()) + " bands, " +
               std::to_string(c.system_info.spectral_correction_info.correction_matrices.size()) +
               " matrices)";
      });
}

}  // namespace kelto::python

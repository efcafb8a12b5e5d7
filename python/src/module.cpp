// The compiled part of the Python package `kelto`; the package's __init__ re-exports it beside
// the pure-Python parts (reading with events, the analysis front, plots, Dask).
#include "bindings.h"

PYBIND11_MODULE(_kelto, m) {
  m.doc() = "Calibration records, correction matrices and the block correction of libkelto.";
  m.attr("__version__") = KELTO_VERSION;
  kelto::python::InstallLogSink();
  kelto::python::BindEnumerations(m);
  kelto::python::BindRecords(m);
  kelto::python::BindParameters(m);
  kelto::python::BindAnalysis(m);
  kelto::python::BindCorrection(m);
}

// Free functions around the parameter documents that the library carries for each sensor and
// filter combination it knows. Callers pick a document by a key such as "VKR9-QL150-470_900",
// the form that SensorCalibration::GetTypeName gives; the command-line tool lists the keys.
// Thread-safety: the documents are constant; SetCorrectionMatrixParameters changes the module,
// which the caller drives from one thread.
#pragma once

#include <string>
#include <vector>

#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>
#include <kelto/hyperspectral/correction/correction_matrix_parameters.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral::utilities {

// Reads the embedded document of `sensor_type` into `parameters`. The key is matched exactly,
// case included. Throws std::invalid_argument "Sensor type not found in resources map: <key>" for
// a key without a document, and std::runtime_error "An error occurred while reading the
// correction matrix parameters." when the document can't be read without any event above Ok;
// the events themselves are dropped.
KELTO_HYPERSPECTRAL_EXPORT void LoadCorrectionMatrixParameters(
    CorrectionMatrixParameters& parameters, const std::string& sensor_type);

// The keys that LoadCorrectionMatrixParameters knows, by sensor, then filter family.
KELTO_HYPERSPECTRAL_EXPORT std::vector<std::string> GetCorrectionMatrixParameterKeys();

// Hands the document's values to the module and its two children, in six steps that each read
// the current parameters of one structure, change the fields the document decides and set them
// again, so that every other field (the debug settings, say) keeps its value. Peak detection gets
// a minimum peak height of 0 and an asymmetry limit of 2; the inversion its variation bounds of 1.
// A value that a module refuses throws that module's exception; the steps before it stay done.
KELTO_HYPERSPECTRAL_EXPORT void SetCorrectionMatrixParameters(
    PM_SensorResponseAnalysis& module, const CorrectionMatrixParameters& parameters);
// The same with the embedded document of the key (see LoadCorrectionMatrixParameters).
KELTO_HYPERSPECTRAL_EXPORT void SetCorrectionMatrixParameters(PM_SensorResponseAnalysis& module,
                                                              const std::string& sensor_type);

}  // namespace kelto::hyperspectral::utilities

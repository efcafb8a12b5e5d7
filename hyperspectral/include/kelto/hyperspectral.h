// Everything of libkelto_hyperspectral and the libraries it stands on.
//
// How the library's classes behave (the family's general rules stand in <kelto/common.h>):
// - Calibration, optics and parameter records are plain values with no lock; a record belongs to
//   one thread at a time. SensorCalibration owns everything beneath it by value, down to the peaks
//   of each band. Only FilterZone::Create hands over a new object, which the caller deletes; a
//   pointer that a lookup returns (GetSensorProduct) points into the record it searched.
// - A record reports a file's problems as events in the ParsingResult and reads on. ReadFile and
//   its siblings throw only when the caller asks through the ParsingResult (throw_on_error); a
//   ReadXML called on a node of the caller's own can also let through the std::invalid_argument
//   or std::out_of_range of a few numbers of the oldest file forms (see SensorCalibration).
// - The PM_ modules and DataAccessor lock themselves: a module's computations, and the
//   accessor's set-up, start, stop and reads (SmoothenSpectrum aside), hold the object's own lock
//   for their whole length; a parent takes its lock before its children's.
//   PM_SensorResponseAnalysis owns its two children. Modules keep copies of the records they are
//   given, never pointers into them.
// - DataAccessor keeps pointers to the image and the correction matrix, which the caller keeps
//   alive and does not change while the accessor reads them.
// - BlockCorrector, RawFrameAssembler and SpectrumOperations have no lock and are read-only while
//   they work, so any number of threads may use one on disjoint outputs. The enumeration texts are
//   read-only after load. The library starts no thread.
#pragma once

#include <kelto/common.h>
#include <kelto/datatypes.h>
#include <kelto/geometry.h>

#include <kelto/hyperspectral/foundation/enumerations.h>

#include <kelto/hyperspectral/calibration/calibration_info.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/calibration/filter_info.h>
#include <kelto/hyperspectral/calibration/filter_zone.h>
#include <kelto/hyperspectral/calibration/optical_component.h>
#include <kelto/hyperspectral/calibration/rejection_filter.h>
#include <kelto/hyperspectral/calibration/sensor_calibration.h>
#include <kelto/hyperspectral/calibration/sensor_info.h>
#include <kelto/hyperspectral/calibration/spectral_correction_info.h>
#include <kelto/hyperspectral/calibration/system_info.h>

#include <kelto/hyperspectral/analysis/pm_peak_detection.h>
#include <kelto/hyperspectral/analysis/pm_sensor_response_analysis.h>

#include <kelto/hyperspectral/access/block_corrector.h>
#include <kelto/hyperspectral/access/data_accessor.h>
#include <kelto/hyperspectral/access/raw_frame_assembler.h>
#include <kelto/hyperspectral/access/spectrum_operations.h>
#include <kelto/hyperspectral/correction/correction_function.h>
#include <kelto/hyperspectral/correction/correction_matrix_parameters.h>
#include <kelto/hyperspectral/correction/pm_spectral_correction_computation.h>
#include <kelto/hyperspectral/correction/spline.h>
#include <kelto/hyperspectral/correction/spline_collection.h>
#include <kelto/hyperspectral/correction/spline_interpolation.h>
#include <kelto/hyperspectral/correction/utilities.h>
#include <kelto/hyperspectral/resources/parameter_resources.h>

#include <kelto/hyperspectral/management/context.h>
#include <kelto/hyperspectral/management/context_dao.h>
#include <kelto/hyperspectral/management/context_description.h>
#include <kelto/hyperspectral/management/filter_responses.h>
#include <kelto/hyperspectral/management/sensor_calibration_container.h>
#include <kelto/hyperspectral/management/sensor_calibration_utilities.h>
#include <kelto/hyperspectral/management/sensor_product_map.h>

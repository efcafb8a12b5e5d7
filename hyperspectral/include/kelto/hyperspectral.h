// Everything of libkelto_hyperspectral and the libraries it stands on.
#pragma once

#include <kelto/common.h>
#include <kelto/datatypes.h>
#include <kelto/geometry.h>

#include <kelto/hyperspectral/foundation/enumerations.h>
#include <kelto/hyperspectral/foundation/translator.h>

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

// Everything of libkelto_common: the XML record base, paths, time, logging, CSV and the small
// value types that the family shares.
#pragma once

#include <kelto/common/controller_module.h>
#include <kelto/common/filter_pattern.h>
#include <kelto/common/filter_response.h>
#include <kelto/common/logger.h>
#include <kelto/common/matrix.h>
#include <kelto/common/message_reporter.h>
#include <kelto/common/multi_dimensional_function.h>
#include <kelto/common/parameter.h>
#include <kelto/common/parameter_container.h>
#include <kelto/common/parameter_translator.h>
#include <kelto/common/parameterized_object.h>
#include <kelto/common/path.h>
#include <kelto/common/processing_module.h>
#include <kelto/common/read_by_version.h>
#include <kelto/common/region_of_interest.h>
#include <kelto/common/sensor_types.h>
#include <kelto/common/spectrum.h>
#include <kelto/common/stated_object.h>
#include <kelto/common/strings.h>
#include <kelto/common/three_parameters_function.h>
#include <kelto/common/time.h>
#include <kelto/common/utilities.h>
#include <kelto/common/vector.h>
#include <kelto/common/version.h>
#include <kelto/common/xml_serializable_interface.h>

// Everything of libkelto_common: the XML record base, paths, time, logging, CSV and the small
// value types that the family shares.
//
// The rules of the whole family, stated once:
// - Records (the classes derived from XMLSerializableInterface, and the small values beside them)
//   own what they hold by value, so copies are deep. They have no lock: a record belongs to one
//   thread at a time.
// - A record reports a file's problems as events in the ParsingResult of the read, reads on to the
//   end and keeps defaults for what is missing. ReadFile, ReadString and ReadStream throw only when
//   the caller asks for it through the ParsingResult (throw_on_error); without it they always
//   return, and a reader that gives up halfway becomes one more event.
// - Processing modules (ProcessingModule) and controllers (ControllerModule) lock themselves: a
//   module's public computations and a controller's operations hold the object's own mutex for
//   their whole length. A module's SetParameters, Initialize and Deallocate take no lock; call them
//   from the thread that drives the module. A module owns its children.
// - The Logger's sink is process-wide and called under one lock, so any thread may log.
// - Misuse in code is a standard exception with a literal text. No file that a program hands to
//   the family ends the process.
// Translator (kelto/common/translator.h) is the libraries' own tool for enumeration texts and is
// not included here.
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
#include <kelto/common/property_container.h>
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

// Everything of libkelto_common: the XML record base, paths, time, logging, CSV and the small
// value types that the family shares.
#pragma once

#include <kelto/common/logger.h>
#include <kelto/common/message_reporter.h>
#include <kelto/common/path.h>
#include <kelto/common/strings.h>
#include <kelto/common/version.h>
#include <kelto/common/xml_serializable_interface.h>

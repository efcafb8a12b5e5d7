// Everything of libkelto_geometry: shapes on the sensor and their run-length encodings.
#pragma once

#include <kelto/datatypes.h>
#include <kelto/geometry/abstract_shape.h>
#include <kelto/geometry/circle_shape.h>
#include <kelto/geometry/export.h>
#include <kelto/geometry/polygon_shape.h>
#include <kelto/geometry/rectangle_shape.h>
#include <kelto/geometry/shape_to_run_length_encoding_visitor.h>

// Everything of libkelto_geometry: shapes on the sensor and their run-length encodings.
//
// Shapes are plain values without a lock, read by any number of threads while none changes them.
// A ShapeToRunLengthEncodingVisitor keeps the conversion under way, so each thread uses its own;
// Convert returns the encoding by value.
#pragma once

#include <kelto/datatypes.h>
#include <kelto/geometry/abstract_shape.h>
#include <kelto/geometry/circle_shape.h>
#include <kelto/geometry/export.h>
#include <kelto/geometry/polygon_shape.h>
#include <kelto/geometry/rectangle_shape.h>
#include <kelto/geometry/shape_to_run_length_encoding_visitor.h>

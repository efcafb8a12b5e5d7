// Everything of libkelto_datatypes: numeric containers, band images and run-length
// encodings of the family.
#pragma once

#include <kelto/common.h>
#include <kelto/datatypes/abstract_band_image.h>
#include <kelto/datatypes/band_image_data_format.h>
#include <kelto/datatypes/band_image_data_info.h>
#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/data_format.h>
#include <kelto/datatypes/export.h>
#include <kelto/datatypes/hypercube.h>
#include <kelto/datatypes/matrix.h>
#include <kelto/datatypes/run_length_encoding.h>
#include <kelto/datatypes/vector.h>

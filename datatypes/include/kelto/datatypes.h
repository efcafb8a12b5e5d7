// Everything of libkelto_datatypes: numeric containers, band images and run-length
// encodings of the family.
//
// How these types behave (the family's general rules stand in <kelto/common.h>): none has a lock.
// An object may be read by several threads at once while no thread changes it, and is changed by
// one thread at a time. A Hypercube owns its samples and a format owns copies of its band
// descriptions. A Vector (and so a RowVector or ColumnVector) or a Matrix either owns its elements
// or views elements that someone else owns and keeps alive; a copy always owns. The band storages
// point into their image's memory and check no position.
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

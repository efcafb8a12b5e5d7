// Everything of libkelto_hyperspectral and the libraries it stands on.
#pragma once

#include <kelto/common.h>
#include <kelto/datatypes.h>
#include <kelto/geometry.h>

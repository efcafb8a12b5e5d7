#include <kelto/datatypes/abstract_band_image.h>

namespace kelto::datatypes {

AbstractBandImage::~AbstractBandImage() = default;

}  // namespace kelto::datatypes

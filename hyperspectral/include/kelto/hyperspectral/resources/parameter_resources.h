// The parameter documents that the library carries in its own data, one per sensor and filter
// combination: the UTF-8 text of the document and its length in bytes, without a terminating
// NUL. utilities::LoadCorrectionMatrixParameters looks them up by key; the names are kept as they
// are, also the two with a capital X (keys "VKR9-MZT4x4-460_600" and "VKR9-MZT5x5-665_975").
// Thread-safety: constant data; safe from any thread.
#pragma once

#include <cstdint>

#include <kelto/hyperspectral/export.h>

extern "C" {
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char TEM480_QL100_1100_1700_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t TEM480_QL100_1100_1700_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char TEM480_MZT3x3_1100_1700_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t TEM480_MZT3x3_1100_1700_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char TEM480_MZT4x4_1100_1700_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t TEM480_MZT4x4_1100_1700_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_QL100_600_1000_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_QL100_600_1000_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_QL150_470_900_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_QL150_470_900_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_MZT4x4_470_620_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_MZT4x4_470_620_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_MZT4X4_460_600_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_MZT4X4_460_600_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_MZT4x4_595_860_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_MZT4x4_595_860_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_MZT5X5_665_975_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_MZT5X5_665_975_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_MZT5x5_600_1000_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_MZT5x5_600_1000_xml_size;
KELTO_HYPERSPECTRAL_EXPORT extern const unsigned char VKR9_TZT32_600_1000_xml_data[];
KELTO_HYPERSPECTRAL_EXPORT extern const std::uint32_t VKR9_TZT32_600_1000_xml_size;
}

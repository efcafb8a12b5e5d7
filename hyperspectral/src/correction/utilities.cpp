#include <kelto/hyperspectral/correction/utilities.h>

#include <cstdint>
#include <exception>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <kelto/hyperspectral/resources/parameter_resources.h>

namespace kelto::hyperspectral::utilities {

namespace {

struct Resource {
  const char* key;
  const unsigned char* data;
  const std::uint32_t& size;
};

// The embedded documents by key, in the order in which they are listed.
const Resource kResources[] = {
    {"TEM480-QL100-1100_1700", TEM480_QL100_1100_1700_xml_data, TEM480_QL100_1100_1700_xml_size},
    {"TEM480-MZT3x3-1100_1700", TEM480_MZT3x3_1100_1700_xml_data, TEM480_MZT3x3_1100_1700_xml_size},
    {"TEM480-MZT4x4-1100_1700", TEM480_MZT4x4_1100_1700_xml_data, TEM480_MZT4x4_1100_1700_xml_size},
    {"VKR9-QL100-600_1000", VKR9_QL100_600_1000_xml_data, VKR9_QL100_600_1000_xml_size},
    {"VKR9-QL150-470_900", VKR9_QL150_470_900_xml_data, VKR9_QL150_470_900_xml_size},
    {"VKR9-MZT4x4-470_620", VKR9_MZT4x4_470_620_xml_data, VKR9_MZT4x4_470_620_xml_size},
    {"VKR9-MZT4x4-460_600", VKR9_MZT4X4_460_600_xml_data, VKR9_MZT4X4_460_600_xml_size},
    {"VKR9-MZT4x4-595_860", VKR9_MZT4x4_595_860_xml_data, VKR9_MZT4x4_595_860_xml_size},
    {"VKR9-MZT5x5-665_975", VKR9_MZT5X5_665_975_xml_data, VKR9_MZT5X5_665_975_xml_size},
    {"VKR9-MZT5x5-600_1000", VKR9_MZT5x5_600_1000_xml_data, VKR9_MZT5x5_600_1000_xml_size},
    {"VKR9-TZT32-600_1000", VKR9_TZT32_600_1000_xml_data, VKR9_TZT32_600_1000_xml_size},
};

}  // namespace

void LoadCorrectionMatrixParameters(CorrectionMatrixParameters& parameters,
                                    const std::string& sensor_type) {
  // Built on each call: a load happens once per matrix computation, and a table without static
  // state needs no thought about initialisation order or threads.
  std::map<std::string, std::pair<const unsigned char*, std::uint32_t>> documents;
  for (const Resource& resource : kResources) {
    documents.emplace(resource.key, std::make_pair(resource.data, resource.size));
  }
  const auto found = documents.find(sensor_type);
  if (found == documents.end()) {
    throw std::invalid_argument("Sensor type not found in resources map: " + sensor_type);
  }
  const auto& [data, size] = found->second;
  const std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
  // Strict: the documents are fixed, so any event above Ok is a fault of the library itself.
  CorrectionMatrixParameters::ParsingResult result(false, true, false, true, true);
  bool read = false;
  try {
    parameters.ReadStream(result, stream);
    read = result.state() == CorrectionMatrixParameters::ParsingResult::Ok;
  } catch (const std::exception&) {
  }
  if (!read) {
    throw std::runtime_error("An error occurred while reading the correction matrix parameters.");
  }
}

std::vector<std::string> GetCorrectionMatrixParameterKeys() {
  std::vector<std::string> keys;
  for (const Resource& resource : kResources) {
    keys.emplace_back(resource.key);
  }
  return keys;
}

}  // namespace kelto::hyperspectral::utilities

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fuzz_targets.h"

namespace kelto::fuzz {

namespace {
bool read_only = false;
}  // namespace

void SetReadOnly(bool value) {
  read_only = value;
}

bool ReadOnly() {
  return read_only;
}

void Fail(const std::string& what, const std::string& detail) {
  std::fprintf(stderr, "fuzz target failed: %s\n%s\n", what.c_str(), detail.c_str());
  std::fflush(stderr);
  std::abort();
}

std::uint8_t ByteReader::Byte() {
  return offset_ < size_ ? data_[offset_++] : 0;
}

double ByteReader::Double() {
  std::uint8_t bytes[sizeof(double)];
  for (std::uint8_t& byte : bytes) {
    byte = Byte();
  }
  double value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

double ByteReader::Number() {
  const std::uint8_t kind = Byte();
  if (kind < 128) {
    return static_cast<double>(kind) - 16.0;
  }
  return Double();
}

const std::vector<FuzzTarget>& FuzzTargets() {
  static const std::vector<FuzzTarget> targets = {
      {"calibration", FuzzCalibration},        {"record", FuzzRecord},
      {"parameters", FuzzParameters},          {"context_description", FuzzContextDescription},
      {"product_map", FuzzProductMap},         {"data_accessor", FuzzDataAccessor},
      {"block_corrector", FuzzBlockCorrector}, {"cube_reader", FuzzCubeReader},
  };
  return targets;
}

}  // namespace kelto::fuzz

// The libFuzzer entry of one target, chosen at build time by KELTO_FUZZ_TARGET.
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kelto::fuzz::KELTO_FUZZ_TARGET(data, size);
}

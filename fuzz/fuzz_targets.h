// The fuzz targets of the family: one function per kind of input a host program hands the
// libraries (calibration files, single records, parameter documents, context descriptions, product
// maps, band images for the data access and the block correction, image cubes for the tools).
// Each takes arbitrary bytes, must return 0 and must never crash, hang or leak; a broken promise
// (a written record that reads back differently, a spectrum of the wrong length) ends the process
// through Fail, so that libFuzzer reports the input. The libFuzzer programs and the replay driver
// of the test suite call the same functions. Not thread-safe: the cube target uses one in-memory
// file name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kelto::fuzz {

int FuzzCalibration(const std::uint8_t* data, std::size_t size);
int FuzzRecord(const std::uint8_t* data, std::size_t size);
int FuzzParameters(const std::uint8_t* data, std::size_t size);
int FuzzContextDescription(const std::uint8_t* data, std::size_t size);
int FuzzProductMap(const std::uint8_t* data, std::size_t size);
int FuzzDataAccessor(const std::uint8_t* data, std::size_t size);
int FuzzBlockCorrector(const std::uint8_t* data, std::size_t size);
int FuzzCubeReader(const std::uint8_t* data, std::size_t size);

struct FuzzTarget {
  const char* name;  // the folder of its corpus and regressions, "calibration"
  int (*run)(const std::uint8_t* data, std::size_t size);
};
const std::vector<FuzzTarget>& FuzzTargets();

// With true, the XML targets only read their input, without checks, summaries or round trip:
// what a host program pays for reading a file, as kelto_fuzz_replay --limits measures it.
void SetReadOnly(bool read_only);
bool ReadOnly();

// Prints what broke and aborts.
[[noreturn]] void Fail(const std::string& what, const std::string& detail);

// Reads fixed-size values from the front of a fuzzer's input, and zeros once it is used up, so
// that every input gives some shape.
class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::uint8_t Byte();
  // A number in [0, bound], bound < 256.
  unsigned long Small(unsigned long bound) { return Byte() % (bound + 1); }
  bool Flag() { return (Byte() & 1) != 0; }
  // Any 64 bits, NaN, infinities and subnormals included.
  double Double();
  // A double that is usually ordinary: half the time a small integer.
  double Number();
  // The bytes not read yet.
  const std::uint8_t* Rest() const { return data_ + offset_; }
  std::size_t Remaining() const { return size_ - offset_; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t offset_ = 0;
};

}  // namespace kelto::fuzz

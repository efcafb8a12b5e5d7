// Reading and writing a whole calibration (the two-zone wedge sample, 150 bands on a 601-point
// grid) against a plain libxml2 parse and serialisation of the same bytes: the ratios are what
// the record layer costs on top of the parser.

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <fstream>
#include <sstream>

#include <kelto/hyperspectral/calibration/sensor_calibration.h>

namespace {

using kelto::hyperspectral::SensorCalibration;

const std::string& SampleBytes() {
  static const std::string bytes = [] {
    std::ifstream stream(std::string(KELTO_SAMPLE_DIR) + "/calibrations/VKR9-QL150-470_900.xml",
                         std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
  }();
  return bytes;
}

void BM_PlainLibxml2Parse(benchmark::State& state) {
  const std::string& bytes = SampleBytes();
  for (auto _ : state) {
    xmlDoc* document = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                     XML_PARSE_NONET);
    benchmark::DoNotOptimize(document);
    xmlFreeDoc(document);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_PlainLibxml2Parse)->Unit(benchmark::kMillisecond);

// Serialising the parsed document again: the floor for writing the same file.
void BM_PlainLibxml2Write(benchmark::State& state) {
  const std::string& bytes = SampleBytes();
  xmlDoc* document = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                   XML_PARSE_NONET | XML_PARSE_NOBLANKS);
  for (auto _ : state) {
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(document, &text, &size, "UTF-8", 1);
    benchmark::DoNotOptimize(text);
    xmlFree(text);
  }
  xmlFreeDoc(document);
}
BENCHMARK(BM_PlainLibxml2Write)->Unit(benchmark::kMillisecond);

void BM_ReadCalibration(benchmark::State& state) {
  const std::string& bytes = SampleBytes();
  for (auto _ : state) {
    SensorCalibration calibration;
    SensorCalibration::ParsingResult result;
    calibration.ReadString(result, bytes);
    benchmark::DoNotOptimize(calibration.filter_info.filter_zones.size());
    if (result.state() != 0) {
      state.SkipWithError("the sample does not read cleanly");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_ReadCalibration)->Unit(benchmark::kMillisecond);

void BM_WriteCalibration(benchmark::State& state) {
  SensorCalibration calibration;
  SensorCalibration::ParsingResult result;
  calibration.ReadString(result, SampleBytes());
  for (auto _ : state) {
    const std::string text = calibration.WriteString();
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(BM_WriteCalibration)->Unit(benchmark::kMillisecond);

}  // namespace

// The XML targets: a document is read into a record, checked, summarised as the tools do, and
// written, read back and written again, which must give the same text. Vectors are written with
// fewer digits than a double holds, so the written form is what is compared, not the values.
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

#include <kelto/hyperspectral.h>

#include "fuzz_targets.h"
#include "record_kinds.h"

namespace kelto::fuzz {

namespace {

using common::XMLSerializableInterface;
using hyperspectral::FilterZone;
using ParsingResult = XMLSerializableInterface::ParsingResult;

std::string Text(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// A read without throw_on_error always returns, whatever the document.
void Read(XMLSerializableInterface& record, const std::string& text, ParsingResult& result) {
  try {
    record.ReadStream(result, std::istringstream(text));
  } catch (const std::exception& error) {
    Fail("a read threw", error.what());
  }
}

// The first line at which two texts differ, with both versions of it.
std::string FirstDifference(const std::string& first, const std::string& second) {
  std::istringstream a(first);
  std::istringstream b(second);
  std::string line_a;
  std::string line_b;
  for (int line = 1;; ++line) {
    const bool more_a = static_cast<bool>(std::getline(a, line_a));
    const bool more_b = static_cast<bool>(std::getline(b, line_b));
    if (!more_a && !more_b) {
      return "the texts differ in no line";
    }
    if (line_a != line_b || more_a != more_b) {
      return "line " + std::to_string(line) + ":\n  first:  " + (more_a ? line_a : "(end)") +
             "\n  second: " + (more_b ? line_b : "(end)");
    }
  }
}

// Three things do not survive a round trip by design, and are settled before the first write:
// a correction matrix of unknown type (older files, matrices made in code) is written as
// "unknown", which the reader takes for a reflectance matrix, as old files always meant; a
// zone's spectral limit of 0 (a zone made in code) is written as 0, which the reader takes for a
// limit the file left out, 400 or 1000 nm; and a zone without filter is read as a fresh one,
// whatever its element holds.
void Settle(hyperspectral::CorrectionMatrix& matrix) {
  if (matrix.type == hyperspectral::CorrectionMatrixTypes::CT_UNKNOWN) {
    matrix.type = hyperspectral::CorrectionMatrixTypes::CT_REFLECTANCE;
  }
}

void Settle(FilterZone& zone) {
  if (zone.filter_layout() == FilterZone::NO_FILTER) {
    // Read as a fresh zone whatever the file holds.
    const std::unique_ptr<FilterZone> fresh(FilterZone::Create(FilterZone::NO_FILTER));
    zone = *fresh;
    return;
  }
  if (zone.spectral_range_start_nm == 0.0) {
    zone.spectral_range_start_nm = 400.0;
  }
  if (zone.spectral_range_end_nm == 0.0) {
    zone.spectral_range_end_nm = 1000.0;
  }
}

template <typename Record>
void Settle(std::deque<Record>& records) {
  for (Record& record : records) {
    Settle(record);
  }
}

void SettleRoundTripValues(XMLSerializableInterface& record) {
  using namespace hyperspectral;
  if (auto* calibration = dynamic_cast<SensorCalibration*>(&record)) {
    Settle(calibration->system_info.spectral_correction_info.correction_matrices);
    Settle(calibration->filter_info.filter_zones);
  } else if (auto* filter = dynamic_cast<FilterInfo*>(&record)) {
    Settle(filter->filter_zones);
  } else if (auto* zone = dynamic_cast<FilterZone*>(&record)) {
    Settle(*zone);
  } else if (auto* system = dynamic_cast<SystemInfo*>(&record)) {
    Settle(system->spectral_correction_info.correction_matrices);
  } else if (auto* correction = dynamic_cast<SpectralCorrectionInfo*>(&record)) {
    Settle(correction->correction_matrices);
  } else if (auto* matrix = dynamic_cast<CorrectionMatrix*>(&record)) {
    Settle(*matrix);
  }
}

// Writes the record, reads the text into `fresh` and writes that: both texts must agree, and
// reading what the library wrote must not fail.
void CheckRoundTrip(XMLSerializableInterface& record, XMLSerializableInterface& fresh) {
  SettleRoundTripValues(record);
  std::string first;
  try {
    first = record.WriteString();
  } catch (const std::exception& error) {
    Fail("a record that was read can't be written", error.what());
  }
  ParsingResult result;
  Read(fresh, first, result);
  for (const auto& event : result.events()) {
    if (event.source == ParsingResult::Event::SanityCheck &&
        event.detail.rfind("stream: ", 0) == 0) {
      Fail("a written record is not a readable document", event.ToString() + "\n" + first);
    }
  }
  const std::string second = fresh.WriteString();
  if (first != second) {
    Fail("write, read and write again gave another text", FirstDifference(first, second));
  }
}

// A stream that swallows what the tools would print.
class NullStream : public std::ostream {
 public:
  NullStream() : std::ostream(nullptr) {}
};

// The tools' own checks and summary of a record of that root element.
void RunToolChecks(const XMLSerializableInterface& record, const char* root) {
  const tools::RecordKind* kind = tools::FindRecordKind(root);
  if (kind == nullptr) {
    return;
  }
  ParsingResult checks;
  kind->check(record, checks);
  NullStream out;
  kind->summarise(record, out, true);
}

// Reads the document into a record made by `make`, runs `check` on it, then the round trip into
// a second record made by `make`.
template <typename Record>
int ReadRecord(const std::string& text, const std::function<std::unique_ptr<Record>()>& make,
               const std::function<void(const Record&)>& check) {
  std::unique_ptr<Record> record = make();
  ParsingResult result;
  Read(*record, text, result);
  if (ReadOnly()) {
    return 0;
  }
  if (check) {
    check(*record);
  }
  std::unique_ptr<Record> fresh = make();
  CheckRoundTrip(*record, *fresh);
  return 0;
}

template <typename Record>
std::unique_ptr<Record> Make() {
  return std::make_unique<Record>();
}

template <typename Record>
void SanityChecks(const Record& record) {
  ParsingResult result;
  record.RunSanityChecks(result);
}

template <typename Record>
int Plain(const std::string& text) {
  return ReadRecord<Record>(text, Make<Record>, SanityChecks<Record>);
}

int Zone(const std::string& text, FilterZone::eFilterLayout layout) {
  return ReadRecord<FilterZone>(
      text, [layout] { return std::unique_ptr<FilterZone>(FilterZone::Create(layout)); },
      [](const FilterZone& zone) {
        SanityChecks(zone);
        // The steps divide by the pattern: a zone without one throws, as documented.
        if (zone.pattern_width != 0 && zone.pattern_height != 0) {
          (void)zone.GetBandStepX();
          (void)zone.GetBandStepY();
          (void)zone.GetPixelStepX();
          (void)zone.GetPixelStepY();
        }
      });
}

// The records a calibration is made of, each readable alone, in the order of the first byte.
const std::vector<std::function<int(const std::string&)>>& Records() {
  using namespace hyperspectral;
  static const std::vector<std::function<int(const std::string&)>> records = {
      [](const std::string& text) {
        return ReadRecord<SensorCalibration>(text, Make<SensorCalibration>,
                                             [](const SensorCalibration& calibration) {
                                               SanityChecks(calibration);
                                               RunToolChecks(calibration, "sensor_calibration");
                                             });
      },
      [](const std::string& text) {
        return ReadRecord<SensorInfo>(text, Make<SensorInfo>, [](const SensorInfo& sensor) {
          SanityChecks(sensor);
          RunToolChecks(sensor, "sensor_info");
        });
      },
      [](const std::string& text) {
        return ReadRecord<FilterInfo>(text, Make<FilterInfo>, [](const FilterInfo& filter) {
          SanityChecks(filter);
          (void)filter.GetTotalNrBands();
          RunToolChecks(filter, "filter_info");
        });
      },
      [](const std::string& text) { return Zone(text, FilterZone::NO_FILTER); },
      [](const std::string& text) { return Zone(text, FilterZone::WEDGE); },
      [](const std::string& text) { return Zone(text, FilterZone::TILED); },
      [](const std::string& text) { return Zone(text, FilterZone::MOSAIC); },
      Plain<FilterZone::BandInfo>,
      Plain<FilterZone::BandInfo::PeakInfo>,
      [](const std::string& text) {
        return ReadRecord<CalibrationInfo>(text, Make<CalibrationInfo>,
                                           [](const CalibrationInfo& grid) {
                                             SanityChecks(grid);
                                             RunToolChecks(grid, "calibration_info");
                                           });
      },
      [](const std::string& text) {
        return ReadRecord<CorrectionMatrix>(text, Make<CorrectionMatrix>,
                                            [](const CorrectionMatrix& matrix) {
                                              SanityChecks(matrix);
                                              RunToolChecks(matrix, "correction_matrix");
                                            });
      },
      Plain<CorrectionMatrix::VirtualBand>,
      Plain<SpectralCorrectionInfo>,
      Plain<SystemInfo>,
      Plain<OpticalComponent>,
      [](const std::string& text) {
        return ReadRecord<RejectionFilter>(text, Make<RejectionFilter>,
                                           [](const RejectionFilter& filter) {
                                             try {
                                               (void)filter.Convert();
                                             } catch (const std::invalid_argument&) {
                                               // A range the reader refused and cleared.
                                             }
                                           });
      },
  };
  return records;
}

}  // namespace

int FuzzCalibration(const std::uint8_t* data, std::size_t size) {
  return Records().front()(Text(data, size));
}

int FuzzRecord(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  return Records()[data[0] % Records().size()](Text(data + 1, size - 1));
}

int FuzzParameters(const std::uint8_t* data, std::size_t size) {
  return Plain<hyperspectral::CorrectionMatrixParameters>(Text(data, size));
}

int FuzzContextDescription(const std::uint8_t* data, std::size_t size) {
  return Plain<hyperspectral::ContextDescription>(Text(data, size));
}

int FuzzProductMap(const std::uint8_t* data, std::size_t size) {
  using hyperspectral::SensorProductMap;
  return ReadRecord<SensorProductMap>(
      Text(data, size), Make<SensorProductMap>, [](const SensorProductMap& map) {
        SanityChecks(map);
        // The die at each lattice's start and its neighbours on the lattice, on the lots and
        // wafers the map names.
        for (const auto& product : map.products) {
          const int lot = product.lot.empty() ? 0 : product.lot.front();
          const int wafer = product.wafer.empty() ? 0 : product.wafer.front();
          for (const long long dx : {-1LL, 0LL, 1LL}) {
            const long long x = product.x_start + dx * product.x_modulo;
            if (x < std::numeric_limits<int>::min() || x > std::numeric_limits<int>::max()) {
              continue;
            }
            const auto* found = hyperspectral::utilities::GetSensorProduct(
                map, lot, wafer, static_cast<int>(x), product.y_start);
            if ((found != nullptr) != hyperspectral::utilities::HasSensorProduct(
                                          map, lot, wafer, static_cast<int>(x), product.y_start)) {
              Fail("GetSensorProduct and HasSensorProduct disagree", product.product_tag);
            }
          }
        }
      });
}

}  // namespace kelto::fuzz

#include "calibration_commands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include <kelto/hyperspectral.h>

#include "command_support.h"
#include "pending_file.h"

namespace kelto::tools {

namespace {

using common::Logger;
using hyperspectral::SensorCalibration;
using hyperspectral::SensorCalibrationUtilities;
using ParsingResult = common::XMLSerializableInterface::ParsingResult;
namespace fs = std::filesystem;

// The *.xml files of a directory, in sorted name order.
std::vector<fs::path> XmlFiles(const fs::path& directory) {
  std::vector<fs::path> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    if (entry.is_regular_file() && entry.path().extension() == ".xml") {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Whether a read got as far as a record (else the file could not be read at all).
bool Started(const ParsingResult& result) {
  return std::any_of(result.events().begin(), result.events().end(), [](const auto& event) {
    return event.source == ParsingResult::Event::ReadStart;
  });
}

nlohmann::json Events(const ParsingResult& result) {
  nlohmann::json events = nlohmann::json::array();
  for (const auto& event : result.events()) {
    if (event.state != ParsingResult::Ok) {
      events.push_back({{"state", ParsingResult::Event::ToString(event.state)},
                        {"source", ParsingResult::Event::ToString(event.source)},
                        {"text", event.detail}});
    }
  }
  return events;
}

// The standard name of a calibration, refused when it would not parse back to the calibration's
// type (an unknown sensor or filter, or the placeholder id "0.0.0.0").
std::string StandardName(const SensorCalibration& calibration) {
  if (calibration.sensor_id == "0.0.0.0") {
    throw CommandError{kErrors, "the calibration has no sensor id of its own (\"0.0.0.0\")"};
  }
  const std::string stem = SensorCalibrationUtilities::GetSensorCalibrationFilename(calibration);
  try {
    SensorCalibrationUtilities::ParseSensorCalibrationFilename(stem);
  } catch (const std::exception& error) {
    throw CommandError{kErrors,
                       "its standard name \"" + stem + "\" would not parse back: " + error.what()};
  }
  return stem + ".xml";
}

}  // namespace

int RunConvert(const ConvertRequest& request) {
  return RunCommand(
      [&] {
        std::vector<fs::path> files;
        bool to_directory = request.inputs.size() > 1 || fs::is_directory(request.output);
        for (const std::string& input : request.inputs) {
          if (fs::is_directory(input)) {
            const auto found = XmlFiles(input);
            files.insert(files.end(), found.begin(), found.end());
            to_directory = true;
          } else {
            files.emplace_back(input);
          }
        }
        if (to_directory) {
          std::error_code error;
          fs::create_directories(request.output, error);
          if (!fs::is_directory(request.output)) {
            throw CommandError{kNotWritten, "cannot write into " + request.output};
          }
        }
        int worst = kOk;
        nlohmann::json report = nlohmann::json::array();
        for (const fs::path& file : files) {
          SensorCalibration calibration;
          ParsingResult result;
          calibration.ReadFile(result, file.string());
          const fs::path target =
              to_directory ? fs::path(request.output) / file.filename() : fs::path(request.output);
          std::string verdict = "converted";
          int code = kOk;
          const auto start = std::find_if(
              result.events().begin(), result.events().end(),
              [](const auto& event) { return event.source == ParsingResult::Event::ReadStart; });
          if (start == result.events().end()) {
            verdict = "unreadable";
            code = kUnreadable;
          } else if (start->detail != "sensor_calibration") {
            verdict = "holds a " + start->detail + " record, not a calibration";
            code = kUnreadable;
          } else if (result.state() == ParsingResult::Error && !request.force) {
            verdict = "refused: the read has errors (--force writes it all the same)";
            code = kErrors;
          } else {
            try {
              PendingFile pending(target.string());
              calibration.WriteFile(pending.Path());
              pending.Commit();
            } catch (const std::exception& error) {
              verdict = std::string("not written: ") + error.what();
              code = kNotWritten;
            }
          }
          worst = std::max(worst, code);
          std::cerr << file.string() << ": " << verdict
                    << (code == kOk ? " to " + target.string() : std::string()) << '\n';
          for (const auto& event : result.events()) {
            if (event.state != ParsingResult::Ok) {
              std::cerr << "  " << event.ToString() << '\n';
            }
          }
          report.push_back({{"file", file.string()},
                            {"output", code == kOk ? target.string() : ""},
                            {"verdict", verdict},
                            {"events", Events(result)}});
        }
        if (request.json) {
          std::cout << report.dump(2) << '\n';
        }
        return worst;
      },
      "the calibrations can't be converted");
}

int RunScan(const ScanRequest& request) {
  return RunCommand(
      [&] {
        if (!fs::is_directory(request.directory)) {
          throw CommandError{kUnreadable, request.directory + " is not a directory"};
        }
        hyperspectral::SensorCalibrationContainer container;
        int worst = kOk;
        nlohmann::json report = nlohmann::json::array();
        for (const fs::path& file : XmlFiles(request.directory)) {
          // The container says what it refuses through the reporter, which ends in the log.
          std::vector<std::string> messages;
          Logger::SetSink([&](Logger::eLevel, const std::string&, const std::string& message) {
            messages.push_back(message);
          });
          SensorCalibration calibration;
          ParsingResult result;
          calibration.ReadFile(result, file.string());
          const bool duplicate = Started(result) && result.state() == ParsingResult::Ok &&
                                 container.HasSensorCalibration(calibration.sensor_id);
          common::MessageReporter reporter;
          container.AddSensorCalibration(file.string(), &reporter);
          Logger::SetSink([](Logger::eLevel, const std::string&, const std::string&) {});
          nlohmann::json entry = {{"file", file.filename().string()}};
          if (duplicate) {
            entry["verdict"] = "skipped";
            entry["reason"] = "sensor_id " + calibration.sensor_id + " of an earlier file";
            worst = std::max<int>(worst, kWarnings);
          } else if (container.HasSensorCalibration(calibration.sensor_id) &&
                     container.GetFileName(calibration.sensor_id) == file.stem().string()) {
            entry["verdict"] = "accepted";
            entry["sensor_id"] = calibration.sensor_id;
            entry["standard_name"] =
                SensorCalibrationUtilities::GetSensorCalibrationFilename(calibration) + ".xml";
          } else {
            entry["verdict"] = "refused";
            entry["messages"] = messages;
            worst = std::max<int>(worst,
                                  result.state() == ParsingResult::Warning ? kWarnings : kErrors);
          }
          report.push_back(entry);
          if (!request.json) {
            std::cout << entry["file"].get<std::string>() << ": "
                      << entry["verdict"].get<std::string>();
            if (entry.contains("sensor_id")) {
              std::cout << ", sensor_id " << entry["sensor_id"].get<std::string>()
                        << ", standard name " << entry["standard_name"].get<std::string>();
            }
            if (entry.contains("reason")) {
              std::cout << ", duplicate " << entry["reason"].get<std::string>();
            }
            std::cout << '\n';
            for (const std::string& message : messages) {
              std::cout << "  " << message << '\n';
            }
          }
        }
        if (request.json) {
          std::cout << nlohmann::json{{"files", report}, {"exit_code", worst}}.dump(2) << '\n';
        }
        return worst;
      },
      "the directory can't be scanned");
}

int RunRename(const RenameRequest& request) {
  return RunCommand(
      [&] {
        SensorCalibration calibration;
        ReadRecord(calibration, request.file, "sensor_calibration", "calibration");
        const std::string name = StandardName(calibration);
        const fs::path source(request.file);
        const fs::path target = source.parent_path() / name;
        bool renamed = false;
        if (request.apply && source.filename() != name) {
          std::error_code error;
          if (fs::exists(target, error)) {
            throw CommandError{kNotWritten, target.string() + " exists already; nothing renamed"};
          }
          fs::rename(source, target, error);
          if (error) {
            throw CommandError{kNotWritten,
                               "cannot rename " + request.file + ": " + error.message()};
          }
          renamed = true;
        }
        if (request.json) {
          std::cout << nlohmann::json{{"file", request.file},
                                      {"standard_name", name},
                                      {"renamed", renamed}}
                           .dump(2)
                    << '\n';
        } else {
          std::cout << name << '\n';
        }
        return static_cast<int>(kOk);
      },
      "the calibration can't be named");
}

}  // namespace kelto::tools

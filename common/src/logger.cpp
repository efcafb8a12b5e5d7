#include <kelto/common/logger.h>

#include <iostream>
#include <mutex>

namespace kelto::common {

namespace {

std::mutex& SinkMutex() {
  static std::mutex mutex;
  return mutex;
}

Logger::Sink& CurrentSink() {
  static Logger::Sink sink;
  return sink;
}

}  // namespace

Logger::Logger(const std::string& name) : name_(name) {}

Logger::Logger(const std::string& name, Logger::Parameters const& parameters)
    : name_(name), parameters_(parameters) {}

void Logger::Error(const std::string& message) const {
  if (parameters_.enabled) {
    _Write(eLevel::Error, name_, message);
  }
}

void Logger::Info(const std::string& message) const {
  if (parameters_.enabled) {
    _Write(eLevel::Info, name_, message);
  }
}

void Logger::StaticError(const char* message) {
  _Write(eLevel::Error, "", message == nullptr ? "" : message);
}

void Logger::StaticInfo(const std::string& message) {
  _Write(eLevel::Info, "", message);
}

void Logger::SetSink(Sink sink) {
  std::lock_guard<std::mutex> lock(SinkMutex());
  CurrentSink() = std::move(sink);
}

void Logger::_Write(eLevel level, const std::string& name, const std::string& message) {
  std::lock_guard<std::mutex> lock(SinkMutex());
  if (CurrentSink()) {
    CurrentSink()(level, name, message);
    return;
  }
  std::cerr << (level == eLevel::Error ? "[error] " : "[info] ")
            << (name.empty() ? "" : name + ": ") << message << '\n';
}

}  // namespace kelto::common

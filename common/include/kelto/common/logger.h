// The log of the family. Modules and records write one message at a time through a named Logger
// or the static calls; every message ends in one process-wide sink that a host program can
// replace (to route messages into its own log) and tests can capture.
// Thread-safety: any thread may log; the sink is called and replaced under one process-wide lock.
#pragma once

#include <functional>
#include <string>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT Logger {
 public:
  enum class eLevel : int { Info = 0, Error = 1 };

  struct KELTO_COMMON_EXPORT Parameters {
    Parameters() = default;
    bool enabled = true;  // a disabled logger drops its messages
  };

  // Receives every message: its level, the name of the logger ("" for the static calls) and the
  // text. Called under a lock, so a sink needs no locking of its own.
  using Sink = std::function<void(eLevel, const std::string& name, const std::string& message)>;

  explicit Logger(const std::string& name);
  Logger(const std::string& name, Logger::Parameters const& parameters);
  virtual ~Logger() = default;

  void Error(const std::string& message) const;
  void Info(const std::string& message) const;
  const std::string& Name() const { return name_; }

  static void StaticError(const char* message);
  static void StaticInfo(const std::string& message);

  // Replaces the sink; an empty function restores the default, which writes
  // "[error] name: text" or "[info] name: text" lines to standard error.
  static void SetSink(Sink sink);

 private:
  static void _Write(eLevel level, const std::string& name, const std::string& message);

  std::string name_;
  Parameters parameters_;
};

}  // namespace kelto::common

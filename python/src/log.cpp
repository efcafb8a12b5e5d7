// The library's log in Python's logging, under the logger "kelto". The library writes its log
// from whatever thread runs it, with the GIL released, under the log's own lock: taking the GIL
// there could deadlock against a thread that holds the GIL and waits for that lock. So the sink
// only queues, and the bound calls hand the queue to logging when they have the GIL back.
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include <kelto/common/logger.h>

#include "bindings.h"

namespace kelto::python {

namespace {

using common::Logger;

// Enough for any one call; beyond it a runaway log is cut rather than kept in memory.
constexpr std::size_t kMaxQueued = 1000;

struct Message {
  Logger::eLevel level;
  std::string name;
  std::string text;
};

std::mutex& QueueMutex() {
  static std::mutex mutex;
  return mutex;
}

std::deque<Message>& Queue() {
  // Never destroyed: the library may log while the process ends.
  static auto* queue = new std::deque<Message>();
  return *queue;
}

}  // namespace

void InstallLogSink() {
  Logger::SetSink([](Logger::eLevel level, const std::string& name, const std::string& text) {
    const std::lock_guard<std::mutex> lock(QueueMutex());
    if (Queue().size() < kMaxQueued) {
      Queue().push_back({level, name, text});
    }
  });
}

void FlushLog() {
  std::deque<Message> messages;
  {
    const std::lock_guard<std::mutex> lock(QueueMutex());
    messages.swap(Queue());
  }
  if (messages.empty()) {
    return;
  }
  const py::object logging = py::module_::import("logging");
  for (const Message& message : messages) {
    std::string text = message.text;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
      text.pop_back();
    }
    const py::object logger =
        logging.attr("getLogger")(message.name.empty() ? "kelto" : "kelto." + message.name);
    logger.attr("log")(logging.attr(message.level == Logger::eLevel::Error ? "ERROR" : "INFO"),
                       text);
  }
}

LogFlush::~LogFlush() {
  // Also on the way out of an exception: the messages that led to it come first.
  try {
    FlushLog();
  } catch (...) {
    PyErr_Clear();
  }
}

}  // namespace kelto::python

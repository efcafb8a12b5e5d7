// Replays files through one fuzz target, as the test suite does with the corpus and with every
// input that ever found a fault: kelto_fuzz_replay [--limits] <target> <file or folder>...
// Folders are walked recursively. A failing input aborts the program after its path was printed.
//
// With --limits each input of up to 1 MiB runs in a child process of its own, and the XML targets
// only read it (SetReadOnly); the time and the peak resident memory beyond what the child held
// when it started are measured, and the program fails when an input takes more than 1 s or
// 17 MiB, the bounds a host program may expect of reading one file of up to 1 MiB.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_targets.h"

namespace {

// The input being replayed, for the signal handler.
char current_input[4096] = "";

void ReportInput(int signal) {
  const char prefix[] = "\nreplay stopped on input: ";
  (void)!write(STDERR_FILENO, prefix, sizeof prefix - 1);
  (void)!write(STDERR_FILENO, current_input, std::strlen(current_input));
  (void)!write(STDERR_FILENO, "\n", 1);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

std::vector<std::filesystem::path> InputsUnder(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> inputs;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      if (entry.is_regular_file()) {
        inputs.push_back(entry.path());
      }
    }
  } else if (std::filesystem::is_regular_file(path)) {
    inputs.push_back(path);
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

constexpr double kMaxSeconds = 1.0;
constexpr long kMaxKiB = 17 * 1024;
constexpr std::size_t kMaxInputBytes = 1 << 20;

// A line "<key>: <n> kB" of /proc/self/status.
long StatusKiB(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key, 0) == 0) {
      return std::stol(line.substr(std::strlen(key) + 1));
    }
  }
  return -1;
}

struct Cost {
  double seconds = 0.0;
  long kib = 0;  // peak resident memory beyond the child's start
  bool failed = false;
};

// Runs one input in a child; the child reports its cost through a pipe.
Cost MeasureInput(const kelto::fuzz::FuzzTarget& target, const std::vector<char>& content) {
  int channel[2];
  if (pipe(channel) != 0) {
    return {0.0, 0, true};
  }
  const pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    const long base = StatusKiB("VmRSS:");
    // Resets the peak (VmHWM) to the present size.
    std::ofstream("/proc/self/clear_refs") << "5";
    const auto start = std::chrono::steady_clock::now();
    target.run(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    Cost cost{elapsed.count(), StatusKiB("VmHWM:") - base, false};
    (void)!write(channel[1], &cost, sizeof cost);
    _exit(0);
  }
  close(channel[1]);
  Cost cost;
  const bool reported = read(channel[0], &cost, sizeof cost) == sizeof cost;
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  cost.failed = !reported || !WIFEXITED(status) || WEXITSTATUS(status) != 0;
  return cost;
}

std::vector<char> ReadInput(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A host that reads such files has set its libraries up already: GDAL registers its drivers on
// the first open and PROJ opens its database on the first map projection, some 10 and 7 MiB paid
// once per process. Every input is read once before any child is made, and the memory that
// reading freed goes back to the system, so that each child measures what one more file costs.
void WarmUp(const kelto::fuzz::FuzzTarget& target, int argc, char** argv) {
  for (int i = 2; i < argc; ++i) {
    for (const auto& input : InputsUnder(argv[i])) {
      const std::vector<char> content = ReadInput(input);
      if (content.size() <= kMaxInputBytes) {
        target.run(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
      }
    }
  }
  malloc_trim(0);
}

}  // namespace

int main(int argc, char** argv) {
  const bool limits = argc > 1 && std::strcmp(argv[1], "--limits") == 0;
  if (limits) {
    --argc;
    ++argv;
    kelto::fuzz::SetReadOnly(true);
  }
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s [--limits] <target> <file or folder>...\ntargets:", argv[0]);
    for (const auto& target : kelto::fuzz::FuzzTargets()) {
      std::fprintf(stderr, " %s", target.name);
    }
    std::fprintf(stderr, "\n");
    return 64;
  }
  const auto& targets = kelto::fuzz::FuzzTargets();
  const auto target = std::find_if(targets.begin(), targets.end(), [&](const auto& candidate) {
    return std::strcmp(candidate.name, argv[1]) == 0;
  });
  if (target == targets.end()) {
    std::fprintf(stderr, "unknown target %s\n", argv[1]);
    return 64;
  }
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    std::signal(signal, ReportInput);
  }
  if (limits) {
    WarmUp(*target, argc, argv);
  }
  const auto start = std::chrono::steady_clock::now();
  std::size_t count = 0;
  std::size_t bytes = 0;
  Cost worst_time;
  Cost worst_memory;
  std::string slowest;
  std::string largest;
  bool over = false;
  for (int i = 2; i < argc; ++i) {
    if (!std::filesystem::exists(argv[i])) {
      std::fprintf(stderr, "no such file or folder: %s\n", argv[i]);
      return 1;
    }
    for (const auto& input : InputsUnder(argv[i])) {
      std::snprintf(current_input, sizeof current_input, "%s", input.c_str());
      const std::vector<char> content = ReadInput(input);
      if (limits && content.size() > kMaxInputBytes) {
        continue;
      }
      if (limits) {
        const Cost cost = MeasureInput(*target, content);
        if (cost.failed) {
          std::fprintf(stderr, "input failed: %s\n", input.c_str());
          return 1;
        }
        if (cost.seconds > kMaxSeconds || cost.kib > kMaxKiB) {
          std::fprintf(stderr, "over the bounds: %s (%.3f s, %ld KiB)\n", input.c_str(),
                       cost.seconds, cost.kib);
          over = true;
        }
        if (cost.seconds >= worst_time.seconds) {
          worst_time = cost;
          slowest = input.string();
        }
        if (cost.kib >= worst_memory.kib) {
          worst_memory = cost;
          largest = input.string();
        }
      } else {
        target->run(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
      }
      ++count;
      bytes += content.size();
    }
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%s: %zu inputs, %zu bytes replayed in %.2f s\n", target->name, count, bytes,
              elapsed.count());
  if (limits) {
    std::printf("  slowest: %.3f s, %s\n  most memory: %ld KiB, %s\n", worst_time.seconds,
                slowest.c_str(), worst_memory.kib, largest.c_str());
  }
  return count == 0 || over ? 1 : 0;
}

// Replays files through one fuzz target, as the test suite does with the corpus and with every
// input that ever found a fault: kelto_fuzz_replay <target> <file or folder>... Folders are
// walked recursively. A failing input aborts the program after its path was printed.
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

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s <target> <file or folder>...\ntargets:", argv[0]);
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
  const auto start = std::chrono::steady_clock::now();
  std::size_t count = 0;
  std::size_t bytes = 0;
  for (int i = 2; i < argc; ++i) {
    if (!std::filesystem::exists(argv[i])) {
      std::fprintf(stderr, "no such file or folder: %s\n", argv[i]);
      return 1;
    }
    for (const auto& input : InputsUnder(argv[i])) {
      std::snprintf(current_input, sizeof current_input, "%s", input.c_str());
      std::ifstream file(input, std::ios::binary);
      const std::vector<char> content((std::istreambuf_iterator<char>(file)),
                                      std::istreambuf_iterator<char>());
      target->run(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
      ++count;
      bytes += content.size();
    }
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%s: %zu inputs, %zu bytes replayed in %.2f s\n", target->name, count, bytes,
              elapsed.count());
  return count == 0 ? 1 : 0;
}

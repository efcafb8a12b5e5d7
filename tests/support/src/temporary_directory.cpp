#include <kelto/test_support/temporary_directory.h>

#include <unistd.h>

#include <atomic>
#include <string>
#include <system_error>

namespace kelto::testing {

TemporaryDirectory::TemporaryDirectory() {
  static std::atomic<int> counter{0};
  path_ = std::filesystem::temp_directory_path() /
          ("kelto_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter++));
  std::filesystem::remove_all(path_);
  std::filesystem::create_directories(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace kelto::testing

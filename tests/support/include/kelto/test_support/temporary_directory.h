// A directory of its own for one test, under the system's temporary directory, removed with its
// contents at the end. The name carries the process id, so that parallel test processes never
// meet.
#pragma once

#include <filesystem>

namespace kelto::testing {

class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(TemporaryDirectory const&) = delete;
  TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
  ~TemporaryDirectory();

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace kelto::testing

// A file written under a temporary name beside its target and given the target's name only when
// complete, so that a failed or interrupted write never leaves a half-written file under that
// name. The tools write every output through it.
#pragma once

#include <string>

namespace kelto::tools {

class PendingFile {
 public:
  explicit PendingFile(std::string target);
  // Removes the temporary file unless Commit() has renamed it.
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  // Where the writer writes: the target's name with ".part" added, in the target's directory.
  const std::string& Path() const { return temporary_; }
  // Renames the temporary file to the target, replacing what was there; std::runtime_error
  // naming the target when the file is missing or the rename fails.
  void Commit();

 private:
  std::string target_;
  std::string temporary_;
  bool committed_ = false;
};

}  // namespace kelto::tools

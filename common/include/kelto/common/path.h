// A file-system path that remembers the text it was made from. Every file the family reads or
// writes is named by one; records, the container and the debug dumps pass them around.
// Thread-safety: a plain value; read by many threads while none changes it.
#pragma once

#include <filesystem>
#include <string>

#include <kelto/common/export.h>

namespace kelto::common::filesystem {

class KELTO_COMMON_EXPORT Path {
 public:
  Path() = default;
  Path(const char* text);         // NOLINT: implicit on purpose, paths are written as literals
  Path(const std::string& text);  // NOLINT
  Path(const std::filesystem::path& path);  // NOLINT
  Path(Path const&) = default;
  Path& operator=(Path const&) = default;
  Path(Path&&) = default;
  Path& operator=(Path&&) = default;
  ~Path() = default;

  // Whether a file or directory of that name exists; false for a path that can't be examined.
  bool Exists() const;
  // The text the path was made from.
  const std::string& ToString() const { return text_; }
  // The path's text as the file system sees it.
  std::string GetPath() const { return path_.string(); }
  // The file name less its last extension.
  std::string Stem() const { return path_.stem().string(); }
  const std::filesystem::path& Native() const { return path_; }

  bool operator==(Path const& other) const { return path_ == other.path_; }

 private:
  std::filesystem::path path_;
  std::string text_;
};

// Appends with one separator.
KELTO_COMMON_EXPORT Path operator/(Path const& left, Path const& right);

// Makes the directory and its parents; a directory that exists already is no error. Throws
// std::runtime_error when the directory can't be made.
KELTO_COMMON_EXPORT void CreateDirectories(Path const& path);

}  // namespace kelto::common::filesystem

#include <kelto/common/path.h>

#include <stdexcept>
#include <system_error>

namespace kelto::common::filesystem {

Path::Path(const char* text)
    : path_(text == nullptr ? "" : text), text_(text == nullptr ? "" : text) {}

Path::Path(const std::string& text) : path_(text), text_(text) {}

Path::Path(const std::filesystem::path& path) : path_(path), text_(path.string()) {}

bool Path::Exists() const {
  std::error_code error;
  return std::filesystem::exists(path_, error);
}

Path operator/(Path const& left, Path const& right) {
  return Path(left.Native() / right.Native());
}

void CreateDirectories(Path const& path) {
  std::error_code error;
  std::filesystem::create_directories(path.Native(), error);
  if (error || !std::filesystem::is_directory(path.Native(), error)) {
    throw std::runtime_error("cannot create directory " + path.ToString() + ": " + error.message());
  }
}

}  // namespace kelto::common::filesystem

#include "pending_file.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace kelto::tools {

PendingFile::PendingFile(std::string target)
    : target_(std::move(target)), temporary_(target_ + ".part") {}

PendingFile::~PendingFile() {
  if (!committed_) {
    std::error_code ignored;
    std::filesystem::remove(temporary_, ignored);
  }
}

void PendingFile::Commit() {
  std::error_code error;
  std::filesystem::rename(temporary_, target_, error);
  if (error) {
    throw std::runtime_error("cannot write " + target_ + ": " + error.message());
  }
  committed_ = true;
}

}  // namespace kelto::tools

// How the library's modules refuse: the text goes to the log first, then out as the exception.
#pragma once

#include <string>

#include <kelto/common/logger.h>

namespace kelto::hyperspectral {

template <typename Exception>
[[noreturn]] void Fail(const std::string& text) {
  common::Logger::StaticError(text.c_str());
  throw Exception(text);
}

}  // namespace kelto::hyperspectral

// Shared by the context description and the context loader: their log lines, and the read of a
// description file that both do with their own function name in the log.
#pragma once

#include <string>

#include <kelto/common/logger.h>
#include <kelto/common/path.h>
#include <kelto/hyperspectral/management/context_description.h>

namespace kelto::hyperspectral::context_log {

// "<function> (<line>) - <text>", the one form of every line that the context code logs.
std::string Format(const char* function, int line, const std::string& text);

// Both log only with a logger.
void Error(common::Logger* logger, const char* function, int line, const std::string& text);
void Info(common::Logger* logger, const char* function, int line, const std::string& text);

// Reads an existing description file; a read that ends in an exception is logged under
// `function`, its events follow, and std::runtime_error is thrown with the logged text.
void ReadDescription(ContextDescription& description, const common::filesystem::Path& path,
                     common::Logger* logger, const char* function);

}  // namespace kelto::hyperspectral::context_log

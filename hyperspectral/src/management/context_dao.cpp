#include <kelto/hyperspectral/management/context_dao.h>

#include <stdexcept>

#include <boost/format.hpp>

#include <kelto/hyperspectral/management/context_description.h>

#include "context_log.h"

namespace kelto::hyperspectral {

ContextDao::ContextDao(const std::string& name) : logger_(name, common::Logger::Parameters()) {}

void ContextDao::LoadContext(const common::filesystem::Path& directory, Context& context,
                             common::Logger* logger) {
  const common::filesystem::Path path = directory / ContextDescription::kFileName;
  // A directory without description comes from before descriptions existed: version 0.
  int version = 0;
  if (path.Exists()) {
    ContextDescription description;
    context_log::ReadDescription(description, path, logger, "LoadContext");
    version = description.version;
  }
  switch (version) {
    case 0:
      _LoadContext_V0(directory, context, logger);
      return;
    case 1:
      _LoadContext_V1(directory, context, logger);
      return;
    default: {
      const std::string text = (boost::format("Unsupported context version: %d") % version).str();
      context_log::Error(logger, "LoadContext", __LINE__, text);
      throw std::runtime_error(text);
    }
  }
}

void ContextDao::SaveContext(const common::filesystem::Path& /*directory*/,
                             const Context& /*context*/) {}

void ContextDao::_LoadContext_V0(const common::filesystem::Path& /*directory*/,
                                 Context& /*context*/, common::Logger* logger) {
  const std::string text = "Loading of contexts version 0 is not supported yet.";
  context_log::Error(logger, "_LoadContext_V0", __LINE__, text);
  throw std::runtime_error(text);
}

void ContextDao::_LoadContext_V1(const common::filesystem::Path& /*directory*/,
                                 Context& /*context*/, common::Logger* logger) {
  context_log::Info(logger, "_LoadContext_V1", __LINE__, "Loading context V1");
}

}  // namespace kelto::hyperspectral

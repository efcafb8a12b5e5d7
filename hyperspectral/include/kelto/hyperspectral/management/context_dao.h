// Loads the context directory of a camera. The directory's description decides the layout
// version; version 1 is recognised (there is nothing further in it to read yet), version 0
// (a directory without description) is not supported. Messages go to the logger given, each as
// "<function> (<source line>) - <text>".
// Thread-safety: LoadContext and SaveContext keep no state; threads may load different directories.
#pragma once

#include <string>

#include <kelto/common/logger.h>
#include <kelto/common/path.h>
#include <kelto/hyperspectral/export.h>
#include <kelto/hyperspectral/management/context.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT ContextDao {
 public:
  // The logger is named `name` and has default parameters.
  explicit ContextDao(const std::string& name);
  ContextDao(const ContextDao&) = delete;
  ContextDao& operator=(const ContextDao&) = delete;
  virtual ~ContextDao() = default;

  // The object's own logger, to hand to the loading operations.
  common::Logger* GetLogger() { return &logger_; }

  // Reads the description of `directory` (version 0 when there is none) and loads the context of
  // that version. Throws std::runtime_error "Unsupported context version: <n>" for a version
  // without a loader, the version 0 loader's refusal, and the errors of reading the description
  // (see ContextDescription::LoadContextDescription). A null logger logs nothing.
  static void LoadContext(const common::filesystem::Path& directory, Context& context,
                          common::Logger* logger);
  // Nothing of a context is written yet: does nothing and reports nothing.
  static void SaveContext(const common::filesystem::Path& directory, const Context& context);

 protected:
  static void _LoadContext_V0(const common::filesystem::Path& directory, Context& context,
                              common::Logger* logger);
  static void _LoadContext_V1(const common::filesystem::Path& directory, Context& context,
                              common::Logger* logger);

 private:
  common::Logger logger_;
};

}  // namespace kelto::hyperspectral

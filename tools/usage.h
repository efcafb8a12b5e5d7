// What both tools do with their command line before and after CLI11 has read it: the table of
// exit codes at the foot of every --help, a plain answer to a command that does not exist, and
// one exit code, 64, for every usage error.
#pragma once

#include <CLI/CLI.hpp>

#include <iostream>
#include <string>

#include "exit_codes.h"

namespace kelto::tools {

inline void AddExitCodeFooters(CLI::App& app) {
  app.footer(kExitCodeHelp);
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    command->footer(kExitCodeHelp);
  }
}

// Whether the first argument names a command the application lacks; says so on standard error
// with the list of commands. CLI11 would otherwise take the word for a stray argument and only
// ask for a command.
inline bool UnknownCommand(const CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') {
    return false;
  }
  const std::string word = argv[1];
  std::string commands;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (command->check_name(word)) {
      return false;
    }
    commands += (commands.empty() ? "" : ", ") + command->get_name();
  }
  std::cerr << app.get_name() << ": unknown command \"" << word << "\"; the commands are "
            << commands << " (see --help)\n";
  return true;
}

// Parses the command line: -1 when the program goes on, else its exit status (0 after --help or
// --version, 64 for any usage error, after CLI11's message).
inline int ParseCommandLine(CLI::App& app, int argc, char** argv) {
  if (UnknownCommand(app, argc, argv)) {
    return kUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == static_cast<int>(CLI::ExitCodes::Success) ? kOk : kUsage;
  }
  return -1;
}

}  // namespace kelto::tools

#pragma once
// The parser as a whole: its subcommands, help in Bulgarian, and the man page that is made from the same texts.

#include <CLI/CLI.hpp>
#include <string>

#include "tools/norvik/Command.h"

namespace cli {

void BuildCommandLine(CLI::App& norvik, Action& chosen);

// Prints what --help, --version or --man asked for; answers the exit status.
int PrintRequested(const CLI::App& norvik, const CLI::Success& request);

// What is wrong with the command line, in a sentence.
std::string ExplainWrongUse(const CLI::App& norvik, const CLI::ParseError& error);

// The manual page norvik(1) in roff.
std::string ManPage(const CLI::App& norvik);

}  // namespace cli

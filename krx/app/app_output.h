// What the krx program shows on the terminal and where it finds its data.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>

#include "krx/value.h"

namespace krxapp {

// How much of the log reaches the terminal.
enum class Verbosity {
  kQuiet,    // errors, warnings and message boxes only
  kNormal,   // everything, but an information line already shown once is not repeated
  kVerbose,  // every line
};

// Sends log lines ("[code] text"), message boxes ("[box TITLE] text") and other
// interaction notes to stderr; draws progress bars there when stderr is a terminal.
void InstallOutput(bool terminal, Verbosity verbosity);
// Ends a progress bar line still drawn and says how many repeated lines were not shown.
void FinishOutput();

// A command's return value as one line: true/false, a decimal number, or the text.
std::string FormatReturnValue(const KRX::CValue& value);

// Installation paths of kinds 1 to 4 that the environment (KRX_INSTALL_PATH_N) does not
// set: kind 1 is the user's folder (~/.krx, created on demand), kinds 3 and 4 the folder
// holding the plug-in's data tree (the source tree's data/ folder the program was built
// from, or data/ beside the program when it was moved), kind 2 stays empty.
void ApplyDefaultInstallationPaths(const std::filesystem::path& program_directory);

// What the loaded plug-ins registered, in registration order.
void PrintRegistrations(std::ostream& out);

}  // namespace krxapp

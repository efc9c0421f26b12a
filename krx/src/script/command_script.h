// Command scripts as the host's command log writes them, one command per line:
//   Retarget("hero", "villain", 1, 120)   # a comment
// Arguments: "text" in double quotes with backslash escapes (\" \\ \n \t), numbers
// (integers stay integers), true / false, and null for an argument left out.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "krx/value.h"

namespace KRX::rt {

struct ScriptCommand {
  std::string name;
  CValueArray args;
  int line = 0;  // 1-based line in the script
};

struct ScriptParseResult {
  bool ok = true;
  std::string error;  // "line 3, column 12: expected ')'"
  std::vector<ScriptCommand> commands;
};

// Parses one line. An empty or comment-only line gives ok with no command.
[[nodiscard]] ScriptParseResult ParseCommandLine(std::string_view line, int line_number = 1);
// Parses a whole script; stops at the first bad line.
[[nodiscard]] ScriptParseResult ParseCommandScript(std::string_view text);
// The command as a command log writes it (used to echo commands).
std::string FormatCommand(const ScriptCommand& command);

}  // namespace KRX::rt

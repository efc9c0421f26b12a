// The command history: the commands a user ran, as a command log writes them
// ("SelectObj(\"hero\", \"BRANCH\")"), while the preference "preferences.scripting.cmdlog"
// is on. Commands that commands run are not written, nor plug-in commands flagged not to
// be logged.
#pragma once

#include <string>
#include <vector>

namespace KRX::rt {

void AppendCommandHistory(std::string line);
const std::vector<std::string>& CommandHistory();
void ClearCommandHistory();

}  // namespace KRX::rt

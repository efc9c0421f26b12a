// The host log and the command history.
#include "runtime/log.h"

#include <utility>

#include "app/command_history.h"

namespace KRX::rt {

namespace {

struct LogState {
  std::vector<LogLine> lines;
  std::function<void(const LogLine&)> sink;
  std::vector<std::string> history;
};

LogState& State() {
  static LogState* state = new LogState;
  return *state;
}

}  // namespace

void Log(const CString& text, int severity) {
  LogState& state = State();
  state.lines.push_back({text, severity});
  if (state.sink) {
    // A sink that logs would call itself without end; it gets the line only.
    std::function<void(const LogLine&)> sink = std::move(state.sink);
    const LogLine line = state.lines.back();
    sink(line);
    if (!state.sink) state.sink = std::move(sink);
  }
}

const std::vector<LogLine>& LogLines() { return State().lines; }

void ClearLog() { State().lines.clear(); }

void SetLogSink(std::function<void(const LogLine&)> sink) { State().sink = std::move(sink); }

void AppendCommandHistory(std::string line) { State().history.push_back(std::move(line)); }

const std::vector<std::string>& CommandHistory() { return State().history; }

void ClearCommandHistory() { State().history.clear(); }

}  // namespace KRX::rt

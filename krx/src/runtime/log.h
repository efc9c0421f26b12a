// The host log. Every line is kept (tests read them back) and handed to the current sink
// (the krx program prints "[code] text" on stderr).
#pragma once

#include <functional>
#include <vector>

#include "krx/value.h"

namespace KRX::rt {

struct LogLine {
  CString text;
  int severity = kSeverityInfo;
};

void Log(const CString& text, int severity);
const std::vector<LogLine>& LogLines();
void ClearLog();
// Replaces the sink; an empty function sends nothing anywhere (lines are still kept).
void SetLogSink(std::function<void(const LogLine&)> sink);

}  // namespace KRX::rt

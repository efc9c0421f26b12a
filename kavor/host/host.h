// The host boundary as the rest of the plug-in sees it: text conversion, the log, the
// angle factors, the current time and running host commands by name.
//
// Host text is wide; files, paths and 8-bit interfaces hold one byte per character. A path
// is kept in a KRX::CString one byte per character too (the host widens bytes one to one),
// so a file name read from the file system converts back to the same bytes.
#pragma once

#include <string>
#include <string_view>

#include "krx/krx.h"

namespace kavor {

// Radians per degree and degrees per radian, as function curves and pages use them.
inline constexpr double kDegreesToRadians = 0.017453292519943295;
inline constexpr double kRadiansToDegrees = 57.29577951308;
// The factor that the neutral pose is read with. It is a shorter decimal than
// kDegreesToRadians; stored neutral poses were computed with it, so keep it as it is.
inline constexpr double kNeutralPoseDegreesToRadians = 0.01745329252;

// A time argument meaning "the current frame of Play Control" (the largest double).
inline constexpr double kCurrentTime = KRX::kCurrentTime;

// 8-bit text, one byte per character; characters above 255 become '?'.
std::string ToNarrow(const KRX::CString& text);
// Each byte widened to one character.
KRX::CString ToWide(std::string_view text);

// The host log with severity 8 (information and progress notes), 4 (warning), 2 (error).
void LogInfo(const KRX::CString& text);
void LogWarning(const KRX::CString& text);
void LogError(const KRX::CString& text);

// Runs a host or plug-in command by name with its arguments in order (an empty value
// leaves an argument out). Returns the command's return value, empty when it has none or
// when the command failed.
KRX::CValue RunCommand(const KRX::CString& name, const KRX::CValueArray& args = {});

// The same, telling whether the command succeeded; `result` (optional) receives the
// return value.
bool TryRunCommand(const KRX::CString& name, const KRX::CValueArray& args,
                   KRX::CValue* result = nullptr);

}  // namespace kavor

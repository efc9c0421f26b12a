// Telling the user about a failure.
#pragma once

#include "krx/value.h"

namespace kavor {

// The title of every warning box the plug-in shows.
inline constexpr const wchar_t* kWarningTitle = L"ZRKRetarget";

// Logs `text` as a warning (severity 4) and shows it in a host message box with style 48
// (a warning with an OK button) titled "ZRKRetarget". Returns the box's result
// (KRX::MsgBoxResult), 0 when the box could not be shown. Every user-facing failure
// message of the workflows goes through here.
int ShowWarning(const KRX::CString& text);

}  // namespace kavor

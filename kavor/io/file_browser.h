// The host's file browser, reached through its scripting layer.
#pragma once

#include "krx/value.h"

namespace kavor {

// Shows the host file browser and gives the chosen path; empty when no file was chosen
// (cancelled, or the browser is not available, which is logged as an error).
// `filter` is host filter text such as "Load Template (*.tagt)|*.tagt||"; `open` true shows
// an open dialog, false a save dialog.
KRX::CString BrowseForFile(const KRX::CString& filter, const KRX::CString& title,
                           const KRX::CString& initial_folder, bool open);

// The folder a browser starts in when nothing better is known: the user's home folder,
// with a trailing "/"; "/" when there is none.
KRX::CString DefaultBrowseFolder();

}  // namespace kavor

// XML files as files: telling them from the older text forms, and writing them safely.
#pragma once

#include <string_view>

#include "krx/value.h"

namespace kavor {

// True when `path` is a regular file that opens and whose first five bytes are "<?xml"
// (exact case). A UTF-8 byte order mark before them is skipped: the documents this system
// writes start with one, and they must be recognised as XML when read back. A shorter
// file, a folder or a FIFO is not XML. Never blocks.
bool IsXmlFile(const KRX::CString& path);

// Replaces the file at `path` with `bytes`. The bytes go to a temporary file beside it,
// which is then renamed over `path`, so that a failed write leaves the old file whole.
// False with the reason in `why` (optional) when the file cannot be written.
bool ReplaceFileContents(const KRX::CString& path, std::string_view bytes,
                         KRX::CString* why = nullptr);

}  // namespace kavor

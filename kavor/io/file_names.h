// Small helpers over file names and paths. Paths are host text, one byte per character;
// both "/" and "\" count as folder separators.
#pragma once

#include "krx/value.h"

namespace kavor {

// The text before the first ".structure" in `name` ("human.structure.bak" gives "human");
// `name` unchanged when it holds none.
KRX::CString StripStructureExtension(const KRX::CString& name);

// `path` up to and including its last "/" or "\"; empty when it has neither.
KRX::CString DirectoryOf(const KRX::CString& path);

// The characters after the last "." of `path`, upper-cased ("a.b.tagt" gives "TAGT");
// the whole path upper-cased when it has no ".". Callers compare it with words such as
// "TAGT".
KRX::CString UpperExtension(const KRX::CString& path);

// True when `path` names a regular file that opens for reading. Never blocks (a FIFO is
// not a regular file and is not opened for waiting).
bool FileExists(const KRX::CString& path);

// True when `path` is usable as a native path: not empty and without NUL characters
// (which would silently cut the path short).
bool IsUsablePath(const KRX::CString& path);

}  // namespace kavor

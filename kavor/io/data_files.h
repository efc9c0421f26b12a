// The plug-in's data folders and the kinds of file kept in them.
//
// Data lives below three roots, one per host installation path of kind 1, 2 and 3: the
// installation path followed by "/Addons/Trevalin/Data/". A root whose installation path
// is empty stays empty. The roots are computed once per process, on first use.
//
// Each file kind names a folder below a root and an extension:
//
//   kind 0  Structures/        .structure   structure files
//   kind 1  Structures/        .base        base files of structures
//   kind 2  Structures/Mocap/  .structure   motion-capture structure files
//   kind 3  TagTemplates/      .tagt        tag templates
//
// Searches run from a starting root (1, 2 or 3) to root 3, in that order.
#pragma once

#include <array>
#include <vector>

#include "krx/value.h"

namespace kavor {

// The numbers are what callers pass around: be careful when changing them.
enum class DataFileKind : int {
  kStructure = 0,
  kStructureBase = 1,
  kMocapStructure = 2,
  kTagTemplate = 3,
};

inline constexpr int kDataRootCount = 3;
inline constexpr int kFirstDataRoot = 1;

// The folder below every installation path that holds the data.
inline constexpr const wchar_t* kDataFolderSuffix = L"/Addons/Trevalin/Data/";

// Extensions that stand beside the kinds without a folder of their own.
inline constexpr const wchar_t* kRetargetExtension = L".retarget";
inline constexpr const wchar_t* kFramePresetExtension = L".frpre";

// "Structures/", ... with the trailing separator; empty for a kind outside 0..3.
KRX::CString DataFileFolder(DataFileKind kind);
// ".structure", ...; empty for a kind outside 0..3.
KRX::CString DataFileExtension(DataFileKind kind);

// Roots 1 to 3 (index 0 is root 1), computed on first use.
const std::array<KRX::CString, kDataRootCount>& DataRoots();
// Forgets the roots so that the next use computes them again from the host's installation
// paths (for a host whose paths changed, and for tests).
void ResetDataRoots();

// Root `root` (1..3) followed by the kind's folder; empty when the root is empty or out of
// range.
KRX::CString DataFolderPath(DataFileKind kind, int root = kFirstDataRoot);

// Looks for `name` (no folder, no extension) of `kind` below each root from `start_root`
// to root 3 and gives the first path that opens for reading as a regular file. An empty
// root is tried too: the path is then relative (folder + name + extension). A starting
// root beyond 3 finds nothing; one below 1 starts at root 1. A name holding a folder
// separator or a NUL character is never looked for, so a name cannot lead the search into
// another folder.
bool FindDataFile(DataFileKind kind, const KRX::CString& name, int start_root,
                  KRX::CString* path);

// Clears `names`, then appends the file names (name and extension, no folder) of the files
// of `kind` below each non-empty root from `start_root` to root 3, in the order the file
// system lists each folder. A name found below two roots is listed twice. Only regular
// files are listed; the extension is matched exactly.
void ListDataFiles(DataFileKind kind, int start_root, std::vector<KRX::CString>* names);

}  // namespace kavor

// Rules for names that come from files.
//
// Node, group and sub-control names of a structure become parameter and button names on
// the tag page and table names on a model, so they are kept to letters, digits and "_",
// and the names the tag page uses for itself are refused. File names found inside files
// (a structure's base file, a template's structure) reach the data-folder search, so they
// must be plain names: nothing that could lead the search into another folder.
#pragma once

#include <string_view>

namespace kavor {

// ASCII letters compared without regard to case; other bytes exactly. Independent of the
// process locale.
bool EqualNoCase(std::string_view a, std::string_view b);

// True for a non-empty name of at most 255 bytes without "/", "\", "..", or control
// characters.
bool IsPlainDataFileName(std::string_view name);

// True for a non-empty name of at most 255 bytes made of ASCII letters, digits and "_".
bool IsStructureNameWord(std::string_view name);

// True for names the tag page keeps for itself: its fixed parameters, its buttons, names
// starting with its "Select_" button prefix, and "world" (a group parent word). Compared
// without regard to case.
bool IsReservedNodeName(std::string_view name);

}  // namespace kavor

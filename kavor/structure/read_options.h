// How strictly the text readers of structure, base, tag template and map files take what
// they are given.
//
// By default these files are read the way they have always been read, so that every file
// that loaded before still loads the same:
// - a file that ends inside a block or a node entry ends the block there; the numbers the
//   entry misses read 0, and a tag template's value list ends with the values present;
// - a number is the leading number of its token, the rest of the token going with it: "0}"
//   reads 0 and takes the brace along, "x" reads 0;
// - node and group names may repeat (looking a node up by name finds the first), and may be
//   names the tag page uses for its own parameters and buttons.
//
// Strict reading refuses each of these with a message that names the file and line: a
// missing blank before a brace or a stray word otherwise shifts the rest of a group without
// a word, and a repeated name leaves a node that no tag can reach.
//
// Either way, input that cannot be held safely is refused: numbers that are not finite or
// do not fit their type, names with characters other than ASCII letters, digits and "_",
// more nodes or a deeper hierarchy than the bounds of model_structure.h, base file names
// that could lead the search into another folder.
#pragma once

namespace kavor {

// The plug-in's preferences (KAVOR.ini, see kavor/xml/preferences.h) hold the switches, in
// the section "READING" as integers, 0 for off:
//   <READING><STRICT_READING>1</STRICT_READING><STRICT_INHERIT>0</STRICT_INHERIT></READING>
// STRICT_READING switches strict reading on for every read the plug-in makes on its own
// (commands, pages, flows); STRICT_INHERIT is the inherit flow's switch (tag_templates.h).
// A switch that is missing is written as 0 the first time it is read, so that the file
// shows it. Without a preferences file (no installation path) every switch is off.
// They are stored in users' files: be careful when changing them.
inline constexpr const wchar_t* kReadingSection = L"READING";
inline constexpr const wchar_t* kStrictReadingKey = L"STRICT_READING";
inline constexpr const wchar_t* kStrictInheritKey = L"STRICT_INHERIT";

struct StructureReadOptions {
  bool strict = false;
};

// The options the plug-in's preferences ask for.
StructureReadOptions PreferredStructureReadOptions();

// Whether the switch `key` of the "READING" section is on.
bool ReadingSwitchIsOn(const wchar_t* key);

}  // namespace kavor

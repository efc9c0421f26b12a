// The plug-in's preferences: the folder last used for each kind of file and a few page
// settings, kept in the XML file "KAVOR.ini" in the host's installation folder of kind 1.
//
// The file holds the document element "ROOT", one element per section below it and one
// element per key below a section, whose text is the value. Integers are written as
// decimal text.
#pragma once

#include "kavor/xml/xml_document.h"
#include "krx/value.h"

namespace kavor {

// Sections and keys. They are stored in users' files: be careful when changing them.
inline constexpr const wchar_t* kPreferencesFileName = L"KAVOR.ini";
inline constexpr const wchar_t* kFilePathsSection = L"FILEPATHS";
inline constexpr const wchar_t* kAdjustmentPresetsKey = L"ADJUSTMENT_PRESETS";
inline constexpr const wchar_t* kTagTemplateFilesKey = L"TAGT_FILES";
inline constexpr const wchar_t* kBvhTagTemplateFilesKey = L"BVH_TAGT_FILES";
inline constexpr const wchar_t* kBvhFilesKey = L"BVH_FILES";
inline constexpr const wchar_t* kC3dFilesKey = L"C3D_FILES";
inline constexpr const wchar_t* kC3dPoseFilesKey = L"C3DPOSE_FILES";
inline constexpr const wchar_t* kKavorFilesKey = L"KAVOR_FILES";
inline constexpr const wchar_t* kStructuresSection = L"STRUCTURES";
inline constexpr const wchar_t* kStructureTagKey = L"STRUCTURE_TAG";
inline constexpr const wchar_t* kStructureFitKey = L"STRUCTURE_FIT";
inline constexpr const wchar_t* kDataSection = L"DATA";
inline constexpr const wchar_t* kMocapFileTypeKey = L"MOCAP_FILE_TYPE";

// The preferences file: the installation path of kind 1 followed by "/KAVOR.ini"; empty
// when the host has no such installation path.
KRX::CString PreferencesFilePath();

// The preferences, open for one operation: read on construction (a missing file gives an
// empty "ROOT"), written back on Close() or destruction, after which errors met while
// reading are shown in one warning box. Reads never fail: a missing key is created with
// the caller's default. Without an installation path nothing is read or written and every
// read gives its default.
class Preferences {
 public:
  // Opens PreferencesFilePath().
  Preferences();
  // Opens the preferences kept in `path`.
  explicit Preferences(const KRX::CString& path);
  ~Preferences() = default;
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  // The key's text when its element holds text first. Otherwise `fallback` is stored as
  // its text (the section and key elements are created when missing) and returned.
  KRX::CString GetString(const KRX::CString& section, const KRX::CString& key,
                         const KRX::CString& fallback);
  // Stores `value` as the key's text; under "FILEPATHS" only its folder part (up to and
  // including the last "/" or "\") is stored. A key element whose first child is not text
  // is left as it is.
  void SetString(const KRX::CString& section, const KRX::CString& key, const KRX::CString& value);
  // As GetString, for a decimal integer. A key whose text is not an integer gives
  // `fallback` and keeps its text.
  int GetInteger(const KRX::CString& section, const KRX::CString& key, int fallback);
  void SetInteger(const KRX::CString& section, const KRX::CString& key, int value);

  // Writes the file and shows the errors met while reading; see XmlDocument::Close().
  bool Close() { return document_.Close(); }
  XmlDocument& Document() { return document_; }

 private:
  XmlDocument document_;
};

}  // namespace kavor

// Writing an XML document element by element straight to a file, for documents too large
// to build in memory first (motion files).
//
// The bytes are exactly those XmlDocument::Close writes for the same tree, so that a file
// written either way is the same file and reads back the same: a UTF-8 byte order mark,
// the declaration `<?xml version="1.0" encoding="UTF-8" standalone="no" ?>`, each element on
// its own line indented by two spaces per level (with a blank line before the document
// element's children and before its end tag), attributes in the order of their names,
// an element with neither children nor text written as `<name .../>`, text written right
// after the start tag or the element before it, and a line feed after the document.
// Attribute values escape & < " tab, line feed and carriage return; text escapes & < > and
// carriage return. Characters XML cannot carry become '?' as they do in XmlDocument.
//
// Errors are collected as in XmlDocument: a writer that failed keeps taking calls (they
// write nothing once the file failed) and Finish() reports. Element and attribute names
// are the caller's constants and must be valid XML names.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kavor/xml/xml_file.h"
#include "krx/math.h"
#include "krx/value.h"

namespace kavor {

class XmlStreamWriter {
 public:
  // Opens the temporary file beside `path` and writes the declaration; the document
  // element comes with the first StartElement. A file that cannot be created collects
  // "DOM Exception Writing <path>\n reports: \n<why>".
  explicit XmlStreamWriter(const KRX::CString& path);
  XmlStreamWriter(const XmlStreamWriter&) = delete;
  XmlStreamWriter& operator=(const XmlStreamWriter&) = delete;

  // Starts an element below the open one (or the document element).
  void StartElement(std::string_view name);
  // Sets an attribute of the element just started, before its children and text. Setting
  // a name twice keeps the last value.
  void Attribute(std::string_view name, const KRX::CString& value);
  // The same for a value that is plain ASCII needing no escapes (numbers).
  void AsciiAttribute(std::string_view name, std::string_view value);
  // Number text (xml_values.h); a value that is not finite collects
  // "Atribute : <name> not written: not a finite number" and is left out.
  void NumberAttribute(std::string_view name, double value);
  // Transformation text (xml_values.h); one that holds a value that is not finite collects
  // "Error writing CTransformation Attribute : <name> under : <element>: a value is not a
  // finite number" and is left out.
  void TransformAttribute(std::string_view name, const KRX::MATH::CTransformation& value);
  // Text inside the open element (an empty text still gives `<name></name>`).
  void Text(const KRX::CString& text);
  // Ends the open element.
  void EndElement();
  // StartElement, Text, EndElement.
  void TextElement(std::string_view name, const KRX::CString& text);

  // Collects `text` as an error of the document.
  void AddError(const KRX::CString& text) { errors_.push_back(text); }
  const std::vector<KRX::CString>& Errors() const { return errors_; }
  // True until an error was collected.
  bool IsValid() const { return errors_.empty(); }
  // False once the file could not be created.
  bool IsOpen() const { return file_.IsOpen(); }

  // Ends the elements still open, then writes the file over the path. Returns IsValid()
  // after that (a failed write collects an error as creating does).
  bool Finish();

 private:
  struct Open {
    std::string name;
    bool has_children = false;
  };
  // Writes the start tag of the element just started, when it is still pending, ending it
  // with `tag_end`.
  void CloseStartTag(std::string_view tag_end = ">");
  void NewLine(size_t level, bool first_level_gap);

  KRX::CString path_;
  ReplacingFileWriter file_;
  std::vector<KRX::CString> errors_;
  std::vector<Open> open_;
  // The attributes of the element just started, before its start tag is written.
  std::vector<std::pair<std::string, std::string>> pending_;
  bool start_pending_ = false;
  bool finished_ = false;
};

}  // namespace kavor

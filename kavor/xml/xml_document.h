// One XML file as a DOM document with a fixed life cycle and a list of collected errors.
//
// A document is opened on a path, read or built, and closed. Closing writes it back when
// it was opened for writing and, when it was opened for loading, shows every error
// collected while it lived in one warning box. Nothing here throws: parser and DOM
// failures become error texts, and a helper that fails returns false or null, collects a
// message and marks the document invalid. Callers decide by the result or by IsValid()
// whether to go on.
//
// Files are untrusted input. A document type declaration is refused (so no entity can be
// declared, expanded or loaded from elsewhere), files larger than kMaxXmlFileBytes are
// not read, and elements nested deeper than kMaxXmlDepth are refused.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

#include "krx/math.h"
#include "krx/value.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
XERCES_CPP_NAMESPACE_END

namespace kavor {

using XmlElement = xercesc::DOMElement;

class XercesPlatform;

// The largest file a document reads (256 MiB).
inline constexpr size_t kMaxXmlFileBytes = size_t{256} << 20;
// The deepest element nesting a document accepts; the document element is at depth 1.
inline constexpr int kMaxXmlDepth = 128;
// The document element of a new document.
inline constexpr const wchar_t* kXmlRootName = L"ROOT";

class XmlDocument {
 public:
  XmlDocument();
  // Open(path, load, write).
  XmlDocument(const KRX::CString& path, bool load, bool write);
  // Closes the document when it is still open.
  ~XmlDocument();
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;

  // Records the path and flags and marks the document valid (closing any document this
  // object held before). With `load` and a file at `path`, the file is parsed; a file that
  // does not parse leaves no document and collects the parser's errors. Otherwise, with
  // `write`, a new document whose element is "ROOT" is made. With neither, there is no
  // document.
  void Open(const KRX::CString& path, bool load, bool write);

  // As Open with `load` for a file at `path` holding `bytes`: parses the bytes, reporting
  // them under `path`. Writing goes to `path` as usual.
  void OpenFromBytes(const KRX::CString& path, std::string_view bytes, bool write);

  // With the write flag, writes the document to the path, pretty-printed, UTF-8 with a
  // byte order mark. Releases the document. Then, with the load flag and errors
  // collected, shows them in one warning box. Returns IsValid() as it stands after
  // writing. Closing a closed document does nothing and returns IsValid().
  bool Close();

  bool IsOpen() const { return open_; }
  bool IsValid() const { return valid_; }
  const KRX::CString& Path() const { return path_; }
  const std::vector<KRX::CString>& Errors() const { return errors_; }
  // Collects `text` and marks the document invalid.
  void AddError(const KRX::CString& text);

  // The DOM document and its document element; null when there is none (a file that did
  // not parse, or no file and no write flag). Owned by this object until Close().
  xercesc::DOMDocument* Document() const { return document_; }
  XmlElement* DocumentElement() const;

  // The document as Close() writes it: UTF-8 with a byte order mark, pretty-printed.
  // Blank layout around text next to child elements is dropped first (see parsed_tree.h),
  // so that what is written reads back as it was.
  // False (collecting a message) when there is no document or the DOM cannot be written.
  bool Serialize(std::string* bytes);

  // ---- helpers that collect errors (null elements are treated as missing) ----

  // Finds ChildElement(parent, name). Found: sets `out` to its text when its first child
  // is text (otherwise leaves `out` as it is) and returns true. Not found: collects
  // "DOMElement : <name> not found under : <parent name>" and returns false.
  bool ReadChildText(const XmlElement* parent, const KRX::CString& name, KRX::CString* out);

  // Sets `out` to the attribute's value. Missing: collects "Atribute : <name> not found
  // under : <element name>", leaves `out` as it is and returns false.
  bool ReadAttribute(const XmlElement* element, const KRX::CString& name, KRX::CString* out);

  // Reads the attribute as a transformation (see xml_values.h): its translation and
  // rotation set `out`, scaling stays. A missing attribute fails as ReadAttribute does;
  // text that is not seven numbers collects "Error reading CTransformation Attribute :
  // <name> not found under : <element name>". `out` is unchanged on failure.
  bool ReadTransformAttribute(const XmlElement* element, const KRX::CString& name,
                              KRX::MATH::CTransformation* out);

  // Sets the attribute to the transformation text. A transformation holding a value that
  // is not finite is not written; the error is collected.
  bool WriteTransformAttribute(XmlElement* element, const KRX::CString& name,
                               const KRX::MATH::CTransformation& transform);

  // Sets an attribute; false (collecting why) when the name is not a valid XML name.
  bool SetAttribute(XmlElement* element, const KRX::CString& name, const KRX::CString& value);

  // Creates an element `name` as the last child of `parent`; null (collecting why) when
  // `parent` is null or `name` is not a valid XML name.
  XmlElement* AddElement(XmlElement* parent, const KRX::CString& name);
  // AddElement, then a text child holding `text`.
  XmlElement* AddTextElement(XmlElement* parent, const KRX::CString& name,
                             const KRX::CString& text);

  // Below the document element: the element `section`, then below it the element `key`,
  // each created when missing. The key element; null when there is no document element.
  XmlElement* FindOrCreatePath(const KRX::CString& section, const KRX::CString& key);

 private:
  void Release();
  void Parse(std::string_view bytes);
  void CreateEmpty();
  void Write();
  bool StartPlatform();

  KRX::CString path_;
  bool load_ = false;
  bool write_ = false;
  bool open_ = false;
  bool valid_ = true;
  std::vector<KRX::CString> errors_;
  // Declared before the document so that it is released after it.
  std::unique_ptr<XercesPlatform> platform_;
  xercesc::DOMDocument* document_ = nullptr;
};

// ---- element queries; all take null and then give nothing ----

// The first direct child of `parent` that is an element named exactly `name`.
XmlElement* ChildElement(const XmlElement* parent, const KRX::CString& name);
// The `index`-th (from 0) direct child element of `parent`, counting elements only.
XmlElement* ChildElementAt(const XmlElement* parent, int index);
// The number of direct child elements.
int ChildElementCount(const XmlElement* parent);
// The element's tag name.
KRX::CString ElementName(const XmlElement* element);
// True when the element's first child is text (or a CDATA section).
bool ElementHasText(const XmlElement* element);
// The value of the element's first child when that child is text (or a CDATA section);
// empty text otherwise.
KRX::CString ElementText(const XmlElement* element);
// No child: appends a text child holding `text`. First child text: replaces its value.
// First child of another kind: leaves the element unchanged and returns false.
bool SetElementText(XmlElement* element, const KRX::CString& text);

}  // namespace kavor

// Reading an XML document as a stream of parts, for documents too large to hold as a tree
// (motion files). The reader refuses and reports exactly what XmlDocument refuses and
// reports when it parses the same bytes: a document type declaration, files larger than
// kMaxXmlFileBytes, nesting deeper than kMaxXmlDepth, and every parser error, with the same
// texts. A file is read piece by piece; it is never held whole.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

#include "krx/value.h"

XERCES_CPP_NAMESPACE_BEGIN
class Attributes;
XERCES_CPP_NAMESPACE_END

namespace kavor {

// What a streamed document reports, in document order. Nothing here may throw.
class XmlStreamEvents {
 public:
  virtual ~XmlStreamEvents() = default;
  // An element starts; `depth` is 1 for the document element.
  virtual void StartElement(std::u16string_view name, const xercesc::Attributes& attributes,
                            int depth) = 0;
  virtual void EndElement(int depth) = 0;
  // Character data inside an element (one text may come in several pieces); `cdata` when
  // it is inside a CDATA section.
  virtual void Characters(std::u16string_view text, bool cdata) = 0;
  // A node inside an element that ends the text before it: a CDATA section starting
  // (`cdata_section`; its text follows as Characters with `cdata`), a comment or a
  // processing instruction.
  virtual void OtherNode(bool cdata_section) = 0;
};

// A document to stream: bytes already in memory, or a file opened on construction. It can
// be read more than once (the file stays open and is read from its start each time).
class XmlStreamInput {
 public:
  // The bytes stay the caller's and must outlive the input; `path` names them in messages.
  XmlStreamInput(const KRX::CString& path, std::string_view bytes);
  // Opens the file at `path`. A missing file, one that is not a regular file or that cannot
  // be read collect "File Not found: <path>", "File too large: <path>" (with a logged
  // warning, as the whole-file reader gives) or "File cannot be read: <path>".
  explicit XmlStreamInput(const KRX::CString& path);
  ~XmlStreamInput();
  XmlStreamInput(const XmlStreamInput&) = delete;
  XmlStreamInput& operator=(const XmlStreamInput&) = delete;

  const KRX::CString& Path() const { return path_; }
  // The errors of opening; empty when the document can be read.
  const std::vector<KRX::CString>& OpenErrors() const { return open_errors_; }

  // Parses the document once, reporting its parts to `events`. Returns the errors that
  // XmlDocument would collect for these bytes and that leave it without a document (parser
  // errors: "Parsing <path> error count: <n>" and the first error with its line and
  // column; too deep nesting; exceptions; a file that could not be read whole); empty when
  // the document is well-formed. Parts reported before a failure are to be discarded.
  std::vector<KRX::CString> Read(XmlStreamEvents& events) const;

 private:
  KRX::CString path_;
  std::string_view bytes_;
  int fd_ = -1;
  size_t file_size_ = 0;
  std::vector<KRX::CString> open_errors_;
};

}  // namespace kavor

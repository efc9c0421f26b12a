// The document's life cycle: opening (parsing a file or making a new document), writing
// and closing.
#include "kavor/xml/xml_document.h"

#include <string>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "kavor/io/file_names.h"
#include "kavor/io/messages.h"
#include "kavor/io/whole_file.h"
#include "kavor/xml/parsed_tree.h"
#include "kavor/xml/xerces_platform.h"
#include "kavor/xml/xml_errors.h"
#include "kavor/xml/xml_file.h"
#include "kavor/xml/xml_text.h"

namespace kavor {
namespace {

using KRX::CString;

// Keeps the first error the parser reports, with its place in the file.
class FirstErrorHandler : public xercesc::ErrorHandler {
 public:
  void warning(const xercesc::SAXParseException&) override {}
  void error(const xercesc::SAXParseException& e) override { Keep(e); }
  void fatalError(const xercesc::SAXParseException& e) override { Keep(e); }
  void resetErrors() override { first_.Clear(); }
  const CString& First() const { return first_; }

 private:
  void Keep(const xercesc::SAXParseException& e) {
    if (!first_.IsEmpty()) return;
    first_ = L"line " + CountText(e.getLineNumber()) + L", column " +
             CountText(e.getColumnNumber()) + L": " + FromXmlText(e.getMessage());
  }
  CString first_;
};

// A DOM parser that refuses any document type declaration. The scanner setting it needs
// is reachable from a derived parser only.
class UntrustedInputParser : public xercesc::XercesDOMParser {
 public:
  UntrustedInputParser() { getScanner()->setDisallowDTD(true); }
};

// Keeps the first problem the serializer reports.
class WriteErrorHandler : public xercesc::DOMErrorHandler {
 public:
  bool handleError(const xercesc::DOMError& error) override {
    if (error.getSeverity() == xercesc::DOMError::DOM_SEVERITY_WARNING) return true;
    if (first_.IsEmpty()) first_ = FromXmlText(error.getMessage());
    failed_ = true;
    return false;
  }
  bool Failed() const { return failed_; }
  const CString& First() const { return first_; }

 private:
  bool failed_ = false;
  CString first_;
};

CString DomExceptionText(const xercesc::DOMException& e) {
  if (e.getMessage() != nullptr && e.getMessage()[0] != 0) return FromXmlText(e.getMessage());
  return CountText(e.code);
}

struct ReleaseDocument {
  void operator()(xercesc::DOMDocument* document) const { document->release(); }
};

xercesc::DOMImplementation* CoreImplementation() {
  return xercesc::DOMImplementationRegistry::getDOMImplementation(u"Core");
}

}  // namespace

XmlDocument::XmlDocument() = default;

XmlDocument::XmlDocument(const CString& path, bool load, bool write) { Open(path, load, write); }

XmlDocument::~XmlDocument() { Close(); }

void XmlDocument::AddError(const CString& text) {
  errors_.push_back(text);
  valid_ = false;
}

void XmlDocument::Open(const CString& path, bool load, bool write) {
  if (open_) Close();
  path_ = path;
  load_ = load;
  write_ = write;
  open_ = true;
  valid_ = true;
  errors_.clear();
  if (load && FileExists(path)) {
    // The file may have gone or changed since it was seen.
    ReadFileStatus status = ReadFileStatus::kOk;
    const FileBuffer buffer = ReadWholeFile(path, &status, kMaxXmlFileBytes);
    switch (status) {
      case ReadFileStatus::kOk:
        Parse(buffer.Text());
        break;
      case ReadFileStatus::kTooLarge:
        AddError(L"File too large: " + path);
        break;
      case ReadFileStatus::kReadError:
        AddError(L"File cannot be read: " + path);
        break;
      default:
        AddError(L"File Not found: " + path);
        break;
    }
  } else if (write) {
    CreateEmpty();
  }
}

void XmlDocument::OpenFromBytes(const CString& path, std::string_view bytes, bool write) {
  if (open_) Close();
  path_ = path;
  load_ = true;
  write_ = write;
  open_ = true;
  valid_ = true;
  errors_.clear();
  Parse(bytes);
}

bool XmlDocument::StartPlatform() {
  if (platform_ == nullptr) platform_ = std::make_unique<XercesPlatform>();
  if (platform_->IsReady()) return true;
  AddError(platform_->Error());
  return false;
}

void XmlDocument::Parse(std::string_view bytes) {
  if (!StartPlatform()) return;
  static const XMLByte kNoBytes[1] = {0};
  try {
    // The handler and the security manager outlive the parser that points at them.
    FirstErrorHandler handler;
    xercesc::SecurityManager security;
    security.setEntityExpansionLimit(kXmlEntityExpansionLimit);
    UntrustedInputParser parser;
    parser.setValidationScheme(xercesc::XercesDOMParser::Val_Auto);
    parser.setDoNamespaces(false);
    parser.setDoSchema(false);
    parser.setLoadExternalDTD(false);
    parser.setDisableDefaultEntityResolution(true);
    parser.setCreateEntityReferenceNodes(false);
    parser.setSecurityManager(&security);
    parser.setErrorHandler(&handler);
    const std::u16string system_id = ToXmlText(path_);
    xercesc::MemBufInputSource source(
        bytes.empty() ? kNoBytes : reinterpret_cast<const XMLByte*>(bytes.data()), bytes.size(),
        system_id.c_str(), false);
    source.setCopyBufToStream(false);
    parser.parse(source);
    const XMLSize_t count = parser.getErrorCount();
    if (count > 0) {
      AddError(L"Parsing " + path_ + L" error count: " + CountText(count));
      if (!handler.First().IsEmpty()) AddError(handler.First());
      return;
    }
    // Released on every way out until it is kept.
    std::unique_ptr<xercesc::DOMDocument, ReleaseDocument> document(parser.adoptDocument());
    if (document == nullptr || document->getDocumentElement() == nullptr) {
      AddError(L"Parsing " + path_ + L" error count: 1");
      return;
    }
    if (DeepestElement(*document, kMaxXmlDepth) > kMaxXmlDepth) {
      AddError(L"Parsing " + path_ + L" error count: 1");
      AddError(L"elements are nested deeper than " + CountText(kMaxXmlDepth) + L" levels");
      return;
    }
    TrimPrettyPrintLayout(*document);
    document_ = document.release();
  } catch (const xercesc::DOMException& e) {
    AddError(L"DOM Exception parsing " + path_ + L"\n reports: \n" + DomExceptionText(e));
  } catch (const xercesc::XMLException& e) {
    AddError(L"DOM Exception parsing " + path_ + L"\n reports: \n" + FromXmlText(e.getMessage()));
  } catch (...) {
    AddError(L"An Exception parsing " + path_);
  }
}

void XmlDocument::CreateEmpty() {
  if (!StartPlatform()) return;
  try {
    xercesc::DOMImplementation* implementation = CoreImplementation();
    if (implementation == nullptr) {
      AddError(L"DOM Exception creating " + path_ + L"\n reports: \nno \"Core\" implementation");
      return;
    }
    const std::u16string root = ToXmlText(kXmlRootName);
    document_ = implementation->createDocument(nullptr, root.c_str(), nullptr);
  } catch (const xercesc::DOMException& e) {
    AddError(L"DOM Exception creating " + path_ + L"\n reports: \n" + DomExceptionText(e));
  } catch (...) {
    AddError(L"An Exception creating " + path_);
  }
}

bool XmlDocument::Serialize(std::string* bytes) {
  const CString failure = L"DOM Exception Writing " + path_ + L"\n reports: \n";
  if (document_ == nullptr) {
    AddError(failure + L"no document");
    return false;
  }
  xercesc::DOMLSSerializer* serializer = nullptr;
  xercesc::DOMLSOutput* output = nullptr;
  CString why;
  try {
    xercesc::DOMImplementation* implementation = CoreImplementation();
    if (implementation == nullptr) {
      why = L"no \"Core\" implementation";
    } else {
      WriteErrorHandler handler;
      xercesc::MemBufFormatTarget target;
      serializer = implementation->createLSSerializer();
      xercesc::DOMConfiguration* config = serializer->getDomConfig();
      config->setParameter(xercesc::XMLUni::fgDOMErrorHandler, &handler);
      if (config->canSetParameter(xercesc::XMLUni::fgDOMWRTFormatPrettyPrint, true)) {
        config->setParameter(xercesc::XMLUni::fgDOMWRTFormatPrettyPrint, true);
      }
      if (config->canSetParameter(xercesc::XMLUni::fgDOMWRTBOM, true)) {
        config->setParameter(xercesc::XMLUni::fgDOMWRTBOM, true);
      }
      // Text added next to elements after reading would otherwise take the printer's
      // layout into the file, and the next reading would see other text.
      TrimPrettyPrintLayout(*document_);
      output = implementation->createLSOutput();
      output->setByteStream(&target);
      output->setEncoding(u"UTF-8");
      const bool written = serializer->write(document_, output);
      output->release();
      output = nullptr;
      serializer->release();
      serializer = nullptr;
      if (!written || handler.Failed()) {
        why = handler.First().IsEmpty() ? CString(L"the document could not be written")
                                        : handler.First();
      } else {
        bytes->assign(reinterpret_cast<const char*>(target.getRawBuffer()), target.getLen());
      }
    }
  } catch (const xercesc::DOMException& e) {
    why = DomExceptionText(e);
  } catch (const xercesc::XMLException& e) {
    why = FromXmlText(e.getMessage());
  } catch (...) {
    why = L"unexpected failure";
  }
  if (output != nullptr) output->release();
  if (serializer != nullptr) serializer->release();
  if (why.IsEmpty()) return true;
  AddError(failure + why);
  return false;
}

void XmlDocument::Write() {
  std::string bytes;
  if (!Serialize(&bytes)) return;
  CString why;
  if (!ReplaceFileContents(path_, bytes, &why)) {
    AddError(L"DOM Exception Writing " + path_ + L"\n reports: \n" + why);
  }
}

void XmlDocument::Release() {
  if (document_ != nullptr) {
    document_->release();
    document_ = nullptr;
  }
  platform_.reset();
}

bool XmlDocument::Close() {
  if (!open_) return valid_;
  if (write_ && document_ != nullptr) Write();
  Release();
  open_ = false;
  if (load_ && !errors_.empty()) ShowWarning(XmlErrorReport(path_, errors_));
  return valid_;
}

}  // namespace kavor

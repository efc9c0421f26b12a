#include "kavor/xml/xml_stream_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLDocumentHandler.hpp>
#include <xercesc/framework/XMLValidator.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "kavor/host/host.h"
#include "kavor/io/file_names.h"
#include "kavor/xml/xerces_platform.h"
#include "kavor/xml/xml_document.h"
#include "kavor/xml/xml_text.h"

namespace kavor {
namespace {

using KRX::CString;

// The scanner behind a SAX2 reader, reached through the validator that the scanner
// registers itself with: the setting that refuses document type declarations is the
// scanner's alone. Naming the validator's protected accessor through a class derived from
// it is what makes it reachable; no object of this class is ever made.
class ScannerOfValidator : public xercesc::XMLValidator {
 public:
  static xercesc::XMLScanner* Get(xercesc::XMLValidator* validator) {
    if (validator == nullptr) return nullptr;
    xercesc::XMLScanner* (xercesc::XMLValidator::*scanner)() = &ScannerOfValidator::getScanner;
    return (validator->*scanner)();
  }
};

// A regular file read from its start, at most `size` bytes. A read that fails or ends
// early ends the stream and is remembered.
class FileStream : public xercesc::BinInputStream {
 public:
  FileStream(int fd, size_t size, bool* failed) : fd_(fd), size_(size), failed_(failed) {}
  XMLFilePos curPos() const override { return position_; }
  XMLSize_t readBytes(XMLByte* const to_fill, const XMLSize_t max_to_read) override {
    size_t wanted = size_ - position_;
    if (wanted > max_to_read) wanted = max_to_read;
    while (wanted > 0) {
      const ssize_t got = pread(fd_, to_fill, wanted, static_cast<off_t>(position_));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) {
        *failed_ = true;
        return 0;
      }
      position_ += static_cast<size_t>(got);
      return static_cast<XMLSize_t>(got);
    }
    return 0;
  }
  const XMLCh* getContentType() const override { return nullptr; }

 private:
  int fd_;
  size_t size_;
  size_t position_ = 0;
  bool* failed_;
};

class FileSource : public xercesc::InputSource {
 public:
  FileSource(int fd, size_t size, const XMLCh* system_id, bool* failed)
      : xercesc::InputSource(system_id), fd_(fd), size_(size), failed_(failed) {}
  xercesc::BinInputStream* makeStream() const override {
    return new FileStream(fd_, size_, failed_);
  }

 private:
  int fd_;
  size_t size_;
  bool* failed_;
};

// Hands the reader's events on, counts depth and keeps the first error with its place.
class Forwarder : public xercesc::DefaultHandler {
 public:
  explicit Forwarder(XmlStreamEvents& events) : events_(events) {}

  void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const qname,
                    const xercesc::Attributes& attributes) override {
    ++depth_;
    if (depth_ > kMaxXmlDepth) too_deep_ = true;
    if (too_deep_) return;
    events_.StartElement(qname, attributes, depth_);
  }
  void endElement(const XMLCh* const, const XMLCh* const, const XMLCh* const) override {
    if (!too_deep_) events_.EndElement(depth_);
    --depth_;
  }
  void characters(const XMLCh* const chars, const XMLSize_t length) override {
    if (!too_deep_ && depth_ > 0) events_.Characters({chars, length}, in_cdata_);
  }
  void ignorableWhitespace(const XMLCh* const chars, const XMLSize_t length) override {
    characters(chars, length);
  }
  void processingInstruction(const XMLCh* const, const XMLCh* const) override { Other(false); }
  void comment(const XMLCh* const, const XMLSize_t) override { Other(false); }
  void startCDATA() override {
    Other(true);
    in_cdata_ = true;
  }
  void endCDATA() override { in_cdata_ = false; }

  void warning(const xercesc::SAXParseException&) override {}
  void error(const xercesc::SAXParseException& e) override { Keep(e); }
  void fatalError(const xercesc::SAXParseException& e) override { Keep(e); }
  void resetErrors() override { first_.Clear(); }

  bool TooDeep() const { return too_deep_; }
  const CString& FirstError() const { return first_; }

 private:
  void Other(bool cdata_section) {
    if (!too_deep_ && depth_ > 0) events_.OtherNode(cdata_section);
  }
  void Keep(const xercesc::SAXParseException& e) {
    if (!first_.IsEmpty()) return;
    first_ = L"line " + CountText(e.getLineNumber()) + L", column " +
             CountText(e.getColumnNumber()) + L": " + FromXmlText(e.getMessage());
  }

  XmlStreamEvents& events_;
  int depth_ = 0;
  bool too_deep_ = false;
  bool in_cdata_ = false;
  CString first_;
};

// Thrown from the scanner's callbacks for a declaration that the document reader refuses
// with an exception; caught around the parse.
struct UnsupportedVersion {};

// Stands between the scanner and the SAX2 reader to see the XML declaration, which the
// SAX2 interface does not pass on. A document records its version and refuses any other
// than "1.0" and "1.1" by throwing; the stream reader refuses the same.
class DeclarationCheck : public xercesc::XMLDocumentHandler {
 public:
  explicit DeclarationCheck(xercesc::XMLDocumentHandler* next) : next_(next) {}
  void docCharacters(const XMLCh* const chars, const XMLSize_t length, const bool cdata) override {
    next_->docCharacters(chars, length, cdata);
  }
  void docComment(const XMLCh* const comment) override { next_->docComment(comment); }
  void docPI(const XMLCh* const target, const XMLCh* const data) override {
    next_->docPI(target, data);
  }
  void endDocument() override { next_->endDocument(); }
  void endElement(const xercesc::XMLElementDecl& element, const unsigned int uri,
                  const bool is_root, const XMLCh* const prefix) override {
    next_->endElement(element, uri, is_root, prefix);
  }
  void endEntityReference(const xercesc::XMLEntityDecl& entity) override {
    next_->endEntityReference(entity);
  }
  void ignorableWhitespace(const XMLCh* const chars, const XMLSize_t length,
                           const bool cdata) override {
    next_->ignorableWhitespace(chars, length, cdata);
  }
  void resetDocument() override { next_->resetDocument(); }
  void startDocument() override { next_->startDocument(); }
  void startElement(const xercesc::XMLElementDecl& element, const unsigned int uri,
                    const XMLCh* const prefix, const xercesc::RefVectorOf<xercesc::XMLAttr>& list,
                    const XMLSize_t count, const bool is_empty, const bool is_root) override {
    next_->startElement(element, uri, prefix, list, count, is_empty, is_root);
  }
  void startEntityReference(const xercesc::XMLEntityDecl& entity) override {
    next_->startEntityReference(entity);
  }
  void XMLDecl(const XMLCh* const version, const XMLCh* const encoding,
               const XMLCh* const standalone, const XMLCh* const automatic) override {
    const std::u16string_view text = version == nullptr ? u"" : version;
    if (!text.empty() && text != u"1.0" && text != u"1.1") throw UnsupportedVersion();
    next_->XMLDecl(version, encoding, standalone, automatic);
  }

 private:
  xercesc::XMLDocumentHandler* next_;
};

struct DeleteReader {
  void operator()(xercesc::SAX2XMLReader* reader) const { delete reader; }
};

}  // namespace

XmlStreamInput::XmlStreamInput(const CString& path, std::string_view bytes)
    : path_(path), bytes_(bytes) {}

XmlStreamInput::XmlStreamInput(const CString& path) : path_(path) {
  // The checks and messages of the whole-file reader that the document reader uses.
  if (!FileExists(path)) {
    open_errors_.push_back(L"File Not found: " + path);
    return;
  }
  const std::string native = path.GetAsciiString();
  // O_NONBLOCK keeps the open from waiting for a writer when the path is a FIFO.
  fd_ = open(native.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  struct stat info {};
  if (fd_ < 0 || fstat(fd_, &info) != 0 || !S_ISREG(info.st_mode)) {
    open_errors_.push_back(L"File Not found: " + path);
    return;
  }
  const off_t end = lseek(fd_, 0, SEEK_END);
  if (end < 0) {
    LogWarning(L"Cannot read file: " + path);
    open_errors_.push_back(L"File cannot be read: " + path);
    return;
  }
  const auto size = static_cast<unsigned long long>(end);
  if (size > kMaxXmlFileBytes) {
    LogWarning(L"File is too large to read (" + CountText(size) + L" bytes, the limit is " +
               CountText(kMaxXmlFileBytes) + L" bytes): " + path);
    open_errors_.push_back(L"File too large: " + path);
    return;
  }
  file_size_ = static_cast<size_t>(size);
}

XmlStreamInput::~XmlStreamInput() {
  if (fd_ >= 0) close(fd_);
}

std::vector<CString> XmlStreamInput::Read(XmlStreamEvents& events) const {
  std::vector<CString> errors;
  if (!open_errors_.empty()) return open_errors_;
  XercesPlatform platform;
  if (!platform.IsReady()) return {platform.Error()};
  static const XMLByte kNoBytes[1] = {0};
  bool read_failed = false;
  try {
    // The handler and the security manager outlive the reader that points at them.
    Forwarder forwarder(events);
    xercesc::SecurityManager security;
    security.setEntityExpansionLimit(kXmlEntityExpansionLimit);
    std::unique_ptr<xercesc::SAX2XMLReader, DeleteReader> reader(
        xercesc::XMLReaderFactory::createXMLReader());
    // Validation when a grammar is given (none can be), no namespaces, no schema, nothing
    // loaded from elsewhere.
    reader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, true);
    reader->setFeature(xercesc::XMLUni::fgXercesDynamic, true);
    reader->setFeature(xercesc::XMLUni::fgSAX2CoreNameSpaces, false);
    reader->setFeature(xercesc::XMLUni::fgXercesSchema, false);
    reader->setFeature(xercesc::XMLUni::fgXercesLoadExternalDTD, false);
    reader->setFeature(xercesc::XMLUni::fgXercesDisableDefaultEntityResolution, true);
    reader->setProperty(xercesc::XMLUni::fgXercesSecurityManager, &security);
    reader->setContentHandler(&forwarder);
    reader->setLexicalHandler(&forwarder);
    reader->setErrorHandler(&forwarder);
    xercesc::XMLScanner* scanner = ScannerOfValidator::Get(reader->getValidator());
    if (scanner == nullptr) return {L"An Exception parsing " + path_};
    scanner->setDisallowDTD(true);
    DeclarationCheck declaration(scanner->getDocHandler());
    if (scanner->getDocHandler() != nullptr) scanner->setDocHandler(&declaration);
    const std::u16string system_id = ToXmlText(path_);
    if (fd_ >= 0) {
      FileSource source(fd_, file_size_, system_id.c_str(), &read_failed);
      reader->parse(source);
    } else {
      xercesc::MemBufInputSource source(
          bytes_.empty() ? kNoBytes : reinterpret_cast<const XMLByte*>(bytes_.data()),
          bytes_.size(), system_id.c_str(), false);
      source.setCopyBufToStream(false);
      reader->parse(source);
    }
    if (read_failed) {
      LogWarning(L"Cannot read file: " + path_);
      return {L"File cannot be read: " + path_};
    }
    const XMLSize_t count = reader->getErrorCount();
    if (count > 0) {
      errors.push_back(L"Parsing " + path_ + L" error count: " + CountText(count));
      if (!forwarder.FirstError().IsEmpty()) errors.push_back(forwarder.FirstError());
      return errors;
    }
    if (forwarder.TooDeep()) {
      errors.push_back(L"Parsing " + path_ + L" error count: 1");
      errors.push_back(L"elements are nested deeper than " + CountText(kMaxXmlDepth) + L" levels");
    }
  } catch (const UnsupportedVersion&) {
    const xercesc::DOMException refusal(xercesc::DOMException::NOT_SUPPORTED_ERR, 0);
    const CString why = refusal.getMessage() != nullptr && refusal.getMessage()[0] != 0
                            ? FromXmlText(refusal.getMessage())
                            : CountText(refusal.code);
    errors.push_back(L"DOM Exception parsing " + path_ + L"\n reports: \n" + why);
  } catch (const xercesc::XMLException& e) {
    errors.push_back(L"DOM Exception parsing " + path_ + L"\n reports: \n" +
                     FromXmlText(e.getMessage()));
  } catch (...) {
    errors.push_back(L"An Exception parsing " + path_);
  }
  return errors;
}

}  // namespace kavor

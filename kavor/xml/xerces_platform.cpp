#include "kavor/xml/xerces_platform.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include "kavor/xml/xml_text.h"

namespace kavor {

XercesPlatform::XercesPlatform() {
  try {
    xercesc::XMLPlatformUtils::Initialize();
    ready_ = true;
  } catch (const xercesc::XMLException& e) {
    error_ = L"Xerces initialisation failed: " + FromXmlText(e.getMessage());
  } catch (...) {
    error_ = L"Xerces initialisation failed";
  }
}

XercesPlatform::~XercesPlatform() {
  if (ready_) xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace kavor

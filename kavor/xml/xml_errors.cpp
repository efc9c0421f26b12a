#include "kavor/xml/xml_errors.h"

namespace kavor {

KRX::CString XmlErrorReport(const KRX::CString& path, const std::vector<KRX::CString>& errors) {
  KRX::CString report = L"Errors occured while loading the following file : \n" + path + L"\n\n";
  for (const KRX::CString& error : errors) report += L"Error : " + error + L"\n";
  return report;
}

}  // namespace kavor

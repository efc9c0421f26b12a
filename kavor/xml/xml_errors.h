// The report a document shows on closing when errors were collected while it was read.
#pragma once

#include <vector>

#include "krx/value.h"

namespace kavor {

// "Errors occured while loading the following file : \n", the path, two line feeds, then
// "Error : ", the error text and a line feed for each error, in the order collected.
KRX::CString XmlErrorReport(const KRX::CString& path, const std::vector<KRX::CString>& errors);

}  // namespace kavor

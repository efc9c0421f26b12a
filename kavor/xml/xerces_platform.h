// The Xerces platform's life, counted per user.
#pragma once

#include "krx/value.h"

namespace kavor {

// Every parser set-up refuses document types, so no entity can be declared; this limit
// still bounds entity expansion should that ever change.
inline constexpr unsigned long kXmlEntityExpansionLimit = 1000;

// Initialises the Xerces platform on construction and terminates it on destruction.
// Xerces counts these calls, so guards nest: the platform stays up while any guard lives,
// and documents may be opened inside one another. Every Xerces object made under a guard
// must be released before the guard goes.
class XercesPlatform {
 public:
  XercesPlatform();
  ~XercesPlatform();
  XercesPlatform(const XercesPlatform&) = delete;
  XercesPlatform& operator=(const XercesPlatform&) = delete;

  // False when the platform could not be initialised; `Error()` then tells why.
  bool IsReady() const { return ready_; }
  const KRX::CString& Error() const { return error_; }

 private:
  bool ready_ = false;
  KRX::CString error_;
};

}  // namespace kavor

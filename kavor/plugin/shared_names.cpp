#include "kavor/plugin/shared_names.h"

namespace kavor {

namespace {

// Function-local statics so that the names exist before any callback runs, whatever the
// order in which the module's globals are constructed.
KRX::CString& MocapToRigNameSlot() {
  static KRX::CString name;
  return name;
}

KRX::CString& LastAdjustedModelSlot() {
  static KRX::CString name;
  return name;
}

}  // namespace

const KRX::CString& MocapToRigPropertyName() { return MocapToRigNameSlot(); }
void SetMocapToRigPropertyName(const KRX::CString& name) { MocapToRigNameSlot() = name; }

const KRX::CString& LastAdjustedModelName() { return LastAdjustedModelSlot(); }
void SetLastAdjustedModelName(const KRX::CString& full_name) {
  LastAdjustedModelSlot() = full_name;
}

}  // namespace kavor

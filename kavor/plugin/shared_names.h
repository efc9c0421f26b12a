// Process-wide names that the plug-in's entry point sets and its pages share.
//
// These are the only state the plug-in keeps outside the scene. All callbacks run on the
// host's thread, one at a time, so they are read and written without locking.
#pragma once

#include "krx/value.h"

namespace kavor {

// The name of the Mocap to Rig property ("MocapToRig"). Set when the plug-in is loaded;
// the Mocap to Rig page looks its property up under the scene root by this name.
const KRX::CString& MocapToRigPropertyName();
void SetMocapToRigPropertyName(const KRX::CString& name);

// Full name of the model whose adjustment page was opened last; empty until one was.
const KRX::CString& LastAdjustedModelName();
void SetLastAdjustedModelName(const KRX::CString& full_name);

}  // namespace kavor

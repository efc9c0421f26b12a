// The plug-in registered in process, for benchmarks and fuzz harnesses that link its library
// statically: the host learns its commands, pages and operators from its load function and
// finds the callbacks a retarget calls (operators, the tag and adjustment pages) in a table.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "krx/krx.h"
#include "plugins/plugin_loader.h"

extern "C" {
KRX::CStatus KRXLoadPlugin(KRX::PluginRegistrar&);
KRX::CStatus RetargetOp_Init(KRX::CRef&);
KRX::CStatus RetargetOp_Update(KRX::CRef&);
KRX::CStatus RetargetOp_Term(KRX::CRef&);
KRX::CStatus RetargetGlobalOp_Init(KRX::CRef&);
KRX::CStatus RetargetGlobalOp_Update(KRX::CRef&);
KRX::CStatus RetargetGlobalOp_Term(KRX::CRef&);
KRX::CStatus RetargetUpVOp_Init(KRX::CRef&);
KRX::CStatus RetargetUpVOp_Update(KRX::CRef&);
KRX::CStatus RetargetUpVOp_Term(KRX::CRef&);
KRX::CStatus RetargetDecompOp_Init(KRX::CRef&);
KRX::CStatus RetargetDecompOp_Update(KRX::CRef&);
KRX::CStatus RetargetDecompOp_Term(KRX::CRef&);
KRX::CStatus RetargetSpineOp_Init(KRX::CRef&);
KRX::CStatus RetargetSpineOp_Update(KRX::CRef&);
KRX::CStatus RetargetSpineOp_Term(KRX::CRef&);
KRX::CStatus RetargetAdjustPPG_Define(KRX::CRef&);
KRX::CStatus RetargetAdjustPPG_DefineLayout(KRX::CRef&);
KRX::CStatus TagPPG_Define(KRX::CRef&);
KRX::CStatus TagPPG_DefineLayout(KRX::CRef&);
}

namespace kavor::inprocess {

// Loads the plug-in once per process; false when its load function failed.
inline bool LoadPlugInInProcess() {
  static const bool loaded = [] {
    std::vector<std::pair<std::string, KRX::CallbackFn>> callbacks = {
        {"RetargetOp_Init", &RetargetOp_Init},
        {"RetargetOp_Update", &RetargetOp_Update},
        {"RetargetOp_Term", &RetargetOp_Term},
        {"RetargetGlobalOp_Init", &RetargetGlobalOp_Init},
        {"RetargetGlobalOp_Update", &RetargetGlobalOp_Update},
        {"RetargetGlobalOp_Term", &RetargetGlobalOp_Term},
        {"RetargetUpVOp_Init", &RetargetUpVOp_Init},
        {"RetargetUpVOp_Update", &RetargetUpVOp_Update},
        {"RetargetUpVOp_Term", &RetargetUpVOp_Term},
        {"RetargetDecompOp_Init", &RetargetDecompOp_Init},
        {"RetargetDecompOp_Update", &RetargetDecompOp_Update},
        {"RetargetDecompOp_Term", &RetargetDecompOp_Term},
        {"RetargetSpineOp_Init", &RetargetSpineOp_Init},
        {"RetargetSpineOp_Update", &RetargetSpineOp_Update},
        {"RetargetSpineOp_Term", &RetargetSpineOp_Term},
        {"RetargetAdjustPPG_Define", &RetargetAdjustPPG_Define},
        {"RetargetAdjustPPG_DefineLayout", &RetargetAdjustPPG_DefineLayout},
        {"TagPPG_Define", &TagPPG_Define},
        {"TagPPG_DefineLayout", &TagPPG_DefineLayout},
    };
    return KRX::rt::LoadInProcessPlugin(&KRXLoadPlugin,
                                        KRX::rt::ResolveFromTable(std::move(callbacks)));
  }();
  return loaded;
}

}  // namespace kavor::inprocess

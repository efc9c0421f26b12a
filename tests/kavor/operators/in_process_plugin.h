// The plug-in registered in process, for benchmarks and fuzz harnesses that link its library
// statically: the host learns its commands, pages and operators from its load function and
// finds the callbacks a retarget calls (operators, the tag and adjustment pages) in a table.
#pragma once

#include <chrono>
#include <cstdint>
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

// Time spent inside the operators' update callbacks and their number, since the last reset:
// what the host spends around them is the rest of an evaluation.
struct UpdateTally {
  int64_t nanoseconds = 0;
  int64_t calls = 0;
};
inline UpdateTally& Updates() {
  static UpdateTally tally;
  return tally;
}

// The time inside an update less the time inside updates nested in it (an operator reading
// an input that another operator writes evaluates that one from inside its own update).
inline int64_t& NestedNanoseconds() {  // elapsed time of the updates nested in the running one
  static int64_t nested = 0;
  return nested;
}

template <KRX::CStatus (*Update)(KRX::CRef&)>
KRX::CStatus TimedUpdate(KRX::CRef& ref) {
  int64_t& nested = NestedNanoseconds();
  const int64_t outer_nested = nested;
  nested = 0;
  const auto start = std::chrono::steady_clock::now();
  const KRX::CStatus status = Update(ref);
  const int64_t elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(
                              std::chrono::steady_clock::now() - start)
                              .count();
  Updates().nanoseconds += elapsed - nested;
  ++Updates().calls;
  nested = outer_nested + elapsed;
  return status;
}

// Loads the plug-in once per process; false when its load function failed.
inline bool LoadPlugInInProcess() {
  static const bool loaded = [] {
    std::vector<std::pair<std::string, KRX::CallbackFn>> callbacks = {
        {"RetargetOp_Init", &RetargetOp_Init},
        {"RetargetOp_Update", &TimedUpdate<&RetargetOp_Update>},
        {"RetargetOp_Term", &RetargetOp_Term},
        {"RetargetGlobalOp_Init", &RetargetGlobalOp_Init},
        {"RetargetGlobalOp_Update", &TimedUpdate<&RetargetGlobalOp_Update>},
        {"RetargetGlobalOp_Term", &RetargetGlobalOp_Term},
        {"RetargetUpVOp_Init", &RetargetUpVOp_Init},
        {"RetargetUpVOp_Update", &TimedUpdate<&RetargetUpVOp_Update>},
        {"RetargetUpVOp_Term", &RetargetUpVOp_Term},
        {"RetargetDecompOp_Init", &RetargetDecompOp_Init},
        {"RetargetDecompOp_Update", &TimedUpdate<&RetargetDecompOp_Update>},
        {"RetargetDecompOp_Term", &RetargetDecompOp_Term},
        {"RetargetSpineOp_Init", &RetargetSpineOp_Init},
        {"RetargetSpineOp_Update", &TimedUpdate<&RetargetSpineOp_Update>},
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

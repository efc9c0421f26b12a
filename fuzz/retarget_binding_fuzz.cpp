// Binding a retarget operator to a motion blob that a scene file brought in: the bytes can
// be anything. A walk made here is retargeted once onto a larger copy of its rig (both
// tagged with the walker's template); then each input replaces the target's blob bytes and
// a fresh operator state binds to them (upgrading the old layout when the bytes look like
// it) and, when it binds, solves frames before, inside and past the motion. Nothing may
// crash, hang or read outside the blob.
// Seeds: fuzz/corpus/retarget_binding/ (the blob of that retarget, 8 frames).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <fstream>

#include "kavor/operators/retarget_context.h"
#include "kavor/operators/retarget_flows.h"
#include "kavor/operators/retarget_solve.h"
#include "tests/kavor/motion/capture_rig_support.h"
#include "tests/kavor/operators/in_process_plugin.h"

namespace {

namespace ct = kavor::capturetest;

// The target's blob, or an invalid one when the set-up failed (then every input is skipped).
KRX::UserDataBlob SetUpRetarget() {
  setenv("KAVOR_SOURCE_DIR", KAVOR_SOURCE_ROOT, 0);
  if (!kavor::inprocess::LoadPlugInInProcess()) return {};
  ct::NewSceneWithShippedData();
  const ct::fs::path walker = ct::SourceDir() / "examples" / "walker.bvh";
  const ct::fs::path tags = ct::SourceDir() / "examples" / "walker.tagt";
  const KRX::Model source = ct::ImportCapture(walker, L"Source");
  const KRX::Model target = ct::ImportCapture(walker, L"Target", 1.2);
  if (!ct::TagInBindPose(source, tags) || !ct::TagInBindPose(target, tags) ||
      !kavor::RetargetRigToRig(source, target, 1, 8)) {
    std::fprintf(stderr, "retarget_binding_fuzz: the walker retarget did not build\n");
    return {};
  }
  KRX::UserDataBlob blob = kavor::FindMotionBlob(target);
  // KAVOR_WRITE_SEED=FILE writes the blob of that retarget, the corpus seed.
  if (const char* seed = std::getenv("KAVOR_WRITE_SEED"); seed && blob.GetBytes()) {
    std::ofstream(seed, std::ios::binary)
        .write(reinterpret_cast<const char*>(blob.GetBytes()->data()),
               static_cast<std::streamsize>(blob.GetBytes()->size()));
  }
  return blob;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static KRX::UserDataBlob blob = SetUpRetarget();
  if (!blob.IsValid()) return 0;
  blob.PutValue(data, size);
  kavor::RetargetOpContext context;
  if (kavor::BindRetargetOp(context, blob, 1.0)) {
    for (const double time : {-5.0, 1.0, 3.5, 8.0, 1e9}) {
      kavor::MapTime(context, time);
      kavor::SolveFrame(context);
    }
  }
  kavor::RemoveLiveContext(&context);
  return 0;
}

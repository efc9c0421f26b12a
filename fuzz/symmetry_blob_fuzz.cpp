// Symmetry blobs that a scene file brought in: the bytes can be anything. Each input is
// split in two halves that become the blobs of two objects linked both ways (different
// parents, and the same parent); with the source selected and the switch on, the source is
// moved and its partner read at two frames. Nothing may crash, and a partner moved by a
// blob is moved to a finite place. Decoding alone must give back exactly the bytes it read.
// Seeds: fuzz/corpus/symmetry_blob/ (a link's own blobs, short, long and non-finite ones).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kavor/symmetry/symmetry_blob.h"
#include "kavor/symmetry/symmetry_link.h"
#include "krx/plugin.h"
#include "runtime/scene_state.h"
#include "tests/kavor/operators/in_process_plugin.h"

extern "C" {
KRX::CStatus RetargetSymmetryOp_Update(KRX::CRef&);
KRX::CStatus RetargetSymmetrySpecialOp_Update(KRX::CRef&);
KRX::CStatus MocapToRig_Define(KRX::CRef&);
}

namespace {

bool SetUp() {
  if (!kavor::inprocess::LoadPlugInInProcess()) return false;
  KRX::rt::RegisterInProcessCallback("RetargetSymmetryOp_Update", &RetargetSymmetryOp_Update);
  KRX::rt::RegisterInProcessCallback("RetargetSymmetrySpecialOp_Update",
                                     &RetargetSymmetrySpecialOp_Update);
  KRX::rt::RegisterInProcessCallback("MocapToRig_Define", &MocapToRig_Define);
  return true;
}

void Check(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "symmetry_blob_fuzz: %s\n", what);
    std::abort();
  }
}

void PutBlob(const KRX::X3DObject& object, const uint8_t* data, size_t size) {
  KRX::Property found;
  for (const KRX::Property& property : object.GetProperties()) {
    if (property.GetName() == KRX::CString(kavor::kSymmetryBlobName)) found = property;
  }
  KRX::UserDataBlob(found.GetRef()).PutValue(data, size);
}

bool Finite(const KRX::MATH::CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

void RunLinked(bool same_parent, const uint8_t* data, size_t size) {
  KRX::rt::ResetScene();
  KRX::Model root = KRX::Application().GetActiveSceneRoot();
  root.AddProperty(L"MocapToRig");
  KRX::X3DObject model = root.AddModel(L"Rig");
  KRX::X3DObject hips = model.AddNull(L"hips");
  KRX::X3DObject left_parent = same_parent ? hips : hips.AddNull(L"lhip");
  KRX::X3DObject right_parent = same_parent ? hips : hips.AddNull(L"rhip");
  KRX::X3DObject left = left_parent.AddNull(L"left");
  KRX::X3DObject right = right_parent.AddNull(L"right");
  left.GetKinematics().GetLocal().PutParameterValue(L"posx", 1.0);
  right.GetKinematics().GetLocal().PutParameterValue(L"posx", -1.0);
  if (!kavor::CreateSymmetryLink(left, right, hips) ||
      !kavor::CreateSymmetryLink(right, left, hips)) {
    return;
  }
  PutBlob(left, data, size / 2);
  PutBlob(right, data + size / 2, size - size / 2);
  KRX::CValue ignored;
  KRX::Application().ExecuteCommand(L"SelectObj", {left.GetFullName()}, ignored);
  left.GetKinematics().GetLocal().PutParameterValue(L"posy", 0.5);
  for (const double frame : {1.0, 2.0}) {
    const auto partner = right.GetKinematics().GetGlobal().GetTransform(frame).GetTranslation();
    Check(Finite(partner), "the partner was moved to a place that is not finite");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = SetUp();
  const auto decoded = kavor::DecodeSymmetryBlob(data, size);
  if (decoded) {
    Check(Finite(*decoded), "a decoded translation is not finite");
    const auto bytes = kavor::EncodeSymmetryBlob(*decoded);
    Check(std::memcmp(bytes.data(), data, bytes.size()) == 0, "decoding is not exact");
  }
  if (!ready) return 0;
  RunLinked(false, data, size);
  RunLinked(true, data, size);
  return 0;
}

// The key times of a rig's own function curves, gathered per rig object.
#include <algorithm>
#include <cmath>
#include <string>

#include "kavor/host/host.h"
#include "kavor/motion/kavor_file.h"

namespace kavor {
namespace {

// The name suffix of an up-vector reference's record. Stored in files: be careful when
// changing it.
constexpr std::string_view kUpVectorRecordSuffix = "_Up_Vector_Node_Tag_TRVL";

// The object that a position or orientation constraint of `object` makes it follow, when
// such a constraint has exactly one constraining object; invalid otherwise.
KRX::X3DObject SingleConstrainingObject(const KRX::X3DObject& object) {
  for (const KRX::Constraint& constraint : object.GetConstraints()) {
    const KRX::CString name = constraint.GetName();
    if (name != KRX::CString(L"Position Cns") && name != KRX::CString(L"Orientation Cns")) {
      continue;
    }
    const std::vector<KRX::X3DObject> sources = constraint.GetConstrainingObjects();
    if (sources.size() == 1 && sources.front().IsValid()) return sources.front();
  }
  return KRX::X3DObject();
}

ObjectCurveKeys ObjectKeys(const KRX::X3DObject& object, std::string name, double first,
                           double last, KeyOnFirstFrame on_first) {
  ObjectCurveKeys keys;
  keys.record.node_name = std::move(name);
  const KRX::KinematicState local = object.GetKinematics().GetLocal();
  std::vector<double> times;
  for (size_t c = 0; c < kCurveChannelNames.size(); ++c) {
    const KRX::Parameter channel = local.GetParameter(ToWide(kCurveChannelNames[c]));
    if (!channel.IsValid() || channel.GetSourceKind() != KRX::AnimationSource::FCurve) continue;
    const KRX::FCurve curve = channel.GetFCurve();
    if (!curve.IsValid()) continue;
    keys.driven[c] = true;
    times.clear();
    for (const KRX::FCurveKeyData& key : curve.GetKeys()) {
      if (std::isfinite(key.time)) times.push_back(key.time);
    }
    std::sort(times.begin(), times.end());
    keys.record.channels[c] = SelectKeyTimes(times, first, last, on_first);
  }
  return keys;
}

}  // namespace

bool IsConstrained(const KRX::X3DObject& object) {
  // Following the constraints on from the constraining object can only end at an object
  // without such a constraint, which is never `object` itself (it has one), or go round a
  // loop; either way the object is driven by another one.
  return SingleConstrainingObject(object).IsValid();
}

std::vector<ObjectCurveKeys> GatherCurveKeys(const RetargetModel& source, int32_t start,
                                             int32_t end, KeyOnFirstFrame on_first) {
  std::vector<ObjectCurveKeys> records;
  if (source.structure == nullptr) return records;
  const ModelStructure& structure = *source.structure;
  const double first = start;
  const double last = end;
  const int32_t nodes = std::min(source.NumNodes(), structure.NumNodes());
  for (int32_t i = 0; i < nodes; ++i) {
    const KRX::X3DObject& object = source.Node(i).object;
    if (!object.IsValid() || IsConstrained(object)) continue;
    records.push_back(
        ObjectKeys(object, structure.nodes[static_cast<size_t>(i)].name, first, last, on_first));
  }
  for (const StructurePlane& plane : structure.planes) {
    if (plane.anchor_index < 0 || plane.anchor_index >= nodes) continue;
    const KRX::X3DObject& anchor = source.Node(plane.anchor_index).object;
    if (!anchor.IsValid() || !anchor.IsA(KRX::ClassID::ChainBone)) continue;
    const KRX::X3DObject reference = KRX::ChainBone(anchor.GetRef()).GetUpVectorReference();
    if (!reference.IsValid() || IsConstrained(reference)) continue;
    records.push_back(ObjectKeys(reference, plane.name + std::string(kUpVectorRecordSuffix), first,
                                 last, on_first));
  }
  return records;
}

void CollectCurveKeys(RetargetModel& source, int32_t start, int32_t end, KeyOnFirstFrame on_first) {
  source.curves.clear();
  for (ObjectCurveKeys& keys : GatherCurveKeys(source, start, end, on_first)) {
    source.curves.push_back(std::move(keys.record));
  }
}

}  // namespace kavor

// A line between two objects that follows them.
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"

namespace kavor {
namespace {

// The update of the "ConnectionLine" operator in the host's script language: both
// objects' global positions, taken into the line's own space, become its two points.
constexpr const wchar_t* kConnectionLineScript =
    L"function ConnectionLine_Update(ctx, out, inLineGlobal, inGlobal1, inGlobal2)\n"
    L"{\n"
    L"  var lineFromWorld = inLineGlobal.Value.Transform.Inverse();\n"
    L"  var ends = [inGlobal1.Value.Transform, inGlobal2.Value.Transform];\n"
    L"  var points = [];\n"
    L"  for (var i = 0; i < 2; ++i) {\n"
    L"    points.push(lineFromWorld.MapPoint(ends[i].Translation));\n"
    L"  }\n"
    L"  out.Value.CurvePoints = points;\n"
    L"}\n";

}  // namespace

KRX::X3DObject AddConnectionLine(KRX::X3DObject& parent, const KRX::X3DObject& object1,
                                 const KRX::X3DObject& object2, int colour) {
  if (!parent.IsValid() || !object1.IsValid() || !object2.IsValid()) return KRX::X3DObject();
  const KRX::KinematicState global1 = object1.GetKinematics().GetGlobal();
  const KRX::KinematicState global2 = object2.GetKinematics().GetGlobal();

  // The curve is made in the parent's space.
  const KRX::MATH::CTransformation parent_global =
      parent.GetKinematics().GetGlobal().GetTransform(kCurrentTime);
  const std::vector<KRX::MATH::CVector3> points = {
      KRX::MATH::MapWorldPositionToObjectSpace(
          parent_global, global1.GetTransform(kCurrentTime).GetTranslation()),
      KRX::MATH::MapWorldPositionToObjectSpace(
          parent_global, global2.GetTransform(kCurrentTime).GetTranslation())};
  KRX::X3DObject curve = parent.AddLinearCurve(points);
  if (!curve.IsValid()) return curve;

  KRX::Property display = curve.AddProperty(L"Display Property", false);
  display.PutParameterValue(L"wirecol", colour);

  KRX::CustomOperator op =
      KRX::Application().CreateScriptedOp(L"ConnectionLine", kConnectionLineScript, L"JScript");
  op.AddPortGroup(L"MainGroup");
  op.AddOutputPort(curve.GetRef(), L"OutCurve");
  op.AddInputPort(curve.GetKinematics().GetGlobal().GetRef(), L"InLineGlobal");
  op.AddPortGroup(L"ObjectGroup");
  op.AddInputPort(global1.GetRef(), L"InGlobal1");
  op.AddInputPort(global2.GetRef(), L"InGlobal2");
  if (!KRX::Succeeded(op.Connect())) {
    LogWarning(L"Cannot connect the connection line operator on " + curve.GetFullName());
  }

  TryRunCommand(L"SetValue", {curve.GetFullName() + L".visibility.selectability", false});
  return curve;
}

}  // namespace kavor

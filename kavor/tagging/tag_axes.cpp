// Tag directions, tag page values and the rest-transform text.
#include <cmath>
#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/maps/model_space.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

std::vector<std::string_view> SplitAt(std::string_view text, char separator) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  while (true) {
    const size_t at = text.find(separator, start);
    if (at == std::string_view::npos) {
      fields.push_back(text.substr(start));
      return fields;
    }
    fields.push_back(text.substr(start, at - start));
    start = at + 1;
  }
}

std::string NumberText(double value) { return ToNarrow(KRX::CValue(value).GetString()); }

}  // namespace

void ComputeTagAxes(std::string_view node_name, const ModelStructure& structure,
                    const KRX::X3DObject& object, const KRX::X3DObject& model, CVector3& align,
                    CVector3& roll) {
  const StructureGroupNode* entry = FindGroupNode(structure, node_name);
  if (!entry) return;
  const CTransformation global =
      ModelSpaceTransform(object, ModelSpaceInverse(model, kCurrentTime), kCurrentTime);
  const CQuaternion to_local = global.GetRotationQuaternion().Conjugate();
  align = to_local.Rotate(entry->align);
  roll = to_local.Rotate(entry->roll);
  if (!(global.GetScaling().GetX() >= 0.0)) {
    align = -align;
    roll = -roll;
  }
}

std::string SplitTagValue(std::string_view value, int which) {
  const std::vector<std::string_view> fields = SplitAt(value, '|');
  if (which == 1) return std::string(fields[0]);
  if (which == 2 && fields.size() == 2) return std::string(fields[1]);
  return {};
}

std::string FormatTposeTransform(const CTransformation& transform) {
  CQuaternion q = transform.GetRotationQuaternion();
  q.NormalizeInPlace();
  if (q.GetW() < 0.0) q = CQuaternion(-q.GetW(), -q.GetX(), -q.GetY(), -q.GetZ());
  CVector3 axis(q.GetX(), q.GetY(), q.GetZ());
  const double angle = 2.0 * std::atan2(axis.GetLength(), q.GetW());
  if (!axis.NormalizeInPlace()) axis = CVector3(1.0, 0.0, 0.0);
  const CVector3 t = transform.GetTranslation();
  return NumberText(axis.GetX()) + "," + NumberText(axis.GetY()) + "," + NumberText(axis.GetZ()) +
         "," + NumberText(angle) + "," + NumberText(t.GetX()) + "," + NumberText(t.GetY()) + "," +
         NumberText(t.GetZ());
}

bool ParseTposeTransform(std::string_view text, CTransformation& transform) {
  const std::vector<std::string_view> fields = SplitAt(text, ',');
  if (fields.size() != 7) return false;
  double v[7];
  for (size_t i = 0; i < 7; ++i) {
    v[i] = KRX::CValue(ToWide(fields[i])).GetDouble();
    if (!std::isfinite(v[i])) return false;
  }
  transform.SetIdentity();
  transform.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(v[0], v[1], v[2]), v[3]));
  transform.SetTranslationFromValues(v[4], v[5], v[6]);
  return true;
}

}  // namespace kavor

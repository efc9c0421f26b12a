#include "kavor/maps/model_map_text.h"

#include <cmath>
#include <memory>
#include <string>

#include "kavor/host/host.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/tagging/map_file.h"

namespace kavor {

namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;

double ReadLoose(Tokenizer& tokenizer) {
  double value = 0.0;
  (void)tokenizer.ReadNumber(value);
  return value;
}

CQuaternion ReadQuaternion(Tokenizer& tokenizer) {
  const double w = ReadLoose(tokenizer);
  const double x = ReadLoose(tokenizer);
  const double y = ReadLoose(tokenizer);
  const double z = ReadLoose(tokenizer);
  return {w, x, y, z};
}

void WriteQuaternion(std::ostream& out, const CQuaternion& q) {
  out << FormatFileNumber(q.GetW()) << FormatFileNumber(q.GetX()) << FormatFileNumber(q.GetY())
      << FormatFileNumber(q.GetZ());
}

CTransformation RotationOnly(const CQuaternion& q) {
  CQuaternion unit = q;
  unit.NormalizeInPlace();
  CTransformation t;
  t.SetRotationFromQuaternion(unit);
  return t;
}

void Invalidate(RetargetModel& model, const std::string& message) {
  LogInfo(ToWide(message));
  model.valid = false;
}

}  // namespace

void WriteModelMapSection(std::ostream& out, const RetargetModel& model) {
  const ModelStructure& structure = *model.structure;
  out << FormatFileNumber(kModelMapTextVersion) << "\n"
      << structure.source << "\n"
      << structure.type << "\n";
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    const NodeMapEntry& node = model.Node(i);
    out << structure.nodes[static_cast<size_t>(i)].name << "\n";
    out << FormatFileNumber(node.length);
    WriteQuaternion(out, node.rest_rotation.GetRotationQuaternion());
    if (node.extraction) {
      WriteQuaternion(out, node.extraction->transform.GetRotationQuaternion());
      out << ToNarrow(node.extraction->object.GetName());
    } else {
      WriteQuaternion(out, CQuaternion(0.0, 0.0, 0.0, 0.0));
    }
    out << "\n";
  }
  out << FormatFileNumber(model.hip_offset) << FormatFileNumber(model.leg_length);
}

void ReadModelMapText(RetargetModel& model, Tokenizer& tokenizer) {
  const ModelStructure& structure = *model.structure;
  int32_t version = 0;
  (void)tokenizer.ReadInteger(version);
  if (version != kModelMapTextVersion) return Invalidate(model, "Map version mismatch");
  if (tokenizer.ReadWord() != structure.source) {
    return Invalidate(model, "Structure source file mismatch");
  }
  if (tokenizer.ReadWord() != structure.type) return Invalidate(model, "Structure type mismatch");
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    const std::string& expected = structure.nodes[static_cast<size_t>(i)].name;
    const std::string name(tokenizer.ReadWord());
    if (name != expected) {
      return Invalidate(model, "name mismatch: got " + name + ", was expecting " + expected);
    }
    NodeMapEntry& node = model.Node(i);
    node.length = ReadLoose(tokenizer);
    node.rest_rotation = RotationOnly(ReadQuaternion(tokenizer));
    node.rest_rotation_inverse = RotationOnly(node.rest_rotation.GetRotationQuaternion().Conjugate());
    const CQuaternion extraction = ReadQuaternion(tokenizer);
    if (std::sqrt(extraction.Dot(extraction)) > 0.5) {
      const std::string object_name(tokenizer.ReadWord());
      auto entry = std::make_unique<ExtractionEntry>();
      entry->transform = RotationOnly(extraction);
      if (model.model.IsValid()) entry->object = model.model.FindChild(ToWide(object_name));
      node.extraction = std::move(entry);
    }
  }
  model.hip_offset = ReadLoose(tokenizer);
  model.leg_length = ReadLoose(tokenizer);
}

}  // namespace kavor

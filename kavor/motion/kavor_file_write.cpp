// Writing a rig's normalized motion as an XML motion file.
#include <algorithm>
#include <climits>
#include <cmath>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/io/progress_bar.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/model_map.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/play_control.h"
#include "kavor/motion/pose.h"
#include "kavor/xml/xml_document.h"
#include "kavor/xml/xml_stream_writer.h"
#include "kavor/xml/xml_values.h"

namespace kavor {
namespace {

using KRX::CString;
using KRX::MATH::CVector3;

constexpr const wchar_t* kHeaderText = L"KAVOR file Saved out from Zorvane using KAVOR";
// The SDK offers no query for the host's version; the file records the host's name.
constexpr const wchar_t* kHostVersionText = L"krx";
// A model with this page is a retarget target: its own curves do not describe its motion.
constexpr const wchar_t* kAdjustmentPage = L"RetargetAdjustPPG";

// A limb whose bones add up to less than this share of its rest length has been squashed
// (the rig stretches or scales its bones).
constexpr double kShortLimbRatio = 0.99;
// Bone sums below this are degenerate: no ratio is taken with them.
constexpr double kSmallestChainLength = 1e-9;

CString IntegerText(int64_t value) { return CString(std::to_string(value)); }

void IntegerAttribute(XmlStreamWriter& writer, std::string_view name, int64_t value) {
  writer.AsciiAttribute(name, std::to_string(value));
}

void NumberElement(XmlStreamWriter& writer, std::string_view name, double value) {
  const CString text = NumberText(value);
  if (text.IsEmpty()) {
    writer.AddError(L"DOMElement : <" + CString(std::string(name)) +
                    L"> not written: not a finite number");
    return;
  }
  writer.TextElement(name, text);
}

bool IsNode(const RetargetModel& model, int32_t index) {
  return index >= 0 && index < model.NumNodes();
}

CVector3 Position(const RetargetModel& model, int32_t node) {
  return model.Node(node).global_pose.GetTranslation();
}

// A limb in the current poses: its bones' length summed along the chain, and the rest
// length of the chain's end node (the whole limb).
struct LimbMeasure {
  double chain_length = 0.0;
  double rest_length = 0.0;

  bool IsShort() const {
    return chain_length > kSmallestChainLength && chain_length < kShortLimbRatio * rest_length;
  }
};

LimbMeasure MeasureLimb(const RetargetModel& model, const StructurePlane& plane) {
  LimbMeasure measure;
  for (size_t k = 0; k + 1 < plane.chain.size(); ++k) {
    if (!IsNode(model, plane.chain[k]) || !IsNode(model, plane.chain[k + 1])) continue;
    measure.chain_length +=
        (Position(model, plane.chain[k]) - Position(model, plane.chain[k + 1])).GetLength();
  }
  if (IsNode(model, plane.span)) measure.rest_length = model.Node(plane.span).length;
  return measure;
}

// The motion's fixed facts about the source's limbs: which planes are planted friction
// chains (a foot with no limb end or spine node above it: it carries the body), and which
// nodes the ground lift moves (all but those feet and what hangs below them).
struct LimbRoles {
  std::vector<bool> planted;  // per plane
  std::vector<bool> lifted;   // per node
};

LimbRoles FindLimbRoles(const RetargetModel& model) {
  const ModelStructure& structure = *model.structure;
  const int32_t nodes = model.NumNodes();
  LimbRoles roles;
  roles.planted.assign(structure.planes.size(), false);
  std::vector<bool> planted_span(static_cast<size_t>(nodes), false);
  for (size_t p = 0; p < structure.planes.size(); ++p) {
    const int32_t span = structure.planes[p].span;
    if (!IsNode(model, span) || !structure.nodes[static_cast<size_t>(span)].friction) continue;
    if (!HasNoFrictionOrFreeAncestor(model, span)) continue;
    roles.planted[p] = true;
    planted_span[static_cast<size_t>(span)] = true;
  }
  roles.lifted.assign(static_cast<size_t>(nodes), true);
  for (int32_t n = 0; n < nodes; ++n) {
    if (planted_span[static_cast<size_t>(n)]) {
      roles.lifted[static_cast<size_t>(n)] = false;
      continue;
    }
    if (n == 0) continue;
    int32_t up = structure.nodes[static_cast<size_t>(n)].parent;
    for (int32_t steps = 0; IsNode(model, up) && steps < nodes; ++steps) {
      if (planted_span[static_cast<size_t>(up)]) {
        roles.lifted[static_cast<size_t>(n)] = false;
        break;
      }
      up = structure.nodes[static_cast<size_t>(up)].parent;
    }
  }
  return roles;
}

// Poses the source at frame `frame`, as the scene evaluates it there.
void PoseFrame(RetargetModel& source, int32_t frame) {
  SetCurrentFrame(frame);
  RefreshModel(source.model);
  ComputePose(source, frame, true);
}

// How far the whole character must be lifted so that the foot that drops furthest below
// its hip over the motion, once its squashed leg is brought back to its rest length, still
// reaches the ground: measured on the frame of the deepest drop.
double MeasureGroundLift(RetargetModel& source, const LimbRoles& roles, int32_t start, int32_t end,
                         ScopedProgressBar& progress) {
  const std::vector<StructurePlane>& planes = source.structure->planes;
  double deepest_drop = 0.0;
  double lift = 0.0;
  // 64-bit frame counters: the range may end at the largest 32-bit frame.
  for (int64_t f = start; f <= end; ++f) {
    progress.Increment();
    PoseFrame(source, static_cast<int32_t>(f));
    for (size_t p = 0; p < planes.size(); ++p) {
      const StructurePlane& plane = planes[p];
      if (!IsNode(source, plane.span) || !IsNode(source, plane.anchor_index)) continue;
      const LimbMeasure limb = MeasureLimb(source, plane);
      const double drop =
          -(Position(source, plane.span) - Position(source, plane.anchor_index)).GetY();
      const double scaled_drop = roles.planted[p] && limb.IsShort()
                                     ? drop * kShortLimbRatio * limb.rest_length / limb.chain_length
                                     : 0.0;
      if (drop > deepest_drop) {
        deepest_drop = drop;
        lift = scaled_drop > drop ? scaled_drop - drop : 0.0;
      }
    }
  }
  return std::isfinite(lift) ? lift : 0.0;
}

// A squashed limb that is not a planted foot reaches as far as its rest length along the
// direction it points in. Planted feet stay where they are; the lift takes care of them.
void RestoreLimbLengths(RetargetModel& source, const LimbRoles& roles) {
  const std::vector<StructurePlane>& planes = source.structure->planes;
  for (size_t p = 0; p < planes.size(); ++p) {
    const StructurePlane& plane = planes[p];
    if (roles.planted[p] || !IsNode(source, plane.span) || !IsNode(source, plane.anchor_index)) {
      continue;
    }
    const LimbMeasure limb = MeasureLimb(source, plane);
    if (!limb.IsShort()) continue;
    const CVector3 anchor = Position(source, plane.anchor_index);
    const CVector3 reach = Position(source, plane.span) - anchor;
    source.Node(plane.span)
        .global_pose.SetTranslation(anchor + reach * (limb.rest_length / limb.chain_length));
  }
}

void ApplyLift(RetargetModel& source, const LimbRoles& roles, double lift) {
  if (lift == 0.0) return;
  for (int32_t n = 0; n < source.NumNodes(); ++n) {
    if (!roles.lifted[static_cast<size_t>(n)]) continue;
    KRX::MATH::CTransformation& pose = source.Node(n).global_pose;
    CVector3 position = pose.GetTranslation();
    position.PutY(position.GetY() + lift);
    pose.SetTranslation(position);
  }
}

void WriteHeader(XmlStreamWriter& writer, const RetargetModel& source, int64_t frames) {
  const ModelStructure& structure = *source.structure;
  writer.StartElement("HEADER");
  writer.Text(kHeaderText);
  writer.TextElement("VERSION", kHostVersionText);
  writer.TextElement("AnimationLength", IntegerText(frames));
  NumberElement(writer, "legLength", source.leg_length);
  NumberElement(writer, "hipOffset", source.hip_offset);
  writer.TextElement("numNodes", IntegerText(structure.NumNodes()));
  writer.TextElement("numPlanes", IntegerText(structure.NumPlanes()));
  writer.TextElement("structure_type", ToWide(structure.type));
  writer.EndElement();
}

void WriteOutline(XmlStreamWriter& writer, const RetargetModel& source) {
  const ModelStructure& structure = *source.structure;
  writer.StartElement("NODES");
  for (int32_t i = 0; i < structure.NumNodes(); ++i) {
    writer.StartElement("NODE");
    writer.Attribute("obj_IsValid", KRX::CValue(source.Node(i).object.IsValid()).GetString());
    writer.Attribute("name", ToWide(structure.nodes[static_cast<size_t>(i)].name));
    writer.NumberAttribute("length", source.Node(i).length);
    writer.EndElement();
  }
  writer.EndElement();
  writer.StartElement("PLANES");
  for (const StructurePlane& plane : structure.planes) {
    writer.StartElement("PLANE");
    writer.Attribute("name", ToWide(plane.name));
    IntegerAttribute(writer, "span", plane.span);
    IntegerAttribute(writer, "mid", plane.mid);
    IntegerAttribute(writer, "anchor_index", plane.anchor_index);
    IntegerAttribute(writer, "numbones", static_cast<int64_t>(plane.chain.size()));
    for (const int32_t bone : plane.chain) {
      writer.StartElement("Bone");
      IntegerAttribute(writer, "boneindex", bone);
      writer.EndElement();
    }
    writer.EndElement();
  }
  writer.EndElement();
}

void WritePose(XmlStreamWriter& writer, const RetargetModel& source, int32_t frame) {
  writer.StartElement("POSE");
  IntegerAttribute(writer, "time", frame);
  for (int32_t i = 0; i < source.NumNodes(); ++i) {
    const NodeMapEntry& entry = source.Node(i);
    writer.StartElement("NODE");
    writer.Attribute("name", entry.object.GetName());
    writer.TransformAttribute("global", entry.global_pose);
    IntegerAttribute(writer, "id", i);
    writer.EndElement();
  }
  writer.EndElement();
}

void WriteCurveKeys(XmlStreamWriter& writer, const RetargetModel& source, int32_t start,
                    int32_t end, KeyOnFirstFrame on_first) {
  writer.StartElement("FCURVE_KEYS");
  if (FindPropertyByName(source.model, kAdjustmentPage, nullptr)) {
    writer.AsciiAttribute("num_nodes_with_fcurve_keys", "0");
    writer.EndElement();
    return;
  }
  const std::vector<ObjectCurveKeys> records = GatherCurveKeys(source, start, end, on_first);
  IntegerAttribute(writer, "num_nodes_with_fcurve_keys", static_cast<int64_t>(records.size()));
  for (const ObjectCurveKeys& keys : records) {
    writer.StartElement("NODE");
    writer.Attribute("name", ToWide(keys.record.node_name));
    for (size_t c = 0; c < kCurveChannelNames.size(); ++c) {
      if (!keys.driven[c]) continue;
      writer.StartElement("CURVE");
      writer.Attribute("name", ToWide(kCurveChannelNames[c]));
      IntegerAttribute(writer, "numkeys", static_cast<int64_t>(keys.record.channels[c].size()));
      for (const double time : keys.record.channels[c]) {
        writer.StartElement("KEY");
        writer.NumberAttribute("keytime", time);
        writer.EndElement();
      }
      writer.EndElement();
    }
    writer.EndElement();
  }
  writer.EndElement();
}

CString ErrorLines(const std::vector<CString>& errors) {
  CString text;
  for (const CString& error : errors) text += L"\n" + error;
  return text;
}

}  // namespace

bool WriteKavorFile(RetargetModel& source, const CString& path, int32_t start, int32_t end,
                    KeyOnFirstFrame on_first) {
  if (source.skeleton != nullptr || !source.poses.empty()) {
    LogWarning(L"Normalized motion must originate from a rig.");
    return false;
  }
  if (source.structure == nullptr) {
    LogWarning(L"The motion cannot be saved: the rig has no structure.");
    return false;
  }
  const int64_t frames = int64_t{end} - int64_t{start} + 1;
  if (frames < 1) {
    LogWarning(L"The motion cannot be saved: the end frame " + IntegerText(end) +
               L" comes before the start frame " + IntegerText(start) + L".");
    return false;
  }
  if (frames > kMaxMotionFrames || frames * source.NumNodes() > kMaxMotionPoses) {
    LogWarning(L"The motion cannot be saved: " + IntegerText(frames) + L" frames of " +
               IntegerText(source.NumNodes()) + L" nodes are more than a motion file holds.");
    return false;
  }

  // The file is written as the frames are read, so that no part of it is held in memory.
  XmlStreamWriter writer(path);
  if (!writer.IsOpen()) {
    ShowWarning(L"The motion file could not be written completely: " + path +
                ErrorLines(writer.Errors()));
    return false;
  }
  ScopedProgressBar progress(L"Saving Normalized Data ...",
                             static_cast<int>(std::min<int64_t>((frames - 1) * 2, INT_MAX)));
  writer.StartElement("ROOT");
  WriteHeader(writer, source, frames);
  WriteOutline(writer, source);

  const double current = CurrentFrame();
  const bool has_map = FindPropertyByName(source.model, kModelMapProperty, nullptr);
  const LimbRoles roles = FindLimbRoles(source);
  const double lift = has_map ? MeasureGroundLift(source, roles, start, end, progress) : 0.0;
  writer.StartElement("POSE_VALUES");
  for (int64_t f = start; f <= end; ++f) {
    progress.Increment();
    PoseFrame(source, static_cast<int32_t>(f));
    NormalizeRotations(source, true);
    if (has_map) {
      RestoreLimbLengths(source, roles);
      ApplyLift(source, roles, lift);
    }
    WritePose(writer, source, static_cast<int32_t>(f));
  }
  writer.EndElement();
  SetCurrentFrame(current);
  RefreshModel(source.model);

  WriteCurveKeys(writer, source, start, end, on_first);
  if (!writer.Finish()) {
    ShowWarning(L"The motion file could not be written completely: " + path +
                ErrorLines(writer.Errors()));
    return false;
  }
  // A file beyond what the XML reader takes could not be loaded again.
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(path.GetAsciiString(), error);
  if (!error && size > kMaxXmlFileBytes) {
    ShowWarning(L"The motion file " + path + L" is larger than a motion file may be (" +
                IntegerText(static_cast<int64_t>(kMaxXmlFileBytes >> 20)) +
                L" MB) and cannot be loaded again: save a shorter range.");
    return false;
  }
  return true;
}

}  // namespace kavor

#include "kavor/plot/motion_plotter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/io/progress_bar.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/model_map.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/play_control.h"
#include "kavor/operators/retarget_context.h"
#include "kavor/operators/retarget_setup.h"
#include "kavor/plot/key_marks.h"
#include "kavor/structure/structure_property.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using KRX::MATH::RotationOrder;

// The name under which an up-vector object's source curves are kept.
constexpr const char* kUpVectorNodeSuffix = "_Up_Vector_Node_Tag_TRVL";
// A limb end that moves less than this fraction of its bone's length in at least two axes
// between two frames stands still.
constexpr double kPlantedFraction = 0.001;

CTransformation CurrentGlobal(const KRX::X3DObject& object) {
  return object.GetKinematics().GetGlobal().GetTransform(kCurrentTime);
}

RotationOrder PlotRotationOrder(const KRX::X3DObject& object) {
  const KRX::CValue value =
      object.GetKinematics().GetLocal().GetParameterValue(L"rotorder", kCurrentTime);
  const int order = value.IsEmpty() ? 0 : value.GetInt();
  return order >= 0 && order <= 5 ? static_cast<RotationOrder>(order) : RotationOrder::XYZ;
}

KRX::X3DObject PlotParent(const KRX::X3DObject& object) {
  return KRX::X3DObject(object.GetParent());
}

// `global` in the space of `offset` under the parent's current global transform: the local
// values that put the object there.
PlotSample LocalSample(const CTransformation& global, const CTransformation& offset,
                       const KRX::X3DObject& parent) {
  const CTransformation parent_global =
      parent.IsValid() ? CurrentGlobal(parent) : CTransformation();
  const CTransformation space = CTransformation::Mul(offset, parent_global);
  const CTransformation local = KRX::MATH::MapWorldPoseToObjectSpace(space, global);
  return {local.GetTranslation(), local.GetRotationQuaternion()};
}

PlotSample GlobalSample(const CTransformation& global) {
  return {global.GetTranslation(), global.GetRotationQuaternion()};
}

CTransformation ToTransform(const PlotSample& sample) {
  CTransformation t;
  t.SetTranslation(sample.position);
  t.SetRotationFromQuaternion(sample.rotation);
  return t;
}

// The plotted channels of a sub-control from its decompose channel bits.
uint8_t SubControlChannels(uint32_t bits, bool single_axis) {
  uint8_t channels = 0;
  if (bits & (1u << kDecompPX)) channels |= 1u << kPlotPosX;
  if (bits & (1u << kDecompPY)) channels |= 1u << kPlotPosY;
  if (bits & (1u << kDecompPZ)) channels |= 1u << kPlotPosZ;
  if (bits & (1u << kDecompRY)) channels |= 1u << kPlotRotY;
  const bool rx = (bits & (1u << kDecompRX)) != 0;
  const bool rz = (bits & (1u << kDecompRZ)) != 0;
  if (single_axis ? rx : (rx && rz)) channels |= 1u << kPlotRotX;
  if (single_axis ? rz : (rx && rz)) channels |= 1u << kPlotRotZ;
  return channels;
}

uint8_t GlueChannels(GlueMocapType type) {
  switch (type) {
    case GlueMocapType::kPositionAndRotation:
      return kPlotPosition | kPlotRotation;
    case GlueMocapType::kPositionOnly:
      return kPlotPosition;
    case GlueMocapType::kRotationOnly:
      return kPlotRotation;
  }
  return 0;
}

}  // namespace

void SampleTable::Resize(int32_t columns, int32_t frames) {
  columns_ = std::max(columns, 0);
  frames_ = static_cast<size_t>(std::max(frames, 0));
  samples_.assign(static_cast<size_t>(columns_) * frames_, PlotSample{});
}

MotionPlotter::MotionPlotter(const KRX::Model& model, const PlotSettings& settings)
    : model_(model), settings_(settings), frames_(std::max(settings.FrameCount(), 0)) {
  reduce_ = settings_.ReducesKeys();
  std::optional<ModelStructure> structure = ReadStructureProperty(model_);
  failure_ = L"Cannot create structure.";
  if (!structure) return;
  failure_ = L"Failed to read model map from target model.";
  structure_ = std::make_unique<ModelStructure>(std::move(*structure));
  retarget_ = std::make_unique<RetargetModel>(model_, structure_.get());
  ReadModelMap(*retarget_);
  if (!retarget_->valid) return;
  glue_ = ReadGlueMap(model_);
  if (!glue_) return;
  ResolveGlueMap(*glue_, model_, *retarget_);

  for (const KRX::X3DObject& object : model_.FindChildren()) evaluated_.push_back(object);
  // A retarget opened from a file binds on its first evaluation, and its chain operators
  // write nothing before their second: evaluate twice before asking for the live state.
  EvaluateModel();
  EvaluateModel();
  live_ = FindLiveContext(model_);

  PrepareRows();
  planted_.assign(static_cast<size_t>(structure_->NumPlanes()) * static_cast<size_t>(frames_), 0);
  previous_end_.assign(static_cast<size_t>(structure_->NumPlanes()), CVector3());
  values_.resize(static_cast<size_t>(frames_));
  for (std::vector<double>& row : angles_) row.resize(static_cast<size_t>(frames_));
  ready_ = frames_ > 0;
  failure_ =
      ready_ ? KRX::CString()
             : KRX::CString(
                   L"There are no frames to plot: the end frame must come after the start frame.");
}

MotionPlotter::~MotionPlotter() = default;

int32_t MotionPlotter::PlaneOfNode(int32_t node) const {
  const int32_t nodes = structure_->NumNodes();
  if (node < 0 || node >= nodes) return -1;
  const int32_t parent = structure_->nodes[static_cast<size_t>(node)].parent;
  for (int32_t p = 0; p < structure_->NumPlanes(); ++p) {
    const StructurePlane& plane = structure_->planes[static_cast<size_t>(p)];
    if (plane.span >= 0 && (plane.span == node || plane.span == parent)) return p;
    const KRX::X3DObject& anchor = retarget_->Node(plane.anchor_index).object;
    const bool free_limb = !anchor.IsValid() || !anchor.IsA(KRX::ClassID::ChainBone);
    if (free_limb && std::find(plane.chain.begin(), plane.chain.end(), node) != plane.chain.end()) {
      return p;
    }
  }
  return -1;
}

void MotionPlotter::PrepareRows() {
  int32_t sub_column = 0;
  for (const GlueMocapEntry& entry : glue_->mocaps) {
    if (!entry.object.IsValid()) continue;
    GlueRow row;
    row.entry = &entry;
    row.node = entry.node_index;
    row.parent = PlotParent(entry.object);
    row.chain_bone = entry.object.IsA(KRX::ClassID::ChainBone);
    const NodeMapEntry& node = retarget_->Node(entry.node_index);
    if (!node.sub_controls.empty()) {
      row.first_sub_control = sub_column;
      for (const SubControlEntry& sub : node.sub_controls) {
        SubControlRow control;
        control.object = sub.object;
        if (sub.object.IsValid()) {
          control.parent = PlotParent(sub.object);
          control.neutral = NeutralPose(sub.object);
        }
        control.channels = sub.channels;
        control.name = sub.name;
        sub_controls_.push_back(std::move(control));
        ++sub_column;
      }
    } else if (reduce_ && live_ != nullptr) {
      row.plane = PlaneOfNode(row.node);
      for (int32_t p = 0; p < structure_->NumPlanes(); ++p) {
        const StructurePlane& plane = structure_->planes[static_cast<size_t>(p)];
        if (plane.span == row.node && row.end_of < 0) row.end_of = p;
        if (plane.anchor_index == row.node && !row.chain_bone && row.anchor_of < 0) {
          row.anchor_of = p;
        }
      }
    }
    const std::string name = ToNarrow(entry.object.GetName());
    for (const GlueSpineEntry& spine : glue_->spines) {
      if (spine.end_name == name) row.every_frame = true;
    }
    rows_.push_back(row);
  }
  for (const GluePlaneEntry& plane : glue_->planes) {
    ObjectRow row;
    row.object = plane.object;
    if (plane.object.IsValid()) {
      row.parent = PlotParent(plane.object);
      row.neutral = NeutralPose(plane.object);
    }
    row.node_name = plane.plane_name + kUpVectorNodeSuffix;
    up_vectors_.push_back(std::move(row));
  }
  for (const GlueSpineEntry& spine : glue_->spines) {
    for (const GlueSpineNode& node : spine.nodes) {
      ObjectRow row;
      row.object = node.object;
      if (node.object.IsValid()) {
        row.parent = PlotParent(node.object);
        row.node_name = ToNarrow(node.object.GetName());
      }
      row.neutral = node.neutral_pose;
      spine_nodes_.push_back(std::move(row));
    }
  }
  glue_samples_.Resize(static_cast<int32_t>(rows_.size()), frames_);
  up_vector_samples_.Resize(static_cast<int32_t>(up_vectors_.size()), frames_);
  spine_samples_.Resize(static_cast<int32_t>(spine_nodes_.size()), frames_);
  sub_control_samples_.Resize(sub_column, frames_);
}

void MotionPlotter::EvaluateModel() {
  for (const KRX::X3DObject& object : evaluated_) (void)CurrentGlobal(object);
  (void)model_.GetKinematics().GetGlobal().GetTransform(kCurrentTime);
}

const uint8_t* MotionPlotter::PlantedRow(int32_t plane) const {
  if (plane < 0 || plane >= structure_->NumPlanes()) return nullptr;
  return planted_.data() + static_cast<size_t>(plane) * static_cast<size_t>(frames_);
}

void MotionPlotter::SamplingPass(ScopedProgressBar& progress) {
  const double remembered = CurrentFrame();
  for (int32_t i = 0; i < frames_; ++i) {
    progress.Increment();
    SetCurrentFrame(settings_.start + i);
    EvaluateModel();
    for (size_t r = 0; r < rows_.size(); ++r) {
      const GlueRow& row = rows_[r];
      const int32_t column = static_cast<int32_t>(r);
      if (row.first_sub_control >= 0) {
        const std::vector<SubControlEntry>& subs = retarget_->Node(row.node).sub_controls;
        for (size_t s = 0; s < subs.size(); ++s) {
          const SubControlRow& control =
              sub_controls_[static_cast<size_t>(row.first_sub_control) + s];
          if (!control.object.IsValid()) continue;
          sub_control_samples_.At(row.first_sub_control + static_cast<int32_t>(s), i) =
              LocalSample(CurrentGlobal(control.object), control.neutral, control.parent);
        }
        continue;
      }
      const CTransformation global = CurrentGlobal(row.entry->object);
      if (row.plane < 0) {
        glue_samples_.At(column, i) = LocalSample(global, row.entry->neutral_pose, row.parent);
        continue;
      }
      // A limb's joints keep their global pose for the chain pass; a free limb's anchor
      // carries its plane's up-vector instead.
      glue_samples_.At(column, i) = GlobalSample(global);
      if (row.anchor_of >= 0) {
        glue_samples_.At(column, i).position = live_->model->Plane(row.anchor_of).up_vector;
      }
      if (row.end_of >= 0) {
        const size_t slot = static_cast<size_t>(row.end_of);
        uint8_t* planted = planted_.data() + slot * static_cast<size_t>(frames_);
        planted[i] = 0;
        const CVector3 position = global.GetTranslation();
        if (i > 0) {
          const int32_t end = structure_->planes[slot].span;
          const double threshold = kPlantedFraction * retarget_->Node(end).length;
          const CVector3 delta = position - previous_end_[slot];
          const int still = (std::abs(delta.GetX()) < threshold) +
                            (std::abs(delta.GetY()) < threshold) +
                            (std::abs(delta.GetZ()) < threshold);
          if (still >= 2) planted[i - 1] = planted[i] = 1;
        }
        previous_end_[slot] = position;
      }
    }
    for (size_t u = 0; u < up_vectors_.size(); ++u) {
      const ObjectRow& row = up_vectors_[u];
      if (!row.object.IsValid()) continue;
      up_vector_samples_.At(static_cast<int32_t>(u), i) =
          LocalSample(CurrentGlobal(row.object), row.neutral, row.parent);
    }
    for (size_t s = 0; s < spine_nodes_.size(); ++s) {
      const ObjectRow& row = spine_nodes_[s];
      if (!row.object.IsValid()) continue;
      spine_samples_.At(static_cast<int32_t>(s), i) =
          LocalSample(CurrentGlobal(row.object), row.neutral, row.parent);
    }
  }
  SetCurrentFrame(remembered);
  EvaluateModel();
}

void MotionPlotter::ChainPass() {
  const double remembered = CurrentFrame();
  const int32_t planes = structure_->NumPlanes();
  for (int32_t i = 0; i < frames_; ++i) {
    SetCurrentFrame(settings_.start + i);
    EvaluateModel();
    KRX::KinematicState model_global = model_.GetKinematics().GetGlobal();
    model_global.PutTransform(model_global.GetTransform(kCurrentTime), kCurrentTime);

    for (size_t r = 0; r < rows_.size(); ++r) {
      const GlueRow& row = rows_[r];
      if (row.chain_bone || row.first_sub_control >= 0) continue;
      const PlotSample& sample = glue_samples_.At(static_cast<int32_t>(r), i);
      for (int32_t p = 0; p < planes; ++p) {
        const StructurePlane& plane = structure_->planes[static_cast<size_t>(p)];
        if (plane.anchor_index == row.node) {
          retarget_->Plane(p).up_vector = sample.position;
          retarget_->Node(plane.anchor_index).global_pose = CurrentGlobal(row.entry->object);
        }
        if (plane.span == row.node) {
          retarget_->Node(plane.span).global_pose = ToTransform(sample);
          SolveLimbs(*retarget_);
        }
      }
    }
    for (size_t r = 0; r < rows_.size(); ++r) {
      const GlueRow& row = rows_[r];
      if (row.chain_bone || row.first_sub_control >= 0 || row.plane < 0) continue;
      const int32_t parent_node = row.node >= 0 && row.node < structure_->NumNodes()
                                      ? structure_->nodes[static_cast<size_t>(row.node)].parent
                                      : -1;
      for (int32_t p = 0; p < planes; ++p) {
        const StructurePlane& plane = structure_->planes[static_cast<size_t>(p)];
        const auto at = std::find(plane.chain.begin(), plane.chain.end(), row.node);
        const bool chain_member = at != plane.chain.end() && at != plane.chain.begin();
        if (!chain_member && plane.span != row.node && plane.span != parent_node) continue;
        KRX::X3DObject object = row.entry->object;
        CTransformation pose;
        if (chain_member) {
          pose = retarget_->Node(row.node).global_pose;
          pose.SetTranslation(CurrentGlobal(object).GetTranslation());
        } else {
          pose = ToTransform(glue_samples_.At(static_cast<int32_t>(r), i));
        }
        object.GetKinematics().GetGlobal().PutTransform(pose, kCurrentTime);
        glue_samples_.At(static_cast<int32_t>(r), i) =
            LocalSample(pose, row.entry->neutral_pose, row.parent);
        break;
      }
    }
  }
  SetCurrentFrame(remembered);
  EvaluateModel();
}

void MotionPlotter::PlotObject(const KRX::X3DObject& object, const PlotSample* column,
                               uint8_t channels, RotationOrder order, const uint8_t* planted,
                               const std::string& node_name, bool every_frame) {
  if (!object.IsValid() || channels == 0) return;
  const size_t frames = static_cast<size_t>(frames_);
  if (channels & kPlotRotation) {
    // Unrolled in radians, against the previous frame's unrolled angle, then converted.
    double previous[3] = {0.0, 0.0, 0.0};
    for (size_t i = 0; i < frames; ++i) {
      const CVector3 angles = CRotation(column[i].rotation).GetXYZAngles(order);
      double a[3] = {angles.GetX(), angles.GetY(), angles.GetZ()};
      for (int k = 0; k < 3; ++k) {
        if (i > 0) a[k] = UnrollAngle(a[k], previous[k]);
        previous[k] = a[k];
        angles_[k][i] = a[k] * kRadiansToDegrees;
      }
    }
  }
  std::span<const uint8_t> planted_row;
  if (planted != nullptr) planted_row = std::span<const uint8_t>(planted, frames);
  for (int channel = 0; channel < kPlotChannelCount; ++channel) {
    if (!(channels & (1u << channel))) continue;
    std::span<const double> values;
    std::span<const uint8_t> marks;
    if (channel < kPlotPosX) {
      values = angles_[channel];
    } else {
      for (size_t i = 0; i < frames; ++i) {
        const CVector3& p = column[i].position;
        values_[i] = channel == kPlotPosX ? p.GetX() : channel == kPlotPosY ? p.GetY() : p.GetZ();
      }
      values = values_;
      marks = planted_row;
    }
    keyer_->Key(object, channel, values, marks, node_name, every_frame);
  }
}

PlotSummary MotionPlotter::Run() {
  PlotSummary summary;
  summary.frames = frames_;
  if (!ready_) return summary;
  const std::vector<CurveKeyRecord>* source_curves = live_ ? &live_->layout.curves : nullptr;
  keyer_ = std::make_unique<ChannelKeyer>(
      settings_, source_curves, live_ ? live_->insertion_frame : 0, retarget_->leg_length);

  ScopedProgressBar progress(L"Calculating Local Transforms ...", frames_);
  SamplingPass(progress);

  const int32_t objects =
      static_cast<int32_t>(rows_.size() + up_vectors_.size() + spine_nodes_.size());
  progress.SetMaximum(objects * frames_ + frames_);
  progress.SetValue(0);
  progress.SetCaption(L"Fitting Curves ...");
  const auto advance = [&] {
    progress.SetValue(std::min(objects * frames_ + frames_, ++summary.objects * frames_));
  };

  std::vector<size_t> deferred;
  for (size_t r = 0; r < rows_.size(); ++r) {
    const GlueRow& row = rows_[r];
    if (row.first_sub_control >= 0) {
      const std::vector<SubControlEntry>& subs = retarget_->Node(row.node).sub_controls;
      for (size_t s = 0; s < subs.size(); ++s) {
        const int32_t column = row.first_sub_control + static_cast<int32_t>(s);
        const SubControlRow& control = sub_controls_[static_cast<size_t>(column)];
        PlotObject(control.object, sub_control_samples_.Column(column),
                   SubControlChannels(control.channels, settings_.options.single_axis_sub_controls),
                   RotationOrder::XYZ, nullptr, control.name, false);
      }
      advance();
      continue;
    }
    if (row.plane >= 0) {
      deferred.push_back(r);
      continue;
    }
    PlotObject(row.entry->object, glue_samples_.Column(static_cast<int32_t>(r)),
               GlueChannels(row.entry->type), PlotRotationOrder(row.entry->object), nullptr,
               row.entry->tag_obj, row.every_frame);
    advance();
  }
  for (size_t u = 0; u < up_vectors_.size(); ++u) {
    const ObjectRow& row = up_vectors_[u];
    PlotObject(row.object, up_vector_samples_.Column(static_cast<int32_t>(u)), kPlotPosition,
               RotationOrder::XYZ, nullptr, row.node_name, false);
    advance();
  }
  for (size_t s = 0; s < spine_nodes_.size(); ++s) {
    const ObjectRow& row = spine_nodes_[s];
    if (row.object.IsValid()) {
      PlotObject(row.object, spine_samples_.Column(static_cast<int32_t>(s)), kPlotRotation,
                 PlotRotationOrder(row.object), nullptr, row.node_name, false);
    }
    advance();
  }
  if (!deferred.empty()) {
    ChainPass();
    for (size_t r : deferred) {
      const GlueRow& row = rows_[r];
      PlotObject(row.entry->object, glue_samples_.Column(static_cast<int32_t>(r)),
                 GlueChannels(row.entry->type), PlotRotationOrder(row.entry->object),
                 PlantedRow(row.plane), row.entry->tag_obj, row.every_frame);
      advance();
    }
  }
  summary.rotations = keyer_->Figures(0);
  summary.positions = keyer_->Figures(1);
  summary.leg_length = retarget_->leg_length;
  RemoveRetargetSetup(model_);
  return summary;
}

KRX::CString DescribePlot(const PlotSummary& summary) {
  const auto per_key = [&](const ChannelKeyer::KindFigures& kind) {
    return kind.keys > 0 ? static_cast<double>(kind.curves) * summary.frames / kind.keys : 0.0;
  };
  const double leg = summary.leg_length > 0.0 ? summary.leg_length : 1.0;
  char line[320];
  std::snprintf(line, sizeof line,
                "Plotted %d objects over %d frames: rotations %.2f frames per key (largest "
                "deviation %.4f degrees), positions %.2f frames per key (largest deviation "
                "%.5f of the leg length).",
                summary.objects, summary.frames, per_key(summary.rotations),
                summary.rotations.largest_deviation, per_key(summary.positions),
                summary.positions.largest_deviation / leg);
  return KRX::CString(ToWide(line));
}

bool PlotRetargetMotion(const KRX::Model& model, const PlotSettings& settings) {
  MotionPlotter plotter(model, settings);
  if (!plotter.IsReady()) {
    ShowWarning(plotter.Failure());
    return false;
  }
  LogInfo(DescribePlot(plotter.Run()));
  return true;
}

}  // namespace kavor

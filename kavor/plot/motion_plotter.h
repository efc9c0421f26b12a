// Baking a live retarget into function curves.
//
// A retargeted rig moves only while its retarget operators evaluate. The plotter samples
// the evaluated rig once per frame into flat tables (one column per plotted object, frame
// after frame), keys the local transform channels of every object the retarget drives
// from those tables - every frame, or only the frames a key reduction keeps - and then
// takes the retarget setup off the model, so that the curves alone play the motion.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kavor/maps/glue_map.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/plot/plot_channel.h"
#include "kavor/plot/plot_settings.h"
#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

struct RetargetOpContext;

// A sampled pose: position and rotation (the plotted channels need nothing else).
struct PlotSample {
  KRX::MATH::CVector3 position;
  KRX::MATH::CQuaternion rotation;
};

// A table of samples, F frames per column, column after column.
class SampleTable {
 public:
  void Resize(int32_t columns, int32_t frames);
  PlotSample& At(int32_t column, int32_t frame) {
    return samples_[static_cast<size_t>(column) * frames_ + static_cast<size_t>(frame)];
  }
  const PlotSample* Column(int32_t column) const {
    return samples_.data() + static_cast<size_t>(column) * frames_;
  }
  int32_t Columns() const { return columns_; }

 private:
  std::vector<PlotSample> samples_;
  size_t frames_ = 0;
  int32_t columns_ = 0;
};

// What the plot did, for reports and tests.
struct PlotSummary {
  int32_t objects = 0;
  int32_t frames = 0;
  double leg_length = 0.0;
  ChannelKeyer::KindFigures rotations;  // degrees
  ChannelKeyer::KindFigures positions;  // scene units
};

// One line for the log: frames per key and the largest deviation of each kind of channel.
KRX::CString DescribePlot(const PlotSummary& summary);

class MotionPlotter {
 public:
  MotionPlotter(const KRX::Model& model, const PlotSettings& settings);
  ~MotionPlotter();
  MotionPlotter(const MotionPlotter&) = delete;
  MotionPlotter& operator=(const MotionPlotter&) = delete;

  // False, with nothing changed, when the model's structure, maps or glue do not read or
  // there are no frames; Failure() then says why.
  bool IsReady() const { return ready_; }
  const KRX::CString& Failure() const { return failure_; }
  // Samples, keys and removes the retarget setup.
  PlotSummary Run();

 private:
  // One mocap entry of the glue with a valid rig object.
  struct GlueRow {
    const GlueMocapEntry* entry = nullptr;
    int32_t node = -1;
    KRX::X3DObject parent;
    int32_t plane = -1;      // the limb plane the row belongs to (key reduction only)
    int32_t end_of = -1;     // the plane whose end node this is
    int32_t anchor_of = -1;  // the plane whose anchor this is, for an object off a joint chain
    bool chain_bone = false;
    bool every_frame = false;        // the end object of a spine: every frame is a key
    int32_t first_sub_control = -1;  // column of its first sub-control
  };
  struct SubControlRow {
    KRX::X3DObject object;
    KRX::X3DObject parent;
    KRX::MATH::CTransformation neutral;
    uint32_t channels = 0;
    std::string name;
  };
  struct ObjectRow {  // an up-vector object or a spine node
    KRX::X3DObject object;
    KRX::X3DObject parent;
    KRX::MATH::CTransformation neutral;
    std::string node_name;
  };

  void PrepareRows();
  int32_t PlaneOfNode(int32_t node) const;
  void SamplingPass(class ScopedProgressBar& progress);
  void ChainPass();
  void EvaluateModel();
  void PlotObject(const KRX::X3DObject& object, const PlotSample* column, uint8_t channels,
                  KRX::MATH::RotationOrder order, const uint8_t* planted,
                  const std::string& node_name, bool every_frame);
  const uint8_t* PlantedRow(int32_t plane) const;

  KRX::Model model_;
  PlotSettings settings_;
  int32_t frames_ = 0;
  bool ready_ = false;
  KRX::CString failure_;
  bool reduce_ = false;
  std::unique_ptr<ModelStructure> structure_;
  std::unique_ptr<RetargetModel> retarget_;
  std::unique_ptr<GlueMap> glue_;
  RetargetOpContext* live_ = nullptr;

  std::vector<GlueRow> rows_;
  std::vector<SubControlRow> sub_controls_;
  std::vector<ObjectRow> up_vectors_;
  std::vector<ObjectRow> spine_nodes_;
  std::vector<KRX::X3DObject> evaluated_;  // every 3D object below the model

  SampleTable glue_samples_;
  SampleTable up_vector_samples_;
  SampleTable spine_samples_;
  SampleTable sub_control_samples_;
  std::vector<uint8_t> planted_;                   // [plane][frame]
  std::vector<KRX::MATH::CVector3> previous_end_;  // [plane]: the end's last position
  std::vector<double> values_;                     // one channel's values, reused
  std::vector<double> angles_[3];
  std::unique_ptr<ChannelKeyer> keyer_;
};

// Plots the model's live retarget over the settings' frames and removes the retarget
// setup. False when nothing could be plotted.
bool PlotRetargetMotion(const KRX::Model& model, const PlotSettings& settings);

}  // namespace kavor

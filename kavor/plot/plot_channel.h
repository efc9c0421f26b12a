// Keying one plotted channel of one rig object: every frame as a linear curve, or the
// frames a key reduction keeps, joined by fitted Bezier segments.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kavor/plot/plot_settings.h"
#include "kavor/plot/segment_fit.h"
#include "krx/krx.h"

namespace kavor {

struct CurveKeyRecord;

// The six plotted local parameters, in the order they are keyed.
enum PlotChannel : int { kPlotRotX = 0, kPlotRotY, kPlotRotZ, kPlotPosX, kPlotPosY, kPlotPosZ };
inline constexpr int kPlotChannelCount = 6;
const wchar_t* PlotChannelName(int channel);
// The channel's index in a CurveKeyRecord (posx, posy, posz, rotx, roty, rotz).
int CurveRecordChannel(int channel);

inline constexpr uint8_t kPlotPosition = (1u << kPlotPosX) | (1u << kPlotPosY) | (1u << kPlotPosZ);
inline constexpr uint8_t kPlotRotation = (1u << kPlotRotX) | (1u << kPlotRotY) | (1u << kPlotRotZ);

// Keys channels for one plot. Holds the scratch rows that every channel reuses, so that
// keying allocates nothing per frame.
class ChannelKeyer {
 public:
  // `source_curves`: the key times of the curves the live motion came from, played from
  // `insertion_frame` (null without a live retarget).
  // `leg_length` scales the position tolerance of the settings' options.
  ChannelKeyer(const PlotSettings& settings, const std::vector<CurveKeyRecord>* source_curves,
               int32_t insertion_frame, double leg_length);

  // Replaces the curve of `object`'s local parameter `channel` by keys through `values`
  // (one per plotted frame). `planted` (one byte per frame, or empty) forces keys where a
  // limb end stands still; `node_name` finds the source curve whose keys are preserved.
  // `every_frame` keys every frame of the channel, as an interval of one frame would.
  void Key(const KRX::X3DObject& object, int channel, std::span<const double> values,
           std::span<const uint8_t> planted, const std::string& node_name, bool every_frame);

  bool ReducesKeys() const { return reduce_; }

  // What the channels keyed so far came to, per kind (0 rotations, 1 positions): curves,
  // keys, and the largest distance of a curve from its samples at the plotted frames
  // (degrees, scene units).
  struct KindFigures {
    int64_t curves = 0;
    int64_t keys = 0;
    double largest_deviation = 0.0;
  };
  const KindFigures& Figures(int kind) const { return figures_[kind]; }

 private:
  void KeyEveryFrame(const KRX::Parameter& parameter, std::span<const double> values);
  void KeyReduced(const KRX::Parameter& parameter, int channel, std::span<const double> values,
                  std::span<const uint8_t> planted, const std::string& node_name, bool every_frame);
  const std::vector<double>* SourceTimes(const std::string& node_name, int channel) const;

  PlotSettings settings_;
  bool reduce_ = false;
  const std::vector<CurveKeyRecord>* source_curves_ = nullptr;
  int32_t insertion_frame_ = 0;
  double position_tolerance_ = 0.0;
  std::vector<uint8_t> marks_;
  KindFigures figures_[2];
};

// The tangent scale of a curve: what one frame of handle length reads back as, measured
// by setting a known handle on temporary keys. The curve is emptied afterwards.
double CalibrateTangentScale(KRX::FCurve& curve);

// Writes the segments fitted through `keys` into the curve in one edit: keys at the
// segment ends, right handles of segment starts and left handles of segment ends, with
// aligned tangents except at broken keys.
void WriteFittedSegments(KRX::FCurve& curve, std::span<const SegmentFit> fits,
                         double tangent_scale);

}  // namespace kavor

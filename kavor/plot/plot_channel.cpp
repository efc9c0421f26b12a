#include "kavor/plot/plot_channel.h"

#include <algorithm>
#include <cmath>

#include "kavor/maps/retarget_model.h"
#include "kavor/plot/key_marks.h"

namespace kavor {
namespace {

// Keys made by the fit when no key exists at a segment end are matched within this.
constexpr double kKeyTolerance = 0.01;

}  // namespace

const wchar_t* PlotChannelName(int channel) {
  static constexpr const wchar_t* kNames[kPlotChannelCount] = {L"rotx", L"roty", L"rotz",
                                                               L"posx", L"posy", L"posz"};
  return channel >= 0 && channel < kPlotChannelCount ? kNames[channel] : L"";
}

int CurveRecordChannel(int channel) {
  return channel >= kPlotPosX ? channel - kPlotPosX : channel + 3;
}

ChannelKeyer::ChannelKeyer(const PlotSettings& settings,
                           const std::vector<CurveKeyRecord>* source_curves,
                           int32_t insertion_frame, double leg_length)
    : settings_(settings),
      reduce_(settings.ReducesKeys()),
      source_curves_(source_curves),
      insertion_frame_(insertion_frame),
      position_tolerance_(settings.options.position_tolerance * leg_length) {}

void ChannelKeyer::Key(const KRX::X3DObject& object, int channel, std::span<const double> values,
                       std::span<const uint8_t> planted, const std::string& node_name,
                       bool every_frame) {
  if (values.empty()) return;
  const KRX::Parameter parameter =
      object.GetKinematics().GetLocal().GetParameter(PlotChannelName(channel));
  // A missing parameter gets no curve; the plot goes on.
  if (!parameter.IsValid()) return;
  if (!reduce_) {
    KeyEveryFrame(parameter, values);
  } else {
    KeyReduced(parameter, channel, values, planted, node_name, every_frame);
  }
  const KRX::FCurve curve = parameter.GetFCurve();
  if (!curve.IsValid()) return;
  KindFigures& figures = figures_[channel >= kPlotPosX ? 1 : 0];
  ++figures.curves;
  figures.keys += curve.GetNumKeys();
  if (!reduce_) return;  // a key on every frame is exact there
  for (size_t i = 0; i < values.size(); ++i) {
    const double deviation =
        std::abs(curve.Eval(settings_.start + static_cast<double>(i)) - values[i]);
    figures.largest_deviation = std::max(figures.largest_deviation, deviation);
  }
}

void ChannelKeyer::KeyEveryFrame(const KRX::Parameter& parameter, std::span<const double> values) {
  KRX::Parameter target = parameter;
  target.AddSampledFCurve(settings_.start, 1.0, std::vector<double>(values.begin(), values.end()),
                          KRX::Interpolation::Linear);
}

const std::vector<double>* ChannelKeyer::SourceTimes(const std::string& node_name,
                                                     int channel) const {
  if (source_curves_ == nullptr) return nullptr;
  const size_t slot = static_cast<size_t>(CurveRecordChannel(channel));
  for (const CurveKeyRecord& record : *source_curves_) {
    if (record.node_name == node_name && !record.channels[slot].empty()) {
      return &record.channels[slot];
    }
  }
  return nullptr;
}

void ChannelKeyer::KeyReduced(const KRX::Parameter& parameter, int channel,
                              std::span<const double> values, std::span<const uint8_t> planted,
                              const std::string& node_name, bool every_frame) {
  const size_t frames = values.size();
  const double tolerance =
      channel >= kPlotPosX ? position_tolerance_ : settings_.options.rotation_tolerance;
  // With a tolerance the fit itself adds the keys the shape needs, so peaks and inflections
  // are not marked, and a planted stretch needs keys only where it begins and ends.
  const bool by_tolerance = tolerance > 0.0 && frames > 1 && !every_frame;
  marks_.assign(frames, 0);
  const double tol = MarkTolerance(values);
  const bool interval = settings_.interval || every_frame;
  const int step = every_frame ? 1 : settings_.interval_step;
  if (settings_.inflection && !every_frame && !by_tolerance) {
    MarkPeaksValleysInflections(values, tol, marks_);
  }
  if (interval) MarkInterval(step, marks_);
  if (by_tolerance) {
    for (size_t i = 0; i < planted.size() && i < frames; ++i) {
      const bool before = i > 0 && planted[i - 1];
      const bool after = i + 1 < planted.size() && planted[i + 1];
      if (planted[i] && !(before && after)) marks_[i] = 1;
    }
  } else if (!planted.empty()) {
    MarkPlanted(planted, marks_);
  }
  std::vector<double> keys = BuildKeyList(marks_);

  if (settings_.preserve) {
    if (const std::vector<double>* source = SourceTimes(node_name, channel)) {
      keys = MergeSourceKeyTimes(keys, *source, insertion_frame_, settings_.start);
    } else if (!interval && !settings_.inflection && source_curves_ != nullptr && !by_tolerance) {
      // Nothing to preserve on this channel: its shape decides the keys instead.
      MarkPeaksValleysInflections(values, tol, marks_);
      keys = BuildKeyList(marks_);
    }
  }

  SegmentFitOptions fit_options;
  fit_options.interpolate_last_interval = settings_.options.interpolate_last_interval;
  if (by_tolerance) keys = FitWithinTolerance(values, std::move(keys), tolerance, fit_options);

  KRX::Parameter target = parameter;
  KRX::FCurve curve = target.AddFCurve(KRX::FCurveType::Standard);
  if (!curve.IsValid()) return;
  if (frames == 1) {
    curve.AddKey(settings_.start, values[0], KRX::Interpolation::Bezier, kKeyTolerance);
    return;
  }
  const double scale = CalibrateTangentScale(curve);
  const std::vector<SegmentFit> fits = FitKeys(values, keys, settings_.start, fit_options);
  WriteFittedSegments(curve, fits, scale);
}

double CalibrateTangentScale(KRX::FCurve& curve) {
  curve.AddKey(1.0, 10.0, KRX::Interpolation::Bezier, kKeyTolerance);
  curve.AddKey(5.0, 10.0, KRX::Interpolation::Bezier, kKeyTolerance);
  double scale = 1.0;
  KRX::FCurveKey key = curve.GetKeyAtTime(5.0, kKeyTolerance);
  if (key.IsValid()) {
    key.PutLeftTan(-3.0, key.GetLeftTanY());
    const double read = key.GetLeftTanX();
    // A curve that does not keep the handle leaves the scale at one frame per unit.
    if (read != 0.0 && std::isfinite(read)) scale = -3.0 / read;
  }
  curve.RemoveKeys();
  return scale;
}

void WriteFittedSegments(KRX::FCurve& curve, std::span<const SegmentFit> fits,
                         double tangent_scale) {
  curve.BeginEdit();
  for (const SegmentFit& fit : fits) {
    // A key that is new keeps its own handles as the remembered ones.
    if (!curve.KeyExists(fit.p0.x, kKeyTolerance)) {
      curve.AddKey(fit.p0.x, fit.p0.y, KRX::Interpolation::Bezier, kKeyTolerance);
    }
    KRX::FCurveKey first = curve.GetKeyAtTime(fit.p0.x, kKeyTolerance);
    const double kept_left_x = first.GetLeftTanX();
    const double kept_left_y = first.GetLeftTanY();
    if (!curve.KeyExists(fit.p3.x, kKeyTolerance)) {
      curve.AddKey(fit.p3.x, fit.p3.y, KRX::Interpolation::Bezier, kKeyTolerance);
    }
    KRX::FCurveKey last = curve.GetKeyAtTime(fit.p3.x, kKeyTolerance);
    const double kept_right_x = last.GetRightTanX();
    const double kept_right_y = last.GetRightTanY();

    first = curve.GetKeyAtTime(fit.p0.x, kKeyTolerance);
    first.ClearConstraints();
    if (fit.broken_a) {
      first.PutLeftTan(kept_left_x * tangent_scale, kept_left_y);
    } else {
      first.PutConstraint(KRX::KeyConstraint::AlignTangents, true);
    }
    first.PutRightTan((fit.p1.x - fit.p0.x) * tangent_scale, fit.p1.y - fit.p0.y);

    last.ClearConstraints();
    if (fit.broken_b) {
      last.PutRightTan(kept_right_x * tangent_scale, kept_right_y);
    } else {
      last.PutConstraint(KRX::KeyConstraint::AlignTangents, true);
    }
    last.PutLeftTan((fit.p2.x - fit.p3.x) * tangent_scale, fit.p2.y - fit.p3.y);
  }
  curve.EndEdit();
}

}  // namespace kavor

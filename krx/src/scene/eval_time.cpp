// Time resolution, read scopes and transient puts.
#include <cmath>

#include "scene/evaluation.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

ParamItem* CurrentParam(Scene& scene) {
  SceneEvalState& eval = scene.eval;
  if (eval.current_stamp == StructureStamp()) return eval.current;
  eval.current = nullptr;
  eval.current_stamp = StructureStamp();
  if (!scene.project) return nullptr;
  for (const auto& property : scene.project->properties) {
    if (property->deleted || property->name != CString(L"Play Control")) continue;
    for (const auto& param : property->params) {
      if (!param->deleted && param->name == CString(L"Current")) {
        eval.current =
            param->cls == ClassID::Parameter ? static_cast<ParamItem*>(param.get()) : nullptr;
        return eval.current;
      }
    }
  }
  return nullptr;
}

}  // namespace

double CurrentFrameOf(Scene& scene) {
  ParamItem* current = CurrentParam(scene);
  return current ? current->value.GetDouble() : 1.0;
}

double ResolveTime(double time) {
  return time == kCurrentTime ? CurrentFrameOf(ActiveScene()) : time;
}

ReadScope::ReadScope(double time, bool scene_read) {
  Scene& scene = ActiveScene();
  const double current = CurrentFrameOf(scene);
  time_ = time == kCurrentTime ? current : time;
  if (EvalDepth() == 0) {
    SceneEvalState& eval = scene.eval;
    // A new current frame, or the scene evaluated at another frame than the transient
    // puts', ends them; a parameter read at another frame does not.
    const bool new_frame = eval.known_current_set && eval.known_current != current;
    eval.known_current = current;
    eval.known_current_set = true;
    if (!eval.transients.empty() && (new_frame || (scene_read && eval.transient_time != time_))) {
      EndTransients();
    }
  }
  ++EvalDepth();
}

ReadScope::~ReadScope() {
  --EvalDepth();
  FlushPendingRevision();
}

void EndTransients() {
  SceneEvalState& eval = ActiveScene().eval;
  if (eval.transients.empty()) return;
  const std::vector<std::weak_ptr<ParamItem>> ended = std::move(eval.transients);
  eval.transients.clear();
  for (const auto& weak : ended) {
    std::shared_ptr<ParamItem> param = weak.lock();
    if (!param) continue;
    param->transient_value.reset();
    Invalidate(*param);
  }
}

void AddTransient(ParamItem& param, const CValue& value, double time) {
  SceneEvalState& eval = ActiveScene().eval;
  if (!eval.transients.empty() && eval.transient_time != time) EndTransients();
  eval.transient_time = time;
  if (!param.transient_value) {
    eval.transients.push_back(std::static_pointer_cast<ParamItem>(param.shared_from_this()));
  }
  if (param.transient_value && *param.transient_value == value) return;
  param.transient_value = value;
  param.transient_time = time;
  Invalidate(param);
}

double CurrentFrame() { return CurrentFrameOf(ActiveScene()); }

void SetCurrentFrame(double frame) {
  ParamItem* current = CurrentParam(ActiveScene());
  if (!current || !std::isfinite(frame)) return;
  const CValue value = ConvertForParam(*current, frame);
  if (current->value == value) return;
  current->value = value;
  // Evaluated values are kept by time: a new current frame changes none of them, it only
  // ends the transient puts.
  EndTransients();
}

}  // namespace KRX::rt

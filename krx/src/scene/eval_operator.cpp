// Running operators: the writer index, dependency order through input pulls, one _Update
// per output port, writes into the targets' caches, cycles, and the operators' life cycle.
#include <algorithm>
#include <optional>

#include "runtime/callbacks.h"
#include "runtime/log.h"
#include "scene/connection_line.h"
#include "scene/evaluation.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

enum class Phase {
  kInputs,  // pulling the inputs at the evaluation time
  kOutput,  // computing an output's value before the write, applying the write
  kUpdate,  // inside the operator's _Update
};

// One running operator. `object` is the object of the port being pulled or written.
struct OpFrame {
  OperatorItem* op = nullptr;
  const ObjectItem* object = nullptr;
  Phase phase = Phase::kInputs;
  size_t port = 0;
};

std::vector<OpFrame>& Frames() {
  static auto* frames = new std::vector<OpFrame>;
  return *frames;
}

uint64_t g_connect_counter = 0;

// The port's target while it lives and is in the scene.
Item* LiveTarget(const PortData& port) {
  if (port.target.expired() || !port.item || port.item->deleted) return nullptr;
  return port.item;
}

ObjectItem* ObjectOfTarget(Item& target) {
  if (target.cls == ClassID::KinematicState) return static_cast<KineStateItem&>(target).object;
  return ItemIs<ObjectItem>(target) ? static_cast<ObjectItem*>(&target) : nullptr;
}

bool WritesObject(const OperatorItem& op, const ObjectItem& object) {
  for (const PortData& port : op.ports) {
    if (!port.output) continue;
    Item* target = LiveTarget(port);
    if (target && target->cls == ClassID::KinematicState &&
        static_cast<KineStateItem*>(target)->object == &object) {
      return true;
    }
  }
  return false;
}

void PullTarget(Item& target, double time) {
  if (target.cls == ClassID::KinematicState) {
    if (ObjectItem* object = static_cast<KineStateItem&>(target).object)
      EvaluateObject(*object, time);
  } else if (target.cls == ClassID::Parameter) {
    EvaluateParamValue(static_cast<ParamItem&>(target), time);
  } else if (ItemIs<ObjectItem>(target)) {
    EvaluateCurvePoints(static_cast<ObjectItem&>(target), time);
  }
}

void ApplyResult(Item& target, const PortResult& result, double time) {
  if (target.cls == ClassID::KinematicState) {
    auto& state = static_cast<KineStateItem&>(target);
    if (state.object && result.transform)
      WriteState(*state.object, state.global, *result.transform, time);
  } else if (ItemIs<ObjectItem>(target)) {
    if (result.points) static_cast<ObjectItem&>(target).curve_points = *result.points;
  }
}

// Puts the results of the operator's run back into `target` (an object being evaluated
// again at the run's time and revision).
void Reapply(OperatorItem& op, const OperatorRun& run, Item& target) {
  ObjectItem* object = ItemIs<ObjectItem>(target) ? static_cast<ObjectItem*>(&target) : nullptr;
  for (size_t i = 0; i < op.ports.size() && i < run.results.size(); ++i) {
    if (!op.ports[i].output) continue;
    Item* port_target = LiveTarget(op.ports[i]);
    if (!port_target) continue;
    const bool same = port_target == &target;
    const bool state_of_object = object && port_target->cls == ClassID::KinematicState &&
                                 static_cast<KineStateItem*>(port_target)->object == object;
    if (same || state_of_object) ApplyResult(*port_target, run.results[i], run.time);
  }
}

// A run to fill: one out of date, else the oldest finished one; null when every run is in
// progress.
OperatorRun* ClaimRun(OperatorItem& op, uint64_t revision) {
  for (OperatorRun& run : op.runs) {
    if (!run.running && run.revision != revision) return &run;
  }
  for (size_t k = 0; k < kCachedTimes; ++k) {
    const size_t index = (op.next_run + k) % kCachedTimes;
    if (!op.runs[index].running) {
      op.next_run = static_cast<uint32_t>((index + 1) % kCachedTimes);
      return &op.runs[index];
    }
  }
  return nullptr;
}

// The plug-in's _Update, resolved once per change of the loaded callbacks.
CallbackFn UpdateCallback(OperatorItem& op) {
  const uint64_t generation = CallbackGeneration();
  if (op.update_generation != generation) {
    op.update = FindCallback(op.op_type, "_Update");
    op.update_generation = generation;
  }
  return op.update;
}

// What a run at another time, nested in a running one, must give back to it.
struct ContextState {
  double time = 0.0;
  int output_index = -1;
  std::optional<MATH::CTransformation> output_transform;
  std::optional<CValue> output_value;
  std::optional<std::vector<MATH::CVector3>> output_points;
  ObjectItem* output_object = nullptr;
  bool output_global = false;
};

ContextState SaveContext(const ContextItem& c) {
  return {c.time,          c.output_index,  c.output_transform, c.output_value,
          c.output_points, c.output_object, c.output_global};
}

void RestoreContext(ContextItem& c, ContextState&& saved) {
  c.time = saved.time;
  c.output_index = saved.output_index;
  c.output_transform = std::move(saved.output_transform);
  c.output_value = std::move(saved.output_value);
  c.output_points = std::move(saved.output_points);
  c.output_object = saved.output_object;
  c.output_global = saved.output_global;
}

// An operator writing an object and its parent may write the child first: its local is
// derived again against the parent as the operator left it.
void RederiveChildren(OperatorItem& op, const OperatorRun& run, double time) {
  for (size_t i = 0; i < op.ports.size() && i < run.results.size(); ++i) {
    Item* target =
        op.ports[i].output && run.results[i].transform ? LiveTarget(op.ports[i]) : nullptr;
    if (!target || target->cls != ClassID::KinematicState) continue;
    ObjectItem* object = static_cast<KineStateItem*>(target)->object;
    ObjectItem* parent = object ? object->binding.parent : nullptr;
    if (!parent || !WritesObject(op, *parent)) continue;
    EvalCache* entry = CacheAt(*object, time);
    const EvalCache* parent_entry = CacheAt(*parent, time);
    if (!entry || !parent_entry) continue;
    entry->parent_global = parent_entry->global;
    if (static_cast<KineStateItem*>(target)->global) {
      entry->local = MATH::MapWorldPoseToObjectSpace(entry->parent_global, entry->global);
    } else {
      entry->global = MATH::CTransformation::Mul(entry->local, entry->parent_global);
    }
  }
}

void RunOperator(OperatorItem& op, double time) {
  const uint64_t revision = ActiveScene().revision;
  OperatorRun* claimed = ClaimRun(op, revision);
  if (!claimed) return;
  OperatorRun& run = *claimed;
  NoteEvaluated();
  const std::shared_ptr<Item> keep = op.shared_from_this();
  ContextItem& context = OperatorContextOf(op);
  std::optional<ContextState> saved;
  if (op.running > 0) saved = SaveContext(context);
  ++op.running;
  run.running = true;
  run.time = time;
  run.revision = revision;
  Frames().push_back(OpFrame{&op, nullptr, Phase::kInputs, 0});
  const size_t frame = Frames().size() - 1;
  // Inputs first: the operators writing them run before this one.
  for (size_t i = 0; i < op.ports.size(); ++i) {
    if (op.ports[i].output) continue;
    Item* target = LiveTarget(op.ports[i]);
    if (!target) continue;
    Frames()[frame].object = ObjectOfTarget(*target);
    Frames()[frame].port = i;
    PullTarget(*target, time);
  }
  run.results.resize(op.ports.size());
  for (PortResult& result : run.results) result = PortResult();
  CRef ref{std::weak_ptr<Item>(op.context)};
  int output_index = 0;
  size_t state_outputs = 0;
  for (size_t i = 0; i < op.ports.size(); ++i) {
    if (!op.ports[i].output) continue;
    const int index = output_index++;
    Item* target = LiveTarget(op.ports[i]);
    if (!target) continue;
    ObjectItem* object = ObjectOfTarget(*target);
    Frames()[frame] = OpFrame{&op, object, Phase::kOutput, i};
    context.time = time;
    context.output_index = index;
    context.output_transform.reset();
    context.output_value.reset();
    context.output_points.reset();
    // The output's value before the write is found when the operator asks for it.
    const bool state = target->cls == ClassID::KinematicState;
    context.output_object = state ? object : nullptr;
    context.output_global = state && static_cast<KineStateItem*>(target)->global;
    state_outputs += state ? 1 : 0;
    Frames()[frame].phase = Phase::kUpdate;
    if (IsNativeConnectionLine(op)) {
      UpdateConnectionLine(op, context, time);
    } else if (!op.scripted) {
      if (CallbackFn update = UpdateCallback(op))
        CallOperatorCallback(update, op.op_type, "_Update", ref);
    }
    Frames()[frame].phase = Phase::kOutput;
    PortResult& result = run.results[i];
    result.transform = context.output_transform;
    result.value = context.output_value;
    result.points = context.output_points;
    ApplyResult(*target, result, time);
  }
  if (state_outputs > 1) RederiveChildren(op, run, time);
  Frames().pop_back();
  run.running = false;
  --op.running;
  if (saved) RestoreContext(context, std::move(*saved));
}

}  // namespace

void EnsureWriterIndex(Scene& scene) {
  SceneEvalState& eval = scene.eval;
  if (eval.topology == TopologyStamp()) return;
  eval.writers.clear();
  auto visit = [&eval](Item& item) {
    for (const auto& held : item.operators) {
      if (held->cls != ClassID::CustomOperator) continue;
      auto* op = static_cast<OperatorItem*>(held.get());
      if (op->deleted || !op->connected) continue;
      for (const PortData& port : op->ports) {
        if (!port.output) continue;
        Item* target = LiveTarget(port);
        if (!target) continue;
        std::vector<OperatorItem*>& list = eval.writers[target];
        if (std::find(list.begin(), list.end(), op) == list.end()) list.push_back(op);
      }
    }
    return true;
  };
  if (scene.root) ForEachItem(*scene.root, visit);
  if (scene.project) ForEachItem(*scene.project, visit);
  for (auto& [target, list] : eval.writers) {
    std::sort(list.begin(), list.end(), [](const OperatorItem* a, const OperatorItem* b) {
      return a->connect_order < b->connect_order;
    });
  }
  eval.topology = TopologyStamp();
}

const std::vector<OperatorItem*>& WritersOf(const Item& target) {
  static const std::vector<OperatorItem*> kNone;
  Scene& scene = ActiveScene();
  EnsureWriterIndex(scene);
  auto it = scene.eval.writers.find(&target);
  return it == scene.eval.writers.end() ? kNone : it->second;
}

OperatorRun* RunAt(OperatorItem& op, double time) {
  const uint64_t revision = ActiveScene().revision;
  for (OperatorRun& run : op.runs) {
    if (run.revision == revision && run.time == time) return &run;
  }
  return nullptr;
}

void ApplyWriter(OperatorItem& op, Item& target, double time) {
  if (op.deleted || !op.connected) return;
  if (OperatorRun* run = RunAt(op, time)) {
    // Running at this time: its write comes when it reaches the port.
    if (!run->running) Reapply(op, *run, target);
    return;
  }
  RunOperator(op, time);
}

std::vector<MATH::CVector3> EvaluateCurvePoints(ObjectItem& object, double time) {
  const std::vector<OperatorItem*> writers = WritersOf(object);
  for (OperatorItem* op : writers) ApplyWriter(*op, object, time);
  return object.curve_points;
}

OperatorItem* RunningUpdate() {
  const std::vector<OpFrame>& frames = Frames();
  return !frames.empty() && frames.back().phase == Phase::kUpdate ? frames.back().op : nullptr;
}

void ReportCycle(ObjectItem& object) {
  const std::vector<OpFrame>& frames = Frames();
  // Through operators (one reading its own output, mutual links, one writing a parent and
  // its child): by design, the value so far is the answer.
  for (const OpFrame& frame : frames) {
    if (WritesObject(*frame.op, object)) return;
  }
  // A read an operator's update makes by itself is not a declared dependency.
  if (!frames.empty() && frames.back().phase == Phase::kUpdate) return;
  // Constraints or expressions loop back to the object.
  if (object.cycle_reported) return;
  object.cycle_reported = true;
  Log(CString(L"Evaluation cycle: ") + FullNameOf(object) +
          CString(L" depends on its own transform; the cycle is broken"),
      kSeverityError);
}

ContextItem* RunningOutputContext(const KineStateItem& state) {
  const std::vector<OpFrame>& frames = Frames();
  if (frames.empty() || frames.back().phase != Phase::kUpdate) return nullptr;
  const OpFrame& top = frames.back();
  if (!state.object || top.object != state.object) return nullptr;
  Item* target = LiveTarget(top.op->ports[top.port]);
  if (!target || target->cls != ClassID::KinematicState) return nullptr;
  return top.op->context.get();
}

std::shared_ptr<Item> OutputTargetOf(const OperatorItem& op, int output_index) {
  int index = 0;
  for (const PortData& port : op.ports) {
    if (!port.output) continue;
    if (index++ == output_index) {
      std::shared_ptr<Item> target = port.target.lock();
      return target && !target->deleted ? target : nullptr;
    }
  }
  return nullptr;
}

std::shared_ptr<Item> InputTargetOf(const OperatorItem& op, int input_index) {
  int index = 0;
  for (const PortData& port : op.ports) {
    if (port.output) continue;
    if (index++ == input_index) {
      std::shared_ptr<Item> target = port.target.lock();
      return target && !target->deleted ? target : nullptr;
    }
  }
  return nullptr;
}

ContextItem& OperatorContextOf(OperatorItem& op) {
  if (!op.context) {
    op.context = std::make_shared<ContextItem>();
    op.context->name = L"OperatorContext";
    op.context->source = op.weak_from_this();
    op.context->op = &op;
  }
  return *op.context;
}

CStatus ConnectOperator(OperatorItem& op, int construction_mode) {
  if (op.deleted) return CStatus::Fail;
  if (op.connected) return CStatus::OK;
  std::shared_ptr<Item> owner;
  bool has_output = false;
  for (const PortData& port : op.ports) {
    std::shared_ptr<Item> target = port.target.lock();
    if (!target || target->deleted) {
      Log(CString(L"Cannot connect the operator ") + op.name + CString(L": the port \"") +
              port.name + CString(L"\" has no target"),
          kSeverityError);
      return CStatus::Fail;
    }
    if (port.output && !has_output) owner = target;
    has_output = has_output || port.output;
  }
  if (!owner) {
    Log(CString(L"Cannot connect the operator ") + op.name + CString(L": it has no output port"),
        kSeverityError);
    return CStatus::Fail;
  }
  std::shared_ptr<Item> self = op.shared_from_this();
  auto& pending = ActiveScene().pending_operators;
  pending.erase(std::remove(pending.begin(), pending.end(), self), pending.end());
  if (std::find(owner->operators.begin(), owner->operators.end(), self) == owner->operators.end()) {
    owner->operators.push_back(self);
  }
  op.owner = owner.get();
  op.construction_mode = construction_mode;
  op.connected = true;
  op.connect_order = ++g_connect_counter;
  for (OperatorRun& run : op.runs) run.revision = 0;
  BumpTopology();
  InitialiseOperator(op);
  return CStatus::OK;
}

void InitialiseOperator(OperatorItem& op) {
  ContextItem& context = OperatorContextOf(op);
  context.time = CurrentFrame();
  context.output_index = -1;
  op.initialised = true;
  if (op.scripted) return;
  // The update callback is found here, not on every update.
  op.update_generation = 0;
  UpdateCallback(op);
  CRef ref{std::weak_ptr<Item>(op.context)};
  InvokeCallback(op.op_type, "_Init", ref);
}

void TerminateOperator(OperatorItem& op) {
  if (!op.initialised) return;
  op.initialised = false;
  if (op.scripted) return;
  const std::shared_ptr<Item> keep = op.shared_from_this();
  OperatorContextOf(op).output_index = -1;
  CRef ref{std::weak_ptr<Item>(op.context)};
  InvokeCallback(op.op_type, "_Term", ref);
}

}  // namespace KRX::rt

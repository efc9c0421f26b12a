// Running operators: the writer index, dependency order through input pulls, one _Update
// per output port, writes into the targets' caches, cycles, and the operators' life cycle.
#include <algorithm>

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

const ObjectItem* ObjectOfTarget(const Item& target) {
  if (auto* state = dynamic_cast<const KineStateItem*>(&target)) return state->object;
  return dynamic_cast<const ObjectItem*>(&target);
}

bool WritesObject(const OperatorItem& op, const ObjectItem& object) {
  for (const PortData& port : op.ports) {
    if (!port.output) continue;
    std::shared_ptr<Item> target = port.target.lock();
    auto* state = dynamic_cast<const KineStateItem*>(target.get());
    if (state && state->object == &object) return true;
  }
  return false;
}

void PullTarget(Item& target, double time) {
  if (auto* state = dynamic_cast<KineStateItem*>(&target)) {
    if (state->object) EvaluateObject(*state->object, time);
  } else if (auto* param = dynamic_cast<ParamItem*>(&target)) {
    EvaluateParamValue(*param, time);
  } else if (auto* object = dynamic_cast<ObjectItem*>(&target)) {
    EvaluateCurvePoints(*object, time);
  }
}

// The output's value before the operator writes it.
void PrepareOutput(ContextItem& context, Item& target, double time) {
  context.output_current = MATH::CTransformation();
  if (auto* state = dynamic_cast<KineStateItem*>(&target); state && state->object) {
    const Pose pose = EvaluateObject(*state->object, time);
    context.output_current = state->global ? pose.global : pose.local;
  }
}

void ApplyResult(Item& target, const PortResult& result, double time) {
  if (auto* state = dynamic_cast<KineStateItem*>(&target)) {
    if (state->object && result.transform) WriteState(*state->object, state->global, *result.transform, time);
  } else if (auto* object = dynamic_cast<ObjectItem*>(&target)) {
    if (result.points) object->curve_points = *result.points;
  }
}

// Puts the results of the operator's last run back into `target` (an object being
// evaluated again at the same time and revision).
void Reapply(OperatorItem& op, Item& target) {
  auto* object = dynamic_cast<ObjectItem*>(&target);
  for (size_t i = 0; i < op.ports.size() && i < op.results.size(); ++i) {
    if (!op.ports[i].output) continue;
    std::shared_ptr<Item> port_target = op.ports[i].target.lock();
    if (!port_target || port_target->deleted) continue;
    const bool same = port_target.get() == &target;
    auto* state = dynamic_cast<KineStateItem*>(port_target.get());
    const bool state_of_object = object && state && state->object == object;
    if (same || state_of_object) ApplyResult(*port_target, op.results[i], op.run_time);
  }
}

void RunOperator(OperatorItem& op, double time) {
  const uint64_t revision = ActiveScene().revision;
  const std::shared_ptr<Item> keep = op.shared_from_this();
  ContextItem& context = OperatorContextOf(op);
  op.running = true;
  Frames().push_back(OpFrame{&op, nullptr, Phase::kInputs, 0});
  const size_t frame = Frames().size() - 1;
  // Inputs first: the operators writing them run before this one.
  for (size_t i = 0; i < op.ports.size(); ++i) {
    if (op.ports[i].output) continue;
    std::shared_ptr<Item> target = op.ports[i].target.lock();
    if (!target || target->deleted) continue;
    Frames()[frame].object = ObjectOfTarget(*target);
    Frames()[frame].port = i;
    PullTarget(*target, time);
  }
  op.results.resize(op.ports.size());
  for (PortResult& result : op.results) result = PortResult();
  int output_index = 0;
  for (size_t i = 0; i < op.ports.size(); ++i) {
    if (!op.ports[i].output) continue;
    const int index = output_index++;
    std::shared_ptr<Item> target = op.ports[i].target.lock();
    if (!target || target->deleted) continue;
    Frames()[frame] = OpFrame{&op, ObjectOfTarget(*target), Phase::kOutput, i};
    context.time = time;
    context.output_index = index;
    context.output_transform.reset();
    context.output_value.reset();
    context.output_points.reset();
    PrepareOutput(context, *target, time);
    Frames()[frame].phase = Phase::kUpdate;
    if (IsNativeConnectionLine(op)) {
      UpdateConnectionLine(op, context, time);
    } else if (!op.scripted) {
      CRef ref{std::weak_ptr<Item>(op.context)};
      InvokeCallback(op.op_type, "_Update", ref);
    }
    Frames()[frame].phase = Phase::kOutput;
    PortResult& result = op.results[i];
    result.transform = context.output_transform;
    result.value = context.output_value;
    result.points = context.output_points;
    ApplyResult(*target, result, time);
  }
  op.run_time = time;
  op.run_revision = revision;
  Frames().pop_back();
  op.running = false;
}

CString OperatorNames(size_t first) {
  CString names;
  const std::vector<OpFrame>& frames = Frames();
  for (size_t i = first; i < frames.size(); ++i) {
    if (!names.IsEmpty()) names += CString(L", ");
    names += FullNameOf(*frames[i].op);
  }
  return names;
}

}  // namespace

void EnsureWriterIndex(Scene& scene) {
  SceneEvalState& eval = scene.eval;
  if (eval.topology == TopologyStamp()) return;
  eval.writers.clear();
  auto visit = [&eval](Item& item) {
    for (const auto& held : item.operators) {
      auto* op = dynamic_cast<OperatorItem*>(held.get());
      if (!op || op->deleted || !op->connected) continue;
      for (const PortData& port : op->ports) {
        if (!port.output) continue;
        std::shared_ptr<Item> target = port.target.lock();
        if (!target || target->deleted) continue;
        std::vector<OperatorItem*>& list = eval.writers[target.get()];
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

void ApplyWriter(OperatorItem& op, Item& target, double time) {
  if (op.running || op.deleted || !op.connected) return;
  if (op.run_revision == ActiveScene().revision && op.run_time == time) {
    Reapply(op, target);
    return;
  }
  RunOperator(op, time);
}

std::vector<MATH::CVector3> EvaluateCurvePoints(ObjectItem& object, double time) {
  const std::vector<OperatorItem*> writers = WritersOf(object);
  for (OperatorItem* op : writers) ApplyWriter(*op, object, time);
  return object.curve_points;
}

bool IsOwnOutputRead(const ObjectItem& object) {
  const std::vector<OpFrame>& frames = Frames();
  if (frames.empty()) return false;
  const OpFrame& top = frames.back();
  return top.object == &object && WritesObject(*top.op, object);
}

void ReportCycle(ObjectItem& object) {
  const std::vector<OpFrame>& frames = Frames();
  size_t first = frames.size();
  for (size_t i = 0; i < frames.size(); ++i) {
    if (WritesObject(*frames[i].op, object)) {
      first = i;
      break;
    }
  }
  if (first == frames.size()) {
    // Not through operators: constraints or expressions loop back to the object. A read an
    // operator's update makes by itself is not a declared dependency and passes quietly.
    if (!frames.empty() && frames.back().phase == Phase::kUpdate) return;
    if (object.cycle_reported) return;
    object.cycle_reported = true;
    Log(CString(L"Evaluation cycle: ") + FullNameOf(object) +
            CString(L" depends on its own transform; the cycle is broken"),
        kSeverityError);
    return;
  }
  bool reported = false;
  for (size_t i = first; i < frames.size(); ++i) {
    // Through a read the update made by itself: not a declared dependency.
    if (frames[i].phase == Phase::kUpdate) return;
    reported = reported || frames[i].op->cycle_reported;
  }
  for (size_t i = first; i < frames.size(); ++i) frames[i].op->cycle_reported = true;
  if (reported) return;
  Log(CString(L"Evaluation cycle: the operators ") + OperatorNames(first) +
          CString(L" depend on their own results through ") + FullNameOf(object) +
          CString(L"; the cycle is broken"),
      kSeverityError);
}

ContextItem* RunningOutputContext(const KineStateItem& state) {
  const std::vector<OpFrame>& frames = Frames();
  if (frames.empty() || frames.back().phase != Phase::kUpdate) return nullptr;
  const OpFrame& top = frames.back();
  if (!state.object || top.object != state.object) return nullptr;
  std::shared_ptr<Item> target = top.op->ports[top.port].target.lock();
  if (!dynamic_cast<KineStateItem*>(target.get())) return nullptr;
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
      Log(CString(L"Cannot connect the operator ") + op.name + CString(L": the port \"") + port.name +
              CString(L"\" has no target"),
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
  op.run_revision = 0;
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

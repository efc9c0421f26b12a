// The evaluation engine: pull evaluation of parameters, kinematics, curve geometry and
// operators at a time, with a few cached poses per object and runs per operator, each keyed
// by (time, scene revision).
//
// Reading an object at time t evaluates its parent first, then its local transform from its
// parameters (function curve, expression, static value or transient put), composes the
// global, applies its constraints and animated global parameters, and finally runs, in
// connection order, every connected operator that writes one of its kinematic states. An
// operator first pulls each of its inputs at t (which runs the operators writing them),
// then calls _Update once per output port; each write lands in the target's cache at t.
// Operators evaluate at the time asked: a read at another time inside an evaluation
// evaluates that time in full (running an operator already running at another time once
// more, at that time). Re-entering an object that is being evaluated at the same time gives
// its value so far: when an operator reads its own output, and when operators read each
// other's outputs (mutual links), silently; without operators (constraints or expressions
// looping back) it is a cycle, reported once and broken.
//
// A change invalidates what depends on it (see Invalidate); changes of structure, and the
// few edits not tracked by item, move the scene revision and so invalidate everything.
//
// Internal to krx/src/scene.
#pragma once

#include <vector>

#include "runtime/item.h"
#include "runtime/scene_state.h"

namespace KRX::rt {

// ---- time and read scopes (eval_time.cpp) ----

// How deep in reads the runtime is; bumps of the revision are held back while above 0.
int& EvalDepth();
// Applies a held-back revision bump once the outermost read has ended.
void FlushPendingRevision();

// The current frame of the active scene.
double CurrentFrameOf(Scene& scene);
// kCurrentTime -> the current frame; any other time as it is.
double ResolveTime(double time);

// Wraps every read and put the SDK starts. The outermost scope notices a new current frame
// and, for a read that evaluates the scene (`scene_read`: kinematics, curve geometry), a
// frame other than the transient puts'; both end the transient puts. A read of a parameter
// alone does not. Held-back invalidations apply when the outermost scope ends.
class ReadScope {
 public:
  explicit ReadScope(double time, bool scene_read = false);
  ~ReadScope();
  ReadScope(const ReadScope&) = delete;
  ReadScope& operator=(const ReadScope&) = delete;
  double time() const { return time_; }

 private:
  double time_;
};

// Drops every transient put of the active scene.
void EndTransients();
// Records a transient put on the parameter at `time` (ending those at another time).
void AddTransient(ParamItem& param, const CValue& value, double time);

// ---- invalidation (invalidate.cpp) ----

// Marks out of date what depends on `changed`, at every time: for an object its cached
// poses, its children, the objects of its IK chain and what reads it; for a parameter its
// object (a kinematic or chain parameter) and what reads it; for an operator its runs and
// its outputs; for a function curve its parameter; for a blob what reads it. "What reads"
// covers operators' input ports, expressions, constraints, up-vector references and reads
// an operator's update made of items it has no port on. While a read is in progress the
// invalidation is held back until the outermost read ends. `except` (an operator writing
// one of its own inputs while it runs) is left as it is.
void Invalidate(Item& changed, const OperatorItem* except = nullptr);
// Applies held-back invalidations (at the end of the outermost read).
void FlushInvalidations();
// Records a read the running operator's update made (so that a change of `item` runs the
// operator again). Nothing happens outside an update.
void NoteUpdateRead(Item& item);
// Notes that something was evaluated (so that a change needs real invalidation).
void NoteEvaluated();

// ---- parameters (eval_param.cpp) ----

// Resolves what the parameter's evaluation needs (writers, expression source) when the
// structure stamp moved.
void EnsureParamBinding(ParamItem& param);
// The parameter's own value at `time` as a number: transient put, function curve,
// expression or static value, then the operators writing it. No allocation for numeric
// parameters.
double EvaluateParamDouble(ParamItem& param, double time);
// The value as the SDK reads it, in the parameter's type. Kinematic parameters of a global
// state (and of a local state whose object is driven by constraints or operators) give the
// evaluated transform's component.
CValue EvaluateParamValue(ParamItem& param, double time);
// The parameter's own value at `time` in its type (not derived from the object's pose).
CValue OwnValueAt(ParamItem& param, double time);
// The SDK's put: converts to the parameter's type and clamps to its limits; an animated
// parameter takes a transient value at `time`, another one its static value.
CStatus PutParamValue(ParamItem& param, const CValue& value, double time);
// `value` converted to the parameter's type and clamped to its limits.
CValue ConvertForParam(const ParamItem& param, const CValue& value);
// True when a function curve (with keys) or an expression drives the parameter.
bool HasAnimationSource(const ParamItem& param);

// ---- kinematics (eval_object.cpp) ----

struct Pose {
  MATH::CTransformation local;
  MATH::CTransformation global;
};

void EnsureObjectBinding(ObjectItem& object);
// The object's evaluated pose at `time` (a resolved time, not kCurrentTime).
Pose EvaluateObject(ObjectItem& object, double time);
// The object's cache entry for `time` at the current revision (complete or being filled),
// with its local and global composed; null when there is none.
EvalCache* CacheAt(ObjectItem& object, double time);
// True when something besides its own parameters drives the object (constraints,
// operators, animated global parameters).
bool IsDriven(ObjectItem& object);
// Places an operator's write of the object's local or global state at `time`.
void WriteState(ObjectItem& object, bool global, const MATH::CTransformation& transform,
                double time);
// The SDK's put on a kinematic state (inside an operator's update, a put on its own output
// is taken as the operator's write).
CStatus PutStateTransform(KineStateItem& state, const MATH::CTransformation& transform,
                          double time);
// Index of a kinematic parameter in its state (KineBinding order), or -1.
int KineParamIndex(ObjectItem& object, const ParamItem& param, bool global);

// ---- operators (eval_operator.cpp) ----

// Rebuilds the scene's writer index when the topology stamp moved.
void EnsureWriterIndex(Scene& scene);
const std::vector<OperatorItem*>& WritersOf(const Item& target);
// Makes sure the operator's results at `time` are in place for `target`'s evaluation:
// runs it, or re-applies its results when it already ran at this time and revision.
// Nothing happens while it is running at this time (its write comes when it reaches the
// port).
void ApplyWriter(OperatorItem& op, Item& target, double time);
// The operator's run at `time` and the current revision (finished or running), or null.
OperatorRun* RunAt(OperatorItem& op, double time);
// Control points of a curve object at `time`, after the operators writing its geometry.
std::vector<MATH::CVector3> EvaluateCurvePoints(ObjectItem& object, double time);
// The operator whose _Update is running innermost, or null.
OperatorItem* RunningUpdate();
// Logs an evaluation cycle through `object` once, unless operators take part in it (an
// operator reading its own output, mutual links, an operator writing a parent and its
// child) or the innermost operator's update made the read by itself.
void ReportCycle(ObjectItem& object);
// The innermost running operator's current output, when it is `state` (or another state of
// the same object); used to take a put inside _Update as the operator's write.
ContextItem* RunningOutputContext(const KineStateItem& state);

// The target of the operator's `output_index`-th output port (counting outputs only).
std::shared_ptr<Item> OutputTargetOf(const OperatorItem& op, int output_index);
// The target of its `input_index`-th input port.
std::shared_ptr<Item> InputTargetOf(const OperatorItem& op, int input_index);

// Wiring and life cycle.
CStatus ConnectOperator(OperatorItem& op, int construction_mode);
void InitialiseOperator(OperatorItem& op);
void TerminateOperator(OperatorItem& op);
ContextItem& OperatorContextOf(OperatorItem& op);

}  // namespace KRX::rt

// The evaluation engine: pull evaluation of parameters, kinematics, curve geometry and
// operators at a time, with one cached pose per object keyed by (time, scene revision).
//
// Reading an object at time t evaluates its parent first, then its local transform from its
// parameters (function curve, expression, static value or transient put), composes the
// global, applies its constraints and animated global parameters, and finally runs, in
// connection order, every connected operator that writes one of its kinematic states. An
// operator first pulls each of its inputs at t (which runs the operators writing them),
// then calls _Update once per output port; each write lands in the target's cache at t.
// Re-entering an object that is being evaluated gives its value so far: legitimately when
// an operator reads its own output, otherwise it is a cycle, reported once and broken.
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
// and a read at a frame other than the transient puts' (both end the transient puts), and
// applies held-back revision bumps when it ends.
class ReadScope {
 public:
  explicit ReadScope(double time);
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
// True when something besides its own parameters drives the object (constraints,
// operators, animated global parameters).
bool IsDriven(ObjectItem& object);
// Places an operator's write of the object's local or global state at `time`.
void WriteState(ObjectItem& object, bool global, const MATH::CTransformation& transform, double time);
// The SDK's put on a kinematic state (inside an operator's update, a put on its own output
// is taken as the operator's write).
CStatus PutStateTransform(KineStateItem& state, const MATH::CTransformation& transform, double time);
// Index of a kinematic parameter in its state (KineBinding order), or -1.
int KineParamIndex(ObjectItem& object, const ParamItem& param, bool global);

// ---- operators (eval_operator.cpp) ----

// Rebuilds the scene's writer index when the topology stamp moved.
void EnsureWriterIndex(Scene& scene);
const std::vector<OperatorItem*>& WritersOf(const Item& target);
// Makes sure the operator's results at `time` are in place for `target`'s evaluation:
// runs it, or re-applies its last results when it already ran at this time and revision.
// Nothing happens while the operator is running (its write comes when it reaches the port).
void ApplyWriter(OperatorItem& op, Item& target, double time);
// Control points of a curve object at `time`, after the operators writing its geometry.
std::vector<MATH::CVector3> EvaluateCurvePoints(ObjectItem& object, double time);
// A re-entered object: true when the innermost running operator is reading or writing
// that very object as one of its outputs (its value so far is then what it asks for).
bool IsOwnOutputRead(const ObjectItem& object);
// Logs an evaluation cycle through `object` once.
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

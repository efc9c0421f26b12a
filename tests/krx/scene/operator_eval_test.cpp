// Operators: dependency order, one update per output, the value before the write, caching
// and its invalidation, cycles, and their life cycle from _Init to _Term.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "krx/scene/scene_test_support.h"
#include "scene/evaluation.h"
#include "scene/scene_edit.h"

namespace KRX::rt::testing {
namespace {

using MATH::CTransformation;
using MATH::CVector3;

struct Record {
  std::vector<std::string> updates;  // "<output object>@<frame>"
  int inits = 0;
  int terms = 0;
  int updates_without_data = 0;
};
Record& Rec() {
  static Record record;
  return record;
}

X3DObject OutputObject(const OperatorContext& ctx) {
  const CRef target = ctx.GetOutputTarget();
  if (KinematicState state(target); state.IsValid()) return state.GetObject();
  return X3DObject(target);
}

void Note(const OperatorContext& ctx) {
  Rec().updates.push_back(OutputObject(ctx).GetName().GetAsciiString() + "@" +
                          std::to_string(static_cast<int>(ctx.GetTime())));
  if (!ctx.GetUserData()) ++Rec().updates_without_data;
}

CStatus Init(CRef& ref) {
  ++Rec().inits;
  Context(ref).PutUserData(new int(0));
  return CStatus::OK;
}

CStatus Term(CRef& ref) {
  ++Rec().terms;
  Context context(ref);
  delete static_cast<int*>(context.GetUserData());
  context.PutUserData(nullptr);
  return CStatus::OK;
}

// Output = input 0's transform moved by (0, amount, 0); amount = input 1 or 1.
CStatus ShiftUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  Note(ctx);
  const KinematicState source(ctx.GetInputValue(0).GetRef());
  const double amount = ctx.GetInputCount() > 1 ? ctx.GetInputValue(1).GetDouble() : 1.0;
  CTransformation t = source.GetTransform(ctx.GetTime());
  t.SetTranslation(t.GetTranslation() + CVector3(0, amount, 0));
  return ctx.PutOutputTransform(t);
}

// Output = its value before this write, moved by (1, 0, 0).
CStatus NudgeUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  Note(ctx);
  CTransformation t = ctx.GetOutputTransform();
  t.SetTranslation(t.GetTranslation() + CVector3(1, 0, 0));
  return ctx.PutOutputTransform(t);
}

// Each output = input 0's transform moved by (0, 0, output index + 1).
CStatus PairUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  Note(ctx);
  const KinematicState source(ctx.GetInputValue(0).GetRef());
  CTransformation t = source.GetTransform(ctx.GetTime());
  const double lift = OutputObject(ctx).GetName() == CString(L"b") ? 2.0 : 1.0;
  t.SetTranslation(t.GetTranslation() + CVector3(0, 0, lift));
  return ctx.PutOutputTransform(t);
}

// Writes its output the way chain operators do: a put on the output state itself.
CStatus PutBackUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  Note(ctx);
  KinematicState out(ctx.GetOutputTarget());
  CTransformation t = out.GetTransform(ctx.GetTime());
  t.SetTranslation(t.GetTranslation() + CVector3(0, 10, 0));
  return out.PutTransform(t, ctx.GetTime());
}

// Output = input 0's transform moved by (0, d, 0): d the first 8 bytes of the blob input 1,
// read in place. With input 2 (a blob of its own) it first writes 2.0 there, as an operator
// binding itself does.
CStatus BlobShiftUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  Note(ctx);
  if (ctx.GetInputCount() > 2) {
    const double two = 2.0;
    UserDataBlob(ctx.GetInputTarget(2)).PutRange(0, reinterpret_cast<const uint8_t*>(&two), 8);
  }
  double d = 0.0;
  const std::vector<uint8_t>* bytes = UserDataBlob(ctx.GetInputTarget(1)).GetBytes();
  if (bytes && bytes->size() >= 8) std::memcpy(&d, bytes->data(), 8);
  CTransformation t = KinematicState(ctx.GetInputTarget(0)).GetTransform(ctx.GetTime());
  t.SetTranslation(t.GetTranslation() + CVector3(0, d, 0));
  return ctx.PutOutputTransform(t);
}

// Output = input 0's transform at the current frame moved by "Settings.gain" along Z, read
// without a port.
CStatus CurrentUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  Note(ctx);
  CTransformation t = KinematicState(ctx.GetInputTarget(0)).GetTransform(kCurrentTime);
  const double gain =
      Parameter(CRef::FromText(L"Settings.gain")).GetValue(ctx.GetTime()).GetDouble();
  t.SetTranslation(t.GetTranslation() + CVector3(0, 0, gain));
  return ctx.PutOutputTransform(t);
}

// Output parameter = input parameter x 2.
CStatus DoubleUpdate(CRef& ref) {
  OperatorContext ctx(ref);
  return ctx.PutOutputValue(ctx.GetInputValue(0).GetDouble() * 2.0);
}

class OperatorEval : public SceneTest {
 protected:
  void SetUp() override {
    SceneTest::SetUp();
    Rec() = Record();
    for (const char* type : {"ShiftOp", "NudgeOp", "PairOp", "PutBackOp"}) {
      RegisterInProcessCallback(std::string(type) + "_Init", &Init);
      RegisterInProcessCallback(std::string(type) + "_Term", &Term);
    }
    RegisterInProcessCallback("ShiftOp_Update", &ShiftUpdate);
    RegisterInProcessCallback("NudgeOp_Update", &NudgeUpdate);
    RegisterInProcessCallback("PairOp_Update", &PairUpdate);
    RegisterInProcessCallback("PutBackOp_Update", &PutBackUpdate);
    RegisterInProcessCallback("DoubleOp_Update", &DoubleUpdate);
    RegisterInProcessCallback("BlobShiftOp_Update", &BlobShiftUpdate);
    RegisterInProcessCallback("CurrentOp_Update", &CurrentUpdate);
  }

  static CustomOperator Connected(const wchar_t* type, const std::vector<CRef>& outputs,
                                  const std::vector<CRef>& inputs) {
    CustomOperator op(CRef(std::weak_ptr<Item>(CreateOperatorItem(type))));
    for (const CRef& r : outputs) op.AddOutputPort(r);
    for (const CRef& r : inputs) op.AddInputPort(r);
    EXPECT_TRUE(Succeeded(op.Connect()));
    return op;
  }
  static CRef G(const X3DObject& o) { return Global(o).GetRef(); }
  static CRef L(const X3DObject& o) { return Local(o).GetRef(); }
};

TEST_F(OperatorEval, RunsAfterOperatorsWritingItsInputsAndItsParents) {
  X3DObject src = root_.AddNull(L"src");
  X3DObject mid = root_.AddNull(L"mid");
  X3DObject top = root_.AddNull(L"top");
  X3DObject child = top.AddNull(L"child");
  Put(src, L"posx", 1.0);
  // Connected in the order that would be wrong if connection order decided.
  Connected(L"ShiftOp", {G(child)}, {G(mid)});
  Connected(L"ShiftOp", {G(mid)}, {G(src)});
  Connected(L"ShiftOp", {G(top)}, {G(src)});
  ExpectNear(GlobalPosition(child, 1.0), CVector3(1, 2, 0));
  EXPECT_EQ(Rec().updates, (std::vector<std::string>{"top@1", "mid@1", "child@1"}));
  // The write of the global derives the local against the parent's global (1, 1, 0).
  ExpectNear(Local(child).GetTransform(1.0).GetTranslation(), CVector3(0, 1, 0));
  // Read again at the same time everything comes from the caches; at another time each
  // operator runs once more.
  ExpectNear(GlobalPosition(mid, 1.0), CVector3(1, 1, 0));
  EXPECT_EQ(Rec().updates.size(), 3u);
  GlobalPosition(child, 2.0);
  EXPECT_EQ(Rec().updates.size(), 6u);
  EXPECT_EQ(Rec().updates_without_data, 0);
}

TEST_F(OperatorEval, OneUpdatePerOutputSeeingTheValueBeforeItsWrite) {
  {  // Two operators on one state, each adding 1 to what it finds.
    X3DObject x = root_.AddNull(L"x");
    Put(x, L"posx", 2.0);
    Connected(L"NudgeOp", {G(x)}, {});
    Connected(L"NudgeOp", {G(x)}, {});
    ExpectNear(GlobalPosition(x, 1.0), CVector3(4, 0, 0));
    EXPECT_EQ(Rec().updates.size(), 2u);
  }
  {  // One operator with two outputs: one update each, in port order.
    Rec() = Record();
    X3DObject s = root_.AddNull(L"s");
    X3DObject a = root_.AddNull(L"a");
    X3DObject b = root_.AddNull(L"b");
    Put(s, L"posy", 3.0);
    Connected(L"PairOp", {G(a), G(b)}, {G(s)});
    ExpectNear(GlobalPosition(b, 1.0), CVector3(0, 3, 2));
    ExpectNear(GlobalPosition(a, 1.0), CVector3(0, 3, 1));
    EXPECT_EQ(Rec().updates, (std::vector<std::string>{"a@1", "b@1"}));
  }
  {  // A put on its own output inside the update is the operator's write, not a new put.
    Rec() = Record();
    X3DObject y = root_.AddNull(L"y");
    Put(y, L"posy", 1.0);
    Connected(L"PutBackOp", {G(y)}, {});
    ExpectNear(GlobalPosition(y, 1.0), CVector3(0, 11, 0));
    EXPECT_DOUBLE_EQ(Local(y).GetParameter(L"posy").GetValue(1.0).GetDouble(), 11.0);
    EXPECT_EQ(Rec().updates.size(), 1u);
    ExpectNear(GlobalPosition(y, 2.0), CVector3(0, 11, 0));  // the parameter itself kept 1
  }
  {  // A local-state output composes with the parent; a parameter output is read back.
    X3DObject holder = root_.AddNull(L"holder");
    Put(holder, L"posz", 5.0);
    X3DObject z = holder.AddNull(L"z");
    X3DObject s = root_.AddNull(L"s2");
    Put(s, L"posx", 2.0);
    Connected(L"ShiftOp", {L(z)}, {L(s)});
    ExpectNear(GlobalPosition(z, 1.0), CVector3(2, 1, 5));
    CustomProperty p = root_.AddCustomProperty(L"Values");
    Parameter in = p.AddParameter(L"in", ValueType::Double, kCapAnimatable, L"", L"", 1.5);
    Parameter out = p.AddParameter(L"out", ValueType::Double, kCapAnimatable, L"", L"", 0.0);
    Connected(L"DoubleOp", {out.GetRef()}, {in.GetRef()});
    EXPECT_DOUBLE_EQ(out.GetValue().GetDouble(), 3.0);
    EXPECT_TRUE(out.IsAnimated(AnimationSource::Operator));
    in.PutValue(4.0);
    EXPECT_DOUBLE_EQ(out.GetValue().GetDouble(), 8.0);
  }
}

TEST_F(OperatorEval, CachedResultsEndWithEveryChange) {
  X3DObject a = root_.AddNull(L"a");
  X3DObject b = root_.AddNull(L"b");
  CustomProperty settings = root_.AddCustomProperty(L"Settings");
  Parameter amount =
      settings.AddParameter(L"amount", ValueType::Double, kCapAnimatable, L"", L"", 1.0);
  FCurve curve = Local(a).GetParameter(L"posx").AddFCurve({Key(1, 0), Key(11, 10)});
  CustomOperator op = Connected(L"ShiftOp", {G(b)}, {G(a), amount.GetRef()});
  Application app;
  // After each change, b is read twice: one update, then the cache.
  const auto expect_b = [&b](const CVector3& position, size_t updates) {
    ExpectNear(GlobalPosition(b), position);
    ExpectNear(GlobalPosition(b), position);
    EXPECT_EQ(Rec().updates.size(), updates);
  };
  expect_b(CVector3(0, 1, 0), 1);
  Put(a, L"posz", 2.0);  // a put on an input
  expect_b(CVector3(0, 1, 2), 2);
  curve.SetKey(0, Key(1, 4));  // a key edit of the curve driving an input
  expect_b(CVector3(4, 1, 2), 3);
  amount.PutValue(2.5);  // a parameter input
  expect_b(CVector3(4, 2.5, 2), 4);
  app.PutCurrentFrame(11.0);
  expect_b(CVector3(10, 2.5, 2), 5);
  op.Dirty();
  expect_b(CVector3(10, 2.5, 2), 6);
  // Deleting the input object takes the operator with it.
  ASSERT_TRUE(Succeeded(DeleteItem(a.Lock())));
  EXPECT_FALSE(op.IsValid());
  EXPECT_EQ(Rec().terms, 1);
  expect_b(CVector3(0, 0, 0), 6);
}

TEST_F(OperatorEval, LinksThroughOperatorsEvaluateSilentlyOtherCyclesAreReported) {
  {  // Mutual links: the second read of a inside its own evaluation gives its value so far.
    X3DObject a = root_.AddNull(L"a");
    X3DObject b = root_.AddNull(L"n");
    Connected(L"ShiftOp", {G(a)}, {G(b)});
    Connected(L"ShiftOp", {G(b)}, {G(a)});
    for (double frame : {1.0, 2.0, 3.0, 1.0}) {
      const size_t before = Rec().updates.size();
      ExpectNear(GlobalPosition(a, frame), CVector3(0, 2, 0));
      ExpectNear(GlobalPosition(b, frame), CVector3(0, 1, 0));
      EXPECT_LE(Rec().updates.size() - before, 2u);
    }
  }
  {  // One operator writing a child before its parent: the child's local follows the parent
     // as the operator leaves it.
    X3DObject s = root_.AddNull(L"s");
    Put(s, L"posx", 3.0);
    X3DObject parent = root_.AddNull(L"p");
    X3DObject child = parent.AddNull(L"b");  // PairOp lifts "b" by 2, others by 1
    Connected(L"PairOp", {G(child), G(parent)}, {G(s)});
    ExpectNear(GlobalPosition(child, 1.0), CVector3(3, 0, 2));
    ExpectNear(Local(child).GetTransform(1.0).GetTranslation(), CVector3(0, 0, 1));
    ExpectNear(GlobalPosition(parent, 1.0), CVector3(3, 0, 1));
  }
  {  // Reading its own output as an input: the value before its write.
    X3DObject c = root_.AddNull(L"c");
    Put(c, L"posx", 5.0);
    Connected(L"ShiftOp", {G(c)}, {G(c)});
    ExpectNear(GlobalPosition(c, 1.0), CVector3(5, 1, 0));
  }
  EXPECT_EQ(CountLogged(kSeverityError, "cycle"), 0);
  {  // Constraints looping back, with no operator: reported once and broken.
    X3DObject e = root_.AddNull(L"e");
    X3DObject f = root_.AddNull(L"f");
    e.AddConstraint(L"Position", f);
    f.AddConstraint(L"Position", e);
    for (double frame : {1.0, 2.0}) EXPECT_TRUE(std::isfinite(GlobalPosition(e, frame).GetX()));
    EXPECT_EQ(CountLogged(kSeverityError, "cycle"), 1);
  }
}

TEST_F(OperatorEval, ChangesRunAgainOnlyWhatDependsOnThem) {
  X3DObject a = root_.AddNull(L"a");
  X3DObject b = root_.AddNull(L"b");
  X3DObject c = root_.AddNull(L"c");
  X3DObject d = root_.AddNull(L"d");
  UserDataBlob blob(root_.AddProperty(L"UserDataBlob", false, L"Slots"));
  UserDataBlob own(root_.AddProperty(L"UserDataBlob", false, L"Own"));
  const double one = 1.0;
  ASSERT_TRUE(Succeeded(blob.PutValue(reinterpret_cast<const uint8_t*>(&one), 8)));
  ASSERT_TRUE(Succeeded(own.PutValue(std::vector<uint8_t>(16).data(), 16)));
  Parameter gain = root_.AddCustomProperty(L"Settings")
                       .AddParameter(L"gain", ValueType::Double, kCapAnimatable, L"", L"", 0.5);
  Connected(L"BlobShiftOp", {G(b)}, {G(a), blob.GetRef()});
  const CustomOperator current = Connected(L"CurrentOp", {G(d)}, {G(c)});
  Connected(L"BlobShiftOp", {G(c)}, {G(a), own.GetRef(), own.GetRef()});
  // Reads b and d; the letters of the operators that ran since the last call.
  const auto ran = [&] {
    const size_t before = Rec().updates.size();
    GlobalPosition(b);
    GlobalPosition(d);
    std::string names;
    for (size_t i = before; i < Rec().updates.size(); ++i) names += Rec().updates[i].substr(0, 1);
    return names;
  };
  // The operator writing its own input blob while it runs: no cycle, no second run.
  EXPECT_EQ(ran(), "bcd");
  EXPECT_EQ(ran(), "");
  ExpectNear(GlobalPosition(d), CVector3(0, 2, 0.5));
  EXPECT_EQ(CountLogged(kSeverityError, "cycle"), 0);
  {  // The same bytes, the same value: nothing runs.
    blob.PutValue(reinterpret_cast<const uint8_t*>(&one), 8);
    gain.PutValue(0.5);
    Put(c, L"posx", 0.0);
    EXPECT_EQ(ran(), "");
  }
  {  // A parameter read without a port; the object two operators read.
    gain.PutValue(2.0);
    EXPECT_EQ(ran(), "d");
    Put(a, L"posx", 1.0);
    EXPECT_EQ(ran(), "bcd");
  }
  {  // A ranged write: in place, bounds checked, only its readers run again.
    const std::vector<uint8_t>* view = blob.GetBytes();
    const double three = 3.0;
    EXPECT_EQ(blob.PutRange(1, reinterpret_cast<const uint8_t*>(&three), 8),
              CStatus::InvalidArgument);
    ASSERT_TRUE(Succeeded(blob.PutRange(0, reinterpret_cast<const uint8_t*>(&three), 8)));
    EXPECT_EQ(blob.GetBytes(), view);
    EXPECT_EQ(ran(), "b");
    blob.PutRange(0, reinterpret_cast<const uint8_t*>(&three), 8);
    EXPECT_EQ(ran(), "");
    ExpectNear(GlobalPosition(b), CVector3(1, 3, 0));
  }
  {  // Values are kept by time: reads alternating between two frames run nothing again.
    Application().PutCurrentFrame(2.0);
    EXPECT_EQ(ran(), "bcd");
    for (double frame : {1.0, 2.0, 1.0}) {
      Application().PutCurrentFrame(frame);
      EXPECT_EQ(ran(), "");
    }
    // Both layers hold both frames: the poses and the operator's runs.
    auto* object = static_cast<ObjectItem*>(d.Lock().get());
    auto* op = static_cast<OperatorItem*>(current.Lock().get());
    for (double frame : {1.0, 2.0}) {
      EXPECT_NE(CacheAt(*object, frame), nullptr) << frame;
      EXPECT_NE(RunAt(*op, frame), nullptr) << frame;
    }
  }
}

TEST_F(OperatorEval, OperatorsEvaluateAtTheTimeAsked) {
  // Evaluated at frame 5, c's second operator reads c at the current frame (1): c there as
  // its operators leave it (the running one evaluated once more at frame 1), not its bare
  // parameters.
  X3DObject c = root_.AddNull(L"c");
  Local(c).GetParameter(L"posx").AddFCurve({Key(1, 0), Key(11, 10)});
  // The gain is the frame, read after the nested run: the context keeps its own time.
  root_.AddCustomProperty(L"Settings")
      .AddParameter(L"gain", ValueType::Double, kCapAnimatable, L"", L"", 0.0)
      .AddFCurve({Key(1, 1), Key(11, 11)});
  Connected(L"NudgeOp", {G(c)}, {});
  Connected(L"CurrentOp", {G(c)}, {G(c)});
  ExpectNear(GlobalPosition(c, 5.0), CVector3(1, 0, 6));
  ExpectNear(GlobalPosition(c, 1.0), CVector3(1, 0, 1));
  EXPECT_EQ(CountLogged(kSeverityError, "cycle"), 0);
}

TEST_F(OperatorEval, NothingRunsBeforeConnectAndInitRunsOnce) {
  X3DObject a = root_.AddNull(L"a");
  X3DObject b = root_.AddNull(L"b");
  CustomOperator op(CRef(std::weak_ptr<Item>(CreateOperatorItem(L"ShiftOp"))));
  op.AddOutputPort(G(b), L"out");
  op.AddInputPort(G(a), L"in");
  // Nothing runs before Connect; the operator waits outside the scene.
  EXPECT_EQ(Rec().inits, 0);
  ExpectNear(GlobalPosition(b), CVector3(0, 0, 0));
  EXPECT_TRUE(Rec().updates.empty());
  // Connect runs _Init once and keeps the operator with its first output.
  ASSERT_TRUE(Succeeded(op.Connect()));
  ASSERT_TRUE(Succeeded(op.Connect()));
  EXPECT_EQ(Rec().inits, 1);
  EXPECT_EQ(CRef::FromText(L"b.kine.global.ShiftOp"), op.GetRef());
  ExpectNear(GlobalPosition(b), CVector3(0, 1, 0));
  EXPECT_EQ(Rec().updates_without_data, 0);
  {  // A callback made available after the operator connected is found all the same.
    X3DObject late = root_.AddNull(L"late");
    Connected(L"LateOp", {G(late)}, {});
    ExpectNear(GlobalPosition(late, 1.0), CVector3(0, 0, 0));
    RegisterInProcessCallback("LateOp_Update", &NudgeUpdate);
    ExpectNear(GlobalPosition(late, 2.0), CVector3(1, 0, 0));
  }
}

}  // namespace
}  // namespace KRX::rt::testing

// Scene files: a scene with every kind of item reopens holding and evaluating the same;
// files that break a rule are refused with a message that says where, and leave the open
// scene as it was. (Damage byte by byte is the fuzz harness's part.)
#include "files/scene_file.h"

#include <gtest/gtest.h>

#include <charconv>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "krx/files/file_test_support.h"
#include "krx/krx.h"
#include "plugins/plugin_loader.h"
#include "runtime/item.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"
#include "scene/scene_edit.h"

namespace KRX::rt::testing {
namespace {

using Json = nlohmann::json;

// What the test plug-in's callbacks counted since the test started.
struct PluginCounts {
  int op_init = 0, op_term = 0, prop_define = 0, scene_opened = 0, scene_new = 0;
} g_counts;

using MATH::CVector3;

// _Init stores 7 as user data and the update adds it: an update without _Init shows.
CStatus OpInit(CRef& ref) {
  ++g_counts.op_init;
  Context(ref).PutUserData(new double(7.0));
  return CStatus::OK;
}

CStatus OpTerm(CRef& ref) {
  ++g_counts.op_term;
  delete static_cast<double*>(Context(ref).GetUserData());
  Context(ref).PutUserData(nullptr);
  return CStatus::OK;
}

CStatus OpUpdate(CRef& ref) {
  OperatorContext context(ref);
  const auto* data = static_cast<const double*>(context.GetUserData());
  if (!data) return CStatus::Fail;
  MATH::CTransformation t =
      KinematicState(context.GetInputValue(0).GetRef()).GetTransform(context.GetTime());
  t.SetTranslation(t.GetTranslation() +
                   CVector3(0.0, context.GetInputValue(1).GetDouble() + *data, 0.0));
  return context.PutOutputTransform(t);
}

CStatus PropDefine(CRef& ref) {
  ++g_counts.prop_define;
  CustomProperty(Context(ref).GetSource())
      .AddParameter(L"gain", ValueType::Double, kCapAnimatable | kCapPersistable, L"Gain", L"", 1.5,
                    0.0, 10.0);
  return CStatus::OK;
}

CStatus OnOpenScene(CRef&) { return ++g_counts.scene_opened, CStatus::OK; }
CStatus OnNewScene(CRef&) { return ++g_counts.scene_new, CStatus::OK; }

CStatus FileTestEntry(PluginRegistrar& registrar) {
  registrar.PutName(L"FileTest");
  registrar.RegisterOperator(L"FileTestOp");
  registrar.RegisterProperty(L"FileTestProp");
  return CStatus::OK;
}

void Ok(CStatus status) { EXPECT_TRUE(Succeeded(status)); }

std::string Number(double v) {
  char buffer[64];
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof(buffer), v).ptr);
}

std::string Describe(const CValue& v) {
  std::string out = std::to_string(static_cast<int>(v.GetType())) + ":";
  if (v.GetType() == ValueType::Double) return out + Number(v.GetDouble());
  if (v.GetType() == ValueType::Ref) return out + v.GetRef().GetAsText().GetAsciiString();
  if (v.GetType() != ValueType::Array) return out + v.GetString().GetAsciiString();
  for (const CValue& e : v.GetArray()) out += Describe(e) + ",";
  return out;
}

std::string Describe(const ParamItem& p) {
  std::string out = " vt=" + std::to_string(static_cast<int>(p.value_type)) +
                    " caps=" + std::to_string(p.capabilities) +
                    " label=" + p.label.GetAsciiString() +
                    " desc=" + p.description.GetAsciiString();
  for (const CValue* v :
       {&p.value, &p.default_value, &p.min, &p.max, &p.suggested_min, &p.suggested_max}) {
    out += " " + Describe(*v);
  }
  if (p.expression) out += " expr=" + p.expression->GetAsciiString();
  for (size_t i = 0; p.fcurve && i < p.fcurve->KeyCount(); ++i) {
    const FCurveKeyData k = p.fcurve->Key(i);
    out += " key=";
    for (double d : {k.time, k.value, k.left_dx, k.left_dy, k.right_dx, k.right_dy}) {
      out += Number(d) + "/";
    }
    out +=
        std::to_string(static_cast<int>(k.interpolation)) + (p.fcurve->AutoTangent(i) ? "a" : "");
  }
  if (p.grid) {
    out += " grid=" + std::to_string(p.grid->columns) + "x" + std::to_string(p.grid->rows);
    for (const auto* labels : {&p.grid->column_labels, &p.grid->row_labels}) {
      for (const CString& l : *labels) out += "|" + l.GetAsciiString();
    }
    for (ValueType t : p.grid->column_types) out += "|" + std::to_string(static_cast<int>(t));
    for (const CValue& c : p.grid->cells) out += "|" + Describe(c);
  }
  return out;
}

// The test plug-in loaded in process: an operator and a property type, and the scene events.
class SceneFile : public FileTest {
 protected:
  void SetUp() override {
    UnloadAllPlugins();
    ClearInProcessCallbacks();
    ClearLog();
    g_counts = PluginCounts();
    std::string error;
    ASSERT_TRUE(LoadInProcessPlugin(&FileTestEntry,
                                    ResolveFromTable({{"FileTestOp_Init", &OpInit},
                                                      {"FileTestOp_Update", &OpUpdate},
                                                      {"FileTestOp_Term", &OpTerm},
                                                      {"FileTestProp_Define", &PropDefine},
                                                      {"MyOpenScene_OnEvent", &OnOpenScene},
                                                      {"MyNewScene_OnEvent", &OnNewScene}}),
                                    &error))
        << error;
    FileTest::SetUp();
  }
  void TearDown() override {
    UnloadAllPlugins();
    ClearInProcessCallbacks();
    FileTest::TearDown();
  }
};

// Model "Rig" with: hip (null; rotorder, neutral pose, a Bezier/Linear/Constant curve with
// handles of its own plus one auto-tangent key), knee (expression on hip's rotx), tip
// (sphere, orientation constraint on knee), ctrl (custom property of every value type
// with limits and a grid, a plug-in property, a blob, "Display Property"), path (curve),
// src and dst (the operator FileTestOp moves dst's global up from src's by
// ctrl.Controls.amount plus the 7 its _Init stored). Play Control 1..24 at 30, current
// frame 5, selection knee then ctrl.
void BuildReferenceScene() {
  using I = Interpolation;
  Application app;
  X3DObject rig = app.GetActiveSceneRoot().AddModel(L"Rig");
  const auto local = [](X3DObject o) { return o.GetKinematics().GetLocal(); };

  X3DObject hip = rig.AddNull(L"hip");
  for (const auto& [name, value] :
       {std::pair{L"rotorder", 3.0}, {L"nposy", 0.5}, {L"rotx", 30.0}}) {
    Ok(local(hip).PutParameterValue(name, value));
  }
  FCurve curve = local(hip).GetParameter(L"posx").AddFCurve(
      {{.time = 1, .value = 0, .right_dx = 1, .right_dy = 0.75},
       {.time = 4, .value = 3, .left_dx = -0.5, .left_dy = -0.1, .interpolation = I::Linear},
       {.time = 10, .value = -1.25, .interpolation = I::Constant}});
  EXPECT_EQ(curve.AddKey(7, 2), 2);  // tangents computed
  X3DObject knee = hip.AddNull(L"knee");
  Ok(local(knee).GetParameter(L"rotz").AddExpression(
      local(hip).GetParameter(L"rotx").GetFullName() + L" * 2 + 1"));
  Ok(local(knee).PutParameterValue(L"posy", 1.0));
  X3DObject tip = rig.AddPrimitive(L"Sphere", L"tip");
  Ok(local(tip).PutParameterValue(L"posz", -2.0));
  EXPECT_TRUE(tip.AddConstraint(L"Orientation", knee).IsValid());

  X3DObject ctrl = rig.AddNull(L"ctrl");
  CustomProperty controls = ctrl.AddCustomProperty(L"Controls");
  Parameter amount =
      controls.AddParameter(L"amount", ValueType::Double, kCapAnimatable | kCapPersistable,
                            L"Amount", L"How far", 0.25, -1.0, 1.0, -0.5, 0.5);
  Ok(amount.PutValue(0.75));
  controls.AddParameter(L"count", ValueType::Int, kCapPersistable, L"Count", L"", 3, 0, 10);
  Ok(controls
         .AddParameter(L"title", ValueType::String, kCapPersistable, L"Title", L"", CString(L"t"))
         .PutValue(CString(std::wstring{L'h', 0xE9, L'\"', 0x2713})));
  controls.AddParameter(L"flag", ValueType::Bool, kCapReadOnly | kCapNotInspectable, L"Flag", L"",
                        true);
  GridData grid = controls.AddGridParameter(L"table").GetGridData();
  for (CStatus status :
       {grid.PutColumnCount(2), grid.PutRowCount(2), grid.PutColumnType(0, ValueType::String),
        grid.PutColumnType(1, ValueType::Double), grid.PutColumnLabel(1, L"w"),
        grid.PutRowLabel(0, L"r0"), grid.PutCell(0, 1, CString(L"j1")), grid.PutCell(1, 0, 0.1),
        grid.PutCell(1, 1, 0.2)}) {
    Ok(status);
  }
  Ok(ctrl.AddProperty(L"FileTestProp").PutParameterValue(L"gain", 2.5));
  const uint8_t bytes[] = {0, 1, 2, 255, 128, 0, 42};
  Ok(UserDataBlob(ctrl.AddProperty(L"UserDataBlob", false, L"Data")).PutValue(bytes, 7));
  EXPECT_TRUE(ctrl.AddProperty(L"Display Property").IsValid());
  EXPECT_TRUE(rig.AddLinearCurve({CVector3(0, 0, 0), CVector3(1, 2, 3), CVector3(-1.5, 0.25, 1e-7)},
                                 L"path")
                  .IsValid());

  X3DObject src = rig.AddNull(L"src");
  Ok(local(src).PutParameterValue(L"posx", 2.0));
  X3DObject dst = rig.AddNull(L"dst");
  CustomOperator op(app.CreateObject(L"FileTestOp"));
  op.AddOutputPort(dst.GetKinematics().GetGlobal().GetRef(), L"out");
  op.AddInputPort(src.GetKinematics().GetGlobal().GetRef(), L"source");
  Ok(op.AddPortGroup(L"Settings"));
  op.AddInputPort(amount.GetRef(), L"amount");
  Ok(op.PutAlwaysEvaluate(true));
  Ok(op.Connect(2));

  for (const auto& [name, value] : {std::pair{L"In", 1.0}, {L"Out", 24.0}, {L"Rate", 30.0}}) {
    Ok(app.GetActiveProject().GetPlayControl().PutParameterValue(name, value));
  }
  Ok(app.PutCurrentFrame(5.0));
  ActiveScene().selection = {knee.Lock(), ctrl.Lock()};
}

// One line per item in walk order with every field a scene file must keep, then the
// selection; read from the runtime's items, independently of the scene file code.
std::vector<std::string> SceneFingerprint() {
  std::vector<std::string> lines;
  const auto text = [](const std::weak_ptr<Item>& w) {
    return CRef(w).GetAsText().GetAsciiString();
  };
  ForEachSceneItem([&](Item& item) {
    std::string line = FullNameOf(item).GetAsciiString() + " " +
                       std::to_string(static_cast<int>(item.cls)) + " " +
                       CString(item.type).GetAsciiString();
    if (const auto* p = dynamic_cast<const ParamItem*>(&item)) line += Describe(*p);
    if (const auto* b = dynamic_cast<const BlobItem*>(&item)) {
      for (uint8_t byte : b->bytes) line += " " + std::to_string(byte);
    }
    if (const auto* c = dynamic_cast<const ConstraintItem*>(&item)) {
      for (const auto& w : c->constraining) line += " cns=" + text(w);
    }
    if (const auto* o = dynamic_cast<const ObjectItem*>(&item)) {
      for (const CVector3& v : o->curve_points) {
        line += " pt=" + Number(v.GetX()) + "," + Number(v.GetY()) + "," + Number(v.GetZ());
      }
    }
    if (const auto* op = dynamic_cast<const OperatorItem*>(&item)) {
      line += " op=" + op->op_type.GetAsciiString() + " " + std::to_string(op->scripted) + " " +
              op->script.GetAsciiString() + " " + op->language.GetAsciiString() + " " +
              std::to_string(op->always_evaluate) + std::to_string(op->construction_mode) +
              std::to_string(op->connected);
      for (const PortData& port : op->ports) {
        line += " port=" + port.group.GetAsciiString() + "/" + port.name.GetAsciiString() + "/" +
                std::to_string(port.output) + "/" + text(port.target);
      }
    }
    lines.push_back(std::move(line));
    return true;
  });
  for (const auto& weak : ActiveScene().selection) lines.push_back("selected " + text(weak));
  return lines;
}

MATH::CTransformation GlobalAt(const CString& full_name, double frame) {
  return X3DObject(CRef::FromText(full_name)).GetKinematics().GetGlobal().GetTransform(frame);
}

TEST_F(SceneFile, ReopensHoldingAndEvaluatingTheSame) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  const std::vector<std::string> fingerprint = SceneFingerprint();
  ASSERT_GT(fingerprint.size(), 100u);
  const std::string first = Path("first.scene"), second = Path("second.scene");
  ASSERT_TRUE(SaveSceneFile(first).ok);
  ResetScene();
  EXPECT_EQ(g_counts.op_term, 1);
  Application().GetActiveSceneRoot().AddNull(L"decoy");

  const FileResult opened = OpenSceneFile(first);
  ASSERT_TRUE(opened.ok) << opened.message;
  EXPECT_EQ(SceneFingerprint(), fingerprint);  // the decoy is gone, everything else is back
  EXPECT_EQ(g_counts.scene_opened, 1);
  // The operator was connected again (its _Init ran); the plug-in's property was not
  // defined again.
  EXPECT_EQ(g_counts.op_init, 2);
  EXPECT_EQ(g_counts.prop_define, 1);
  // It evaluates again: src at x = 2 moved up by amount 0.75 and the _Init data 7, the
  // expression 30 * 2 + 1, the tip turned as the knee.
  EXPECT_TRUE(GlobalAt(L"Rig.dst", 3.0).GetTranslation().Equals(MATH::CVector3(2, 7.75, 0), 1e-12));
  EXPECT_EQ(X3DObject(CRef::FromText(L"Rig.knee"))
                .GetKinematics()
                .GetLocal()
                .GetParameterValue(L"rotz")
                .GetDouble(),
            61.0);
  EXPECT_TRUE(GlobalAt(L"Rig.tip", 9.0)
                  .GetRotationQuaternion()
                  .SameRotation(GlobalAt(L"Rig.knee", 9.0).GetRotationQuaternion(), 1e-12));
  ASSERT_TRUE(SaveSceneFile(second).ok);  // nothing lost or added
  EXPECT_EQ(FileBytes(first), FileBytes(second));
}

TEST_F(SceneFile, HostCommands) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  Application app;
  CValue result;
  const std::string file = Path("cmd.scene");
  ASSERT_EQ(app.ExecuteCommand(L"SaveScene", {CString(file)}, result), CStatus::OK);
  EXPECT_TRUE(result.GetBool());
  ASSERT_EQ(app.ExecuteCommand(L"NewScene", {}, result), CStatus::OK);
  EXPECT_TRUE(app.GetActiveSceneRoot().GetChildren().empty());
  EXPECT_EQ(g_counts.scene_new, 1);
  EXPECT_EQ(g_counts.op_term, 1);
  ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(file)}, result), CStatus::OK);
  EXPECT_TRUE(result.GetBool() && X3DObject(CRef::FromText(L"Rig.knee")).IsValid());

  const Item* root = ActiveScene().root.get();
  for (const std::string& bad : {std::string(), Path("missing.scene")}) {
    ClearLog();
    ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(bad)}, result), CStatus::OK);
    EXPECT_FALSE(result.GetBool()) << bad;
    EXPECT_EQ(ActiveScene().root.get(), root);
    ASSERT_FALSE(LogLines().empty());
    EXPECT_EQ(LogLines().back().severity, kSeverityError);
    EXPECT_EQ(LogLines().back().text.GetAsciiString().rfind("OpenScene: ", 0), 0u);
  }
}

Json& Named(Json& list, const char* name) {
  for (Json& entry : list) {
    if (entry["name"] == name) return entry;
  }
  ADD_FAILURE() << "no entry named " << name;
  static Json none;
  return none;
}

FileResult ReadText(const std::string& text) {
  return ReadSceneFromBytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

TEST_F(SceneFile, EveryRuleIsCheckedAndTheOpenSceneKept) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  const std::string saved = Path("good.scene");
  ASSERT_TRUE(SaveSceneFile(saved).ok);
  const std::vector<uint8_t> bytes = FileBytes(saved);
  const Json good = Json::parse(bytes.begin(), bytes.end());
  // Parts of the document by name: an object, a kinematic parameter of an object, a
  // property of ctrl, a parameter of ctrl's "Controls", a parameter of Play Control.
  const auto obj = [](Json& d, const char* name) -> Json& { return Named(d["objects"], name); };
  const auto kine = [obj](Json& d, const char* o, const char* p) -> Json& {
    return Named(obj(d, o)["properties"][0]["local"]["params"], p);
  };
  const auto prop = [obj](Json& d, const char* p) -> Json& {
    return Named(obj(d, "ctrl")["properties"], p);
  };
  const auto ctl = [prop](Json& d, const char* p) -> Json& {
    return Named(prop(d, "Controls")["params"], p);
  };
  const auto play = [](Json& d, const char* p) -> Json& {
    return Named(Named(d["project"]["properties"], "Play Control")["params"], p);
  };
  const auto chain = [&](Json& d) {  // 600 objects, each the child of the one before
    Json link = obj(d, "src");
    for (int i = 0; i < 600; ++i)
      d["objects"].push_back((link["parent"] = d["objects"].size() - 1, link));
  };
  const auto nest = [&](Json& d) {
    Json deep = Json::array();
    for (int i = 0; i < 100; ++i) deep = Json::array({deep});
    ctl(d, "title")["value"] = deep;
  };
  const auto no_posx = [&](Json& d) {
    Json& params = obj(d, "src")["properties"][0]["local"]["params"];
    for (size_t i = 0; i < params.size(); ++i) {
      if (params[i]["name"] == "posx") params.erase(i);
    }
  };
  const auto tip_constraint = [&](Json& d) -> Json& {
    for (Json& property : obj(d, "tip")["properties"]) {
      if (property.contains("constraining")) return property["constraining"];
    }
    return obj(d, "tip");
  };
  const struct {
    std::function<void(Json&)> change;
    std::string expected;  // a part of the message
  } cases[] = {
      {[](Json& d) { d["format"] = "text"; }, "not a scene file"},
      {[](Json& d) { d["version"] = 2; }, "version 2"},
      {[](Json& d) { d["objects"] = Json::array(); }, "scene root"},
      {[](Json& d) { d["objects"][0]["parent"] = 0; }, "no parent"},
      {[](Json& d) { d["objects"][1]["parent"] = 3; }, "outside 0..0"},
      {[&](Json& d) { obj(d, "src")["class"] = 99; }, "not a 3D object class"},
      {[&](Json& d) { obj(d, "tip")["name"] = "ctrl"; }, "a second child named \"ctrl\""},
      {[&](Json& d) { obj(d, "tip")["name"] = "t.p"; }, "contains \".\""},
      {[&](Json& d) { obj(d, "tip")["name"] = ""; }, "is empty"},
      {[&](Json& d) { obj(d, "tip")["name"] = "t\n"; }, "control character"},
      {[&](Json& d) { obj(d, "tip")["name"] = 5; }, "not text"},
      {chain, "deeper than 512"},
      {no_posx, "no numeric parameter \"posx\""},
      {[&](Json& d) { kine(d, "src", "rotorder")["value"] = 6; }, "\"rotorder\" is 6, not 0..5"},
      {[&](Json& d) {
         std::swap(obj(d, "ctrl")["properties"][0], obj(d, "ctrl")["properties"][1]);
       },
       "kinematics"},
      {[&](Json& d) {
         std::swap(kine(d, "hip", "posx")["fcurve"][0], kine(d, "hip", "posx")["fcurve"][1]);
       },
       "function curve"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve"][0].erase(7); }, "7 fields"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve"][0][6] = 4; }, "interpolation"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve"][0].push_back(8); }, "unknown key constraint"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve"][0].push_back(-4); }, "constraints"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve_type"] = 21; }, "function curve type 21"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve_interpolation"] = 0; },
       "\"fcurve_interpolation\""},
      {[&](Json& d) { kine(d, "src", "posy")["fcurve_type"] = 20; }, "without its keys"},
      {[&](Json& d) { kine(d, "knee", "rotz")["expression"] = "* 2 +"; },
       "the expression \"* 2 +\""},
      {[&](Json& d) { ctl(d, "title")["fcurve"] = kine(d, "hip", "posx")["fcurve"]; },
       "not a number"},
      {[&](Json& d) { ctl(d, "count")["value"] = 1LL << 40; }, "outside"},
      {[&](Json& d) { ctl(d, "count")["value_type"] = 4; }, "value type 4"},
      {[&](Json& d) { ctl(d, "count")["name"] = "amount"; }, "a second parameter named \"amount\""},
      {[&](Json& d) { ctl(d, "table")["grid"]["cells"].erase(0); },
       "\"cells\" has 3 entries, not 4"},
      {[&](Json& d) { ctl(d, "table")["grid"]["column_types"][0] = 77; }, "column type 77"},
      {[&](Json& d) {
         ctl(d, "title")["value"] = {{"ref", "Rig.nobody"}};
       },
       "\"Rig.nobody\" names nothing"},
      {[&](Json& d) { prop(d, "Data")["bytes"] = "AAE"; }, "base64"},
      {[&](Json& d) { prop(d, "Data")["class"] = 16; }, "not a property class"},
      {[&](Json& d) { tip_constraint(d)[0] = "Rig.gone"; }, "\"Rig.gone\" names nothing"},
      {[](Json& d) { d["operators"][0]["ports"][1]["target"] = "Rig.gone.kine"; }, "names nothing"},
      {[](Json& d) {
         for (Json& port : d["operators"][0]["ports"]) port["output"] = false;
       },
       "no output"},
      {[](Json& d) { d["selection"][0] = "Rig.gone"; }, "names nothing"},
      {[](Json& d) { Named(d["project"]["properties"], "Play Control")["name"] = "Other"; },
       "Play Control"},
      {[&](Json& d) { play(d, "Rate")["value"] = 0.0; }, "rate"},
      {nest, "nests deeper"},
  };
  for (const auto& c : cases) {
    Json doc = good;
    c.change(doc);
    const FileResult result = ReadText(doc.dump());
    EXPECT_FALSE(result.ok) << c.expected;
    EXPECT_NE(result.message.find(c.expected), std::string::npos) << result.message;
  }
  {  // A number too large for a double (it would read as infinity).
    Json doc = good;
    kine(doc, "src", "posy")["value"] = 12345.5;
    std::string text = doc.dump();
    const FileResult result = ReadText(text.replace(text.find("12345.5"), 7, "1e999"));
    EXPECT_NE(result.message.find("1e999"), std::string::npos) << result.message;
  }
  {  // A reference that resolves is read (the rule above is about resolution only).
    Json doc = good;
    ctl(doc, "title")["value"] = {{"ref", "Rig.hip"}};
    EXPECT_TRUE(ReadText(doc.dump()).ok);
  }
  // A file cut short, and one whose message says where: the file and the object by name.
  // The open scene stays, its operator neither ended nor initialised again.
  Json bad_order = good;
  kine(bad_order, "src", "rotorder")["value"] = 9;
  const std::string bad_text = bad_order.dump();
  std::ofstream(Path("bad.scene")) << bad_text;
  std::ofstream(Path("cut.scene"))
      << std::string(bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() / 2));
  const Item* root = ActiveScene().root.get();
  for (const char* name : {"cut.scene", "bad.scene"}) {
    const FileResult result = OpenSceneFile(Path(name));
    EXPECT_FALSE(result.ok) << name;
    EXPECT_NE(result.message.find(name), std::string::npos) << result.message;
    EXPECT_EQ(ActiveScene().root.get(), root);
    EXPECT_TRUE(g_counts.op_init == 1 && g_counts.op_term == 0) << name;
  }
  EXPECT_NE(OpenSceneFile(Path("bad.scene")).message.find("\"src\""), std::string::npos);
}

}  // namespace
}  // namespace KRX::rt::testing

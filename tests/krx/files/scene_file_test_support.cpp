#include "krx/files/scene_file_test_support.h"

#include <unistd.h>

#include <charconv>
#include <fstream>
#include <iterator>

#include "plugins/plugin_loader.h"
#include "runtime/item.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"
#include "scene/scene_edit.h"

namespace KRX::rt::testing {

namespace {

using MATH::CVector3;

// _Init stores 7 as user data and the update adds it: an update without _Init shows.
CStatus OpInit(CRef& ref) {
  ++Counts().op_init;
  Context(ref).PutUserData(new double(7.0));
  return CStatus::OK;
}

CStatus OpTerm(CRef& ref) {
  ++Counts().op_term;
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
  ++Counts().prop_define;
  CustomProperty(Context(ref).GetSource())
      .AddParameter(L"gain", ValueType::Double, kCapAnimatable | kCapPersistable, L"Gain", L"",
                    1.5, 0.0, 10.0);
  return CStatus::OK;
}

CStatus OnOpenScene(CRef&) { return ++Counts().scene_opened, CStatus::OK; }
CStatus OnNewScene(CRef&) { return ++Counts().scene_new, CStatus::OK; }

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
  std::string out = " vt=" + std::to_string(static_cast<int>(p.value_type)) + " caps=" +
                    std::to_string(p.capabilities) + " label=" + p.label.GetAsciiString() +
                    " desc=" + p.description.GetAsciiString();
  for (const CValue* v : {&p.value, &p.default_value, &p.min, &p.max, &p.suggested_min,
                          &p.suggested_max}) {
    out += " " + Describe(*v);
  }
  if (p.expression) out += " expr=" + p.expression->GetAsciiString();
  for (size_t i = 0; p.fcurve && i < p.fcurve->KeyCount(); ++i) {
    const FCurveKeyData k = p.fcurve->Key(i);
    out += " key=";
    for (double d : {k.time, k.value, k.left_dx, k.left_dy, k.right_dx, k.right_dy}) {
      out += Number(d) + "/";
    }
    out += std::to_string(static_cast<int>(k.interpolation)) + (p.fcurve->AutoTangent(i) ? "a" : "");
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

}  // namespace

PluginCounts& Counts() {
  static PluginCounts counts;
  return counts;
}

void SceneFileFixture::SetUp() {
  UnloadAllPlugins();
  ClearInProcessCallbacks();
  ClearLog();
  Counts() = PluginCounts();
  std::string error;
  ASSERT_TRUE(LoadInProcessPlugin(
      &FileTestEntry,
      ResolveFromTable({{"FileTestOp_Init", &OpInit}, {"FileTestOp_Update", &OpUpdate},
                        {"FileTestOp_Term", &OpTerm}, {"FileTestProp_Define", &PropDefine},
                        {"MyOpenScene_OnEvent", &OnOpenScene},
                        {"MyNewScene_OnEvent", &OnNewScene}}),
      &error))
      << error;
  ResetScene();
  folder_ = std::filesystem::temp_directory_path() /
            ("krx_scene_files_" + std::to_string(::getpid()) + "_" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
}

void SceneFileFixture::TearDown() {
  UnloadAllPlugins();
  ClearInProcessCallbacks();
  std::filesystem::remove_all(folder_);
}

void BuildReferenceScene() {
  using I = Interpolation;
  Application app;
  X3DObject rig = app.GetActiveSceneRoot().AddModel(L"Rig");
  const auto local = [](X3DObject o) { return o.GetKinematics().GetLocal(); };

  X3DObject hip = rig.AddNull(L"hip");
  for (const auto& [name, value] : {std::pair{L"rotorder", 3.0}, {L"nposy", 0.5}, {L"rotx", 30.0}}) {
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
  Parameter amount = controls.AddParameter(L"amount", ValueType::Double,
                                           kCapAnimatable | kCapPersistable, L"Amount",
                                           L"How far", 0.25, -1.0, 1.0, -0.5, 0.5);
  Ok(amount.PutValue(0.75));
  controls.AddParameter(L"count", ValueType::Int, kCapPersistable, L"Count", L"", 3, 0, 10);
  Ok(controls.AddParameter(L"title", ValueType::String, kCapPersistable, L"Title", L"",
                           CString(L"t"))
         .PutValue(CString(std::wstring{L'h', 0xE9, L'\"', 0x2713})));
  controls.AddParameter(L"flag", ValueType::Bool, kCapReadOnly | kCapNotInspectable, L"Flag",
                        L"", true);
  GridData grid = controls.AddGridParameter(L"table").GetGridData();
  for (CStatus status : {grid.PutColumnCount(2), grid.PutRowCount(2),
                         grid.PutColumnType(0, ValueType::String),
                         grid.PutColumnType(1, ValueType::Double), grid.PutColumnLabel(1, L"w"),
                         grid.PutRowLabel(0, L"r0"), grid.PutCell(0, 1, CString(L"j1")),
                         grid.PutCell(1, 0, 0.1), grid.PutCell(1, 1, 0.2)}) {
    Ok(status);
  }
  Ok(ctrl.AddProperty(L"FileTestProp").PutParameterValue(L"gain", 2.5));
  const uint8_t bytes[] = {0, 1, 2, 255, 128, 0, 42};
  Ok(UserDataBlob(ctrl.AddProperty(L"UserDataBlob", false, L"Data")).PutValue(bytes, 7));
  EXPECT_TRUE(ctrl.AddProperty(L"Display Property").IsValid());
  EXPECT_TRUE(
      rig.AddLinearCurve({CVector3(0, 0, 0), CVector3(1, 2, 3), CVector3(-1.5, 0.25, 1e-7)},
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

std::vector<std::string> SceneFingerprint() {
  std::vector<std::string> lines;
  const auto text = [](const std::weak_ptr<Item>& w) { return CRef(w).GetAsText().GetAsciiString(); };
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

std::vector<uint8_t> FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace KRX::rt::testing

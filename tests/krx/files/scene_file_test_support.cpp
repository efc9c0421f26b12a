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

using MATH::CTransformation;
using MATH::CVector3;

// The operator adds (0, amount + k, 0) to the source's global position, where k is the
// value its _Init put into the user data: an update without _Init having run shows.
constexpr double kInitData = 7.0;

CStatus OpInit(CRef& ref) {
  ++Counts().op_init;
  Context(ref).PutUserData(new double(kInitData));
  return CStatus::OK;
}

CStatus OpTerm(CRef& ref) {
  ++Counts().op_term;
  Context context(ref);
  delete static_cast<double*>(context.GetUserData());
  context.PutUserData(nullptr);
  return CStatus::OK;
}

CStatus OpUpdate(CRef& ref) {
  OperatorContext context(ref);
  const auto* data = static_cast<const double*>(context.GetUserData());
  if (!data) {
    ++Counts().op_update_without_data;
    return CStatus::Fail;
  }
  const KinematicState source(context.GetInputValue(0).GetRef());
  const double amount = context.GetInputValue(1).GetDouble();
  CTransformation t = source.GetTransform(context.GetTime());
  t.SetTranslation(t.GetTranslation() + CVector3(0.0, amount + *data, 0.0));
  return context.PutOutputTransform(t);
}

CStatus PropDefine(CRef& ref) {
  ++Counts().prop_define;
  CustomProperty property(Context(ref).GetSource());
  property.AddParameter(L"gain", ValueType::Double, kCapAnimatable | kCapPersistable, L"Gain", L"",
                        1.5, 0.0, 10.0);
  return CStatus::OK;
}

CStatus OnOpenScene(CRef&) {
  ++Counts().scene_opened;
  return CStatus::OK;
}

CStatus OnNewScene(CRef&) {
  ++Counts().scene_new;
  return CStatus::OK;
}

CStatus FileTestEntry(PluginRegistrar& registrar) {
  registrar.PutName(L"FileTest");
  registrar.RegisterOperator(L"FileTestOp");
  registrar.RegisterProperty(L"FileTestProp");
  return CStatus::OK;
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
  ASSERT_TRUE(LoadInProcessPlugin(&FileTestEntry,
                                  ResolveFromTable({{"FileTestOp_Init", &OpInit},
                                                    {"FileTestOp_Update", &OpUpdate},
                                                    {"FileTestOp_Term", &OpTerm},
                                                    {"FileTestProp_Define", &PropDefine},
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
  Application app;
  Model root = app.GetActiveSceneRoot();
  X3DObject rig = root.AddModel(L"Rig");

  X3DObject hip = rig.AddNull(L"hip");
  KinematicState hip_local = hip.GetKinematics().GetLocal();
  ASSERT_TRUE(Succeeded(hip_local.PutParameterValue(L"rotorder", 3)));
  ASSERT_TRUE(Succeeded(hip_local.PutParameterValue(L"nposy", 0.5)));
  ASSERT_TRUE(Succeeded(hip_local.PutParameterValue(L"rotx", 30.0)));
  using I = Interpolation;
  ASSERT_TRUE(hip_local.GetParameter(L"posx")
                  .AddFCurve({{.time = 1, .value = 0, .right_dx = 1, .right_dy = 0.75},
                              {.time = 4, .value = 3, .left_dx = -0.5, .left_dy = -0.1,
                               .interpolation = I::Linear},
                              {.time = 10, .value = -1.25, .interpolation = I::Constant}})
                  .IsValid());

  X3DObject knee = hip.AddNull(L"knee");
  const CString rotx = hip_local.GetParameter(L"rotx").GetFullName();
  ASSERT_TRUE(Succeeded(
      knee.GetKinematics().GetLocal().GetParameter(L"rotz").AddExpression(rotx + L" * 2 + 1")));
  ASSERT_TRUE(Succeeded(knee.GetKinematics().GetLocal().PutParameterValue(L"posy", 1.0)));

  X3DObject tip = rig.AddPrimitive(L"Sphere", L"tip");
  ASSERT_TRUE(Succeeded(tip.GetKinematics().GetLocal().PutParameterValue(L"posz", -2.0)));
  ASSERT_TRUE(tip.AddConstraint(L"Orientation", knee).IsValid());

  X3DObject ctrl = rig.AddNull(L"ctrl");
  CustomProperty controls = ctrl.AddCustomProperty(L"Controls");
  Parameter amount =
      controls.AddParameter(L"amount", ValueType::Double, kCapAnimatable | kCapPersistable,
                            L"Amount", L"How far", 0.25, -1.0, 1.0, -0.5, 0.5);
  ASSERT_TRUE(Succeeded(amount.PutValue(0.75)));
  controls.AddParameter(L"count", ValueType::Int, kCapPersistable, L"Count", L"", 3, 0, 10);
  Parameter title = controls.AddParameter(L"title", ValueType::String, kCapPersistable, L"Title",
                                          L"", CString(L"t"));
  ASSERT_TRUE(Succeeded(title.PutValue(CString(std::wstring{L'h', 0xE9, L'\"', 0x2713}))));
  controls.AddParameter(L"flag", ValueType::Bool, kCapReadOnly | kCapNotInspectable, L"Flag", L"",
                        true);
  GridData grid = controls.AddGridParameter(L"table").GetGridData();
  ASSERT_TRUE(Succeeded(grid.PutColumnCount(2)));
  ASSERT_TRUE(Succeeded(grid.PutRowCount(3)));
  ASSERT_TRUE(Succeeded(grid.PutColumnType(0, ValueType::String)));
  ASSERT_TRUE(Succeeded(grid.PutColumnType(1, ValueType::Double)));
  ASSERT_TRUE(Succeeded(grid.PutColumnLabel(0, L"Joint")));
  ASSERT_TRUE(Succeeded(grid.PutColumnLabel(1, L"Weight")));
  for (int row = 0; row < 3; ++row) {
    ASSERT_TRUE(Succeeded(grid.PutRowLabel(row, CString("r" + std::to_string(row)))));
    ASSERT_TRUE(Succeeded(grid.PutCell(0, row, CString("j" + std::to_string(row)))));
    ASSERT_TRUE(Succeeded(grid.PutCell(1, row, 0.1 * (row + 1))));
  }
  Property defined = ctrl.AddProperty(L"FileTestProp");
  ASSERT_TRUE(defined.IsValid());
  ASSERT_TRUE(Succeeded(defined.PutParameterValue(L"gain", 2.5)));
  UserDataBlob blob(ctrl.AddProperty(L"UserDataBlob", false, L"Data"));
  const uint8_t bytes[] = {0, 1, 2, 255, 128, 0, 42};
  ASSERT_TRUE(Succeeded(blob.PutValue(bytes, sizeof(bytes))));
  ASSERT_TRUE(ctrl.AddProperty(L"Display Property").IsValid());

  ASSERT_TRUE(rig.AddLinearCurve({CVector3(0, 0, 0), CVector3(1, 2, 3), CVector3(-1.5, 0.25, 1e-7)},
                                 L"path")
                  .IsValid());

  X3DObject src = rig.AddNull(L"src");
  ASSERT_TRUE(Succeeded(src.GetKinematics().GetLocal().PutParameterValue(L"posx", 2.0)));
  X3DObject dst = rig.AddNull(L"dst");
  CustomOperator op(app.CreateObject(L"FileTestOp"));
  ASSERT_TRUE(op.IsValid());
  op.AddOutputPort(dst.GetKinematics().GetGlobal().GetRef(), L"out");
  op.AddInputPort(src.GetKinematics().GetGlobal().GetRef(), L"source");
  ASSERT_TRUE(Succeeded(op.AddPortGroup(L"Settings")));
  op.AddInputPort(amount.GetRef(), L"amount");
  ASSERT_TRUE(Succeeded(op.PutAlwaysEvaluate(true)));
  ASSERT_TRUE(Succeeded(op.Connect(2)));

  Property play = app.GetActiveProject().GetPlayControl();
  ASSERT_TRUE(Succeeded(play.PutParameterValue(L"In", 1.0)));
  ASSERT_TRUE(Succeeded(play.PutParameterValue(L"Out", 24.0)));
  ASSERT_TRUE(Succeeded(play.PutParameterValue(L"Rate", 30.0)));
  ASSERT_TRUE(Succeeded(app.PutCurrentFrame(5.0)));

  ActiveScene().selection = {knee.Lock(), ctrl.Lock()};
}

namespace {

std::string Number(double v) {
  char buffer[64];
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof(buffer), v).ptr);
}

std::string Describe(const CValue& v) {
  std::string out = std::to_string(static_cast<int>(v.GetType())) + ":";
  switch (v.GetType()) {
    case ValueType::Double:
      return out + Number(v.GetDouble());
    case ValueType::Ref:
      return out + v.GetRef().GetAsText().GetAsciiString();
    case ValueType::Array:
      for (const CValue& e : v.GetArray()) out += Describe(e) + ",";
      return out;
    default:
      return out + v.GetString().GetAsciiString();
  }
}

std::string Describe(const ParamItem& p) {
  std::string out = " vt=" + std::to_string(static_cast<int>(p.value_type)) +
                    " caps=" + std::to_string(p.capabilities) + " v=" + Describe(p.value) +
                    " d=" + Describe(p.default_value) + " lim=" + Describe(p.min) + "," +
                    Describe(p.max) + " sug=" + Describe(p.suggested_min) + "," +
                    Describe(p.suggested_max) + " label=" + p.label.GetAsciiString() +
                    " desc=" + p.description.GetAsciiString();
  if (p.expression) out += " expr=" + p.expression->GetAsciiString();
  if (p.fcurve) {
    out += " keys=";
    for (size_t i = 0; i < p.fcurve->KeyCount(); ++i) {
      const FCurveKeyData k = p.fcurve->Key(i);
      out += Number(k.time) + "/" + Number(k.value) + "/" + Number(k.left_dx) + "/" +
             Number(k.left_dy) + "/" + Number(k.right_dx) + "/" + Number(k.right_dy) + "/" +
             std::to_string(static_cast<int>(k.interpolation)) + (p.fcurve->AutoTangent(i) ? "a;" : "e;");
    }
  }
  if (p.grid) {
    out += " grid=" + std::to_string(p.grid->columns) + "x" + std::to_string(p.grid->rows);
    for (const CString& l : p.grid->column_labels) out += "|" + l.GetAsciiString();
    for (ValueType t : p.grid->column_types) out += "|" + std::to_string(static_cast<int>(t));
    for (const CString& l : p.grid->row_labels) out += "|" + l.GetAsciiString();
    for (const CValue& c : p.grid->cells) out += "|" + Describe(c);
  }
  return out;
}

}  // namespace

std::vector<std::string> SceneFingerprint() {
  std::vector<std::string> lines;
  ForEachSceneItem([&lines](Item& item) {
    std::string line = FullNameOf(item).GetAsciiString() +
                       " cls=" + std::to_string(static_cast<int>(item.cls)) +
                       " type=" + CString(item.type).GetAsciiString();
    if (const auto* p = dynamic_cast<const ParamItem*>(&item)) line += Describe(*p);
    if (const auto* b = dynamic_cast<const BlobItem*>(&item)) {
      for (uint8_t byte : b->bytes) line += " " + std::to_string(byte);
    }
    if (const auto* c = dynamic_cast<const ConstraintItem*>(&item)) {
      for (const auto& w : c->constraining) line += " cns=" + CRef(w).GetAsText().GetAsciiString();
    }
    if (const auto* o = dynamic_cast<const ObjectItem*>(&item)) {
      for (const CVector3& v : o->curve_points) {
        line += " pt=" + Number(v.GetX()) + "," + Number(v.GetY()) + "," + Number(v.GetZ());
      }
    }
    if (const auto* op = dynamic_cast<const OperatorItem*>(&item)) {
      line += " op=" + op->op_type.GetAsciiString() + " scripted=" + std::to_string(op->scripted) +
              " script=" + op->script.GetAsciiString() + " lang=" + op->language.GetAsciiString() +
              " always=" + std::to_string(op->always_evaluate) +
              " mode=" + std::to_string(op->construction_mode) +
              " connected=" + std::to_string(op->connected);
      for (const PortData& port : op->ports) {
        line += " port=" + port.group.GetAsciiString() + "/" + port.name.GetAsciiString() + "/" +
                std::to_string(port.output) + "/" + CRef(port.target).GetAsText().GetAsciiString();
      }
    }
    lines.push_back(std::move(line));
    return true;
  });
  for (const auto& weak : ActiveScene().selection) {
    lines.push_back("selected " + CRef(weak).GetAsText().GetAsciiString());
  }
  return lines;
}

MATH::CTransformation GlobalAt(const CString& full_name, double frame) {
  return X3DObject(CRef::FromText(full_name)).GetKinematics().GetGlobal().GetTransform(frame);
}

void ExpectSameTransform(const MATH::CTransformation& a, const MATH::CTransformation& b,
                         double epsilon, const std::string& what) {
  EXPECT_TRUE(a.GetTranslation().Equals(b.GetTranslation(), epsilon)) << what;
  EXPECT_TRUE(a.GetRotationQuaternion().SameRotation(b.GetRotationQuaternion(), epsilon)) << what;
  EXPECT_TRUE(a.GetScaling().Equals(b.GetScaling(), epsilon)) << what;
}

std::vector<uint8_t> FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

}  // namespace KRX::rt::testing

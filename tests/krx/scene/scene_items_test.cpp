// Scene items: names and full names, lookups, families, properties, deletion and scene
// resets.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "krx/scene/scene_test_support.h"
#include "scene/scene_edit.h"

namespace KRX::rt::testing {
namespace {

class SceneItems : public SceneTest {};

int g_defines = 0;
CStatus DefineRigProp(CRef& ref) {
  ++g_defines;
  CustomProperty(Context(ref).GetSource())
      .AddParameter(L"weight", ValueType::Double, kCapAnimatable, L"Weight", L"", 0.5);
  return CStatus::OK;
}
CStatus RigPropEntry(PluginRegistrar& registrar) {
  registrar.PutName(L"SceneItemsTest");
  registrar.RegisterProperty(L"Rig Prop");
  return CStatus::OK;
}

TEST_F(SceneItems, NamesAreUniqueInTheirNameSpace) {
  {  // Default names, then numbered; a taken numbered name counts on.
    EXPECT_EQ(root_.AddNull().GetName(), CString(L"null"));
    EXPECT_EQ(root_.AddNull().GetName(), CString(L"null1"));
    EXPECT_EQ(root_.AddNull(L"null1").GetName(), CString(L"null2"));
    EXPECT_EQ(root_.AddPrimitive(L"Sphere").GetName(), CString(L"sphere"));
    EXPECT_FALSE(root_.AddPrimitive(L"Teapot").IsValid());
  }
  {  // Objects share their model's name space, whatever their parent.
    X3DObject rig = root_.AddModel(L"Rig");
    X3DObject hip = rig.AddNull(L"hip");
    X3DObject knee = hip.AddNull(L"knee");
    EXPECT_EQ(knee.GetFullName(), CString(L"Rig.knee"));
    EXPECT_EQ(rig.AddNull(L"knee").GetName(), CString(L"knee1"));
    EXPECT_EQ(root_.AddNull(L"knee").GetName(), CString(L"knee"));  // another name space
    X3DObject inner = rig.AddModel(L"Inner");
    EXPECT_EQ(inner.AddNull(L"knee").GetFullName(), CString(L"Rig.Inner.knee"));
    EXPECT_EQ(knee.GetModel(), rig.GetRef());
    EXPECT_EQ(root_.GetModel(), root_.GetRef());
  }
  {  // Properties are named within their owner; renames keep names unique.
    X3DObject o = root_.AddNull(L"o");
    EXPECT_EQ(o.AddCustomProperty(L"").GetName(), CString(L"CustomProperty"));
    EXPECT_EQ(o.AddProperty(L"CustomProperty").GetName(), CString(L"CustomProperty1"));
    X3DObject p = root_.AddNull(L"p");
    ASSERT_TRUE(Succeeded(p.PutName(L"o")));
    EXPECT_EQ(p.GetName(), CString(L"o1"));
  }
}

TEST_F(SceneItems, FullNamesResolveBackToTheirItems) {
  X3DObject rig = root_.AddModel(L"Rig");
  X3DObject hip = rig.AddNull(L"hip");
  X3DObject knee = hip.AddNull(L"knee");
  CustomProperty prop = knee.AddCustomProperty(L"Props");
  prop.AddParameter(L"p", ValueType::Int, 0, L"", L"", 1);
  knee.AddProperty(L"UserDataBlob", false, L"Data");
  X3DObject ball = rig.AddPrimitive(L"Sphere", L"ball");
  const std::pair<CRef, const wchar_t*> named[] = {
      {root_.GetRef(), L"Scene_Root"},
      {rig.GetRef(), L"Rig"},
      {knee.GetRef(), L"Rig.knee"},
      {Local(knee).GetParameter(L"rotorder").GetRef(), L"Rig.knee.kine.local.rotorder"},
      {Global(knee).GetParameter(L"posz").GetRef(), L"Rig.knee.kine.global.posz"},
      {prop.GetParameter(L"p").GetRef(), L"Rig.knee.Props.p"},
      {knee.GetParameter(L"nothing").GetRef(), L""},
      {ball.GetParameter(L"radius").GetRef(), L"Rig.ball.sphere.radius"},
      {Application().GetActiveProject().GetPlayControl().GetParameter(L"Rate").GetRef(),
       L"Project.Play Control.Rate"},
  };
  for (const auto& [ref, name] : named) {
    SCOPED_TRACE(CString(name).GetAsciiString());
    EXPECT_EQ(ref.GetAsText(), CString(name));
  }
  {  // Every item of the scene (the project's included) round-trips through its full name.
    int items = 0;
    ForEachSceneItem([&items](Item& item) {
      if (dynamic_cast<FCurveItem*>(&item)) return true;
      const CRef ref{item.weak_from_this()};
      EXPECT_EQ(CRef::FromText(ref.GetAsText()), ref) << ref.GetAsText().GetAsciiString();
      ++items;
      return true;
    });
    EXPECT_GT(items, 100);
  }
  {  // Text values resolve as references; names of nothing give invalid references.
    ASSERT_FALSE(knee.GetProperties().empty());
    EXPECT_EQ(CValue(CString(L"Rig.knee.Data")).GetRef(), knee.GetProperties().back().GetRef());
    EXPECT_FALSE(CRef::FromText(L"Rig.hip.knee").IsValid());
    EXPECT_FALSE(CRef::FromText(L"Rig.knee.kine.local.nothing").IsValid());
  }
  {  // Finding children: depth first, by name and type.
    EXPECT_EQ(rig.FindChild(L"knee").GetRef(), knee.GetRef());
    EXPECT_FALSE(rig.FindChild(L"knee", L"", false).IsValid());
    EXPECT_EQ(rig.FindChildren(L"", L"null").size(), 2u);
    EXPECT_EQ(root_.FindChildren().size(), 4u);
  }
}

TEST_F(SceneItems, HandlesKnowTheirFamilies) {
  X3DObject model = root_.AddModel(L"M");
  X3DObject null = model.AddNull(L"n");
  CustomProperty prop = null.AddCustomProperty(L"P");
  Parameter param = prop.AddParameter(L"x", ValueType::Double, 0, L"", L"", 0.0);
  Constraint cns = null.AddConstraint(L"Position", model);
  UserDataBlob blob(null.AddProperty(L"UserDataBlob"));
  const CRef op{std::weak_ptr<Item>(CreateOperatorItem(L"AnyOp"))};
  struct Case {
    CRef ref;
    std::vector<ClassID> is;
    std::vector<ClassID> is_not;
  };
  const Case cases[] = {
      {model.GetRef(),
       {ClassID::Model, ClassID::X3DObject, ClassID::SceneItem},
       {ClassID::Null, ClassID::ChainBoneCode}},
      {prop.GetRef(), {ClassID::CustomProperty, ClassID::Property}, {ClassID::X3DObject}},
      {blob.GetRef(), {ClassID::UserDataBlob, ClassID::Property}, {ClassID::CustomProperty}},
      {cns.GetRef(), {ClassID::Constraint, ClassID::Property}, {ClassID::Kinematics}},
      {Local(null).GetRef(), {ClassID::KinematicState, ClassID::ProjectItem}, {ClassID::SceneItem}},
      {param.GetRef(), {ClassID::Parameter, ClassID::ProjectItem}, {ClassID::SceneItem}},
      {op, {ClassID::CustomOperator, ClassID::Operator}, {ClassID::SceneItem}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ref.GetAsText().GetAsciiString());
    for (ClassID id : c.is) EXPECT_TRUE(CBase(c.ref).IsA(id)) << static_cast<int>(id);
    for (ClassID id : c.is_not) EXPECT_FALSE(CBase(c.ref).IsA(id)) << static_cast<int>(id);
  }
  {  // A handle of another family is invalid and does nothing.
    EXPECT_FALSE(Model(null.GetRef()).AddNull(L"x").IsValid());
    EXPECT_TRUE(null.FindChildren().empty());
    EXPECT_TRUE(Property(blob.GetRef()).IsValid());
    EXPECT_FALSE(UserDataBlob(prop.GetRef()).IsValid());
  }
}

TEST_F(SceneItems, PropertyPresets) {
  X3DObject o = root_.AddNull(L"o");
  {  // A plug-in's registered property is defined by its _Define.
    g_defines = 0;
    std::string error;
    ASSERT_TRUE(LoadInProcessPlugin(&RigPropEntry,
                                    ResolveFromTable({{"RigProp_Define", &DefineRigProp}}), &error))
        << error;
    Property p = o.AddProperty(L"Rig Prop");
    EXPECT_EQ(g_defines, 1);
    EXPECT_TRUE(CustomProperty(p.GetRef()).IsValid());
    EXPECT_DOUBLE_EQ(p.GetParameterValue(L"weight").GetDouble(), 0.5);
    EXPECT_EQ(o.AddProperty(L"Rig Prop", false, L"Second").GetName(), CString(L"Second"));
  }
  {  // Display property, blob, visibility, unknown presets.
    ASSERT_TRUE(o.AddProperty(L"Display Property").IsValid());
    UserDataBlob blob(o.AddProperty(L"UserDataBlob", false, L"Data"));
    EXPECT_TRUE(blob.IsEmpty());
    const uint8_t bytes[] = {1, 0, 255};
    ASSERT_TRUE(Succeeded(blob.PutValue(bytes, sizeof(bytes))));
    EXPECT_EQ(blob.GetValue(), (std::vector<uint8_t>{1, 0, 255}));
    EXPECT_EQ(ProjectItem(CRef::FromText(L"o.visibility")).GetParameterValue(L"selectability"),
              CValue(true));
    EXPECT_FALSE(o.AddProperty(L"No Such Preset").IsValid());
    EXPECT_EQ(CountLogged(kSeverityError, "No Such Preset"), 1);
  }
  {  // A grid keeps its cells through resizes and converts them to the column type.
    GridData grid = o.AddCustomProperty(L"Table").AddGridParameter(L"cells").GetGridData();
    ASSERT_TRUE(Succeeded(grid.PutColumnCount(2)));
    ASSERT_TRUE(Succeeded(grid.PutRowCount(2)));
    grid.PutCell(1, 1, 2.5);
    ASSERT_TRUE(Succeeded(grid.PutColumnType(1, ValueType::String)));
    EXPECT_EQ(grid.GetCell(1, 1), CValue(CString(L"2.5")));
    ASSERT_TRUE(Succeeded(grid.PutColumnCount(3)));
    EXPECT_EQ(grid.GetCell(1, 1), CValue(CString(L"2.5")));
    EXPECT_TRUE(grid.GetCell(2, 1).IsEmpty());
    EXPECT_FALSE(Succeeded(grid.PutCell(3, 0, 1)));
    EXPECT_FALSE(Parameter(CRef::FromText(L"o.Display Property.wirecol")).GetGridData().IsValid());
  }
}

TEST_F(SceneItems, DeletionInvalidatesEverythingBelow) {
  X3DObject a = root_.AddNull(L"a");
  X3DObject b = a.AddNull(L"b");
  X3DObject keep = root_.AddNull(L"keep");
  CustomProperty prop = b.AddCustomProperty(L"P");
  Parameter param = prop.AddParameter(L"x", ValueType::Double, kCapAnimatable, L"", L"", 1.0);
  FCurve curve = param.AddFCurve({Key(1, 1), Key(5, 5)});
  KinematicState b_local = Local(b);
  ActiveScene().selection = {b.Lock(), keep.Lock()};
  // What cannot go.
  EXPECT_FALSE(Succeeded(DeleteItem(root_.Lock())));
  EXPECT_FALSE(Succeeded(DeleteItem(b_local.GetParameter(L"posx").Lock())));
  EXPECT_FALSE(Succeeded(DeleteItem(Application().GetActiveProject().GetPlayControl().Lock())));
  {  // A function curve: the parameter keeps its value at the current frame (1).
    ASSERT_TRUE(Succeeded(DeleteItem(curve.Lock())));
    EXPECT_FALSE(curve.IsValid());
    EXPECT_DOUBLE_EQ(param.GetValue(4.0).GetDouble(), 1.0);
  }
  {  // An object with everything below it.
    ASSERT_TRUE(Succeeded(DeleteItem(a.Lock())));
    for (const CBase& gone : std::vector<CBase>{a, b, prop, param, b_local})
      EXPECT_FALSE(gone.IsValid());
    EXPECT_EQ(root_.GetChildren().size(), 1u);
    EXPECT_FALSE(CRef::FromText(L"b").IsValid());
    EXPECT_EQ(Application().GetSelection(), std::vector<CRef>{keep.GetRef()});
    // Calls on the invalid handles change nothing and give empty values.
    EXPECT_EQ(b.GetFullName(), CString());
    EXPECT_TRUE(b_local.GetParameterValue(L"posx").IsEmpty());
    EXPECT_FALSE(Succeeded(b_local.PutTransform(MATH::CTransformation())));
  }
  ResetScene();  // a new scene invalidates every handle of the old one
  EXPECT_FALSE(keep.IsValid());
  EXPECT_FALSE(root_.IsValid());
}

TEST_F(SceneItems, TextAndValueConversions) {
  {  // 8-bit text: one byte per character, wider characters become '?'.
    const CString wide(std::wstring{L'a', 0xE9, 0x2713});
    EXPECT_EQ(wide.GetAsciiString(), std::string("a\xE9?"));
    EXPECT_EQ(CString(std::string("a\xE9")).GetWideString(), (std::wstring{L'a', 0xE9}));
    EXPECT_EQ(CString(L"abc").GetSubString(5), CString());
  }
  {  // Numbers, booleans and text convert to each other.
    EXPECT_EQ(CValue(CString(L" 12 ")).GetInt(), 12);
    EXPECT_DOUBLE_EQ(CValue(CString(L"1.5e1")).GetDouble(), 15.0);
    EXPECT_EQ(CValue(CString(L"TRUE")).GetBool(), true);
    EXPECT_EQ(CValue(CString(L"abc")).GetDouble(), 0.0);
    EXPECT_EQ(CValue(-2.5).GetInt(), -3);
    EXPECT_EQ(CValue(0.1).GetString(), CString(L"0.1"));
    EXPECT_EQ(CValue(1e300).GetInt(), INT32_MAX);
    EXPECT_FALSE(CValue(1) == CValue(1.0));
  }
}

}  // namespace
}  // namespace KRX::rt::testing

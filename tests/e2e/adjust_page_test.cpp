// The adjustment page of a live retarget on a real capture: its layout, and that a script's
// SetValue (page open or closed) moves the evaluated target as the adjustment says.
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "kavor/motion/capture_rig_support.h"
#include "plugins/pages.h"

namespace kavor::e2e::adjust_page {
namespace {

namespace fs = std::filesystem;
namespace ct = capturetest;
using KRX::MATH::CVector3;

KRX::CValue Get(const std::wstring& name) {
  return RunCommand(L"GetValue", {KRX::CValue(L"Target.RetargetAdjustPPG." + name)});
}
void Set(const std::wstring& name, const KRX::CValue& value) {
  RunCommand(L"SetValue", {KRX::CValue(L"Target.RetargetAdjustPPG." + name), value});
}
KRX::Model Target() {
  return KRX::Model(KRX::Application().GetActiveSceneRoot().FindChild(L"Target", L"", false));
}
KRX::CustomProperty Adjustments() {
  for (const KRX::Property& p : Target().GetProperties()) {
    if (p.GetName() == KRX::CString(L"RetargetAdjustPPG")) return KRX::CustomProperty(p.GetRef());
  }
  return KRX::CustomProperty();
}
CVector3 At(double frame, const wchar_t* joint = L"Hips") {
  return Target().FindChild(joint, L"", true).GetKinematics().GetGlobal().GetTransform(frame)
      .GetTranslation();
}

class AdjustPageTest : public KavorModuleTest {
 protected:
  void SetUp() override {
    KavorModuleTest::SetUp();
    ct::NewSceneWithShippedData();
  }
  void TearDown() override { KRX::rt::ResetScene(); }
};

TEST_F(AdjustPageTest, PageAndScriptChangesMoveTheTargetAsTheAdjustmentSays) {
  const fs::path capture = ct::SharedCapture("cmu_02_01.bvh");
  if (capture.empty()) GTEST_SKIP() << "the shared captures are not here";
  for (const wchar_t* name : {L"Source", L"Target"}) {
    RunCommand(L"ImportBVH", {KRX::CValue(capture.wstring()), KRX::CValue(name)});
    RunCommand(
        L"LoadTagTemplateFile",
        {KRX::CValue(name), KRX::CValue(ct::ShippedTemplate("CmuJointNames.tagt").wstring())});
  }
  ASSERT_TRUE(RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"),
                                       KRX::CValue(1), KRX::CValue(120)})
                  .GetBool());
  ASSERT_TRUE(Adjustments().IsValid());
  {  // The retarget shows the page, built from the running retarget, in its view.
    ASSERT_TRUE(KRX::rt::IsPageOpen(Adjustments()));
    std::string lines;
    for (const std::string& line : KRX::rt::LayoutLines(KRX::rt::PageLayout(Adjustments()))) {
      lines += line + "\n";
    }
    for (const char* line :
         {"tab \"Global\" helpfile=<FactoryPath>/Doc/<DocLangPref>/krxdocs.chm::/"
          "charanim_props_RetargetAdjust.htm\n",
          "button Save Preset\n", "item InsertionFrame label=\"Start Frame\" cx=250\n",
          "enum RotNodes label=\"Rotations\" items=[", "tab \"lAnkle\" helpfile=",
          "enum lAnkleFrame label=\"Clamp Target\" items=[Global Frame:0,",
          "item lAnkleBlendBack label=\"Blend Back Time\" cx=250\n"}) {
      EXPECT_NE(lines.find(line), std::string::npos) << line;
    }
    int views = 0;
    for (const KRX::View& view : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
      int w = 0, h = 0;
      view.GetSize(w, h);
      views += view.GetName() == KRX::CString(L"RetargetAdjust") && w == 400 && h == 370;
    }
    EXPECT_EQ(views, 1);
  }
  {  // The parameters of the Part's table: order, flags, defaults and limits.
    std::vector<std::string> names;
    for (const KRX::Parameter& p : Adjustments().GetParameters()) {
      names.push_back(p.GetName().GetAsciiString());
    }
    ASSERT_GE(names.size(), 11u);
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.begin() + 11),
              std::vector<std::string>({"InsertionFrame", "Speed", "Scale", "Stride", "Ping",
                                        "RotNodes", "NumPlanes", "offsetFeet", "hipX", "hipY",
                                        "hipZ"}));
    const double huge = std::numeric_limits<double>::max();
    struct Row {
      std::wstring name;
      int flags;
      double value, min, max;
    };
    for (const Row& row : std::vector<Row>{{L"InsertionFrame", 4, 0, 0, 0},
                                           {L"Speed", 4, 1, 0.01, huge},
                                           {L"Stride", 5, 1, 0, huge},
                                           {L"Ping", 20, 0, 0, 0},
                                           {L"offsetFeet", 4, 1, 0, 0},
                                           {L"hipY", 5, 0, -huge, huge},
                                           {L"lAnkleRoll", 5, 0, -360, 360},
                                           {L"lAnkleStretch", 5, 1, 0.1, 2},
                                           {L"lAnkleClamp", 5, 0, 0, 0},
                                           {L"lAnkleFrame", 4, 0, 0, 0},
                                           {L"lAnkleBlendBack", 4, 4, 0, 2147483647},
                                           {L"lAnkleFoot", 4, 1, 0, 0}}) {
      const KRX::Parameter p = Adjustments().GetParameter(row.name);
      ASSERT_TRUE(p.IsValid()) << KRX::CString(row.name).GetAsciiString();
      EXPECT_EQ(p.GetCapabilities(), row.flags) << p.GetName().GetAsciiString();
      EXPECT_EQ(p.GetDefault().GetDouble(), row.value) << p.GetName().GetAsciiString();
      EXPECT_EQ(p.GetMin().GetDouble(), row.min) << p.GetName().GetAsciiString();
      EXPECT_EQ(p.GetMax().GetDouble(), row.max) << p.GetName().GetAsciiString();
    }
  }
  std::vector<CVector3> base;
  for (int f = 0; f <= 130; ++f) base.push_back(At(f));
  KRX::rt::ClosePage(Adjustments());
  {  // Hip offset: the hips move by exactly the offset, also at the frame shown.
    KRX::Application().PutCurrentFrame(40);
    const CVector3 shown = At(KRX::kCurrentTime);
    Set(L"hipX", KRX::CValue(3.0));
    EXPECT_NEAR((At(KRX::kCurrentTime) - shown).GetX(), 3.0, 1e-9);
    EXPECT_LT((At(40) - base[40] - CVector3(3.0, 0.0, 0.0)).GetLength(), 1e-9);
    Set(L"hipX", KRX::CValue(0.0));
  }
  {  // Start frame: the motion moves by 5 frames; setting it again changes nothing.
    const int ping = Get(L"Ping").GetInt();
    Set(L"InsertionFrame", KRX::CValue(1));
    EXPECT_EQ(Get(L"Ping").GetInt(), ping);
    Set(L"InsertionFrame", KRX::CValue(6));
    for (int f : {1, 30, 100}) EXPECT_LT((At(f + 5) - base[f]).GetLength(), 1e-9) << f;
    Set(L"InsertionFrame", KRX::CValue(1));
  }
  {  // Speed 2 plays twice as fast from the start frame and moves the keys of an animated
     // stride onto the same motion frames; the stored speed again moves nothing.
    KRX::Parameter stride = Adjustments().GetParameter(L"Stride");
    stride.AddFCurve({{11.0, 1.0}, {21.0, 1.0}, {41.0, 1.0}});
    Set(L"Speed", KRX::CValue(2.0));
    Set(L"Speed", KRX::CValue(2.0));
    for (int f : {1, 21, 51}) EXPECT_LT((At(1 + (f - 1) / 2.0) - base[f]).GetLength(), 1e-9);
    std::vector<KRX::FCurveKeyData> keys = stride.GetFCurve().GetKeys();
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(std::vector<double>({keys[0].time, keys[1].time, keys[2].time}),
              std::vector<double>({6.0, 11.0, 21.0}));
    Set(L"Speed", KRX::CValue(1.0));
    keys = stride.GetFCurve().GetKeys();
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys[2].time, 41.0);
    stride.RemoveAnimation();
  }
  {  // Stride 0 keeps the hips at the start along the travel, bobbing as before; a foot
     // follows the stride, and taken off the feet keeps its own reach.
    Set(L"Stride", KRX::CValue(0.0));
    CVector3 level(base[120].GetX() - base[1].GetX(), 0.0, base[120].GetZ() - base[1].GetZ());
    level.NormalizeInPlace();
    EXPECT_NEAR((At(100) - At(1)).Dot(level), 0.0, 1e-6);
    EXPECT_NEAR(At(100).GetY(), base[100].GetY(), 1e-9);
    const CVector3 strided = At(100, L"LeftFoot");
    Set(L"lAnkleFoot", KRX::CValue(false));
    EXPECT_GT((At(100, L"LeftFoot") - strided).GetLength(), 1e-3);
    Set(L"lAnkleFoot", KRX::CValue(true));
    EXPECT_LT((At(100, L"LeftFoot") - strided).GetLength(), 1e-9);
    Set(L"Stride", KRX::CValue(1.0));
  }
  {  // The start frame is kept with the motion: saved and reopened, it plays from there.
    Set(L"InsertionFrame", KRX::CValue(11));
    const fs::path scene = fs::temp_directory_path() / "kavor_adjust_page.krxs";
    ASSERT_TRUE(RunCommand(L"SaveScene", {KRX::CValue(scene.wstring())}).GetBool());
    ASSERT_TRUE(RunCommand(L"OpenScene", {KRX::CValue(scene.wstring())}).GetBool());
    fs::remove(scene);
    EXPECT_EQ(Get(L"InsertionFrame").GetInt(), 11);
    At(20);  // the first evaluation after loading writes nothing
    for (int f : {1, 60}) EXPECT_LT((At(f + 10) - base[f]).GetLength(), 1e-9) << f;
  }
}

}  // namespace
}  // namespace kavor::e2e::adjust_page

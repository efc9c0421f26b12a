// The adjustment page of a live retarget on a real capture: its layout, and that a change
// made by a script's SetValue (page open or closed) moves the evaluated target as the
// adjustment says.
#include <filesystem>
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

KRX::CValue Cmd(const wchar_t* command, const KRX::CValueArray& args) {
  KRX::CValue result;
  KRX::Application().ExecuteCommand(command, args, result);
  return result;
}

KRX::CValue Get(const std::wstring& name, double frame = KRX::kCurrentTime) {
  KRX::CValueArray args{KRX::CValue(L"Target.RetargetAdjustPPG." + name)};
  if (frame != KRX::kCurrentTime) args.emplace_back(frame);
  return Cmd(L"GetValue", args);
}

void Set(const std::wstring& name, const KRX::CValue& value) {
  Cmd(L"SetValue", {KRX::CValue(L"Target.RetargetAdjustPPG." + name), value});
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

CVector3 At(const KRX::CString& joint, double frame) {
  return Target().FindChild(joint, L"", true).GetKinematics().GetGlobal().GetTransform(frame)
      .GetTranslation();
}

CVector3 Hips(double frame) { return At(L"Hips", frame); }

// The rig object at the end of the limb plane that ends at structure node `end`.
KRX::CString LimbEnd(const std::string& end) {
  for (int k = 0; k < 16; ++k) {
    if (Get(L"name" + std::to_wstring(k)).GetString() == KRX::CString(end.c_str())) {
      return Get(L"obj" + std::to_wstring(k)).GetString();
    }
  }
  return KRX::CString();
}

class AdjustPageTest : public KavorModuleTest {
 protected:
  void SetUp() override {
    KavorModuleTest::SetUp();
    ct::NewSceneWithShippedData();
  }
  void TearDown() override { KRX::rt::ResetScene(); }

  // Retargets the capture onto a copy of itself, frames 1 to 120.
  bool Retarget() {
    const fs::path capture = ct::SharedCapture("cmu_02_01.bvh");
    if (capture.empty()) return false;
    for (const wchar_t* name : {L"Source", L"Target"}) {
      Cmd(L"ImportBVH", {KRX::CValue(capture.wstring()), KRX::CValue(name)});
      Cmd(L"LoadTagTemplateFile",
          {KRX::CValue(name), KRX::CValue(ct::ShippedTemplate("CmuJointNames.tagt").wstring())});
    }
    return Cmd(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"), KRX::CValue(1),
                             KRX::CValue(120)})
        .GetBool();
  }
};

TEST_F(AdjustPageTest, PageShowsEveryAdjustmentOfTheRetarget) {
  if (!Retarget()) GTEST_SKIP() << "the shared captures are not here";
  const KRX::CustomProperty property = Adjustments();
  ASSERT_TRUE(property.IsValid());
  // Made by the retarget, open and built from the running context.
  ASSERT_TRUE(KRX::rt::IsPageOpen(property));
  const std::vector<std::string> lines = KRX::rt::LayoutLines(KRX::rt::PageLayout(property));
  auto has = [&](const std::string& text) {
    for (const std::string& line : lines) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  };
  EXPECT_TRUE(has("tab \"Global\" helpfile=<FactoryPath>/Doc/<DocLangPref>/krxdocs.chm::/"
                  "charanim_props_RetargetAdjust.htm"));
  EXPECT_TRUE(has("button Save Preset"));
  EXPECT_TRUE(has("item InsertionFrame label=\"Start Frame\" cx=250"));
  EXPECT_TRUE(has("enum RotNodes label=\"Rotations\" items=["));
  // A tab per limb with its clamp target choices, the world first.
  EXPECT_TRUE(has("tab \"lAnkle\""));
  EXPECT_TRUE(has("enum lAnkleFrame label=\"Clamp Target\" items=[Global Frame:0,"));
  EXPECT_TRUE(has("item lAnkleBlendBack label=\"Blend Back Time\" cx=250"));
  // The model is remembered for the scene events, and the view placed as the page asks.
  bool placed = false;
  for (const KRX::View& view : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
    int w = 0, h = 0;
    view.GetSize(w, h);
    placed |= view.GetName() == KRX::CString(L"RetargetAdjust") && w == 400 && h == 370;
  }
  EXPECT_TRUE(placed);
}

TEST_F(AdjustPageTest, ScriptChangesMoveTheTargetAsThePageWould) {
  if (!Retarget()) GTEST_SKIP() << "the shared captures are not here";
  std::vector<CVector3> base;
  Hips(1);
  for (int f = 0; f <= 130; ++f) base.push_back(Hips(f));
  ASSERT_TRUE(Adjustments().IsValid());
  KRX::rt::ClosePage(Adjustments());
  {  // Hip offset: the hips move by exactly the offset, also at the frame shown.
    KRX::Application().PutCurrentFrame(40);
    const CVector3 shown = Hips(KRX::kCurrentTime);
    Set(L"hipX", KRX::CValue(3.0));
    EXPECT_NEAR((Hips(KRX::kCurrentTime) - shown).GetX(), 3.0, 1e-9);
    EXPECT_NEAR((Hips(40) - base[40]).GetX(), 3.0, 1e-9);
    EXPECT_NEAR((Hips(40) - base[40]).GetY(), 0.0, 1e-9);
    Set(L"hipX", KRX::CValue(0.0));
  }
  {  // Start frame: the motion moves by 5 frames; setting it again changes nothing.
    const int ping = Get(L"Ping").GetInt();
    Set(L"InsertionFrame", KRX::CValue(1));
    EXPECT_EQ(Get(L"Ping").GetInt(), ping);
    Set(L"InsertionFrame", KRX::CValue(6));
    EXPECT_GT(Get(L"Ping").GetInt(), ping);
    for (int f : {1, 30, 100}) EXPECT_LT((Hips(f + 5) - base[f]).GetLength(), 1e-9) << f;
    Set(L"InsertionFrame", KRX::CValue(1));
  }
  {  // Speed 2 plays twice as fast from the start frame, and moves the keys of an animated
     // stride to the same motion frames: first key first, none passing another.
    KRX::Parameter stride = Adjustments().GetParameter(L"Stride");
    stride.AddFCurve({{11.0, 1.0}, {21.0, 1.0}, {41.0, 1.0}});
    Set(L"Speed", KRX::CValue(2.0));
    for (int f : {1, 21, 51}) {
      EXPECT_LT((Hips(1 + (f - 1) / 2.0) - base[f]).GetLength(), 1e-9) << f;
    }
    const std::vector<KRX::FCurveKeyData> keys = stride.GetFCurve().GetKeys();
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_DOUBLE_EQ(keys[0].time, 6.0);
    EXPECT_DOUBLE_EQ(keys[1].time, 11.0);
    EXPECT_DOUBLE_EQ(keys[2].time, 21.0);
    Set(L"Speed", KRX::CValue(2.0));  // the stored speed again: nothing moves
    EXPECT_DOUBLE_EQ(stride.GetFCurve().GetKeys()[0].time, 6.0);
    Set(L"Speed", KRX::CValue(1.0));  // back: last key first
    EXPECT_DOUBLE_EQ(stride.GetFCurve().GetKeys()[2].time, 41.0);
    EXPECT_LT((Hips(50) - base[50]).GetLength(), 1e-9);
    stride.RemoveAnimation();
  }
  {  // Stride 0 keeps the hips on the start along the travel; they still bob up and down.
    Set(L"Stride", KRX::CValue(0.0));
    const CVector3 travel = base[120] - base[1];
    CVector3 level(travel.GetX(), 0.0, travel.GetZ());
    level.NormalizeInPlace();
    EXPECT_NEAR((Hips(100) - Hips(1)).Dot(level), 0.0, 1e-6);
    EXPECT_NEAR(Hips(100).GetY(), base[100].GetY(), 1e-9);
  }
  {  // A foot follows the stride; taken off the feet, the ankle keeps its own reach.
    const KRX::CString ankle = LimbEnd("lAnkle");
    ASSERT_FALSE(ankle.IsEmpty());
    const CVector3 strided = At(ankle, 100);
    Set(L"lAnkleFoot", KRX::CValue(false));
    EXPECT_GT((At(ankle, 100) - strided).GetLength(), 1e-3);
    Set(L"lAnkleFoot", KRX::CValue(true));
    EXPECT_LT((At(ankle, 100) - strided).GetLength(), 1e-9);
    Set(L"Stride", KRX::CValue(1.0));
  }
  {  // The start frame is kept with the motion: saved and reopened, it plays from there.
    Set(L"InsertionFrame", KRX::CValue(11));
    const fs::path scene = fs::temp_directory_path() / "kavor_adjust_page.krxs";
    ASSERT_TRUE(Cmd(L"SaveScene", {KRX::CValue(scene.wstring())}).GetBool());
    ASSERT_TRUE(Cmd(L"OpenScene", {KRX::CValue(scene.wstring())}).GetBool());
    fs::remove(scene);
    EXPECT_EQ(Get(L"InsertionFrame").GetInt(), 11);
    Hips(20);
    for (int f : {1, 60}) EXPECT_LT((Hips(f + 10) - base[f]).GetLength(), 1e-9) << f;
  }
}

}  // namespace
}  // namespace kavor::e2e::adjust_page

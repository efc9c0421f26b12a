#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kavor/io/scene_helpers.h"
#include "runtime/interaction.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

using KRX::CString;
namespace rt = KRX::rt;

class SceneCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::ResetScene();
    rt::ResetInteraction();
    root_ = KRX::Application().GetActiveSceneRoot();
  }
  void TearDown() override {
    rt::ResetScene();
    rt::ResetInteraction();
  }
  // Animates the object's local posx with two keys and gives the parameter.
  static KRX::Parameter AnimatePosX(const KRX::X3DObject& object) {
    KRX::Parameter posx = object.GetKinematics().GetLocal().GetParameter(L"posx");
    KRX::FCurveKeyData k1, k2;
    k1.time = 1, k1.value = 0;
    k2.time = 10, k2.value = 5;
    posx.AddFCurve({k1, k2});
    return posx;
  }

  KRX::Model root_;
};

TEST_F(SceneCommandsTest, RemoveAnimationClearsTheModelsBranchOnly) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::X3DObject other = root_.AddModel(L"O");
  const KRX::Parameter deep = AnimatePosX(model.AddNull(L"hips").AddNull(L"spine"));
  const KRX::Parameter own = AnimatePosX(model);
  const KRX::Parameter kept = AnimatePosX(other.AddNull(L"hips"));
  ASSERT_TRUE(deep.IsAnimated(KRX::AnimationSource::FCurve));

  RemoveAnimation(KRX::Model(model.GetRef()));
  EXPECT_FALSE(deep.IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_FALSE(own.IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_TRUE(kept.IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_TRUE(KRX::Application().GetSelection().empty());
}

TEST_F(SceneCommandsTest, FrameModelsFramesWhatItFinds) {
  KRX::X3DObject a = root_.AddModel(L"A");
  a.AddCustomProperty(L"ZRKStructure");
  {  // A model found: framed with the argument 0, selection cleared afterwards.
    FrameModels(L"ZRKStructure");
    EXPECT_EQ(rt::InteractionNotes().back(), "frame all 0");
    EXPECT_TRUE(KRX::Application().GetSelection().empty());
  }
  {  // None found: framed without an argument.
    FrameModels(L"Missing");
    EXPECT_EQ(rt::InteractionNotes().back(), "frame all");
  }
}

TEST_F(SceneCommandsTest, InspectPropertyTellsWhetherThePageWasConfirmed) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::CustomProperty page = model.AddCustomProperty(L"Settings");
  page.AddParameter(L"Speed", KRX::ValueType::Double, 5, L"Speed", L"", 1.0);
  {
    rt::QueueAnswer({rt::AnswerKind::Ok, 0, CString()});
    EXPECT_TRUE(InspectProperty(page));
  }
  {
    rt::QueueAnswer({rt::AnswerKind::Cancel, 0, CString()});
    EXPECT_FALSE(InspectProperty(page));
  }
  {  // Nobody answers: a modal page is cancelled.
    EXPECT_FALSE(InspectProperty(page));
  }
  EXPECT_FALSE(InspectProperty(KRX::Property()));
}

TEST_F(SceneCommandsTest, FindOperatorByNameLooksAtWhatWritesAState) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::X3DObject other = root_.AddModel(L"O");
  const CString path = model.GetKinematics().GetLocal().GetFullName();
  KRX::CustomOperator found;
  {  // Nothing writes the state yet; no path finds nothing either.
    EXPECT_FALSE(FindOperatorByName(path, L"ConnectionLine", &found));
    EXPECT_FALSE(FindOperatorByName(L"", L"ConnectionLine", &found));
    EXPECT_FALSE(found.IsValid());
  }
  // An operator that writes the model's local state (it is never evaluated here).
  KRX::CustomOperator op = KRX::Application().CreateScriptedOp(L"ConnectionLine", L"", L"JScript");
  op.AddOutputPort(model.GetKinematics().GetLocal().GetRef(), L"Out");
  op.AddInputPort(other.GetKinematics().GetGlobal().GetRef(), L"In");
  ASSERT_TRUE(KRX::Succeeded(op.Connect()));
  const CString name = op.GetName();
  ASSERT_FALSE(name.IsEmpty());
  {
    EXPECT_TRUE(FindOperatorByName(path, name, &found));
    EXPECT_EQ(found, op);
  }
  {  // Exact names only, and only on the state it writes.
    EXPECT_FALSE(FindOperatorByName(path, name.Lower() + L"x", nullptr));
    EXPECT_FALSE(
        FindOperatorByName(other.GetKinematics().GetLocal().GetFullName(), name, nullptr));
  }
}

}  // namespace
}  // namespace kavor

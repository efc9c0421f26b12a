// PickObject, InspectObj, FrameAll and ShowFileForEdit.
#include <gtest/gtest.h>

#include "krx/app/app_test_support.h"
#include "plugins/pages.h"

namespace KRX::rt {
namespace {

class InterfaceCommandTest : public AppFixture {
 protected:
  void SetUp() override {
    AppFixture::SetUp();
    hero_ = Model(Application().GetActiveSceneRoot().AddModel(L"Hero"));
    hand_ = hero_.AddNull(L"hand");
    settings_ = hero_.AddCustomProperty(L"Settings");
  }
  Model hero_;
  X3DObject hand_;
  CustomProperty settings_;
};

TEST_F(InterfaceCommandTest, PickObjectGivesTheButtonAndThePickedItem) {
  QueueAnswers({{AnswerKind::Pick, 1, CString("Hero.hand")},
                {AnswerKind::Pick, 2, CString("Hero")},
                {AnswerKind::Cancel, 0, CString()},
                {AnswerKind::Pick, 1, CString("Nobody")}});
  auto pick = [] {
    return Run(L"PickObject", {L"Select Control Node", L"Select Extraction Node"}).GetArray();
  };
  {
    const CValueArray result = pick();
    ASSERT_EQ(result.size(), 3u);
    EXPECT_EQ(result[0], CValue(1));
    EXPECT_EQ(result[2].GetRef(), hand_.GetRef());
  }
  {  // the second pick button
    const CValueArray result = pick();
    EXPECT_EQ(result[0], CValue(2));
    EXPECT_EQ(result[2].GetRef(), hero_.GetRef());
  }
  {  // cancelled, and a name that is nowhere: button 0, nothing picked
    for (int i = 0; i < 2; ++i) {
      const CValueArray result = pick();
      EXPECT_EQ(result[0], CValue(0));
      EXPECT_TRUE(result[2].IsEmpty());
    }
    EXPECT_TRUE(Logged(kSeverityError, "nothing is named 'Nobody'"));
  }
  {  // with nothing queued the pick is cancelled
    EXPECT_EQ(pick()[0], CValue(0));
  }
  ASSERT_EQ(Picks().size(), 5u);
  EXPECT_EQ(Picks()[0].first_prompt, CString("Select Control Node"));
  EXPECT_EQ(Picks()[0].second_prompt, CString("Select Extraction Node"));
  EXPECT_EQ(Picks()[0].picked, CString("Hero.hand"));
  EXPECT_EQ(Picks()[2].picked, CString());
}

TEST_F(InterfaceCommandTest, InspectObjReportsWhetherAModalPageWasConfirmed) {
  const CString name = settings_.GetFullName();
  QueueAnswers({{AnswerKind::Ok, 0, CString()}, {AnswerKind::Cancel, 0, CString()}});
  EXPECT_EQ(Run(L"InspectObj", {name, L"", L"Plot", 4, false}), CValue(true));
  EXPECT_EQ(Run(L"InspectObj", {name, L"", L"Plot", 4, false}), CValue(false));
  EXPECT_EQ(Run(L"InspectObj", {name}), CValue(false));  // modal, nobody answers
  EXPECT_FALSE(IsPageOpen(settings_.GetRef()));
  {  // another mode opens the page and leaves it open
    EXPECT_EQ(Run(L"InspectObj", {name, L"", L"Tool", 3, false}), CValue(true));
    EXPECT_TRUE(IsPageOpen(settings_.GetRef()));
    ClosePage(settings_.GetRef());
  }
  Run(L"InspectObj", {L"Hero.Nothing"}, CStatus::Fail);
}

TEST_F(InterfaceCommandTest, FramingAndEditingFilesAreRecorded) {
  Run(L"FrameAll", {});
  Run(L"FrameAll", {0});
  Run(L"ShowFileForEdit", {L"/data/Structures/human.structure"});
  Run(L"ShowFileForEdit", {}, CStatus::InvalidArgument);
  EXPECT_EQ(FilesShownForEdit(), (std::vector<CString>{L"/data/Structures/human.structure"}));
  EXPECT_EQ(InteractionNotes(),
            (std::vector<std::string>{"frame all", "frame all 0",
                                      "edit file /data/Structures/human.structure"}));
}

}  // namespace
}  // namespace KRX::rt

// Motion files: the key-time rule, a tagged rig's motion written and read back, the bytes
// the writer gives, the writer's limb and lift corrections and curve records, the older
// text form, and what the XML reader reports for damaged or hostile files.
#include "kavor/motion/kavor_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "kavor/io/io_test_support.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/motion/capture_rig_support.h"
#include "kavor/motion/play_control.h"
#include "kavor/motion/save_kavor_motion.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/xml/xml_document.h"
#include "kavor/xml/xml_errors.h"
#include "kavor/xml/xml_values.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
namespace rt = KRX::rt;

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The bytes the document writer gives for the tree the file at `path` holds.
std::string DocumentWriterBytes(const std::string& path) {
  XmlDocument document(path, true, false);
  std::string bytes;
  EXPECT_TRUE(document.Serialize(&bytes));
  return bytes;
}

void AddLinearCurve(const KRX::X3DObject& object, const wchar_t* channel,
                    std::vector<std::pair<double, double>> keys) {
  std::vector<KRX::FCurveKeyData> data;
  for (const auto& [time, value] : keys) {
    KRX::FCurveKeyData key;
    key.time = time;
    key.value = value;
    key.interpolation = KRX::Interpolation::Linear;
    data.push_back(key);
  }
  object.GetKinematics().GetLocal().GetParameter(channel).AddFCurve(data);
}

TEST(KeyTimes, SelectionRule) {
  struct Case {
    std::vector<double> keys;
    std::vector<double> expected;
  };
  // Frames 3 to 10 throughout.
  const Case cases[] = {
      {{1, 5, 20}, {0, 2, 7}},   // start boundary, the key at 5, end boundary
      {{3, 5, 8}, {0, 2, 5}},    // starts exactly at the start: no boundary
      {{4, 6}, {0, 1, 3}},       // the first key comes late: the start boundary first
      {{1, 2}, {}},              // all before the start
      {{12, 15}, {}},            // all after the end, no key before it
      {{5, 10, 11}, {0, 2, 7}},  // a key on the last frame needs no end boundary
      {{2.5, 3.5}, {0, 0.5}},    // fractional key times stay fractional
      {{2, 3, 5}, {0, 0, 2}},    // a key on the start frame after one before it: both
      {{1, 20}, {7}},            // keys around the range only mark its end
      {{}, {}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SelectKeyTimes(c.keys, 3, 10), c.expected) << ::testing::PrintToString(c.keys);
  }
  {  // The key on the start frame may stand for the boundary instead; nothing else changes.
    const std::vector<double> keys = {2, 3, 5};
    EXPECT_EQ(SelectKeyTimes(keys, 3, 10, KeyOnFirstFrame::kKeyIsBoundary),
              (std::vector<double>{0, 2}));
    for (const Case& c : cases) {
      if (c.keys == keys) continue;
      EXPECT_EQ(SelectKeyTimes(c.keys, 3, 10, KeyOnFirstFrame::kKeyIsBoundary), c.expected)
          << ::testing::PrintToString(c.keys);
    }
  }
}

// The test rig with an arm on its chest: a limb plane that is not a foot.
constexpr const char* kArmStructure =
    "TestBase\n"
    "spine { Hips Spine free 0 1 0 0 0 1 0 2 0  Chest free 0 1 0 0 0 1 0 2 0 }\n"
    "arm { Chest lShoulder anchor 1 0 0 0 1 0 2 0 0  lElbow child 1 0 0 0 1 0 2 0 0\n"
    "  lWrist ik 1 0 0 0 1 0 2 0 0 }\n";
// Node order: Hips lHip lKnee lAnkle lToes Spine Chest lShoulder lElbow lWrist.
enum Node { kHips, kHip, kKnee, kAnkle, kToes, kSpine, kChest, kShoulder, kElbow, kWrist };

class KavorFileTest : public rigtest::RigTest {
 protected:
  void SetUp() override {
    RigTest::SetUp();
    rt::ResetInteraction();
    StructureParseResult parsed = ParseStructureText(
        kArmStructure, "ArmRig", [](std::string_view) { return std::string(rigtest::kBase); });
    ASSERT_TRUE(parsed.structure) << parsed.message;
    structure_ = std::move(parsed.structure);
    rig_ = rigtest::BuildRig("Walker");
    shoulder_ = rigtest::AddNullAt(rig_.chest, "LeftArm", 2, 14, 0);
    elbow_ = rigtest::AddNullAt(shoulder_, "LeftForeArm", 4, 14, 0);
    wrist_ = rigtest::AddNullAt(elbow_, "LeftHand", 6, 14, 0);
    rigtest::TagRig(
        rig_, *structure_,
        {{L"lShoulder", L"LeftArm"}, {L"lElbow", L"LeftForeArm"}, {L"lWrist", L"LeftHand"}});
    WriteRigSetup(rig_.model, *structure_, nullptr);
    path_ = folder_ / "walk.kavor";
  }
  void TearDown() override {
    rt::ResetInteraction();
    RigTest::TearDown();
  }

  std::unique_ptr<KavorMotion> SaveAndRead(int32_t start, int32_t end) {
    EXPECT_TRUE(SaveKavorMotion(rig_.model, path_, start, end));
    std::unique_ptr<KavorMotion> motion = ReadKavorMotionFile(path_);
    EXPECT_TRUE(motion);
    return motion;
  }

  static const CTransformation& Pose(const KavorMotion& motion, int32_t frame, int32_t node) {
    return motion.model->poses.at(static_cast<size_t>(frame * motion.model->NumNodes() + node));
  }

  iotest::TempFolder folder_;
  std::unique_ptr<ModelStructure> structure_;
  rigtest::Rig rig_;
  KRX::X3DObject shoulder_, elbow_, wrist_;
  std::string path_;
};

TEST_F(KavorFileTest, RigMotionRoundTrip) {
  std::vector<CVector3> rest;
  for (const KRX::X3DObject& object : {rig_.hips, rig_.hip, rig_.knee, rig_.ankle, rig_.toes,
                                       rig_.spine, rig_.chest, shoulder_, elbow_, wrist_}) {
    rest.push_back(object.GetKinematics().GetGlobal().GetTransform().GetTranslation());
  }
  // The hips walk 1 along X per frame and turn a quarter about Y over frames 1 to 5.
  AddLinearCurve(rig_.hips, L"posx", {{1, 0}, {5, 4}});
  AddLinearCurve(rig_.hips, L"roty", {{1, 0}, {5, 90}});
  SetCurrentFrame(3);
  std::unique_ptr<KavorMotion> motion = SaveAndRead(1, 5);
  ASSERT_TRUE(motion);
  EXPECT_EQ(CurrentFrame(), 3.0);
  EXPECT_FALSE(rt::CurrentProgress().visible);
  auto shown = [](const wchar_t* caption, int maximum) {
    for (const rt::ProgressSnapshot& bar : rt::ProgressHistory()) {
      if (bar.visible && bar.caption == KRX::CString(caption) && bar.maximum == maximum)
        return true;
    }
    return false;
  };
  EXPECT_TRUE(shown(L"Saving Normalized Data ...", 8));  // two passes over frames 1 to 5
  EXPECT_TRUE(shown(L"Parsing Kavor File ...", 5));
  EXPECT_TRUE(rt::MessageBoxes().empty());
  EXPECT_TRUE(ReadBytes(path_) == DocumentWriterBytes(path_));  // see CaptureBytes

  // The outline and the rest data are the rig's.
  RetargetModel rig(rig_.model, structure_.get());
  ReadModelMap(rig);
  const RetargetModel& read = *motion->model;
  ASSERT_EQ(read.NumNodes(), structure_->NumNodes());
  EXPECT_EQ(motion->structure->type, structure_->type);
  EXPECT_EQ(read.leg_length, rig.leg_length);
  EXPECT_EQ(read.hip_offset, rig.hip_offset);
  for (int32_t i = 0; i < read.NumNodes(); ++i) {
    EXPECT_EQ(motion->structure->nodes[i].name, structure_->nodes[i].name);
    EXPECT_TRUE(motion->structure->nodes[i].obj_is_valid);
    EXPECT_EQ(read.Node(i).length, rig.Node(i).length);
  }
  const auto planes = [](const ModelStructure& structure) {
    std::string text;
    for (const StructurePlane& p : structure.planes) {
      text += p.name +
              ::testing::PrintToString(std::vector<int32_t>{p.span, p.mid, p.anchor_index}) +
              ::testing::PrintToString(p.chain);
    }
    return text;
  };
  EXPECT_EQ(planes(*motion->structure), planes(*structure_));

  // Each normalized rotation takes +Z onto the node's bone direction and +Y onto its roll
  // direction as the turned rig has them; positions turn about the hips.
  ASSERT_EQ(read.frame_count, 5);
  for (int32_t k = 0; k < 5; ++k) {
    const CRotation turn = CRotation::FromAxisAngle(CVector3(0, 1, 0), KRX::MATH::kPi / 8 * k);
    const CVector3 hips(k, 10, 0);
    for (int32_t i = 0; i < read.NumNodes(); ++i) {
      SCOPED_TRACE("frame " + std::to_string(k) + ", node " + structure_->nodes[i].name);
      const StructureNode& node = structure_->nodes[i];
      const auto q = Pose(*motion, k, i).GetRotationQuaternion();
      EXPECT_TRUE(
          q.Rotate(CVector3(0, 0, 1)).Equals(turn.GetQuaternion().Rotate(node.align), 1e-9));
      EXPECT_TRUE(q.Rotate(CVector3(0, 1, 0)).Equals(turn.GetQuaternion().Rotate(node.roll), 1e-9));
      const CVector3 offset = rest[static_cast<size_t>(i)] - CVector3(0, 10, 0);
      EXPECT_TRUE(Pose(*motion, k, i)
                      .GetTranslation()
                      .Equals(hips + turn.GetQuaternion().Rotate(offset), 1e-9));
    }
  }

  // One record per tagged object; the hips' two curves give their keys from frame 1.
  ASSERT_EQ(read.curves.size(), 10u);
  EXPECT_EQ(read.curves[0].node_name, "Hips");
  EXPECT_EQ(read.curves[0].channels[0], (std::vector<double>{0, 4}));
  EXPECT_EQ(read.curves[0].channels[4], (std::vector<double>{0, 4}));
  EXPECT_TRUE(read.curves[0].channels[1].empty());
  for (size_t r = 1; r < read.curves.size(); ++r) {
    EXPECT_EQ(read.curves[r].node_name, structure_->nodes[r].name);
    for (const std::vector<double>& channel : read.curves[r].channels) EXPECT_TRUE(channel.empty());
  }
}

// A motion file of a real capture holds exactly the bytes the document writer gives for
// the tree it holds: files written before the writer streamed and after are the same.
TEST_F(KavorFileTest, CaptureBytes) {
  const capturetest::fs::path capture = capturetest::SharedCapture("cmu_02_01.bvh");
  if (capture.empty()) GTEST_SKIP() << "the shared captures are not here";
  capturetest::NewSceneWithShippedData();
  const KRX::Model walker = capturetest::ImportCapture(capture, L"Walker");
  ASSERT_TRUE(
      capturetest::TagInBindPose(walker, capturetest::ShippedTemplate("CmuJointNames.tagt")));
  ASSERT_TRUE(SaveKavorMotion(walker, path_, 1, 300));
  EXPECT_TRUE(ReadBytes(path_) == DocumentWriterBytes(path_));
}

TEST_F(KavorFileTest, SquashedLimbsAreRestoredAndTheBodyLifted) {
  {
    RetargetModel rig(rig_.model, structure_.get());
    ReadModelMap(rig);
    ASSERT_EQ(rig.Node(kAnkle).length, 7.5);  // hip to knee 3.5, knee to ankle 4
    ASSERT_EQ(rig.Node(kWrist).length, 4.0);
  }
  // Knee and elbow pulled 1 towards the joint above them: both limbs fall short of their
  // rest length, and the leg (a planted foot) reaches down only 6.5.
  for (KRX::X3DObject* joint : {&rig_.knee, &elbow_}) {
    CTransformation t = joint->GetKinematics().GetGlobal().GetTransform();
    t.SetTranslation(t.GetTranslation() +
                     (joint == &elbow_ ? CVector3(-1, 0, 0) : CVector3(0, 1, 0)));
    joint->GetKinematics().GetGlobal().PutTransform(t);
  }
  const double lift = 0.99 * 7.5 - 6.5;
  std::unique_ptr<KavorMotion> motion = SaveAndRead(1, 1);
  ASSERT_TRUE(motion);
  const struct {
    Node node;
    CVector3 expected;
  } checks[] = {
      {kHips, {0, 10 + lift, 0}},  {kKnee, {1, 7 + lift, 0}},
      {kAnkle, {1, 3, 0}},         {kToes, {1, 3, 1}},  // the planted foot stays down
      {kChest, {0, 14 + lift, 0}}, {kElbow, {3, 14 + lift, 0}},
      {kWrist, {6, 14 + lift, 0}},  // the arm reaches its rest length 4 again
  };
  for (const auto& check : checks) {
    EXPECT_TRUE(Pose(*motion, 0, check.node).GetTranslation().Equals(check.expected, 1e-9))
        << structure_->nodes[check.node].name;
  }
  {  // Without a model map nothing is corrected.
    KRX::Property map;
    ASSERT_TRUE(FindPropertyByName(rig_.model, kModelMapProperty, &map));
    RetargetModel rig(rig_.model, structure_.get());
    ReadModelMap(rig);
    RunCommand(L"DeleteObj", {KRX::CValue(map.GetFullName())});
    ASSERT_TRUE(WriteKavorFile(rig, path_, 1, 1));
    motion = ReadKavorMotionFile(path_);
    ASSERT_TRUE(motion);
    EXPECT_TRUE(Pose(*motion, 0, kHips).GetTranslation().Equals(CVector3(0, 10, 0), 1e-9));
    EXPECT_TRUE(Pose(*motion, 0, kWrist).GetTranslation().Equals(CVector3(5, 14, 0), 1e-9));
  }
}

TEST_F(KavorFileTest, CurveRecords) {
  AddLinearCurve(rig_.hips, L"posy", {{1, 10}, {2, 11}});  // keys before the range only
  AddLinearCurve(rig_.spine, L"rotz", {{1, 0}, {5, 20}, {20, 0}});
  AddLinearCurve(rig_.knee, L"rotx", {{2, 0}, {3, 5}, {5, 9}});  // a key on the start frame
  KRX::X3DObject target = rig_.model.AddNull(L"Target");
  rig_.chest.AddConstraint(L"Position", target);  // driven by another object: no record
  {
    std::unique_ptr<KavorMotion> motion = SaveAndRead(3, 10);
    ASSERT_TRUE(motion);
    const std::vector<CurveKeyRecord>& curves = motion->model->curves;
    ASSERT_EQ(curves.size(), 9u);
    for (const CurveKeyRecord& record : curves) EXPECT_NE(record.node_name, "Chest");
    EXPECT_EQ(curves[kSpine].node_name, "Spine");
    EXPECT_EQ(curves[kSpine].channels[5], (std::vector<double>{0, 2, 7}));
    EXPECT_EQ(curves[kKnee].channels[3], (std::vector<double>{0, 0, 2}));
    RetargetModel rig(rig_.model, structure_.get());
    ReadModelMap(rig);
    ASSERT_TRUE(WriteKavorFile(rig, path_, 3, 10, KeyOnFirstFrame::kKeyIsBoundary));
    EXPECT_EQ(ReadKavorMotionFile(path_)->model->curves[kKnee].channels[3],
              (std::vector<double>{0, 2}));
    ASSERT_TRUE(SaveKavorMotion(rig_.model, path_, 3, 10));
    // A driven channel without keys in the range is written, with no keys.
    XmlDocument document(path_, true, false);
    const XmlElement* hips =
        ChildElementAt(ChildElement(document.DocumentElement(), L"FCURVE_KEYS"), 0);
    ASSERT_EQ(ChildElementCount(hips), 1);
    KRX::CString name, count;
    EXPECT_TRUE(document.ReadAttribute(ChildElementAt(hips, 0), L"name", &name));
    EXPECT_TRUE(document.ReadAttribute(ChildElementAt(hips, 0), L"numkeys", &count));
    EXPECT_EQ(name + L" " + count, KRX::CString(L"posy 0"));
  }
  {  // An up-vector reference of a chain bone playing a limb anchor is a record of its own.
    RetargetModel rig(rig_.model, structure_.get());
    KRX::ChainRoot chain(rig_.model.Add2DChain(CVector3(1, 9.5, 0), CVector3(1, 6, 0)));
    KRX::X3DObject up = rig_.model.AddNull(L"KneeUp");
    KRX::ChainBone(chain.GetBones().front()).PutUpVectorReference(up);
    AddLinearCurve(up, L"posz", {{4, 0}, {6, 1}});
    rig.Node(kHip).object = chain.GetBones().front();
    CollectCurveKeys(rig, 3, 10);
    ASSERT_EQ(rig.curves.size(), 10u);
    EXPECT_EQ(rig.curves.back().node_name, "lKnee_Up_Vector_Node_Tag_TRVL");
    EXPECT_EQ(rig.curves.back().channels[2], (std::vector<double>{0, 1, 3}));
    up.AddConstraint(L"Orientation", target);
    CollectCurveKeys(rig, 3, 10);
    EXPECT_EQ(rig.curves.size(), 9u);
  }
  {  // A retarget target's own curves are not its motion: no records at all.
    rig_.model.AddCustomProperty(L"RetargetAdjustPPG");
    std::unique_ptr<KavorMotion> motion = SaveAndRead(3, 10);
    ASSERT_TRUE(motion);
    EXPECT_TRUE(motion->model->curves.empty());
    EXPECT_NE(ReadBytes(path_).find("num_nodes_with_fcurve_keys=\"0\"/>"), std::string::npos);
  }
}

TEST_F(KavorFileTest, WhatCannotBeSaved) {
  {
    RetargetModel file_motion(structure_.get());
    file_motion.poses.resize(1);
    rt::ClearLog();
    EXPECT_FALSE(WriteKavorFile(file_motion, path_, 1, 2));
    ASSERT_EQ(rt::LogLines().size(), 1u);
    EXPECT_EQ(rt::LogLines()[0].text,
              KRX::CString(L"Normalized motion must originate from a rig."));
    EXPECT_EQ(rt::LogLines()[0].severity, KRX::kSeverityWarning);
    RetargetModel rig(rig_.model, structure_.get());
    EXPECT_FALSE(WriteKavorFile(rig, path_, 5, 4));
    EXPECT_FALSE(WriteKavorFile(rig, path_, 0, 2'000'000));
    EXPECT_TRUE(ReadBytes(path_).empty());
  }
  {
    EXPECT_FALSE(SaveKavorMotion(KRX::Model(rig_.model.AddModel(L"Bare")), path_, 1, 2));
    RunCommand(L"DeleteObj", {KRX::CValue(rig_.model.GetFullName() + L".ZRKMap")});
    EXPECT_FALSE(SaveKavorMotion(rig_.model, path_, 1, 2));
    ASSERT_EQ(rt::MessageBoxes().size(), 2u);
    EXPECT_EQ(rt::MessageBoxes()[0].text, KRX::CString(L"Cannot create structure."));
    EXPECT_EQ(rt::MessageBoxes()[1].text,
              KRX::CString(L"Failed to read the map from the source model."));
  }
}

// ---- reading ----

constexpr const char* kLegacyText =
    "NormMotion5.0\n"
    "2 7.5 0.5 3 1 TestBase\n"
    "v Hips 0  valid lHip 3.5  v lKnee 4\n"
    "lHip 2 1 0 3 2 1 0\n"
    "0 0 0 0 10 0   0 0 0 1 9.5 0   0 0 0 1 6 0\n"
    "0 1.5707963267948966 0 1 10 0   0 0 0 1 9.5 0   0 0 0 1 6 0.25\n"
    "2\n"
    "Hips posx 2 0 1 roty 1 0.5\n"
    "lKnee\n";

TEST(KavorText, ReadsTheOlderForm) {
  rt::ClearLog();
  for (const std::string& text :
       {std::string(kLegacyText), "\xEF\xBB\xBF" + std::string(kLegacyText)}) {
    KavorMotion motion;
    ASSERT_TRUE(ParseKavorText(motion, text));
    const RetargetModel& model = *motion.model;
    EXPECT_EQ(model.frame_count, 2);
    EXPECT_EQ(model.leg_length, 7.5);
    EXPECT_EQ(model.hip_offset, 0.5);
    EXPECT_EQ(motion.structure->type, "TestBase");
    // Only the exact word "v" marks a node as played.
    EXPECT_TRUE(motion.structure->nodes[0].obj_is_valid);
    EXPECT_FALSE(motion.structure->nodes[1].obj_is_valid);
    EXPECT_TRUE(motion.structure->nodes[2].obj_is_valid);
    EXPECT_EQ(model.Node(1).length, 3.5);
    EXPECT_EQ(motion.structure->planes[0].chain, (std::vector<int32_t>{2, 1, 0}));
    const CTransformation& turned = model.poses[3];
    EXPECT_TRUE(
        turned.GetRotationQuaternion().Rotate(CVector3(0, 0, 1)).Equals(CVector3(1, 0, 0), 1e-12));
    EXPECT_TRUE(model.poses[5].GetTranslation().Equals(CVector3(1, 6, 0.25)));
    // A word that is no channel name starts the next record.
    ASSERT_EQ(model.curves.size(), 2u);
    EXPECT_EQ(model.curves[0].channels[0], (std::vector<double>{0, 1}));
    EXPECT_EQ(model.curves[0].channels[4], (std::vector<double>{0.5}));
    EXPECT_EQ(model.curves[1].node_name, "lKnee");
  }
  EXPECT_TRUE(rt::LogLines().empty());
}

TEST(KavorText, RefusesWhatDoesNotRead) {
  const std::string good = kLegacyText;
  struct Case {
    std::string text;
    std::string logged;  // the detail logged before "Can't parse the Kavor file."
  };
  const Case cases[] = {
      {"NormMotion4.0" + good.substr(13), "NormMotion4.0"},
      {"Hello", "Hello"},
      {good.substr(0, 60),
       "line 3: expected the validity word of node 2, found the end of the data"},
      {"NormMotion5.0 1000000 1 1 3 0 T v a 1 v b 1 v c 1 0 0 0 0 0 0",
       "line 1: 1000000 frames of 3 nodes are more than the file holds"},
      {"NormMotion5.0 1 1 1 600 0 T", "line 1: the node count 600 is outside 1 .. 512"},
      {"NormMotion5.0 0 1 1 2 1 T v a 1 v b 1 p 1 0 0 2 1 7",
       "line 1: a bone index of plane 0 7 is outside -1 .. 1"},
      {"NormMotion5.0 0 1 1 1 0 T v a 1 1 a posx 99999 1",
       "line 1: a key count 99999 is outside 0 .. 4"},
      {"NormMotion5.0 0 1 1 1 0 T v a 1 5 a b",
       "line 1: the number of curve key records 5 is outside 0 .. 1"},
      {"NormMotion5.0 1 1 1 1 0 T v a 1 0 0 0 nan 0 0", "found \"nan\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    rt::ClearLog();
    KavorMotion motion;
    EXPECT_FALSE(ParseKavorText(motion, c.text));
    EXPECT_FALSE(motion.model);
    ASSERT_EQ(rt::LogLines().size(), 2u);
    EXPECT_EQ(rt::LogLines()[0].severity, KRX::kSeverityInfo);
    EXPECT_NE(rt::LogLines()[0].text.GetAsciiString().find(c.logged), std::string::npos)
        << rt::LogLines()[0].text.GetAsciiString();
    EXPECT_EQ(rt::LogLines()[1].text, KRX::CString(L"Can't parse the Kavor file."));
    EXPECT_EQ(rt::LogLines()[1].severity, KRX::kSeverityWarning);
  }
  {  // An empty file fails without a word.
    rt::ClearLog();
    KavorMotion motion;
    EXPECT_FALSE(ParseKavorText(motion, ""));
    EXPECT_TRUE(rt::LogLines().empty());
  }
}

// A small XML motion: 3 nodes, 1 plane, 2 frames, with every `from` replaced by `to`.
std::string XmlMotion(const std::vector<std::pair<std::string, std::string>>& edits = {}) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ROOT><HEADER>KAVOR file"
      "<VERSION>x</VERSION><AnimationLength>2</AnimationLength><legLength>7.5</legLength>"
      "<hipOffset>0.5</hipOffset><numNodes>3</numNodes><numPlanes>1</numPlanes>"
      "<structure_type>T</structure_type></HEADER>"
      "<NODES><NODE obj_IsValid=\"true\" name=\"a\" length=\"1\"/><NODE obj_IsValid=\"false\" "
      "name=\"b\" length=\"2\"/><NODE obj_IsValid=\"true\" name=\"c\" length=\"3\"/></NODES>"
      "<PLANES><PLANE name=\"b\" span=\"2\" mid=\"1\" anchor_index=\"0\" numbones=\"3\">"
      "<Bone boneindex=\"2\"/><Bone boneindex=\"1\"/><Bone boneindex=\"0\"/></PLANE></PLANES>"
      "<POSE_VALUES><POSE><N global=\"0,1,0,1.5,1,2,3\"/><N global=\"1,0,0,0,0,0,0\"/>"
      "<N global=\"1,0,0,0,0,0,4\"/></POSE><POSE><N global=\"1,0,0,0,5,0,0\"/>"
      "<N global=\"1,0,0,0,0,0,0\"/><N global=\"1,0,0,0,0,0,0\"/></POSE></POSE_VALUES>"
      "<FCURVE_KEYS num_nodes_with_fcurve_keys=\"1\"><NODE name=\"a\"><CURVE name=\"rotx\" "
      "numkeys=\"2\"><KEY keytime=\"0\"/><KEY keytime=\"2.5\"/></CURVE></NODE></FCURVE_KEYS>"
      "</ROOT>";
  for (const auto& [from, to] : edits) {
    EXPECT_NE(text.find(from), std::string::npos) << from;
    for (size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
      text.replace(at, from.size(), to);
    }
  }
  return text;
}

// What a read of the XML motion `text` showed: the report, or "" when nothing was shown.
std::string ReadShowing(const std::string& text, bool* read, KavorMotion* motion = nullptr) {
  rt::ResetInteraction();
  KavorMotion scratch;
  KavorMotion& out = motion != nullptr ? *motion : scratch;
  *read = ParseKavorXml(out, "m.kavor", text);
  EXPECT_EQ(out.model != nullptr, *read);
  std::string shown;
  for (const rt::MessageBoxRecord& box : rt::MessageBoxes()) shown += box.text.GetAsciiString();
  rt::ResetInteraction();
  return shown;
}

std::string Report(const std::vector<std::string>& errors, const std::string& path = "m.kavor") {
  std::vector<KRX::CString> texts;
  for (const std::string& error : errors) texts.emplace_back(error);
  return XmlErrorReport(KRX::CString(path), texts).GetAsciiString();
}

// Everything a read motion holds, as text.
std::string Describe(const KavorMotion& motion) {
  const ModelStructure& structure = *motion.structure;
  const RetargetModel& model = *motion.model;
  std::ostringstream out;
  out << structure.type << " " << model.frame_count << " " << model.leg_length << " "
      << model.hip_offset << "\n";
  for (int32_t i = 0; i < structure.NumNodes(); ++i) {
    out << structure.nodes[i].name << structure.nodes[i].obj_is_valid << model.Node(i).length;
  }
  for (const StructurePlane& plane : structure.planes) {
    out << plane.name << plane.span << plane.mid << plane.anchor_index
        << ::testing::PrintToString(plane.chain);
  }
  for (const CTransformation& pose : model.poses) {
    out << KRX::CString(TransformText(pose)).GetAsciiString() << ";";
  }
  for (const CurveKeyRecord& record : model.curves) {
    out << record.node_name << ::testing::PrintToString(record.channels);
  }
  return out.str();
}

TEST(KavorXml, EveryMessage) {
  {
    bool read = false;
    KavorMotion motion;
    EXPECT_EQ(ReadShowing(XmlMotion(), &read, &motion), "");
    ASSERT_TRUE(read);
    ASSERT_EQ(motion.model->poses.size(), 6u);
    EXPECT_TRUE(motion.model->poses[0].GetTranslation().Equals(CVector3(1, 2, 3)));
    EXPECT_TRUE(motion.model->poses[3].GetTranslation().Equals(CVector3(5, 0, 0)));
    EXPECT_EQ(motion.model->curves.at(0).channels[3], (std::vector<double>{0, 2.5}));
    // Text is taken as the tree holds it: its first node, without layout next to elements.
    EXPECT_EQ(ReadShowing(XmlMotion({{">T<", ">\n  T \n  <x/><"}, {">x</", "><![CDATA[v]]>w</"}}),
                          &read, &motion),
              "");
    EXPECT_EQ(motion.structure->type, "T ");
    EXPECT_EQ(ReadShowing(XmlMotion({{">T<", ">\n  <![CDATA[U]]><x/><"}}), &read, &motion), "");
    EXPECT_EQ(motion.structure->type, "U");  // the blank layout goes, the section stays
  }
  struct Case {
    std::vector<std::pair<std::string, std::string>> edits;
    bool read;
    std::vector<std::string> errors;
  };
  const Case cases[] = {
      {{{"HEADER>", "HEAD>"}}, false, {"DOMElement : <HEADER> not found under : ROOT"}},
      {{{"<hipOffset>0.5</hipOffset>", ""}, {">7.5<", ">y<"}},
       true,
       {"DOMElement : <legLength> under : HEADER is not a number: \"y\"",
        "DOMElement : <hipOffset> not found under : HEADER"}},
      {{{">3</numNodes>", ">x</numNodes>"}},
       false,
       {"DOMElement : <numNodes> under : HEADER is not a whole number: \"x\"",
        "numNodes 0 is outside 1 .. 512: the motion is not read"}},
      {{{">1</numPlanes>", ">600</numPlanes>"}},
       false,
       {"numPlanes 600 is outside 0 .. 512: the motion is not read"}},
      {{{">2</AnimationLength>", ">2000000</AnimationLength>"}},
       false,
       {"AnimationLength 2000000 is outside 0 .. 1000000: the motion is not read"}},
      {{{">2</AnimationLength>", ">2.5</AnimationLength>"}},
       true,
       {"DOMElement : <AnimationLength> under : HEADER is not a whole number: \"2.5\""}},
      {{{">2</AnimationLength>", ">900000</AnimationLength>"}},
       true,
       {"AnimationLength 900000 is more than the 2 POSE elements present; those are read"}},
      {{{" length=\"2\"", ""}, {"length=\"3\"", "length=\"q\""}},
       true,
       {"Atribute : <length> not found under : NODE",
        "Atribute : <length> under : NODE is not a number: \"q\""}},
      {{{"<NODE obj_IsValid=\"true\" name=\"c\" length=\"3\"/>", "<X/>"}},
       true,
       {"NODES holds 2 NODE elements for numNodes 3"}},
      {{{"NODES>", "NODEZ>"}, {"PLANES>", "PLANEZ>"}},
       true,
       {"DOMElement : <NODES> not found under : ROOT",
        "DOMElement : <PLANES> not found under : ROOT"}},
      {{{">1</numPlanes>", ">2</numPlanes>"}, {"boneindex=\"1\"", "boneindex=\"99\""}},
       true,
       {"Atribute : <boneindex> under : Bone is \"99\", outside -1 .. 2",
        "PLANES holds 1 PLANE elements for numPlanes 2"}},
      {{{"<Bone boneindex=\"0\"/>", ""}, {"<Bone boneindex=\"2\"/>", "<Bone/>"}},
       true,
       {"Atribute : <numbones> under : PLANE is 3 but only 2 bones follow",
        "Atribute : <boneindex> not found under : Bone"}},
      {{{"POSE_VALUES>", "POSES>"}},
       true,
       {"DOMElement : <POSE_VALUES> not found under : ROOT",
        "AnimationLength 2 is more than the 0 POSE elements present; those are read"}},
      {{{"<N global=\"1,0,0,0,0,0,4\"/>", ""},
        {"global=\"1,0,0,0,5,0,0\"", "global=\"1,0,0\""},
        {"<N global=\"1,0,0,0,0,0,0\"/></POSE></POSE_VALUES>", "<N/></POSE></POSE_VALUES>"}},
       true,
       {"POSE 0 holds 2 NODE elements for numNodes 3",
        "Error reading CTransformation Attribute : <global> not found under : N",
        "Atribute : <global> not found under : N"}},
      {{{"num_nodes_with_fcurve_keys=\"1\"", "num_nodes_with_fcurve_keys=\"4\""},
        {"numkeys=\"2\"", "numkeys=\"3\""},
        {"keytime=\"0\"", "keytime=\"k\""}},
       true,
       {"Atribute : <num_nodes_with_fcurve_keys> under : FCURVE_KEYS is 4 but only 1 records "
        "follow",
        "Atribute : <numkeys> under : CURVE is 3 but only 2 keys follow",
        "Atribute : <keytime> under : KEY is not a number: \"k\""}},
      {{{"num_nodes_with_fcurve_keys=\"1\"", "num_nodes_with_fcurve_keys=\"9\""}},
       true,
       {"Atribute : <num_nodes_with_fcurve_keys> under : FCURVE_KEYS is \"9\", outside 0 .. 4"}},
      {{{"numkeys=\"2\"", "numkeys=\"1e300\""}},
       true,
       {"Atribute : <numkeys> under : CURVE is \"1e300\", outside 0 .. 16777216"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.edits));
    bool read = false;
    EXPECT_EQ(ReadShowing(XmlMotion(c.edits), &read), Report(c.errors));
    EXPECT_EQ(read, c.read);
  }
  {  // A POSE_VALUES count beyond the bounds: refused when the POSE elements are there...
    const auto poses = [](int count) {
      std::string text =
          "<?xml version=\"1.0\"?><ROOT><HEADER>K<AnimationLength>16385</AnimationLength>"
          "<numNodes>512</numNodes><numPlanes>0</numPlanes></HEADER><POSE_VALUES>";
      for (int f = 0; f < count; ++f) text += "<P/>";
      return text + "</POSE_VALUES></ROOT>";
    };
    const std::vector<std::string> header = {
        "DOMElement : <VERSION> not found under : HEADER",
        "DOMElement : <legLength> not found under : HEADER",
        "DOMElement : <hipOffset> not found under : HEADER",
        "DOMElement : <structure_type> not found under : HEADER",
        "DOMElement : <NODES> not found under : ROOT",
        "DOMElement : <PLANES> not found under : ROOT"};
    std::vector<std::string> errors = header;
    errors.push_back(
        "16385 frames of 512 nodes are more than a motion file may hold: the motion "
        "is not read");
    bool read = true;
    EXPECT_EQ(ReadShowing(poses(16385), &read), Report(errors));
    EXPECT_FALSE(read);
    // ...and read as far as they go when fewer are there.
    errors = header;
    errors.push_back(
        "AnimationLength 16385 is more than the 2 POSE elements present; those are "
        "read");
    errors.push_back("POSE 0 holds 0 NODE elements for numNodes 512");
    errors.push_back("POSE 1 holds 0 NODE elements for numNodes 512");
    KavorMotion motion;
    EXPECT_EQ(ReadShowing(poses(2), &read, &motion), Report(errors));
    ASSERT_TRUE(read);
    EXPECT_EQ(motion.model->poses.size(), 1024u);
  }
  {  // The file itself.
    iotest::TempFolder folder;
    const auto shown = [](const std::string& path) {
      rt::ResetInteraction();
      KavorMotion motion;
      EXPECT_FALSE(ReadKavorXml(motion, path));
      EXPECT_EQ(rt::MessageBoxes().size(), 1u);
      return rt::MessageBoxes().empty() ? "" : rt::MessageBoxes().back().text.GetAsciiString();
    };
    const std::string absent = folder / "absent.kavor";
    EXPECT_EQ(shown(absent), Report({"File Not found: " + absent}, absent));
    // A sparse file beyond the size limit is refused before anything is read.
    const std::string large = folder / "large.kavor";
    iotest::WriteFile(large, XmlMotion());
    std::filesystem::resize_file(large, kMaxXmlFileBytes + 1);
    EXPECT_EQ(shown(large), Report({"File too large: " + large}, large));
    // A cut file: the parser's error, with where it stopped.
    bool read = true;
    const std::string cut = ReadShowing(XmlMotion().substr(0, 120), &read);
    EXPECT_FALSE(read);
    EXPECT_EQ(cut.rfind(Report({"Parsing m.kavor error count: 1"}) + "Error : line 1, column ", 0),
              0u)
        << cut;
  }
}

// Past a hundred errors the rest of the poses or keys is not read; the first error of a
// section, that fewer elements follow than announced, counts towards the hundred.
TEST(KavorXml, ErrorLimit) {
  const auto poses = [](int frames_announced, int bad, int good) {
    std::string text =
        "<?xml version=\"1.0\"?><ROOT><HEADER>K<VERSION>x</VERSION><AnimationLength>" +
        std::to_string(frames_announced) +
        "</AnimationLength><legLength>1</legLength><hipOffset>0</hipOffset><numNodes>1"
        "</numNodes><numPlanes>0</numPlanes><structure_type>T</structure_type></HEADER>"
        "<NODES><NODE obj_IsValid=\"true\" name=\"a\" length=\"1\"/></NODES><PLANES/>"
        "<POSE_VALUES>";
    for (int f = 0; f < bad; ++f) text += "<P><N global=\"bad\"/></P>";
    for (int f = 0; f < good; ++f) text += "<P><N global=\"1,0,0,0,1,2,3\"/></P>";
    return text + "</POSE_VALUES></ROOT>";
  };
  const std::string bad = "Error reading CTransformation Attribute : <global> not found under : N";
  {
    std::vector<std::string> errors(100, bad);
    errors.push_back("Too many errors: the rest of the poses was not read");
    bool read = false;
    KavorMotion motion;
    EXPECT_EQ(ReadShowing(poses(102, 101, 1), &read, &motion), Report(errors));
    ASSERT_TRUE(read);
    ASSERT_EQ(motion.model->poses.size(), 102u);
    EXPECT_TRUE(motion.model->poses[101].GetTranslation().Equals(CVector3(0, 0, 0)));
  }
  {  // Announcing more frames than follow is the first error: one pose error fewer is read.
    std::vector<std::string> errors(99, bad);
    errors.insert(errors.begin(),
                  "AnimationLength 200 is more than the 102 POSE elements present; those are read");
    errors.push_back("Too many errors: the rest of the poses was not read");
    bool read = false;
    KavorMotion motion;
    EXPECT_EQ(ReadShowing(poses(200, 99, 3), &read, &motion), Report(errors));
    ASSERT_TRUE(read);
    ASSERT_EQ(motion.model->poses.size(), 102u);
    EXPECT_TRUE(motion.model->poses[99].GetTranslation().Equals(CVector3(0, 0, 0)));
    // One error fewer and nothing is cut.
    errors.assign(98, bad);
    errors.insert(errors.begin(),
                  "AnimationLength 200 is more than the 101 POSE elements present; those are read");
    EXPECT_EQ(ReadShowing(poses(200, 98, 3), &read, &motion), Report(errors));
    ASSERT_EQ(motion.model->poses.size(), 101u);
    EXPECT_TRUE(motion.model->poses[99].GetTranslation().Equals(CVector3(1, 2, 3)));
  }
  {  // So does the error of a section missing before them.
    std::vector<std::string> errors(99, bad);
    errors.insert(errors.begin(), "DOMElement : <NODES> not found under : ROOT");
    errors.push_back("Too many errors: the rest of the poses was not read");
    std::string text = poses(102, 99, 3);
    text.replace(text.find("<NODES>"), text.find("<PLANES/>") - text.find("<NODES>"), "");
    bool read = false;
    EXPECT_EQ(ReadShowing(text, &read), Report(errors));
  }
  {
    std::string keys;
    for (int k = 0; k < 100; ++k) keys += "<KEY keytime=\"k\"/>";
    const std::string text = XmlMotion(
        {{"numkeys=\"2\"><KEY keytime=\"0\"/><KEY keytime=\"2.5\"/>", "numkeys=\"100\">" + keys}});
    std::vector<std::string> errors(100, "Atribute : <keytime> under : KEY is not a number: \"k\"");
    errors.push_back("Too many errors: the rest of the curve keys was not read");
    bool read = false;
    EXPECT_EQ(ReadShowing(text, &read), Report(errors));
    EXPECT_TRUE(read);
  }
}

// The sections are read in one order whatever order the file holds them in.
TEST(KavorXml, SectionsInAnyOrder) {
  const std::string canonical = XmlMotion({{" length=\"2\"", ""},
                                           {"boneindex=\"1\"", "boneindex=\"9\""},
                                           {"global=\"1,0,0,0,5,0,0\"", "global=\"1\""},
                                           {"keytime=\"0\"", "keytime=\"\""}});
  std::vector<std::string> sections;
  for (const char* name : {"<HEADER>", "<NODES>", "<PLANES>", "<POSE_VALUES>", "<FCURVE_KEYS"}) {
    const size_t begin = canonical.find(name);
    const size_t end = canonical.find('<', canonical.find(std::string("</") + (name + 1)) + 1);
    sections.push_back(canonical.substr(begin, end - begin));
  }
  const std::string head = canonical.substr(0, canonical.find("<HEADER>"));
  bool read = false;
  KavorMotion expected;
  const std::string report = ReadShowing(canonical, &read, &expected);
  ASSERT_TRUE(read);
  EXPECT_NE(report, "");
  std::vector<size_t> order = {0, 1, 2, 3, 4};
  int permutations = 0;
  while (std::next_permutation(order.begin(), order.end())) {
    if (++permutations % 7 != 0) continue;  // a spread of the 119 other orders
    std::string text = head;
    for (const size_t s : order) text += sections[s];
    KavorMotion motion;
    EXPECT_EQ(ReadShowing(text + "</ROOT>", &read, &motion), report)
        << ::testing::PrintToString(order);
    ASSERT_TRUE(read);
    EXPECT_EQ(Describe(motion), Describe(expected));
  }
}
}  // namespace
}  // namespace kavor

// Motion files: the key-time rule, a tagged rig's motion written and read back, the
// writer's limb and lift corrections and curve records, the older text form, and damaged
// or hostile files.
#include "kavor/motion/kavor_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kavor/io/io_test_support.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/motion/play_control.h"
#include "kavor/motion/save_kavor_motion.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/xml/xml_document.h"
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
      {{2, 3, 5}, {0, 2}},       // a key on the start frame is the start boundary
      {{1, 20}, {7}},            // keys around the range only mark its end
      {{}, {}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SelectKeyTimes(c.keys, 3, 10), c.expected) << ::testing::PrintToString(c.keys);
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
    rigtest::TagObjects(rig_.model, *structure_,
                        {{L"Hips", L"Hips"},
                         {L"lHip", L"LeftUpLeg"},
                         {L"lKnee", L"LeftLeg"},
                         {L"lAnkle", L"LeftFoot"},
                         {L"lToes", L"LeftToe"},
                         {L"Spine", L"Spine"},
                         {L"Chest", L"Chest"},
                         {L"lShoulder", L"LeftArm"},
                         {L"lElbow", L"LeftForeArm"},
                         {L"lWrist", L"LeftHand"}});
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
  EXPECT_EQ(ReadBytes(path_).substr(0, 3), "\xEF\xBB\xBF");

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
  ASSERT_EQ(motion->structure->NumPlanes(), 2);
  for (size_t p = 0; p < 2; ++p) {
    EXPECT_EQ(motion->structure->planes[p].name, structure_->planes[p].name);
    EXPECT_EQ(motion->structure->planes[p].span, structure_->planes[p].span);
    EXPECT_EQ(motion->structure->planes[p].mid, structure_->planes[p].mid);
    EXPECT_EQ(motion->structure->planes[p].anchor_index, structure_->planes[p].anchor_index);
    EXPECT_EQ(motion->structure->planes[p].chain, structure_->planes[p].chain);
  }

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
    EXPECT_FALSE(WriteKavorFile(file_motion, path_, 1, 2));
    EXPECT_TRUE(
        iotest::Logged(KRX::kSeverityWarning, {"Normalized motion must originate from a rig."}));
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

TEST(KavorText, EveryCutAndFlipFailsCleanly) {
  const std::string good = kLegacyText;
  // Up to the last pose value every cut leaves something missing.
  const size_t last_value = good.rfind("0.25");
  for (size_t n = 0; n < good.size(); ++n) {
    KavorMotion motion;
    const bool read = ParseKavorText(motion, std::string_view(good.data(), n));
    if (n <= last_value) {
      EXPECT_FALSE(read) << n;
    }
    std::string flipped = good;
    flipped[n] = static_cast<char>(flipped[n] ^ 0x5a);
    (void)ParseKavorText(motion, flipped);
  }
  rt::ClearLog();
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

TEST(KavorXml, CountsAreBoundedByWhatIsThere) {
  rt::ResetInteraction();
  {
    KavorMotion motion;
    ASSERT_TRUE(ParseKavorXml(motion, "m.kavor", XmlMotion()));
    EXPECT_EQ(motion.model->frame_count, 2);
    EXPECT_TRUE(motion.model->poses[0].GetTranslation().Equals(CVector3(1, 2, 3)));
    EXPECT_TRUE(motion.model->poses[3].GetTranslation().Equals(CVector3(5, 0, 0)));
    EXPECT_EQ(motion.model->curves.at(0).channels[3], (std::vector<double>{0, 2.5}));
    EXPECT_TRUE(rt::MessageBoxes().empty());
  }
  struct Case {
    std::string from, to;
    bool read;
    std::string reported;
  };
  const Case cases[] = {
      {">2</AnimationLength>", ">900000</AnimationLength>", true,
       "AnimationLength 900000 is more than the 2 POSE"},
      {">2</AnimationLength>", ">2000000</AnimationLength>", false,
       "AnimationLength 2000000 is outside 0 .. 1000000"},
      {">3</numNodes>", ">100000</numNodes>", false, "numNodes 100000 is outside 1 .. 512"},
      {"<Bone boneindex=\"0\"/>", "", true, "numbones> under : PLANE is 3 but only 2 bones follow"},
      {"boneindex=\"1\"", "boneindex=\"99\"", true,
       "boneindex> under : Bone is \"99\", outside -1 .. 2"},
      {"num_nodes_with_fcurve_keys=\"1\"", "num_nodes_with_fcurve_keys=\"4\"", true,
       "is 4 but only 1 records follow"},
      {"numkeys=\"2\"", "numkeys=\"1e300\"", true, "numkeys> under : CURVE is \"1e300\", outside"},
      {"HEADER>", "HEAD>", false, "<HEADER> not found under : ROOT"},
      {"</ROOT>", "</ROOT", false, "error count"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.to);
    rt::ResetInteraction();
    KavorMotion motion;
    EXPECT_EQ(ParseKavorXml(motion, "m.kavor", XmlMotion({{c.from, c.to}})), c.read);
    EXPECT_EQ(motion.model != nullptr, c.read);
    ASSERT_EQ(rt::MessageBoxes().size(), 1u);
    EXPECT_NE(rt::MessageBoxes()[0].text.GetAsciiString().find(c.reported), std::string::npos)
        << rt::MessageBoxes()[0].text.GetAsciiString();
  }
  {  // Frames times nodes beyond what a motion may hold, in a small file.
    std::string poses;
    for (int f = 0; f < 16385; ++f) poses += "<P/>";
    const std::string text =
        "<?xml version=\"1.0\"?><ROOT><HEADER>K<AnimationLength>16385</AnimationLength>"
        "<numNodes>512</numNodes><numPlanes>0</numPlanes></HEADER><POSE_VALUES>" +
        poses + "</POSE_VALUES></ROOT>";
    KavorMotion motion;
    EXPECT_FALSE(ParseKavorXml(motion, "m.kavor", text));
  }
  rt::ResetInteraction();
}

TEST(KavorXml, ErrorsAreShownOnceWhenTheDocumentCloses) {
  rt::ResetInteraction();
  KavorMotion motion;
  const std::string text = XmlMotion({{" length=\"2\"", ""}, {"<hipOffset>0.5</hipOffset>", ""}});
  ASSERT_TRUE(ParseKavorXml(motion, "m.kavor", text));
  EXPECT_EQ(motion.model->hip_offset, 0.0);
  EXPECT_EQ(motion.model->Node(2).length, 3.0);
  ASSERT_EQ(rt::MessageBoxes().size(), 1u);
  const std::string report = rt::MessageBoxes()[0].text.GetAsciiString();
  EXPECT_NE(report.find("Error : DOMElement : <hipOffset> not found under : HEADER\n"),
            std::string::npos)
      << report;
  EXPECT_NE(report.find("Error : Atribute : <length> not found under : NODE\n"), std::string::npos)
      << report;
  rt::ResetInteraction();
}

TEST(KavorXml, EveryCutAndFlipFailsCleanly) {
  const std::string good = XmlMotion();
  const size_t complete = good.size();
  for (size_t n = 0; n < good.size(); n += 3) {
    KavorMotion motion;
    EXPECT_EQ(ParseKavorXml(motion, "cut.kavor", good.substr(0, n)), n >= complete) << n;
    std::string flipped = good;
    flipped[n] = static_cast<char>(flipped[n] ^ 0x21);
    (void)ParseKavorXml(motion, "flipped.kavor", flipped);
    rt::ResetInteraction();
  }
}

}  // namespace
}  // namespace kavor

// The structure stored on a model: its layout, the round trip, older versions and damaged
// tables from a scene file.
#include "kavor/structure/structure_property.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_test_support.h"
#include "krx/krx.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

using KRX::MATH::CVector3;

// Hips, two legs with a plane each, limits on the knees, a spine and a split hip whose
// RtoP_Y slot is used.
constexpr const char* kBipedBase =
    "hips { world Hips hip 0 1 0 0 0 1 0 10 0 }\n"
    "leftLeg { Hips lHip anchor 0 -1 0 0 0 1 1 0 0\n"
    "  lKnee child 0 -1 0 0 0 1 0 -4 0 limits: -10 -20 -30 150 20 30\n"
    "  lAnkle friction 0 0 1 0 1 0 0 -4 0 }\n"
    "rightLeg { Hips rHip anchor 0 -1 0 0 0 1 -1 0 0\n"
    "  rKnee child 0 -1 0 0 0 1 0 -4 0\n"
    "  rAnkle friction 0 0 1 0 1 0 0 -4 0 }\n";
constexpr const char* kStructure =
    "Biped\n"
    "spine { Hips Spine free 0 1 0 0 0 1 0 2 0 }\n"
    "split { decompose Hips cog cog cog pelvis pelvis pelvis Unused lean Unused }\n";

ModelStructure Parse(const char* text) {
  StructureParseResult parsed =
      ParseStructureText(text, "Walker", [](std::string_view name) -> std::optional<std::string> {
        if (name == "Biped") return std::string(kBipedBase);
        return std::nullopt;
      });
  EXPECT_TRUE(parsed.structure) << parsed.message;
  return parsed.structure ? *parsed.structure : ModelStructure();
}

class StructurePropertyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    KRX::rt::ClearLog();
    model_ = KRX::Application().GetActiveSceneRoot().AddModel(L"Walker");
    structure_ = Parse(kStructure);
    WriteStructureProperty(structure_, model_);
    EXPECT_TRUE(FindPropertyByName(model_, kStructureProperty, &property_));
  }
  void TearDown() override { KRX::rt::ResetScene(); }

  KRX::GridData Grid(const wchar_t* name) { return property_.GetParameter(name).GetGridData(); }

  KRX::X3DObject model_;
  ModelStructure structure_;
  KRX::Property property_;
};

TEST_F(StructurePropertyTest, LayoutOfTheProperty) {
  std::vector<std::wstring> names;
  for (const KRX::Parameter& p : property_.GetParameters()) {
    names.push_back(p.GetName().GetWideString());
    if (names.size() <= 6) {
      EXPECT_EQ(p.GetCapabilities(), 6) << names.back();
    }
  }
  EXPECT_EQ(names, (std::vector<std::wstring>{
                       L"Version", L"Type", L"Source", L"numNodes", L"numPlanes", L"numDecomps",
                       L"Nodes", L"Planes", L"Decomps", L"BaseGroups", L"BaseGroup_hips",
                       L"BaseGroup_leftLeg", L"BaseGroup_rightLeg", L"Groups", L"Group_spine"}));
  EXPECT_EQ(property_.GetParameterValue(L"Version").GetInt(), 8);
  EXPECT_EQ(property_.GetParameterValue(L"numDecomps").GetInt(), 1);
  EXPECT_EQ(Grid(L"Nodes").GetColumnCount(), 12);
  EXPECT_EQ(Grid(L"Nodes").GetColumnLabel(7), KRX::CString(L"alingZ"));
  const KRX::GridData leg = Grid(L"BaseGroup_leftLeg");  // as written, limits in degrees
  EXPECT_EQ(leg.GetCell(1, 1).GetString(), KRX::CString(L"child"));
  EXPECT_EQ(leg.GetCell(4, 1).GetString(), KRX::CString(L"0,-4,0"));
  EXPECT_EQ(TextToVector(ToNarrow(leg.GetCell(6, 1).GetString())), CVector3(150, 20, 30));
  {  // Without decompose blocks there is no "Decomps" table.
    ModelStructure plain = Parse("Biped\n");
    WriteStructureProperty(plain, model_);
    KRX::Property rewritten;
    ASSERT_TRUE(FindPropertyByName(model_, kStructureProperty, &rewritten));
    EXPECT_FALSE(rewritten.GetParameter(L"Decomps").IsValid());
    const std::optional<ModelStructure> read = ReadStructureProperty(model_);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->decomps.empty());
  }
}

// Written over an existing property (replaced, not added), read back node for node; the
// as-written group tables come back with their limits in degrees.
TEST_F(StructurePropertyTest, RewriteAndReadBack) {
  WriteStructureProperty(structure_, model_);
  int count = 0;
  for (const KRX::Property& p : model_.GetProperties()) count += p.GetName() == kStructureProperty;
  EXPECT_EQ(count, 1);
  const std::optional<ModelStructure> read = ReadStructureProperty(model_);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->type, "Biped");
  EXPECT_EQ(read->source, "Walker");
  ASSERT_EQ(read->NumNodes(), 8);
  for (size_t i = 0; i < read->nodes.size(); ++i) {
    const StructureNode& a = structure_.nodes[i];
    const StructureNode& b = read->nodes[i];
    EXPECT_TRUE(b.name == a.name && b.parent == a.parent && b.offset_parent == a.offset_parent &&
                b.type == a.type && b.friction == a.friction && b.mirror_index == a.mirror_index &&
                b.align.Equals(a.align) && b.roll.Equals(a.roll))
        << a.name;
  }
  ASSERT_EQ(read->NumPlanes(), 2);
  EXPECT_EQ(read->planes[1].name, "rKnee");
  EXPECT_EQ(read->planes[1].mid, 5);
  EXPECT_EQ(read->planes[1].chain, (std::vector<int32_t>{6, 5, 4}));
  ASSERT_EQ(read->decomps.size(), 1u);
  EXPECT_EQ(read->decomps[0].src_name, "Hips");
  EXPECT_EQ(read->decomps[0].slots, structure_.decomps[0].slots);
  EXPECT_EQ(read->decomps[0].channels, (std::vector<std::string>{"cog", "pelvis", "lean"}));
  EXPECT_TRUE(structuretest::Logged(8, "ModelStructure::createFromGrid : Hips"));
  ASSERT_EQ(read->base_groups.size(), 3u);
  EXPECT_EQ(read->base_groups[1].name, "leftLeg");
  EXPECT_EQ(read->base_groups[1].parent, "Hips");
  ASSERT_EQ(read->groups.size(), 1u);
  EXPECT_EQ(FindGroupNode(*read, "Spine"), &read->groups[0].nodes[0]);
  const StructureGroupNode* knee = FindGroupNode(*read, "lKnee");
  ASSERT_NE(knee, nullptr);
  EXPECT_EQ(knee->type, "child");
  EXPECT_EQ(knee->offset, CVector3(0, -4, 0));
  EXPECT_EQ(knee->min_limits, CVector3(-10, -20, -30));
  EXPECT_EQ(knee->max_limits, CVector3(150, 20, 30));
  EXPECT_EQ(FindGroupNode(*read, "lknee"), nullptr);  // case counts

  // Names that repeat, as read by default, are stored and read back: a look-up by name
  // finds the first node.
  const ModelStructure odd = Parse(
      "Biped\nspine { Hips Spine free 0 1 0 0 0 1 0 2 0 Spine free 0 1 0 0 0 1 0 2 0 }\n"
      "spine { Spine dirty child 0 1 0 0 0 1 0 1 0 }\n");
  WriteStructureProperty(odd, model_);
  const std::optional<ModelStructure> repeated = ReadStructureProperty(model_);
  ASSERT_TRUE(repeated);
  ASSERT_EQ(repeated->NumNodes(), 10);
  EXPECT_EQ(repeated->nodes[8].name, "Spine");
  EXPECT_EQ(repeated->nodes[9].parent, 7);
  EXPECT_EQ(FindNodeIndex(*repeated, "Spine"), 7);
}

TEST_F(StructurePropertyTest, OlderVersions) {
  {  // Version 7: eleven node columns, every mirror -1.
    property_.PutParameterValue(L"Version", KRX::CValue(7));
    Grid(L"Nodes").PutColumnCount(11);
    const std::optional<ModelStructure> read = ReadStructureProperty(model_);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->nodes[2].name, "lKnee");
    for (const StructureNode& node : read->nodes) EXPECT_EQ(node.mirror_index, -1);
  }
  {  // Below 7: refused with a note.
    property_.PutParameterValue(L"Version", KRX::CValue(6));
    KRX::rt::ClearLog();
    EXPECT_FALSE(ReadStructureProperty(model_));
    EXPECT_TRUE(structuretest::Logged(8,
                                      "The embedded model structure has an outdated version "
                                      "number.  Please reload the tag template."));
  }
  {  // No property: nothing, silently.
    DeleteByName(property_.GetFullName());
    KRX::rt::ClearLog();
    EXPECT_FALSE(ReadStructureProperty(model_));
    EXPECT_TRUE(KRX::rt::LogLines().empty());
  }
}

TEST_F(StructurePropertyTest, DamagedTablesAreRefused) {
  const auto refused = [&](const char* what) {
    KRX::rt::ClearLog();
    EXPECT_FALSE(ReadStructureProperty(model_)) << what;
    EXPECT_TRUE(structuretest::Logged(2, "The embedded model structure is damaged (", true))
        << what;
    // Put the stored structure back for the next case.
    WriteStructureProperty(structure_, model_);
    ASSERT_TRUE(FindPropertyByName(model_, kStructureProperty, &property_));
  };
  property_.PutParameterValue(L"numNodes", KRX::CValue(9));  // one more than the rows
  refused("node count above the rows");
  property_.PutParameterValue(L"numNodes", KRX::CValue(kMaxStructureNodes + 1));
  refused("node count above the limit");
  property_.PutParameterValue(L"numNodes", KRX::CValue(0));
  refused("no nodes");
  Grid(L"Nodes").PutColumnCount(11);  // version 8 needs the mirror column
  refused("node columns");
  property_.PutParameterValue(L"numPlanes", KRX::CValue(-1));
  refused("negative plane count");
  Grid(L"Planes").PutRowCount(1);
  refused("plane rows");
  Grid(L"Planes").PutCell(2, 0, KRX::CValue(40));  // span past the nodes
  refused("plane span");
  Grid(L"Nodes").PutCell(0, 1, KRX::CValue(6));  // a parent after its child
  refused("parent order");
  Grid(L"Nodes").PutCell(11, 2, KRX::CValue(3));  // lKnee <-> lAnkle is not symmetric
  refused("mirror");
  {  // Damaged optional tables are read as far as they go.
    Grid(L"BaseGroup_leftLeg").PutColumnCount(2);
    Grid(L"Decomps").PutColumnCount(3);
    const std::optional<ModelStructure> read = ReadStructureProperty(model_);
    ASSERT_TRUE(read);
    EXPECT_EQ(FindGroupNode(*read, "lKnee")->offset, CVector3());
    EXPECT_EQ(read->decomps[0].channels, (std::vector<std::string>{"cog"}));
  }
}

TEST(StructureText, TextToVector) {
  KRX::rt::ClearLog();
  EXPECT_EQ(TextToVector("1,2.5,-3"), CVector3(1, 2.5, -3));
  EXPECT_EQ(VectorToText(CVector3(1, 2.5, -3)), "1,2.5,-3");
  for (const char* bad : {"1,2", "1,2,3,4", ""}) {
    EXPECT_EQ(TextToVector(bad), CVector3()) << bad;
    EXPECT_TRUE(
        structuretest::Logged(8, std::string("Error converting string to CVector3  : <") + bad))
        << bad;
  }
}

}  // namespace
}  // namespace kavor

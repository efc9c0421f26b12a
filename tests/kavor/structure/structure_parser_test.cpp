// Structure and base file texts: what a good text gives, every refused text with its
// message, and what reading by default gives where strict reading refuses. Damaged texts
// are the structure fuzzer's part.
#include "kavor/structure/structure_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kavor/structure/structure_test_support.h"

namespace kavor {
namespace {

using KRX::MATH::CVector3;
using structuretest::kMiniBase;
using structuretest::kMiniStructure;

constexpr double kDeg = 3.14159265358979323846 / 180.0;

StructureParseResult Parse(const std::string& text, const std::string& base = kMiniBase,
                           bool strict = false) {
  return ParseStructureText(text, "test", structuretest::BasesFromMap({{"mini", base}}),
                            StructureReadOptions{strict});
}

// A node entry with unit directions and a unit offset.
std::string Entry(const std::string& name, const std::string& type) {
  return " " + name + " " + type + " 0 1 0  0 0 1  0 1 0\n";
}

// The parsed structure of a text that must parse.
ModelStructure Parsed(const std::string& text) {
  StructureParseResult result = Parse(text);
  EXPECT_NE(result.structure, nullptr) << result.message;
  return result.structure ? *result.structure : ModelStructure();
}

TEST(StructureParse, NodesPlanesAndRestPositions) {
  const ModelStructure s = Parsed(kMiniStructure);
  EXPECT_EQ(s.type, "mini");
  ASSERT_EQ(s.NumNodes(), 12);
  // Base groups first, then the structure's groups, entries in order. An ik node hangs below
  // its anchor while its offset stays measured from the entry before.
  const struct {
    const char* name;
    int parent, offset_parent, mirror;
    CVector3 rest;
    StructureNodeType type;
  } nodes[] = {{"Hips", -1, -1, -1, {0, 10, 0}, StructureNodeType::kHip},
               {"lUp", 0, 0, 5, {1, 9, 0}, StructureNodeType::kChild},  // anchor
               {"lLow", 1, 1, 6, {1, 5, 1}, StructureNodeType::kChild},
               {"lFoot", 1, 2, 7, {1, 1, 0}, StructureNodeType::kIk},  // friction
               {"lToe", 3, 3, 8, {1, 0, 2}, StructureNodeType::kChild},
               {"rUp", 0, 0, 1, {-1, 9, 0}, StructureNodeType::kChild},
               {"rLow", 5, 5, 2, {-1, 5, 1}, StructureNodeType::kChild},
               {"rFoot", 5, 6, 3, {-1, 1, 0}, StructureNodeType::kIk},
               {"rToe", 7, 7, 4, {-1, 0, 2}, StructureNodeType::kChild},
               {"lCla", 0, 0, -1, {1, 13, 0}, StructureNodeType::kChild},
               {"lSho", 9, 9, -1, {2, 13, 0}, StructureNodeType::kChild},
               {"lArm", 10, 10, -1, {7, 13, 0}, StructureNodeType::kIk}};
  for (int i = 0; i < 12; ++i) {
    SCOPED_TRACE(nodes[i].name);
    EXPECT_EQ(s.nodes[i].name, nodes[i].name);
    EXPECT_EQ(s.nodes[i].parent, nodes[i].parent);
    EXPECT_EQ(s.nodes[i].offset_parent, nodes[i].offset_parent);
    EXPECT_EQ(s.nodes[i].mirror_index, nodes[i].mirror);
    EXPECT_TRUE(s.nodes[i].rest_position.Equals(nodes[i].rest, 1e-12));
    EXPECT_EQ(s.nodes[i].type, nodes[i].type);
    EXPECT_EQ(s.nodes[i].friction, i == 3 || i == 7);
  }
  EXPECT_EQ(s.nodes[3].align, CVector3(0, 0, 1));
  EXPECT_EQ(s.nodes[3].roll, CVector3(0, 1, 0));
  EXPECT_EQ(s.nodes[3].offset, CVector3(0, -4, -1));
  // Limits in radians; an entry without limits has 1 degree above -1 degree (no limit).
  EXPECT_TRUE(s.nodes[2].min_limits.Equals({0, -10 * kDeg, -20 * kDeg}, 1e-15));
  EXPECT_TRUE(s.nodes[2].max_limits.Equals({90 * kDeg, 10 * kDeg, 20 * kDeg}, 1e-15));
  EXPECT_TRUE(s.nodes[1].min_limits.Equals({kDeg, kDeg, kDeg}, 1e-15));
  EXPECT_TRUE(s.nodes[1].max_limits.Equals({-kDeg, -kDeg, -kDeg}, 1e-15));

  // Planes in order of their end nodes; an ik node right after its anchor is its own mid.
  const struct {
    const char* name;
    int anchor, mid, span;
    std::vector<int32_t> chain;
  } planes[] = {
      {"lLow", 1, 2, 3, {3, 2, 1}}, {"rLow", 5, 6, 7, {7, 6, 5}}, {"lArm", 10, 11, 11, {11, 10}}};
  ASSERT_EQ(s.NumPlanes(), 3);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(planes[i].name);
    EXPECT_EQ(s.planes[i].name, planes[i].name);
    EXPECT_EQ(s.planes[i].anchor_index, planes[i].anchor);
    EXPECT_EQ(s.planes[i].mid, planes[i].mid);
    EXPECT_EQ(s.planes[i].span, planes[i].span);
    EXPECT_EQ(s.planes[i].chain, planes[i].chain);
  }
  // The groups are kept as written, limits in degrees.
  ASSERT_EQ(s.base_groups.size(), 3u);
  EXPECT_EQ(s.base_groups[1].nodes[0].min_limits, CVector3(1, 1, 1));
  ASSERT_EQ(s.groups.size(), 1u);
  EXPECT_EQ(s.groups[0].nodes[2].type, "ik");
  EXPECT_TRUE(s.decomps.empty());
  EXPECT_EQ(FindNodeIndex(s, "rfoot"), -1);
  EXPECT_EQ(CheckModelStructure(s), "");
}

TEST(StructureParse, FreeFormatTextAndTheBaseFile) {
  // Node names, parents, mirrors and rest positions: what equivalent texts agree on.
  auto summary = [](const ModelStructure& s) {
    std::string out = s.type + ":";
    for (const StructureNode& n : s.nodes) {
      out += " " + n.name + "<" + std::to_string(n.parent) + "," + std::to_string(n.offset_parent) +
             "," + std::to_string(n.mirror_index) + ">(" + std::to_string(n.rest_position.GetX()) +
             "," + std::to_string(n.rest_position.GetY()) + "," +
             std::to_string(n.rest_position.GetZ()) + ")";
    }
    for (const StructurePlane& p : s.planes) out += " plane " + p.name;
    return out + " groups " + std::to_string(s.groups.size());
  };
  const std::string reference = summary(Parsed(kMiniStructure));
  const std::string texts[] = {
      // Comments anywhere, "#" glued to words, CR LF line ends, tabs.
      "mini# the base\r\n# a comment line\r\narm\t{#brace\r\n Hips lCla child 1 0 0 0 1 0#align "
      "and roll\r\n 1 3 0\r\nlSho\tanchor 1 0 0 0 1 0 1 0 0\r\nlArm ik 1 0 0 0 1 0 5 0 0 } # "
      "end\r\n",
      // A name not followed by "{" is dropped with the word after it; "{ }" is empty.
      "mini note to_self empty { } arm { Hips lCla child 1 0 0 0 1 0 1 3 0 lSho anchor 1 0 0 0 1 "
      "0 1 0 0 lArm ik 1 0 0 0 1 0 5 0 0 }"};
  for (const std::string& text : texts) EXPECT_EQ(summary(Parsed(text)), reference) << text;

  // The base file is asked for by the first word, once, and its groups come first.
  std::vector<std::string> asked;
  auto lookup = [&asked](std::string_view name) -> std::optional<std::string> {
    asked.emplace_back(name);
    return std::string("core { world") + Entry("Root", "hip") + "}";
  };
  StructureParseResult result =
      ParseStructureText("myBase extra { Root" + Entry("Tip", "child") + "}", "s", lookup);
  ASSERT_NE(result.structure, nullptr) << result.message;
  EXPECT_EQ(asked, std::vector<std::string>{"myBase"});
  EXPECT_EQ(result.structure->type, "myBase");
  EXPECT_EQ(result.structure->nodes[1].parent, 0);
}

// Every text refused however it is read, with its message; a refused parse leaves no
// structure.
TEST(StructureParse, RefusedTextsAndTheirMessages) {
  const std::string arm = "mini\narm { Hips\n lSho anchor 1 0 0 0 1 0 2 3 0\n";
  const std::string hips = "hips { world" + Entry("Hips", "hip") + "}";
  const std::string mini(kMiniStructure);
  const struct {
    std::string text, message;
    std::string base = kMiniBase;
  } cases[] = {
      // Empty input, no base file, a base file that exists but reads empty.
      {"", "structure input stream is invalid"},
      {"nobase arm { Hips" + Entry("A", "child") + "}",
       "cannot find basefile structure file: nobase"},
      {" \n# only a comment\n", "cannot find basefile structure file: "},
      {mini, "basefile structure input stream is invalid", ""},
      // A base file may not hang its groups below the structure's nodes, and "decompose" is
      // no keyword there: it is read as a group's parent word.
      {"mini extra { Hips" + Entry("Tip", "child") + "}",
       "group parent node Tip must be defined before the late group",
       hips + " late { Tip" + Entry("Leaf", "child") + "}"},
      {"mini", "group parent node decompose must be defined before the d group",
       hips + " d { decompose" + Entry("Foo", "child") + "}"},
      // Unknown type words (case-exact); an entry cut before its type word has none.
      {"mini", "error while parsing the basefile spine group",
       hips + " spine { Hips" + Entry("Chest", "spine") + "}"},
      {"mini arm { Hips lSho anchor 1 0 0 0 1 0 2 3 0 lArm IK 1 0 0 0 1 0 5 0 0 }",
       "error while parsing the structure arm group"},
      {"mini arm { Hips A", "error while parsing the structure arm group"},
      // An ik or friction entry as the first or second entry of its group, or with its anchor
      // in an earlier group.
      {"mini arm { Hips" + Entry("lHand", "ik") + "}",
       "the ik node lHand is missing an anchor or midjoint"},
      {"mini arm { Hips" + Entry("lSho", "anchor") + Entry("lPaw", "friction") + "}",
       "the ik node lPaw is missing an anchor or midjoint"},
      {"mini arm { Hips" + Entry("lSho", "anchor") + Entry("lElb", "child") + "} hand { lElb" +
           Entry("lA", "child") + Entry("lB", "child") + Entry("lWrist", "ik") + "}",
       "structure test line 5: the ik node lWrist has no anchor node before it in the hand group"},
      // A group parent that is not (yet) a node; the first group's parent must be "world".
      {"mini arm { Chest" + Entry("A", "child") + "}",
       "group parent node Chest must be defined before the arm group"},
      {"mini", "group parent node Hips must be defined before the hips group",
       "hips { Hips" + Entry("Hips", "hip") + "}"},
      // Numbers that cannot be held.
      {arm + " lArm ik 1 0 0 0 1 0 5 0 0 limits: nan 0 0 1 1 1 }",
       "structure test line 4: expected three numbers for the lower limits of node lArm, found "
       "\"nan\", which is not a finite number"},
      {arm + " lArm ik 1 0 0 0 1 0 5 0 0 limits: 0 0 0 1 1 1e999 }",
       "structure test line 4: expected three numbers for the upper limits of node lArm, found "
       "\"1e999\", which is out of range"},
      // Node and group names: letters, digits and "_".
      {"mini x { Hips\n" + Entry("l.Hand", "child") + "}",
       "structure test line 2: the node name \"l.Hand\" may only hold letters, digits and \"_\""},
      {"mini\nmy-arm { Hips" + Entry("A", "child") + "}",
       "structure test line 2: the group name \"my-arm\" may only hold letters, digits and \"_\""},
      // Decompose blocks name an existing node; channels are plain names.
      {mini + "split { decompose }",
       "structure test line 6: the decompose block split names no node"},
      {mini + "split { decompose Chest a }",
       "structure test line 6: the decompose block split names the unknown node Chest"},
      {mini + "split { decompose Hips a.b }",
       "structure test line 6: the channel a.b of the decompose block split may only hold letters, "
       "digits and \"_\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    for (const bool strict : {false, true}) {
      const StructureParseResult result = Parse(c.text, c.base, strict);
      EXPECT_EQ(result.structure, nullptr);
      EXPECT_EQ(result.message, c.message);
    }
  }
}

// What strict reading refuses, with its message, and what the same text gives by default.
TEST(StructureParse, StrictReadingRefusesWhatIsReadByDefault) {
  const std::string arm =
      "mini\narm { Hips\n lSho anchor 1 0 0 0 1 0 2 3 0 lElb child 1 0 0 0 1 0 1 0 0\n";
  const std::string mini(kMiniStructure);
  const struct {
    std::string text, message;
    std::string base = kMiniBase;
  } cases[] = {
      // Numbers: not one, glued to the brace, cut off by the end of the data.
      {arm + " lArm ik 1 0 0 0 one 0 5 0 0 }",
       "structure test line 4: expected three numbers for the roll direction of node lArm, found "
       "\"one\""},
      {arm + " lArm ik 1 0 0 0 1 0 5 0\n0}",
       "structure test line 5: expected three numbers for the offset of node lArm, found \"0}\""},
      {arm + " lArm ik 1 0 0 0 1",
       "structure test line 4: expected three numbers for the roll direction of node lArm, found "
       "the end of the data"},
      {arm + " lArm ik 1 0 0 0 1 0 5 0 0 limits:",
       "structure test line 4: expected three numbers for the lower limits of node lArm, found "
       "the end of the data"},
      {"mini",
       "basefile mini line 2: expected three numbers for the offset of node Hips, found \"x\"",
       "hips { world\n Hips hip 0 1 0 0 0 1 0 x 0 }"},
      // Names used twice, and names the tag page keeps for itself.
      {"mini x { Hips\n" + Entry("A", "child") + Entry("A", "child") + "}",
       "structure test line 3: the node name A is used twice"},
      {"mini x { Hips\n" + Entry("lToe", "child") + "}",
       "structure test line 2: the node name lToe is used twice"},
      {"mini\nleftLeg { Hips" + Entry("A", "child") + "}",
       "structure test line 2: the group name leftLeg is used twice"},
      {"mini x { Hips" + Entry("select_lArm", "child") + "}",
       "structure test line 1: the node name select_lArm is reserved for the tag page"},
      {"mini x { Hips" + Entry("world", "child") + "}",
       "structure test line 1: the node name world is reserved for the tag page"},
      {mini + "split { decompose Hips lArm }",
       "structure test line 6: the channel lArm of the decompose block split is also a node name"},
      {mini + "s1 { decompose Hips a }\ns2 { decompose lFoot a }",
       "structure test line 7: the channel a of the decompose block s2 is a channel of an earlier "
       "decompose block"},
      {mini + "split { decompose Hips Apply1 }",
       "structure test line 6: the channel Apply1 of the decompose block split is reserved for "
       "the tag page"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const StructureParseResult strict = Parse(c.text, c.base, true);
    EXPECT_EQ(strict.structure, nullptr);
    EXPECT_EQ(strict.message, c.message);
    const StructureParseResult read = Parse(c.text, c.base);
    ASSERT_NE(read.structure, nullptr) << read.message;
    EXPECT_EQ(CheckModelStructure(*read.structure), "");
  }

  // Known answers of the default reading.
  auto node = [](const std::string& text, const std::string& name) {
    const ModelStructure s = Parsed(text);
    const int32_t k = FindNodeIndex(s, name);
    EXPECT_GE(k, 0) << name;
    return k >= 0 ? s.nodes[static_cast<size_t>(k)] : StructureNode();
  };
  {  // A number is its token's leading number, or 0.
    const StructureNode n = node(arm + " lArm ik 3abc 0 0 0 one 0 5 0 0}", "lArm");
    EXPECT_EQ(n.align, CVector3(3, 0, 0));
    EXPECT_EQ(n.roll, CVector3(0, 0, 0));
    EXPECT_EQ(n.offset, CVector3(5, 0, 0));
  }
  {  // Data that end inside an entry: the missing numbers are 0, limits included.
    EXPECT_EQ(node(arm + " lArm ik 1 0 0 0 1", "lArm").roll, CVector3(0, 1, 0));
    const StructureNode limited = node(arm + " lArm ik 1 0 0 0 1 0 5 0 0 limits: 0 -30", "lArm");
    EXPECT_TRUE(limited.min_limits.Equals(CVector3(0, -30 * kDeg, 0), 1e-15));
    EXPECT_EQ(limited.max_limits, CVector3(0, 0, 0));
  }
  // "0}" takes the brace along: the next block's name and "{" become an entry whose type
  // word is "{".
  EXPECT_EQ(
      Parse(arm + " lArm ik 1 0 0 0 1 0 5 0 0}\nleg { Hips" + Entry("B", "child") + "}").message,
      "error while parsing the structure arm group");
  {  // Repeated names: a look-up finds the first, a group hangs below the first.
    const ModelStructure s = Parsed("mini x { Hips" + Entry("A", "child") + Entry("A", "child") +
                                    "} x { A" + Entry("B", "child") + "}");
    ASSERT_EQ(s.NumNodes(), 12);
    EXPECT_EQ(FindNodeIndex(s, "A"), 9);
    EXPECT_EQ(s.nodes[11].parent, 9);
    EXPECT_EQ(s.groups.size(), 2u);
  }
}

TEST(StructureParse, LimbPlanes) {
  {  // Two limb ends after one anchor: both planes start there; a child after an ik node
     // hangs below it.
    const ModelStructure s =
        Parsed("mini arm { Hips" + Entry("a", "anchor") + Entry("b", "child") + Entry("c", "ik") +
               Entry("d", "child") + Entry("e", "ik") + "}");
    ASSERT_EQ(s.NumPlanes(), 4);
    EXPECT_EQ(s.planes[3].anchor_index, 9);
    EXPECT_EQ(s.planes[3].name, "b");
    EXPECT_EQ(s.planes[3].span, 13);
    EXPECT_EQ(s.planes[3].chain, (std::vector<int32_t>{13, 12, 11, 10, 9}));
    EXPECT_EQ(s.nodes[13].parent, 9);
    EXPECT_EQ(s.nodes[13].offset_parent, 12);
    EXPECT_EQ(s.nodes[12].parent, 11);
  }
  {  // A later anchor in the group takes over.
    const ModelStructure s =
        Parsed("mini arm { Hips" + Entry("a", "anchor") + Entry("b", "anchor") +
               Entry("c", "child") + Entry("d", "ik") + "}");
    ASSERT_EQ(s.NumPlanes(), 3);
    EXPECT_EQ(s.planes[2].anchor_index, 10);
    EXPECT_EQ(s.planes[2].name, "c");
  }
}

TEST(StructureParse, Mirrors) {
  auto parse_names = [](const std::vector<std::string>& names) {
    std::string text = "mini more { Hips";
    for (const std::string& name : names) text += Entry(name, "child");
    return Parsed(text + "}");
  };
  {  // "left"/"right" prefixes in any case, single letters in either case; root looks for
     // loot and finds nothing.
    const ModelStructure s =
        parse_names({"leftArm", "RightArm", "LHAND", "rhand", "root", "l", "r"});
    const int mirrors[] = {1, 0, 3, 2, -1, 6, 5};
    for (int i = 0; i < 7; ++i) {
      EXPECT_EQ(s.nodes[9 + i].mirror_index, mirrors[i] < 0 ? -1 : 9 + mirrors[i]) << i;
    }
  }
  {  // lightArm points at rightArm, which pairs with leftArm: every link stays symmetric.
    const ModelStructure s = parse_names({"lightArm", "rightArm", "leftArm"});
    EXPECT_EQ(s.nodes[9].mirror_index, -1);
    EXPECT_EQ(s.nodes[10].mirror_index, 11);
    EXPECT_EQ(s.nodes[11].mirror_index, 10);
    EXPECT_EQ(CheckModelStructure(s), "");
  }
  EXPECT_EQ(MirrorNodeName("LeftHand"), "rightHand");
  EXPECT_EQ(MirrorNodeName("RIGHTfoot"), "leftfoot");
  EXPECT_EQ(MirrorNodeName("lUpLeg"), "rUpLeg");
  EXPECT_EQ(MirrorNodeName("Rshoulder"), "lshoulder");
  EXPECT_EQ(MirrorNodeName("Hips"), std::nullopt);
}

TEST(StructureParse, DecomposeBlocks) {
  {  // "Unused" (any case) leaves a slot empty and is no channel.
    const ModelStructure s =
        Parsed(std::string(kMiniStructure) + "split { decompose Hips Unused UNUSED unused a b c }");
    ASSERT_EQ(s.decomps.size(), 1u);
    const StructureDecomp& d = s.decomps[0];
    EXPECT_EQ(d.name, "split");
    EXPECT_EQ(d.src_name, "Hips");
    EXPECT_EQ(d.slots, (std::array<std::string, kDecompSlotCount>{"", "", "", "a", "b", "c"}));
    EXPECT_EQ(d.channels, (std::vector<std::string>{"a", "b", "c"}));
  }
  {  // A channel named twice is one channel; words beyond the ninth fill no slot but count.
    const ModelStructure s = Parsed(std::string(kMiniStructure) +
                                    "s { decompose lFoot m m m r r r Unused Unused q extra }");
    ASSERT_EQ(s.decomps.size(), 1u);
    EXPECT_EQ(s.decomps[0].slots[kDecompPZ], "m");
    EXPECT_EQ(s.decomps[0].slots[kDecompRtoPZ], "q");
    EXPECT_EQ(s.decomps[0].channels, (std::vector<std::string>{"m", "r", "q", "extra"}));
  }
}

TEST(StructureParse, Bounds) {
  // 512 nodes in all are allowed, 513 are not.
  auto text_with = [](int extra_nodes) {
    std::string text = "mini";
    for (int g = 0; g * 100 < extra_nodes; ++g) {
      text += "\ng" + std::to_string(g) + " { Hips";
      for (int i = g * 100; i < std::min(extra_nodes, (g + 1) * 100); ++i) {
        text += Entry("n" + std::to_string(i), "child");
      }
      text += "}";
    }
    return text;
  };
  EXPECT_EQ(Parsed(text_with(kMaxStructureNodes - 9)).NumNodes(), kMaxStructureNodes);
  std::string message = Parse(text_with(kMaxStructureNodes - 8)).message;
  EXPECT_NE(message.find("the structure has more than 512 nodes"), std::string::npos) << message;
  // A chain deeper than the bound.
  std::string text = "mini deep { Hips";
  for (int i = 0; i <= kMaxStructureDepth; ++i) text += Entry("n" + std::to_string(i), "child");
  message = Parse(text + "}").message;
  EXPECT_NE(message.find("levels deep"), std::string::npos) << message;
}

}  // namespace
}  // namespace kavor

#include "kavor/structure/structure_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "kavor/structure/structure_test_support.h"

namespace kavor {
namespace {

using KRX::MATH::CVector3;

constexpr double kDeg = 3.14159265358979323846 / 180.0;

// Hips, two legs (anchor, knee, foot, toe) with easy numbers.
const char* const kMiniBase = R"(
hips { world
  Hips  hip      0 1 0   0 0 1    0 10 0 }
leftLeg { Hips
  lUp   anchor   0 -1 0  0 0 1    1 -1 0
  lLow  child    0 -1 0  0 0 1    0 -4 1   limits: 0 -10 -20  90 10 20
  lFoot friction 0 0 1   0 1 0    0 -4 -1
  lToe  child    0 0 1   0 1 0    0 -1 2 }
rightLeg { Hips
  rUp   anchor   0 -1 0  0 0 1   -1 -1 0
  rLow  child    0 -1 0  0 0 1    0 -4 1
  rFoot friction 0 0 1   0 1 0    0 -4 -1
  rToe  child    0 0 1   0 1 0    0 -1 2 }
)";

// An arm whose ik node directly follows its anchor.
const char* const kMiniStructure = R"(mini
arm { Hips
  lCla  child    1 0 0   0 1 0    1 3 0
  lSho  anchor   1 0 0   0 1 0    1 0 0
  lArm  ik       1 0 0   0 1 0    5 0 0 }
)";

StructureParseResult Parse(const std::string& text, const std::string& base = kMiniBase) {
  return ParseStructureText(text, "test", structuretest::BasesFromMap({{"mini", base}}));
}

// The message of a parse that must fail, which must leave no structure behind.
std::string Failure(const std::string& text, const std::string& base = kMiniBase) {
  StructureParseResult result = Parse(text, base);
  EXPECT_EQ(result.structure, nullptr) << "parsed although it should not: " << text;
  return result.message;
}

// A node entry with unit directions and a unit offset.
std::string Entry(const std::string& name, const std::string& type) {
  return " " + name + " " + type + " 0 1 0  0 0 1  0 1 0\n";
}

// Node names, parents and rest positions: what two equivalent texts must agree on.
std::string Summary(const ModelStructure& s) {
  std::string out = s.type + "/" + s.source + ":";
  for (const StructureNode& n : s.nodes) {
    out += " " + n.name + "<" + std::to_string(n.parent) + "," + std::to_string(n.offset_parent) +
           "," + std::to_string(n.mirror_index) + ">(" + std::to_string(n.rest_position.GetX()) +
           "," + std::to_string(n.rest_position.GetY()) + "," +
           std::to_string(n.rest_position.GetZ()) + ")";
  }
  for (const StructurePlane& p : s.planes) out += " plane " + p.name;
  return out;
}

TEST(StructureParse, NodesPlanesAndRestPositions) {
  StructureParseResult result = Parse(kMiniStructure);
  ASSERT_NE(result.structure, nullptr) << result.message;
  const ModelStructure& s = *result.structure;
  EXPECT_EQ(s.type, "mini");
  EXPECT_EQ(s.source, "test");
  ASSERT_EQ(s.NumNodes(), 12);

  // Base groups first, then the structure's groups, entries in order.
  const std::vector<std::string> names = {"Hips", "lUp",  "lLow", "lFoot", "lToe", "rUp",
                                          "rLow", "rFoot", "rToe", "lCla",  "lSho", "lArm"};
  // An ik node hangs below its anchor while its offset stays measured from the entry before.
  const std::vector<int> parents = {-1, 0, 1, 1, 3, 0, 5, 5, 7, 0, 9, 10};
  const std::vector<int> offset_parents = {-1, 0, 1, 2, 3, 0, 5, 6, 7, 0, 9, 10};
  const std::vector<CVector3> rest = {{0, 10, 0}, {1, 9, 0},  {1, 5, 1},  {1, 1, 0},
                                      {1, 0, 2},  {-1, 9, 0}, {-1, 5, 1}, {-1, 1, 0},
                                      {-1, 0, 2}, {1, 13, 0}, {2, 13, 0}, {7, 13, 0}};
  const std::vector<int> mirrors = {-1, 5, 6, 7, 8, 1, 2, 3, 4, -1, -1, -1};
  for (int i = 0; i < 12; ++i) {
    SCOPED_TRACE(names[i]);
    EXPECT_EQ(s.nodes[i].name, names[i]);
    EXPECT_EQ(s.nodes[i].parent, parents[i]);
    EXPECT_EQ(s.nodes[i].offset_parent, offset_parents[i]);
    EXPECT_TRUE(s.nodes[i].rest_position.Equals(rest[i], 1e-12));
    EXPECT_EQ(s.nodes[i].mirror_index, mirrors[i]);
    EXPECT_FALSE(s.nodes[i].obj_is_valid);
  }
  EXPECT_EQ(s.nodes[0].type, StructureNodeType::kHip);
  EXPECT_EQ(s.nodes[1].type, StructureNodeType::kChild);  // anchor
  EXPECT_EQ(s.nodes[3].type, StructureNodeType::kIk);     // friction
  EXPECT_TRUE(s.nodes[3].friction);
  EXPECT_EQ(s.nodes[11].type, StructureNodeType::kIk);
  EXPECT_FALSE(s.nodes[11].friction);
  EXPECT_EQ(s.nodes[3].align, CVector3(0, 0, 1));
  EXPECT_EQ(s.nodes[3].roll, CVector3(0, 1, 0));
  EXPECT_EQ(s.nodes[3].offset, CVector3(0, -4, -1));

  // Limits in radians; an entry without limits has 1 degree above -1 degree (no limit).
  EXPECT_TRUE(s.nodes[2].min_limits.Equals({0, -10 * kDeg, -20 * kDeg}, 1e-15));
  EXPECT_TRUE(s.nodes[2].max_limits.Equals({90 * kDeg, 10 * kDeg, 20 * kDeg}, 1e-15));
  EXPECT_TRUE(s.nodes[1].min_limits.Equals({kDeg, kDeg, kDeg}, 1e-15));
  EXPECT_TRUE(s.nodes[1].max_limits.Equals({-kDeg, -kDeg, -kDeg}, 1e-15));

  // Planes in order of their end nodes; an ik node right after its anchor is its own mid.
  ASSERT_EQ(s.NumPlanes(), 3);
  EXPECT_EQ(s.planes[0].name, "lLow");
  EXPECT_EQ(s.planes[0].anchor_index, 1);
  EXPECT_EQ(s.planes[0].mid, 2);
  EXPECT_EQ(s.planes[0].span, 3);
  EXPECT_EQ(s.planes[0].chain, (std::vector<int32_t>{3, 2, 1}));
  EXPECT_EQ(s.planes[1].chain, (std::vector<int32_t>{7, 6, 5}));
  EXPECT_EQ(s.planes[2].name, "lArm");
  EXPECT_EQ(s.planes[2].anchor_index, 10);
  EXPECT_EQ(s.planes[2].mid, 11);
  EXPECT_EQ(s.planes[2].span, 11);
  EXPECT_EQ(s.planes[2].chain, (std::vector<int32_t>{11, 10}));

  // The groups are kept as written, limits in degrees.
  ASSERT_EQ(s.base_groups.size(), 3u);
  EXPECT_EQ(s.base_groups[1].name, "leftLeg");
  EXPECT_EQ(s.base_groups[1].parent, "Hips");
  EXPECT_EQ(s.base_groups[1].nodes[1].type, "child");
  EXPECT_EQ(s.base_groups[1].nodes[1].max_limits, CVector3(90, 10, 20));
  EXPECT_EQ(s.base_groups[1].nodes[0].min_limits, CVector3(1, 1, 1));
  ASSERT_EQ(s.groups.size(), 1u);
  EXPECT_EQ(s.groups[0].name, "arm");
  EXPECT_EQ(s.groups[0].nodes[2].type, "ik");
  EXPECT_TRUE(s.decomps.empty());

  EXPECT_EQ(FindNodeIndex(s, "rFoot"), 7);
  EXPECT_EQ(FindNodeIndex(s, "rfoot"), -1);
  EXPECT_EQ(CheckModelStructure(s), "");
}

TEST(StructureParse, FreeFormatText) {
  const std::string reference = Summary(*Parse(kMiniStructure).structure);
  {  // Comments anywhere, "#" glued to words, CR LF line ends, tabs, one line.
    const std::string text =
        "mini# the base\r\n"
        "# a comment line\r\n"
        "arm\t{#brace\r\n Hips lCla child 1 0 0 0 1 0#align and roll\r\n 1 3 0\r\n"
        "lSho\tanchor 1 0 0 0 1 0 1 0 0\r\n"
        "lArm ik 1 0 0 0 1 0 5 0 0 } # end\r\n";
    StructureParseResult result = Parse(text);
    ASSERT_NE(result.structure, nullptr) << result.message;
    EXPECT_EQ(Summary(*result.structure), reference);
  }
  {  // A name not followed by "{" is dropped with the word after it; "{ }" is empty.
    const std::string text = "mini note to_self empty { } arm { Hips lCla child 1 0 0 0 1 0 1 3 0 "
                             "lSho anchor 1 0 0 0 1 0 1 0 0 lArm ik 1 0 0 0 1 0 5 0 0 }";
    StructureParseResult result = Parse(text);
    ASSERT_NE(result.structure, nullptr) << result.message;
    EXPECT_EQ(Summary(*result.structure), reference);
    EXPECT_EQ(result.structure->groups.size(), 1u);
  }
  {  // The data may end inside a block: the block ends there.
    const std::string text = "mini arm { Hips lCla child 1 0 0 0 1 0 1 3 0 lSho anchor 1 0 0 0 1 0 "
                             "1 0 0 lArm ik 1 0 0 0 1 0 5 0 0";
    StructureParseResult result = Parse(text);
    ASSERT_NE(result.structure, nullptr) << result.message;
    EXPECT_EQ(Summary(*result.structure), reference);
  }
}

TEST(StructureParse, BaseFileInclusion) {
  {  // The base file is asked for by the first word, once, and its groups come first.
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
  {  // A base file may not hang its groups below the structure's nodes.
    const std::string base = "hips { world" + Entry("Hips", "hip") + "} late { Tip" +
                             Entry("Leaf", "child") + "}";
    EXPECT_EQ(Failure("mini extra { Hips" + Entry("Tip", "child") + "}", base),
              "group parent node Tip must be defined before the late group");
  }
  {  // Names that could lead the search elsewhere are refused without asking for them.
    for (const char* name : {"../mini", "sub/mini", "sub\\mini", "..", "a..b"}) {
      bool asked = false;
      auto lookup = [&asked](std::string_view) -> std::optional<std::string> {
        asked = true;
        return std::string(kMiniBase);
      };
      StructureParseResult result =
          ParseStructureText(std::string(name) + " x { Hips" + Entry("A", "child") + "}", "s", lookup);
      EXPECT_EQ(result.structure, nullptr);
      EXPECT_EQ(result.message, "structure s line 1: the basefile name " + std::string(name) +
                                    " is not a plain file name");
      EXPECT_FALSE(asked) << name;
    }
  }
  {  // In a base file "decompose" is no keyword: it is read as a group's parent word.
    const std::string base = "hips { world" + Entry("Hips", "hip") + "} d { decompose" +
                             Entry("Foo", "child") + "}";
    EXPECT_EQ(Failure("mini", base), "group parent node decompose must be defined before the d group");
  }
}

TEST(StructureParse, DocumentedFailures) {
  {  // Empty input.
    EXPECT_EQ(Failure(""), "structure input stream is invalid");
  }
  {  // No such base file; a text of blanks has an empty base name.
    EXPECT_EQ(Failure("nobase arm { Hips" + Entry("A", "child") + "}"),
              "cannot find basefile structure file: nobase");
    EXPECT_EQ(Failure(" \n# only a comment\n"), "cannot find basefile structure file: ");
  }
  {  // A base file that exists but reads empty.
    EXPECT_EQ(Failure(kMiniStructure, ""), "basefile structure input stream is invalid");
  }
  {  // An unknown type word in the base file and in the structure (types are case-exact).
    const std::string base = "hips { world" + Entry("Hips", "hip") + "} spine { Hips" +
                             Entry("Chest", "spine") + "}";
    EXPECT_EQ(Failure("mini", base), "error while parsing the basefile spine group");
    EXPECT_EQ(Failure("mini arm { Hips lSho anchor 1 0 0 0 1 0 2 3 0 lArm IK 1 0 0 0 1 0 5 0 0 }"),
              "error while parsing the structure arm group");
  }
  {  // The type word is judged after the whole entry, limits included, and its message wins
     // over the numbers it throws out of step.
    EXPECT_EQ(Failure("mini arm { Hips A bone 0 1 0 0 0 1 0 1 0 limits: 0 0 0 1 1 1 }"),
              "error while parsing the structure arm group");
    EXPECT_EQ(Failure("mini arm { Hips A 0 1 0 0 0 1 0 1 0 }"),
              "error while parsing the structure arm group");
  }
  {  // An ik or friction entry as the first or second entry of its group.
    EXPECT_EQ(Failure("mini arm { Hips" + Entry("lHand", "ik") + "}"),
              "the ik node lHand is missing an anchor or midjoint");
    EXPECT_EQ(Failure("mini arm { Hips" + Entry("lSho", "anchor") + Entry("lPaw", "friction") + "}"),
              "the ik node lPaw is missing an anchor or midjoint");
  }
  {  // A group parent that is not (yet) a node; the first group's parent must be "world".
    EXPECT_EQ(Failure("mini arm { Chest" + Entry("A", "child") + "}"),
              "group parent node Chest must be defined before the arm group");
    EXPECT_EQ(Failure("mini arm { B" + Entry("A", "child") + "} arm2 { A" + Entry("B", "child") + "}"),
              "group parent node B must be defined before the arm group");
    EXPECT_EQ(Failure("mini", "hips { Hips" + Entry("Hips", "hip") + "}"),
              "group parent node Hips must be defined before the hips group");
  }
}

TEST(StructureParse, LimbPlanes) {
  {  // An ik entry needs an anchor earlier in its own group, not in an earlier group.
    const std::string text = "mini arm { Hips" + Entry("lSho", "anchor") + Entry("lElb", "child") +
                             "} hand { lElb" + Entry("lA", "child") + Entry("lB", "child") +
                             Entry("lWrist", "ik") + "}";
    EXPECT_EQ(Failure(text), "structure test line 5: the ik node lWrist has no anchor node before "
                             "it in the hand group");
  }
  {  // Two limb ends after one anchor: both planes start there.
    const std::string text = "mini arm { Hips" + Entry("a", "anchor") + Entry("b", "child") +
                             Entry("c", "ik") + Entry("d", "child") + Entry("e", "ik") + "}";
    StructureParseResult result = Parse(text);
    ASSERT_NE(result.structure, nullptr) << result.message;
    const ModelStructure& s = *result.structure;
    ASSERT_EQ(s.NumPlanes(), 4);
    EXPECT_EQ(s.planes[3].anchor_index, 9);
    EXPECT_EQ(s.planes[3].name, "b");
    EXPECT_EQ(s.planes[3].span, 13);
    EXPECT_EQ(s.planes[3].chain, (std::vector<int32_t>{13, 12, 11, 10, 9}));
    EXPECT_EQ(s.nodes[13].parent, 9);
    EXPECT_EQ(s.nodes[13].offset_parent, 12);
    EXPECT_EQ(s.nodes[12].parent, 11);  // a child after an ik node hangs below it
  }
  {  // A later anchor in the group takes over.
    const std::string text = "mini arm { Hips" + Entry("a", "anchor") + Entry("b", "anchor") +
                             Entry("c", "child") + Entry("d", "ik") + "}";
    StructureParseResult result = Parse(text);
    ASSERT_NE(result.structure, nullptr) << result.message;
    EXPECT_EQ(result.structure->planes[2].anchor_index, 10);
    EXPECT_EQ(result.structure->planes[2].name, "c");
  }
}

TEST(StructureParse, Mirrors) {
  auto parse_names = [](const std::vector<std::string>& names) {
    std::string text = "mini more { Hips";
    for (const std::string& name : names) text += Entry(name, "child");
    StructureParseResult result = Parse(text + "}");
    EXPECT_NE(result.structure, nullptr) << result.message;
    return result.structure ? *result.structure : ModelStructure();
  };
  {  // "left"/"right" prefixes in any case, and single letters in either case.
    const ModelStructure s = parse_names({"leftArm", "RightArm", "LHAND", "rhand", "root", "l", "r"});
    const int left_arm = FindNodeIndex(s, "leftArm");
    EXPECT_EQ(s.nodes[left_arm].mirror_index, FindNodeIndex(s, "RightArm"));
    EXPECT_EQ(s.nodes[left_arm + 1].mirror_index, left_arm);
    EXPECT_EQ(s.nodes[left_arm + 2].mirror_index, left_arm + 3);
    EXPECT_EQ(s.nodes[left_arm + 3].mirror_index, left_arm + 2);
    EXPECT_EQ(s.nodes[left_arm + 4].mirror_index, -1);  // root looks for loot
    EXPECT_EQ(s.nodes[left_arm + 5].mirror_index, left_arm + 6);
    EXPECT_EQ(s.nodes[left_arm + 6].mirror_index, left_arm + 5);
  }
  {  // lightArm points at rightArm, which pairs with leftArm: every link stays symmetric.
    const ModelStructure s = parse_names({"lightArm", "rightArm", "leftArm"});
    const int light = FindNodeIndex(s, "lightArm");
    EXPECT_EQ(s.nodes[light].mirror_index, -1);
    EXPECT_EQ(s.nodes[light + 1].mirror_index, light + 2);
    EXPECT_EQ(s.nodes[light + 2].mirror_index, light + 1);
    EXPECT_EQ(CheckModelStructure(s), "");
  }
  {  // The counterpart names themselves.
    EXPECT_EQ(MirrorNodeName("LeftHand"), "rightHand");
    EXPECT_EQ(MirrorNodeName("RIGHTfoot"), "leftfoot");
    EXPECT_EQ(MirrorNodeName("lUpLeg"), "rUpLeg");
    EXPECT_EQ(MirrorNodeName("Rshoulder"), "lshoulder");
    EXPECT_EQ(MirrorNodeName("Hips"), std::nullopt);
  }
}

TEST(StructureParse, DecomposeBlocks) {
  auto parse = [](const std::string& blocks) {
    return Parse(std::string(kMiniStructure) + blocks);
  };
  {  // "Unused" (any case) leaves a slot empty and is no channel.
    StructureParseResult result = parse("split { decompose Hips Unused UNUSED unused a b c }");
    ASSERT_NE(result.structure, nullptr) << result.message;
    ASSERT_EQ(result.structure->decomps.size(), 1u);
    const StructureDecomp& d = result.structure->decomps[0];
    EXPECT_EQ(d.name, "split");
    EXPECT_EQ(d.src_name, "Hips");
    for (int slot : {kDecompPX, kDecompPY, kDecompPZ, kDecompRtoPX, kDecompRtoPY, kDecompRtoPZ}) {
      EXPECT_EQ(d.slots[slot], "") << kDecompSlotNames[slot];
    }
    EXPECT_EQ(d.slots[kDecompRX], "a");
    EXPECT_EQ(d.slots[kDecompRY], "b");
    EXPECT_EQ(d.slots[kDecompRZ], "c");
    EXPECT_EQ(d.channels, (std::vector<std::string>{"a", "b", "c"}));
  }
  {  // A channel named twice is one channel; words beyond the ninth fill no slot but count.
    StructureParseResult result =
        parse("split { decompose lFoot m m m r r r Unused Unused q extra }");
    ASSERT_NE(result.structure, nullptr) << result.message;
    const StructureDecomp& d = result.structure->decomps[0];
    EXPECT_EQ(d.slots[kDecompPZ], "m");
    EXPECT_EQ(d.slots[kDecompRtoPZ], "q");
    EXPECT_EQ(d.channels, (std::vector<std::string>{"m", "r", "q", "extra"}));
  }
  {  // The decomposed node must exist; channels must not clash with nodes or other blocks.
    EXPECT_EQ(parse("split { decompose }").message,
              "structure test line 6: the decompose block split names no node");
    EXPECT_EQ(parse("split { decompose Chest a }").message,
              "structure test line 6: the decompose block split names the unknown node Chest");
    EXPECT_EQ(parse("split { decompose Hips lArm }").message,
              "structure test line 6: the channel lArm of the decompose block split is also a "
              "node name");
    EXPECT_EQ(parse("s1 { decompose Hips a }\ns2 { decompose lFoot a }").message,
              "structure test line 7: the channel a of the decompose block s2 is a channel of an "
              "earlier decompose block");
    EXPECT_EQ(parse("split { decompose Hips dirty }").message,
              "structure test line 6: the channel dirty of the decompose block split is reserved "
              "for the tag page");
    EXPECT_EQ(parse("split { decompose Hips a.b }").message,
              "structure test line 6: the channel a.b of the decompose block split may only hold "
              "letters, digits and \"_\"");
  }
}

TEST(StructureParse, NumberFailures) {
  const std::string head = "mini\narm { Hips\n lSho anchor 1 0 0 0 1 0 2 3 0\n";
  {  // Not a number, with the line it is on.
    EXPECT_EQ(Failure(head + " lArm ik 1 0 0 0 one 0 5 0 0 }"),
              "structure test line 4: expected three numbers for the roll direction of node lArm, "
              "found \"one\"");
  }
  {  // A number glued to the closing brace.
    EXPECT_EQ(Failure(head + " lArm ik 1 0 0 0 1 0 5 0\n0}"),
              "structure test line 5: expected three numbers for the offset of node lArm, found "
              "\"0}\"");
  }
  {  // Not finite, out of range, in the limits.
    EXPECT_EQ(Failure(head + " lArm ik 1 0 0 0 1 0 5 0 0 limits: nan 0 0 1 1 1 }"),
              "structure test line 4: expected three numbers for the lower limits of node lArm, "
              "found \"nan\", which is not a finite number");
    EXPECT_EQ(Failure(head + " lArm ik 1 0 0 0 1 0 5 0 0 limits: 0 0 0 1 1 1e999 }"),
              "structure test line 4: expected three numbers for the upper limits of node lArm, "
              "found \"1e999\", which is out of range");
  }
  {  // The data ends inside an entry.
    EXPECT_EQ(Failure(head + " lArm ik 1 0 0 0 1"),
              "structure test line 4: expected three numbers for the roll direction of node lArm, "
              "found the end of the data");
    EXPECT_EQ(Failure(head + " lArm ik 1 0 0 0 1 0 5 0 0 limits:"),
              "structure test line 4: expected three numbers for the lower limits of node lArm, "
              "found the end of the data");
  }
  {  // The same in a base file names the base file.
    EXPECT_EQ(Failure("mini", "hips { world\n Hips hip 0 1 0 0 0 1 0 x 0 }"),
              "basefile mini line 2: expected three numbers for the offset of node Hips, found "
              "\"x\"");
  }
}

TEST(StructureParse, NameRules) {
  {  // Node names are letters, digits and "_".
    EXPECT_EQ(Failure("mini x { Hips\n" + Entry("l.Hand", "child") + "}"),
              "structure test line 2: the node name \"l.Hand\" may only hold letters, digits and "
              "\"_\"");
    EXPECT_EQ(Failure("mini x { Hips\n" + Entry("a|b", "child") + "}"),
              "structure test line 2: the node name \"a|b\" may only hold letters, digits and "
              "\"_\"");
  }
  {  // Names the tag page uses for itself.
    for (const char* name : {"dirty", "StructureFile", "world", "Apply1", "select_lArm"}) {
      EXPECT_EQ(Failure("mini x { Hips" + Entry(name, "child") + "}"),
                "structure test line 1: the node name " + std::string(name) +
                    " is reserved for the tag page");
    }
  }
  {  // A node name used twice, within the structure or across the base file.
    EXPECT_EQ(Failure("mini x { Hips\n" + Entry("A", "child") + Entry("A", "child") + "}"),
              "structure test line 3: the node name A is used twice");
    EXPECT_EQ(Failure("mini x { Hips\n" + Entry("lToe", "child") + "}"),
              "structure test line 2: the node name lToe is used twice");
  }
  {  // Group names follow the same rules and are unique.
    EXPECT_EQ(Failure("mini\nleftLeg { Hips" + Entry("A", "child") + "}"),
              "structure test line 2: the group name leftLeg is used twice");
    EXPECT_EQ(Failure("mini\nmy-arm { Hips" + Entry("A", "child") + "}"),
              "structure test line 2: the group name \"my-arm\" may only hold letters, digits and "
              "\"_\"");
  }
}

TEST(StructureParse, Bounds) {
  {  // 512 nodes in all are allowed, 513 are not.
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
    StructureParseResult ok = Parse(text_with(kMaxStructureNodes - 9));
    ASSERT_NE(ok.structure, nullptr) << ok.message;
    EXPECT_EQ(ok.structure->NumNodes(), kMaxStructureNodes);
    const std::string message = Failure(text_with(kMaxStructureNodes - 8));
    EXPECT_NE(message.find("the structure has more than 512 nodes"), std::string::npos) << message;
  }
  {  // A chain deeper than the bound.
    std::string text = "mini deep { Hips";
    for (int i = 0; i <= kMaxStructureDepth; ++i) text += Entry("n" + std::to_string(i), "child");
    const std::string message = Failure(text + "}");
    EXPECT_NE(message.find("levels deep"), std::string::npos) << message;
  }
}

}  // namespace
}  // namespace kavor

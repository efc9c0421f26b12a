// Reading map sections and tag template heads: the lexical rules, every parse message and
// the tolerated early end.
#include "kavor/tagging/map_file.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "kavor/structure/structure_test_support.h"
#include "kavor/tagging/tag_template_file.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using structuretest::Logged;

std::optional<MapFile> Read(const std::string& text) {
  KRX::rt::ClearLog();
  Tokenizer tokenizer(text);
  return ReadMapSection(tokenizer);
}

TEST(MapSection, ReadsEntriesWithTheirVectorsAndOverrides) {
  const std::string text =
      "MapFile2.0\nHumanoid\n\n3 \n"
      "hip {\n\tHips;\n\t0 1 0 \n\t0 0 1 \n}\n\n"
      "# a comment line between entries\n"
      "spine{ Spine1 ;\n 0.5 -2 1e-3 \n 1 2 3\n\t* chest\n}\n"
      "neck {\n Neck;\n 0 0 0 0 0 0 *head }\n";
  const std::optional<MapFile> map = Read(text);
  ASSERT_TRUE(map);
  EXPECT_EQ(map->structure_source, "Humanoid");
  ASSERT_EQ(map->entries.size(), 3u);
  const TemplateTag& hip = map->entries[0];
  EXPECT_EQ(hip.tag_name, "hip");
  EXPECT_EQ(hip.node_name, "Hips");
  EXPECT_EQ(hip.align.GetY(), 1.0);
  EXPECT_EQ(hip.roll.GetZ(), 1.0);
  EXPECT_TRUE(hip.override.empty());
  EXPECT_TRUE(hip.condition_node.empty() && hip.alternative_node.empty());
  // A tag name against "{" reads alone; a blank after "*" is allowed.
  EXPECT_EQ(map->entries[1].tag_name, "spine");
  EXPECT_EQ(map->entries[1].node_name, "Spine1");
  EXPECT_DOUBLE_EQ(map->entries[1].align.GetZ(), 1e-3);
  EXPECT_EQ(map->entries[1].override, "chest");
  EXPECT_EQ(map->entries[2].override, "head");
  EXPECT_TRUE(Logged(8, "MapFile2.0"));
}

// The count read against the data: none (or below) is an empty map, not a failure; more
// than present, or data ending after a tag name, keeps the entries before.
TEST(MapSection, CountsAndEarlyEnds) {
  const std::pair<const char*, size_t> cases[] = {
      {"MapFile2.0 Humanoid 0 hip { Hips; }", 0},
      {"MapFile2.0 Humanoid -4", 0},
      {"MapFile2.0 Humanoid 5 hip { Hips; 0 1 0 0 0 1 }\n", 1},
      {"MapFile2.0 Humanoid 5 hip { Hips; 0 1 0 0 0 1 } spine  \n# trailing\n", 1},
      {"MapFile2.0 Humanoid 2147483647 ", 0}};
  for (const auto& [text, entries] : cases) {
    const std::optional<MapFile> map = Read(text);
    ASSERT_TRUE(map) << text;
    EXPECT_EQ(map->entries.size(), entries) << text;
  }
}

TEST(MapSection, ParseErrorsNameTheTag) {
  struct Case {
    const char* text;
    const char* message;
  };
  const Case cases[] = {
      {"MapFile2.1 Humanoid 1", "Could not parse the map file"},
      {"MapFile2.0 Humanoid 1 hip Hips; 0 1 0 0 0 1 }", "parse error: '{' expected for tag hip"},
      {"MapFile2.0 Humanoid 1 hip { Hips? 0 1 0 0 0 1 }",
       "parse error: ';' or '?' expected for tag hip"},
      {"MapFile2.0 Humanoid 1 hip { Hips; 0 1 0 0 0 1 ", "parse error: '}' expected for tag hip"},
      // A number written against the brace swallows it.
      {"MapFile2.0 Humanoid 1 hip { Hips; 0 1 0 0 0 1}", "parse error: '}' expected for tag hip"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_FALSE(Read(c.text));
    EXPECT_TRUE(Logged(4, c.message));
  }
}

TEST(TagTemplateHead, ValuesSplitAtBars) {
  const std::string text =
      "Humanoid\n4 \nhip Hips\nlHand lHand_ctl|lHand_jnt\nrHand a|b|c\nhead <EmptyFieldkrx>\n"
      "Humanoid\n8 \nMapFile2.0 Humanoid 0 ";
  Tokenizer tokenizer(text);
  const std::optional<TagTemplateHead> head = ReadTagTemplateHead(tokenizer);
  ASSERT_TRUE(head);
  ASSERT_EQ(head->values.size(), 4u);
  EXPECT_EQ(head->values[1].control, "lHand_ctl");
  EXPECT_EQ(head->values[1].extraction, "lHand_jnt");
  EXPECT_EQ(head->values[2].control, "a");  // three pieces: no extraction object
  EXPECT_TRUE(head->values[2].extraction.empty());
  EXPECT_TRUE(head->values[3].control.empty());
  EXPECT_EQ(head->version, 8);
  EXPECT_TRUE(ReadMapSection(tokenizer));  // the map section follows where the head ends

  // Written back, it reads the same.
  std::ostringstream out;
  WriteTagTemplateHead(out, *head);
  const std::string written = out.str();
  Tokenizer again(written);
  const std::optional<TagTemplateHead> reread = ReadTagTemplateHead(again);
  ASSERT_TRUE(reread);
  EXPECT_EQ(reread->values[1].extraction, "lHand_jnt");
  EXPECT_TRUE(reread->values[3].control.empty());
  EXPECT_NE(written.find("head <EmptyFieldkrx>\n"), std::string::npos);
  EXPECT_NE(written.find("\n4 \n"), std::string::npos);

  {  // A count the data do not hold: the values present, no source, version 0; refused when
     // reading strictly.
    Tokenizer short_text("Humanoid 3 hip Hips");
    const std::optional<TagTemplateHead> cut = ReadTagTemplateHead(short_text);
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->values.size(), 1u);
    EXPECT_EQ(cut->values[0].control, "Hips");
    EXPECT_EQ(cut->structure_source, "");
    EXPECT_EQ(cut->version, 0);
    KRX::rt::ClearLog();
    Tokenizer strict_text("Humanoid 3 hip Hips");
    EXPECT_FALSE(ReadTagTemplateHead(strict_text, StructureReadOptions{true}));
    EXPECT_TRUE(Logged(4, "The tag template ends after 1 of its 3 tag values."));
  }
}

}  // namespace
}  // namespace kavor

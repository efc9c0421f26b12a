// Damaged structure and base files: cut at every byte, single bytes replaced, random
// edits. Each parse gives either a structure that holds the invariants or a message, and
// never reads outside its input (each input sits in a heap block of exactly its size).

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_test_support.h"

namespace kavor {
namespace {

// Every feature of the format in a few lines.
const char* const kSampleBase =
    "# sample base\nhips { world\n  Hips hip 0 1 0  0 0 1  0 95 0 }\n"
    "leftLeg { Hips\n  lHip anchor 0 -1 0 0 0 1 9 -4 0\n"
    "  lKnee child 0 -1 0 0 0 1 0 -42 1 limits: -10 -20 -20 150 20 20\n"
    "  lAnkle friction 0 0 1 0 1 0 0 -41 -1\n  lToes child 0 0 1 0 1 0 0 -6 12 }\n"
    "rightLeg { Hips\n  rHip anchor 0 -1 0 0 0 1 -9 -4 0\n"
    "  rKnee child 0 -1 0 0 0 1 0 -42 1 limits: -10 -20 -20 150 20 20\n"
    "  rAnkle friction 0 0 1 0 1 0 0 -41 -1\n  rToes child 0 0 1 0 1 0 0 -6 12 }\n";
const char* const kSampleStructure =
    "sample # base\r\nspine { Hips Spine free 0 1 0 0 0 1 0 8 -1 Spine1 free 0 1 0 0 0 1 0 12 0 }\r\n"
    "arm { Spine1 lCla child 1 0 0 0 1 0 2 13 1 lSho anchor 1 0 0 0 1 0 15 0 -2\r\n"
    "  lElb child 1 0 0 0 1 0 28 0 -1 limits: -90 -150 -30 90 10 30\r\n"
    "  lWri ik 1 0 0 0 1 0 26 0 1 lHand child 1 0 0 0 1 0 9 0 0 }\r\n"
    "hipControls { decompose Hips cog cog cog pelvis pelvis pelvis Unused Unused Unused }\r\n";

// Parses `structure` with `base` as the base file "sample", each from an exact-size copy.
StructureParseResult ParseExact(const std::string& structure, const std::string& base) {
  std::unique_ptr<char[]> text(new char[structure.size() + 1]);
  std::memcpy(text.get(), structure.data(), structure.size());
  auto lookup = [&base](std::string_view name) -> std::optional<std::string> {
    if (name != "sample" && name != "Humanoid") return std::nullopt;
    return base;
  };
  return ParseStructureText(std::string_view(text.get(), structure.size()), "damaged", lookup);
}

// Either a structure that the rest of the plug-in can rely on, or a message.
void ExpectStructureOrMessage(const StructureParseResult& result, const std::string& what) {
  if (result.structure) {
    EXPECT_EQ(result.message, "") << what;
    EXPECT_EQ(CheckModelStructure(*result.structure), "") << what;
  } else {
    EXPECT_NE(result.message, "") << what;
  }
}

struct Sample {
  std::string name, structure, base;
};

std::vector<Sample> Samples() {
  std::vector<Sample> samples = {{"inline sample", kSampleStructure, kSampleBase}};
  const auto data = structuretest::ShippedDataFolder();
  if (!data.empty()) {
    const auto structure = structuretest::ReadTextFile(data / "Structures" / "Humanoid.structure");
    const auto base = structuretest::ReadTextFile(data / "Structures" / "Humanoid.base");
    if (structure && base) samples.push_back({"Humanoid", *structure, *base});
  }
  return samples;
}

TEST(StructureRobustness, IntactSamplesParse) {
  for (const Sample& sample : Samples()) {
    const StructureParseResult result = ParseExact(sample.structure, sample.base);
    ASSERT_NE(result.structure, nullptr) << sample.name << ": " << result.message;
  }
}

TEST(StructureRobustness, CutAtEveryByte) {
  for (const Sample& sample : Samples()) {
    int parsed = 0;
    for (size_t n = 0; n <= sample.structure.size(); ++n) {
      const StructureParseResult result = ParseExact(sample.structure.substr(0, n), sample.base);
      ExpectStructureOrMessage(result, sample.name + " structure cut at " + std::to_string(n));
      parsed += result.structure != nullptr;
    }
    for (size_t n = 0; n <= sample.base.size(); ++n) {
      const StructureParseResult result = ParseExact(sample.structure, sample.base.substr(0, n));
      ExpectStructureOrMessage(result, sample.name + " base cut at " + std::to_string(n));
    }
    // Cuts between blocks (and in trailing comments) still give a structure.
    EXPECT_GT(parsed, 0) << sample.name;
  }
}

TEST(StructureRobustness, EveryByteReplaced) {
  // A NUL, a comment start, both braces, a blank, a letter, a digit and a high byte.
  const std::string replacements = std::string("\0#{} x9\xFF", 8);
  for (const Sample& sample : Samples()) {
    // None of these bytes changes anything inside a comment: skip comment bodies.
    std::vector<bool> in_comment(sample.structure.size(), false);
    for (size_t i = 0, open = 0; i < sample.structure.size(); ++i) {
      if (open && sample.structure[i] == '\n') open = 0;
      in_comment[i] = open != 0;
      if (!open && sample.structure[i] == '#') open = 1;
    }
    for (size_t i = 0; i < sample.structure.size(); ++i) {
      if (in_comment[i]) continue;
      for (const char c : replacements) {
        std::string damaged = sample.structure;
        damaged[i] = c;
        ExpectStructureOrMessage(ParseExact(damaged, sample.base),
                                 sample.name + " byte " + std::to_string(i));
      }
    }
    for (size_t i = 0; i < sample.base.size(); ++i) {
      std::string damaged = sample.base;
      damaged[i] = '}';
      ExpectStructureOrMessage(ParseExact(sample.structure, damaged),
                               sample.name + " base byte " + std::to_string(i));
    }
  }
}

TEST(StructureRobustness, RandomEdits) {
  uint64_t state = 0x9E3779B97F4A7C15ull;
  auto next = [&state](uint64_t bound) {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<size_t>((state >> 33) % bound);
  };
  for (const Sample& sample : Samples()) {
    for (int round = 0; round < 1500; ++round) {
      std::string text = sample.structure;
      const int edits = 1 + static_cast<int>(next(6));
      for (int e = 0; e < edits && !text.empty(); ++e) {
        const size_t at = next(text.size());
        const size_t length = 1 + next(12);
        switch (next(3)) {
          case 0:  // delete a run
            text.erase(at, length);
            break;
          case 1:  // repeat a run somewhere else
            text.insert(next(text.size() + 1), text.substr(at, length));
            break;
          default:  // a random byte
            text[at] = static_cast<char>(next(256));
        }
      }
      ExpectStructureOrMessage(ParseExact(text, sample.base),
                               sample.name + " round " + std::to_string(round));
    }
  }
}

}  // namespace
}  // namespace kavor

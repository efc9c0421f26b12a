// Fuzzes the structure and base file reader.
//
// The input is a structure file, optionally followed by a line "====" and the text of its
// base file; without that line every base file name resolves to a fixed humanoid base.
// Each input is parsed both ways, as read by default and strictly. A parse must either fail
// with a message or give a structure that holds every invariant the plug-in relies on, and
// what strict reading accepts is read by default too.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kavor/structure/model_structure.h"
#include "kavor/structure/structure_parser.h"

namespace {

constexpr std::string_view kFixedBase =
    "hips { world Hips hip 0 1 0 0 0 1 0 95 0 }\n"
    "leftLeg { Hips lHip anchor 0 -1 0 0 0 1 9 -4 0\n"
    "  lKnee child 0 -1 0 0 0 1 0 -42 1 limits: -10 -20 -20 150 20 20\n"
    "  lAnkle friction 0 0 1 0 1 0 0 -41 -1 lToes child 0 0 1 0 1 0 0 -6 12 }\n"
    "rightLeg { Hips rHip anchor 0 -1 0 0 0 1 -9 -4 0\n"
    "  rKnee child 0 -1 0 0 0 1 0 -42 1 limits: -10 -20 -20 150 20 20\n"
    "  rAnkle friction 0 0 1 0 1 0 0 -41 -1 rToes child 0 0 1 0 1 0 0 -6 12 }\n";

constexpr std::string_view kSeparator = "\n====\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string_view structure = input;
  std::string_view base = kFixedBase;
  if (const size_t split = input.find(kSeparator); split != std::string_view::npos) {
    structure = input.substr(0, split);
    base = input.substr(split + kSeparator.size());
  }
  // The input block holds exactly the input, so a read past the end of the structure text
  // is caught when it is the last part.
  auto lookup = [base](std::string_view) -> std::optional<std::string> {
    return std::string(base);
  };
  auto parse = [&](bool strict) {
    const kavor::StructureParseResult result =
        kavor::ParseStructureText(structure, "fuzz", lookup, kavor::StructureReadOptions{strict});
    if (result.structure) {
      if (!result.message.empty() || !kavor::CheckModelStructure(*result.structure).empty()) {
        __builtin_trap();
      }
    } else if (result.message.empty()) {
      __builtin_trap();
    }
    return result.structure != nullptr;
  };
  const bool read_by_default = parse(false);
  // Strict reading only ever refuses more.
  if (parse(true) && !read_by_default) __builtin_trap();
  return 0;
}

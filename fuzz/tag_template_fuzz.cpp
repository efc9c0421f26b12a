// Fuzzes the tag template and map file readers: the tag page block, then the map section.
// An input starting with "BVH" is read as a BVH map file instead. The tag page block is
// read strictly when the input's length is odd, so both readings are driven.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

#include "kavor/tagging/map_file.h"
#include "kavor/tagging/tag_template_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact-size copy, so that a read past the end of the text is caught.
  std::vector<char> bytes(data, data + size);
  const std::string_view text(bytes.data(), bytes.size());
  kavor::Tokenizer tokenizer(text);
  if (text.substr(0, 3) == "BVH") {
    (void)tokenizer.ReadWord();
  } else if (!kavor::ReadTagTemplateHead(tokenizer, kavor::StructureReadOptions{size % 2 == 1})) {
    return 0;
  }
  const std::optional<kavor::MapFile> map = kavor::ReadMapSection(tokenizer);
  if (map && map->entries.size() > size) std::abort();  // every entry consumes input
  return 0;
}

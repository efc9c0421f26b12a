#include "kavor/structure/structure_reader.h"

#include <algorithm>

#include "kavor/structure/name_rules.h"

namespace kavor {
namespace {

// Longest piece of a token quoted in a message.
constexpr size_t kMaxQuotedToken = 40;

std::string Quote(std::string_view token) {
  if (token.size() > kMaxQuotedToken)
    return "\"" + std::string(token.substr(0, kMaxQuotedToken)) + "...\"";
  return "\"" + std::string(token) + "\"";
}

std::string DescribeFound(TokenStatus status, std::string_view token) {
  switch (status) {
    case TokenStatus::kEndOfData:
      return "the end of the data";
    case TokenStatus::kOutOfRange:
      return Quote(token) + ", which is out of range";
    case TokenStatus::kNotFinite:
      return Quote(token) + ", which is not a finite number";
    default:
      return Quote(token);
  }
}

class BlockReader {
 public:
  BlockReader(Tokenizer& tokenizer, StructureFileKind kind, std::string_view file_label,
              const StructureReadOptions& options, StructureReadState& state)
      : t_(tokenizer), kind_(kind), label_(file_label), strict_(options.strict), state_(state) {}

  std::string Run() {
    while (true) {
      const std::string_view block = t_.ReadWord();
      const int block_line = t_.TokenLine();
      if (block.empty()) return {};        // the end of the data
      if (t_.ReadWord() != "{") continue;  // both words are dropped
      const std::string_view first = t_.ReadWord();
      if (first.empty() || first == "}") continue;  // "{ }" or "{" at the end: nothing
      std::string error;
      if (kind_ == StructureFileKind::kStructure && first == "decompose") {
        error = ReadDecompose(block, block_line);
      } else {
        error = ReadGroupBlock(block, block_line, first);
      }
      if (!error.empty()) return error;
    }
  }

 private:
  std::string At(int line, const std::string& problem) const {
    return std::string(label_) + " line " + std::to_string(line) + ": " + problem;
  }

  std::string ReadGroupBlock(std::string_view block, int block_line, std::string_view parent) {
    if (!IsStructureNameWord(block)) {
      return At(block_line,
                "the group name " + Quote(block) + " may only hold letters, digits and \"_\"");
    }
    if (!state_.group_names.insert(std::string(block)).second && strict_) {
      return At(block_line, "the group name " + std::string(block) + " is used twice");
    }
    ReadGroup read;
    read.group.name = block;
    read.group.parent = parent;
    read.line = block_line;

    std::string_view name = t_.ReadWord();
    while (!name.empty() && name != "}") {
      const int line = t_.TokenLine();
      std::string_view next;
      StructureGroupNode entry;
      entry.name = name;
      std::string error = ReadEntryBody(read.group.name, entry, next);
      if (!error.empty()) return error;
      error = CheckEntryName(entry.name, line);
      if (!error.empty()) return error;
      if (state_.entry_count >= static_cast<size_t>(kMaxStructureNodes)) {
        return At(line,
                  "the structure has more than " + std::to_string(kMaxStructureNodes) + " nodes");
      }
      ++state_.entry_count;
      state_.node_names.insert(entry.name);
      read.group.nodes.push_back(std::move(entry));
      read.entry_lines.push_back(line);
      name = next;
    }
    state_.groups.push_back(std::move(read));
    return {};
  }

  // The type word, the align, roll and offset vectors and the optional limits of one entry,
  // and the word after it (the next entry's name, "}" or empty at the end of the data).
  std::string ReadEntryBody(const std::string& group, StructureGroupNode& entry,
                            std::string_view& next) {
    entry.type = t_.ReadWord();
    std::string number_error;
    auto read_vector = [&](KRX::MATH::CVector3& value, const char* what) {
      double xyz[3] = {0.0, 0.0, 0.0};
      for (double& component : xyz) {
        if (!number_error.empty()) break;
        const TokenStatus status = t_.ReadNumber(component);
        if (status == TokenStatus::kOk || !NumberRefused(status)) continue;
        number_error =
            At(t_.TokenLine(), std::string("expected three numbers for the ") + what + " of node " +
                                   entry.name + ", found " + DescribeFound(status, t_.LastToken()));
      }
      value.Set(xyz[0], xyz[1], xyz[2]);
    };
    read_vector(entry.align, "align direction");
    read_vector(entry.roll, "roll direction");
    read_vector(entry.offset, "offset");
    if (number_error.empty()) {
      next = t_.ReadWord();
      if (next == "limits:") {
        read_vector(entry.min_limits, "lower limits");
        read_vector(entry.max_limits, "upper limits");
        if (number_error.empty()) next = t_.ReadWord();
      }
    }
    // The type word is judged after the whole entry, and its message comes first: an entry
    // with a wrong type word usually throws the numbers after it out of step.
    if (!NodeTypeFromWord(entry.type)) {
      return std::string("error while parsing the ") +
             (kind_ == StructureFileKind::kBase ? "basefile " : "structure ") + group + " group";
    }
    return number_error;
  }

  // A number the entry cannot use. Values that cannot be held are refused in every mode; a
  // token that is not a number, or only starts with one, or is missing at the end of the
  // data, reads as its leading number (0 for none) unless reading is strict.
  bool NumberRefused(TokenStatus status) const {
    if (status == TokenStatus::kOutOfRange || status == TokenStatus::kNotFinite) return true;
    return strict_;
  }

  std::string CheckEntryName(const std::string& name, int line) const {
    if (!IsStructureNameWord(name)) {
      return At(line, "the node name " + Quote(name) + " may only hold letters, digits and \"_\"");
    }
    if (!strict_) return {};
    if (IsReservedNodeName(name)) {
      return At(line, "the node name " + name + " is reserved for the tag page");
    }
    if (state_.node_names.count(name) != 0) {
      return At(line, "the node name " + name + " is used twice");
    }
    return {};
  }

  std::string ReadDecompose(std::string_view block, int block_line) {
    if (!IsStructureNameWord(block)) {
      return At(block_line, "the decompose block name " + Quote(block) +
                                " may only hold letters, digits and \"_\"");
    }
    ReadDecomp read;
    read.decomp.name = block;
    read.line = block_line;
    const std::string_view source = t_.ReadWord();
    if (source.empty() || source == "}") {
      return At(block_line, "the decompose block " + std::string(block) + " names no node");
    }
    read.decomp.src_name = source;
    int slot = 0;
    for (std::string_view word = t_.ReadWord(); !word.empty() && word != "}";
         word = t_.ReadWord()) {
      if (EqualNoCase(word, "Unused")) {
        ++slot;
        continue;
      }
      if (slot < kDecompSlotCount) read.decomp.slots[slot] = word;
      ++slot;
      std::vector<std::string>& channels = read.decomp.channels;
      if (std::find(channels.begin(), channels.end(), word) == channels.end()) {
        channels.emplace_back(word);
      }
      // Each channel becomes a parameter of the tag page: keep their number bounded.
      if (channels.size() > static_cast<size_t>(kMaxStructureNodes)) {
        return At(t_.TokenLine(), "the decompose block " + std::string(block) + " has more than " +
                                      std::to_string(kMaxStructureNodes) + " channels");
      }
    }
    state_.decomps.push_back(std::move(read));
    return {};
  }

  Tokenizer& t_;
  StructureFileKind kind_;
  std::string_view label_;
  bool strict_;
  StructureReadState& state_;
};

}  // namespace

std::string ReadStructureBlocks(Tokenizer& tokenizer, StructureFileKind kind,
                                std::string_view file_label, const StructureReadOptions& options,
                                StructureReadState& state) {
  return BlockReader(tokenizer, kind, file_label, options, state).Run();
}

}  // namespace kavor

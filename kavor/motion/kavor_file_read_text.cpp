// Reading the older text form of motion files.
#include <algorithm>
#include <cstdint>
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/progress_bar.h"
#include "kavor/io/whole_file.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/structure/tokenizer.h"

namespace kavor {
namespace {

constexpr std::string_view kTextFormatWord = "NormMotion5.0";
constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";
constexpr const wchar_t* kCannotParse = L"Can't parse the Kavor file.";
// Text quoted in messages is cut to this many characters.
constexpr size_t kQuotedLength = 40;

std::string Quoted(std::string_view text) {
  if (text.size() <= kQuotedLength) return "\"" + std::string(text) + "\"";
  return "\"" + std::string(text.substr(0, kQuotedLength)) + "...\"";
}

// Reads values in file order through the tokenizer. The first value that does not read
// stops everything; `problem` then says what was expected, where, and what was found.
class TextReader {
 public:
  explicit TextReader(std::string_view text) : text_size_(text.size()), tokenizer_(text) {}

  const std::string& Problem() const { return problem_; }
  Tokenizer& Tokens() { return tokenizer_; }

  // How many values of `min_bytes` bytes each (a separating blank included) the rest of the
  // text could hold at most.
  int64_t Room(int64_t min_bytes) const {
    return static_cast<int64_t>(text_size_ - tokenizer_.Position() + 1) / min_bytes;
  }

  bool Integer(std::string_view what, int64_t low, int64_t high, int64_t* out) {
    int64_t value = 0;
    if (tokenizer_.ReadInteger(value) != TokenStatus::kOk) return Expected(what);
    if (value < low || value > high) {
      return Fail(std::string(what) + " " + std::to_string(value) + " is outside " +
                  std::to_string(low) + " .. " + std::to_string(high));
    }
    *out = value;
    return true;
  }

  bool Number(std::string_view what, double* out) {
    if (tokenizer_.ReadNumber(*out) != TokenStatus::kOk) return Expected(what);
    return true;
  }

  bool Word(std::string_view what, std::string* out) {
    const std::string_view word = tokenizer_.ReadWord();
    if (word.empty()) return Expected(what);
    out->assign(word);
    return true;
  }

  bool Fail(const std::string& text) {
    problem_ = "line " + std::to_string(tokenizer_.TokenLine()) + ": " + text;
    return false;
  }

 private:
  bool Expected(std::string_view what) {
    const std::string_view token = tokenizer_.LastToken();
    return Fail("expected " + std::string(what) + ", found " +
                (token.empty() ? std::string("the end of the data") : Quoted(token)));
  }

  size_t text_size_;
  Tokenizer tokenizer_;
  std::string problem_;
};

int ChannelIndex(std::string_view word) {
  for (size_t c = 0; c < kCurveChannelNames.size(); ++c) {
    if (word == kCurveChannelNames[c]) return static_cast<int>(c);
  }
  return -1;
}

bool ReadNodes(TextReader& in, KavorMotion& motion) {
  ModelStructure& structure = *motion.structure;
  for (int32_t i = 0; i < structure.NumNodes(); ++i) {
    StructureNode& node = structure.nodes[static_cast<size_t>(i)];
    std::string validity;
    if (!in.Word("the validity word of node " + std::to_string(i), &validity) ||
        !in.Word("the name of node " + std::to_string(i), &node.name) ||
        !in.Number("the length of node " + std::to_string(i), &motion.model->Node(i).length)) {
      return false;
    }
    // Only the exact word "v" marks a node the rig had an object for.
    node.obj_is_valid = validity == "v";
  }
  return true;
}

bool ReadIndex(TextReader& in, const std::string& what, int32_t node_count, int32_t* out) {
  int64_t index = 0;
  if (!in.Integer(what, -1, node_count - 1, &index)) return false;
  *out = static_cast<int32_t>(index);
  return true;
}

bool ReadPlanes(TextReader& in, ModelStructure& structure) {
  const int32_t nodes = structure.NumNodes();
  for (int32_t p = 0; p < structure.NumPlanes(); ++p) {
    StructurePlane& plane = structure.planes[static_cast<size_t>(p)];
    const std::string label = "plane " + std::to_string(p);
    int64_t bones = 0;
    if (!in.Word("the name of " + label, &plane.name) ||
        !ReadIndex(in, "the span of " + label, nodes, &plane.span) ||
        !ReadIndex(in, "the mid of " + label, nodes, &plane.mid) ||
        !ReadIndex(in, "the anchor index of " + label, nodes, &plane.anchor_index) ||
        // A chain holds each node at most once.
        !in.Integer("the bone count of " + label, 0, std::min<int64_t>(nodes, in.Room(2)),
                    &bones)) {
      return false;
    }
    plane.chain.resize(static_cast<size_t>(bones));
    for (int32_t& bone : plane.chain) {
      if (!ReadIndex(in, "a bone index of " + label, nodes, &bone)) return false;
    }
  }
  return true;
}

bool ReadPoses(TextReader& in, int64_t frames, RetargetModel& model) {
  const int64_t nodes = model.NumNodes();
  // Six numbers and their blanks take at least 12 bytes per node and frame.
  if (frames * nodes > std::min(kMaxMotionPoses, in.Room(12))) {
    return in.Fail(std::to_string(frames) + " frames of " + std::to_string(nodes) +
                   " nodes are more than the file holds or a motion file may hold");
  }
  model.frame_count = static_cast<int32_t>(frames);
  model.poses.assign(static_cast<size_t>(frames * nodes), KRX::MATH::CTransformation());
  ScopedProgressBar progress(L"Parsing Kavor File ...", static_cast<int>(frames));
  for (int64_t f = 0; f < frames; ++f) {
    progress.Increment();
    for (int64_t n = 0; n < nodes; ++n) {
      double values[6] = {};
      for (double& value : values) {
        if (!in.Number("a pose value of frame " + std::to_string(f) + ", node " + std::to_string(n),
                       &value)) {
          return false;
        }
      }
      KRX::MATH::CTransformation& pose = model.poses[static_cast<size_t>(f * nodes + n)];
      pose.SetRotationFromXYZAngles(KRX::MATH::CVector3(values[0], values[1], values[2]));
      pose.SetTranslationFromValues(values[3], values[4], values[5]);
    }
  }
  return true;
}

bool ReadCurveKeys(TextReader& in, RetargetModel& model) {
  // Files that end with their poses carry no records.
  if (!in.Tokens().HasMoreTokens()) return true;
  int64_t records = 0;
  // The writer gives at most one record per node and one per plane.
  if (!in.Integer("the number of curve key records", 0,
                  std::min<int64_t>(model.NumNodes() + model.NumPlanes(), in.Room(2)), &records)) {
    return false;
  }
  int64_t keys_left = kMaxCurveKeys;
  for (int64_t r = 0; r < records; ++r) {
    CurveKeyRecord record;
    if (!in.Word("the name of curve key record " + std::to_string(r), &record.node_name)) {
      return false;
    }
    while (true) {
      const int channel = ChannelIndex(in.Tokens().ReadWord());
      if (channel < 0) {
        // The word belongs to the next record.
        in.Tokens().Unread();
        break;
      }
      int64_t count = 0;
      if (!in.Integer("a key count", 0, std::min(keys_left, in.Room(2)), &count)) return false;
      keys_left -= count;
      std::vector<double>& times = record.channels[static_cast<size_t>(channel)];
      times.resize(static_cast<size_t>(count));
      for (double& time : times) {
        if (!in.Number("a key time", &time)) return false;
      }
    }
    model.curves.push_back(std::move(record));
  }
  return true;
}

bool ReadMotion(TextReader& in, KavorMotion& out) {
  int64_t frames = 0;
  double leg_length = 0.0;
  double hip_offset = 0.0;
  int64_t nodes = 0;
  int64_t planes = 0;
  std::string type;
  if (!in.Integer("the frame count", 0, kMaxMotionFrames, &frames) ||
      !in.Number("the leg length", &leg_length) || !in.Number("the hip offset", &hip_offset) ||
      !in.Integer("the node count", 1, kMaxStructureNodes, &nodes) ||
      !in.Integer("the plane count", 0, kMaxStructureNodes, &planes) ||
      !in.Word("the structure type", &type)) {
    return false;
  }
  KavorMotion motion =
      MakeKavorMotion(static_cast<int32_t>(nodes), static_cast<int32_t>(planes), std::move(type));
  motion.model->leg_length = leg_length;
  motion.model->hip_offset = hip_offset;
  if (!ReadNodes(in, motion) || !ReadPlanes(in, *motion.structure) ||
      !ReadPoses(in, frames, *motion.model) || !ReadCurveKeys(in, *motion.model)) {
    return false;
  }
  out = std::move(motion);
  return true;
}

}  // namespace

bool ParseKavorText(KavorMotion& motion, std::string_view text) {
  if (text.empty()) return false;
  if (text.starts_with(kUtf8ByteOrderMark)) text.remove_prefix(kUtf8ByteOrderMark.size());
  TextReader in(text);
  const std::string_view first = in.Tokens().ReadWord();
  if (first != kTextFormatWord) {
    LogInfo(ToWide(first.substr(0, kQuotedLength)));
    LogWarning(kCannotParse);
    return false;
  }
  if (!ReadMotion(in, motion)) {
    LogInfo(ToWide(in.Problem()));
    LogWarning(kCannotParse);
    return false;
  }
  return true;
}

bool ReadKavorText(KavorMotion& motion, const KRX::CString& path) {
  const FileBuffer buffer = ReadWholeFile(path);
  return ParseKavorText(motion, buffer.Text());
}

}  // namespace kavor

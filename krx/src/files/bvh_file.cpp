#include "files/bvh_file.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

namespace KRX::rt::files {

namespace {

// Words of the text with the line each starts on.
class Words {
 public:
  explicit Words(std::string_view text) : text_(text) {}

  // The next word, or empty at the end of the text.
  std::string_view Next() {
    Skip();
    const size_t start = pos_;
    while (pos_ < text_.size() && !IsBlank(text_[pos_])) ++pos_;
    return text_.substr(start, pos_ - start);
  }
  // The rest of the current line after the blanks (for names with blanks and headers).
  std::string_view RestOfLine() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) ++pos_;
    const size_t start = pos_;
    while (pos_ < text_.size() && text_[pos_] != '\n' && text_[pos_] != '\r') ++pos_;
    return text_.substr(start, pos_ - start);
  }
  int line() const { return line_; }
  size_t BytesLeft() const { return text_.size() - pos_; }
  bool AtEnd() {
    Skip();
    return pos_ >= text_.size();
  }

 private:
  static bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
  }
  void Skip() {
    while (pos_ < text_.size() && IsBlank(text_[pos_])) {
      if (text_[pos_] == '\n') ++line_;
      ++pos_;
    }
  }
  std::string_view text_;
  size_t pos_ = 0;
  int line_ = 1;
};

bool ParseNumber(std::string_view word, double* out) {
  if (word.empty()) return false;
  const char* begin = word.data();
  if (*begin == '+') ++begin;
  const auto [end, ec] = std::from_chars(begin, word.data() + word.size(), *out);
  return ec == std::errc() && end == word.data() + word.size() && std::isfinite(*out);
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

constexpr std::string_view kChannelNames[] = {"Xposition", "Yposition", "Zposition",
                                              "Xrotation", "Yrotation", "Zrotation"};

std::optional<BvhChannel> ChannelOf(std::string_view word) {
  for (size_t i = 0; i < 6; ++i) {
    if (EqualsNoCase(word, kChannelNames[i])) return static_cast<BvhChannel>(i);
  }
  return std::nullopt;
}

std::string ChannelName(BvhChannel channel) {
  return std::string(kChannelNames[static_cast<size_t>(channel)]);
}

struct Parser {
  Words words;
  std::string* error;
  BvhFile file;
  bool brace_read = false;  // the "{" of the next joint stood on its name line

  bool Fail(const std::string& what) {
    *error = "line " + std::to_string(words.line()) + ": " + what;
    return false;
  }

  bool ReadVector(MATH::CVector3* v) {
    double xyz[3];
    for (double& c : xyz) {
      const std::string_view word = words.Next();
      if (!ParseNumber(word, &c))
        return Fail("expected a number, found '" + std::string(word.substr(0, 40)) + "'");
    }
    v->Set(xyz[0], xyz[1], xyz[2]);
    return true;
  }

  bool Expect(std::string_view wanted) {
    const std::string_view word = words.Next();
    if (word == wanted) return true;
    return Fail("expected '" + std::string(wanted) + "', found '" +
                std::string(word.substr(0, 40)) + "'");
  }

  // The block of a joint after its name: "{ OFFSET ... CHANNELS ... children }".
  bool ReadJoint(int parent, std::string name, int depth) {
    if (depth > 1000) return Fail("the hierarchy is nested too deeply");
    if (file.joints.size() >= kMaxBvhJoints)
      return Fail("more than " + std::to_string(kMaxBvhJoints) + " joints");
    if (name.empty()) return Fail("a joint without a name");
    if (name.size() > kMaxBvhNameLength) {
      return Fail("the joint name '" + name.substr(0, 40) + "...' is longer than " +
                  std::to_string(kMaxBvhNameLength) + " characters");
    }
    if (brace_read) {
      brace_read = false;
    } else if (!Expect("{")) {
      return false;
    }
    const int index = static_cast<int>(file.joints.size());
    file.joints.push_back({});
    file.joints.back().name = std::move(name);
    file.joints.back().parent = parent;
    bool has_offset = false;
    while (true) {
      const std::string_view word = words.Next();
      if (word.empty())
        return Fail("the hierarchy ends inside joint '" +
                    file.joints[static_cast<size_t>(index)].name + "'");
      if (word == "}") break;
      if (EqualsNoCase(word, "OFFSET")) {
        if (!ReadVector(&file.joints[static_cast<size_t>(index)].offset)) return false;
        has_offset = true;
      } else if (EqualsNoCase(word, "CHANNELS")) {
        double count = 0.0;
        const std::string_view count_word = words.Next();
        if (!ParseNumber(count_word, &count) || count < 0 || count > 6 ||
            count != std::floor(count)) {
          return Fail("a joint has 0 to 6 channels, found '" +
                      std::string(count_word.substr(0, 40)) + "'");
        }
        BvhJoint& joint = file.joints[static_cast<size_t>(index)];
        joint.channels.clear();
        joint.first_channel = file.channel_count;
        unsigned listed = 0;  // bit per channel
        for (int i = 0; i < static_cast<int>(count); ++i) {
          const std::string_view channel_word = words.Next();
          const std::optional<BvhChannel> channel = ChannelOf(channel_word);
          if (!channel)
            return Fail("unknown channel '" + std::string(channel_word.substr(0, 40)) + "'");
          // Two columns would drive one parameter, and the rotation order would be ambiguous.
          const unsigned bit = 1u << static_cast<unsigned>(*channel);
          if (listed & bit) {
            return Fail("joint '" + joint.name + "' lists the channel " + ChannelName(*channel) +
                        " twice");
          }
          listed |= bit;
          joint.channels.push_back(*channel);
        }
        file.channel_count += joint.channels.size();
      } else if (EqualsNoCase(word, "JOINT")) {
        if (!ReadJoint(index, JointName(), depth + 1)) return false;
      } else if (EqualsNoCase(word, "End")) {
        if (!Expect("Site") || !Expect("{") || !Expect("OFFSET")) return false;
        BvhJoint& joint = file.joints[static_cast<size_t>(index)];
        if (!ReadVector(&joint.end_offset) || !Expect("}")) return false;
        joint.has_end_site = true;
      } else {
        return Fail("unexpected '" + std::string(word.substr(0, 40)) + "' in joint '" +
                    file.joints[static_cast<size_t>(index)].name + "'");
      }
    }
    if (!has_offset)
      return Fail("joint '" + file.joints[static_cast<size_t>(index)].name + "' has no OFFSET");
    return true;
  }

  // The words of a joint name up to the end of its line, joined with "_".
  std::string JointName() {
    std::string_view rest = words.RestOfLine();
    std::string name;
    size_t i = 0;
    while (i < rest.size()) {
      while (i < rest.size() && (rest[i] == ' ' || rest[i] == '\t')) ++i;
      const size_t start = i;
      while (i < rest.size() && rest[i] != ' ' && rest[i] != '\t') ++i;
      const std::string_view word = rest.substr(start, i - start);
      if (word == "{") brace_read = true;
      if (word.empty() || word == "{") continue;
      if (!name.empty()) name += "_";
      name += word;
    }
    return name;
  }

  bool ReadMotion() {
    if (!Expect("MOTION") || !Expect("Frames:")) return false;
    double frames = 0.0;
    const std::string_view frames_word = words.Next();
    if (!ParseNumber(frames_word, &frames) || frames < 0 || frames != std::floor(frames) ||
        frames > 1e9) {
      return Fail("bad frame count '" + std::string(frames_word.substr(0, 40)) + "'");
    }
    if (!Expect("Frame") || !Expect("Time:")) return false;
    const std::string_view time_word = words.Next();
    if (!ParseNumber(time_word, &file.frame_time)) {
      return Fail("bad frame time '" + std::string(time_word.substr(0, 40)) + "'");
    }
    // The rate (1 / frame time) must be a finite number of at least one frame per second.
    if (!(file.frame_time > 0.0) || file.frame_time > kMaxBvhFrameTime ||
        !std::isfinite(1.0 / file.frame_time)) {
      return Fail(
          "bad frame time '" + std::string(time_word.substr(0, 40)) +
          "': it must be above 0 and at most 1 second (a rate of at least 1 frame per second)");
    }
    file.announced_frames = static_cast<size_t>(frames);
    if (file.channel_count > 0 && file.announced_frames > kMaxBvhValues / file.channel_count) {
      return Fail("the motion is too large (" + std::to_string(file.announced_frames) + " frames)");
    }
    file.columns.assign(file.channel_count, {});
    if (file.channel_count == 0) {
      file.frame_count = file.announced_frames;
      return true;
    }
    // Every complete frame present counts, whatever the header announced. A number takes
    // at least two bytes with its separator, so the text left bounds the reservation: a
    // short file announcing a huge take allocates nothing it cannot fill.
    const size_t reserved =
        std::min(file.announced_frames, words.BytesLeft() / (2 * file.channel_count) + 1);
    for (std::vector<double>& column : file.columns) column.reserve(reserved);
    size_t count = 0;
    size_t column = 0;
    while (true) {
      const std::string_view word = words.Next();
      if (word.empty()) break;
      if (count >= kMaxBvhValues) return Fail("the motion is too large");
      double value = 0.0;
      if (!ParseNumber(word, &value))
        return Fail("expected a number, found '" + std::string(word.substr(0, 40)) + "'");
      file.columns[column].push_back(value);
      ++count;
      if (++column == file.channel_count) column = 0;
    }
    file.frame_count = count / file.channel_count;
    for (std::vector<double>& values : file.columns) {
      values.resize(file.frame_count);  // a last frame cut short is dropped
      // Columns that grew past the reservation (more frames than announced) give back
      // their slack, one at a time.
      if (values.capacity() > values.size()) values.shrink_to_fit();
    }
    return true;
  }
};

}  // namespace

std::optional<BvhFile> ParseBvh(std::string_view text, std::string* error) {
  Parser parser{Words(text), error, {}};
  if (!parser.Expect("HIERARCHY")) return std::nullopt;
  const std::string_view root = parser.words.Next();
  if (!EqualsNoCase(root, "ROOT")) {
    parser.Fail("expected 'ROOT', found '" + std::string(root.substr(0, 40)) + "'");
    return std::nullopt;
  }
  if (!parser.ReadJoint(-1, parser.JointName(), 0)) return std::nullopt;
  // Further roots are allowed.
  while (true) {
    Words probe = parser.words;
    if (!EqualsNoCase(probe.Next(), "ROOT")) break;
    parser.words.Next();
    if (!parser.ReadJoint(-1, parser.JointName(), 0)) return std::nullopt;
  }
  if (!parser.ReadMotion()) return std::nullopt;
  return std::move(parser.file);
}

}  // namespace KRX::rt::files

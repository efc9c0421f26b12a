// Reading an XML motion file as a stream: the motion is filled as the elements arrive, so
// that no tree of the document is ever built.
//
// The reader gives the same result and the same messages, in the same order, as reading
// the sections from a tree in the order HEADER, NODES, PLANES, POSE_VALUES, FCURVE_KEYS,
// whatever order the file holds them in. Errors are kept per section and put together in
// that order at the end. Counts that are only known once a section ends (how many POSE
// elements, records, keys or bones really follow) decide at its end which of the errors
// collected inside it stand. A file whose sections are out of that order is read again,
// one section per pass, so that every section sees the errors of the ones before it.
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <xercesc/sax2/Attributes.hpp>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/io/progress_bar.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/xml/parsed_tree.h"
#include "kavor/xml/xml_errors.h"
#include "kavor/xml/xml_stream_reader.h"
#include "kavor/xml/xml_text.h"
#include "kavor/xml/xml_values.h"

namespace kavor {
namespace {

using KRX::CString;
using xercesc::Attributes;

// Past this many collected errors the rest of the poses and keys is not read: the report
// stays readable, and a damaged file cannot make it grow without bound.
constexpr size_t kMaxCollectedErrors = 100;
// Values quoted in messages are cut to this many characters.
constexpr size_t kQuotedValueLength = 40;

// The sections below the document element, in the order they are read.
enum Section { kHeader, kNodes, kPlanes, kPoses, kCurves, kSectionCount };
constexpr std::array<std::u16string_view, kSectionCount> kSectionNames = {
    u"HEADER", u"NODES", u"PLANES", u"POSE_VALUES", u"FCURVE_KEYS"};
// The HEADER elements read.
constexpr std::array<std::u16string_view, 7> kHeaderFields = {
    u"VERSION",   u"numNodes",  u"AnimationLength", u"legLength",
    u"hipOffset", u"numPlanes", u"structure_type"};
enum HeaderField { kVersion, kNumNodes, kFrames, kLegLength, kHipOffset, kNumPlanes, kType };

using Errors = std::vector<CString>;

CString Text(std::u16string_view text) { return FromXmlText(std::u16string(text).c_str()); }

CString Quoted(const CString& text) {
  if (text.Length() <= kQuotedValueLength) return L"\"" + text + L"\"";
  return L"\"" + text.GetSubString(0, kQuotedValueLength) + L"...\"";
}

// 8-bit text of a value for the number readers; characters beyond ASCII can be part of no
// number and become '?'.
std::string Ascii(const XMLCh* text) {
  std::string out;
  for (const XMLCh* p = text; *p != 0; ++p) out.push_back(*p < 0x80 ? static_cast<char>(*p) : '?');
  return out;
}

// One element as the messages name it, and its attributes.
struct Element {
  std::u16string_view name;
  const Attributes& attributes;
};

CString AttributeLabel(std::u16string_view element_name, const wchar_t* name) {
  return CString(L"Atribute : <") + name + L"> under : " + Text(element_name);
}

// The value of an attribute; null (collecting why) when the element has none of that name.
const XMLCh* FindAttribute(Errors& errors, const Element& element, const char16_t* name,
                           const wchar_t* wide_name) {
  const XMLCh* value = element.attributes.getValue(name);
  if (value == nullptr) {
    errors.push_back(CString(L"Atribute : <") + wide_name + L"> not found under : " +
                     Text(element.name));
  }
  return value;
}

// A whole number in [low, high] from text. Collects why it is not one.
bool ParseInteger(Errors& errors, const CString& text, const CString& what, int64_t low,
                  int64_t high, int64_t* out) {
  double value = 0.0;
  if (!ParseNumberText(text, &value) || value != std::trunc(value)) {
    errors.push_back(what + L" is not a whole number: " + Quoted(text));
    return false;
  }
  // The bounds are well inside the range where doubles hold whole numbers exactly.
  if (value < static_cast<double>(low) || value > static_cast<double>(high)) {
    errors.push_back(what + L" is " + Quoted(text) + L", outside " + CountText(low) + L" .. " +
                     CountText(high));
    return false;
  }
  *out = static_cast<int64_t>(value);
  return true;
}

bool ReadIntegerAttribute(Errors& errors, const Element& element, const char16_t* name,
                          const wchar_t* wide_name, int64_t low, int64_t high, int64_t* out) {
  const XMLCh* value = FindAttribute(errors, element, name, wide_name);
  if (value == nullptr) return false;
  return ParseInteger(errors, FromXmlText(value), AttributeLabel(element.name, wide_name), low,
                      high, out);
}

bool ReadNumberAttribute(Errors& errors, const Element& element, const char16_t* name,
                         const wchar_t* wide_name, double* out) {
  const XMLCh* value = FindAttribute(errors, element, name, wide_name);
  if (value == nullptr) return false;
  if (ParseNumberAscii(Ascii(value), out)) return true;
  errors.push_back(AttributeLabel(element.name, wide_name) + L" is not a number: " +
                   Quoted(FromXmlText(value)));
  return false;
}

// A node index: -1 (none) or a node of the table.
int32_t ReadIndexAttribute(Errors& errors, const Element& element, const char16_t* name,
                           const wchar_t* wide_name, int32_t node_count) {
  int64_t index = -1;
  ReadIntegerAttribute(errors, element, name, wide_name, -1, node_count - 1, &index);
  return static_cast<int32_t>(index);
}

// The text of an element as the tree holds it: the value of its first child node when
// that is text or a CDATA section, once the layout next to child elements is dropped.
// Only the first two child nodes matter (a first text of blanks only goes).
class ChildText {
 public:
  void Characters(std::u16string_view text, bool cdata) {
    if (!cdata && last_ != Kind::kText) Begin(Kind::kText);
    if (nodes_ <= 2) values_[nodes_ - 1].append(text);
  }
  void OtherNode(bool cdata_section) { Begin(cdata_section ? Kind::kCData : Kind::kOther); }
  void ChildElement() {
    Begin(Kind::kOther);
    has_element_child_ = true;
  }
  // False when the element holds no text; otherwise sets `out`.
  bool Value(CString* out) const {
    if (kinds_[0] == Kind::kText && has_element_child_) {
      const std::u16string kept = TextWithoutLayout(values_[0]);
      if (!kept.empty()) {
        *out = FromXmlText(kept.c_str());
        return true;
      }
      if (kinds_[1] != Kind::kCData) return false;
      *out = FromXmlText(values_[1].c_str());
      return true;
    }
    if (kinds_[0] != Kind::kText && kinds_[0] != Kind::kCData) return false;
    *out = FromXmlText(values_[0].c_str());
    return true;
  }

 private:
  enum class Kind { kNone, kText, kCData, kOther };
  void Begin(Kind kind) {
    last_ = kind;
    if (nodes_ < 2) kinds_[nodes_] = kind;
    ++nodes_;
  }
  std::array<Kind, 2> kinds_{Kind::kNone, Kind::kNone};
  std::array<std::u16string, 2> values_;
  Kind last_ = Kind::kNone;
  size_t nodes_ = 0;
  bool has_element_child_ = false;
};

struct Header {
  int64_t frames = 0;
  double leg_length = 0.0;
  double hip_offset = 0.0;
  int64_t nodes = 0;
  int64_t planes = 0;
  CString type;
};

// Where the running count of errors in a section passed the limit, and how many errors
// the section held then.
struct Cut {
  int64_t item = 0;
  size_t errors = 0;
};

// Watches the error limit over the items of a section. The section's first error, telling
// that the count it announced is more than the items that follow, is only known at its end;
// the cut is therefore also kept as it would fall with that error counted.
struct ErrorLimit {
  size_t before = 0;  // errors of the sections read earlier
  std::optional<Cut> cut;
  std::optional<Cut> cut_with_count_error;

  // After item `item`; true when reading stops here.
  bool Passed(int64_t item, size_t section_errors) {
    const size_t total = before + section_errors;
    if (!cut_with_count_error && total + 1 >= kMaxCollectedErrors) {
      cut_with_count_error = Cut{item, section_errors};
    }
    if (!cut && total >= kMaxCollectedErrors) cut = Cut{item, section_errors};
    return cut.has_value();
  }
  // The cut that stands, given whether the count error is there.
  const std::optional<Cut>& Standing(bool count_error) const {
    return count_error ? cut_with_count_error : cut;
  }
};

class MotionReader final : public XmlStreamEvents {
 public:
  // Reads the sections as they come. After a pass that met them out of order, each
  // section is read again in a pass of its own (SectionsToReread, ReadOnly).
  void StartElement(std::u16string_view name, const Attributes& attributes, int depth) override;
  void EndElement(int depth) override;
  void Characters(std::u16string_view text, bool cdata) override;
  void OtherNode(bool cdata_section) override;

  // True when the sections are to be read again (StartRereading): they came out of order,
  // or POSE_VALUES announced more than the bounds allow and only its count was read.
  bool OutOfOrder() const { return out_of_order_; }
  // Drops what was read of the sections after HEADER and gives those the file holds, to be
  // read again in passes of their own, in order; none when HEADER did not read.
  std::vector<Section> StartRereading();
  // Starts a pass that reads only `section`.
  void ReadOnly(Section section) { only_ = section; }
  // Adds the errors of what was missing; true when the motion was read.
  bool Finish();
  Errors TakeErrors();
  KavorMotion TakeMotion() { return std::move(motion_); }

 private:
  bool CanRead(Section section);
  void StartSection(Section section, const Element& element);
  void EndSection();
  void ReadHeader();
  void StartNode(const Element& element);
  void StartPlane(const Element& element);
  void StartBone(const Element& element);
  void EndPlane();
  void StartPoses();
  void StartPose();
  void StartPoseNode(const Element& element);
  void EndPose();
  void EndPoses();
  void StartCurves(const Element& element);
  void StartRecord(const Element& element);
  void StartCurve(const Element& element);
  void StartKey(const Element& element);
  void EndCurve();
  void EndRecord();
  void EndCurves();
  size_t ErrorsBefore(Section section) const;
  // Collects the errors of sections before `section` that the file does not hold.
  void ReportMissingBefore(Section section);
  void NewMotion();

  std::u16string root_name_;
  int depth_ = 0;
  std::array<bool, kSectionCount> seen_{};  // in this pass
  std::array<bool, kSectionCount> met_{};   // in the file
  std::array<bool, kSectionCount> read_{};
  std::array<bool, kSectionCount> missing_reported_{};
  int last_met_ = -1;
  bool out_of_order_ = false;
  std::optional<Section> only_;
  std::optional<Section> active_;
  std::array<Errors, kSectionCount> errors_;

  // HEADER
  std::array<std::optional<ChildText>, kHeaderFields.size()> fields_;
  int tracked_field_ = -1;
  Header header_;
  bool header_ok_ = false;
  KavorMotion motion_;

  // NODES and PLANES
  int32_t items_ = 0;
  bool in_plane_ = false;
  int64_t bones_ = 0;
  int64_t bones_seen_ = 0;
  Errors item_errors_;  // errors of the children of a PLANE or a CURVE
  std::u16string item_name_;

  // POSE_VALUES
  int64_t frames_ = 0;
  int64_t poses_seen_ = 0;
  bool in_pose_ = false;
  int64_t pose_nodes_seen_ = 0;
  // Only the POSE elements are counted: the announced count is beyond the bounds, and
  // until their number is known, reading them could take more than the bounds allow.
  bool count_only_ = false;
  std::optional<int64_t> known_present_;
  bool poses_failed_ = false;
  ErrorLimit limit_;
  std::unique_ptr<ScopedProgressBar> progress_;

  // FCURVE_KEYS
  bool curves_ok_ = false;
  int64_t records_ = 0;
  int64_t records_seen_ = 0;
  int64_t keys_left_ = kMaxCurveKeys;
  bool in_record_ = false;
  CurveKeyRecord record_;
  bool in_curve_ = false;
  std::vector<double>* channel_ = nullptr;
  int64_t keys_ = 0;
  int64_t keys_seen_ = 0;
  std::u16string curve_name_;
};

// ---- routing ----

bool MotionReader::CanRead(Section section) {
  if (only_) return section == *only_;
  if (section == kHeader) return true;
  // Read now only when every section met so far comes before it and HEADER is read.
  const bool in_order = static_cast<int>(section) > last_met_ && read_[kHeader];
  if (!in_order) out_of_order_ = true;
  return in_order && header_ok_;
}

void MotionReader::StartElement(std::u16string_view name, const Attributes& attributes, int depth) {
  depth_ = depth;
  const Element element{name, attributes};
  if (depth == 1) {
    root_name_ = name;
    seen_ = {};
    return;
  }
  if (depth == 2) {
    for (int s = 0; s < kSectionCount; ++s) {
      const auto section = static_cast<Section>(s);
      // Only the first element of a section's name is the section.
      if (name != kSectionNames[section] || seen_[section]) continue;
      seen_[section] = true;
      met_[section] = true;
      const bool read = CanRead(section);
      if (!only_) last_met_ = std::max(last_met_, s);
      if (read) StartSection(section, element);
    }
    return;
  }
  if (!active_) return;
  switch (*active_) {
    case kHeader:
      if (depth == 3) {
        for (size_t f = 0; f < kHeaderFields.size(); ++f) {
          if (name == kHeaderFields[f] && !fields_[f]) {
            fields_[f].emplace();
            tracked_field_ = static_cast<int>(f);
            return;
          }
        }
        tracked_field_ = -1;
      } else if (depth == 4 && tracked_field_ >= 0) {
        fields_[static_cast<size_t>(tracked_field_)]->ChildElement();
      }
      break;
    case kNodes:
      if (depth == 3) StartNode(element);
      break;
    case kPlanes:
      if (depth == 3) StartPlane(element);
      if (depth == 4) StartBone(element);
      break;
    case kPoses:
      if (depth == 3) StartPose();
      if (depth == 4) StartPoseNode(element);
      break;
    case kCurves:
      if (depth == 3) StartRecord(element);
      if (depth == 4) StartCurve(element);
      if (depth == 5) StartKey(element);
      break;
    default:
      break;
  }
}

void MotionReader::EndElement(int depth) {
  depth_ = depth - 1;
  if (!active_ || depth > 4) return;
  if (depth == 2) {
    EndSection();
  } else if (depth == 3) {
    if (*active_ == kHeader) tracked_field_ = -1;
    if (*active_ == kPlanes) EndPlane();
    if (*active_ == kPoses) EndPose();
    if (*active_ == kCurves) EndRecord();
  } else if (*active_ == kCurves) {
    EndCurve();
  }
}

void MotionReader::Characters(std::u16string_view text, bool cdata) {
  if (active_ == kHeader && depth_ == 3 && tracked_field_ >= 0) {
    fields_[static_cast<size_t>(tracked_field_)]->Characters(text, cdata);
  }
}

void MotionReader::OtherNode(bool cdata_section) {
  if (active_ == kHeader && depth_ == 3 && tracked_field_ >= 0) {
    fields_[static_cast<size_t>(tracked_field_)]->OtherNode(cdata_section);
  }
}

void MotionReader::StartSection(Section section, const Element& element) {
  ReportMissingBefore(section);
  active_ = section;
  read_[section] = true;
  items_ = 0;
  if (section == kPoses) StartPoses();
  if (section == kCurves) StartCurves(element);
}

void MotionReader::EndSection() {
  if (*active_ == kHeader) ReadHeader();
  if (*active_ == kPoses) EndPoses();
  if (*active_ == kCurves) EndCurves();
  if (*active_ == kNodes && items_ < motion_.structure->NumNodes()) {
    errors_[kNodes].push_back(L"NODES holds " + CountText(items_) +
                              L" NODE elements for numNodes " +
                              CountText(motion_.structure->NumNodes()));
  }
  if (*active_ == kPlanes && items_ < motion_.structure->NumPlanes()) {
    errors_[kPlanes].push_back(L"PLANES holds " + CountText(items_) +
                               L" PLANE elements for numPlanes " +
                               CountText(motion_.structure->NumPlanes()));
  }
  active_.reset();
}

size_t MotionReader::ErrorsBefore(Section section) const {
  size_t count = 0;
  for (int s = 0; s < section; ++s) count += errors_[static_cast<size_t>(s)].size();
  return count;
}

// ---- HEADER ----

// A count outside its bounds leaves nothing sensible to read.
bool CheckCount(Errors& errors, const wchar_t* name, int64_t value, int64_t low, int64_t high) {
  if (value >= low && value <= high) return true;
  errors.push_back(CString(name) + L" " + CountText(value) + L" is outside " + CountText(low) +
                   L" .. " + CountText(high) + L": the motion is not read");
  return false;
}

void MotionReader::ReadHeader() {
  Errors& errors = errors_[kHeader];
  // Like reading child text from the tree: a missing element is an error, one without text
  // leaves the value as it was.
  const auto read_text = [&](HeaderField field, CString* out) {
    const auto& text = fields_[field];
    if (!text) {
      errors.push_back(L"DOMElement : <" + Text(kHeaderFields[field]) + L"> not found under : " +
                       L"HEADER");
      return false;
    }
    text->Value(out);
    return true;
  };
  const auto label = [](HeaderField field) {
    return L"DOMElement : <" + Text(kHeaderFields[field]) + L"> under : HEADER";
  };
  const auto read_integer = [&](HeaderField field, int64_t* out) {
    CString text;
    if (read_text(field, &text))
      ParseInteger(errors, text, label(field), INT32_MIN, INT32_MAX, out);
  };
  const auto read_number = [&](HeaderField field, double* out) {
    CString text;
    if (!read_text(field, &text)) return;
    if (!ParseNumberText(text, out)) {
      errors.push_back(label(field) + L" is not a number: " + Quoted(text));
    }
  };
  CString version;
  read_text(kVersion, &version);
  read_integer(kFrames, &header_.frames);
  read_number(kLegLength, &header_.leg_length);
  read_number(kHipOffset, &header_.hip_offset);
  read_integer(kNumNodes, &header_.nodes);
  read_integer(kNumPlanes, &header_.planes);
  read_text(kType, &header_.type);
  fields_ = {};
  header_ok_ = CheckCount(errors, L"numNodes", header_.nodes, 1, kMaxStructureNodes) &&
               CheckCount(errors, L"numPlanes", header_.planes, 0, kMaxStructureNodes) &&
               CheckCount(errors, L"AnimationLength", header_.frames, 0, kMaxMotionFrames);
  if (header_ok_) NewMotion();
}

void MotionReader::NewMotion() {
  motion_ = MakeKavorMotion(static_cast<int32_t>(header_.nodes),
                            static_cast<int32_t>(header_.planes), ToNarrow(header_.type));
  motion_.model->leg_length = header_.leg_length;
  motion_.model->hip_offset = header_.hip_offset;
}

// ---- NODES and PLANES ----

void MotionReader::StartNode(const Element& element) {
  ModelStructure& structure = *motion_.structure;
  if (items_ >= structure.NumNodes() || element.name != u"NODE") return;
  Errors& errors = errors_[kNodes];
  StructureNode& node = structure.nodes[static_cast<size_t>(items_)];
  if (const XMLCh* valid = FindAttribute(errors, element, u"obj_IsValid", L"obj_IsValid")) {
    node.obj_is_valid = KRX::CValue(FromXmlText(valid)).GetBool();
  }
  if (const XMLCh* name = FindAttribute(errors, element, u"name", L"name")) {
    node.name = ToNarrow(FromXmlText(name));
  }
  ReadNumberAttribute(errors, element, u"length", L"length", &motion_.model->Node(items_).length);
  ++items_;
}

void MotionReader::StartPlane(const Element& element) {
  in_plane_ = false;
  ModelStructure& structure = *motion_.structure;
  if (items_ >= structure.NumPlanes() || element.name != u"PLANE") return;
  Errors& errors = errors_[kPlanes];
  const int32_t node_count = structure.NumNodes();
  StructurePlane& plane = structure.planes[static_cast<size_t>(items_++)];
  if (const XMLCh* name = FindAttribute(errors, element, u"name", L"name")) {
    plane.name = ToNarrow(FromXmlText(name));
  }
  plane.span = ReadIndexAttribute(errors, element, u"span", L"span", node_count);
  plane.mid = ReadIndexAttribute(errors, element, u"mid", L"mid", node_count);
  plane.anchor_index =
      ReadIndexAttribute(errors, element, u"anchor_index", L"anchor_index", node_count);
  // A chain holds each node at most once.
  if (!ReadIntegerAttribute(errors, element, u"numbones", L"numbones", 0, node_count, &bones_)) {
    return;
  }
  in_plane_ = true;
  bones_seen_ = 0;
  item_name_ = element.name;
  item_errors_.clear();
}

void MotionReader::StartBone(const Element& element) {
  if (!in_plane_ || bones_seen_++ >= bones_) return;
  StructurePlane& plane = motion_.structure->planes[static_cast<size_t>(items_ - 1)];
  plane.chain.push_back(ReadIndexAttribute(item_errors_, element, u"boneindex", L"boneindex",
                                           motion_.structure->NumNodes()));
}

void MotionReader::EndPlane() {
  if (!in_plane_) return;
  in_plane_ = false;
  Errors& errors = errors_[kPlanes];
  if (bones_ > bones_seen_) {
    errors.push_back(AttributeLabel(item_name_, L"numbones") + L" is " + CountText(bones_) +
                     L" but only " + CountText(bones_seen_) + L" bones follow");
  }
  errors.insert(errors.end(), item_errors_.begin(), item_errors_.end());
}

// ---- POSE_VALUES ----

void MotionReader::StartPoses() {
  frames_ = header_.frames;
  poses_seen_ = 0;
  limit_ = ErrorLimit{ErrorsBefore(kPoses), std::nullopt, std::nullopt};
  RetargetModel& model = *motion_.model;
  model.poses.clear();
  const int64_t frames = known_present_ ? std::min(frames_, *known_present_) : frames_;
  count_only_ = frames * model.NumNodes() > kMaxMotionPoses;
  if (count_only_) return;
  model.poses.reserve(static_cast<size_t>(frames * model.NumNodes()));
  progress_ =
      std::make_unique<ScopedProgressBar>(L"Parsing Kavor File ...", static_cast<int>(frames));
}

void MotionReader::StartPose() {
  in_pose_ = false;
  const int64_t frame = poses_seen_++;
  if (frame >= frames_ || count_only_) return;
  RetargetModel& model = *motion_.model;
  model.poses.resize(static_cast<size_t>((frame + 1) * model.NumNodes()));
  if (limit_.cut) return;
  progress_->Increment();
  in_pose_ = true;
  pose_nodes_seen_ = 0;
}

void MotionReader::StartPoseNode(const Element& element) {
  if (!in_pose_) return;
  RetargetModel& model = *motion_.model;
  const int64_t node = pose_nodes_seen_++;
  if (node >= model.NumNodes()) return;
  Errors& errors = errors_[kPoses];
  const XMLCh* value = FindAttribute(errors, element, u"global", L"global");
  if (value == nullptr) return;
  KRX::MATH::CTransformation& pose =
      model.poses[static_cast<size_t>((poses_seen_ - 1) * model.NumNodes() + node)];
  if (!ParseTransformAscii(Ascii(value), &pose)) {
    errors.push_back(L"Error reading CTransformation Attribute : <global> not found under : " +
                     Text(element.name));
  }
}

void MotionReader::EndPose() {
  if (!in_pose_) return;
  in_pose_ = false;
  Errors& errors = errors_[kPoses];
  const int64_t nodes = motion_.model->NumNodes();
  if (pose_nodes_seen_ < nodes) {
    errors.push_back(L"POSE " + CountText(poses_seen_ - 1) + L" holds " +
                     CountText(pose_nodes_seen_) + L" NODE elements for numNodes " +
                     CountText(nodes));
  }
  limit_.Passed(poses_seen_ - 1, errors.size());
}

void MotionReader::EndPoses() {
  progress_.reset();
  Errors& errors = errors_[kPoses];
  RetargetModel& model = *motion_.model;
  const int64_t nodes = model.NumNodes();
  const bool fewer = frames_ > poses_seen_;
  Errors front;
  if (fewer) {
    front.push_back(L"AnimationLength " + CountText(frames_) + L" is more than the " +
                    CountText(poses_seen_) + L" POSE elements present; those are read");
    frames_ = poses_seen_;
  }
  if (frames_ * nodes > kMaxMotionPoses) {
    front.push_back(CountText(frames_) + L" frames of " + CountText(nodes) +
                    L" nodes are more than a motion file may hold: the motion is not read");
    errors = std::move(front);
    poses_failed_ = true;
    return;
  }
  if (count_only_) {
    // They fit: read them in a pass that knows their number.
    known_present_ = poses_seen_;
    out_of_order_ = true;
    return;
  }
  if (const std::optional<Cut>& cut = limit_.Standing(fewer)) {
    errors.resize(cut->errors);
    for (size_t i = static_cast<size_t>((cut->item + 1) * nodes); i < model.poses.size(); ++i) {
      model.poses[i] = KRX::MATH::CTransformation();
    }
    errors.push_back(L"Too many errors: the rest of the poses was not read");
  }
  errors.insert(errors.begin(), front.begin(), front.end());
  model.frame_count = static_cast<int32_t>(frames_);
}

// ---- FCURVE_KEYS ----

void MotionReader::StartCurves(const Element& element) {
  RetargetModel& model = *motion_.model;
  model.curves.clear();
  records_seen_ = 0;
  keys_left_ = kMaxCurveKeys;
  limit_ = ErrorLimit{ErrorsBefore(kCurves), std::nullopt, std::nullopt};
  // The writer gives at most one record per node and one per plane.
  curves_ok_ = ReadIntegerAttribute(errors_[kCurves], element, u"num_nodes_with_fcurve_keys",
                                    L"num_nodes_with_fcurve_keys", 0,
                                    model.NumNodes() + model.NumPlanes(), &records_);
  item_name_ = element.name;
}

void MotionReader::StartRecord(const Element& element) {
  in_record_ = false;
  if (!curves_ok_ || records_seen_++ >= records_ || limit_.cut) return;
  in_record_ = true;
  record_ = CurveKeyRecord();
  if (const XMLCh* name = FindAttribute(errors_[kCurves], element, u"name", L"name")) {
    record_.node_name = ToNarrow(FromXmlText(name));
  }
}

void MotionReader::StartCurve(const Element& element) {
  in_curve_ = false;
  if (!in_record_) return;
  Errors& errors = errors_[kCurves];
  channel_ = nullptr;
  if (const XMLCh* name = FindAttribute(errors, element, u"name", L"name")) {
    const std::string narrow = ToNarrow(FromXmlText(name));
    for (size_t c = 0; c < kCurveChannelNames.size(); ++c) {
      if (narrow == kCurveChannelNames[c]) channel_ = &record_.channels[c];
    }
  }
  if (!ReadIntegerAttribute(errors, element, u"numkeys", L"numkeys", 0, keys_left_, &keys_)) return;
  keys_left_ -= keys_;
  in_curve_ = true;
  keys_seen_ = 0;
  curve_name_ = element.name;
  item_errors_.clear();
}

void MotionReader::StartKey(const Element& element) {
  if (!in_curve_ || keys_seen_++ >= keys_) return;
  double time = 0.0;
  if (ReadNumberAttribute(item_errors_, element, u"keytime", L"keytime", &time) &&
      channel_ != nullptr) {
    channel_->push_back(time);
  }
}

void MotionReader::EndCurve() {
  if (!in_curve_) return;
  in_curve_ = false;
  Errors& errors = errors_[kCurves];
  if (keys_ > keys_seen_) {
    errors.push_back(AttributeLabel(curve_name_, L"numkeys") + L" is " + CountText(keys_) +
                     L" but only " + CountText(keys_seen_) + L" keys follow");
  }
  errors.insert(errors.end(), item_errors_.begin(), item_errors_.end());
}

void MotionReader::EndRecord() {
  if (!in_record_) return;
  in_record_ = false;
  std::vector<CurveKeyRecord>& curves = motion_.model->curves;
  curves.push_back(std::move(record_));
  limit_.Passed(static_cast<int64_t>(curves.size()) - 1, errors_[kCurves].size());
}

void MotionReader::EndCurves() {
  if (!curves_ok_) return;
  Errors& errors = errors_[kCurves];
  const bool fewer = records_ > records_seen_;
  if (const std::optional<Cut>& cut = limit_.Standing(fewer)) {
    errors.resize(cut->errors);
    motion_.model->curves.resize(static_cast<size_t>(cut->item + 1));
    errors.push_back(L"Too many errors: the rest of the curve keys was not read");
  }
  if (fewer) {
    errors.insert(errors.begin(), AttributeLabel(item_name_, L"num_nodes_with_fcurve_keys") +
                                      L" is " + CountText(records_) + L" but only " +
                                      CountText(records_seen_) + L" records follow");
  }
}

// ---- passes and the end ----

std::vector<Section> MotionReader::StartRereading() {
  std::vector<Section> sections;
  if (!header_ok_) return sections;
  NewMotion();
  poses_failed_ = false;
  for (int s = kNodes; s < kSectionCount; ++s) {
    const auto section = static_cast<Section>(s);
    errors_[section].clear();
    read_[section] = false;
    missing_reported_[section] = false;
    if (met_[section]) sections.push_back(section);
  }
  return sections;
}

void MotionReader::ReportMissingBefore(Section section) {
  const CString root = Text(root_name_);
  for (int s = kNodes; s < section && s <= kPoses; ++s) {
    const auto missing = static_cast<Section>(s);
    if (met_[missing] || missing_reported_[missing]) continue;
    missing_reported_[missing] = true;
    errors_[missing].push_back(L"DOMElement : <" + Text(kSectionNames[missing]) +
                               L"> not found under : " + root);
    if (missing != kPoses) continue;
    if (header_.frames > 0) {
      errors_[kPoses].push_back(L"AnimationLength " + CountText(header_.frames) +
                                L" is more than the 0 POSE elements present; those are read");
    }
    ScopedProgressBar progress(L"Parsing Kavor File ...", 0);
    motion_.model->frame_count = 0;
    motion_.model->poses.clear();
  }
}

bool MotionReader::Finish() {
  if (!read_[kHeader]) {
    errors_ = {};
    errors_[kHeader].push_back(L"DOMElement : <HEADER> not found under : " + Text(root_name_));
    return false;
  }
  if (!header_ok_) return false;
  ReportMissingBefore(kSectionCount);
  if (poses_failed_) {
    errors_[kCurves].clear();
    return false;
  }
  return true;
}

Errors MotionReader::TakeErrors() {
  Errors all;
  for (Errors& errors : errors_) {
    for (CString& error : errors) all.push_back(std::move(error));
  }
  return all;
}

// Reads the input and shows the errors collected in one warning, as a document does when
// it closes. `motion` is replaced only on success.
bool ReadInput(KavorMotion& motion, const XmlStreamInput& input) {
  const auto show = [&](const Errors& errors) {
    if (!errors.empty()) ShowWarning(XmlErrorReport(input.Path(), errors));
  };
  MotionReader reader;
  Errors failure = input.Read(reader);
  if (failure.empty() && reader.OutOfOrder()) {
    for (const Section section : reader.StartRereading()) {
      reader.ReadOnly(section);
      failure = input.Read(reader);
      if (!failure.empty()) break;
    }
  }
  if (!failure.empty()) {
    show(failure);
    return false;
  }
  const bool read = reader.Finish();
  show(reader.TakeErrors());
  if (read) motion = reader.TakeMotion();
  return read;
}

}  // namespace

bool ReadKavorXml(KavorMotion& motion, const CString& path) {
  return ReadInput(motion, XmlStreamInput(path));
}

bool ParseKavorXml(KavorMotion& motion, const CString& path, std::string_view bytes) {
  return ReadInput(motion, XmlStreamInput(path, bytes));
}

}  // namespace kavor

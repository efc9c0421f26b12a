// Reading an XML motion file.
#include <climits>
#include <cmath>
#include <cstdint>
#include <string>
#include <xercesc/dom/DOMElement.hpp>

#include "kavor/host/host.h"
#include "kavor/io/progress_bar.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/xml/xml_document.h"
#include "kavor/xml/xml_values.h"

namespace kavor {
namespace {

using KRX::CString;

// Past this many collected errors the rest of the poses and keys is not read: the report
// stays readable, and a damaged file cannot make it grow without bound.
constexpr size_t kMaxCollectedErrors = 100;
// Values quoted in messages are cut to this many characters.
constexpr size_t kQuotedLength = 40;

CString CountText(int64_t value) { return CString(std::to_string(value)); }

CString Quoted(const CString& text) {
  if (text.Length() <= kQuotedLength) return L"\"" + text + L"\"";
  return L"\"" + text.GetSubString(0, kQuotedLength) + L"...\"";
}

// Walks child elements in order. Taking the n-th child by counting from the first each
// time would make reading quadratic in the number of frames.
XmlElement* FirstChildElement(const XmlElement* parent) {
  return parent == nullptr ? nullptr : parent->getFirstElementChild();
}
XmlElement* NextElement(const XmlElement* element) {
  return element == nullptr ? nullptr : element->getNextElementSibling();
}

bool TooManyErrors(XmlDocument& document, const wchar_t* what) {
  if (document.Errors().size() < kMaxCollectedErrors) return false;
  document.AddError(CString(L"Too many errors: the rest of ") + what + L" was not read");
  return true;
}

// A whole number in [low, high] from text. Collects why it is not one.
bool ParseInteger(XmlDocument& document, const CString& text, const CString& what, int64_t low,
                  int64_t high, int64_t* out) {
  double value = 0.0;
  if (!ParseNumberText(text, &value) || value != std::trunc(value)) {
    document.AddError(what + L" is not a whole number: " + Quoted(text));
    return false;
  }
  // The bounds are well inside the range where doubles hold whole numbers exactly.
  if (value < static_cast<double>(low) || value > static_cast<double>(high)) {
    document.AddError(what + L" is " + Quoted(text) + L", outside " + CountText(low) + L" .. " +
                      CountText(high));
    return false;
  }
  *out = static_cast<int64_t>(value);
  return true;
}

bool ParseNumber(XmlDocument& document, const CString& text, const CString& what, double* out) {
  if (ParseNumberText(text, out)) return true;
  document.AddError(what + L" is not a number: " + Quoted(text));
  return false;
}

CString AttributeLabel(const XmlElement* element, const wchar_t* name) {
  return CString(L"Atribute : <") + name + L"> under : " + ElementName(element);
}

bool ReadIntegerAttribute(XmlDocument& document, const XmlElement* element, const wchar_t* name,
                          int64_t low, int64_t high, int64_t* out) {
  CString text;
  if (!document.ReadAttribute(element, name, &text)) return false;
  return ParseInteger(document, text, AttributeLabel(element, name), low, high, out);
}

bool ReadNumberAttribute(XmlDocument& document, const XmlElement* element, const wchar_t* name,
                         double* out) {
  CString text;
  if (!document.ReadAttribute(element, name, &text)) return false;
  return ParseNumber(document, text, AttributeLabel(element, name), out);
}

// A node index: -1 (none) or a node of the table.
int32_t ReadIndexAttribute(XmlDocument& document, const XmlElement* element, const wchar_t* name,
                           int32_t node_count) {
  int64_t index = -1;
  ReadIntegerAttribute(document, element, name, -1, node_count - 1, &index);
  return static_cast<int32_t>(index);
}

CString ChildLabel(const XmlElement* parent, const wchar_t* name) {
  return CString(L"DOMElement : <") + name + L"> under : " + ElementName(parent);
}

struct Header {
  int64_t frames = 0;
  double leg_length = 0.0;
  double hip_offset = 0.0;
  int64_t nodes = 0;
  int64_t planes = 0;
  CString type;
};

void ReadHeaderInteger(XmlDocument& document, const XmlElement* header, const wchar_t* name,
                       int64_t* out) {
  CString text;
  if (!document.ReadChildText(header, name, &text)) return;
  ParseInteger(document, text, ChildLabel(header, name), INT32_MIN, INT32_MAX, out);
}

void ReadHeaderNumber(XmlDocument& document, const XmlElement* header, const wchar_t* name,
                      double* out) {
  CString text;
  if (!document.ReadChildText(header, name, &text)) return;
  ParseNumber(document, text, ChildLabel(header, name), out);
}

Header ReadHeader(XmlDocument& document, const XmlElement* header) {
  Header read;
  CString version;
  document.ReadChildText(header, L"VERSION", &version);
  ReadHeaderInteger(document, header, L"AnimationLength", &read.frames);
  ReadHeaderNumber(document, header, L"legLength", &read.leg_length);
  ReadHeaderNumber(document, header, L"hipOffset", &read.hip_offset);
  ReadHeaderInteger(document, header, L"numNodes", &read.nodes);
  ReadHeaderInteger(document, header, L"numPlanes", &read.planes);
  document.ReadChildText(header, L"structure_type", &read.type);
  return read;
}

// A count outside its bounds leaves nothing sensible to read.
bool CheckCount(XmlDocument& document, const wchar_t* name, int64_t value, int64_t low,
                int64_t high) {
  if (value >= low && value <= high) return true;
  document.AddError(CString(name) + L" " + CountText(value) + L" is outside " + CountText(low) +
                    L" .. " + CountText(high) + L": the motion is not read");
  return false;
}

XmlElement* FindSection(XmlDocument& document, const wchar_t* name) {
  XmlElement* section = ChildElement(document.DocumentElement(), name);
  if (section == nullptr) {
    document.AddError(CString(L"DOMElement : <") + name + L"> not found under : " +
                      ElementName(document.DocumentElement()));
  }
  return section;
}

void ReadNodes(XmlDocument& document, KavorMotion& motion) {
  const XmlElement* nodes = FindSection(document, L"NODES");
  if (nodes == nullptr) return;
  ModelStructure& structure = *motion.structure;
  int32_t i = 0;
  for (const XmlElement* element = FirstChildElement(nodes);
       element != nullptr && i < structure.NumNodes(); element = NextElement(element)) {
    if (ElementName(element) != CString(L"NODE")) continue;
    StructureNode& node = structure.nodes[static_cast<size_t>(i)];
    CString text;
    if (document.ReadAttribute(element, L"obj_IsValid", &text)) {
      node.obj_is_valid = KRX::CValue(text).GetBool();
    }
    if (document.ReadAttribute(element, L"name", &text)) node.name = ToNarrow(text);
    ReadNumberAttribute(document, element, L"length", &motion.model->Node(i).length);
    ++i;
  }
  if (i < structure.NumNodes()) {
    document.AddError(L"NODES holds " + CountText(i) + L" NODE elements for numNodes " +
                      CountText(structure.NumNodes()));
  }
}

void ReadPlane(XmlDocument& document, const XmlElement* element, int32_t node_count,
               StructurePlane& plane) {
  CString name;
  if (document.ReadAttribute(element, L"name", &name)) plane.name = ToNarrow(name);
  plane.span = ReadIndexAttribute(document, element, L"span", node_count);
  plane.mid = ReadIndexAttribute(document, element, L"mid", node_count);
  plane.anchor_index = ReadIndexAttribute(document, element, L"anchor_index", node_count);
  int64_t bones = 0;
  // A chain holds each node at most once.
  if (!ReadIntegerAttribute(document, element, L"numbones", 0, node_count, &bones)) return;
  const int64_t present = ChildElementCount(element);
  if (bones > present) {
    document.AddError(AttributeLabel(element, L"numbones") + L" is " + CountText(bones) +
                      L" but only " + CountText(present) + L" bones follow");
    bones = present;
  }
  const XmlElement* bone = FirstChildElement(element);
  for (int64_t k = 0; k < bones; ++k, bone = NextElement(bone)) {
    plane.chain.push_back(ReadIndexAttribute(document, bone, L"boneindex", node_count));
  }
}

void ReadPlanes(XmlDocument& document, KavorMotion& motion) {
  const XmlElement* planes = FindSection(document, L"PLANES");
  if (planes == nullptr) return;
  ModelStructure& structure = *motion.structure;
  int32_t p = 0;
  for (const XmlElement* element = FirstChildElement(planes);
       element != nullptr && p < structure.NumPlanes(); element = NextElement(element)) {
    if (ElementName(element) != CString(L"PLANE")) continue;
    ReadPlane(document, element, structure.NumNodes(), structure.planes[static_cast<size_t>(p)]);
    ++p;
  }
  if (p < structure.NumPlanes()) {
    document.AddError(L"PLANES holds " + CountText(p) + L" PLANE elements for numPlanes " +
                      CountText(structure.NumPlanes()));
  }
}

// The poses, frame by frame, taken by position. False when they would not fit the bounds.
bool ReadPoses(XmlDocument& document, int64_t frames, RetargetModel& model) {
  const XmlElement* values = FindSection(document, L"POSE_VALUES");
  const int64_t present = ChildElementCount(values);
  if (frames > present) {
    document.AddError(L"AnimationLength " + CountText(frames) + L" is more than the " +
                      CountText(present) + L" POSE elements present; those are read");
    frames = present;
  }
  const int64_t nodes = model.NumNodes();
  if (frames * nodes > kMaxMotionPoses) {
    document.AddError(CountText(frames) + L" frames of " + CountText(nodes) +
                      L" nodes are more than a motion file may hold: the motion is not read");
    return false;
  }
  model.frame_count = static_cast<int32_t>(frames);
  model.poses.assign(static_cast<size_t>(frames * nodes), KRX::MATH::CTransformation());
  ScopedProgressBar progress(L"Parsing Kavor File ...", static_cast<int>(frames));
  const XmlElement* pose = FirstChildElement(values);
  for (int64_t f = 0; f < frames; ++f, pose = NextElement(pose)) {
    progress.Increment();
    const XmlElement* node = FirstChildElement(pose);
    for (int64_t n = 0; n < nodes; ++n, node = NextElement(node)) {
      if (node == nullptr) {
        document.AddError(L"POSE " + CountText(f) + L" holds " + CountText(n) +
                          L" NODE elements for numNodes " + CountText(nodes));
        break;
      }
      document.ReadTransformAttribute(node, L"global",
                                      &model.poses[static_cast<size_t>(f * nodes + n)]);
    }
    if (TooManyErrors(document, L"the poses")) break;
  }
  return true;
}

// `keys_left`: how many more key times the file may hold.
void ReadCurve(XmlDocument& document, const XmlElement* curve, CurveKeyRecord& record,
               int64_t* keys_left) {
  CString channel_name;
  std::vector<double>* channel = nullptr;
  if (document.ReadAttribute(curve, L"name", &channel_name)) {
    const std::string narrow = ToNarrow(channel_name);
    for (size_t c = 0; c < kCurveChannelNames.size(); ++c) {
      if (narrow == kCurveChannelNames[c]) channel = &record.channels[c];
    }
  }
  int64_t keys = 0;
  if (!ReadIntegerAttribute(document, curve, L"numkeys", 0, *keys_left, &keys)) return;
  *keys_left -= keys;
  const int64_t present = ChildElementCount(curve);
  if (keys > present) {
    document.AddError(AttributeLabel(curve, L"numkeys") + L" is " + CountText(keys) +
                      L" but only " + CountText(present) + L" keys follow");
    keys = present;
  }
  const XmlElement* key = FirstChildElement(curve);
  for (int64_t k = 0; k < keys; ++k, key = NextElement(key)) {
    double time = 0.0;
    if (ReadNumberAttribute(document, key, L"keytime", &time) && channel != nullptr) {
      channel->push_back(time);
    }
  }
}

void ReadCurveKeys(XmlDocument& document, RetargetModel& model) {
  const XmlElement* section = ChildElement(document.DocumentElement(), L"FCURVE_KEYS");
  if (section == nullptr) return;
  int64_t records = 0;
  // The writer gives at most one record per node and one per plane.
  if (!ReadIntegerAttribute(document, section, L"num_nodes_with_fcurve_keys", 0,
                            model.NumNodes() + model.NumPlanes(), &records)) {
    return;
  }
  int64_t keys_left = kMaxCurveKeys;
  const int64_t present = ChildElementCount(section);
  if (records > present) {
    document.AddError(AttributeLabel(section, L"num_nodes_with_fcurve_keys") + L" is " +
                      CountText(records) + L" but only " + CountText(present) + L" records follow");
    records = present;
  }
  const XmlElement* node = FirstChildElement(section);
  for (int64_t i = 0; i < records; ++i, node = NextElement(node)) {
    CurveKeyRecord record;
    CString name;
    if (document.ReadAttribute(node, L"name", &name)) record.node_name = ToNarrow(name);
    for (const XmlElement* curve = FirstChildElement(node); curve != nullptr;
         curve = NextElement(curve)) {
      ReadCurve(document, curve, record, &keys_left);
    }
    model.curves.push_back(std::move(record));
    if (TooManyErrors(document, L"the curve keys")) break;
  }
}

bool ReadMotion(XmlDocument& document, KavorMotion& out) {
  const XmlElement* header = ChildElement(document.DocumentElement(), L"HEADER");
  if (header == nullptr) {
    document.AddError(L"DOMElement : <HEADER> not found under : " +
                      ElementName(document.DocumentElement()));
    return false;
  }
  const Header read = ReadHeader(document, header);
  if (!CheckCount(document, L"numNodes", read.nodes, 1, kMaxStructureNodes) ||
      !CheckCount(document, L"numPlanes", read.planes, 0, kMaxStructureNodes) ||
      !CheckCount(document, L"AnimationLength", read.frames, 0, kMaxMotionFrames)) {
    return false;
  }
  KavorMotion motion = MakeKavorMotion(static_cast<int32_t>(read.nodes),
                                       static_cast<int32_t>(read.planes), ToNarrow(read.type));
  motion.model->leg_length = read.leg_length;
  motion.model->hip_offset = read.hip_offset;
  ReadNodes(document, motion);
  ReadPlanes(document, motion);
  if (!ReadPoses(document, read.frames, *motion.model)) return false;
  ReadCurveKeys(document, *motion.model);
  out = std::move(motion);
  return true;
}

// Reads the opened document and closes it, which shows the errors collected.
bool ReadOpened(XmlDocument& document, KavorMotion& motion) {
  if (document.Document() == nullptr) {
    if (document.Errors().empty()) document.AddError(L"File Not found: " + document.Path());
    document.Close();
    return false;
  }
  KavorMotion read;
  const bool ok = ReadMotion(document, read);
  document.Close();
  if (ok) motion = std::move(read);
  return ok;
}

}  // namespace

bool ReadKavorXml(KavorMotion& motion, const CString& path) {
  XmlDocument document(path, true, false);
  return ReadOpened(document, motion);
}

bool ParseKavorXml(KavorMotion& motion, const CString& path, std::string_view bytes) {
  XmlDocument document;
  document.OpenFromBytes(path, bytes, false);
  return ReadOpened(document, motion);
}

}  // namespace kavor

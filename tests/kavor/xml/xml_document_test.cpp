#include "kavor/xml/xml_document.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <xercesc/dom/DOM.hpp>

#include "kavor/io/io_test_support.h"
#include "kavor/xml/property_parameters.h"
#include "kavor/xml/xml_file.h"
#include "kavor/xml/xml_stream_reader.h"
#include "kavor/xml/xml_stream_writer.h"
#include "runtime/interaction.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

using KRX::CString;
using KRX::CValue;
using KRX::ValueType;
using KRX::MATH::CTransformation;
namespace rt = KRX::rt;

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

class XmlDocumentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::ResetInteraction();
    rt::ClearLog();
  }
  void TearDown() override { rt::ResetInteraction(); }
  iotest::TempFolder folder_;
};

TEST_F(XmlDocumentTest, WrittenDocumentReadsBackWithByteOrderMark) {
  const std::string path = folder_ / "motion.kavor";
  // Latin-1, a character beyond it, and one beyond the 16-bit range.
  const CString name = L"H\u00fcfte \u2603 \U0001F600";
  {
    XmlDocument document(path, false, true);
    ASSERT_NE(document.DocumentElement(), nullptr);
    EXPECT_EQ(ElementName(document.DocumentElement()), CString(L"ROOT"));
    XmlElement* header = document.AddTextElement(document.DocumentElement(), L"HEADER", L"saved");
    document.AddTextElement(header, L"numNodes", L"3");
    XmlElement* node = document.AddElement(document.DocumentElement(), L"NODE");
    EXPECT_TRUE(document.SetAttribute(node, L"name", name));
    EXPECT_TRUE(document.Close());
  }
  // The layout and encoding are the stream writer's test; the byte order mark stays sniffable.
  const std::string bytes = ReadBytes(path);
  EXPECT_EQ(bytes.substr(0, 9), "\xEF\xBB\xBF<?xml ");
  EXPECT_TRUE(IsXmlFile(path));
  for (int round = 0; round < 2; ++round) {  // read, and read what a rewrite gives
    XmlDocument document(path, true, true);
    EXPECT_TRUE(document.IsValid());
    const XmlElement* header = ChildElement(document.DocumentElement(), L"HEADER");
    EXPECT_EQ(ElementText(header), CString(L"saved"));
    CString count = L"unset";
    EXPECT_TRUE(document.ReadChildText(header, L"numNodes", &count));
    EXPECT_EQ(count, CString(L"3"));
    CString read_name;
    EXPECT_TRUE(
        document.ReadAttribute(ChildElementAt(document.DocumentElement(), 1), L"name", &read_name));
    EXPECT_EQ(read_name, name);
    EXPECT_EQ(ChildElementCount(document.DocumentElement()), 2);
    EXPECT_EQ(ChildElementAt(document.DocumentElement(), 2), nullptr);
  }
  EXPECT_EQ(ReadBytes(path), bytes);  // a rewrite changes nothing
  EXPECT_TRUE(rt::MessageBoxes().empty());
}

// The stream writer gives the bytes the document gives for the same tree: layout, the
// order of attributes, escapes, characters beyond ASCII and ones XML cannot carry.
TEST_F(XmlDocumentTest, StreamWriterWritesTheDocumentsBytes) {
  const CString tricky = L"a&b<c>d\"e'f\tg\nh\ri \u00e9\u2603\U0001F600 \x01 ]]>";
  const std::string streamed = folder_ / "streamed.xml";
  const std::string built = folder_ / "built.xml";
  {
    XmlStreamWriter writer(streamed);
    writer.StartElement("ROOT");
    writer.StartElement("HEADER");
    writer.Text(L"saved");
    writer.TextElement("VERSION", L"krx");
    writer.TextElement("EMPTY", L"");
    writer.StartElement("NODE");
    writer.Attribute("zeta", L"1");
    writer.Attribute("name", tricky);
    writer.NumberAttribute("alpha", 0.1);
    writer.Attribute("Beta", L"old");
    writer.Attribute("Beta", L"new");
    writer.EndElement();
    writer.EndElement();
    writer.StartElement("TEXT");
    writer.Text(tricky);
    writer.EndElement();
    writer.StartElement("A");
    writer.StartElement("B");
    writer.StartElement("C");
    writer.EndElement();
    writer.EndElement();
    writer.Text(L"tail");
    EXPECT_TRUE(writer.Finish());  // ends what is open
  }
  {
    XmlDocument document(built, false, true);
    XmlElement* root = document.DocumentElement();
    XmlElement* header = document.AddTextElement(root, L"HEADER", L"saved");
    document.AddTextElement(header, L"VERSION", L"krx");
    document.AddTextElement(header, L"EMPTY", L"");
    XmlElement* node = document.AddElement(header, L"NODE");
    document.SetAttribute(node, L"zeta", L"1");
    document.SetAttribute(node, L"name", tricky);
    document.SetAttribute(node, L"alpha", L"0.1");
    document.SetAttribute(node, L"Beta", L"new");
    document.AddTextElement(root, L"TEXT", tricky);
    XmlElement* a = document.AddElement(root, L"A");
    document.AddElement(document.AddElement(a, L"B"), L"C");
    a->appendChild(a->getOwnerDocument()->createTextNode(u"tail"));
    ASSERT_TRUE(document.Close());
  }
  EXPECT_EQ(ReadBytes(streamed), ReadBytes(built));
  {  // Values that cannot be written are left out with a message; the rest is written.
    XmlStreamWriter writer(streamed);
    writer.StartElement("ROOT");
    writer.NumberAttribute("n", std::nan(""));
    CTransformation infinite;
    infinite.SetTranslationFromValues(HUGE_VAL, 0, 0);
    writer.TransformAttribute("global", infinite);
    EXPECT_FALSE(writer.Finish());
    EXPECT_EQ(writer.Errors(),
              (std::vector<CString>{
                  L"Atribute : <n> not written: not a finite number",
                  L"Error writing CTransformation Attribute : <global> under : ROOT: a value is "
                  L"not a finite number"}));
    EXPECT_EQ(ReadBytes(streamed).substr(3),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" "
              "standalone=\"no\" ?>\n<ROOT/>\n");
  }
  {  // A writer that does not finish leaves the old file whole and nothing beside it.
    { XmlStreamWriter(streamed).StartElement("OTHER"); }
    EXPECT_NE(ReadBytes(streamed).find("<ROOT/>"), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 2);
    XmlStreamWriter nowhere(folder_ / "no/such/folder.xml");
    EXPECT_FALSE(nowhere.IsOpen());
    EXPECT_FALSE(nowhere.Finish());
    ASSERT_EQ(nowhere.Errors().size(), 1u);
    EXPECT_EQ(nowhere.Errors()[0].GetSubString(0, 22), CString(L"DOM Exception Writing "));
  }
}

TEST_F(XmlDocumentTest, HelpersCollectErrorsAndKeepOutputs) {
  XmlDocument document(folder_ / "a.adj", false, true);
  XmlElement* node = document.AddElement(document.DocumentElement(), L"NODE");
  const auto last_error = [&] {
    return document.Errors().empty() ? CString() : document.Errors().back();
  };
  {  // A missing attribute or child element: one message each, `out` unchanged.
    CString out = L"kept";
    EXPECT_FALSE(document.ReadAttribute(node, L"span", &out));
    EXPECT_EQ(document.Errors(), std::vector<CString>{L"Atribute : <span> not found under : NODE"});
    EXPECT_FALSE(document.IsValid());
    EXPECT_FALSE(document.ReadChildText(node, L"HEADER", &out));
    EXPECT_EQ(out, CString(L"kept"));
    EXPECT_EQ(last_error(), CString(L"DOMElement : <HEADER> not found under : NODE"));
  }
  {  // Six numbers are not a transformation; seven are, with an axis of any length.
    CTransformation t;
    t.SetScalingFromValues(2, 2, 2);
    document.SetAttribute(node, L"global", L"0,0,1,0.5,1,2");
    EXPECT_FALSE(document.ReadTransformAttribute(node, L"global", &t));
    EXPECT_EQ(
        last_error(),
        CString(L"Error reading CTransformation Attribute : <global> not found under : NODE"));
    document.SetAttribute(node, L"global", L"0, 0, 2, 1.5707963267948966, 1, -2, 3.5");
    ASSERT_TRUE(document.ReadTransformAttribute(node, L"global", &t));
    const KRX::MATH::CQuaternion q = t.GetRotationQuaternion();
    EXPECT_NEAR(q.GetW(), std::sqrt(0.5), 1e-12);
    EXPECT_NEAR(q.GetZ(), std::sqrt(0.5), 1e-12);
    EXPECT_NEAR(std::abs(q.GetX()) + std::abs(q.GetY()), 0.0, 1e-12);
    EXPECT_EQ(t.GetTranslation(), KRX::MATH::CVector3(1, -2, 3.5));
    EXPECT_EQ(t.GetScaling(), KRX::MATH::CVector3(2, 2, 2));
  }
  {  // Written and read: the same rotation (q or -q) and translation.
    CTransformation t;
    t.SetRotationFromXYZAngles({0.3, -2.9, 1.1});
    t.SetTranslationFromValues(0.1, 1e-7, -123456.789);
    ASSERT_TRUE(document.WriteTransformAttribute(node, L"pose", t));
    CTransformation back;
    ASSERT_TRUE(document.ReadTransformAttribute(node, L"pose", &back));
    const KRX::MATH::CQuaternion a = t.GetRotationQuaternion(), b = back.GetRotationQuaternion();
    const double dot =
        a.GetW() * b.GetW() + a.GetX() * b.GetX() + a.GetY() * b.GetY() + a.GetZ() * b.GetZ();
    EXPECT_NEAR(std::abs(dot), 1.0, 1e-12);
    EXPECT_EQ(back.GetTranslation(), t.GetTranslation());
  }
  {  // Text is set on an empty or text element only.
    XmlElement* parent = document.AddElement(document.DocumentElement(), L"P");
    document.AddElement(parent, L"C");
    EXPECT_FALSE(SetElementText(parent, L"x"));
    EXPECT_EQ(ChildElementCount(parent), 1);
    EXPECT_FALSE(ElementHasText(parent));
    XmlElement* leaf = document.AddElement(parent, L"L");
    EXPECT_TRUE(SetElementText(leaf, L"one"));
    EXPECT_TRUE(SetElementText(leaf, L"two"));
    EXPECT_EQ(ElementText(leaf), CString(L"two"));
  }
  {  // Names XML cannot carry fail with a message instead of throwing.
    const size_t before = document.Errors().size();
    EXPECT_EQ(document.AddElement(node, L"two words"), nullptr);
    EXPECT_FALSE(document.SetAttribute(node, L"1x", L"v"));
    EXPECT_EQ(document.Errors().size(), before + 2);
  }
}

TEST_F(XmlDocumentTest, LoadErrorsAreReportedOnceOnClosing) {
  const std::string path = folder_ / "broken.kavor";
  iotest::WriteFile(path, "<?xml version=\"1.0\"?>\n<ROOT><HEADER></ROOT>\n");
  XmlDocument document(path, true, true);
  EXPECT_EQ(document.Document(), nullptr);
  EXPECT_EQ(document.FindOrCreatePath(L"FILEPATHS", L"BVH_FILES"), nullptr);
  ASSERT_EQ(document.Errors().size(), 2u);
  const CString parse_error = CString(L"Parsing ") + path + L" error count: 1";
  EXPECT_EQ(document.Errors()[0], parse_error);
  EXPECT_EQ(document.Errors()[1].GetSubString(0, 8), CString(L"line 2, "));
  EXPECT_TRUE(rt::MessageBoxes().empty());  // nothing shown before closing
  EXPECT_FALSE(document.Close());
  EXPECT_FALSE(document.Close());
  ASSERT_EQ(rt::MessageBoxes().size(), 1u);
  EXPECT_EQ(rt::MessageBoxes()[0].text,
            CString(L"Errors occured while loading the following file : \n") + path +
                L"\n\nError : " + parse_error + L"\nError : " + document.Errors()[1] + L"\n");
  EXPECT_EQ(rt::MessageBoxes()[0].title, CString(L"ZRKRetarget"));
  // A file that did not parse is not overwritten.
  EXPECT_EQ(ReadBytes(path), "<?xml version=\"1.0\"?>\n<ROOT><HEADER></ROOT>\n");
  {  // A missing file for loading only: no document, no error, nothing written.
    XmlDocument absent(folder_ / "absent.kavor", true, false);
    EXPECT_EQ(absent.Document(), nullptr);
    EXPECT_TRUE(absent.Errors().empty());
    EXPECT_TRUE(absent.Close());
    EXPECT_FALSE(std::filesystem::exists(folder_ / "absent.kavor"));
    EXPECT_EQ(rt::MessageBoxes().size(), 1u);
  }
}

// The stream reader refuses what the document refuses, with the same errors.
class IgnoreParts : public XmlStreamEvents {
 public:
  void StartElement(std::u16string_view, const xercesc::Attributes&, int) override {}
  void EndElement(int) override {}
  void Characters(std::u16string_view, bool) override {}
  void OtherNode(bool) override {}
};

TEST_F(XmlDocumentTest, UntrustedBytesAreRefusedByBothReaders) {
  const auto parses = [](std::string_view bytes) {
    XmlDocument document;
    document.OpenFromBytes(L"in.xml", bytes, false);
    const bool parsed = document.Document() != nullptr;
    EXPECT_EQ(parsed, document.Errors().empty());
    IgnoreParts parts;
    EXPECT_EQ(XmlStreamInput(L"in.xml", bytes).Read(parts), document.Errors());
    return parsed;
  };
  {  // Document types are refused: no entity is declared, expanded or fetched.
    EXPECT_FALSE(
        parses("<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\">"
               "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">]><r>&b;</r>"));
    EXPECT_FALSE(parses("<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>"));
    EXPECT_FALSE(parses("<!DOCTYPE r SYSTEM \"http://example.invalid/r.dtd\"><r/>"));
    EXPECT_FALSE(parses("<!DOCTYPE r><r/>"));
    EXPECT_TRUE(parses("<r a=\"&lt;&amp;&#x41;\">&gt;</r>"));  // predefined ones stay
  }
  {  // Versions the document does not take, a cut, bytes that are no text.
    EXPECT_FALSE(parses("<?xml version=\"1.0F-8\"?><r/>"));
    EXPECT_FALSE(parses("<?xml version=\"2.0\"?><r/>"));
    EXPECT_TRUE(parses("<?xml version=\"1.1\"?><r/>"));
    EXPECT_FALSE(parses("<r><a></r>"));
    EXPECT_FALSE(parses(""));
    EXPECT_FALSE(parses("<?xml version=\"1.0\" encoding=\"UTF-8\"?><r>\xC3</r>"));
  }
  {  // Nesting: the limit passes, one more level does not; very deep input is refused.
    const auto nested = [](int depth) {
      std::string text;
      for (int i = 0; i < depth; ++i) text += "<a>";
      for (int i = 0; i < depth; ++i) text += "</a>";
      return text;
    };
    EXPECT_TRUE(parses(nested(kMaxXmlDepth)));
    EXPECT_FALSE(parses(nested(kMaxXmlDepth + 1)));
    EXPECT_FALSE(parses(nested(200000)));
    EXPECT_FALSE(parses(nested(kMaxXmlDepth + 1) + "<b>"));  // the parser's error comes first
  }
}

TEST_F(XmlDocumentTest, IsXmlFileLooksAtTheFirstBytes) {
  const auto check = [&](const std::string& bytes) {
    const std::string path = folder_ / "f.kavor";
    iotest::WriteFile(path, bytes);
    return IsXmlFile(path);
  };
  EXPECT_TRUE(check("<?xml"));
  EXPECT_TRUE(check("\xEF\xBB\xBF<?xml version=\"1.0\"?>"));
  EXPECT_FALSE(check("<?xm"));
  EXPECT_FALSE(check("<?XML version"));
  EXPECT_FALSE(check("\xEF\xBB\xBF<?xm"));
  EXPECT_FALSE(check("NormMotion5.0 <?xml"));
  EXPECT_FALSE(IsXmlFile(folder_.path().string()));
  EXPECT_FALSE(IsXmlFile(folder_ / "absent"));
}

TEST_F(XmlDocumentTest, PropertyParametersRoundTripThroughAFile) {
  KRX::rt::ResetScene();
  const std::string path = folder_ / "preset.adj";
  KRX::CustomProperty property =
      KRX::Application().GetActiveSceneRoot().AddCustomProperty(L"RetargetAdjustPPG");
  KRX::Parameter count = property.AddParameter(L"Count", ValueType::Int, 5, L"", L"frames", 3);
  KRX::Parameter speed = property.AddParameter(L"Speed", ValueType::Double, 1, L"", L"", 0.1);
  KRX::Parameter name = property.AddParameter(L"Label", ValueType::String, 4, L"", L"", L"a");
  KRX::Parameter on = property.AddParameter(L"On", ValueType::Bool, 4, L"", L"", false);
  count.PutValue(-7);
  speed.PutValue(0.1 + 0.2);
  name.PutValue(CString(L"St\u00e9p & <go>"));
  on.PutValue(true);
  {
    XmlDocument document(path, false, true);
    XmlElement* data =
        WritePropertyParameters(document, document.DocumentElement(), L"ADJUST_PPG_DATA", property);
    ASSERT_EQ(ChildElementCount(data), 4);
    const auto attribute = [&](int child, const wchar_t* key) {
      CString value = L"missing";
      document.ReadAttribute(ChildElementAt(data, child), key, &value);
      return value;
    };
    EXPECT_EQ(ElementName(ChildElementAt(data, 0)), CString(L"Count"));
    EXPECT_EQ(attribute(0, L"Capabilities") + attribute(0, L"DataType") +
                  attribute(0, L"Description") + attribute(2, L"DataType"),
              CString(L"53frames8"));
    document.AddTextElement(data, L"Unknown", L"1");  // skipped on reading
    ASSERT_TRUE(document.Close());
  }
  count.PutValue(0);
  speed.PutValue(9.0);
  name.PutValue(CString(L"b"));
  on.PutValue(false);
  {
    XmlDocument document(path, true, false);
    EXPECT_EQ(ReadPropertyParameters(ChildElement(document.DocumentElement(), L"ADJUST_PPG_DATA"),
                                     property),
              4);
  }
  EXPECT_EQ(count.GetValue(), CValue(-7));
  EXPECT_EQ(speed.GetValue(), CValue(0.1 + 0.2));
  EXPECT_EQ(name.GetValue(), CValue(CString(L"St\u00e9p & <go>")));
  EXPECT_EQ(on.GetValue(), CValue(true));
  EXPECT_TRUE(KRX::rt::MessageBoxes().empty());
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor

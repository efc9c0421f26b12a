#include "kavor/xml/xml_document.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>

#include "kavor/io/io_test_support.h"
#include "kavor/xml/property_parameters.h"
#include "kavor/xml/xml_file.h"
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
  const std::string bytes = ReadBytes(path);
  EXPECT_EQ(bytes.substr(0, 9), "\xEF\xBB\xBF<?xml ");
  EXPECT_NE(bytes.find("\n  <HEADER>"), std::string::npos);  // pretty-printed
  EXPECT_NE(bytes.find("H\xC3\xBC"
                       "fte \xE2\x98\x83 \xF0\x9F\x98\x80"),
            std::string::npos);
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

TEST_F(XmlDocumentTest, MissingFileForLoadingOnly) {
  const std::string path = folder_ / "absent.kavor";
  XmlDocument document(path, true, false);
  EXPECT_EQ(document.Document(), nullptr);
  EXPECT_TRUE(document.Errors().empty());
  EXPECT_TRUE(document.Close());
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_TRUE(rt::MessageBoxes().empty());
}

TEST_F(XmlDocumentTest, HelpersCollectErrorsAndKeepOutputs) {
  XmlDocument document(folder_ / "a.adj", false, true);
  XmlElement* node = document.AddElement(document.DocumentElement(), L"NODE");
  {  // A missing attribute: one message, `out` unchanged.
    CString out = L"kept";
    EXPECT_FALSE(document.ReadAttribute(node, L"span", &out));
    EXPECT_EQ(out, CString(L"kept"));
    ASSERT_EQ(document.Errors().size(), 1u);
    EXPECT_EQ(document.Errors()[0], CString(L"Atribute : <span> not found under : NODE"));
    EXPECT_FALSE(document.IsValid());
  }
  {  // A missing child element.
    CString out = L"kept";
    EXPECT_FALSE(document.ReadChildText(node, L"HEADER", &out));
    EXPECT_EQ(out, CString(L"kept"));
    EXPECT_EQ(document.Errors().back(), CString(L"DOMElement : <HEADER> not found under : NODE"));
  }
  {  // Six numbers are not a transformation; seven are, with an axis of any length.
    CTransformation t;
    t.SetScalingFromValues(2, 2, 2);
    document.SetAttribute(node, L"global", L"0,0,1,0.5,1,2");
    EXPECT_FALSE(document.ReadTransformAttribute(node, L"global", &t));
    EXPECT_EQ(
        document.Errors().back(),
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
}

TEST_F(XmlDocumentTest, UntrustedBytesGiveErrorsNeverCrashes) {
  const auto parses = [](std::string_view bytes) {
    XmlDocument document;
    document.OpenFromBytes(L"in.xml", bytes, false);
    const bool parsed = document.Document() != nullptr;
    EXPECT_EQ(parsed, document.Errors().empty());
    return parsed;
  };
  {  // Document types are refused: no entity is declared, expanded or fetched.
    EXPECT_FALSE(
        parses("<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\">"
               "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">]><r>&b;</r>"));
    EXPECT_FALSE(parses("<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>"));
    EXPECT_FALSE(parses("<!DOCTYPE r SYSTEM \"http://example.invalid/r.dtd\"><r/>"));
    EXPECT_TRUE(parses("<r a=\"&lt;&amp;&#x41;\">&gt;</r>"));  // predefined ones stay
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
  }
  {  // Every truncation and a flipped byte at every place of a valid document.
    const std::string good =
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ROOT>\n  <N a=\"1,2\">t\xC3\xA9"
        "<![CDATA[x]]><!-- c --></N>\n</ROOT>\n";
    EXPECT_TRUE(parses(good));
    for (size_t n = 0; n < good.size(); ++n) parses(good.substr(0, n));
    for (size_t i = 0; i < good.size(); ++i) {
      std::string flipped = good;
      flipped[i] = static_cast<char>(flipped[i] ^ 0x80);
      parses(flipped);
    }
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
    const XmlElement* first = ChildElementAt(data, 0);
    EXPECT_EQ(ElementName(first), CString(L"Count"));
    CString value;
    EXPECT_TRUE(document.ReadAttribute(first, L"Capabilities", &value));
    EXPECT_EQ(value, CString(L"5"));
    EXPECT_TRUE(document.ReadAttribute(first, L"DataType", &value));
    EXPECT_EQ(value, CString(L"3"));
    EXPECT_TRUE(document.ReadAttribute(first, L"Description", &value));
    EXPECT_EQ(value, CString(L"frames"));
    EXPECT_TRUE(document.ReadAttribute(ChildElementAt(data, 2), L"DataType", &value));
    EXPECT_EQ(value, CString(L"8"));
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

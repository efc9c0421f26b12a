#include "kavor/xml/property_parameters.h"

#include <gtest/gtest.h>

#include "kavor/io/io_test_support.h"
#include "runtime/interaction.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

using KRX::CString;
using KRX::CValue;
using KRX::ValueType;

TEST(PropertyParameters, RoundTripThroughAFile) {
  KRX::rt::ResetScene();
  KRX::rt::ResetInteraction();
  iotest::TempFolder folder;
  const std::string path = folder / "preset.adj";
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

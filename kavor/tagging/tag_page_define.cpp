// The tag page's definition: its four fixed parameters. The layout is built when the page
// opens or its structure changes.
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tags.h"
#include "krx/krx.h"

namespace kavor {

void DefineTagPageParameters(KRX::CustomProperty& page) {
  constexpr int kCapabilities = 4;
  page.AddParameter(L"StructureTag", KRX::ValueType::Int, kCapabilities, L"", L"", KRX::CValue(0),
                    KRX::CValue(0), KRX::CValue(2000), KRX::CValue(0), KRX::CValue(2000));
  page.AddParameter(L"StructureFile", KRX::ValueType::String, kCapabilities, L"", L"",
                    KRX::CValue(L"*.structure"));
  page.AddParameter(L"TemplateFile", KRX::ValueType::String, kCapabilities, L"", L"",
                    KRX::CValue(L""));
  page.AddParameter(L"dirty", KRX::ValueType::Bool, kCapabilities, L"", L"", KRX::CValue(false))
      .PutCapabilityFlag(kCapNotKeyable, false);
}

}  // namespace kavor

KRX_PLUGIN_EXPORT KRX::CStatus TagPPG_Define(KRX::CRef& context) {
  KRX::CustomProperty page(KRX::Context(context).GetSource());
  kavor::DefineTagPageParameters(page);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus TagPPG_DefineLayout(KRX::CRef& context) {
  KRX::PPGLayout(KRX::Context(context).GetSource()).Clear();
  return KRX::CStatus::OK;
}

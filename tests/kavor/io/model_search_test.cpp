// Finding models: by a property they carry, by the selection, by name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kavor/io/scene_helpers.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

using ModelNames = std::vector<std::wstring>;

// Scene: models A and B below the root carry "ZRKStructure"; C below the root does not;
// D, a model inside A, and the scene root carry it too; N is a null below the root.
class ModelSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    root_ = KRX::Application().GetActiveSceneRoot();
    a_ = KRX::Model(root_.AddModel(L"A").GetRef());
    b_ = KRX::Model(root_.AddModel(L"B").GetRef());
    c_ = KRX::Model(root_.AddModel(L"C").GetRef());
    d_ = KRX::Model(a_.AddModel(L"D").GetRef());
    n_ = root_.AddNull(L"N");
    for (KRX::Model* m : {&root_, &a_, &b_, &d_}) m->AddCustomProperty(kProp);
    c_.AddCustomProperty(L"Other");
    b_deep_ = b_.AddNull(L"b_hips").AddNull(L"b_spine");
    c_child_ = c_.AddNull(L"c_hips");
    d_child_ = d_.AddNull(L"d_hips");
  }

  static void Select(const std::vector<KRX::CRef>& items) {
    auto& selection = KRX::rt::ActiveScene().selection;
    selection.clear();
    for (const KRX::CRef& item : items) selection.push_back(item.Lock());
  }
  static ModelNames NamesOf(const std::vector<KRX::Model>& models) {
    ModelNames names;
    for (const KRX::Model& m : models) names.push_back(m.GetName().GetWideString());
    return names;
  }

  static constexpr const wchar_t* kProp = L"ZRKStructure";
  KRX::Model root_, a_, b_, c_, d_;
  KRX::X3DObject n_, b_deep_, c_child_, d_child_;
};

TEST_F(ModelSearchTest, FindModelsWithProperty) {
  const struct {
    std::vector<KRX::CRef> selection;
    bool from_selection;
    const wchar_t* property;
    ModelNames expected;
  } cases[] = {
      // Nothing selected: every model directly below the root that carries it, exact name.
      {{}, false, kProp, {L"A", L"B"}},
      {{}, false, L"zrkstructure", {}},
      // The first selected item whose model is listed decides; C's is not listed.
      {{c_child_, b_deep_, a_}, false, kProp, {L"B"}},
      // Only unlisted models selected (D lies inside A, not below the root): the whole list.
      {{c_child_, d_child_, n_}, false, kProp, {L"A", L"B"}},
      // From the selection: in selection order, each once, D although it is nested, C (no
      // property), the root and the root's plain null left out; nothing selected, nothing.
      {{}, true, kProp, {}},
      {{b_deep_, root_, d_child_, c_child_, a_, b_, n_}, true, kProp, {L"B", L"D", L"A"}},
      // When no model below the root carries the property, the selection does not count.
      {{d_child_}, true, L"OnlyNested", {}},
  };
  d_.AddCustomProperty(L"OnlyNested");
  for (const auto& c : cases) {
    Select(c.selection);
    EXPECT_EQ(NamesOf(FindModelsWithProperty(c.property, c.from_selection)), c.expected);
  }
}

// The selected models are the items' owners in selection order, each once, the scene root
// left out; a scene model is directly below the root; names match exactly.
TEST_F(ModelSearchTest, SelectedModelsAndLookupsByName) {
  Select({b_deep_, a_, root_, b_, n_, c_child_, d_child_});
  EXPECT_EQ(NamesOf(SelectedModels()), (ModelNames{L"B", L"A", L"C", L"D"}));
  EXPECT_EQ(FindSceneModel(L"B"), b_);
  for (const wchar_t* name : {L"D", L"N", L"b"}) EXPECT_FALSE(FindSceneModel(name).IsValid());
  KRX::Property found;
  EXPECT_TRUE(FindPropertyByName(a_, kProp, &found));
  EXPECT_EQ(found.GetParent(), a_.GetRef());
  KRX::Property untouched;
  EXPECT_FALSE(FindPropertyByName(a_, L"zrkstructure", &untouched));
  EXPECT_FALSE(untouched.IsValid());
  EXPECT_FALSE(FindPropertyByName(c_, kProp, nullptr));
}

}  // namespace
}  // namespace kavor

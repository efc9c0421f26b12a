// A small legged character for the tag, rest-data and pose tests: a structure parsed from
// text and a rig of nulls standing in its rest pose.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/tagging/tags.h"
#include "krx/krx.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor::rigtest {

// Hips 10 units up; one leg: hip joint 1 to the side, knee 4 below it, ankle 4 below the
// knee (a foot), toes 1 forward; a spine of two free nodes; the hips' translation split
// over "cog" and its rotation over "pelvis".
inline constexpr const char* kBase =
    "hips { world Hips hip 0 1 0 0 0 1 0 10 0 }\n"
    "leg { Hips lHip anchor 0 -1 0 0 0 1 1 0 0\n"
    "  lKnee child 0 -1 0 0 0 1 0 -4 0\n"
    "  lAnkle friction 0 0 1 0 1 0 0 -4 0\n"
    "  lToes child 0 0 1 0 1 0 0 0 1 }\n";
inline constexpr const char* kStructure =
    "TestBase\n"
    "spine { Hips Spine free 0 1 0 0 0 1 0 2 0  Chest free 0 1 0 0 0 1 0 2 0 }\n"
    "split { decompose Hips cog cog cog pelvis pelvis pelvis Unused Unused Unused }\n";

inline std::unique_ptr<ModelStructure> MakeStructure() {
  StructureParseResult parsed = ParseStructureText(
      kStructure, "TestRig", [](std::string_view name) -> std::optional<std::string> {
        if (name == "TestBase") return std::string(kBase);
        return std::nullopt;
      });
  EXPECT_TRUE(parsed.structure) << parsed.message;
  return std::move(parsed.structure);
}

// Puts the object at (x, y, z) in world space, unturned and unscaled.
inline KRX::X3DObject PlaceAt(KRX::X3DObject object, double x, double y, double z) {
  KRX::MATH::CTransformation t;
  t.SetTranslationFromValues(x, y, z);
  object.GetKinematics().GetGlobal().PutTransform(t);
  return object;
}

inline KRX::X3DObject AddNullAt(KRX::X3DObject parent, const char* name, double x, double y,
                                double z) {
  return PlaceAt(parent.AddNull(ToWide(name)), x, y, z);
}

// The rig in the structure's rest pose, scaled by `scale`: hips at height 10, the hip
// joint half a unit below and one to the side, knee 3.5 and ankle 4 further down.
struct Rig {
  KRX::Model model;
  KRX::X3DObject hips, hip, knee, ankle, toes, spine, chest;
};

inline Rig BuildRig(const char* name, double scale = 1.0) {
  Rig rig;
  rig.model = KRX::Model(KRX::Application().GetActiveSceneRoot().AddModel(ToWide(name)));
  const double s = scale;
  rig.hips = AddNullAt(rig.model, "Hips", 0, 10 * s, 0);
  rig.hip = AddNullAt(rig.hips, "LeftUpLeg", 1 * s, 9.5 * s, 0);
  rig.knee = AddNullAt(rig.hip, "LeftLeg", 1 * s, 6 * s, 0);
  rig.ankle = AddNullAt(rig.knee, "LeftFoot", 1 * s, 2 * s, 0);
  rig.toes = AddNullAt(rig.ankle, "LeftToe", 1 * s, 2 * s, 1 * s);
  rig.spine = AddNullAt(rig.hips, "Spine", 0, 12 * s, 0);
  rig.chest = AddNullAt(rig.spine, "Chest", 0, 14 * s, 0);
  return rig;
}

// Tags the model through a tag page: each pair names a structure node and the object
// below the model that plays it.
using Assignments = std::vector<std::pair<const wchar_t*, const wchar_t*>>;
inline void TagObjects(const KRX::Model& model, const ModelStructure& structure,
                       const Assignments& assignments) {
  KRX::CustomProperty page = KRX::Model(model).AddCustomProperty(L"TagPage");
  for (const wchar_t* fixed : {L"StructureTag", L"StructureFile", L"TemplateFile", L"dirty"}) {
    page.AddParameter(fixed, KRX::ValueType::String, 4, L"", L"", KRX::CValue(L""));
  }
  for (const auto& [node, object] : assignments) {
    page.AddParameter(node, KRX::ValueType::String, 4, L"", L"", KRX::CValue(object));
  }
  ASSERT_TRUE(CreateTagsFromPage(model, structure, page, false));
}

// Tags every node of the test structure on the rig built by BuildRig, and `more` besides.
inline void TagRig(const Rig& rig, const ModelStructure& structure, Assignments more = {}) {
  more.insert(more.begin(), {{L"Hips", L"Hips"},
                             {L"lHip", L"LeftUpLeg"},
                             {L"lKnee", L"LeftLeg"},
                             {L"lAnkle", L"LeftFoot"},
                             {L"lToes", L"LeftToe"},
                             {L"Spine", L"Spine"},
                             {L"Chest", L"Chest"}});
  TagObjects(rig.model, structure, more);
}

// True when the log holds exactly this line at this severity.
inline bool LoggedLine(int severity, const std::string& text) {
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    if (line.severity == severity && line.text.GetAsciiString() == text) return true;
  }
  return false;
}

// Resets the scene and the log around each test.
class RigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    KRX::rt::ClearLog();
  }
  void TearDown() override { KRX::rt::ResetScene(); }
};

}  // namespace kavor::rigtest

// Scene files: a scene with every kind of item reopens holding and evaluating the same;
// files that break a rule are refused with a message that says where, and leave the open
// scene as it was. (Damage byte by byte is the fuzz harness's part.)
#include "files/scene_file.h"

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "krx/files/scene_file_test_support.h"
#include "runtime/item.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt::testing {
namespace {

using Json = nlohmann::json;

class SceneFile : public SceneFileFixture {};

TEST_F(SceneFile, ReopensHoldingAndEvaluatingTheSame) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  const CString watched[] = {L"Rig.hip", L"Rig.knee", L"Rig.tip", L"Rig.dst"};
  std::vector<MATH::CTransformation> before;
  for (const CString& name : watched) {
    for (double frame : {1.0, 2.5, 4.0, 8.5}) before.push_back(GlobalAt(name, frame));
  }
  const std::vector<std::string> fingerprint = SceneFingerprint();
  ASSERT_GT(fingerprint.size(), 100u);
  const std::string first = Path("first.scene"), second = Path("second.scene");
  ASSERT_TRUE(SaveSceneFile(first).ok);
  ResetScene();
  EXPECT_EQ(Counts().op_term, 1);
  Application().GetActiveSceneRoot().AddNull(L"decoy");

  const FileResult opened = OpenSceneFile(first);
  ASSERT_TRUE(opened.ok) << opened.message;
  EXPECT_EQ(SceneFingerprint(), fingerprint);  // the decoy is gone, everything else is back
  EXPECT_EQ(Counts().scene_opened, 1);
  // The operator was connected again (its _Init ran); the plug-in's property was not
  // defined again.
  EXPECT_EQ(Counts().op_init, 2);
  EXPECT_EQ(Counts().prop_define, 1);
  size_t i = 0;
  for (const CString& name : watched) {
    for (double frame : {1.0, 2.5, 4.0, 8.5}) {
      const MATH::CTransformation now = GlobalAt(name, frame), was = before[i++];
      EXPECT_TRUE(now.GetTranslation().Equals(was.GetTranslation(), 1e-12) &&
                  now.GetRotationQuaternion().SameRotation(was.GetRotationQuaternion(), 1e-12))
          << name.GetAsciiString() << " at " << frame;
    }
  }
  // src at x = 2, moved up by amount 0.75 and the _Init data 7 (no _Init, no move).
  EXPECT_TRUE(GlobalAt(L"Rig.dst", 3.0).GetTranslation().Equals(MATH::CVector3(2, 7.75, 0), 1e-12));
  ASSERT_TRUE(SaveSceneFile(second).ok);  // nothing lost or added
  EXPECT_EQ(FileBytes(first), FileBytes(second));
}

TEST_F(SceneFile, HostCommands) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  Application app;
  CValue result;
  const std::string file = Path("cmd.scene");
  ASSERT_EQ(app.ExecuteCommand(L"SaveScene", {CString(file)}, result), CStatus::OK);
  EXPECT_TRUE(result.GetBool());
  ASSERT_EQ(app.ExecuteCommand(L"NewScene", {}, result), CStatus::OK);
  EXPECT_TRUE(app.GetActiveSceneRoot().GetChildren().empty());
  EXPECT_EQ(Counts().scene_new, 1);
  EXPECT_EQ(Counts().op_term, 1);
  ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(file)}, result), CStatus::OK);
  EXPECT_TRUE(result.GetBool() && X3DObject(CRef::FromText(L"Rig.knee")).IsValid());

  const Item* root = ActiveScene().root.get();
  for (const std::string& bad : {std::string(), folder_.string(), Path("missing.scene")}) {
    ClearLog();
    ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(bad)}, result), CStatus::OK);
    EXPECT_FALSE(result.GetBool()) << bad;
    EXPECT_EQ(ActiveScene().root.get(), root);
    ASSERT_FALSE(LogLines().empty());
    EXPECT_EQ(LogLines().back().severity, kSeverityError);
    EXPECT_EQ(LogLines().back().text.GetAsciiString().rfind("OpenScene: ", 0), 0u);
  }
}

Json& Named(Json& list, const char* name) {
  for (Json& entry : list) {
    if (entry["name"] == name) return entry;
  }
  ADD_FAILURE() << "no entry named " << name;
  static Json none;
  return none;
}

FileResult ReadText(const std::string& text) {
  return ReadSceneFromBytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

TEST_F(SceneFile, EveryRuleIsCheckedAndTheOpenSceneKept) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  const std::string saved = Path("good.scene");
  ASSERT_TRUE(SaveSceneFile(saved).ok);
  const std::vector<uint8_t> bytes = FileBytes(saved);
  const Json good = Json::parse(bytes.begin(), bytes.end());
  // Parts of the document by name: an object, a kinematic parameter of an object, a
  // property of ctrl, a parameter of ctrl's "Controls", a parameter of Play Control.
  const auto obj = [](Json& d, const char* name) -> Json& { return Named(d["objects"], name); };
  const auto kine = [obj](Json& d, const char* o, const char* p) -> Json& {
    return Named(obj(d, o)["properties"][0]["local"]["params"], p);
  };
  const auto prop = [obj](Json& d, const char* p) -> Json& {
    return Named(obj(d, "ctrl")["properties"], p);
  };
  const auto ctl = [prop](Json& d, const char* p) -> Json& {
    return Named(prop(d, "Controls")["params"], p);
  };
  const auto play = [](Json& d, const char* p) -> Json& {
    return Named(Named(d["project"]["properties"], "Play Control")["params"], p);
  };
  const auto chain = [&](Json& d) {  // 600 objects, each the child of the one before
    Json link = obj(d, "src");
    for (int i = 0; i < 600; ++i) d["objects"].push_back((link["parent"] = d["objects"].size() - 1, link));
  };
  const auto nest = [&](Json& d) {
    Json deep = Json::array();
    for (int i = 0; i < 100; ++i) deep = Json::array({deep});
    ctl(d, "title")["value"] = deep;
  };
  const auto no_posx = [&](Json& d) {
    Json& params = obj(d, "src")["properties"][0]["local"]["params"];
    for (size_t i = 0; i < params.size(); ++i) {
      if (params[i]["name"] == "posx") params.erase(i);
    }
  };
  const auto tip_constraint = [&](Json& d) -> Json& {
    for (Json& property : obj(d, "tip")["properties"]) {
      if (property.contains("constraining")) return property["constraining"];
    }
    return obj(d, "tip");
  };
  const struct {
    std::function<void(Json&)> change;
    std::string expected;  // a part of the message
  } cases[] = {
      {[](Json& d) { d["format"] = "text"; }, "not a scene file"},
      {[](Json& d) { d["version"] = 2; }, "version 2"},
      {[](Json& d) { d["objects"] = Json::array(); }, "scene root"},
      {[](Json& d) { d["objects"][0]["parent"] = 0; }, "no parent"},
      {[](Json& d) { d["objects"][1]["parent"] = 3; }, "outside 0..0"},
      {[&](Json& d) { obj(d, "src")["class"] = 99; }, "not a 3D object class"},
      {[&](Json& d) { obj(d, "tip")["name"] = "ctrl"; }, "a second child named \"ctrl\""},
      {[&](Json& d) { obj(d, "tip")["name"] = "t.p"; }, "contains \".\""},
      {[&](Json& d) { obj(d, "tip")["name"] = ""; }, "is empty"},
      {[&](Json& d) { obj(d, "tip")["name"] = "t\n"; }, "control character"},
      {[&](Json& d) { obj(d, "tip")["name"] = 5; }, "not text"},
      {chain, "deeper than 512"},
      {no_posx, "no numeric parameter \"posx\""},
      {[&](Json& d) { kine(d, "src", "rotorder")["value"] = 6; }, "\"rotorder\" is 6, not 0..5"},
      {[&](Json& d) { std::swap(obj(d, "ctrl")["properties"][0], obj(d, "ctrl")["properties"][1]); },
       "kinematics"},
      {[&](Json& d) { std::swap(kine(d, "hip", "posx")["fcurve"][0], kine(d, "hip", "posx")["fcurve"][1]); },
       "function curve"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve"][0].erase(7); }, "7 fields"},
      {[&](Json& d) { kine(d, "hip", "posx")["fcurve"][0][6] = 4; }, "interpolation"},
      {[&](Json& d) { kine(d, "knee", "rotz")["expression"] = "* 2 +"; }, "the expression \"* 2 +\""},
      {[&](Json& d) { ctl(d, "title")["fcurve"] = kine(d, "hip", "posx")["fcurve"]; }, "not a number"},
      {[&](Json& d) { ctl(d, "count")["value"] = 1LL << 40; }, "outside"},
      {[&](Json& d) { ctl(d, "count")["value_type"] = 4; }, "value type 4"},
      {[&](Json& d) { ctl(d, "count")["name"] = "amount"; }, "a second parameter named \"amount\""},
      {[&](Json& d) { ctl(d, "table")["grid"]["cells"].erase(0); }, "\"cells\" has 3 entries, not 4"},
      {[&](Json& d) { ctl(d, "table")["grid"]["column_types"][0] = 77; }, "column type 77"},
      {[&](Json& d) { ctl(d, "title")["value"] = {{"ref", "Rig.nobody"}}; }, "\"Rig.nobody\" names nothing"},
      {[&](Json& d) { prop(d, "Data")["bytes"] = "AAE"; }, "base64"},
      {[&](Json& d) { prop(d, "Data")["class"] = 16; }, "not a property class"},
      {[&](Json& d) { tip_constraint(d)[0] = "Rig.gone"; }, "\"Rig.gone\" names nothing"},
      {[](Json& d) { d["operators"][0]["ports"][1]["target"] = "Rig.gone.kine"; }, "names nothing"},
      {[](Json& d) {
         for (Json& port : d["operators"][0]["ports"]) port["output"] = false;
       },
       "no output"},
      {[](Json& d) { d["selection"][0] = "Rig.gone"; }, "names nothing"},
      {[](Json& d) { Named(d["project"]["properties"], "Play Control")["name"] = "Other"; },
       "Play Control"},
      {[&](Json& d) { play(d, "Rate")["value"] = 0.0; }, "rate"},
      {nest, "nests deeper"},
  };
  for (const auto& c : cases) {
    Json doc = good;
    c.change(doc);
    const FileResult result = ReadText(doc.dump());
    EXPECT_FALSE(result.ok) << c.expected;
    EXPECT_NE(result.message.find(c.expected), std::string::npos) << result.message;
  }
  {  // A number too large for a double (it would read as infinity).
    Json doc = good;
    kine(doc, "src", "posy")["value"] = 12345.5;
    std::string text = doc.dump();
    const FileResult result = ReadText(text.replace(text.find("12345.5"), 7, "1e999"));
    EXPECT_NE(result.message.find("1e999"), std::string::npos) << result.message;
  }
  {  // A reference that resolves is read (the rule above is about resolution only).
    Json doc = good;
    ctl(doc, "title")["value"] = {{"ref", "Rig.hip"}};
    EXPECT_TRUE(ReadText(doc.dump()).ok);
  }
  // A file cut short, and one whose message says where: the file and the object by name.
  // The open scene stays, its operator neither ended nor initialised again.
  Json bad_order = good;
  kine(bad_order, "src", "rotorder")["value"] = 9;
  const std::string bad_text = bad_order.dump();
  WriteBytes(Path("bad.scene"), {bad_text.begin(), bad_text.end()});
  WriteBytes(Path("cut.scene"), {bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() / 2)});
  const Item* root = ActiveScene().root.get();
  for (const char* name : {"cut.scene", "bad.scene"}) {
    const FileResult result = OpenSceneFile(Path(name));
    EXPECT_FALSE(result.ok) << name;
    EXPECT_NE(result.message.find(name), std::string::npos) << result.message;
    EXPECT_EQ(ActiveScene().root.get(), root);
    EXPECT_TRUE(Counts().op_init == 1 && Counts().op_term == 0) << name;
  }
  EXPECT_NE(OpenSceneFile(Path("bad.scene")).message.find("\"src\""), std::string::npos);
}

}  // namespace
}  // namespace KRX::rt::testing

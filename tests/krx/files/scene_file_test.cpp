// Scene files: a scene with every kind of content reopens holding and evaluating the same,
// through the host commands too; files that break a rule are refused with a message that
// says where, and leave the open scene as it was. (Damage byte by byte is the fuzz
// harness's part.)
#include "files/scene_file.h"

#include <gtest/gtest.h>

#include <algorithm>
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
using MATH::CVector3;

class SceneFileRoundTrip : public SceneFileFixture {};

TEST_F(SceneFileRoundTrip, ReopenedSceneHoldsAndEvaluatesTheSame) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  const std::vector<CString> watched = {L"Rig.hip", L"Rig.knee", L"Rig.tip", L"Rig.dst"};
  const double frames[] = {1.0, 2.5, 4.0, 10.0};
  std::vector<MATH::CTransformation> before;
  for (const CString& name : watched) {
    ASSERT_TRUE(X3DObject(CRef::FromText(name)).IsValid()) << name.GetAsciiString();
    for (double frame : frames) before.push_back(GlobalAt(name, frame));
  }
  EXPECT_EQ(Counts().op_init, 1);
  EXPECT_EQ(Counts().prop_define, 1);

  const std::vector<std::string> fingerprint = SceneFingerprint();
  ASSERT_GT(fingerprint.size(), 100u);
  const std::string first = Path("first.scene");
  ASSERT_TRUE(SaveSceneFile(first).ok);
  ResetScene();
  EXPECT_EQ(Counts().op_term, 1);
  Application().GetActiveSceneRoot().AddNull(L"decoy");

  const FileResult opened = OpenSceneFile(first);
  ASSERT_TRUE(opened.ok) << opened.message;
  EXPECT_FALSE(X3DObject(CRef::FromText(L"decoy")).IsValid());
  EXPECT_EQ(Counts().scene_opened, 1);
  {  // Every item and every field as it was, in the same order.
    const std::vector<std::string> reopened = SceneFingerprint();
    EXPECT_EQ(reopened.size(), fingerprint.size());
    for (size_t i = 0; i < std::min(reopened.size(), fingerprint.size()); ++i) {
      EXPECT_EQ(reopened[i], fingerprint[i]);
    }
  }

  {  // The operator was connected again (its _Init ran) and evaluates as before; the
     // property the plug-in defined was not defined again.
    EXPECT_EQ(Counts().op_init, 2);
    EXPECT_EQ(Counts().prop_define, 1);
    size_t i = 0;
    for (const CString& name : watched) {
      for (double frame : frames) {
        ExpectSameTransform(GlobalAt(name, frame), before[i++], 1e-12,
                            name.GetAsciiString() + " at " + std::to_string(frame));
      }
    }
    EXPECT_EQ(Counts().op_update_without_data, 0);
    // src at x = 2, shifted by amount 0.75 and the _Init data 7.
    EXPECT_TRUE(GlobalAt(L"Rig.dst", 3.0).GetTranslation().Equals(CVector3(2.0, 7.75, 0.0), 1e-12));
  }
  // The expression still drives: 30 * 2 + 1 degrees.
  EXPECT_NEAR(X3DObject(CRef::FromText(L"Rig.knee"))
                  .GetKinematics().GetLocal().GetParameter(L"rotz").GetValue(1.0).GetDouble(),
              61.0, 1e-12);
  {  // Saving the reopened scene gives the same file: nothing was lost or added.
    const std::string second = Path("second.scene");
    ASSERT_TRUE(SaveSceneFile(second).ok);
    EXPECT_EQ(FileBytes(first), FileBytes(second));
  }
}

TEST_F(SceneFileRoundTrip, HostCommands) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  Application app;
  CValue result;
  const std::string file = Path("cmd.scene");
  {  // SaveScene then NewScene: an empty scene and the new-scene event.
    ASSERT_EQ(app.ExecuteCommand(L"SaveScene", {CString(file)}, result), CStatus::OK);
    EXPECT_TRUE(result.GetBool());
    ASSERT_EQ(app.ExecuteCommand(L"NewScene", {}, result), CStatus::OK);
    EXPECT_TRUE(app.GetActiveSceneRoot().GetChildren().empty());
    EXPECT_EQ(Counts().scene_new, 1);
    EXPECT_EQ(Counts().op_term, 1);
  }
  {  // OpenScene brings it back.
    ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(file)}, result), CStatus::OK);
    EXPECT_TRUE(result.GetBool());
    EXPECT_TRUE(X3DObject(CRef::FromText(L"Rig.knee")).IsValid());
  }
  const Item* root = ActiveScene().root.get();
  for (const std::string& bad : {std::string(), folder_.string(), Path("missing.scene")}) {
    // A folder or a missing file: false, an error in the log, the scene as it was.
    ClearLog();
    ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(bad)}, result), CStatus::OK);
    EXPECT_FALSE(result.GetBool()) << bad;
    EXPECT_EQ(ActiveScene().root.get(), root);
    ASSERT_FALSE(LogLines().empty());
    EXPECT_EQ(LogLines().back().severity, kSeverityError);
    EXPECT_NE(LogLines().back().text.GetAsciiString().find("OpenScene"), std::string::npos);
  }
}

class SceneFileCorruption : public SceneFileFixture {
 protected:
  void SetUp() override {
    SceneFileFixture::SetUp();
    ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
    file_ = Path("good.scene");
    ASSERT_TRUE(SaveSceneFile(file_).ok);
    bytes_ = FileBytes(file_);
    ASSERT_GT(bytes_.size(), 1000u);
    root_ = ActiveScene().root.get();
    inits_ = Counts().op_init;
  }

  // The open scene is the one built in SetUp, its operator never re-initialised or ended.
  void ExpectSceneUntouched(const std::string& what) const {
    EXPECT_EQ(ActiveScene().root.get(), root_) << what;
    EXPECT_EQ(Counts().op_init, inits_) << what;
    EXPECT_EQ(Counts().op_term, 0) << what;
  }

  std::string file_;
  std::vector<uint8_t> bytes_;
  const Item* root_ = nullptr;
  int inits_ = 0;
};

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

TEST_F(SceneFileCorruption, EveryRuleIsChecked) {
  const Json good = Json::parse(bytes_.begin(), bytes_.end());
  ASSERT_TRUE(ReadSceneFromBytes(bytes_.data(), bytes_.size()).ok);
  // Parts of the document by name: an object, a kinematic parameter of an object, a
  // parameter of ctrl's "Controls", a property of ctrl, a parameter of Play Control.
  const auto obj = [](Json& d, const char* name) -> Json& { return Named(d["objects"], name); };
  const auto kine = [obj](Json& d, const char* o, const char* p) -> Json& {
    return Named(obj(d, o)["properties"][0]["local"]["params"], p);
  };
  const auto prop = [obj](Json& d, const char* name) -> Json& {
    return Named(obj(d, "ctrl")["properties"], name);
  };
  const auto ctl = [prop](Json& d, const char* p) -> Json& {
    return Named(prop(d, "Controls")["params"], p);
  };
  const auto play = [](Json& d, const char* p) -> Json& {
    return Named(Named(d["project"]["properties"], "Play Control")["params"], p);
  };
  const struct {
    const char* rule;
    std::function<void(Json&)> change;
    std::string expected;  // a part of the message
  } cases[] = {
      {"format", [](Json& d) { d["format"] = "text"; }, "not a scene file"},
      {"version", [](Json& d) { d["version"] = 2; }, "version 2"},
      {"no root", [](Json& d) { d["objects"] = Json::array(); }, "scene root"},
      {"root with a parent", [](Json& d) { d["objects"][0]["parent"] = 0; }, "no parent"},
      {"parent after child", [](Json& d) { d["objects"][1]["parent"] = 3; }, "outside 0..0"},
      {"object class", [&](Json& d) { obj(d, "src")["class"] = 99; }, "not a 3D object class"},
      {"sibling names", [&](Json& d) { obj(d, "tip")["name"] = "ctrl"; },
       "a second child named \"ctrl\""},
      {"dot in a name", [&](Json& d) { obj(d, "tip")["name"] = "t.p"; }, "contains \".\""},
      {"empty name", [&](Json& d) { obj(d, "tip")["name"] = ""; }, "is empty"},
      {"control character", [&](Json& d) { obj(d, "tip")["name"] = "t\n"; }, "control character"},
      {"name type", [&](Json& d) { obj(d, "tip")["name"] = 5; }, "not text"},
      {"hierarchy depth",
       [&](Json& d) {
         Json link = obj(d, "src");
         for (int i = 0; i < 600; ++i) {
           link["parent"] = d["objects"].size() - 1;
           d["objects"].push_back(link);
         }
       },
       "deeper than 512"},
      {"kinematic parameter missing",
       [&](Json& d) {
         Json& params = obj(d, "src")["properties"][0]["local"]["params"];
         for (size_t i = 0; i < params.size(); ++i) {
           if (params[i]["name"] == "posx") params.erase(i);
         }
       },
       "no numeric parameter \"posx\""},
      {"rotation order", [&](Json& d) { kine(d, "src", "rotorder")["value"] = 7; }, "rotorder"},
      {"kinematics first",
       [&](Json& d) {
         Json& properties = obj(d, "ctrl")["properties"];
         std::swap(properties[0], properties[1]);
       },
       "kinematics"},
      {"key order",
       [&](Json& d) {
         Json& keys = kine(d, "hip", "posx")["fcurve"];
         std::swap(keys[0], keys[1]);
       },
       "function curve"},
      {"key fields", [&](Json& d) { kine(d, "hip", "posx")["fcurve"][0].erase(7); }, "7 fields"},
      {"interpolation", [&](Json& d) { kine(d, "hip", "posx")["fcurve"][0][6] = 4; },
       "interpolation"},
      {"expression form", [&](Json& d) { kine(d, "knee", "rotz")["expression"] = "* 2 +"; },
       "the expression \"* 2 +\""},
      {"curve on text",
       [&](Json& d) { ctl(d, "title")["fcurve"] = kine(d, "hip", "posx")["fcurve"]; },
       "not a number"},
      {"32-bit integer", [&](Json& d) { ctl(d, "count")["value"] = 1LL << 40; }, "outside"},
      {"value type", [&](Json& d) { ctl(d, "count")["value_type"] = 4; }, "value type 4"},
      {"parameter names", [&](Json& d) { ctl(d, "count")["name"] = "amount"; },
       "a second parameter named \"amount\""},
      {"grid cells", [&](Json& d) { ctl(d, "table")["grid"]["cells"].erase(0); },
       "\"cells\" has 5 entries, not 6"},
      {"grid column type", [&](Json& d) { ctl(d, "table")["grid"]["column_types"][0] = 77; },
       "column type 77"},
      {"unresolved value reference",
       [&](Json& d) { ctl(d, "title")["value"] = {{"ref", "Rig.nobody"}}; },
       "\"Rig.nobody\" names nothing"},
      {"blob bytes", [&](Json& d) { prop(d, "Data")["bytes"] = "AAE"; }, "base64"},
      {"property class", [&](Json& d) { prop(d, "Data")["class"] = 16; }, "not a property class"},
      {"constraining object",
       [&](Json& d) {
         for (Json& property : obj(d, "tip")["properties"]) {
           if (property.contains("constraining")) property["constraining"][0] = "Rig.gone";
         }
       },
       "\"Rig.gone\" names nothing"},
      {"port target", [](Json& d) { d["operators"][0]["ports"][1]["target"] = "Rig.gone.kine"; },
       "names nothing"},
      {"operator output",
       [](Json& d) {
         for (Json& port : d["operators"][0]["ports"]) port["output"] = false;
       },
       "no output"},
      {"selection", [](Json& d) { d["selection"][0] = "Rig.gone"; }, "names nothing"},
      {"play control",
       [](Json& d) { Named(d["project"]["properties"], "Play Control")["name"] = "Other"; },
       "Play Control"},
      {"rate", [&](Json& d) { play(d, "Rate")["value"] = 0.0; }, "rate"},
      {"nesting",
       [&](Json& d) {
         Json deep = Json::array();
         for (int i = 0; i < 100; ++i) deep = Json::array({deep});
         ctl(d, "title")["value"] = deep;
       },
       "nests deeper"},
  };
  for (const auto& c : cases) {
    Json doc = good;
    c.change(doc);
    const FileResult result = ReadText(doc.dump());
    EXPECT_FALSE(result.ok) << c.rule;
    EXPECT_NE(result.message.find(c.expected), std::string::npos) << c.rule << ": "
                                                                   << result.message;
  }
  {  // A number too large for a double (it would read as infinity).
    Json doc = good;
    kine(doc, "src", "posy")["value"] = 12345.5;
    std::string text = doc.dump();
    const size_t at = text.find("12345.5");
    ASSERT_NE(at, std::string::npos);
    const FileResult result = ReadText(text.replace(at, 7, "1e999"));
    EXPECT_FALSE(result.ok);
    EXPECT_NE(result.message.find("1e999"), std::string::npos) << result.message;
  }
  {  // A reference that resolves is read (the rule above is about resolution only).
    Json doc = good;
    ctl(doc, "title")["value"] = {{"ref", "Rig.hip"}};
    const FileResult result = ReadText(doc.dump());
    EXPECT_TRUE(result.ok) << result.message;
  }
  {  // A file cut short (the fuzz harness tries every other damage) is refused as a whole.
    WriteBytes(Path("cut.scene"), {bytes_.begin(), bytes_.begin() + static_cast<long>(bytes_.size() / 2)});
    const FileResult result = OpenSceneFile(Path("cut.scene"));
    EXPECT_FALSE(result.ok || result.message.empty());
    ExpectSceneUntouched("a file cut short");
  }
  {  // A message says where: the file, and the object by name.
    Json doc = good;
    kine(doc, "src", "rotorder")["value"] = 9;
    const std::string bad = Path("bad.scene"), text = doc.dump();
    WriteBytes(bad, std::vector<uint8_t>(text.begin(), text.end()));
    const FileResult result = OpenSceneFile(bad);
    ASSERT_FALSE(result.ok);
    EXPECT_NE(result.message.find("bad.scene"), std::string::npos) << result.message;
    EXPECT_NE(result.message.find("\"src\""), std::string::npos) << result.message;
    ExpectSceneUntouched("a bad rotation order");
  }
}

}  // namespace
}  // namespace KRX::rt::testing

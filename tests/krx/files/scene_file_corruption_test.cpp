#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "files/scene_file.h"
#include "krx/files/scene_file_test_support.h"
#include "runtime/scene_state.h"

namespace KRX::rt::testing {
namespace {

using Json = nlohmann::json;

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

TEST_F(SceneFileCorruption, TruncatedFilesAreRefused) {
  // Every prefix that ends before the document's closing brace.
  const size_t end = bytes_.size() - 2;
  ASSERT_EQ(bytes_[end], '}');
  // Every byte of the header, then offsets spread over the rest (the fuzzer goes further).
  const size_t step = std::max<size_t>(1, end / 300);
  const std::string cut = Path("cut.scene");
  for (size_t n = 0; n <= end; n += (n < 128 ? 1 : step)) {
    WriteBytes(cut, std::vector<uint8_t>(bytes_.begin(), bytes_.begin() + static_cast<long>(n)));
    const FileResult result = OpenSceneFile(cut);
    ASSERT_FALSE(result.ok) << "prefix of " << n << " bytes";
    EXPECT_FALSE(result.message.empty());
    ExpectSceneUntouched("prefix of " + std::to_string(n) + " bytes");
  }
}

TEST_F(SceneFileCorruption, FlippedBytesNeverCrash) {
  {  // A high bit set or cleared anywhere is never valid UTF-8 JSON: always refused.
    const std::string flipped_file = Path("flip.scene");
    const size_t step = std::max<size_t>(1, bytes_.size() / 150);
    for (size_t i = 0; i < bytes_.size(); i += step) {
      std::vector<uint8_t> flipped = bytes_;
      flipped[i] ^= 0x80;
      WriteBytes(flipped_file, flipped);
      ASSERT_FALSE(OpenSceneFile(flipped_file).ok) << "byte " << i;
      ExpectSceneUntouched("byte " + std::to_string(i));
    }
  }
  {  // Low bits changed: some files stay valid (a digit becomes another digit), the rest
     // are refused; nothing crashes and the open scene is never touched.
    size_t refused = 0, tried = 0;
    const size_t step = std::max<size_t>(1, bytes_.size() / 60) | 1;
    for (uint8_t mask : {0x01, 0x02, 0x08, 0x20}) {
      for (size_t i = mask; i < bytes_.size(); i += step) {
        std::vector<uint8_t> flipped = bytes_;
        flipped[i] ^= mask;
        ++tried;
        if (!ReadSceneFromBytes(flipped.data(), flipped.size()).ok) ++refused;
      }
    }
    EXPECT_GT(refused, tried / 10);
    ExpectSceneUntouched("low-bit flips");
  }
}

TEST_F(SceneFileCorruption, EveryRuleIsChecked) {
  const Json good = Json::parse(bytes_.begin(), bytes_.end());
  ASSERT_TRUE(ReadSceneFromBytes(bytes_.data(), bytes_.size()).ok);
  // Breaks one rule in a copy of the good document and expects a message with `expected`.
  auto expect_refused = [&](const std::string& rule, const std::function<void(Json&)>& change,
                            const std::string& expected) {
    Json doc = good;
    change(doc);
    const std::string text = doc.dump();
    const FileResult result =
        ReadSceneFromBytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    EXPECT_FALSE(result.ok) << rule;
    EXPECT_NE(result.message.find(expected), std::string::npos) << rule << ": " << result.message;
  };
  auto local = [](Json& doc, const char* object) -> Json& {
    return Named(doc["objects"], object)["properties"][0]["local"];
  };
  auto controls = [](Json& doc) -> Json& {
    return Named(Named(doc["objects"], "ctrl")["properties"], "Controls");
  };

  expect_refused(
      "format", [](Json& d) { d["format"] = "text"; }, "not a scene file");
  expect_refused(
      "version", [](Json& d) { d["version"] = 2; }, "version 2");
  expect_refused(
      "no root", [](Json& d) { d["objects"] = Json::array(); }, "scene root");
  expect_refused(
      "root with a parent", [](Json& d) { d["objects"][0]["parent"] = 0; }, "no parent");
  expect_refused(
      "parent after child", [](Json& d) { d["objects"][1]["parent"] = 3; }, "outside 0..0");
  expect_refused(
      "object class", [](Json& d) { Named(d["objects"], "src")["class"] = 99; },
      "not a 3D object class");
  expect_refused(
      "sibling names", [](Json& d) { Named(d["objects"], "tip")["name"] = "ctrl"; },
      "a second child named \"ctrl\"");
  expect_refused(
      "dot in a name", [](Json& d) { Named(d["objects"], "tip")["name"] = "t.p"; },
      "contains \".\"");
  expect_refused(
      "empty name", [](Json& d) { Named(d["objects"], "tip")["name"] = ""; }, "is empty");
  expect_refused(
      "control character", [](Json& d) { Named(d["objects"], "tip")["name"] = "t\n"; },
      "control character");
  expect_refused(
      "name type", [](Json& d) { Named(d["objects"], "tip")["name"] = 5; }, "not text");
  expect_refused(
      "hierarchy depth",
      [](Json& d) {
        Json link = Named(d["objects"], "src");
        for (int i = 0; i < 600; ++i) {
          link["parent"] = d["objects"].size() - 1;
          d["objects"].push_back(link);
        }
      },
      "deeper than 512");
  expect_refused(
      "kinematic parameter missing",
      [&](Json& d) {
        Json& params = local(d, "src")["params"];
        for (size_t i = 0; i < params.size(); ++i) {
          if (params[i]["name"] == "posx") params.erase(i);
        }
      },
      "no numeric parameter \"posx\"");
  expect_refused(
      "rotation order", [&](Json& d) { Named(local(d, "src")["params"], "rotorder")["value"] = 7; },
      "rotorder");
  expect_refused(
      "kinematics first",
      [](Json& d) {
        Json& properties = Named(d["objects"], "ctrl")["properties"];
        std::swap(properties[0], properties[1]);
      },
      "kinematics");
  expect_refused(
      "key order",
      [&](Json& d) {
        Json& keys = Named(local(d, "hip")["params"], "posx")["fcurve"];
        std::swap(keys[0], keys[1]);
      },
      "function curve");
  expect_refused(
      "key fields",
      [&](Json& d) { Named(local(d, "hip")["params"], "posx")["fcurve"][0].erase(7); }, "7 fields");
  expect_refused(
      "interpolation",
      [&](Json& d) { Named(local(d, "hip")["params"], "posx")["fcurve"][0][6] = 4; },
      "interpolation");
  expect_refused(
      "expression form",
      [&](Json& d) { Named(local(d, "knee")["params"], "rotz")["expression"] = "* 2 +"; },
      "the expression \"* 2 +\"");
  expect_refused(
      "curve on text",
      [&](Json& d) {
        Named(controls(d)["params"], "title")["fcurve"] =
            Named(local(d, "hip")["params"], "posx")["fcurve"];
      },
      "not a number");
  expect_refused(
      "32-bit integer",
      [&](Json& d) { Named(controls(d)["params"], "count")["value"] = 1LL << 40; }, "outside");
  expect_refused(
      "value type", [&](Json& d) { Named(controls(d)["params"], "count")["value_type"] = 4; },
      "value type 4");
  expect_refused(
      "parameter names", [&](Json& d) { Named(controls(d)["params"], "count")["name"] = "amount"; },
      "a second parameter named \"amount\"");
  expect_refused(
      "grid cells",
      [&](Json& d) { Named(controls(d)["params"], "table")["grid"]["cells"].erase(0); },
      "\"cells\" has 5 entries, not 6");
  expect_refused(
      "grid column type",
      [&](Json& d) { Named(controls(d)["params"], "table")["grid"]["column_types"][0] = 77; },
      "column type 77");
  expect_refused(
      "unresolved value reference",
      [&](Json& d) {
        Named(controls(d)["params"], "title")["value"] = {{"ref", "Rig.nobody"}};
      },
      "\"Rig.nobody\" names nothing");
  expect_refused(
      "blob bytes",
      [](Json& d) { Named(Named(d["objects"], "ctrl")["properties"], "Data")["bytes"] = "AAE"; },
      "base64");
  expect_refused(
      "property class",
      [](Json& d) { Named(Named(d["objects"], "ctrl")["properties"], "Data")["class"] = 16; },
      "not a property class");
  expect_refused(
      "constraining object",
      [](Json& d) {
        Json& tip = Named(d["objects"], "tip");
        for (Json& property : tip["properties"]) {
          if (property.contains("constraining")) property["constraining"][0] = "Rig.gone";
        }
      },
      "\"Rig.gone\" names nothing");
  expect_refused(
      "port target", [](Json& d) { d["operators"][0]["ports"][1]["target"] = "Rig.gone.kine"; },
      "names nothing");
  expect_refused(
      "operator output",
      [](Json& d) {
        for (Json& port : d["operators"][0]["ports"]) port["output"] = false;
      },
      "no output");
  expect_refused(
      "selection", [](Json& d) { d["selection"][0] = "Rig.gone"; }, "names nothing");
  expect_refused(
      "play control",
      [](Json& d) { Named(d["project"]["properties"], "Play Control")["name"] = "Other"; },
      "Play Control");
  expect_refused(
      "rate",
      [](Json& d) {
        Named(Named(d["project"]["properties"], "Play Control")["params"], "Rate")["value"] = 0.0;
      },
      "rate");
  expect_refused(
      "nesting",
      [&](Json& d) {
        Json deep = Json::array();
        for (int i = 0; i < 100; ++i) deep = Json::array({deep});
        Named(controls(d)["params"], "title")["value"] = deep;
      },
      "nests deeper");

  {  // A number too large for a double (it would read as infinity).
    Json doc = good;
    Named(local(doc, "src")["params"], "posy")["value"] = 12345.5;
    std::string text = doc.dump();
    const size_t at = text.find("12345.5");
    ASSERT_NE(at, std::string::npos);
    text.replace(at, 7, "1e999");
    const FileResult result =
        ReadSceneFromBytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    EXPECT_FALSE(result.ok);
    EXPECT_NE(result.message.find("1e999"), std::string::npos) << result.message;
  }
  {  // A reference that resolves is read (the rule above is about resolution only).
    Json doc = good;
    Named(controls(doc)["params"], "title")["value"] = {{"ref", "Rig.hip"}};
    const std::string text = doc.dump();
    const FileResult result =
        ReadSceneFromBytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    EXPECT_TRUE(result.ok) << result.message;
  }
  {  // A message says where: the object and the parameter by name.
    Json doc = good;
    Named(local(doc, "src")["params"], "rotorder")["value"] = 9;
    const std::string bad = Path("bad.scene");
    const std::string text = doc.dump();
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

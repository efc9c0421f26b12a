#include "files/export_transforms.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "krx/files/scene_file_test_support.h"

namespace KRX::rt::testing {
namespace {

using Json = nlohmann::json;

class ExportTransformsTest : public SceneFileFixture {
 protected:
  // Rig at (0, 0, 5) holds a (x = 1, turned 90 degrees about Z) with its child b (x = 2),
  // then c, whose y is keyed linearly from 0 at frame 1 to 4 at frame 3.
  void BuildRig() {
    X3DObject rig = Application().GetActiveSceneRoot().AddModel(L"Rig");
    ASSERT_TRUE(Succeeded(rig.GetKinematics().GetLocal().PutParameterValue(L"posz", 5.0)));
    X3DObject a = rig.AddNull(L"a");
    ASSERT_TRUE(Succeeded(a.GetKinematics().GetLocal().PutParameterValue(L"posx", 1.0)));
    ASSERT_TRUE(Succeeded(a.GetKinematics().GetLocal().PutParameterValue(L"rotz", 90.0)));
    X3DObject b = a.AddNull(L"b");
    ASSERT_TRUE(Succeeded(b.GetKinematics().GetLocal().PutParameterValue(L"posx", 2.0)));
    X3DObject c = rig.AddNull(L"c");
    ASSERT_TRUE(c.GetKinematics().GetLocal().GetParameter(L"posy").AddFCurve(
        {{.time = 1, .value = 0, .interpolation = Interpolation::Linear},
         {.time = 3, .value = 4, .interpolation = Interpolation::Linear}}).IsValid());
    ASSERT_TRUE(Succeeded(Application().PutCurrentFrame(7.0)));
  }

  static Json ReadJson(const std::string& path) {
    const std::vector<uint8_t> bytes = FileBytes(path);
    return Json::parse(bytes.begin(), bytes.end());
  }
};

// px, py, pz, qw, qx, qy, qz; the rotation may come as q or -q.
void ExpectSample(const Json& sample, const std::array<double, 7>& expected,
                  const std::string& what) {
  ASSERT_EQ(sample.size(), 7u) << what;
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(sample[i].get<double>(), expected[i], 1e-12) << what;
  const double sign = sample[3].get<double>() * expected[3] < 0.0 ? -1.0 : 1.0;
  for (size_t i = 3; i < 7; ++i) {
    EXPECT_NEAR(sign * sample[i].get<double>(), expected[i], 1e-12) << what << " q" << i;
  }
}

TEST_F(ExportTransformsTest, WritesGlobalsOfEveryObjectBelowTheModel) {
  ASSERT_NO_FATAL_FAILURE(BuildRig());
  const std::string file = Path("rig.json");
  CValue result;
  ASSERT_EQ(Application().ExecuteCommand(L"ExportTransforms",
                                         {CString(L"Rig"), CString(file), 1, 3}, result),
            CStatus::OK);
  ASSERT_TRUE(result.GetBool());
  const Json doc = ReadJson(file);
  EXPECT_EQ(doc["frames"], Json::parse("[1, 2, 3]"));
  ASSERT_EQ(doc["objects"].size(), 3u);  // depth first, the model itself left out
  const char* names[] = {"a", "b", "c"};
  const char* parents[] = {"Rig", "a", "Rig"};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(doc["objects"][i]["name"], names[i]);
    EXPECT_EQ(doc["objects"][i]["parent"], parents[i]);
    ASSERT_EQ(doc["objects"][i]["global"].size(), 3u);
  }
  const double h = std::sqrt(0.5);
  for (int f = 0; f < 3; ++f) {
    const std::string at = " at frame " + std::to_string(f + 1);
    ExpectSample(doc["objects"][0]["global"][f], {1, 0, 5, h, 0, 0, h}, "a" + at);
    // b's (2, 0, 0) turned 90 degrees about Z is (0, 2, 0), then moved by a's (1, 0, 5).
    ExpectSample(doc["objects"][1]["global"][f], {1, 2, 5, h, 0, 0, h}, "b" + at);
    ExpectSample(doc["objects"][2]["global"][f], {0, 2.0 * f, 5, 1, 0, 0, 0}, "c" + at);
  }
  {  // Numbers read back to exactly what the scene evaluates.
    const MATH::CTransformation b = GlobalAt(L"Rig.b", 2.0);
    EXPECT_EQ(doc["objects"][1]["global"][1][1].get<double>(), b.GetTranslation().GetY());
    EXPECT_EQ(doc["objects"][1]["global"][1][3].get<double>(), b.GetRotationQuaternion().GetW());
  }
  // The current frame is given back.
  EXPECT_EQ(Application().GetCurrentFrame(), 7.0);

  {  // A range that starts between frames walks in whole steps from its start.
    ASSERT_TRUE(ExportTransforms(X3DObject(CRef::FromText(L"Rig")), file, 1.5, 3.0).ok);
    const Json half = ReadJson(file);
    EXPECT_EQ(half["frames"], Json::parse("[1.5, 2.5]"));
    ExpectSample(half["objects"][2]["global"][0], {0, 1, 5, 1, 0, 0, 0}, "c at frame 1.5");
    ExpectSample(half["objects"][2]["global"][1], {0, 3, 5, 1, 0, 0, 0}, "c at frame 2.5");
  }
}

TEST_F(ExportTransformsTest, RefusesWhatItCannotExport) {
  ASSERT_NO_FATAL_FAILURE(BuildRig());
  const std::string file = Path("out.json");
  Application app;
  CValue result;
  auto run = [&](const CValueArray& args) {
    result = CValue();
    EXPECT_EQ(app.ExecuteCommand(L"ExportTransforms", args, result), CStatus::OK);
    return result.GetBool();
  };
  EXPECT_FALSE(run({CString(L"Nobody"), CString(file), 1, 3}));
  EXPECT_FALSE(run({CString(L"Rig"), CString(file), 3, 1}));
  EXPECT_FALSE(run({CString(L"Rig"), CString(file), CString(L"one"), 3}));
  EXPECT_FALSE(run({CString(L"Rig"), CString(Path("none/out.json")), 1, 3}));
  EXPECT_FALSE(run({CString(L"Rig"), CValue(), 1, 3}));
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_FALSE(ExportTransforms(X3DObject(CRef::FromText(L"Rig")), file, 0, 2e6).ok);
  EXPECT_EQ(app.GetCurrentFrame(), 7.0);
}

}  // namespace
}  // namespace KRX::rt::testing

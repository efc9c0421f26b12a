#include "files/export_transforms.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "krx/files/file_test_support.h"
#include "krx/krx.h"

namespace KRX::rt::testing {
namespace {

using Json = nlohmann::json;

class ExportTransformsTest : public FileTest {
 protected:
  // Rig at (0, 0, 5) holds a (x = 1, turned 90 degrees about Z) with its child b (x = 2),
  // then c, whose y is keyed linearly from 0 at frame 1 to 4 at frame 3.
  void SetUp() override {
    FileTest::SetUp();
    X3DObject rig = Application().GetActiveSceneRoot().AddModel(L"Rig");
    const auto put = [](X3DObject o, const wchar_t* name, double v) {
      EXPECT_TRUE(Succeeded(o.GetKinematics().GetLocal().PutParameterValue(name, v)));
    };
    put(rig, L"posz", 5.0);
    X3DObject a = rig.AddNull(L"a");
    put(a, L"posx", 1.0);
    put(a, L"rotz", 90.0);
    put(a.AddNull(L"b"), L"posx", 2.0);
    EXPECT_TRUE(rig.AddNull(L"c")
                    .GetKinematics()
                    .GetLocal()
                    .GetParameter(L"posy")
                    .AddFCurve({{.time = 1, .value = 0, .interpolation = Interpolation::Linear},
                                {.time = 3, .value = 4, .interpolation = Interpolation::Linear}})
                    .IsValid());
    EXPECT_TRUE(Succeeded(Application().PutCurrentFrame(7.0)));
  }

  bool Run(const CValueArray& args) {
    CValue result;
    EXPECT_EQ(Application().ExecuteCommand(L"ExportTransforms", args, result), CStatus::OK);
    return result.GetBool();
  }
};

// px, py, pz, qw, qx, qy, qz; the rotation may come as q or -q.
void ExpectSample(const Json& sample, const std::array<double, 7>& expected,
                  const std::string& what) {
  ASSERT_EQ(sample.size(), 7u) << what;
  const double sign = sample[3].get<double>() * expected[3] < 0.0 ? -1.0 : 1.0;
  for (size_t i = 0; i < 7; ++i) {
    EXPECT_NEAR((i < 3 ? 1.0 : sign) * sample[i].get<double>(), expected[i], 1e-12) << what << i;
  }
}

TEST_F(ExportTransformsTest, WritesGlobalsOfEveryObjectBelowTheModel) {
  const std::string file = Path("rig.json");
  ASSERT_TRUE(Run({CString(L"Rig"), CString(file), 1, 3}));
  const std::vector<uint8_t> bytes = FileBytes(file);
  const Json doc = Json::parse(bytes.begin(), bytes.end());
  EXPECT_EQ(doc["frames"], Json::parse("[1, 2, 3]"));
  ASSERT_EQ(doc["objects"].size(), 3u);  // depth first, the model itself left out
  const char* names[][2] = {{"a", "Rig"}, {"b", "a"}, {"c", "Rig"}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(doc["objects"][i]["name"] == names[i][0] &&
                doc["objects"][i]["parent"] == names[i][1]);
    ASSERT_EQ(doc["objects"][i]["global"].size(), 3u);
  }
  const double h = std::sqrt(0.5);
  for (int f = 0; f < 3; ++f) {
    const std::string at = " at frame " + std::to_string(f + 1) + " ";
    ExpectSample(doc["objects"][0]["global"][f], {1, 0, 5, h, 0, 0, h}, "a" + at);
    // b's (2, 0, 0) turned 90 degrees about Z is (0, 2, 0), then moved by a's (1, 0, 5).
    ExpectSample(doc["objects"][1]["global"][f], {1, 2, 5, h, 0, 0, h}, "b" + at);
    ExpectSample(doc["objects"][2]["global"][f], {0, 2.0 * f, 5, 1, 0, 0, 0}, "c" + at);
  }
  // Numbers read back to exactly what the scene evaluates.
  EXPECT_EQ(doc["objects"][1]["global"][1][3].get<double>(), X3DObject(CRef::FromText(L"Rig.b"))
                                                                 .GetKinematics()
                                                                 .GetGlobal()
                                                                 .GetTransform(2.0)
                                                                 .GetRotationQuaternion()
                                                                 .GetW());
  EXPECT_EQ(Application().GetCurrentFrame(), 7.0);  // given back

  // A range that starts between frames walks in whole steps from its start.
  ASSERT_TRUE(ExportTransforms(X3DObject(CRef::FromText(L"Rig")), file, 1.5, 3.0).ok);
  const std::vector<uint8_t> half_bytes = FileBytes(file);
  const Json half = Json::parse(half_bytes.begin(), half_bytes.end());
  EXPECT_EQ(half["frames"], Json::parse("[1.5, 2.5]"));
  ExpectSample(half["objects"][2]["global"][1], {0, 3, 5, 1, 0, 0, 0}, "c at frame 2.5");
}

TEST_F(ExportTransformsTest, RefusesWhatItCannotExport) {
  const std::string file = Path("out.json");
  EXPECT_FALSE(Run({CString(L"Nobody"), CString(file), 1, 3}));
  EXPECT_FALSE(Run({CString(L"Rig"), CString(file), 3, 1}));
  EXPECT_FALSE(Run({CString(L"Rig"), CString(file), CString(L"one"), 3}));
  EXPECT_FALSE(Run({CString(L"Rig"), CValue(), 1, 3}));
  EXPECT_FALSE(ExportTransforms(X3DObject(CRef::FromText(L"Rig")), file, 0, 2e6).ok);
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(Application().GetCurrentFrame(), 7.0);
}

}  // namespace
}  // namespace KRX::rt::testing

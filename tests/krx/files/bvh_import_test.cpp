// The host's BVH importer: real captures imported as rigs play the same joint positions as
// an independent reference reader computes; damaged files are refused with the line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "files/bvh_file.h"
#include "krx/krx.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt::files {
namespace {

namespace fs = std::filesystem;

fs::path SharedFolder() {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  return source ? fs::path(source) / ".." / "shared" : fs::path();
}

CValue RunCommand(const wchar_t* command, const CValueArray& args) {
  CValue result;
  Application().ExecuteCommand(command, args, result);
  return result;
}

TEST(BvhImport, MatchesTheReferenceReader) {
  const fs::path tool = SharedFolder() / "tools" / "bvh_fk.py";
  if (SharedFolder().empty() || !fs::exists(tool) || !fs::exists("/usr/bin/python3")) {
    GTEST_SKIP() << "the reference reader is not there";
  }
  int files = 0;
  for (const auto& entry : fs::directory_iterator(SharedFolder() / "data" / "bvh")) {
    if (entry.path().extension() != ".bvh") continue;
    SCOPED_TRACE(entry.path().filename().string());
    const fs::path reference = fs::temp_directory_path() / ("krx_bvh_ref_" + entry.path().stem().string() + ".json");
    const std::string command = "/usr/bin/python3 '" + tool.string() + "' '" + entry.path().string() + "' '" +
                                reference.string() + "' --frames 4 > /dev/null 2>&1";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "the reference reader did not run";
    std::ifstream in(reference);
    const nlohmann::json expected = nlohmann::json::parse(in);
    fs::remove(reference);

    ResetScene();
    const CValue name = RunCommand(L"ImportBVH", {CValue(entry.path().string()), CValue(L"Capture")});
    ASSERT_EQ(name.GetType(), ValueType::String);
    const X3DObject model = Application().GetActiveSceneRoot().FindChild(name.GetString(), L"", false);
    ASSERT_TRUE(model.IsValid());
    double size = 1e-9;
    for (const auto& frame : expected["positions"]) {
      for (const auto& p : frame) size = std::max({size, std::fabs(p[0].get<double>()), std::fabs(p[1].get<double>())});
    }
    const auto& names = expected["joint_names"];
    for (size_t j = 0; j < names.size(); ++j) {
      const X3DObject joint = model.FindChild(CString(names[j].get<std::string>()));
      ASSERT_TRUE(joint.IsValid()) << names[j];
      for (size_t f = 0; f < expected["positions"].size(); ++f) {
        const MATH::CVector3 p = joint.GetKinematics().GetGlobal().GetTransform(static_cast<double>(f + 1)).GetTranslation();
        const auto& want = expected["positions"][f][j];
        EXPECT_NEAR(p.GetX(), want[0].get<double>(), 1e-9 * size);
        EXPECT_NEAR(p.GetY(), want[1].get<double>(), 1e-9 * size);
        EXPECT_NEAR(p.GetZ(), want[2].get<double>(), 1e-9 * size);
      }
    }
    const Property play = Application().GetActiveProject().GetPlayControl();
    EXPECT_EQ(play.GetParameterValue(L"Out").GetInt(), expected["frame_count_data"].get<int>());
    EXPECT_NEAR(play.GetParameterValue(L"Rate").GetDouble(), std::round(1.0 / expected["frame_time"].get<double>()), 1e-9);
    ++files;
  }
  if (files == 0) GTEST_SKIP() << "no shared captures";
  ResetScene();
}

TEST(BvhImport, DamagedFilesAreRefusedWithTheLine) {
  const std::string good =
      "HIERARCHY\nROOT Hips\n{\n OFFSET 0 0 0\n CHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation\n"
      " JOINT Leg {\n  OFFSET 0 -1 0\n  CHANNELS 3 Zrotation Xrotation Yrotation\n  End Site\n  {\n   OFFSET 0 -1 0\n  }\n }\n}\n"
      "MOTION\nFrames: 2\nFrame Time: 0.04\n0 1 0 0 0 0 90 0 0\n0 1 0 0 0 0 0 0 0\n";
  std::string error;
  {
    const std::optional<BvhFile> file = ParseBvh(good, &error);
    ASSERT_TRUE(file) << error;
    EXPECT_EQ(file->joints.size(), 2u);
    EXPECT_EQ(file->channel_count, 9u);
    EXPECT_EQ(file->frame_count, 2u);
    EXPECT_TRUE(file->joints[1].has_end_site);
  }
  struct Case {
    std::string text;
    const char* message;
  };
  const Case cases[] = {
      {"", "line 1: expected 'HIERARCHY'"},
      {good.substr(0, good.find(" JOINT")), "the hierarchy ends inside joint 'Hips'"},
      {std::string(good).replace(good.find("CHANNELS 3"), 10, "CHANNELS 9"), "line 8: a joint has 0 to 6 channels"},
      {std::string(good).replace(good.find("Zrotation Xrotation Yrotation\n  End"), 9, "Wrotation"),
       "unknown channel 'Wrotation'"},
      {std::string(good).replace(good.find("0.04"), 4, "-1"), "bad frame time"},
      {std::string(good).replace(good.find("90"), 2, "9x"), "line 18: expected a number, found '9x'"},
      {std::string(good).replace(good.find("OFFSET 0 -1 0\n  CHANNELS"), 13, "OFFSET 0 nan 0"), "expected a number"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    error.clear();
    EXPECT_FALSE(ParseBvh(c.text, &error));
    EXPECT_NE(error.find(c.message), std::string::npos) << error;
  }
  {  // Fewer frames than announced: the complete ones.
    std::string short_motion = good.substr(0, good.rfind("0 1 0 0 0 0 0 0 0")) + "0 1 0";
    const std::optional<BvhFile> file = ParseBvh(short_motion, &error);
    ASSERT_TRUE(file) << error;
    EXPECT_EQ(file->frame_count, 1u);
  }
  {  // Through the command: the scene is left as it was.
    ResetScene();
    const fs::path path = fs::temp_directory_path() / "krx_bad.bvh";
    std::ofstream(path) << good.substr(0, good.find(" JOINT"));
    ClearLog();
    EXPECT_EQ(RunCommand(L"ImportBVH", {CValue(path.string()), CValue(L"Bad")}), CValue(false));
    EXPECT_TRUE(Application().GetActiveSceneRoot().GetChildren().empty());
    ASSERT_FALSE(LogLines().empty());
    EXPECT_NE(LogLines().back().text.GetAsciiString().find("ImportBVH: " + path.string() + ": line"), std::string::npos);
    fs::remove(path);
  }
}

}  // namespace
}  // namespace KRX::rt::files

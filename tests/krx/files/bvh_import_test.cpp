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

CValue RunCommand(const wchar_t* command, const CValueArray& args) {
  CValue result;
  Application().ExecuteCommand(command, args, result);
  return result;
}

TEST(BvhImport, MatchesTheReferenceReader) {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  const fs::path shared = source ? fs::path(source) / ".." / "shared" : fs::path();
  const fs::path tool = shared / "tools" / "bvh_fk.py";
  if (!source || !fs::exists(tool) || !fs::exists(shared / "data" / "bvh")) {
    GTEST_SKIP() << "the reference reader or the shared captures are not there";
  }
  for (const auto& entry : fs::directory_iterator(shared / "data" / "bvh")) {
    if (entry.path().extension() != ".bvh") continue;
    SCOPED_TRACE(entry.path().filename().string());
    const fs::path json = fs::temp_directory_path() / ("krx_bvh_" + entry.path().stem().string());
    const std::string command = "/usr/bin/python3 '" + tool.string() + "' '" +
                                entry.path().string() + "' '" + json.string() +
                                "' --frames 4 > /dev/null 2>&1";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "the reference reader did not run";
    const nlohmann::json expected = nlohmann::json::parse(std::ifstream(json));
    fs::remove(json);

    ResetScene();
    const CValue name =
        RunCommand(L"ImportBVH", {CValue(entry.path().string()), CValue(L"Capture")});
    const X3DObject model =
        Application().GetActiveSceneRoot().FindChild(name.GetString(), L"", false);
    ASSERT_TRUE(model.IsValid());
    double size = 1e-9;  // the capture's extent, for a tolerance relative to it
    for (const auto& frame : expected["positions"]) {
      for (const auto& p : frame)
        size = std::max({size, std::fabs(p[0].get<double>()), std::fabs(p[1].get<double>())});
    }
    const auto& names = expected["joint_names"];
    for (size_t j = 0; j < names.size(); ++j) {
      const X3DObject joint = model.FindChild(CString(names[j].get<std::string>()));
      ASSERT_TRUE(joint.IsValid()) << names[j];
      for (size_t f = 0; f < expected["positions"].size(); ++f) {
        const MATH::CVector3 p = joint.GetKinematics()
                                     .GetGlobal()
                                     .GetTransform(static_cast<double>(f + 1))
                                     .GetTranslation();
        const auto& want = expected["positions"][f][j];
        EXPECT_NEAR(p.GetX(), want[0].get<double>(), 1e-9 * size);
        EXPECT_NEAR(p.GetY(), want[1].get<double>(), 1e-9 * size);
        EXPECT_NEAR(p.GetZ(), want[2].get<double>(), 1e-9 * size);
      }
    }
    const Property play = Application().GetActiveProject().GetPlayControl();
    EXPECT_EQ(play.GetParameterValue(L"Out").GetInt(), expected["frame_count_data"].get<int>());
    EXPECT_EQ(play.GetParameterValue(L"Rate").GetDouble(),
              std::round(1.0 / expected["frame_time"].get<double>()));
  }
  ResetScene();
}

const std::string kGood =
    "HIERARCHY\nROOT Hips\n{\n OFFSET 0 0 0\n CHANNELS 6 Xposition Yposition Zposition Zrotation "
    "Xrotation Yrotation\n"
    " JOINT Leg {\n  OFFSET 0 -1 0\n  CHANNELS 3 Zrotation Xrotation Yrotation\n  End Site\n  {\n  "
    " OFFSET 0 -1 0\n  }\n }\n}\n"
    "MOTION\nFrames: 2\nFrame Time: 0.04\n0 1 0 0 0 0 90 0 0\n0 1 0 0 0 0 0 0 0\n";

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(BvhImport, BadFilesAreRefusedWithTheLineAndTheRule) {
  std::string error;
  {  // The good file: one column per channel, in the order of the joints.
    const std::optional<BvhFile> file = ParseBvh(kGood, &error);
    ASSERT_TRUE(file) << error;
    ASSERT_EQ(file->columns.size(), 9u);
    EXPECT_TRUE(file->Value(0, 6) == 90.0 && file->joints[1].first_channel == 6u);
  }
  const std::string long_name(kMaxBvhNameLength + 1, 'n');
  const struct {
    std::string text, message;
  } cases[] = {
      {"", "line 1: expected 'HIERARCHY'"},
      {kGood.substr(0, kGood.find(" JOINT")), "the hierarchy ends inside joint 'Hips'"},
      {Replaced(kGood, "CHANNELS 3", "CHANNELS 9"), "line 8: a joint has 0 to 6 channels"},
      {Replaced(kGood, "Zrotation Xrotation Yrotation\n  End",
                "Wrotation Xrotation Yrotation\n  End"),
       "unknown channel 'Wrotation'"},
      {Replaced(kGood, "Zrotation Xrotation Yrotation\n  End",
                "Zrotation XROTATION Xrotation\n  End"),
       "line 8: joint 'Leg' lists the channel Xrotation twice"},
      {Replaced(kGood, "6 Xposition Yposition", "6 Xposition Xposition"),
       "line 5: joint 'Hips' lists the channel Xposition twice"},
      {Replaced(kGood, "JOINT Leg", "JOINT " + long_name),
       "line 6: the joint name '" + long_name.substr(0, 40) + "...' is longer than 255 characters"},
      {Replaced(kGood, "0.04", "0"),
       "line 17: bad frame time '0': it must be above 0 and at most 1 second"},
      {Replaced(kGood, "0.04", "-0.04"), "bad frame time '-0.04'"},
      {Replaced(kGood, "0.04", "nan"), "bad frame time 'nan'"},
      {Replaced(kGood, "0.04", "1.0000001"), "bad frame time '1.0000001'"},
      {Replaced(kGood, "0.04", "1e-310"), "bad frame time '1e-310'"},  // 1 / time is infinite
      {Replaced(kGood, "90", "9x"), "line 18: expected a number, found '9x'"},
      {Replaced(kGood, "OFFSET 0 -1 0\n  CHANNELS", "OFFSET 0 nan 0\n  CHANNELS"),
       "expected a number"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    error.clear();
    EXPECT_FALSE(ParseBvh(c.text, &error));
    EXPECT_NE(error.find(c.message), std::string::npos) << error;
  }
  // The edges that are still good: a name of the longest length, one frame per second.
  EXPECT_TRUE(ParseBvh(
      Replaced(Replaced(kGood, "JOINT Leg", "JOINT " + long_name.substr(1)), "0.04", "1"), &error))
      << error;
  {  // Through the command: the scene is left as it was.
    ResetScene();
    const fs::path path = fs::temp_directory_path() / "krx_bad.bvh";
    std::ofstream(path) << kGood.substr(0, kGood.find(" JOINT"));
    ClearLog();
    EXPECT_EQ(RunCommand(L"ImportBVH", {CValue(path.string()), CValue(L"Bad")}), CValue(false));
    EXPECT_TRUE(Application().GetActiveSceneRoot().GetChildren().empty());
    ASSERT_FALSE(LogLines().empty());
    EXPECT_NE(
        LogLines().back().text.GetAsciiString().find("ImportBVH: " + path.string() + ": line"),
        std::string::npos);
    fs::remove(path);
  }
}

TEST(BvhImport, FramesHeldAgainstFramesAnnounced) {
  const fs::path path = fs::temp_directory_path() / "krx_frames.bvh";
  const struct {
    std::string text;
    int frames;           // imported
    const char* warning;  // part of the warning, or none
  } cases[] = {
      {kGood, 2, nullptr},
      // A last frame cut short is dropped.
      {kGood.substr(0, kGood.rfind("0 1 0 0 0 0 0 0 0")) + "0 1 0", 1,
       "announces 2 frames but holds only 1; 1 imported"},
      {Replaced(kGood, "Frames: 2", "Frames: 5"), 2,
       "announces 5 frames but holds only 2; 2 imported"},
      {Replaced(kGood, "Frames: 2", "Frames: 1"), 2,
       "announces 1 frames but holds 2, more than announced; all 2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.frames);
    std::ofstream(path) << c.text;
    ResetScene();
    ClearLog();
    const CValue name = RunCommand(L"ImportBVH", {CValue(path.string()), CValue(L"Take")});
    ASSERT_EQ(name.GetType(), ValueType::String);
    EXPECT_EQ(Application().GetActiveProject().GetPlayControl().GetParameterValue(L"Out").GetInt(),
              c.frames);
    const FCurve curve = Application()
                             .GetActiveSceneRoot()
                             .FindChild(L"Hips")
                             .GetKinematics()
                             .GetLocal()
                             .GetParameter(L"posy")
                             .GetFCurve();
    ASSERT_EQ(curve.GetNumKeys(), c.frames);
    EXPECT_TRUE(curve.GetKey(c.frames - 1).time == c.frames && curve.GetKey(0).value == 1.0);
    std::vector<std::string> warnings;
    for (const LogLine& line : LogLines()) {
      if (line.severity == kSeverityWarning) warnings.push_back(line.text.GetAsciiString());
    }
    ASSERT_EQ(warnings.size(), c.warning ? 1u : 0u);
    EXPECT_TRUE(!c.warning || warnings[0].find(c.warning) != std::string::npos) << warnings[0];
  }
  fs::remove(path);
  ResetScene();
}

}  // namespace
}  // namespace KRX::rt::files

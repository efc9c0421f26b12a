// Shared helpers of the structure tests: the shipped data folder, file reading, and base
// file look-ups served from memory or from a folder.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "kavor/structure/structure_parser.h"
#include "runtime/log.h"

namespace kavor::structuretest {

// A base of hips and two legs (anchor, knee, foot, toe) with easy numbers, and a structure
// on it, "mini", adding an arm whose ik node directly follows its anchor.
inline constexpr const char* kMiniBase = R"(
hips { world
  Hips  hip      0 1 0   0 0 1    0 10 0 }
leftLeg { Hips
  lUp   anchor   0 -1 0  0 0 1    1 -1 0
  lLow  child    0 -1 0  0 0 1    0 -4 1   limits: 0 -10 -20  90 10 20
  lFoot friction 0 0 1   0 1 0    0 -4 -1
  lToe  child    0 0 1   0 1 0    0 -1 2 }
rightLeg { Hips
  rUp   anchor   0 -1 0  0 0 1   -1 -1 0
  rLow  child    0 -1 0  0 0 1    0 -4 1
  rFoot friction 0 0 1   0 1 0    0 -4 -1
  rToe  child    0 0 1   0 1 0    0 -1 2 }
)";
inline constexpr const char* kMiniStructure = R"(mini
arm { Hips
  lCla  child    1 0 0   0 1 0    1 3 0
  lSho  anchor   1 0 0   0 1 0    1 0 0
  lArm  ik       1 0 0   0 1 0    5 0 0 }
)";

// The source tree's data folder ("<source>/data/Addons/Trevalin/Data"), empty when the
// tests run without KAVOR_SOURCE_DIR.
inline std::filesystem::path ShippedDataFolder() {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  if (source == nullptr || *source == '\0') return {};
  return std::filesystem::path(source) / "data" / "Addons" / "Trevalin" / "Data";
}

// Real captures that nobody here wrote, beside the source tree; empty when absent.
inline std::filesystem::path SharedBvhFolder() {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  if (source == nullptr || *source == '\0') return {};
  const std::filesystem::path folder =
      std::filesystem::path(source) / ".." / "shared" / "data" / "bvh";
  return std::filesystem::is_directory(folder) ? folder : std::filesystem::path();
}

inline std::optional<std::string> ReadTextFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The log holds this line at this severity (or a line starting with it).
inline bool Logged(int severity, const std::string& text, bool prefix_only = false) {
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    const std::string logged = line.text.GetAsciiString();
    if (line.severity == severity && (prefix_only ? logged.rfind(text, 0) == 0 : logged == text)) {
      return true;
    }
  }
  return false;
}

// Base files by name.
inline BaseFileLookup BasesFromMap(std::map<std::string, std::string> bases) {
  return [bases = std::move(bases)](std::string_view name) -> std::optional<std::string> {
    const auto it = bases.find(std::string(name));
    if (it == bases.end()) return std::nullopt;
    return it->second;
  };
}

// Base files from "<folder>/Structures/<name>.base".
inline BaseFileLookup BasesFromFolder(const std::filesystem::path& data_folder) {
  return [data_folder](std::string_view name) {
    return ReadTextFile(data_folder / "Structures" / (std::string(name) + ".base"));
  };
}

}  // namespace kavor::structuretest

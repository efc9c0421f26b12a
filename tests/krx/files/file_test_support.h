// A fresh scene and an empty folder of its own for each test, removed after it.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "runtime/scene_state.h"

namespace KRX::rt::testing {

inline std::vector<uint8_t> FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class FileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetScene();
    folder_ = std::filesystem::temp_directory_path() /
              ("krx_" + std::to_string(::getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  std::filesystem::path folder_;
};

}  // namespace KRX::rt::testing

// What the krx program prints at each verbosity: errors and warnings always, information
// lines once each by default, every line with --verbose, none with --quiet.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

struct RunResult {
  int status = -1;
  std::string output;  // stdout and stderr together
};

// The build folder: KAVOR_BUILD_DIR, or the folder of this test program, which is built
// beside krx.
fs::path BuildDirectory() {
  if (const char* dir = std::getenv("KAVOR_BUILD_DIR"); dir != nullptr && dir[0] != '\0') {
    return fs::path(dir);
  }
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : self.parent_path();
}

RunResult RunKrx(const std::string& arguments) {
  RunResult result;
  const std::string command =
      (BuildDirectory() / "krx").string() + " --plugin none " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> chunk{};
  size_t n = 0;
  while ((n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0)
    result.output.append(chunk.data(), n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

size_t Count(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
    ++count;
  return count;
}

TEST(KrxOutput, VerbosityFiltersInformationNeverErrors) {
  if (BuildDirectory().empty() || !fs::exists(BuildDirectory() / "krx")) {
    GTEST_SKIP() << "KAVOR_BUILD_DIR does not hold the krx program";
  }
  const fs::path scene = fs::temp_directory_path() / "krx_output_test.krxs";
  // The same information line twice (saving the same file), the same error twice.
  const std::string commands = "-c 'SaveScene(\"" + scene.string() + "\")' -c 'SaveScene(\"" +
                               scene.string() + "\")' -c 'GetValue(\"Nothing.here\")' " +
                               "-c 'GetValue(\"Nothing.here\")'";
  const std::string saved = "[8] Saved scene";
  const std::string hidden = "repeated information line(s) not shown";
  {  // Default: an information line once, with a count of what was held back.
    const RunResult run = RunKrx(commands);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(Count(run.output, saved), 1u) << run.output;
    EXPECT_EQ(Count(run.output, "[8] 1 " + hidden), 1u) << run.output;
    EXPECT_EQ(Count(run.output, "[2] "), 2u) << run.output;
  }
  {  // --verbose: every line, nothing held back.
    const RunResult run = RunKrx("--verbose " + commands);
    EXPECT_EQ(Count(run.output, saved), 2u) << run.output;
    EXPECT_EQ(Count(run.output, hidden), 0u) << run.output;
    EXPECT_EQ(Count(run.output, "[2] "), 2u) << run.output;
  }
  {  // --quiet: errors only.
    const RunResult run = RunKrx("-q " + commands);
    EXPECT_EQ(Count(run.output, "[8] "), 0u) << run.output;
    EXPECT_EQ(Count(run.output, "[2] "), 2u) << run.output;
  }
  {  // The two cannot be asked for together.
    const RunResult run = RunKrx("--quiet --verbose");
    EXPECT_NE(run.status, 0);
    EXPECT_NE(run.output.find("excludes"), std::string::npos) << run.output;
  }
  fs::remove(scene);
}

}  // namespace

// krx: the headless host. Loads a plug-in module, optionally opens a scene, runs command
// scripts and -c commands in the command-log syntax, optionally saves the scene.
//
//   krx [--plugin LIB] [--open SCENE] [--save SCENE] [--answers FILE] [-c 'COMMAND']
//       [--list] [--echo] [--quiet | --verbose] [SCRIPT.krx ...]
//
// Log lines go to stderr as "[code] text", message boxes as "[box TITLE] text"; a -c
// command's return value goes to stdout. The exit status is non-zero when a script line
// could not run (unknown command, bad syntax) or a file could not be read, not when a
// command returns false.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "app_output.h"
#include "krx/krx.h"
#include "plugins/plugin_loader.h"
#include "runtime/commands.h"
#include "runtime/interaction.h"
#include "runtime/log.h"
#include "script/command_script.h"

namespace {

namespace fs = std::filesystem;

struct Options {
  std::string plugin;
  std::string open;
  std::string save;
  std::string answers;
  std::vector<std::string> commands;
  std::vector<std::string> scripts;
  bool list = false;
  bool echo = false;
  bool quiet = false;
  bool verbose = false;
};

// The directory of the running program, for finding the plug-in built beside it.
fs::path ProgramDirectory() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::current_path() : exe.parent_path();
}

bool ReadTextFile(const std::string& path, std::string* text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream buffer;
  buffer << in.rdbuf();
  *text = buffer.str();
  return !in.bad();
}

// Runs one parsed command. Returns false when the command does not exist (a script
// error); a command that ran and failed is the command's business, already logged.
bool RunCommand(const KRX::rt::ScriptCommand& command, const std::string& where, bool print_result,
                bool echo) {
  const KRX::CString name(command.name);
  if (!KRX::rt::IsHostCommand(name) && !KRX::rt::IsPluginCommand(name)) {
    std::cerr << where << ": unknown command '" << command.name << "'\n";
    return false;
  }
  if (echo) std::cerr << "> " << KRX::rt::FormatCommand(command) << "\n";
  KRX::CValue result;
  KRX::Application().ExecuteCommand(name, command.args, result);
  if (print_result && !result.IsEmpty()) {
    std::cout << krxapp::FormatReturnValue(result) << std::endl;
  }
  return true;
}

bool RunScriptFile(const std::string& path, bool echo) {
  std::string text;
  if (!ReadTextFile(path, &text)) {
    std::cerr << path << ": cannot read the script\n";
    return false;
  }
  const KRX::rt::ScriptParseResult parsed = KRX::rt::ParseCommandScript(text);
  if (!parsed.ok) {
    std::cerr << path << ": " << parsed.error << "\n";
    return false;
  }
  bool ok = true;
  for (const KRX::rt::ScriptCommand& command : parsed.commands) {
    ok = RunCommand(command, path + ":" + std::to_string(command.line), false, echo) && ok;
  }
  return ok;
}

bool RunCommandText(const std::string& text, bool echo) {
  const KRX::rt::ScriptParseResult parsed = KRX::rt::ParseCommandLine(text);
  if (!parsed.ok) {
    std::cerr << "-c '" << text << "': " << parsed.error << "\n";
    return false;
  }
  bool ok = true;
  for (const KRX::rt::ScriptCommand& command : parsed.commands) {
    ok = RunCommand(command, "-c", true, echo) && ok;
  }
  return ok;
}

bool LoadAnswers(const std::string& path) {
  std::string text;
  if (!ReadTextFile(path, &text)) {
    std::cerr << path << ": cannot read the answers\n";
    return false;
  }
  const KRX::rt::AnswerScript script = KRX::rt::ParseAnswers(text);
  for (const std::string& error : script.errors) std::cerr << path << ": " << error << "\n";
  KRX::rt::ApplyAnswerScript(script);
  return script.errors.empty();
}

int Run(const Options& options) {
  const krxapp::Verbosity verbosity = options.quiet     ? krxapp::Verbosity::kQuiet
                                      : options.verbose ? krxapp::Verbosity::kVerbose
                                                        : krxapp::Verbosity::kNormal;
  krxapp::InstallOutput(isatty(STDERR_FILENO) != 0, verbosity);
  krxapp::ApplyDefaultInstallationPaths(ProgramDirectory());

  const std::string plugin =
      options.plugin.empty() ? (ProgramDirectory() / "libkavor.so").string() : options.plugin;
  if (plugin != "none") {
    std::string error;
    if (!KRX::rt::LoadPlugin(plugin, &error)) {
      std::cerr << "krx: cannot load the plug-in " << plugin << ": " << error << "\n";
      return 2;
    }
  }
  if (options.list) krxapp::PrintRegistrations(std::cout);

  bool ok = true;
  if (!options.answers.empty()) ok = LoadAnswers(options.answers) && ok;

  if (!options.open.empty()) {
    KRX::CValue result;
    KRX::Application().ExecuteCommand("OpenScene", {KRX::CValue(KRX::CString(options.open))},
                                      result);
    if (!result.GetBool()) {
      std::cerr << "krx: cannot open the scene " << options.open << "\n";
      ok = false;
    }
  }
  if (ok || options.open.empty()) {
    for (const std::string& script : options.scripts)
      ok = RunScriptFile(script, options.echo) && ok;
    for (const std::string& command : options.commands)
      ok = RunCommandText(command, options.echo) && ok;
  }
  if (!options.save.empty()) {
    KRX::CValue result;
    KRX::Application().ExecuteCommand("SaveScene", {KRX::CValue(KRX::CString(options.save))},
                                      result);
    if (!result.GetBool()) {
      std::cerr << "krx: cannot save the scene " << options.save << "\n";
      ok = false;
    }
  }
  const int mismatches = KRX::rt::AnswerMismatchCount();
  if (mismatches > 0) {
    std::cerr << "krx: " << mismatches << " request(s) found an answer of another kind\n";
  }
  KRX::rt::UnloadAllPlugins();
  krxapp::FinishOutput();
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"krx - headless host: loads a plug-in and runs command scripts"};
  Options options;
  app.add_option("--plugin", options.plugin,
                 "Plug-in module to load (default: libkavor.so beside krx; 'none' loads nothing)");
  app.add_option("--open", options.open, "Scene file to open before the commands run");
  app.add_option("--save", options.save, "Scene file to save after the commands ran");
  app.add_option("--answers", options.answers,
                 "Scripted answers to picks, confirmations, file browsers and message boxes");
  app.add_option("-c", options.commands, "A command to run after the scripts (repeatable)")
      ->allow_extra_args(false);
  app.add_flag("--list", options.list, "List what the plug-in registered");
  app.add_flag("--echo", options.echo, "Echo each command on stderr before it runs");
  CLI::Option* quiet =
      app.add_flag("--quiet,-q", options.quiet, "Show only errors, warnings and message boxes");
  app.add_flag("--verbose,-v", options.verbose,
               "Show every log line (by default an information line is shown once)")
      ->excludes(quiet);
  app.add_option("scripts", options.scripts, "Command scripts (.krx), run in order")
      ->check(CLI::ExistingFile);
  CLI11_PARSE(app, argc, argv);
  return Run(options);
}

#include "app_output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <unordered_set>

#include "app/app_settings.h"
#include "plugins/plugin_loader.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace krxapp {

namespace {

namespace fs = std::filesystem;

bool g_terminal = false;
bool g_bar_drawn = false;  // a progress line is on the terminal without its newline
Verbosity g_verbosity = Verbosity::kNormal;
std::unordered_set<std::string> g_information_shown;
long g_repeats_hidden = 0;

constexpr int kInformation = 8;

// Whether a log line reaches the terminal. Errors and warnings always do; information
// lines (progress notes, diagnostics that a flow logs on every read) are dropped by
// --quiet and shown once each by default.
bool ShowLogLine(const KRX::rt::LogLine& line, const std::string& text) {
  if (line.severity < kInformation) return true;
  switch (g_verbosity) {
    case Verbosity::kQuiet:
      return false;
    case Verbosity::kVerbose:
      return true;
    case Verbosity::kNormal:
      break;
  }
  if (g_information_shown.insert(text).second) return true;
  ++g_repeats_hidden;
  return false;
}

void EndProgressLine() {
  if (g_bar_drawn) {
    std::cerr << "\n";
    g_bar_drawn = false;
  }
}

void DrawProgress(const KRX::rt::ProgressSnapshot& bar) {
  if (!g_terminal) return;
  if (!bar.visible) {
    EndProgressLine();
    return;
  }
  constexpr int kWidth = 30;
  const int span = bar.maximum - bar.minimum;
  const double fraction =
      span > 0 ? std::clamp(double(bar.value - bar.minimum) / span, 0.0, 1.0) : 0.0;
  const int filled = static_cast<int>(std::lround(fraction * kWidth));
  std::cerr << "\r" << bar.caption.GetAsciiString() << " [" << std::string(filled, '#')
            << std::string(kWidth - filled, '.') << "] " << std::lround(fraction * 100) << "% "
            << bar.status_text.GetAsciiString() << "\x1b[K" << std::flush;
  g_bar_drawn = true;
}

}  // namespace

void InstallOutput(bool terminal, Verbosity verbosity) {
  g_terminal = terminal;
  g_verbosity = verbosity;
  KRX::rt::SetLogSink([](const KRX::rt::LogLine& line) {
    const std::string text = line.text.GetAsciiString();
    if (!ShowLogLine(line, text)) return;
    EndProgressLine();
    std::cerr << "[" << line.severity << "] " << text << std::endl;
  });
  KRX::rt::InteractionHooks hooks;
  hooks.message_box = [](const KRX::rt::MessageBoxRecord& box) {
    EndProgressLine();
    std::cerr << "[box " << box.title.GetAsciiString() << "] " << box.text.GetAsciiString()
              << std::endl;
  };
  hooks.progress = DrawProgress;
  hooks.pick = [](const KRX::rt::PickRecord& pick) {
    if (g_verbosity == Verbosity::kQuiet) return;
    EndProgressLine();
    std::cerr << "[pick] " << pick.first_prompt.GetAsciiString() << " -> "
              << (pick.picked.IsEmpty() ? std::string("cancelled") : pick.picked.GetAsciiString())
              << std::endl;
  };
  hooks.file_browser = [](const KRX::rt::FileBrowserRecord& browser) {
    if (g_verbosity == Verbosity::kQuiet) return;
    EndProgressLine();
    std::cerr << "[file] " << browser.title.GetAsciiString() << " -> "
              << (browser.chosen.IsEmpty() ? std::string("cancelled")
                                           : browser.chosen.GetAsciiString())
              << std::endl;
  };
  hooks.note = [](const std::string& note) {
    if (g_verbosity == Verbosity::kQuiet) return;
    EndProgressLine();
    std::cerr << "[ui] " << note << std::endl;
  };
  KRX::rt::SetInteractionHooks(std::move(hooks));
}

void FinishOutput() {
  EndProgressLine();
  if (g_repeats_hidden > 0) {
    std::cerr << "[" << kInformation << "] " << g_repeats_hidden
              << " repeated information line(s) not shown (--verbose shows every line)"
              << std::endl;
  }
}

std::string FormatReturnValue(const KRX::CValue& value) {
  switch (value.GetType()) {
    case KRX::ValueType::Bool:
      return value.GetBool() ? "true" : "false";
    case KRX::ValueType::Int:
      return std::to_string(value.GetInt());
    case KRX::ValueType::Double: {
      std::ostringstream out;
      out.precision(15);
      out << value.GetDouble();
      return out.str();
    }
    case KRX::ValueType::Array: {
      std::string text;
      for (const KRX::CValue& item : value.GetArray()) {
        if (!text.empty()) text += ", ";
        text += FormatReturnValue(item);
      }
      return text;
    }
    default:
      return value.GetString().GetAsciiString();
  }
}

void ApplyDefaultInstallationPaths(const fs::path& program_directory) {
  auto unset = [](int kind) {
    const std::string name = "KRX_INSTALL_PATH_" + std::to_string(kind);
    return std::getenv(name.c_str()) == nullptr;
  };
  if (unset(1)) {
    const char* home = std::getenv("HOME");
    const fs::path user = fs::path(home && *home ? home : "/tmp") / ".krx";
    std::error_code ec;
    fs::create_directories(user, ec);
    KRX::rt::SetInstallationPath(1, user.string());
  }
  fs::path data = program_directory / "data";
#ifdef KAVOR_DATA_DIR
  std::error_code ec;
  if (!fs::is_directory(data, ec)) data = KAVOR_DATA_DIR;
#endif
  if (unset(3)) KRX::rt::SetInstallationPath(3, data.string());
  if (unset(4)) KRX::rt::SetInstallationPath(4, data.string());
}

void PrintRegistrations(std::ostream& out) {
  for (const KRX::rt::LoadedPluginInfo& plugin : KRX::rt::LoadedPlugins()) {
    out << "plugin " << plugin.name.GetAsciiString() << " " << plugin.version_major << "."
        << plugin.version_minor << "\n";
    for (const KRX::rt::RegistrationStep& step : plugin.steps) {
      const char* kind = "";
      switch (step.kind) {
        case KRX::rt::RegistrationKind::Author:
          kind = "author";
          break;
        case KRX::rt::RegistrationKind::Name:
          kind = "name";
          break;
        case KRX::rt::RegistrationKind::Version:
          kind = "version";
          break;
        case KRX::rt::RegistrationKind::Command:
          kind = "command";
          break;
        case KRX::rt::RegistrationKind::Property:
          kind = "property";
          break;
        case KRX::rt::RegistrationKind::Menu:
          kind = "menu";
          break;
        case KRX::rt::RegistrationKind::Operator:
          kind = "operator";
          break;
        case KRX::rt::RegistrationKind::Event:
          kind = "event";
          break;
      }
      out << "  " << kind << " " << step.name.GetAsciiString() << "\n";
    }
  }
}

}  // namespace krxapp

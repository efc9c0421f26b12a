#include "app_output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "app/app_settings.h"
#include "plugins/plugin_loader.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace krxapp {

namespace {

namespace fs = std::filesystem;

bool g_terminal = false;
bool g_bar_drawn = false;  // a progress line is on the terminal without its newline

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

void InstallOutput(bool terminal) {
  g_terminal = terminal;
  KRX::rt::SetLogSink([](const KRX::rt::LogLine& line) {
    EndProgressLine();
    std::cerr << "[" << line.severity << "] " << line.text.GetAsciiString() << std::endl;
  });
  KRX::rt::InteractionHooks hooks;
  hooks.message_box = [](const KRX::rt::MessageBoxRecord& box) {
    EndProgressLine();
    std::cerr << "[box " << box.title.GetAsciiString() << "] " << box.text.GetAsciiString()
              << std::endl;
  };
  hooks.progress = DrawProgress;
  hooks.pick = [](const KRX::rt::PickRecord& pick) {
    EndProgressLine();
    std::cerr << "[pick] " << pick.first_prompt.GetAsciiString() << " -> "
              << (pick.picked.IsEmpty() ? std::string("cancelled") : pick.picked.GetAsciiString())
              << std::endl;
  };
  hooks.file_browser = [](const KRX::rt::FileBrowserRecord& browser) {
    EndProgressLine();
    std::cerr << "[file] " << browser.title.GetAsciiString() << " -> "
              << (browser.chosen.IsEmpty() ? std::string("cancelled")
                                           : browser.chosen.GetAsciiString())
              << std::endl;
  };
  hooks.note = [](const std::string& note) {
    EndProgressLine();
    std::cerr << "[ui] " << note << std::endl;
  };
  KRX::rt::SetInteractionHooks(std::move(hooks));
}

void FinishOutput() { EndProgressLine(); }

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
        case KRX::rt::RegistrationKind::Author: kind = "author"; break;
        case KRX::rt::RegistrationKind::Name: kind = "name"; break;
        case KRX::rt::RegistrationKind::Version: kind = "version"; break;
        case KRX::rt::RegistrationKind::Command: kind = "command"; break;
        case KRX::rt::RegistrationKind::Property: kind = "property"; break;
        case KRX::rt::RegistrationKind::Menu: kind = "menu"; break;
        case KRX::rt::RegistrationKind::Operator: kind = "operator"; break;
        case KRX::rt::RegistrationKind::Event: kind = "event"; break;
      }
      out << "  " << kind << " " << step.name.GetAsciiString() << "\n";
    }
  }
}

}  // namespace krxapp

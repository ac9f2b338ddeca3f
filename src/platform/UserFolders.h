#pragma once

#include <filesystem>

namespace tapekeep::UserFolders {

// The XDG base folders, each with its documented fallback under the home folder.
std::filesystem::path home();
std::filesystem::path configHome();  // ${XDG_CONFIG_HOME:-~/.config}
std::filesystem::path stateHome();   // ${XDG_STATE_HOME:-~/.local/state}
std::filesystem::path dataHome();    // ${XDG_DATA_HOME:-~/.local/share}
std::filesystem::path runtimeDir();  // ${XDG_RUNTIME_DIR:-/tmp}

std::filesystem::path settingsFile();  // configHome()/tapekeep/settings.json
std::filesystem::path logsFolder();    // stateHome()/Logs/Tapekeep

}  // namespace tapekeep::UserFolders

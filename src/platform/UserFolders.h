#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace tapekeep::UserFolders {

// The XDG base folders, each with its documented fallback under the home folder.
std::filesystem::path home();
std::filesystem::path configHome();  // ${XDG_CONFIG_HOME:-~/.config}
std::filesystem::path stateHome();   // ${XDG_STATE_HOME:-~/.local/state}
std::filesystem::path dataHome();    // ${XDG_DATA_HOME:-~/.local/share}
std::filesystem::path runtimeDir();  // ${XDG_RUNTIME_DIR:-/tmp}

// The desktop folder as user-dirs.dirs in configHome() names it (XDG_DESKTOP_DIR), else ~/Desktop;
// nothing when that folder does not exist.
std::optional<std::filesystem::path> desktop();
// XDG_DESKTOP_DIR of a user-dirs.dirs text, its "$HOME" replaced by `home`; nothing when the text
// does not set it to an absolute path or one under "$HOME".
std::optional<std::filesystem::path> desktopInUserDirs(std::string_view userDirs,
                                                       const std::filesystem::path& home);

std::filesystem::path settingsFile();  // configHome()/tapekeep/settings.json
std::filesystem::path logsFolder();    // stateHome()/Logs/Tapekeep

}  // namespace tapekeep::UserFolders

#include "platform/UserFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace tapekeep::UserFolders {
namespace {

std::filesystem::path fromEnvironment(const char* name, const std::filesystem::path& fallback) {
    const char* value = std::getenv(name);
    // Relative values are invalid by the XDG rules and are ignored.
    if (value != nullptr && value[0] == '/') return value;
    return fallback;
}

}  // namespace

std::filesystem::path home() {
    if (const char* value = std::getenv("HOME"); value != nullptr && value[0] != '\0') return value;
    if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr)
        return entry->pw_dir;
    return "/";
}

std::filesystem::path configHome() {
    return fromEnvironment("XDG_CONFIG_HOME", home() / ".config");
}
std::filesystem::path stateHome() {
    return fromEnvironment("XDG_STATE_HOME", home() / ".local/state");
}
std::filesystem::path dataHome() {
    return fromEnvironment("XDG_DATA_HOME", home() / ".local/share");
}
std::filesystem::path runtimeDir() {
    return fromEnvironment("XDG_RUNTIME_DIR", "/tmp");
}

std::optional<std::filesystem::path> desktopInUserDirs(std::string_view userDirs,
                                                       const std::filesystem::path& home) {
    constexpr std::string_view key = "XDG_DESKTOP_DIR=";
    std::optional<std::filesystem::path> found;
    std::istringstream lines{std::string(userDirs)};
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(key)) continue;
        std::string value = line.substr(key.size());
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        // The file's own rules: a path under "$HOME" or an absolute one; the last line wins.
        if (value == "$HOME")
            found = home;
        else if (value.starts_with("$HOME/"))
            found = home / value.substr(6);
        else if (value.starts_with('/'))
            found = value;
    }
    return found;
}

std::optional<std::filesystem::path> desktop() {
    std::ifstream file(configHome() / "user-dirs.dirs");
    std::ostringstream text;
    text << file.rdbuf();
    const auto folder = desktopInUserDirs(text.str(), home()).value_or(home() / "Desktop");
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) return std::nullopt;
    return folder;
}

std::filesystem::path settingsFile() {
    return configHome() / "tapekeep" / "settings.json";
}
std::filesystem::path logsFolder() {
    return stateHome() / "Logs" / "Tapekeep";
}

}  // namespace tapekeep::UserFolders

#include "platform/UserFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

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

std::filesystem::path settingsFile() {
    return configHome() / "tapekeep" / "settings.json";
}
std::filesystem::path logsFolder() {
    return stateHome() / "Logs" / "Tapekeep";
}

}  // namespace tapekeep::UserFolders

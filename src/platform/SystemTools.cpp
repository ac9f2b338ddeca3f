#include "platform/SystemTools.h"

#include <unistd.h>

#include <array>

namespace tapekeep::SystemTools {
namespace {

constexpr std::array binFolders{"/usr/bin/", "/bin/", "/usr/sbin/", "/sbin/"};

}  // namespace

std::optional<std::string> find(const std::string& name) {
    for (const char* folder : binFolders) {
        std::string candidate = folder + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

std::string pathOf(const std::string& name) {
    return find(name).value_or(binFolders.front() + name);
}

}  // namespace tapekeep::SystemTools

#include "backup/RsyncProcess.h"

#include <optional>
#include <string_view>

extern char** environ;

namespace tapekeep {
namespace {

std::string_view nameOf(std::string_view entry) {
    return entry.substr(0, entry.find('='));
}

// The value of the first entry named name, as getenv would see it.
std::optional<std::string> valueOf(const std::vector<std::string>& environment, std::string_view name) {
    for (const std::string& entry : environment) {
        if (entry.starts_with(name) && entry.size() > name.size() && entry[name.size()] == '=')
            return entry.substr(name.size() + 1);
    }
    return std::nullopt;
}

}  // namespace

std::vector<std::string> rsyncEnvironment(const std::vector<std::string>& current) {
    const std::optional<std::string> all = valueOf(current, "LC_ALL");
    const bool moveAllToCtype = all && !all->empty();  // an empty LC_ALL already counts as unset
    std::vector<std::string> environment;
    environment.reserve(current.size() + 2);
    for (const std::string& entry : current) {
        const std::string_view name = nameOf(entry);
        if (name == "LC_ALL" || name == "LC_NUMERIC" || (moveAllToCtype && name == "LC_CTYPE")) continue;
        environment.push_back(entry);
    }
    if (moveAllToCtype) environment.push_back("LC_CTYPE=" + *all);
    environment.emplace_back("LC_NUMERIC=C");
    return environment;
}

std::vector<std::string> currentEnvironment() {
    std::vector<std::string> environment;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
        environment.emplace_back(*entry);
    return environment;
}

ProcessRunner::Options rsyncProcessOptions() {
    ProcessRunner::Options options;
    options.environment = rsyncEnvironment(currentEnvironment());
    return options;
}

int runRsync(const std::string& rsyncPath, const std::vector<std::string>& arguments,
             const ProcessRunner::LineHandler& onLine, std::stop_token token) {
    return ProcessRunner::shared()
        .run(rsyncPath, arguments, onLine, std::move(token), rsyncProcessOptions())
        .status;
}

}  // namespace tapekeep

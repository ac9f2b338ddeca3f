#include "LiveProcesses.h"

#include <filesystem>
#include <thread>

#include "TempDir.h"

namespace tapekeep::test {
namespace fs = std::filesystem;

namespace {

// The state letter of /proc/<pid>/stat, after the command name in parentheses.
char stateOf(const fs::path& process) {
    const std::string stat = readFile(process / "stat");
    const auto close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() ? stat[close + 2] : 'X';
}

}  // namespace

std::vector<pid_t> liveProcessesMentioning(const std::string& program, const std::string& text) {
    std::vector<pid_t> found;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string commandLine = readFile(entry.path() / "cmdline");
        for (char& c : commandLine)
            if (c == '\0') c = ' ';
        if (commandLine.find(program) == std::string::npos || commandLine.find(text) == std::string::npos)
            continue;
        const char state = stateOf(entry.path());
        if (state != 'Z' && state != 'X') found.push_back(std::stoi(name));
    }
    return found;
}

bool isLive(pid_t pid) {
    const fs::path process = "/proc/" + std::to_string(pid);
    std::error_code error;
    if (!fs::exists(process, error)) return false;
    const char state = stateOf(process);
    return state != 'Z' && state != 'X';
}

bool waitUntil(const std::function<bool()>& done, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace tapekeep::test

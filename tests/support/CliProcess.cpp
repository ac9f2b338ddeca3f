#include "CliProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "TempDir.h"
#include "core/Uuid.h"

extern char** environ;

namespace tapekeep::test {
namespace fs = std::filesystem;

namespace {

std::vector<std::string> environmentFor(const fs::path& home,
                                        const std::map<std::string, std::string>& extra) {
    std::map<std::string, std::string> values;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text = *entry;
        auto equals = text.find('=');
        if (equals != std::string::npos) values[text.substr(0, equals)] = text.substr(equals + 1);
    }
    values["HOME"] = home.string();
    values["XDG_CONFIG_HOME"] = (home / "config").string();
    values["XDG_STATE_HOME"] = (home / "state").string();
    values["XDG_DATA_HOME"] = (home / "data").string();
    values["XDG_RUNTIME_DIR"] = (home / "run").string();
    for (const auto& [name, value] : extra) values[name] = value;
    std::vector<std::string> result;
    for (const auto& [name, value] : values) result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

CliProcess::CliProcess(const fs::path& home, std::vector<std::string> arguments,
                       std::map<std::string, std::string> extraEnvironment) {
    fs::create_directories(home / "run");
    fs::permissions(home / "run", fs::perms::owner_all);
    const std::string id = makeUuid();
    outFile_ = home / ("cli-" + id + ".out");
    errFile_ = home / ("cli-" + id + ".err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    arguments.insert(arguments.begin(), TAPEKEEP_CLI_PATH);
    auto environment = environmentFor(home, extraEnvironment);
    auto argv = pointers(arguments);
    auto envp = pointers(environment);
    const int error = ::posix_spawn(&pid_, TAPEKEEP_CLI_PATH, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("cannot start tapekeep-cli");
}

CliProcess::~CliProcess() {
    if (status_ < 0 && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

pid_t CliProcess::pid() const {
    return pid_;
}

void CliProcess::signal(int number) const {
    ::kill(pid_, number);
}

int CliProcess::wait() {
    if (status_ >= 0) return status_;
    int raw = 0;
    while (::waitpid(pid_, &raw, 0) < 0) {
        if (errno != EINTR) throw std::runtime_error("lost the tapekeep-cli child");
    }
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return status_;
}

bool CliProcess::hasExited() {
    return waitAtMost(std::chrono::seconds(0)).has_value();
}

std::optional<int> CliProcess::waitAtMost(std::chrono::seconds guard) {
    const auto until = std::chrono::steady_clock::now() + guard;
    while (status_ < 0) {
        int raw = 0;
        const pid_t ended = ::waitpid(pid_, &raw, WNOHANG);
        if (ended < 0 && errno != EINTR) throw std::runtime_error("lost the tapekeep-cli child");
        if (ended == pid_) {
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            break;
        }
        if (std::chrono::steady_clock::now() >= until) return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return status_;
}

std::string CliProcess::out() const {
    return readFile(outFile_);
}
std::string CliProcess::err() const {
    return readFile(errFile_);
}

std::string CliProcess::lastErrorLine() const {
    std::string text = err();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    auto newline = text.rfind('\n');
    return newline == std::string::npos ? text : text.substr(newline + 1);
}

CliResult runCli(const fs::path& home, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& extraEnvironment) {
    CliProcess process(home, arguments, extraEnvironment);
    const int status = process.wait();
    return CliResult{status, process.out(), process.err(), process.lastErrorLine()};
}

std::vector<nlohmann::json> jsonLinesOf(const std::string& text) {
    std::vector<nlohmann::json> objects;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (auto parsed = nlohmann::json::parse(line, nullptr, false); parsed.is_object())
            objects.push_back(std::move(parsed));
    return objects;
}

}  // namespace tapekeep::test

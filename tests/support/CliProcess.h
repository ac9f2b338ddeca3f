#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tapekeep::test {

// tapekeep-cli run as a real child process, with its own settings, state, data and runtime folders
// under `home`, and its standard output and error captured.
class CliProcess {
public:
    CliProcess(const std::filesystem::path& home, std::vector<std::string> arguments,
               std::map<std::string, std::string> extraEnvironment = {});
    ~CliProcess();
    CliProcess(const CliProcess&) = delete;
    CliProcess& operator=(const CliProcess&) = delete;

    [[nodiscard]] pid_t pid() const;
    void signal(int number) const;
    int wait();        // the exit code, or 128 + signal
    bool hasExited();  // reaps it when it has, without waiting
    // As wait(), but nothing when the process is still running after the guard: a test that would
    // otherwise hang fails instead.
    std::optional<int> waitAtMost(std::chrono::seconds guard);

    [[nodiscard]] std::string out() const;
    [[nodiscard]] std::string err() const;
    [[nodiscard]] std::string lastErrorLine() const;

private:
    std::filesystem::path outFile_, errFile_;
    pid_t pid_ = -1;
    int status_ = -1;
};

struct CliResult {
    int status;
    std::string out;
    std::string err;
    std::string lastErrorLine;
};

CliResult runCli(const std::filesystem::path& home, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& extraEnvironment = {});

// The JSON objects among the lines of the text, as `--json watch` prints one a line; other lines,
// such as one cut short while the command writes it, are left out.
std::vector<nlohmann::json> jsonLinesOf(const std::string& text);

}  // namespace tapekeep::test

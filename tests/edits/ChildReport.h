#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "core/FileReading.h"

namespace tapekeep::test {

// Work run in a forked child, a second process with its own mounts and its own store, while the
// test goes on; wait() returns what the child reported, or "child failed" when it died or threw.
class ChildReport {
public:
    explicit ChildReport(const std::function<std::string()>& work) {
        if (::pipe(pipeEnds_) != 0) return;
        child_ = ::fork();
        if (child_ != 0) {
            ::close(pipeEnds_[1]);
            return;
        }
        ::close(pipeEnds_[0]);
        std::string report;
        try {
            report = work();
        } catch (...) {
            ::_exit(1);
        }
        const auto written = ::write(pipeEnds_[1], report.data(), report.size());
        ::_exit(written == static_cast<ssize_t>(report.size()) ? 0 : 1);
    }
    ChildReport(const ChildReport&) = delete;
    ChildReport& operator=(const ChildReport&) = delete;

    std::string wait() {
        if (child_ <= 0) return "child failed";
        auto report = readToEnd(pipeEnds_[0], "the child's report");
        ::close(pipeEnds_[0]);
        int status = 0;
        if (::waitpid(child_, &status, 0) != child_ || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            return "child failed";
        return report;
    }

private:
    int pipeEnds_[2] = {-1, -1};
    pid_t child_ = -1;
};

}  // namespace tapekeep::test

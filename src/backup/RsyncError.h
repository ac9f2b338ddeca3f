#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why an rsync executable could not be classified.
class RsyncError : public Error {
public:
    enum class Kind { notExecutable, execFailed };

    // "rsync is not executable at {path}"
    static RsyncError notExecutable(const std::string& path) {
        return RsyncError(Kind::notExecutable, path, 0, "rsync is not executable at " + path);
    }
    // "rsync at {path} exited with code {exitCode}"
    static RsyncError execFailed(const std::string& path, int exitCode) {
        return RsyncError(Kind::execFailed, path, exitCode,
                          "rsync at " + path + " exited with code " + std::to_string(exitCode));
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] int exitCode() const { return exitCode_; }  // execFailed only

private:
    RsyncError(Kind kind, std::string path, int exitCode, const std::string& text)
        : Error(text), kind_(kind), path_(std::move(path)), exitCode_(exitCode) {}

    Kind kind_;
    std::string path_;
    int exitCode_;
};

}  // namespace tapekeep

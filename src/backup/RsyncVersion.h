#pragma once

#include <stop_token>
#include <string>

namespace tapekeep {

// The capability class of an rsync executable. v31 and v32v33 have every feature we use;
// systemOrOpenrsync has no --link-dest and no --info=progress2; nothing may run with unsupported.
class RsyncVersion {
public:
    enum class Kind { unsupported, v31, v32v33, systemOrOpenrsync };

    RsyncVersion() = default;  // unsupported, with an empty raw text
    static RsyncVersion unsupported(std::string raw) {
        return RsyncVersion(Kind::unsupported, std::move(raw));
    }
    static RsyncVersion v31() { return RsyncVersion(Kind::v31, {}); }
    static RsyncVersion v32v33() { return RsyncVersion(Kind::v32v33, {}); }
    static RsyncVersion systemOrOpenrsync() { return RsyncVersion(Kind::systemOrOpenrsync, {}); }

    [[nodiscard]] Kind kind() const { return kind_; }
    // The start of the --version output, for unsupported; empty for the other classes.
    [[nodiscard]] const std::string& raw() const { return raw_; }

    // "unsupported(<first 40 characters of raw>)", "v31", "v32v33" or "systemOrOpenrsync".
    [[nodiscard]] std::string description() const;
    // "unsupported", "rsync 3.1", "rsync 3.2 – 3.5" or "openrsync / Samba 2.6.9".
    [[nodiscard]] std::string settingsLabel() const;
    [[nodiscard]] bool hasFullFeatures() const { return kind_ == Kind::v31 || kind_ == Kind::v32v33; }

    // The class that an output of "rsync --version" stands for. Pure.
    static RsyncVersion classify(const std::string& versionOutput);

    // Runs "path --version" with rsync's environment and classifies the output. Throws
    // RsyncError::notExecutable when path is no executable file, RsyncError::execFailed(path, -1)
    // when the run fails or exits non-zero, and Cancelled. Blocks; any thread.
    static RsyncVersion detect(const std::string& path, std::stop_token token = {});

    bool operator==(const RsyncVersion&) const = default;

private:
    RsyncVersion(Kind kind, std::string raw) : kind_(kind), raw_(std::move(raw)) {}

    Kind kind_ = Kind::unsupported;
    std::string raw_;
};

}  // namespace tapekeep

#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace tapekeep {

// Full rsync logs on disk for diagnosis, one file per log, named "rsync-<yyyyMMdd-HHmmss-SSS>.log"
// in UTC. A failed log must never spoil a result that is otherwise reported, so no operation
// throws. Holds nothing but its folder, which is constant after construction; every operation
// blocks and may be called from any thread.
class RsyncLogStore {
public:
    explicit RsyncLogStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

    // The store in the user's log folder, ${XDG_STATE_HOME:-~/.local/state}/Logs/Tapekeep,
    // fixed at first use.
    static const RsyncLogStore& shared();

    [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }

    // Creates the folder with its parents and writes text atomically under the present time's
    // name. Returns the file written, or nothing when any step failed. Two logs written in the
    // same millisecond share a name, and the later one wins.
    [[nodiscard]] std::optional<std::filesystem::path> write(std::string_view text) const;

    // Deletes the logs (names "rsync-*.log") last modified more than olderThanDays days
    // ago; other files are left alone. Failures are dropped and the rest goes on.
    void prune(int olderThanDays) const;

private:
    std::filesystem::path folder_;
};

}  // namespace tapekeep

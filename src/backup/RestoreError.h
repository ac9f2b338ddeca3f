#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why getting work back from a version failed: a restore, its preview, or a comparison of versions.
class RestoreError : public Error {
public:
    enum class Kind {
        rsyncFailed,
        parseFailedWithLog,
        volumeDisconnectedMidRun,
        partialTransfer,
        sourceFilesVanished,
        operationInProgress,
        volumeUnmounted,
        backupNotFound,
        cancelled
    };

    static RestoreError rsyncFailed(std::int32_t code) {
        RestoreError error(Kind::rsyncFailed, "rsync failed with exit code " + std::to_string(code));
        error.code_ = code;
        return error;
    }
    static RestoreError parseFailedWithLog(const std::filesystem::path& log) {
        return {Kind::parseFailedWithLog, "rsync output parse failed — raw log saved to " + log.string()};
    }
    static RestoreError volumeDisconnectedMidRun() {
        return {Kind::volumeDisconnectedMidRun,
                "M8 card disconnected during restore — the target may be partially restored"};
    }
    static RestoreError partialTransfer() {
        return {Kind::partialTransfer,
                "Partial restore: some files could not be transferred (rsync code 23). Check the log for "
                "details."};
    }
    static RestoreError sourceFilesVanished() {
        return {
            Kind::sourceFilesVanished,
            "Restore incomplete: source files disappeared during transfer. Check the log and backup source."};
    }
    static RestoreError operationInProgress() {
        return {Kind::operationInProgress, "Another operation is already running for this card."};
    }
    static RestoreError volumeUnmounted() {
        return {Kind::volumeUnmounted, "Target volume is no longer mounted. Was the device disconnected?"};
    }
    static RestoreError backupNotFound() {
        return {Kind::backupNotFound, "Backup source no longer exists on disk."};
    }
    static RestoreError cancelled() { return {Kind::cancelled, "Restore was cancelled."}; }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] std::int32_t code() const { return code_; }  // rsyncFailed only

private:
    RestoreError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
    std::int32_t code_ = 0;
};

}  // namespace tapekeep

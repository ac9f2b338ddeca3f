#pragma once

#include <cstdint>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why a backup run failed; the description is what the user reads and what failure.txt holds.
class BackupOperationError : public Error {
public:
    enum class Kind { message, transferFailed, diskFull, verification };

    static BackupOperationError message(const std::string& text) { return {Kind::message, text, 0}; }
    static BackupOperationError transferFailed(std::int32_t status) {
        return {Kind::transferFailed, transferFailedText(status), status};
    }
    // A transfer that failed because the destination ran out of space (rsync said ENOSPC).
    static BackupOperationError diskFull(std::int32_t status) {
        return {Kind::diskFull, "The backup disk is full. The backup was not published.", status};
    }
    static BackupOperationError verification(const std::string& detail) {
        return {Kind::verification, "Backup verification failed: " + detail, 0};
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] std::int32_t status() const { return status_; }

private:
    BackupOperationError(Kind kind, const std::string& text, std::int32_t status)
        : Error(text), kind_(kind), status_(status) {}

    static std::string transferFailedText(std::int32_t status) {
        if (status == 24)
            return "Source files disappeared during backup. The backup is incomplete and was not published.";
        return "Backup transfer failed (rsync exit " + std::to_string(status) +
               "). The backup was not published.";
    }

    Kind kind_;
    std::int32_t status_;
};

}  // namespace tapekeep

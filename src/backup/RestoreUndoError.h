#pragma once

#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why the last restore of a card cannot be undone, or why its safety backup stopped it.
class RestoreUndoError : public Error {
public:
    enum class Kind { nothingToUndo, safetyVersionGone, safetyBackupFailed, recordUnreadable };

    static RestoreUndoError nothingToUndo() {
        return {Kind::nothingToUndo, "There is no restore to undo on this card."};
    }
    static RestoreUndoError safetyVersionGone(const std::filesystem::path& version) {
        return {Kind::safetyVersionGone,
                "The safety version of the last restore no longer exists: " + version.string()};
    }
    static RestoreUndoError safetyBackupFailed(const std::string& reason) {
        return {Kind::safetyBackupFailed,
                "The safety backup before the restore failed, so nothing was restored: " + reason};
    }
    static RestoreUndoError recordUnreadable(const std::string& reason) {
        return {Kind::recordUnreadable, "The record of the last restore cannot be read: " + reason};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    RestoreUndoError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}
    Kind kind_;
};

}  // namespace tapekeep

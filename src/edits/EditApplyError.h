#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why an apply gave up on an edit. pathInvalid is the applier's general refusal and keeps its prefix
// whatever the text says ("invalid path: target already exists on card — rename or discard").
class EditApplyError : public Error {
public:
    enum class Kind {
        symlinkInTargetPath,
        pathInvalid,
        rsyncFailed,
        persistenceFailed,
        pathEscape,
        operationLocked,
        sourceMissing
    };

    static EditApplyError symlinkInTargetPath(const std::string& component) {
        return {Kind::symlinkInTargetPath, "symlink in target path: " + component};
    }
    static EditApplyError pathInvalid(const std::string& text) {
        return {Kind::pathInvalid, "invalid path: " + text};
    }
    // The two refusals that the live check can also foresee.
    static EditApplyError targetOnCard() {
        return pathInvalid("target already exists on card — rename or discard");
    }
    static EditApplyError sampleNotOnCard() { return pathInvalid("source sample not present on card"); }
    // rsync's last lines are not kept, so the text ends in a blank behind the colon.
    static EditApplyError rsyncFailed(int code, const std::string& tail = {}) {
        return {Kind::rsyncFailed, "rsync failed (exit " + std::to_string(code) + "): " + tail};
    }
    static EditApplyError persistenceFailed(const std::string& text) {
        return {Kind::persistenceFailed, "could not persist edit status: " + text};
    }
    static EditApplyError pathEscape() { return {Kind::pathEscape, "target path escapes the mount root"}; }
    static EditApplyError operationLocked() {
        return {Kind::operationLocked, "a backup or restore is already running on this card"};
    }
    static EditApplyError sourceMissing() { return {Kind::sourceMissing, "staged source file not found"}; }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    EditApplyError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep

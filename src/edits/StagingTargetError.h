#pragma once

#include "core/Error.h"

namespace tapekeep {

// Why the target of a new file that a trim would write was refused. description() is the text the
// user reads.
class StagingTargetError : public Error {
public:
    enum class Kind { outsideSamples, sameAsSource, existsInBackup, pendingTarget };

    static StagingTargetError outsideSamples() {
        return {Kind::outsideSamples, "Choose a .wav filename inside /Samples/."};
    }
    static StagingTargetError sameAsSource() {
        return {Kind::sameAsSource, "Target filename must differ from source."};
    }
    static StagingTargetError existsInBackup() {
        return {Kind::existsInBackup, "A file with this path already exists in the backup."};
    }
    static StagingTargetError pendingTarget() {
        return {Kind::pendingTarget, "A pending edit already targets this path."};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    StagingTargetError(Kind kind, const char* text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep

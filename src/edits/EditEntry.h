#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Timestamp.h"
#include "edits/EditKind.h"
#include "edits/EditMode.h"
#include "edits/EditParameters.h"

namespace tapekeep {

// One staged change to one sample of a card. Pending while appliedAt is absent; only appliedAt
// and applyError change in place, every other change is a new record under the same id.
struct EditEntry {
    std::string id;  // upper-case UUID
    EditKind kind = EditKind::sampleTrim;
    EditMode mode = EditMode::saveAsNew;
    TimePoint createdAt;
    std::optional<TimePoint> appliedAt;
    std::optional<std::string> applyError;   // last failure of an apply, on a pending edit only
    std::string sourceVersionFolder;         // one path component
    std::string sourceRelativePath;          // card path, rooted with "/"
    std::string targetRelativePath;          // card path, rooted with "/"
    std::string stagedFileName;              // one path component inside staged/
    std::vector<std::string> affectedSongs;  // card paths; always empty for saveAsNew
    EditParameters parameters;

    [[nodiscard]] bool isPending() const { return !appliedAt; }
    bool operator==(const EditEntry&) const = default;
};

}  // namespace tapekeep

#pragma once

#include <string>
#include <vector>

#include "edits/EditEntry.h"

namespace tapekeep {

// The edits of one backup set, in staging order: new ones are appended, a replacement keeps its
// slot, a discard closes the gap.
struct EditManifest {
    static constexpr int currentSchemaVersion = 1;

    int schemaVersion = currentSchemaVersion;
    std::string backupRootName;
    std::vector<EditEntry> edits;

    bool operator==(const EditManifest&) const = default;
};

}  // namespace tapekeep

#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "edits/EditEntry.h"
#include "edits/LiveCheckSnapshot.h"
#include "edits/SongDelta.h"

namespace tapekeep {

class EditManifestStore;

// The pending edits of a set held against the card as it is now: what the edits sheet shows before an
// apply, and what the apply itself goes by. A plain value; any thread.
struct EditLiveCheck {
    std::map<std::string, SongDelta> deltas;     // edit id -> how the card differs from the manifest
    std::set<std::string> livePathsCanonical;    // sample keys of every file on the card
    std::set<std::string> missingSampleIDs;      // edits whose source sample is not on the card
    std::set<std::string> recoverableCommitIDs;  // edits with a commit marker
    std::set<std::string> finishedCopyIDs;       // of those, the ones whose target holds the staged bytes

    // Scans the card and reads the markers of the set. Throws EditLiveScanError, PosixError, the
    // store's errors, or Cancelled.
    static EditLiveCheck run(const std::filesystem::path& mountRoot, const std::vector<EditEntry>& edits,
                             EditManifestStore& store, const std::string& root, const std::stop_token& token);

    // What an apply run goes by.
    [[nodiscard]] LiveCheckSnapshot snapshot() const;
    // A selected edit that an apply leaves out: its source is gone, or a new file's target is taken by
    // a file that no earlier run of this edit left there.
    [[nodiscard]] bool isBlocked(const EditEntry& edit) const { return blockReason(edit).has_value(); }
    // Why it is blocked, in the words the apply itself would fail the edit with.
    [[nodiscard]] std::optional<std::string> blockReason(const EditEntry& edit) const;
    // The row's state texts, most serious first; "LIVE SCAN MATCHES MANIFEST" when nothing differs.
    [[nodiscard]] std::vector<std::string> rowStates(const EditEntry& edit) const;
    [[nodiscard]] bool holdsPath(const std::string& cardPath) const;
};

}  // namespace tapekeep

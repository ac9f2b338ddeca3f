#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "cards/Lease.h"
#include "cards/VolumeUUID.h"
#include "core/SDCard.h"
#include "edits/ApplyProgress.h"
#include "edits/EditEntry.h"
#include "edits/LiveCheckSnapshot.h"

namespace tapekeep {

class EditManifestStore;

// Carries pending edits from the store to a mounted card: the one writer of the edits to a card. The
// card may be pulled at any moment and the process may die between any two steps, so nothing checked
// a moment ago is trusted: the card's identity, the live content and the target's path (for symbolic
// links) are checked again right before each step that matters; every copy is read back; and a new
// file's copy is announced by a commit marker first, so that a copy that finished but was never
// recorded is recognised and finished by the next run rather than refused as a collision.
//
// One edit's failure is recorded on the edit (its applyError) and the run goes on with the next; a
// cancellation is recorded on the edit it met and ends the run. Runs on the calling thread and blocks
// it; progress goes to the handler on that thread. One run holds the card's browse lease from its start
// to its end, so no backup, restore or other apply of any process touches the card meanwhile.
class EditApplier {
public:
    struct Dependencies {
        // Throws when the card is not, or no longer, the mounted volume of the run.
        std::function<void(const SDCard& card, std::stop_token token)> revalidateCard;
        // (rsync path, arguments, token) -> exit status; throws when rsync cannot run.
        std::function<int(const std::string& rsyncPath, const std::vector<std::string>& arguments,
                          std::stop_token token)>
            runRsync;
        // Throws when the target on the card does not hold the staged file's bytes.
        std::function<void(const std::filesystem::path& staged, const std::filesystem::path& target,
                           std::stop_token token)>
            verifyCopy;
        std::function<Lease(const VolumeUUID& uuid)> acquire;  // throws OperationLockError when held
        std::function<void(const Lease& lease)> release;
    };

    // The shared rsync runner (its lines are dropped), the byte-for-byte read-back, and the browse
    // lease of OperationLock::shared(), with the given card check.
    static Dependencies standardDependencies(
        std::function<void(const SDCard& card, std::stop_token token)> revalidateCard);

    struct Request {
        std::vector<EditEntry> edits;  // applied in this order: of two conflicting edits the later wins
        std::string volumeUUID;        // of the card the caller validated
        std::string backupRootName;    // the set whose store holds the edits
        std::filesystem::path mountURL;
        std::optional<SDCard> lockedCard;  // the card as the caller holds it
        LiveCheckSnapshot snapshot;        // the caller's last live check
        // A fresh live check, run under the lease; it throws when the card cannot be scanned.
        std::function<LiveCheckSnapshot(std::stop_token token)> refresh;
        std::string rsyncPath;
        std::function<std::filesystem::path(const EditEntry& edit)> stagedFileResolver;
    };

    using ProgressHandler = std::function<void(const std::string& editID, const ApplyProgress& progress)>;

    EditApplier(EditManifestStore& store, Dependencies dependencies);

    // Every edit of the request ends done or failed, with its failure recorded in the store, unless a
    // cancellation ends the run first: the edit it met fails, the ones behind it stay as they were, and
    // Cancelled is thrown once the lease is released.
    void applyEdits(const Request& request, const ProgressHandler& onProgress, std::stop_token token) const;

    // Refuses a symbolic link on the way from the mount to the target, the target itself included:
    // EditApplyError symlinkInTargetPath with the component's name. A component that does not exist
    // ends the walk; one whose kind cannot be read counts as no link.
    static void checkTargetPath(const std::filesystem::path& target, const std::filesystem::path& mountURL);

private:
    EditManifestStore& store_;
    Dependencies dependencies_;
};

}  // namespace tapekeep

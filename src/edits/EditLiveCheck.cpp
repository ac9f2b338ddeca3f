#include "edits/EditLiveCheck.h"

#include "core/Cancelled.h"
#include "edits/EditApplyError.h"
#include "edits/EditLiveScan.h"
#include "edits/EditManifestStore.h"
#include "edits/EditPathValidator.h"
#include "edits/EditQueueTexts.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// Whether the file that stands at the target is this edit's own copy, read back whole.
bool holdsStagedBytes(const fs::path& staged, const fs::path& target, const std::stop_token& token) {
    try {
        EditPathValidator::contentsEqual(staged, target, token);
        return true;
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception&) {
        return false;  // different, or unreadable: either way not a finished copy
    }
}

}  // namespace

EditLiveCheck EditLiveCheck::run(const fs::path& mountRoot, const std::vector<EditEntry>& edits,
                                 EditManifestStore& store, const std::string& root,
                                 const std::stop_token& token) {
    const EditLiveScan scan = EditLiveScan::scan(mountRoot, token);
    EditLiveCheck check;
    for (const auto& [key, path] : scan.samplePathsByKey) check.livePathsCanonical.insert(key);
    check.recoverableCommitIDs = store.editsWithCommitMarkers(root);
    for (const auto& edit : edits) {
        const SongDelta delta = scan.deltaOf(edit);
        if (delta.missingOnCard) check.missingSampleIDs.insert(edit.id);
        // The card's own spelling of the target, whatever the case of the manifest's.
        const auto onCard = scan.samplePathsByKey.find(EditLiveScan::sampleKey(edit.targetRelativePath));
        if (delta.targetCollision && check.recoverableCommitIDs.contains(edit.id) &&
            onCard != scan.samplePathsByKey.end() &&
            holdsStagedBytes(store.stagedURL(edit, root), mountRoot / onCard->second.substr(1), token))
            check.finishedCopyIDs.insert(edit.id);
        check.deltas.emplace(edit.id, delta);
    }
    return check;
}

LiveCheckSnapshot EditLiveCheck::snapshot() const {
    return {.targetExists =
                [paths = livePathsCanonical](const std::string& path) {
                    return paths.contains(EditLiveScan::sampleKey(path));
                },
            .missingSampleIDs = missingSampleIDs};
}

std::optional<std::string> EditLiveCheck::blockReason(const EditEntry& edit) const {
    if (missingSampleIDs.contains(edit.id)) return EditApplyError::sampleNotOnCard().description();
    const auto delta = deltas.find(edit.id);
    if (edit.mode == EditMode::saveAsNew && delta != deltas.end() && delta->second.targetCollision &&
        !recoverableCommitIDs.contains(edit.id))
        return EditApplyError::targetOnCard().description();
    return std::nullopt;
}

std::vector<std::string> EditLiveCheck::rowStates(const EditEntry& edit) const {
    const auto found = deltas.find(edit.id);
    if (found == deltas.end()) return {};
    const SongDelta& delta = found->second;
    std::vector<std::string> states;
    if (delta.missingOnCard) states.emplace_back(EditQueueTexts::sourceMissing);
    if (delta.targetCollision)
        states.emplace_back(finishedCopyIDs.contains(edit.id) ? EditQueueTexts::copyComplete
                                                              : EditQueueTexts::collision);
    // Only a replaced sample breaks its songs; a new file leaves the source and its users alone.
    if (edit.mode == EditMode::overwrite) {
        if (!delta.extraSongsOnCard.empty()) states.emplace_back(EditQueueTexts::moreSongs);
        if (!delta.removedSongs.empty()) states.emplace_back(EditQueueTexts::fewerSongs);
    }
    if (states.empty()) states.emplace_back(EditQueueTexts::matches);
    return states;
}

bool EditLiveCheck::holdsPath(const std::string& cardPath) const {
    return livePathsCanonical.contains(EditLiveScan::sampleKey(cardPath));
}

}  // namespace tapekeep

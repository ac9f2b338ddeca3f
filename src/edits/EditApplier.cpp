#include "edits/EditApplier.h"

#include <sys/stat.h>

#include <set>
#include <utility>

#include "backup/RsyncCommands.h"
#include "backup/RsyncProcess.h"
#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "core/Cancelled.h"
#include "core/FolderCreation.h"
#include "core/LinkWalk.h"
#include "core/RetryingInterrupts.h"
#include "core/StandardPath.h"
#include "core/TestPause.h"
#include "edits/EditApplyError.h"
#include "edits/EditManifestStore.h"
#include "edits/EditPathValidator.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// Anything at all stands at the path, a dangling link included.
bool existsOnMount(const fs::path& path) {
    struct stat status {};
    return retryingInterrupts([&] { return ::lstat(path.c_str(), &status); }) == 0;
}

// The card of the run: the one the caller holds, or one made of what it was given. Nothing when the
// three disagree, for then the lease, the checks and the copy could each be about another volume.
std::optional<SDCard> validatedCard(const EditApplier::Request& request) {
    const SDCard card = request.lockedCard.value_or(SDCard{request.mountURL, "", request.volumeUUID});
    if (request.volumeUUID.empty() || card.diskUtilUUID != request.volumeUUID ||
        standardized(card.mountPath) != standardized(request.mountURL))
        return std::nullopt;
    return card;
}

// The components of `path` below `root`, or all of them when it does not lie below it.
std::vector<std::string> componentsBelow(const fs::path& path, const fs::path& root) {
    auto part = path.begin();
    auto rootPart = root.begin();
    while (rootPart != root.end() && part != path.end() && *part == *rootPart) ++part, ++rootPart;
    if (rootPart != root.end()) part = path.begin();
    std::vector<std::string> components;
    for (; part != path.end(); ++part)
        if (!part->empty() && *part != "/") components.push_back(part->string());
    return components;
}

// One run of applyEdits, once the card is confirmed and held.
class ApplyRun {
public:
    ApplyRun(EditManifestStore& store, const EditApplier::Dependencies& dependencies,
             const EditApplier::Request& request, const EditApplier::ProgressHandler& onProgress,
             std::stop_token token)
        : store_(store),
          dependencies_(dependencies),
          request_(request),
          onProgress_(onProgress),
          token_(std::move(token)),
          mount_(standardized(request.mountURL)),
          snapshot_(request.snapshot) {}

    void failAll(const std::string& message) {
        for (const auto& edit : request_.edits) fail(edit, message);
    }

    void run(const SDCard& card) {
        card_ = card;
        if (!refreshLiveCheck() || !readMarkers()) return;
        for (const auto& edit : request_.edits) {
            try {
                apply(edit);
            } catch (const Cancelled& cancelled) {
                fail(edit, cancelled.what());
                throw;
            } catch (const std::exception& error) {
                fail(edit, describe(error));
            }
        }
    }

private:
    // The check has to run under the lease, or it would say nothing about what the copies will meet.
    bool refreshLiveCheck() {
        if (!request_.refresh) return true;
        try {
            snapshot_ = request_.refresh(token_);
            return true;
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            failAll(EditApplyError::pathInvalid("live card scan failed: " + describe(error)).description());
            return false;
        }
    }

    bool readMarkers() {
        try {
            markers_ = store_.editsWithCommitMarkers(request_.backupRootName);
            return true;
        } catch (const std::exception& error) {
            failAll(EditApplyError::persistenceFailed(describe(error)).description());
            return false;
        }
    }

    void apply(const EditEntry& edit) {
        publish(edit, ApplyProgress::starting());
        throwIfCancelled(token_);
        EditPathValidator::validatePath(edit.sourceRelativePath);
        EditPathValidator::validatePath(edit.targetRelativePath);
        EditPathValidator::validateComponent(edit.stagedFileName);
        const bool isNewFile = edit.mode == EditMode::saveAsNew;
        const bool hasMarker = markers_.contains(edit.id);
        const std::string normalizedTarget = EditPathValidator::normalizePath(edit.targetRelativePath);
        if (!isNewFile && snapshot_.missingSampleIDs.contains(edit.id))
            throw EditApplyError::sampleNotOnCard();
        // With a marker, a file at the target may be this edit's own finished copy: that is told below.
        if (isNewFile && !hasMarker && snapshot_.targetExists(normalizedTarget))
            throw EditApplyError::targetOnCard();
        const fs::path target = targetURL(edit);
        walk(target);
        const fs::path staged = stagedFile(edit);
        if (isNewFile && hasMarker) {
            if (existsOnMount(target)) return finishEarlierCopy(edit, staged, target);
            if (snapshot_.targetExists(normalizedTarget)) throw EditApplyError::targetOnCard();
        }
        revalidate();
        walk(target);
        makeParentFolder(target);
        revalidate();
        TestPause::at("apply-checked", token_);
        if (isNewFile)
            announceCopy(edit, target, hasMarker);
        else
            walk(target);
        copy(edit, staged, target);
        publish(edit, ApplyProgress::verifying());
        dependencies_.verifyCopy(staged, target, token_);
        record(edit, target);
    }

    // The target lies below the mount, whatever the card path says.
    fs::path targetURL(const EditEntry& edit) const {
        const std::string& path = edit.targetRelativePath;
        const auto start = path.find_first_not_of('/');
        if (start == std::string::npos) throw EditApplyError::pathEscape();  // the card's root is no file
        const fs::path target = standardized(mount_ / path.substr(start));
        if (!target.string().starts_with(mount_.string() + "/")) throw EditApplyError::pathEscape();
        return target;
    }

    fs::path stagedFile(const EditEntry& edit) const {
        const fs::path staged = request_.stagedFileResolver(edit);
        std::error_code error;
        // A link is refused as well: rsync -a would copy the link itself onto the card.
        if (fs::symlink_status(staged, error).type() != fs::file_type::regular)
            throw EditApplyError::sourceMissing();
        return staged;
    }

    void makeParentFolder(const fs::path& target) const {
        makeFoldersWithoutFollowingLinks(mount_, target.parent_path(), [](const fs::path& link) {
            throw EditApplyError::symlinkInTargetPath(link.filename().string());
        });
    }

    // Leaves the commit marker before a new file is copied, so that a copy that ends but is never
    // recorded is recognised as this edit's by the next run. A marker this run wrote goes again when the
    // card turns out unfit right after, so that it cannot vouch for a file someone else put there.
    void announceCopy(const EditEntry& edit, const fs::path& target, bool hadMarker) {
        if (existsOnMount(target)) throw EditApplyError::targetOnCard();
        walk(target);
        store_.writeCommitMarker(edit.id, request_.backupRootName);
        markers_.insert(edit.id);
        try {
            revalidate();
            if (existsOnMount(target)) throw EditApplyError::targetOnCard();
            walk(target);
        } catch (...) {
            if (!hadMarker) withdrawMarker(edit);
            throw;
        }
        TestPause::at("apply-marked", token_);
    }

    void withdrawMarker(const EditEntry& edit) {
        try {
            store_.removeCommitMarker(edit.id, request_.backupRootName);
        } catch (const std::exception&) {
            // A marker left behind does no harm: a later run finds no target and copies again.
        }
        markers_.erase(edit.id);
    }

    void copy(const EditEntry& edit, const fs::path& staged, const fs::path& target) {
        publish(edit, ApplyProgress::copying());
        const bool isNewFile = edit.mode == EditMode::saveAsNew;
        const auto mode = isNewFile ? modeOnCard(edit.sourceRelativePath) : std::nullopt;
        const int status = dependencies_.runRsync(
            request_.rsyncPath, RsyncCommands::applyEditArguments(staged, target, isNewFile, mode), token_);
        throwIfCancelled(token_);  // a stopped rsync's status is no failure of the copy
        if (status != 0) throw EditApplyError::rsyncFailed(status);
    }

    // The mode the card shows for a file of the same kind as the new one: its source sample's.
    std::optional<unsigned> modeOnCard(const std::string& cardPath) const {
        struct stat status {};
        const fs::path file = mount_ / cardPath.substr(cardPath.find_first_not_of('/'));
        if (retryingInterrupts([&] { return ::lstat(file.c_str(), &status); }) != 0 ||
            !S_ISREG(status.st_mode))
            return std::nullopt;
        return static_cast<unsigned>(status.st_mode);
    }

    // A marker and a file at the target: the copy of an earlier run ended but was never recorded. It
    // is recorded now if it holds the staged bytes; nothing is copied either way.
    void finishEarlierCopy(const EditEntry& edit, const fs::path& staged, const fs::path& target) {
        revalidate();
        walk(target);
        publish(edit, ApplyProgress::verifying());
        dependencies_.verifyCopy(staged, target, token_);
        record(edit, target);
    }

    void record(const EditEntry& edit, const fs::path& target) {
        throwIfCancelled(token_);
        revalidate();
        walk(target);
        TestPause::at("apply-copied", token_);
        try {
            store_.markApplied(edit, request_.backupRootName);
        } catch (const std::exception& error) {
            throw EditApplyError::persistenceFailed(describe(error));
        }
        TestPause::at("apply-recorded", token_);
        publish(edit, ApplyProgress::done());
    }

    void revalidate() const { dependencies_.revalidateCard(card_, token_); }
    void walk(const fs::path& target) const { EditApplier::checkTargetPath(target, mount_); }

    void fail(const EditEntry& edit, std::string message) {
        try {
            store_.recordApplyError(edit.id, message, request_.backupRootName);
        } catch (const std::exception& error) {
            message += " (could not save failure status: " + describe(error) + ")";
        }
        publish(edit, ApplyProgress::failed(std::move(message)));
    }

    void publish(const EditEntry& edit, const ApplyProgress& progress) const {
        if (onProgress_) onProgress_(edit.id, progress);
    }

    EditManifestStore& store_;
    const EditApplier::Dependencies& dependencies_;
    const EditApplier::Request& request_;
    const EditApplier::ProgressHandler& onProgress_;
    const std::stop_token token_;
    const fs::path mount_;
    SDCard card_;
    LiveCheckSnapshot snapshot_;
    std::set<std::string> markers_;  // ids whose commit marker is in the store
};

}  // namespace

EditApplier::Dependencies EditApplier::standardDependencies(
    std::function<void(const SDCard& card, std::stop_token token)> revalidateCard) {
    return {
        .revalidateCard = std::move(revalidateCard),
        .runRsync =
            [](const std::string& rsyncPath, const std::vector<std::string>& arguments,
               std::stop_token token) {
                return runRsync(
                    rsyncPath, arguments, [](const std::string&) {}, std::move(token));
            },
        .verifyCopy = [](const fs::path& staged, const fs::path& target,
                         std::stop_token token) { EditPathValidator::contentsEqual(staged, target, token); },
        .acquire =
            [](const VolumeUUID& uuid) {
                return OperationLock::shared().acquire(uuid, OperationKind::browse);
            },
        .release = [](const Lease& lease) { OperationLock::shared().release(lease); },
    };
}

EditApplier::EditApplier(EditManifestStore& store, Dependencies dependencies)
    : store_(store), dependencies_(std::move(dependencies)) {}

void EditApplier::applyEdits(const Request& request, const ProgressHandler& onProgress,
                             std::stop_token token) const {
    if (request.edits.empty()) return;
    ApplyRun run(store_, dependencies_, request, onProgress, token);
    const auto card = validatedCard(request);
    if (!card)
        return run.failAll(
            EditApplyError::pathInvalid("locked card, validated card, and target mount do not match")
                .description());
    Lease lease;
    try {
        lease = dependencies_.acquire(VolumeUUID{request.volumeUUID});
    } catch (const OperationLockError&) {
        return run.failAll(EditApplyError::operationLocked().description());
    } catch (const std::exception& error) {
        return run.failAll(describe(error));  // no lease, so nothing was touched
    }
    try {
        run.run(*card);
    } catch (...) {
        dependencies_.release(lease);
        throw;
    }
    dependencies_.release(lease);
}

void EditApplier::checkTargetPath(const fs::path& target, const fs::path& mountURL) {
    const fs::path mount = standardized(mountURL);
    const auto link = firstSymbolicLink(mount, componentsBelow(standardized(target), mount),
                                        UnreadableComponent::countsAsNoLink);
    if (link) throw EditApplyError::symlinkInTargetPath(link->filename().string());
}

}  // namespace tapekeep

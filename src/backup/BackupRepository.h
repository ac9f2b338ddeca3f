#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "backup/BackupSetLock.h"
#include "core/BackupSet.h"
#include "core/BackupVersion.h"
#include "core/NotificationCenter.h"
#include "core/SDCard.h"
#include "core/Timestamp.h"

namespace tapekeep {

// Owns the snapshot store below one base folder:
//   <base>/<set>/backup-<yyyy-MM-dd-HHmmss>/   published versions
//   <base>/<set>/latest                        symbolic link to the newest version
//   <base>/<set>/.incomplete-<UUID>/           staging of a run (failure.txt when kept after a failure)
//   <base>/<set>/.deleting-<UUID>/             a version on its way out
//   <base>/<set>/.latest-<UUID>                the next `latest`, just before its rename
//   <base>/<set>/.tapekeep-sizes.json          sizes cache; <version>/.tapekeep-note the user's note
//   <base>/<set>/.tapekeep-card.json           the card the set belongs to: {"uuid", "volumeName"}
// A reader never sees a half-written version or a missing `latest`: versions appear and leave by
// rename, and `latest` is replaced by renaming a new link over it. Only folders named exactly as
// publishing names them are versions; nothing else in a set is ever listed, rotated or deleted.
//
// A serial service: every mutating operation holds one mutex for its whole run, shared by all
// instances for the same base folder in this process, so callers on any thread wait for each
// other. Listings and the static functions take no lock; the renames keep them safe.
// Failures throw PosixError, RepositoryError or LatestLinkFailure; cancellation throws Cancelled.
class BackupRepository {
public:
    explicit BackupRepository(std::filesystem::path baseURL,
                              NotificationCenter& center = NotificationCenter::defaultCenter());

    [[nodiscard]] const std::filesystem::path& baseURL() const { return baseURL_; }

    // Every non-hidden real directory of the base folder, by folder name; empty when it is missing.
    [[nodiscard]] std::vector<BackupSet> listSets() const;
    // The set's versions, newest first; empty when the set folder is missing.
    [[nodiscard]] std::vector<BackupVersion> listVersions(const std::filesystem::path& setRoot) const;
    // How many versions the set holds; absent when its folder is missing or unreadable.
    [[nodiscard]] std::optional<int> versionCount(const std::filesystem::path& setRoot) const;

    // Refuses, with RepositoryError, a set whose card file names another card or cannot be read
    // ("This backup set belongs to another card ({uuid})."). A set without one, or without a
    // folder yet, passes. Writes nothing.
    static void checkSetBelongsTo(const std::filesystem::path& setRoot, const std::string& uuid);

    // Gives the set a card file naming this card unless it has one, written atomically and never
    // over an existing one; refuses as checkSetBelongsTo. Called at publish, so that every set
    // with a version names its card.
    void claimSet(const std::filesystem::path& setRoot, const SDCard& card);

    // Creates the set folder if needed and a fresh `.incomplete-<UUID>` in it, and returns that.
    std::filesystem::path createStaging(const std::filesystem::path& setRoot);

    // Renames the staging folder to `backup-<publishedAt>` (at least one second after the newest
    // version, never over an existing name), points `latest` at it and posts backupsDidChange.
    // Throws LatestLinkFailure when only the last step failed: the version then stands.
    std::filesystem::path publishStaging(const std::filesystem::path& staging,
                                         const std::filesystem::path& setRoot, Clock::time_point publishedAt,
                                         std::stop_token token);

    // Points `latest` at the version: relative when it lies in the set, absolute otherwise.
    void updateLatestLink(const std::filesystem::path& setRoot, const std::filesystem::path& version);

    // When `latest` dangles, points it at the newest version, or deletes it if none is left.
    // A missing `latest` stays missing.
    void repairLatestLink(const std::filesystem::path& setRoot);

    // Removes the oldest versions beyond max(keepCount, 1), each renamed to `.deleting-<UUID>`
    // before its removal; then repairs `latest`. Posts backupsDidChange when anything was due,
    // also when it fails or is cancelled part-way.
    void rotate(const std::filesystem::path& setRoot, int keepCount, std::stop_token token);

    // Clears what earlier runs left: every `.deleting-*`; every `.incomplete-*` older than the
    // grace period; and every `.incomplete-*` with failure.txt except the newest one. Returns
    // the removed paths.
    std::vector<std::filesystem::path> removeIncomplete(
        const std::filesystem::path& setRoot, Clock::time_point now, std::stop_token token,
        std::chrono::seconds gracePeriod = std::chrono::hours(24));
    // The same for the caller that holds the set's lock: then no run can be staging in the set, so
    // every `.incomplete-*` without failure.txt is a dead run's and goes at once, whatever its age.
    std::vector<std::filesystem::path> removeIncomplete(
        const BackupSetLock& heldLock, Clock::time_point now, std::stop_token token,
        std::chrono::seconds gracePeriod = std::chrono::hours(24));

    // The version that `latest` names, resolved, if it is a directory directly inside the set
    // named as a version ("backup-<timestamp>"); otherwise (missing, dangling, elsewhere) absent.
    static std::optional<std::filesystem::path> resolvePreviousVersion(const std::filesystem::path& setRoot);

    // True only for a directory itself; a symbolic link to one is not.
    static bool isRealDirectory(const std::filesystem::path& path);

    // The sizes cache: version folder name to bytes. Saving replaces the file atomically and
    // throws PosixError; a missing or unreadable file loads as empty.
    static void saveSizes(const std::filesystem::path& setRoot,
                          const std::map<std::string, std::int64_t>& sizes);
    static std::map<std::string, std::int64_t> loadSizes(const std::filesystem::path& setRoot);

    // Sum of the sizes of all regular files below the version; symbolic links are not followed.
    // Throws PosixError or Cancelled.
    static std::int64_t versionSize(const std::filesystem::path& version, std::stop_token token);

    // The note on a version; empty when there is none or it cannot be read.
    static std::string readNote(const std::filesystem::path& version);
    // Saves the trimmed note, or deletes it when nothing is left after trimming. Returns the
    // text to show on failure ("Could not save note: …" / "Could not delete note: …").
    static std::optional<std::string> saveNote(const std::filesystem::path& version, const std::string& text);

private:
    void updateLatestLinkLocked(const std::filesystem::path& setRoot, const std::filesystem::path& version);
    void repairLatestLinkLocked(const std::filesystem::path& setRoot);
    void removeOldestVersions(const std::filesystem::path& setRoot, int keepCount, std::stop_token token);
    std::vector<std::filesystem::path> removeIncompleteIn(const std::filesystem::path& setRoot,
                                                          Clock::time_point now, const std::stop_token& token,
                                                          std::chrono::seconds gracePeriod, bool noLiveRun);
    void postBackupsDidChange();

    std::filesystem::path baseURL_;       // constant after construction
    NotificationCenter& center_;          // constant after construction
    std::shared_ptr<std::mutex> serial_;  // shared by every instance for the same base folder
};

}  // namespace tapekeep

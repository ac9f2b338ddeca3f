#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "backup/BackupOperation.h"
#include "backup/RestoreError.h"
#include "backup/RsyncLogStore.h"
#include "cards/ValidateResult.h"
#include "core/FileDiff.h"
#include "core/SDCard.h"
#include "workflows/RestoreChoice.h"

namespace tapekeep {

// One restore from a version to a card, from the check that the card is still there to the meaning
// of rsync's exit status. The caller holds the card's restore lease throughout. rsync adds and
// updates but never deletes, and never replaces a file on the card that is newer than the version's.
//
// run() blocks the calling thread; onLine is called on it with rsync's lines and the run's own.
class RestoreOperation {
public:
    using LineHandler = std::function<void(const std::string& line)>;
    // Whether the card with this UUID is mounted now. Must throw nothing but Cancelled.
    using Validator = std::function<ValidateResult(const std::string& uuid, std::stop_token token)>;

    struct Request {
        SDCard card;
        std::filesystem::path version;
        RestoreChoice choice;
        std::string rsyncPath;
    };

    struct Dependencies {
        BackupOperation::RsyncRunner runRsync = BackupOperation::defaultRsyncRunner();
        Validator validate;
        RsyncLogStore logStore = RsyncLogStore::shared();  // every run's lines are kept there
    };

    // Nothing for a success (the card's root then carries the present time); the failure otherwise,
    // RestoreError::cancelled among them when rsync says it was stopped. Throws Cancelled when the
    // token stops the run, and an Error when the chosen songs cannot be read.
    static std::optional<RestoreError> run(const Request& request, const LineHandler& onLine,
                                           const Dependencies& dependencies, std::stop_token token);

    // What run() would change on the card, by rsync's dry run of the same selection: the files it
    // would add or update (folders are left out). Throws RestoreError (rsyncFailed for any non-zero
    // status, volumeUnmounted, backupNotFound, parseFailedWithLog for output that cannot be trusted),
    // an Error when the chosen songs cannot be read, or Cancelled.
    static std::vector<FileDiff> preview(const Request& request, const Dependencies& dependencies,
                                         std::stop_token token);

    // The failure that rsync's exit status means. Only a status without a fixed meaning asks
    // whether the card is still there (validateAgain), so that a pull mid-run is called one.
    static std::optional<RestoreError> resultOfExitStatus(
        int status, const std::function<ValidateResult()>& validateAgain);

    // Throws RestoreError::backupNotFound unless the version is a directory named "backup-…".
    static void requireVersionFolder(const std::filesystem::path& version);

    // The card, confirmed by UUID at the same mount point; throws RestoreError::volumeUnmounted.
    static void requireMounted(const SDCard& card, const Validator& validate, std::stop_token token);
    // requireMounted over the validator, as the copy to the card and the applied edits check a card.
    static std::function<void(const SDCard& card, std::stop_token token)> mountedCheck(Validator validate);

private:
    class FileList;
    static std::unique_ptr<FileList> prepare(const Request& request, const LineHandler& onLine,
                                             const Dependencies& dependencies, std::stop_token token);
};

}  // namespace tapekeep

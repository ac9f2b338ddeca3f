#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "edits/EditEntry.h"
#include "edits/EditManifestStore.h"
#include "edits/EditStagingRequest.h"
#include "edits/StagingTargetError.h"

namespace tapekeep {

// Turns a decision of the stage sheet into a pending edit: checks the target, renders the trim to a
// temporary file and hands record and file to the edit store. The card is not involved. The target
// rules also serve the sheet, which applies them as the user types. Any thread; the render runs on
// the caller's thread and the store serialises the rest.
class EditStagingService {
public:
    using Request = EditStagingRequest;
    using TargetError = StagingTargetError;
    // Runs between the render and the check for cancellation that follows it. For tests; set it
    // before any staging starts.
    using RenderHook = std::function<void(const std::filesystem::path& rendered)>;

    explicit EditStagingService(std::shared_ptr<EditManifestStore> store);

    void setAfterRender(RenderHook hook);

    // The new pending edit, with a fresh id also when it replaces another. Throws
    // EditPathValidatorError, EditManifestStoreError (modeInvalid for a target that is no WAV file,
    // and whatever the store reports), StagingTargetError, the trimmer's errors, or Cancelled. Each
    // failure leaves the store as it was and no temporary file.
    EditEntry stage(const Request& request, const std::stop_token& token = {}) const;

    // The rules for the target of a new file, first failure wins: a valid path
    // (EditPathValidatorError), a .wav file below /Samples/, not the source, in the backup version
    // no file of that path, and no pending edit but the replaced one targeting it.
    // `lowerCasedBackupPaths` holds the card paths of the backup version as lowerCasedPaths gives them.
    static void validateTarget(std::string_view target, std::string_view source,
                               const std::set<std::string>& lowerCasedBackupPaths,
                               const std::vector<EditEntry>& pendingEdits,
                               const std::optional<std::string>& replacingEditID);
    // Removes the renders that a staging killed between its render and the store left behind:
    // regular files named "m8-edit-…wav" in the folder, last written more than abandonedAfter before
    // `now`. A render under way is far younger; a link is neither followed nor removed.
    static void sweepAbandonedRenders(const std::filesystem::path& temporaryFolder,
                                      std::filesystem::file_time_type now);
    static constexpr std::chrono::hours abandonedAfter{1};

    // Card paths normalised and lower-cased, as validateTarget compares them.
    static std::set<std::string> lowerCasedPaths(const std::vector<std::string>& paths);

private:
    EditEntry entryFor(const Request& request, const std::string& id) const;

    std::shared_ptr<EditManifestStore> store_;
    RenderHook afterRender_;
};

}  // namespace tapekeep

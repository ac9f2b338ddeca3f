#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "edits/EditEntry.h"
#include "edits/EditMode.h"
#include "edits/EditStagingRequest.h"

namespace tapekeep {

// A sample of a backup version as staging sees it: where it sits on the card, how long it is, which
// songs and instruments use it, and every path the version holds (a new file may take none of them).
// Read once when the sample is chosen; a plain value, any thread.
struct StagingSource {
    std::filesystem::path url;  // the file inside the version, links resolved
    std::string cardPath;       // "/Samples/kick.wav"
    std::string versionFolder;  // the version's folder name
    double durationSeconds = 0;
    std::vector<std::string> users;         // card paths of the songs and instruments that use it
    std::vector<std::string> versionPaths;  // card paths of every file of the version

    // `samplePath` is relative to the version, with or without a leading "/". Throws BrowseFileError
    // (outside the version, or missing), PosixError, the analyzer's errors when it is no audio file,
    // or Cancelled.
    static StagingSource read(const std::filesystem::path& versionRoot, const std::string& samplePath,
                              const std::stop_token& token);

    // The "_trim.wav" name beside the sample that no file of the version and no pending edit's target
    // holds. Throws EditNameSuggesterError when every variant is taken.
    [[nodiscard]] std::string suggestedTarget(const std::vector<EditEntry>& pendingEdits) const;

    // A request for a trim of [low, high] seconds; an overwrite targets the sample itself and names
    // its users, a new file goes to `target` (by default the suggested "_trim.wav" name).
    [[nodiscard]] EditStagingRequest request(EditMode mode, double low, double high,
                                             const std::optional<std::string>& target,
                                             const std::string& backupRootName,
                                             const std::vector<EditEntry>& pendingEdits) const;
};

}  // namespace tapekeep

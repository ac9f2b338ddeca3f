#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "backup/BackupRequest.h"
#include "backup/SelectionResult.h"

namespace tapekeep::SelectiveBackup {

// The songs chosen (alone, or the whole Songs folder without Samples) and the samples they use.
// Throws BackupOperationError when a song cannot be read or parsed: its references are unknown.
SelectionResult resolveSelectedFiles(const BackupRequest& request);

// The list for rsync's --files-from: each path followed by one NUL, in a private temporary file
// "m8-files-<UUID>" written atomically. The caller removes it.
std::filesystem::path writeFileList(const std::vector<std::string>& files);

// A card-relative path must stay inside the card: not empty, not absolute, no NUL, no "." or "..".
// Throws BackupOperationError "Invalid relative file path in selection.".
void validateRelativePath(const std::string& path);

// Clears the way for a pass to write the entry afresh: refuses a path that runs through a symbolic
// link inside staging (before deleting anything), then deletes what the snapshot put there.
void prepareSelectionPath(const std::string& relativePath, const std::filesystem::path& staging);

// "Skipped {n} sample reference(s) that no longer exist on the card: {first five}{…}".
std::string missingSamplesMessage(const std::vector<std::string>& missing);

}  // namespace tapekeep::SelectiveBackup

#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "backup/BackupRequest.h"
#include "backup/SelectionResult.h"

namespace tapekeep::SelectiveBackup {

// The request with its selected folders and songs named as the card spells them, so that no pass
// writes a second spelling of a card's folder into the version. Checked before anything is written:
// throws BackupOperationError for an invalid path, a folder or song that is not on the card, or one
// reached through a symbolic link.
BackupRequest selectionOnCard(const BackupRequest& request);

// The songs chosen (alone, or the whole Songs folder without Samples) and the samples they use. A
// reference means what the usage index says it means: its first candidate that is a file on the
// card, by the card's spelling. A reference with no such file, or that leaves the card, is missing;
// one that runs through a symbolic link is set aside and never copied.
// Throws BackupOperationError when a song cannot be read or parsed: its references are unknown.
SelectionResult resolveSelectedFiles(const BackupRequest& request);

// The list for rsync's --files-from: each path followed by one NUL, in a private temporary file
// "m8-files-<UUID>" written atomically. The caller removes it.
std::filesystem::path writeFileList(const std::vector<std::string>& files);

// A card-relative path must stay inside the card: not empty, not absolute, no NUL, no "." or "..".
// Throws BackupOperationError "Invalid relative file path in selection: {path}".
void validateRelativePath(const std::string& path);

// Clears the way for a pass to write the entry afresh: refuses a path that runs through a symbolic
// link inside staging (before deleting anything), then deletes what the snapshot put there.
void prepareSelectionPath(const std::string& relativePath, const std::filesystem::path& staging);

// A version is never published without what was selected: throws BackupOperationError naming the
// first selected folder or song that the passes did not leave in staging.
void requireSelectionIn(const std::filesystem::path& staging, const BackupRequest& selection);

// "Skipped {n} sample reference(s) that no longer exist on the card: {first five}{…}".
std::string missingSamplesMessage(const std::vector<std::string>& missing);

// "Skipped {n} sample reference(s) that pass through a symbolic link: {first five}{…}".
std::string linkedSamplesMessage(const std::vector<std::string>& throughLinks);

}  // namespace tapekeep::SelectiveBackup

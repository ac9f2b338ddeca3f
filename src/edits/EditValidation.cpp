#include "edits/EditValidation.h"

#include <algorithm>
#include <functional>
#include <unordered_set>

#include "edits/EditManifestStoreError.h"
#include "edits/EditPathValidator.h"
#include "edits/EditPathValidatorError.h"

namespace tapekeep::EditValidation {
namespace {

using EditPathValidator::pathsEqual;

void asPathInvalid(const std::function<void()>& check) {
    try {
        check();
    } catch (const EditPathValidatorError& error) {
        throw EditManifestStoreError::pathInvalid(error.description());
    }
}

// Canonical equivalence with letter case significant. For names without slash or backslash the path
// normalisation is NFC and one leading slash alone; any other text must match byte for byte.
bool hasSeparator(const std::string& text) {
    return text.find_first_of("/\\") != std::string::npos;
}

std::string canonicalForm(const std::string& text) {
    return hasSeparator(text) ? text : EditPathValidator::normalizePath(text);
}

bool sameName(const std::string& first, const std::string& second) {
    if (hasSeparator(first) || hasSeparator(second)) return first == second;
    return canonicalForm(first) == canonicalForm(second);
}

void validatePaths(const EditEntry& edit) {
    asPathInvalid([&] {
        EditPathValidator::validatePath(edit.sourceRelativePath);
        EditPathValidator::validatePath(edit.targetRelativePath);
        EditPathValidator::validateComponent(edit.sourceVersionFolder);
        EditPathValidator::validateComponent(edit.stagedFileName);
        for (const auto& song : edit.affectedSongs) EditPathValidator::validatePath(song);
    });
}

void validateMode(const EditEntry& edit) {
    const bool sameTarget = pathsEqual(edit.targetRelativePath, edit.sourceRelativePath);
    if (edit.mode == EditMode::overwrite && !sameTarget)
        throw EditManifestStoreError::modeInvalid(
            "overwrite requires targetRelativePath == sourceRelativePath");
    if (edit.mode == EditMode::saveAsNew && sameTarget)
        throw EditManifestStoreError::modeInvalid("saveAsNew requires a different target path");
    if (edit.mode == EditMode::saveAsNew && !edit.affectedSongs.empty())
        throw EditManifestStoreError::modeInvalid("saveAsNew invariant: affectedSongs must be empty");
}

}  // namespace

void validateEdit(const EditEntry& edit) {
    validatePaths(edit);
    validateMode(edit);
}

void validateManifest(const EditManifest& manifest, const std::string& root) {
    try {
        EditPathValidator::validateComponent(root);
    } catch (const EditPathValidatorError&) {
        throw EditManifestStoreError::pathInvalid(root);
    }
    if (manifest.schemaVersion != EditManifest::currentSchemaVersion)
        throw EditManifestStoreError::decodingFailed("Unsupported schema version " +
                                                     std::to_string(manifest.schemaVersion) + ".");
    if (manifest.backupRootName != root)
        throw EditManifestStoreError::decodingFailed("Manifest belongs to a different backup root.");
    std::unordered_set<std::string> ids, stagedNames;
    for (const auto& edit : manifest.edits) {
        validateEdit(edit);
        if (!ids.insert(canonicalForm(edit.id)).second)
            throw EditManifestStoreError::decodingFailed("Manifest contains duplicate edit IDs.");
        if (!stagedNames.insert(canonicalForm(edit.stagedFileName)).second)
            throw EditManifestStoreError::decodingFailed("Manifest contains duplicate staged file names.");
    }
}

void validateMarker(const PendingCommitMarker& marker, const EditEntry& edit) {
    if (marker.schemaVersion != 1 || !sameName(marker.editID, edit.id) ||
        !sameName(marker.stagedFileName, edit.stagedFileName) ||
        !pathsEqual(marker.targetRelativePath, edit.targetRelativePath))
        throw EditManifestStoreError::decodingFailed("Pending commit marker does not match its edit.");
}

}  // namespace tapekeep::EditValidation

#pragma once

#include <string>

#include "edits/EditEntry.h"
#include "edits/EditManifest.h"
#include "edits/PendingCommitMarker.h"

// The invariants that a record must satisfy before it is read or written; the first rule broken
// ends each check. Stateless; any thread. All throw EditManifestStoreError.
namespace tapekeep::EditValidation {

// Paths and names (pathInvalid with the validator's own text), then the mode's rule on target and
// source (modeInvalid).
void validateEdit(const EditEntry& edit);

// The root name (pathInvalid), schema version and owner (decodingFailed), then every edit with
// validateEdit and no id or staged file name twice (decodingFailed), applied edits included.
void validateManifest(const EditManifest& manifest, const std::string& root);

// decodingFailed "Pending commit marker does not match its edit." unless the marker names this edit.
void validateMarker(const PendingCommitMarker& marker, const EditEntry& edit);

}  // namespace tapekeep::EditValidation

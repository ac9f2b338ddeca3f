#pragma once

#include <string>

#include "edits/EditManifest.h"
#include "edits/PendingCommitMarker.h"

// The JSON forms of the edit storage. A manifest is pretty-printed with its keys sorted at every
// level, dates in whole UTC seconds ("2025-01-31T12:00:00Z"), and optional keys left out rather
// than written as null; a marker is compact, in its declared key order. Reading ignores unknown keys
// and refuses the whole file at the first missing key, wrong type (null included), unknown kind or
// mode, id that is no UUID or date with fractional seconds. Stateless; any thread.
namespace tapekeep::EditManifestCoding {

std::string encodeManifest(const EditManifest& manifest);
// Throws EditManifestStoreError decodingFailed.
EditManifest decodeManifest(const std::string& bytes);

std::string encodeMarker(const PendingCommitMarker& marker);
// Throws EditManifestStoreError decodingFailed.
PendingCommitMarker decodeMarker(const std::string& bytes);

}  // namespace tapekeep::EditManifestCoding

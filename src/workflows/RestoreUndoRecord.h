#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tapekeep {

// What the last restore of a card did, kept in the card's set beside its safety version so that
// the restore can still be undone after a restart. One record per set: a newer restore replaces it,
// and an undo removes it.
struct RestoreUndoRecord {
    std::string safetyVersion;              // folder name of the version taken just before the restore
    std::filesystem::path restoredVersion;  // the version the restore copied from
    std::vector<std::string> changed;       // card-relative files the restore replaced
    std::vector<std::string> added;         // card-relative files the restore created

    static constexpr const char* fileName = ".tapekeep-last-restore.json";

    // Nothing when the set holds no record; throws RestoreUndoError::recordUnreadable for a record
    // that cannot be read or parsed.
    static std::optional<RestoreUndoRecord> read(const std::filesystem::path& setRoot);
    // Written atomically, so a crash leaves the old record or the new one. Throws an Error when a
    // path cannot be stored (names that are not UTF-8) or the file cannot be written.
    void write(const std::filesystem::path& setRoot) const;
    // Throws an Error when a record exists and cannot be removed.
    static void remove(const std::filesystem::path& setRoot);

    bool operator==(const RestoreUndoRecord&) const = default;
};

}  // namespace tapekeep

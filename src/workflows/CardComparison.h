#pragma once

#include <filesystem>
#include <stop_token>
#include <vector>

#include "core/FileDiff.h"
#include "core/SDCard.h"
#include "workflows/BackupFreshness.h"

namespace tapekeep {

// The quick comparison of a card with the latest version of its set, by size and date alone.
struct CardComparison {
    BackupFreshness freshness;
    std::vector<FileDiff> differences;  // by path; empty without a backup

    // Reads both trees; the set folder is "{volumeName}_{id8}" under the base folder. Throws
    // Cancelled, and an Error when the card cannot be read or the set belongs to another card.
    static CardComparison compare(const SDCard& card, const std::filesystem::path& baseFolder,
                                  std::stop_token token);
};

}  // namespace tapekeep

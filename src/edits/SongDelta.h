#pragma once

#include <string>
#include <vector>

namespace tapekeep {

// How the mounted card differs from what an edit recorded when it was staged. Paths are card
// paths, compared by their sample keys.
struct SongDelta {
    bool missingOnCard = false;                 // the source sample is not on the card
    std::vector<std::string> extraSongsOnCard;  // use the source now, not in affectedSongs; sorted
    std::vector<std::string> removedSongs;      // in affectedSongs, no longer use it; manifest order
    bool targetCollision = false;               // the target of a saveAsNew edit is on the card

    bool operator==(const SongDelta&) const = default;
    // Nothing differs: the card is as the edit expects it.
    [[nodiscard]] bool matchesManifest() const { return *this == SongDelta{}; }
};

}  // namespace tapekeep

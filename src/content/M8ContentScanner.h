#pragma once

#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "content/ContentCount.h"
#include "content/ManifestEntry.h"
#include "core/FileDiff.h"

namespace tapekeep {

class SettingsStore;

// Walks a mounted card or a published version and reads file metadata only, never a file's
// content: a few counts for the user, and each file's size and time for the quick comparison that
// tells whether a backup is stale.
//
// The walk leaves out hidden items (names beginning with "."), and with them every skipped name
// (".DS_Store", ".Spotlight-V100", ".Trashes", ".fseventsd", ".tapekeep-note",
// ".tapekeep-sizes.json") wherever it stands in a path. Only regular files are entries: a symbolic
// link is neither an entry nor followed, whatever it points to. Paths are named by the walk itself,
// relative to the opened root, so every spelling of a root (through a symbolic link, with "..",
// with a trailing "/") gives the same paths. An item that cannot be read is left out silently, so a
// card pulled mid-walk gives a short result. Nothing here throws.
//
// A serial service: scanContent and scanManifest hold the scanner's lock for their whole walk, so
// callers on any thread wait for each other. The static operations keep no state and may be called
// from any thread at any time.
class M8ContentScanner {
public:
    using ManifestEntry = tapekeep::ManifestEntry;
    using Manifest = tapekeep::Manifest;

    // Called on the scanning thread with the counts so far, a value of its own.
    using ProgressHandler = std::function<void(ContentCounts countsSoFar)>;

    static constexpr int progressInterval = 50;  // counted files between two progress calls
    static constexpr const char* summaryCacheKey = "contentSummaryCache";

    M8ContentScanner() = default;
    M8ContentScanner(const M8ContentScanner&) = delete;
    M8ContentScanner& operator=(const M8ContentScanner&) = delete;

    // The summary and the manifest of the tree. Progress is reported after every progressInterval
    // counted files. A root that cannot be opened, or cancellation, gives no counts and an empty
    // manifest; the last partial summary is not returned.
    std::pair<ContentCounts, Manifest> scanContent(const std::filesystem::path& root,
                                                   const ProgressHandler& progress = {},
                                                   std::stop_token token = {});

    // The manifest alone; empty when the root cannot be opened, absent when cancelled.
    std::optional<Manifest> scanManifest(const std::filesystem::path& root, std::stop_token token = {});

    // Whether a relative path counts in the summary: nothing under a top-level "System", and under
    // a top folder whose name begins with "Songs", nothing inside a folder whose name contains
    // "backup" in any letter case. Letter case of "System" and "Songs" is exact.
    static bool isCountedPath(std::string_view relativePath);

    // Whether a single path component is one of the skipped names above: exact, letter case
    // included. The walks here leave out every hidden name, these among them; other walks that must
    // agree with the backup's excludes ask this.
    static bool isSkippedName(std::string_view name);

    // The number of distinct songs among song names (without extension): numbered copies such as
    // "SONG01" and "song2" are one song with "song". A name of digits alone counts as itself.
    static int distinctSongCount(const std::vector<std::string>& songNames);

    // Every path added to, modified in or deleted from the baseline, sorted by path, each with a
    // fresh id. Entries are unchanged when their sizes are equal and their times lie at most 2
    // seconds apart (the card keeps 2-second timestamps), or at most 2 seconds away from exactly
    // one hour apart (a daylight saving shift). Path comparison is exact, including letter case.
    static std::vector<FileDiff> quickDiff(const Manifest& current, const Manifest& baseline);
    static bool entriesAgree(const ManifestEntry& first, const ManifestEntry& second);

    // The last summary stored for a card under summaryCacheKey; absent when none is stored or the
    // stored entry is not a list. Malformed rows are dropped and the others kept.
    static std::optional<ContentCounts> cachedSummary(const std::string& cardKey,
                                                      const SettingsStore& settings);
    // Replaces the card's entry, keeping every other card's. A failed write is logged, not thrown.
    static void storeSummary(const ContentCounts& counts, const std::string& cardKey,
                             SettingsStore& settings);

private:
    std::mutex mutex_;  // held through each walk: one walk at a time per scanner
};

}  // namespace tapekeep

#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>

#include "edits/EditEntry.h"
#include "edits/SongDelta.h"

namespace tapekeep {

// What a mounted card holds right now, as far as edits care: every sample path, and which songs and
// instruments use which sample. The manifest says what was true when an edit was staged; this says
// what is true before it is applied. Reads the card, writes nothing. A plain value; any thread.
struct EditLiveScan {
    // Sample key -> the card path as found on the card, normalised ("/Samples/Kick.wav").
    std::map<std::string, std::string> samplePathsByKey;
    // Sample key -> the card paths of the songs and instruments whose references reach that file.
    std::map<std::string, std::set<std::string>> songReferencesBySampleKey;

    // Walks the card below the mount root, then reads every song and instrument on it. All or
    // nothing: throws EditLiveScanError (a song that cannot be read, a reference that can only leave
    // the card), PosixError (the root or a folder that cannot be listed; the walk stops there) or
    // Cancelled, checked between entries and between songs.
    static EditLiveScan scan(const std::filesystem::path& mountRoot, const std::stop_token& token = {});

    // A card path normalised and lower-cased: the form in which card paths are compared, since the
    // card's file system ignores letter case.
    static std::string sampleKey(std::string_view cardPath);

    // The card has a file at that path, in any letter case.
    [[nodiscard]] bool holdsPath(std::string_view cardPath) const;

    // How the card differs from what the edit recorded.
    [[nodiscard]] SongDelta deltaOf(const EditEntry& edit) const;
};

}  // namespace tapekeep

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "workflows/RestoreChoice.h"

// Turns a restore choice into what rsync is given: the whole version, or a list of version-relative
// paths for --files-from (a folder in the list is restored with everything below it). Any thread.
namespace tapekeep::RestoreSelection {

// The paths that the choice names by itself, before the samples of chosen songs are added.
// Absent for a whole-version restore.
struct Plan {
    std::vector<std::string> paths;   // folders and entries chosen whole
    std::vector<std::string> songs;   // songs chosen one by one
    bool samplesFolderWhole = false;  // the whole Samples folder is among paths
};

std::optional<Plan> planFor(const RestoreChoice& choice);

// True when the plan restores nothing at all.
bool isEmpty(const std::optional<Plan>& plan);

// What a restore from a list puts back, with the samples of the songs it restores one by one.
struct Files {
    std::vector<std::string> paths;
    std::size_t songCount = 0;
    std::size_t sampleCount = 0;  // samples added for those songs
    std::vector<std::string> missingSamples;
};

// The plan's paths and songs, and each sample that those songs refer to, found in the version as
// the usage index finds them (unless the whole Samples folder is restored anyway). Throws an Error
// when a song cannot be read, as its samples are then unknown.
Files filesFor(const Plan& plan, const std::filesystem::path& version);

// "Restoring {songCount} song(s) + {sampleCount} referenced sample(s)…"
std::string songsMessage(const Files& files);

}  // namespace tapekeep::RestoreSelection

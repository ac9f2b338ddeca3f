#include "workflows/RestoreSelection.h"

#include <algorithm>
#include <set>

#include "backup/BackupRequest.h"
#include "backup/SelectiveBackup.h"
#include "content/SampleReferences.h"

namespace tapekeep::RestoreSelection {
namespace {

bool isNamed(const FolderSelection& folder, const std::string& keyword) {
    return BrowseFileService::indexKey(folder.name) == BrowseFileService::indexKey(keyword);
}

std::string pathOf(const FolderSelection& folder) {
    return folder.relativePath.value_or(folder.name);
}

// A chosen folder, whole when none of its listed entries is left out; else its chosen entries.
void addFolder(const RestoreChoice& choice, const FolderSelection& folder, Plan& plan) {
    const auto children = choice.folderChildren.find(pathOf(folder));
    const bool whole = children == choice.folderChildren.end() ||
                       std::all_of(children->second.begin(), children->second.end(),
                                   [](auto& child) { return child.selected; });
    if (whole) {
        plan.paths.push_back(pathOf(folder));
        plan.samplesFolderWhole = plan.samplesFolderWhole || isNamed(folder, "Samples");
        return;
    }
    for (const auto& child : children->second)
        if (child.selected) plan.paths.push_back(child.relativePath);
}

}  // namespace

std::optional<Plan> planFor(const RestoreChoice& choice) {
    if (choice.mode == RestoreMode::fullBackup) return std::nullopt;
    Plan plan;
    const bool oneByOne = choice.songsMode == SongsRestoreMode::individual;
    for (const auto& folder : choice.folders) {
        if (oneByOne && isNamed(folder, "Songs")) continue;  // the songs list speaks for it
        if (folder.selected) addFolder(choice, folder, plan);
    }
    if (oneByOne)
        for (const auto& song : choice.songs)
            if (song.selected) plan.songs.push_back(song.relativePath);
    return plan;
}

bool isEmpty(const std::optional<Plan>& plan) {
    return plan && plan->paths.empty() && plan->songs.empty();
}

Files filesFor(const Plan& plan, const std::filesystem::path& version) {
    Files files;
    files.paths = plan.paths;
    if (plan.songs.empty()) return files;
    // The version is laid out as the card was, so its songs' references resolve in it as on the card.
    BackupRequest songs;
    songs.card.mountPath = version;
    songs.selectedSongs = plan.songs;
    if (plan.samplesFolderWhole) songs.selectedFolders.push_back("Samples");
    const SelectionResult resolved = SelectiveBackup::resolveSelectedFiles(songs);
    files.songCount = std::set<std::string>(plan.songs.begin(), plan.songs.end()).size();
    files.sampleCount = resolved.files.size() - std::min(files.songCount, resolved.files.size());
    files.paths.insert(files.paths.end(), resolved.files.begin(), resolved.files.end());
    files.missingSamples = resolved.missing;
    return files;
}

std::string songsMessage(const Files& files) {
    return "Restoring " + std::to_string(files.songCount) + " song(s) + " +
           std::to_string(files.sampleCount) + " referenced sample(s)…";
}

}  // namespace tapekeep::RestoreSelection

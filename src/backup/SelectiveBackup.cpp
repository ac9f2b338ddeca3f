#include "backup/SelectiveBackup.h"

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>

#include "backup/BackupOperationError.h"
#include "backup/CardSpelling.h"
#include "content/BrowseFileError.h"
#include "content/M8SongParser.h"
#include "content/SampleReferences.h"
#include "core/AtomicFile.h"
#include "core/Uuid.h"

namespace tapekeep::SelectiveBackup {
namespace fs = std::filesystem;

namespace {

// The selected folder that is the keyword "Songs" or "Samples" in the card's letter case, if any.
std::optional<std::string> keywordFolder(const std::vector<std::string>& folders,
                                         const std::string& keyword) {
    const std::string key = BrowseFileService::indexKey(keyword);
    const auto found = std::find_if(folders.begin(), folders.end(), [&key](const std::string& folder) {
        return BrowseFileService::indexKey(folder) == key;
    });
    if (found == folders.end()) return std::nullopt;
    return *found;
}

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool isSongFile(const fs::path& path) {
    return lowercased(path.extension().string()) == ".m8s";
}

// Every song below the card's Songs folder, by card-relative path.
std::vector<std::string> songsInSongsFolder(const fs::path& card, const std::string& songsFolder) {
    std::error_code error;
    fs::recursive_directory_iterator walk(card / songsFolder, error);
    if (error) throw BackupOperationError::message("Could not read selected Songs folder.");
    std::vector<std::string> songs;
    for (; walk != fs::recursive_directory_iterator(); walk.increment(error)) {
        if (error) break;
        std::error_code typeError;
        if (walk->is_regular_file(typeError) && !walk->is_symlink(typeError) && isSongFile(walk->path()))
            songs.push_back(walk->path().lexically_relative(card).string());
    }
    if (error) throw fs::filesystem_error("Could not read selected Songs folder", card / songsFolder, error);
    return songs;
}

// The card's own spelling of one selected path, which must be there and of the kind selected.
std::string selectedOnCard(CardSpelling& spelling, const std::string& path, bool isFolder) {
    validateRelativePath(path);
    const CardPath found = spelling.locate(path);
    if (found.status == CardPath::Status::throughSymbolicLink)
        throw BackupOperationError::message("A selected path traverses a symbolic link: " + path);
    if (found.status == CardPath::Status::missing || found.isDirectory != isFolder)
        throw BackupOperationError::message(isFolder ? "Selected folder is not on the card: " + path
                                                     : "Selected song is no longer readable: " + path);
    return found.spelling;
}

std::vector<std::string> selectedOnCard(CardSpelling& spelling, const std::vector<std::string>& paths,
                                        bool areFolders) {
    std::vector<std::string> spelled;
    for (const auto& path : paths) {
        std::string onCard = selectedOnCard(spelling, path, areFolders);
        if (std::find(spelled.begin(), spelled.end(), onCard) == spelled.end()) spelled.push_back(onCard);
    }
    return spelled;
}

// The sample files that songs use, found as the usage index finds them and named as the card names
// them.
class UsedSamples {
public:
    explicit UsedSamples(const fs::path& card) : root_(resolvedCard(card)), spelling_(root_) {}

    void addReferencesOf(const std::string& song) {
        const fs::path file = root_ / song;
        if (::access(file.c_str(), R_OK) != 0)
            throw BackupOperationError::message("Selected song is no longer readable: " + song);
        const auto metadata = M8SongParser::parseSong(file);
        if (!metadata)
            throw BackupOperationError::message("Cannot resolve sample references in " + song +
                                                ". Use a full backup or include the Samples folder.");
        for (const auto& sample : metadata->samplePaths) addReference(sample, file);
    }

    std::set<std::string> included, missing, throughLinks;

private:
    // Symbolic links above the card are resolved once, so that only links on the card itself count.
    static fs::path resolvedCard(const fs::path& card) {
        std::error_code error;
        const fs::path resolved = fs::weakly_canonical(card, error);
        return error ? card : resolved;
    }

    void addReference(const std::string& sample, const fs::path& song) {
        const std::string shown = sample.starts_with('/') ? sample.substr(1) : sample;
        std::vector<BrowseFileService::SampleCandidate> candidates;
        try {
            candidates = BrowseFileService::sampleCandidates(sample, song, root_);
        } catch (const BrowseFileError&) {  // blank, or every place it may mean leaves the card
            missing.insert(shown);
            return;
        }
        for (const auto& candidate : candidates) {
            const CardPath file = spelling_.locate(candidate.key);
            if (file.status == CardPath::Status::missing || file.isDirectory) continue;
            if (candidate.throughSymbolicLink || file.status == CardPath::Status::throughSymbolicLink)
                throughLinks.insert(shown);
            else
                included.insert(file.spelling);
            return;
        }
        missing.insert(shown);
    }

    fs::path root_;
    CardSpelling spelling_;
};

std::vector<std::string> sorted(const std::set<std::string>& paths) {
    return {paths.begin(), paths.end()};
}

std::string skippedMessage(const std::vector<std::string>& skipped, const std::string& reason) {
    std::string names;
    for (std::size_t i = 0; i < skipped.size() && i < 5; ++i) names += (i == 0 ? "" : ", ") + skipped[i];
    return "Skipped " + std::to_string(skipped.size()) + " sample reference(s) that " + reason + ": " +
           names + (skipped.size() >= 6 ? "…" : "");
}

bool isRealEntry(const fs::path& path, bool isFolder) {
    std::error_code error;
    const auto status = fs::symlink_status(path, error);
    return !error && (isFolder ? fs::is_directory(status) : fs::is_regular_file(status));
}

}  // namespace

BackupRequest selectionOnCard(const BackupRequest& request) {
    CardSpelling spelling(request.card.mountPath);
    BackupRequest spelled = request;
    spelled.selectedFolders = selectedOnCard(spelling, request.selectedFolders, true);
    spelled.selectedSongs = selectedOnCard(spelling, request.selectedSongs, false);
    return spelled;
}

SelectionResult resolveSelectedFiles(const BackupRequest& request) {
    const fs::path& card = request.card.mountPath;
    std::vector<std::string> songs = request.selectedSongs;
    std::set<std::string> included(request.selectedSongs.begin(), request.selectedSongs.end());
    const auto songsFolder = keywordFolder(request.selectedFolders, "Songs");
    const bool samplesChosen = keywordFolder(request.selectedFolders, "Samples").has_value();
    // The folder pass carries the songs themselves; they are read here for their references only.
    if (songsFolder && !samplesChosen)
        for (auto& song : songsInSongsFolder(card, *songsFolder)) songs.push_back(std::move(song));
    if (samplesChosen) return SelectionResult{sorted(included), {}, {}};
    UsedSamples references(card);
    for (const auto& song : songs) references.addReferencesOf(song);
    included.insert(references.included.begin(), references.included.end());
    return SelectionResult{sorted(included), sorted(references.missing), sorted(references.throughLinks)};
}

fs::path writeFileList(const std::vector<std::string>& files) {
    std::string list;
    for (const auto& file : files) {
        list += file;
        list += '\0';
    }
    const fs::path path = fs::temp_directory_path() / ("m8-files-" + makeUuid());
    writeFileAtomically(path, list);
    return path;
}

void validateRelativePath(const std::string& path) {
    const auto invalid = [&path] {
        return BackupOperationError::message("Invalid relative file path in selection: " + path);
    };
    if (path.empty() || path.front() == '/' || path.find('\0') != std::string::npos) throw invalid();
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string_view component(path.data() + start, end - start);
        if (component == "." || component == "..") throw invalid();
        start = end + 1;
    }
}

void prepareSelectionPath(const std::string& relativePath, const fs::path& staging) {
    validateRelativePath(relativePath);
    const fs::path relative(relativePath);
    fs::path walked = staging;
    for (auto it = relative.begin(); it != relative.end() && std::next(it) != relative.end(); ++it) {
        if (it->empty()) continue;
        walked /= *it;
        std::error_code error;  // a folder that is not there yet ends nothing
        if (fs::is_symlink(fs::symlink_status(walked, error)))
            throw BackupOperationError::message("A selected path traverses a symbolic link: " + relativePath);
    }
    const fs::path target = staging / relative;
    std::error_code error;
    if (fs::exists(fs::symlink_status(target, error))) fs::remove_all(target);
}

void requireSelectionIn(const fs::path& staging, const BackupRequest& selection) {
    for (const auto& folder : selection.selectedFolders)
        if (!isRealEntry(staging / folder, true))
            throw BackupOperationError::message("Selected folder is missing from the new backup: " + folder);
    for (const auto& song : selection.selectedSongs)
        if (!isRealEntry(staging / song, false))
            throw BackupOperationError::message("Selected song is missing from the new backup: " + song);
}

std::string missingSamplesMessage(const std::vector<std::string>& missing) {
    return skippedMessage(missing, "no longer exist on the card");
}

std::string linkedSamplesMessage(const std::vector<std::string>& throughLinks) {
    return skippedMessage(throughLinks, "pass through a symbolic link");
}

}  // namespace tapekeep::SelectiveBackup

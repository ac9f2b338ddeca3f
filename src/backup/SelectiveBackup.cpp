#include "backup/SelectiveBackup.h"

#include <unistd.h>

#include <algorithm>
#include <set>

#include "backup/BackupOperationError.h"
#include "content/M8SongParser.h"
#include "core/AtomicFile.h"
#include "core/Uuid.h"

namespace tapekeep::SelectiveBackup {
namespace fs = std::filesystem;

namespace {

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool isSongFile(const fs::path& path) {
    return lowercased(path.extension().string()) == ".m8s";
}

// Every song below the card's Songs folder, by card-relative path.
std::vector<std::string> songsInSongsFolder(const fs::path& card) {
    std::error_code error;
    fs::recursive_directory_iterator walk(card / "Songs", error);
    if (error) throw BackupOperationError::message("Could not read selected Songs folder.");
    std::vector<std::string> songs;
    for (; walk != fs::recursive_directory_iterator(); walk.increment(error)) {
        if (error) break;
        std::error_code typeError;
        if (walk->is_regular_file(typeError) && !walk->is_symlink(typeError) && isSongFile(walk->path()))
            songs.push_back(walk->path().lexically_relative(card).string());
    }
    if (error) throw fs::filesystem_error("Could not read selected Songs folder", card / "Songs", error);
    return songs;
}

void addReferences(const fs::path& card, const std::string& song, std::set<std::string>& included,
                   std::set<std::string>& missing) {
    const fs::path file = card / song;
    if (::access(file.c_str(), R_OK) != 0)
        throw BackupOperationError::message("Selected song is no longer readable: " + song);
    const auto metadata = M8SongParser::parseSong(file);
    if (!metadata)
        throw BackupOperationError::message("Cannot resolve sample references in " + song +
                                            ". Use a full backup or include the Samples folder.");
    for (std::string sample : metadata->samplePaths) {
        if (sample.starts_with('/')) sample.erase(0, 1);
        std::error_code error;
        (fs::exists(fs::symlink_status(card / sample, error)) ? included : missing).insert(sample);
    }
}

}  // namespace

SelectionResult resolveSelectedFiles(const BackupRequest& request) {
    const fs::path& card = request.card.mountPath;
    std::vector<std::string> songs = request.selectedSongs;
    std::set<std::string> included(request.selectedSongs.begin(), request.selectedSongs.end());
    std::set<std::string> missing;
    const bool samplesChosen = contains(request.selectedFolders, "Samples");
    // The folder pass carries the songs themselves; they are read here for their references only.
    if (contains(request.selectedFolders, "Songs") && !samplesChosen)
        for (auto& song : songsInSongsFolder(card)) songs.push_back(std::move(song));
    if (!samplesChosen)
        for (const auto& song : songs) addReferences(card, song, included, missing);
    return SelectionResult{{included.begin(), included.end()}, {missing.begin(), missing.end()}};
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
    const auto invalid = [] {
        return BackupOperationError::message("Invalid relative file path in selection.");
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

std::string missingSamplesMessage(const std::vector<std::string>& missing) {
    std::string names;
    for (std::size_t i = 0; i < missing.size() && i < 5; ++i) names += (i == 0 ? "" : ", ") + missing[i];
    return "Skipped " + std::to_string(missing.size()) +
           " sample reference(s) that no longer exist on the card: " + names +
           (missing.size() >= 6 ? "…" : "");
}

}  // namespace tapekeep::SelectiveBackup

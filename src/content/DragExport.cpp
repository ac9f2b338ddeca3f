#include "content/DragExport.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <unordered_set>
#include <utility>

#include "content/BrowseFileError.h"
#include "content/M8SongParser.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/FileDescriptor.h"
#include "core/PosixError.h"
#include "core/Uuid.h"
#include "platform/ExclusiveCopy.h"
#include "platform/FileTimes.h"
#include "platform/PrivateFolder.h"

namespace tapekeep::DragExport {
namespace fs = std::filesystem;

namespace {

bool isSongName(const fs::path& file) {
    const std::string extension = file.extension().string();
    return extension.size() == 4 && ::strncasecmp(extension.c_str(), ".m8s", 4) == 0;
}

// The song with the version's own location resolved, so that it can be opened without following a
// link: the same place relativePath vouched for.
fs::path resolvedSong(const fs::path& song, const fs::path& versionRoot, const std::string& songPath) {
    std::error_code error;
    const fs::path root = fs::canonical(versionRoot, error);
    if (error) throw BrowseFileError::sourceMissing(song);
    return root / songPath;
}

// The first place a stored path may mean that holds a regular file, reached without a link: the
// candidates are resolved already, so a link on the way now is a change since, and is not followed.
std::pair<FileDescriptor, std::string> existingSample(const std::string& storedPath, const fs::path& song,
                                                      const fs::path& versionRoot) {
    for (const auto& candidate : BrowseFileService::sampleCandidates(storedPath, song, versionRoot)) {
        try {
            return {ExclusiveCopy::openRegularFileWithoutLinks(candidate.url), candidate.key};
        } catch (const PosixError&) {
        }
    }
    throw BrowseFileError::sampleMissing(storedPath);
}

void createFolder(const fs::path& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0) throw PosixError::fromErrno(errno, folder.string());
}

void copyInto(int sourceFd, const fs::path& destination, const std::stop_token& token) {
    std::error_code error;
    fs::create_directories(destination.parent_path(), error);
    if (error) throw PosixError::fromErrno(error.value(), destination.parent_path().string());
    ExclusiveCopy::copyToNewFile(sourceFd, destination, token);
}

// Copies every sample once, however many stored spellings reach it; the song's own place counts as
// copied, so that a song naming itself is not written twice.
void copySamples(const std::vector<std::string>& samplePaths, const fs::path& song,
                 const fs::path& versionRoot, const fs::path& folder, const std::string& songPath,
                 const std::stop_token& token) {
    std::unordered_set<std::string> copied{BrowseFileService::indexKey(songPath)};
    for (const auto& storedPath : samplePaths) {
        throwIfCancelled(token);
        const auto [source, key] = existingSample(storedPath, song, versionRoot);
        const std::string relative = key.substr(std::min(key.size(), key.find_first_not_of('/')));
        if (relative.empty()) throw BrowseFileError::samplePathEscapesVersion(storedPath);
        if (!copied.insert(BrowseFileService::indexKey(relative)).second) continue;
        copyInto(source.get(), folder / relative, token);
    }
}

}  // namespace

DragOffer offerFor(const fs::path& node) {
    std::error_code ignored;
    if (!fs::is_regular_file(fs::symlink_status(node, ignored)) || !isSongName(node)) return {node, {}};
    auto song = M8SongParser::parseSong(node);
    if (!song) throw BrowseFileError::invalidSong(node);
    return {node, std::move(song->samplePaths)};
}

fs::path deliver(const DragOffer& offer, const fs::path& versionRoot, const fs::path& temporaryFolder,
                 std::stop_token token) {
    if (!offer.needsPreparation()) return offer.file;
    sweep(temporaryFolder, Clock::now());
    return prepare(offer.file, offer.samplePaths, versionRoot, temporaryFolder, std::move(token));
}

fs::path prepare(const fs::path& song, const std::vector<std::string>& samplePaths,
                 const fs::path& versionRoot, const fs::path& temporaryFolder, std::stop_token token) {
    const std::string songPath = BrowseFileService::relativePath(song, versionRoot);
    throwIfCancelled(token);
    const fs::path folder = temporaryFolder / (std::string(folderPrefix) + makeUuid());
    createFolder(folder);
    try {
        const fs::path copiedSong = folder / songPath;
        copyInto(ExclusiveCopy::openRegularFileWithoutLinks(resolvedSong(song, versionRoot, songPath)).get(),
                 copiedSong, token);
        copySamples(samplePaths, song, versionRoot, folder, songPath, token);
        return copiedSong;
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        throw;
    }
}

void sweep(const fs::path& temporaryFolder, Clock::time_point now) {
    std::vector<fs::path> stale;
    std::error_code error;
    for (fs::directory_iterator entries(temporaryFolder, error);
         !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path& entry = entries->path();
        std::error_code ignored;
        if (!entry.filename().native().starts_with(folderPrefix) || entries->is_symlink(ignored)) continue;
        const auto created = creationTime(entry);
        if (created && now - *created > staleAfter) stale.push_back(entry);
    }
    for (const auto& entry : stale) {
        std::error_code ignored;
        fs::remove_all(entry, ignored);
    }
}

fs::path defaultTemporaryFolder() {
    std::error_code error;
    fs::path system = fs::temp_directory_path(error);
    if (error) system = "/tmp";
    // Resolved, so that the files prepared in it can be opened without following a link.
    system = fs::canonical(system, error);
    if (error) throw PosixError::fromErrno(error.value(), "The temporary folder");
    const fs::path folder = system / ("tapekeep-drag-" + std::to_string(::geteuid()));
    openPrivateFolder(folder);
    return folder;
}

}  // namespace tapekeep::DragExport

#include "workflows/CardOptionsListing.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>

#include "content/M8SongParser.h"
#include "core/Cancelled.h"
#include "core/Uuid.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

bool isSongFile(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".m8s";
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

std::vector<FolderSelection> topLevelFolders(const fs::path& mountPath, std::stop_token token) {
    std::vector<FolderSelection> folders;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(mountPath, error)) {
        throwIfCancelled(token);
        std::error_code typeError;
        if (isHidden(entry.path()) || !entry.is_directory(typeError) || entry.is_symlink(typeError)) continue;
        const std::string name = entry.path().filename().string();
        folders.push_back(FolderSelection{makeUuid(), name, std::nullopt, true, name, false});
    }
    std::sort(folders.begin(), folders.end(), [](auto& a, auto& b) { return a.name < b.name; });
    return folders;
}

std::vector<SongItem> cardSongList(const fs::path& mountPath, std::stop_token token) {
    std::vector<SongItem> songs;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(mountPath / "Songs", error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        throwIfCancelled(token);
        std::error_code typeError;
        if (isHidden(it->path())) {
            if (it->is_directory(typeError)) it.disable_recursion_pending();
            continue;
        }
        if (!it->is_regular_file(typeError) || !isSongFile(it->path())) continue;
        const auto size = it->file_size(typeError);
        songs.push_back(SongItem{makeUuid(), it->path().stem().string(),
                                 it->path().lexically_relative(mountPath).string(),
                                 typeError ? std::nullopt : std::optional<std::int64_t>(size), false,
                                 M8SongParser::parseSamplePaths(it->path())});
    }
    std::sort(songs.begin(), songs.end(), [](auto& a, auto& b) { return a.relativePath < b.relativePath; });
    return songs;
}

}  // namespace

CardOptionsListing CardOptionsListing::read(const fs::path& mountPath, std::stop_token token) {
    auto folders = topLevelFolders(mountPath, token);
    auto songs = cardSongList(mountPath, token);
    return CardOptionsListing{std::move(folders), std::move(songs)};
}

std::int64_t CardOptionsListing::folderSize(const fs::path& folder, std::stop_token token) {
    std::int64_t total = 0;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        throwIfCancelled(token);
        std::error_code typeError;
        if (it->is_regular_file(typeError) && !it->is_symlink(typeError)) {
            const auto size = it->file_size(typeError);
            if (!typeError) total += static_cast<std::int64_t>(size);
        }
    }
    return total;
}

}  // namespace tapekeep

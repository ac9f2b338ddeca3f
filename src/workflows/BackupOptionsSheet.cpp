#include "workflows/BackupOptionsSheet.h"

#include <algorithm>

#include "core/Cancelled.h"
#include "core/Uuid.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// Chooses the card's items that match, or leaves them out; the sheet is told even when none matched.
template <typename Item, typename Matches>
void choose(PerCard<std::vector<Item>>& items, const std::string& uuid, bool selected, Matches matches) {
    if (!items.contains(uuid)) return;
    items.edit(uuid, [&](std::vector<Item>& list) {
        for (auto& item : list)
            if (matches(item)) item.selected = selected;
    });
}

}  // namespace

BackupOptionsSheet::BackupOptionsSheet() : BackupOptionsSheet(Reader()) {}

BackupOptionsSheet::BackupOptionsSheet(Reader reader, QObject* parent)
    : QObject(parent), reader_(std::move(reader)) {}

void BackupOptionsSheet::open(const SDCard& card, const std::optional<fs::path>& destination) {
    const std::string& uuid = card.diskUtilUUID;
    setDestination(uuid, destination);
    folders_.erase(uuid);
    songs_.erase(uuid);
    sizesLoaded_.erase(uuid);
    load(card);
}

void BackupOptionsSheet::setDestination(const std::string& uuid, const std::optional<fs::path>& destination) {
    if (destination)
        destinationOverride_.assign(uuid, *destination);
    else
        destinationOverride_.erase(uuid);
}

void BackupOptionsSheet::close(const std::string& uuid) {
    discardChoices(uuid);
    sizesLoaded_.erase(uuid);
}

void BackupOptionsSheet::discardChoices(const std::string& uuid) {
    stopLoading(uuid);
    folders_.erase(uuid);
    songs_.erase(uuid);
    destinationOverride_.erase(uuid);
}

void BackupOptionsSheet::stopLoading(const std::string& uuid) {
    songLoadTasks_.stop(uuid);
    folderSizeTasks_.stop(uuid);
    optionsGeneration_.erase(uuid);
}

bool BackupOptionsSheet::isCurrent(const std::string& uuid, const std::string& generation) const {
    auto current = optionsGeneration_.find(uuid);
    return current != optionsGeneration_.end() && current->second == generation;
}

// First the card's folders and songs, then, if the sheet is still this opening's, the folders' sizes.
void BackupOptionsSheet::load(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    stopLoading(uuid);
    const std::string generation = makeUuid();
    optionsGeneration_[uuid] = generation;
    songLoadTasks_.start(
        uuid,
        [this, card, generation, list = reader_.list, poster = background_.poster()](std::stop_token token) {
            try {
                auto listing = list(card.mountPath, token);
                poster->post([this, card, generation, listing = std::move(listing)]() mutable {
                    applyListing(card.diskUtilUUID, generation, std::move(listing));
                    if (isCurrent(card.diskUtilUUID, generation)) loadFolderSizes(card, generation);
                });
            } catch (const Cancelled&) {
            }
        },
        [this, uuid](BackgroundTasks::Id id) { songLoadTasks_.forget(uuid, id); });
}

void BackupOptionsSheet::applyListing(const std::string& uuid, const std::string& generation,
                                      CardOptionsListing listing) {
    if (!isCurrent(uuid, generation)) return;  // the sheet was closed or opened anew
    folders_.assign(uuid, std::move(listing.folders));
    songs_.assign(uuid, std::move(listing.songs));
}

void BackupOptionsSheet::loadFolderSizes(const SDCard& card, const std::string& generation) {
    const std::string uuid = card.diskUtilUUID;
    std::vector<fs::path> folders;
    for (const auto& folder : this->folders(uuid))
        folders.push_back(card.mountPath / folder.relativePath.value_or(folder.name));
    folderSizeTasks_.start(
        uuid,
        [this, uuid, generation, folders, measure = reader_.measure,
         poster = background_.poster()](std::stop_token token) {
            try {
                std::map<std::string, std::int64_t> sizes;
                for (const auto& folder : folders) sizes[folder.filename().string()] = measure(folder, token);
                poster->post([this, uuid, generation, sizes] { applyFolderSizes(uuid, generation, sizes); });
            } catch (const Cancelled&) {
            }
        },
        [this, uuid](BackgroundTasks::Id id) { folderSizeTasks_.forget(uuid, id); });
}

void BackupOptionsSheet::applyFolderSizes(const std::string& uuid, const std::string& generation,
                                          const std::map<std::string, std::int64_t>& sizes) {
    if (!isCurrent(uuid, generation) || !folders_.contains(uuid)) return;
    folders_.edit(uuid, [&](std::vector<FolderSelection>& folders) {
        for (auto& folder : folders)
            if (auto size = sizes.find(folder.name); size != sizes.end()) folder.size = size->second;
    });
    sizesLoaded_.insert(uuid);
}

void BackupOptionsSheet::setFolderSelected(const std::string& uuid, const std::string& name, bool selected) {
    choose(folders_, uuid, selected,
           [&](const FolderSelection& folder) { return folder.name == name && !folder.locked; });
}

void BackupOptionsSheet::setSongSelected(const std::string& uuid, const std::string& relativePath,
                                         bool selected) {
    choose(songs_, uuid, selected, [&](const SongItem& song) { return song.relativePath == relativePath; });
}

BackupChoice BackupOptionsSheet::choice(const std::string& uuid) const {
    BackupChoice choice;
    if (const auto* folders = folders_.find(uuid)) {
        for (const auto& folder : *folders)
            if (folder.selected) choice.selectedFolders.push_back(folder.relativePath.value_or(folder.name));
        choice.selective = choice.selectedFolders.size() < folders->size();
    }
    if (const auto* songs = songs_.find(uuid)) {
        for (const auto& song : *songs)
            if (song.selected) choice.selectedSongs.push_back(song.relativePath);
        choice.selective = choice.selective || !choice.selectedSongs.empty();
    }
    if (!choice.selective) choice.selectedFolders.clear();
    return choice;
}

bool BackupOptionsSheet::hasSelection(const std::string& uuid) const {
    const auto* folders = folders_.find(uuid);
    const auto* songs = songs_.find(uuid);
    const bool anyFolder = folders == nullptr || std::any_of(folders->begin(), folders->end(),
                                                             [](auto& folder) { return folder.selected; });
    const bool anySong = songs != nullptr &&
                         std::any_of(songs->begin(), songs->end(), [](auto& song) { return song.selected; });
    return anyFolder || anySong;
}

std::optional<fs::path> BackupOptionsSheet::takeDestinationOverride(const std::string& uuid) {
    auto destination = destinationOverride_.value(uuid);
    destinationOverride_.erase(uuid);
    return destination;
}

QVariantMap BackupOptionsSheet::foldersVariant() const {
    return QmlValues::mapOf(folders_.all(), [](const std::vector<FolderSelection>& folders) {
        return QmlValues::listOf(folders, [](const FolderSelection& folder) {
            return QVariantMap{{"id", QmlValues::text(folder.id)},
                               {"name", QmlValues::text(folder.name)},
                               {"selected", folder.selected},
                               {"size", QmlValues::optionalNumber(folder.size)},
                               {"locked", folder.locked}};
        });
    });
}

QVariantMap BackupOptionsSheet::songsVariant() const {
    return QmlValues::mapOf(songs_.all(), [](const std::vector<SongItem>& songs) {
        return QmlValues::listOf(songs, [](const SongItem& song) {
            return QVariantMap{{"id", QmlValues::text(song.id)},
                               {"name", QmlValues::text(song.name)},
                               {"relativePath", QmlValues::text(song.relativePath)},
                               {"selected", song.selected},
                               {"sampleCount", static_cast<int>(song.samplePaths.size())}};
        });
    });
}

QStringList BackupOptionsSheet::sizesLoadedVariant() const {
    return QmlValues::textList(sizesLoaded_.all());
}

QVariantMap BackupOptionsSheet::destinationOverrideVariant() const {
    return QmlValues::mapOf(destinationOverride_.all(),
                            [](const fs::path& path) { return QmlValues::text(path.string()); });
}

}  // namespace tapekeep

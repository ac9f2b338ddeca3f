#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/BackupRequestFactory.h"
#include "workflows/CardOptionsListing.h"
#include "workflows/CardSet.h"
#include "workflows/CardTasks.h"
#include "workflows/FolderSelection.h"
#include "workflows/PerCard.h"
#include "workflows/SongItem.h"

namespace tapekeep {

// The options sheet of each card: the folders and songs it offers, loaded in the background and
// then the folders' sizes; what the user chooses there; and the one-shot destination it was opened
// with, which is for one run only. A mount that is slow or stuck holds up only the loads, which
// closing the sheet, starting the run or an eject cancels. Each opening is a generation of its own:
// what the loads of an earlier opening would still deliver is dropped.
//
// Lives on the controller's thread and is used only there.
class BackupOptionsSheet : public QObject {
    Q_OBJECT

public:
    // How the sheet reads a card, on a background thread.
    struct Reader {
        std::function<CardOptionsListing(const std::filesystem::path& mountPath, std::stop_token token)>
            list = CardOptionsListing::read;
        std::function<std::int64_t(const std::filesystem::path& folder, std::stop_token token)> measure =
            CardOptionsListing::folderSize;
    };

    BackupOptionsSheet();  // reads the card itself
    explicit BackupOptionsSheet(Reader reader, QObject* parent = nullptr);

    // Forgets the card's earlier choices, keeps the destination (or none) and starts loading.
    void open(const SDCard& card, const std::optional<std::filesystem::path>& destination);
    // Sets or clears the one-shot destination of an open sheet; the choices made so far stay.
    void setDestination(const std::string& uuid, const std::optional<std::filesystem::path>& destination);
    // The sheet is closed unused: its loads stop and its choices and destination are forgotten.
    void close(const std::string& uuid);
    // An automatic backup takes the whole card to the usual store, whatever the sheet chose.
    void discardChoices(const std::string& uuid);
    // Cancels the card's loads; what they would still deliver is dropped. What was loaded stays.
    void stopLoading(const std::string& uuid);

    void setFolderSelected(const std::string& uuid, const std::string& name, bool selected);
    void setSongSelected(const std::string& uuid, const std::string& relativePath, bool selected);

    // The folders and songs chosen for a run; the whole card when the sheet was never loaded.
    [[nodiscard]] BackupChoice choice(const std::string& uuid) const;
    // False when the sheet was loaded and neither a folder nor a song is chosen.
    [[nodiscard]] bool hasSelection(const std::string& uuid) const;
    // The destination for the run that starts now, never for a later one.
    std::optional<std::filesystem::path> takeDestinationOverride(const std::string& uuid);

    [[nodiscard]] std::vector<FolderSelection> folders(const std::string& uuid) const {
        return folders_.value(uuid).value_or(std::vector<FolderSelection>{});
    }
    [[nodiscard]] std::vector<SongItem> songs(const std::string& uuid) const {
        return songs_.value(uuid).value_or(std::vector<SongItem>{});
    }
    [[nodiscard]] bool sizesLoaded(const std::string& uuid) const { return sizesLoaded_.contains(uuid); }
    [[nodiscard]] std::optional<std::filesystem::path> destinationOverride(const std::string& uuid) const {
        return destinationOverride_.value(uuid);
    }

    [[nodiscard]] QVariantMap foldersVariant() const;
    [[nodiscard]] QVariantMap songsVariant() const;
    [[nodiscard]] QStringList sizesLoadedVariant() const;
    [[nodiscard]] QVariantMap destinationOverrideVariant() const;

signals:
    void foldersChanged();
    void songsChanged();
    void sizesLoadedChanged();
    void destinationOverrideChanged();

private:
    void load(const SDCard& card);
    void applyListing(const std::string& uuid, const std::string& generation, CardOptionsListing listing);
    void loadFolderSizes(const SDCard& card, const std::string& generation);
    void applyFolderSizes(const std::string& uuid, const std::string& generation,
                          const std::map<std::string, std::int64_t>& sizes);
    [[nodiscard]] bool isCurrent(const std::string& uuid, const std::string& generation) const;

    const Reader reader_;
    PerCard<std::vector<FolderSelection>> folders_{[this] { emit foldersChanged(); }};
    PerCard<std::vector<SongItem>> songs_{[this] { emit songsChanged(); }};
    CardSet sizesLoaded_{[this] { emit sizesLoadedChanged(); }};
    PerCard<std::filesystem::path> destinationOverride_{[this] { emit destinationOverrideChanged(); }};
    std::map<std::string, std::string> optionsGeneration_;  // the opening that loads are for
    BackgroundWork background_{this};                       // after what its tasks use
    CardTasks songLoadTasks_{background_.tasks()};          // the folders and songs
    CardTasks folderSizeTasks_{background_.tasks()};        // the sizes of those folders
};

}  // namespace tapekeep

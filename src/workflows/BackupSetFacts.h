#pragma once

#include <QObject>
#include <QVariantMap>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/BackupInfo.h"
#include "workflows/PerCard.h"

namespace tapekeep {

// What the store holds for each card, read in the background: the number of versions of the card's
// set, their total size and the note of the latest one. A version's size is measured once and kept
// in the set's sizes cache; the cache only saves work, so a store that cannot take it (read-only,
// say) still shows its facts. A card that has no set there yet shows no versions, and no set folder
// is made for it; an unreadable store, or a set of another card, shows nothing.
//
// Lives on the controller's thread and is used only there.
class BackupSetFacts : public QObject {
    Q_OBJECT

public:
    explicit BackupSetFacts(QObject* parent = nullptr);

    // Reads the facts of the card's set in the store; nothing happens without a store.
    void load(const SDCard& card, const std::filesystem::path& store);

    [[nodiscard]] std::optional<BackupInfo> info(const std::string& uuid) const { return info_.value(uuid); }
    [[nodiscard]] std::optional<std::string> latestNote(const std::string& uuid) const {
        return latestNotes_.value(uuid);
    }

    [[nodiscard]] QVariantMap infoVariant() const;
    [[nodiscard]] QVariantMap latestNotesVariant() const;

signals:
    void infoChanged();
    void latestNotesChanged();

private:
    PerCard<BackupInfo> info_{[this] { emit infoChanged(); }};
    PerCard<std::string> latestNotes_{[this] { emit latestNotesChanged(); }};
    BackgroundWork background_{this};  // after what its tasks use
};

}  // namespace tapekeep

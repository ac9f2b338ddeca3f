#include "workflows/BackupSetFacts.h"

#include <map>

#include "backup/BackupRepository.h"
#include "core/BackupSet.h"
#include "core/Log.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

struct SetFacts {
    BackupInfo info;
    std::string note;
    std::map<std::string, std::int64_t> sizes;  // of every version, by folder name
    bool sizesMeasured = false;                 // some were not in the cache
};

// Throws when the set belongs to another card or the store cannot be read.
SetFacts readFacts(const fs::path& store, const fs::path& setRoot, const std::string& uuid,
                   std::stop_token token) {
    // Another card's set is not this card's history, and its sizes cache is not ours to write.
    BackupRepository::checkSetBelongsTo(setRoot, uuid);
    const auto versions = BackupRepository(store).listVersions(setRoot);
    SetFacts facts;
    facts.sizes = BackupRepository::loadSizes(setRoot);
    std::int64_t total = 0;
    for (const auto& version : versions) {
        if (!facts.sizes.contains(version.folderName)) {
            facts.sizes[version.folderName] = BackupRepository::versionSize(version.url, token);
            facts.sizesMeasured = true;
        }
        total += facts.sizes[version.folderName];
        if (version.isLatest) facts.note = BackupRepository::readNote(version.url);
    }
    facts.info =
        BackupInfo{static_cast<int>(versions.size()), versions.empty() ? std::nullopt : std::optional(total)};
    return facts;
}

void cacheSizes(const fs::path& setRoot, const std::map<std::string, std::int64_t>& sizes) {
    try {
        BackupRepository::saveSizes(setRoot, sizes);
    } catch (const std::exception& error) {
        Log("BackupSetFacts").debug("Sizes not cached for " + setRoot.string() + ": " + error.what());
    }
}

}  // namespace

BackupSetFacts::BackupSetFacts(QObject* parent) : QObject(parent) {}

void BackupSetFacts::load(const SDCard& card, const fs::path& store) {
    if (store.empty()) return;  // no store chosen yet: nothing to show
    const fs::path setRoot = store / backupSetFolderName(card.volumeName, card.diskUtilUUID);
    background_.tasks().start([this, store, setRoot, uuid = card.diskUtilUUID,
                               poster = background_.poster()](std::stop_token token) {
        try {
            const SetFacts facts = readFacts(store, setRoot, uuid, token);
            poster->post([this, uuid, info = facts.info, note = facts.note] {
                info_.assign(uuid, info);
                latestNotes_.assign(uuid, note);
            });
            if (facts.sizesMeasured) cacheSizes(setRoot, facts.sizes);
        } catch (const std::exception&) {
            // An unreadable store shows as no facts; the next change of the store tries again.
        }
    });
}

QVariantMap BackupSetFacts::infoVariant() const {
    return QmlValues::mapOf(info_.all(), [](const BackupInfo& info) {
        return QVariantMap{{"versions", info.versions},
                           {"totalSize", QmlValues::optionalNumber(info.totalSize)}};
    });
}

QVariantMap BackupSetFacts::latestNotesVariant() const {
    return QmlValues::mapOf(latestNotes_.all(),
                            [](const std::string& note) { return QmlValues::text(note); });
}

}  // namespace tapekeep

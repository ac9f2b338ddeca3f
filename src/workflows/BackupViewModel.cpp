#include "workflows/BackupViewModel.h"

#include <QDateTime>
#include <QTimer>

#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/CardChangeWatcher.h"
#include "cards/OperationLock.h"
#include "content/M8SongParser.h"
#include "core/BackupSet.h"
#include "core/Cancelled.h"
#include "core/Uuid.h"
#include "platform/MountMonitor.h"
#include "platform/VolumeEjector.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QVariantMap cardVariant(const SDCard& card) {
    return {{"volumeName", text(card.volumeName)},
            {"uuid", text(card.diskUtilUUID)},
            {"mountPath", text(card.mountPath.string())}};
}

qint64 epochMilliseconds(Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

QVariantList countsVariant(const ContentCounts& counts) {
    QVariantList list;
    for (const auto& count : counts)
        list.push_back(QVariantMap{{"label", text(count.label)}, {"count", count.count}});
    return list;
}

template <typename Value, typename Convert>
QVariantMap mapVariant(const std::map<std::string, Value>& map, Convert convert) {
    QVariantMap result;
    for (const auto& [uuid, value] : map) result.insert(text(uuid), convert(value));
    return result;
}

std::string canonicalPath(const fs::path& path) {
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error);
    return (error ? path.lexically_normal() : resolved).string();
}

}  // namespace

BackupViewModel::BackupViewModel(AppSettings& settings, Dependencies dependencies, QObject* parent)
    : QObject(parent),
      settings_(settings),
      dependencies_(std::move(dependencies)),
      poster_(std::make_shared<MainThreadPoster>(this)),
      tasks_(poster_) {
    if (!dependencies_.makeScanner)
        dependencies_.makeScanner = [] { return std::make_unique<VolumeScanner>(); };
    if (!dependencies_.ejectVolume) dependencies_.ejectVolume = VolumeEjector::ejectVolume;
}

BackupViewModel::~BackupViewModel() {
    poster_->detach();
    for (auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
    mountMonitor_.reset();
    cardWatchers_.clear();
    tasks_.stopAll();
    for (const auto& [uuid, lease] : leases_) OperationLock::shared().release(lease);
}

void BackupViewModel::startObserving() {
    for (auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
    observers_.clear();
    auto& center = NotificationCenter::defaultCenter();
    observers_.push_back(center.addObserver(Notifications::backupsDidChange,
                                            [poster = poster_, this](const std::string& base) {
                                                poster->post([this, base] { onBackupsChanged(base); });
                                            }));
    observers_.push_back(center.addObserver(
        Notifications::cardContentMayHaveChanged, [poster = poster_, this](const std::string& uuid) {
            poster->post([this, uuid] { onCardContentMayHaveChanged(uuid); });
        }));
    mountMonitor_.reset();
    mountMonitor_ = std::make_unique<MountMonitor>([poster = poster_, this](const MountMonitor::Change&) {
        poster->post([this] { onMountsChanged(); });
    });
}

// ---- scanning -------------------------------------------------------------------------------

void BackupViewModel::scanForCards() {
    const std::string generation = makeUuid();
    scanGeneration_ = generation;
    if (!isScanning_) {
        isScanning_ = true;
        emit isScanningChanged();
    }
    if (scanError_) {
        scanError_.reset();
        emit scanErrorChanged();
    }
    tasks_.start(
        [this, generation, makeScanner = dependencies_.makeScanner, poster = poster_](std::stop_token token) {
            try {
                auto result = makeScanner()->scan(token);
                poster->post([this, generation, result] { applyScan(generation, result); });
            } catch (const Cancelled&) {
            } catch (const std::exception& error) {
                poster->post([this, generation, message = std::string(error.what())] {
                    applyScanError(generation, message);
                });
            }
        });
}

void BackupViewModel::applyScanError(const std::string& generation, const std::string& error) {
    if (generation != scanGeneration_) return;  // a newer scan owns the state
    scanError_ = error;
    emit scanErrorChanged();
    if (scannerStatus_) {
        scannerStatus_.reset();
        emit scannerStatusChanged();
    }
    isScanning_ = false;
    emit isScanningChanged();
    armAfterScan_.reset();
    emit scanFinished();
}

void BackupViewModel::applyScan(const std::string& generation, const VolumeScanner::ScanResult& result) {
    if (generation != scanGeneration_) return;
    std::vector<SDCard> cards = result.cards;
    // A running card stays listed even when the volumes no longer show it: its own run ends it.
    for (const auto& old : detectedCards_) {
        const bool present = std::any_of(cards.begin(), cards.end(), [&](const SDCard& card) {
            return card.diskUtilUUID == old.diskUtilUUID;
        });
        if (!present && cardState(old.diskUtilUUID).kind == CardState::Kind::running) cards.push_back(old);
    }
    for (const auto& old : detectedCards_) {
        const bool kept = std::any_of(cards.begin(), cards.end(), [&](const SDCard& card) {
            return card.diskUtilUUID == old.diskUtilUUID;
        });
        if (!kept) forgetCard(old.diskUtilUUID);
    }
    if (cards != detectedCards_) {
        detectedCards_ = cards;
        emit detectedCardsChanged();
    }
    syncWatchers();
    std::optional<VolumeScanner::ScanResult> status;
    if (cards.empty() && result.examinedCount > 0) status = result;
    const bool statusChanged = status.has_value() != scannerStatus_.has_value() ||
                               (status && (status->examinedCount != scannerStatus_->examinedCount ||
                                           status->excludedCount != scannerStatus_->excludedCount));
    scannerStatus_ = status;
    if (statusChanged) emit scannerStatusChanged();
    for (const auto& card : detectedCards_) {
        if (!cardStates_.contains(card.diskUtilUUID)) setState(card.diskUtilUUID, CardState::idle());
        if (!cardLogs_.contains(card.diskUtilUUID))
            assign(cardLogs_, card.diskUtilUUID, std::vector<std::string>{},
                   &BackupViewModel::cardLogsChanged);
        loadRepositoryFacts(card);
        if (dependencies_.followCardContent && !isRunning(card.diskUtilUUID)) {
            refreshFreshness(card);
            scanContent(card);
        }
    }
    isScanning_ = false;
    emit isScanningChanged();
    if (auto before = std::exchange(armAfterScan_, std::nullopt)) {
        for (const auto& card : detectedCards_)
            if (!before->contains(card.diskUtilUUID)) armCountdown(card);
    }
    emit scanFinished();
}

void BackupViewModel::forgetCard(const std::string& uuid) {
    contentScanFinishedAt_.erase(uuid);
    stopCachedWork(uuid);
    if (auto countdown = autoBackupTasks_.find(uuid); countdown != autoBackupTasks_.end()) {
        tasks_.cancel(countdown->second);
        autoBackupTasks_.erase(countdown);
        setState(uuid, CardState::idle());
    }
    if (auto scan = contentScanTasks_.find(uuid); scan != contentScanTasks_.end()) {
        tasks_.cancel(scan->second);
        contentScanTasks_.erase(scan);
    }
}

void BackupViewModel::syncWatchers() {
    for (auto it = cardWatchers_.begin(); it != cardWatchers_.end();) {
        it = detectedCard(it->first) == nullptr ? cardWatchers_.erase(it) : std::next(it);
    }
    if (!dependencies_.watchCards) return;
    for (const auto& card : detectedCards_) {
        const std::string root = canonicalPath(card.mountPath);
        auto& watcher = cardWatchers_[card.diskUtilUUID];
        if (watcher && watcher->rootPath() == root) continue;
        watcher = std::make_unique<CardChangeWatcher>(card.diskUtilUUID, root,
                                                      [poster = poster_, this](const std::string& uuid) {
                                                          poster->post([this, uuid] { onCardChanged(uuid); });
                                                      });
    }
}

void BackupViewModel::loadRepositoryFacts(const SDCard& card) {
    if (baseFolder().empty()) return;  // no store chosen yet: nothing to show
    const fs::path setRoot = baseFolder() / backupSetFolderName(card.volumeName, card.diskUtilUUID);
    const std::string uuid = card.diskUtilUUID;
    tasks_.start([this, setRoot, uuid, poster = poster_](std::stop_token token) {
        try {
            // Another card's set is not this card's history, and its sizes cache is not ours to write.
            BackupRepository::checkSetBelongsTo(setRoot, uuid);
            const auto versions = BackupRepository(setRoot.parent_path()).listVersions(setRoot);
            auto sizes = BackupRepository::loadSizes(setRoot);
            std::int64_t total = 0;
            for (const auto& version : versions) {
                if (!sizes.contains(version.folderName))
                    sizes[version.folderName] = BackupRepository::versionSize(version.url, token);
                total += sizes[version.folderName];
            }
            BackupRepository::saveSizes(setRoot, sizes);
            std::string note;
            for (const auto& version : versions)
                if (version.isLatest) note = BackupRepository::readNote(version.url);
            BackupInfo info{static_cast<int>(versions.size()),
                            versions.empty() ? std::nullopt : std::optional(total)};
            poster->post([this, uuid, info, note] {
                assign(cardBackupInfo_, uuid, info, &BackupViewModel::cardBackupInfoChanged);
                assign(latestNotes_, uuid, note, &BackupViewModel::latestNotesChanged);
            });
        } catch (const std::exception&) {
            // An unreadable store shows as no facts; the next change of the store tries again.
        }
    });
}

// The options sheet: every top-level folder, chosen, and the songs, not chosen.
void BackupViewModel::loadOptions(const SDCard& card) {
    std::vector<FolderSelection> folders;
    std::vector<SongItem> songs;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(card.mountPath, error)) {
        const std::string name = entry.path().filename().string();
        std::error_code typeError;
        if (name.starts_with('.') || !entry.is_directory(typeError) || entry.is_symlink(typeError)) continue;
        folders.push_back(FolderSelection{makeUuid(), name, std::nullopt, true, name, false});
    }
    for (auto it = fs::recursive_directory_iterator(card.mountPath / "Songs", error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::error_code typeError;
        if (!it->is_regular_file(typeError) || it->path().extension() != ".m8s") continue;
        songs.push_back(SongItem{makeUuid(), it->path().stem().string(),
                                 it->path().lexically_relative(card.mountPath).string(),
                                 static_cast<std::int64_t>(it->file_size(typeError)), false,
                                 M8SongParser::parseSamplePaths(it->path())});
    }
    std::sort(folders.begin(), folders.end(), [](auto& a, auto& b) { return a.name < b.name; });
    std::sort(songs.begin(), songs.end(), [](auto& a, auto& b) { return a.relativePath < b.relativePath; });
    assign(cardFolders_, card.diskUtilUUID, folders, &BackupViewModel::cardFoldersChanged);
    assign(cardSongs_, card.diskUtilUUID, songs, &BackupViewModel::cardSongsChanged);
}

void BackupViewModel::setFolderSelected(const std::string& uuid, const std::string& name, bool selected) {
    auto found = cardFolders_.find(uuid);
    if (found == cardFolders_.end()) return;
    for (auto& folder : found->second)
        if (folder.name == name && !folder.locked) folder.selected = selected;
    emit cardFoldersChanged();
}

void BackupViewModel::setSongSelected(const std::string& uuid, const std::string& relativePath,
                                      bool selected) {
    auto found = cardSongs_.find(uuid);
    if (found == cardSongs_.end()) return;
    for (auto& song : found->second)
        if (song.relativePath == relativePath) song.selected = selected;
    emit cardSongsChanged();
}

void BackupViewModel::prepareBackup(const SDCard& card, const std::optional<fs::path>& destination) {
    if (auto refusal = featureAccess_.refusal("backup")) {
        setState(card.diskUtilUUID, CardState::failed(*refusal));
        return;
    }
    if (OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID})) return;
    if (destination)
        assign(destinationOverride_, card.diskUtilUUID, *destination,
               &BackupViewModel::destinationOverrideChanged);
    else
        erase(destinationOverride_, card.diskUtilUUID, &BackupViewModel::destinationOverrideChanged);
    loadOptions(card);
    setState(card.diskUtilUUID, CardState::confirming());
}

void BackupViewModel::cancelConfirmation(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    erase(cardFolders_, uuid, &BackupViewModel::cardFoldersChanged);
    erase(cardSongs_, uuid, &BackupViewModel::cardSongsChanged);
    erase(destinationOverride_, uuid, &BackupViewModel::destinationOverrideChanged);
    setState(uuid, CardState::idle());
}

void BackupViewModel::setState(const std::string& uuid, CardState state) {
    assign(cardStates_, uuid, std::move(state), &BackupViewModel::cardStatesChanged);
}

void BackupViewModel::onMountsChanged() {
    // Only a card that was not there before a mount may start a countdown.
    const bool autoBackup =
        dependencies_.autoBackupOnConnectOverride.value_or(settings_.autoBackupOnConnect());
    if (autoBackup && !armAfterScan_) {
        std::set<std::string> present;
        for (const auto& card : detectedCards_) present.insert(card.diskUtilUUID);
        armAfterScan_ = present;
    }
    scanForCards();
}

const SDCard* BackupViewModel::detectedCard(const std::string& uuid) const {
    for (const auto& card : detectedCards_)
        if (card.diskUtilUUID == uuid) return &card;
    return nullptr;
}

fs::path BackupViewModel::baseFolder() const {
    if (dependencies_.baseFolderOverride) return *dependencies_.baseFolderOverride;
    return fs::path(settings_.backupBaseDirPath().toStdString());
}

// ---- typed and QML views --------------------------------------------------------------------

CardState BackupViewModel::cardState(const std::string& uuid) const {
    auto found = cardStates_.find(uuid);
    return found == cardStates_.end() ? CardState::idle() : found->second;
}

std::vector<std::string> BackupViewModel::cardLog(const std::string& uuid) const {
    auto found = cardLogs_.find(uuid);
    return found == cardLogs_.end() ? std::vector<std::string>{} : found->second;
}

std::optional<double> BackupViewModel::cardProgress(const std::string& uuid) const {
    auto found = cardProgress_.find(uuid);
    return found == cardProgress_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::int64_t> BackupViewModel::cardFilesRemaining(const std::string& uuid) const {
    auto found = cardFilesRemaining_.find(uuid);
    return found == cardFilesRemaining_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<BackupFreshness> BackupViewModel::cardFreshness(const std::string& uuid) const {
    auto found = cardFreshness_.find(uuid);
    return found == cardFreshness_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<BackupInfo> BackupViewModel::cardBackupInfo(const std::string& uuid) const {
    auto found = cardBackupInfo_.find(uuid);
    return found == cardBackupInfo_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<BackupOutcome> BackupViewModel::lastOutcome(const std::string& uuid) const {
    auto found = lastOutcomes_.find(uuid);
    return found == lastOutcomes_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<FileDiff> BackupViewModel::cardQuickDiffs(const std::string& uuid) const {
    auto found = cardQuickDiffs_.find(uuid);
    return found == cardQuickDiffs_.end() ? std::vector<FileDiff>{} : found->second;
}

QVariantList BackupViewModel::detectedCardsVariant() const {
    QVariantList list;
    for (const auto& card : detectedCards_) list.push_back(cardVariant(card));
    return list;
}

QString BackupViewModel::scanErrorText() const {
    return scanError_ ? text(*scanError_) : QString();
}

QVariantMap BackupViewModel::scannerStatusVariant() const {
    if (!scannerStatus_) return {};
    return {{"examinedCount", scannerStatus_->examinedCount},
            {"excludedCount", scannerStatus_->excludedCount}};
}

QVariantMap BackupViewModel::cardStatesVariant() const {
    return mapVariant(cardStates_, [](const CardState& state) {
        return QVariantMap{{"state", CardState::rawValue(state.kind)},
                           {"message", text(state.message)},
                           {"start", epochMilliseconds(state.start)},
                           {"end", epochMilliseconds(state.end)}};
    });
}

QVariantMap BackupViewModel::cardLogsVariant() const {
    return mapVariant(cardLogs_, [](const std::vector<std::string>& lines) {
        QStringList list;
        for (const auto& line : lines) list.push_back(text(line));
        return list;
    });
}

QVariantMap BackupViewModel::cardStartTimeVariant() const {
    return mapVariant(cardStartTime_, [](Clock::time_point time) { return epochMilliseconds(time); });
}

QVariantMap BackupViewModel::cardBackupInfoVariant() const {
    return mapVariant(cardBackupInfo_, [](const BackupInfo& info) {
        return QVariantMap{{"versions", info.versions},
                           {"totalSize", info.totalSize ? QVariant(qint64(*info.totalSize)) : QVariant()}};
    });
}

QVariantMap BackupViewModel::cardProgressVariant() const {
    return mapVariant(cardProgress_, [](double value) { return value; });
}

QVariantMap BackupViewModel::cardFilesRemainingVariant() const {
    return mapVariant(cardFilesRemaining_, [](std::int64_t value) { return qint64(value); });
}

QVariantMap BackupViewModel::cardContentSummaryVariant() const {
    return mapVariant(cardContentSummary_, countsVariant);
}

QVariantMap BackupViewModel::cardContentScanProgressVariant() const {
    return mapVariant(cardContentScanProgress_, countsVariant);
}

QVariantMap BackupViewModel::latestNotesVariant() const {
    return mapVariant(latestNotes_, [](const std::string& note) { return text(note); });
}

QVariantMap BackupViewModel::cardFoldersVariant() const {
    return mapVariant(cardFolders_, [](const std::vector<FolderSelection>& folders) {
        QVariantList list;
        for (const auto& folder : folders)
            list.push_back(QVariantMap{{"id", text(folder.id)},
                                       {"name", text(folder.name)},
                                       {"selected", folder.selected},
                                       {"locked", folder.locked}});
        return list;
    });
}

QVariantMap BackupViewModel::cardSongsVariant() const {
    return mapVariant(cardSongs_, [](const std::vector<SongItem>& songs) {
        QVariantList list;
        for (const auto& song : songs)
            list.push_back(QVariantMap{{"id", text(song.id)},
                                       {"name", text(song.name)},
                                       {"relativePath", text(song.relativePath)},
                                       {"selected", song.selected},
                                       {"sampleCount", static_cast<int>(song.samplePaths.size())}});
        return list;
    });
}

QVariantMap BackupViewModel::cardFreshnessVariant() const {
    return mapVariant(cardFreshness_,
                      [](const BackupFreshness& freshness) { return text(freshness.label()); });
}

QVariantMap BackupViewModel::cardDiffSummaryVariant() const {
    return mapVariant(cardDiffSummary_, [](const DiffSummary& summary) {
        QVariantList list;
        for (const auto& folder : summary.folders)
            list.push_back(QVariantMap{{"name", text(folder.name)},
                                       {"added", folder.added},
                                       {"modified", folder.modified},
                                       {"deleted", folder.deleted}});
        return list;
    });
}

QStringList BackupViewModel::cardDiffLoadingVariant() const {
    QStringList list;
    for (const auto& uuid : cardDiffLoading_) list.push_back(text(uuid));
    return list;
}

QVariantMap BackupViewModel::destinationOverrideVariant() const {
    return mapVariant(destinationOverride_, [](const fs::path& path) { return text(path.string()); });
}

}  // namespace tapekeep

#include "workflows/BackupViewModel.h"

#include <QDateTime>
#include <QMetaProperty>
#include <QTimer>

#include <cctype>

#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/CardChangeWatcher.h"
#include "cards/OperationLock.h"
#include "content/M8SongParser.h"
#include "core/BackupSet.h"
#include "core/Cancelled.h"
#include "core/Log.h"
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

bool isSongFile(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".m8s";
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

// The top-level folders of a card, each chosen, by name.
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

// The songs below the card's Songs folder, none chosen, by path. A song is a regular file whose
// extension reads ".m8s" in any letter case (a FAT card keeps "SONG.M8S" as written); hidden files,
// such as the "._" companions that another computer leaves, are not songs.
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

// The bytes of the regular files below a folder; links are not followed. Throws only Cancelled.
std::int64_t folderSize(const fs::path& folder, std::stop_token token) {
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
        dependencies_.makeScanner = [roots = dependencies_.volumeRoots, store = &settings_.store()] {
            return std::make_unique<VolumeScanner>(roots, store);
        };
    if (!dependencies_.ejectVolume) dependencies_.ejectVolume = VolumeEjector::ejectVolume;
    forwardSettingsChanges();
}

// Every change of a setting reaches this object's observers as settingsChanged.
void BackupViewModel::forwardSettingsChanges() {
    const QMetaMethod forward = QMetaMethod::fromSignal(&BackupViewModel::settingsChanged);
    const QMetaObject* meta = settings_.metaObject();
    for (int index = meta->propertyOffset(); index < meta->propertyCount(); ++index) {
        const QMetaProperty property = meta->property(index);
        if (property.hasNotifySignal())
            settingsCancellable_.push_back(connect(&settings_, property.notifySignal(), this, forward));
    }
}

BackupViewModel::~BackupViewModel() {
    poster_->detach();
    for (const auto& connection : settingsCancellable_) disconnect(connection);
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
    if (!dependencies_.followMounts) return;
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
        loadRepositoryFacts(card, baseFolder());
        if (dependencies_.followCardContent && !isRunning(card.diskUtilUUID)) {
            refreshFreshness(card);
            scanContent(card);
        }
    }
    isScanning_ = false;
    emit isScanningChanged();
    hasScanned_ = true;
    if (auto before = std::exchange(armAfterScan_, std::nullopt)) {
        for (const auto& card : detectedCards_)
            if (!before->contains(card.diskUtilUUID)) armCountdown(card);
    }
    emit scanFinished();
}

void BackupViewModel::forgetCard(const std::string& uuid) {
    contentScanFinishedAt_.erase(uuid);
    stopCachedWork(uuid);
    stopOptionsWork(uuid);
    if (auto countdown = autoBackupTasks_.find(uuid); countdown != autoBackupTasks_.end()) {
        tasks_.cancel(countdown->second);
        autoBackupTasks_.erase(countdown);
        setState(uuid, CardState::idle());
    }
    if (auto scan = contentScanTasks_.find(uuid); scan != contentScanTasks_.end()) {
        tasks_.cancel(scan->second);
        setContentScanning(uuid, std::nullopt);
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

// The versions, their total size and the latest note of the card's set in the given store. The
// sizes cache only saves work: a store that cannot take it (read-only, say) still shows its facts,
// and a card that has no set there yet shows no versions without a set folder being made for it.
void BackupViewModel::loadRepositoryFacts(const SDCard& card, const fs::path& store) {
    if (store.empty()) return;  // no store chosen yet: nothing to show
    const fs::path setRoot = store / backupSetFolderName(card.volumeName, card.diskUtilUUID);
    const std::string uuid = card.diskUtilUUID;
    tasks_.start([this, store, setRoot, uuid, poster = poster_](std::stop_token token) {
        try {
            // Another card's set is not this card's history, and its sizes cache is not ours to write.
            BackupRepository::checkSetBelongsTo(setRoot, uuid);
            const auto versions = BackupRepository(store).listVersions(setRoot);
            auto sizes = BackupRepository::loadSizes(setRoot);
            bool sizesMeasured = false;
            std::int64_t total = 0;
            for (const auto& version : versions) {
                if (!sizes.contains(version.folderName)) {
                    sizes[version.folderName] = BackupRepository::versionSize(version.url, token);
                    sizesMeasured = true;
                }
                total += sizes[version.folderName];
            }
            std::string note;
            for (const auto& version : versions)
                if (version.isLatest) note = BackupRepository::readNote(version.url);
            BackupInfo info{static_cast<int>(versions.size()),
                            versions.empty() ? std::nullopt : std::optional(total)};
            poster->post([this, uuid, info, note] {
                assign(cardBackupInfo_, uuid, info, &BackupViewModel::cardBackupInfoChanged);
                assign(latestNotes_, uuid, note, &BackupViewModel::latestNotesChanged);
            });
            if (!sizesMeasured) return;
            try {
                BackupRepository::saveSizes(setRoot, sizes);
            } catch (const std::exception& error) {
                Log("BackupViewModel")
                    .debug("Sizes not cached for " + setRoot.string() + ": " + error.what());
            }
        } catch (const std::exception&) {
            // An unreadable store shows as no facts; the next change of the store tries again.
        }
    });
}

// The options sheet, loaded in the background: the card's top-level folders, all chosen, and its
// songs, none chosen; then the folders' sizes. A mount that is slow or stuck holds up only these
// tasks, which closing the sheet, starting the run or an eject cancels.
void BackupViewModel::loadOptions(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    stopOptionsWork(uuid);
    const std::string generation = makeUuid();
    optionsGeneration_[uuid] = generation;
    songLoadTasks_[uuid] = tasks_.start(
        [this, card, generation, poster = poster_](std::stop_token token) {
            try {
                auto folders = topLevelFolders(card.mountPath, token);
                auto songs = cardSongList(card.mountPath, token);
                poster->post([this, card, generation, folders = std::move(folders),
                              songs = std::move(songs)]() mutable {
                    applyOptions(card.diskUtilUUID, generation, std::move(folders), std::move(songs));
                    if (optionsGeneration_[card.diskUtilUUID] == generation)
                        loadFolderSizes(card, generation);
                });
            } catch (const Cancelled&) {
            }
        },
        [this, uuid](BackgroundTasks::Id id) { forgetTask(songLoadTasks_, uuid, id); });
}

void BackupViewModel::applyOptions(const std::string& uuid, const std::string& generation,
                                   std::vector<FolderSelection> folders, std::vector<SongItem> songs) {
    if (optionsGeneration_[uuid] != generation) return;  // the sheet was closed or opened anew
    assign(cardFolders_, uuid, std::move(folders), &BackupViewModel::cardFoldersChanged);
    assign(cardSongs_, uuid, std::move(songs), &BackupViewModel::cardSongsChanged);
}

void BackupViewModel::loadFolderSizes(const SDCard& card, const std::string& generation) {
    const std::string uuid = card.diskUtilUUID;
    std::vector<fs::path> folders;
    for (const auto& folder : cardFolders_[uuid])
        folders.push_back(card.mountPath / folder.relativePath.value_or(folder.name));
    folderSizeTasks_[uuid] = tasks_.start(
        [this, uuid, generation, folders, poster = poster_](std::stop_token token) {
            try {
                std::map<std::string, std::int64_t> sizes;
                for (const auto& folder : folders)
                    sizes[folder.filename().string()] = folderSize(folder, token);
                poster->post([this, uuid, generation, sizes] { applyFolderSizes(uuid, generation, sizes); });
            } catch (const Cancelled&) {
            }
        },
        [this, uuid](BackgroundTasks::Id id) { forgetTask(folderSizeTasks_, uuid, id); });
}

void BackupViewModel::applyFolderSizes(const std::string& uuid, const std::string& generation,
                                       const std::map<std::string, std::int64_t>& sizes) {
    if (optionsGeneration_[uuid] != generation) return;
    auto folders = cardFolders_.find(uuid);
    if (folders == cardFolders_.end()) return;
    for (auto& folder : folders->second)
        if (auto size = sizes.find(folder.name); size != sizes.end()) folder.size = size->second;
    emit cardFoldersChanged();
    if (folderSizesLoaded_.insert(uuid).second) emit folderSizesLoadedChanged();
}

// Cancels the sheet's loads; what they would still deliver is dropped. What was loaded stays.
void BackupViewModel::stopOptionsWork(const std::string& uuid) {
    for (auto* tasks : {&songLoadTasks_, &folderSizeTasks_}) {
        if (auto task = tasks->find(uuid); task != tasks->end()) {
            tasks_.cancel(task->second);
            tasks->erase(task);
        }
    }
    optionsGeneration_.erase(uuid);
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
    erase(cardFolders_, card.diskUtilUUID, &BackupViewModel::cardFoldersChanged);
    erase(cardSongs_, card.diskUtilUUID, &BackupViewModel::cardSongsChanged);
    if (folderSizesLoaded_.erase(card.diskUtilUUID) > 0) emit folderSizesLoadedChanged();
    loadOptions(card);
    setState(card.diskUtilUUID, CardState::confirming());
}

void BackupViewModel::cancelConfirmation(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    stopOptionsWork(uuid);
    if (folderSizesLoaded_.erase(uuid) > 0) emit folderSizesLoadedChanged();
    erase(cardFolders_, uuid, &BackupViewModel::cardFoldersChanged);
    erase(cardSongs_, uuid, &BackupViewModel::cardSongsChanged);
    erase(destinationOverride_, uuid, &BackupViewModel::destinationOverrideChanged);
    setState(uuid, CardState::idle());
}

void BackupViewModel::setState(const std::string& uuid, CardState state) {
    assign(cardStates_, uuid, std::move(state), &BackupViewModel::cardStatesChanged);
}

void BackupViewModel::onMountsChanged() {
    // Only a card that was not there before a mount may start a countdown. Before the first scan
    // has finished nobody knows which cards were there, so a mount then arms nothing: the cards of
    // that first scan count as present from the start.
    const bool autoBackup =
        dependencies_.autoBackupOnConnectOverride.value_or(settings_.autoBackupOnConnect());
    if (autoBackup && !armAfterScan_ && hasScanned_) {
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

std::optional<std::string> BackupViewModel::latestNote(const std::string& uuid) const {
    auto found = latestNotes_.find(uuid);
    return found == latestNotes_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<FolderSelection> BackupViewModel::cardFolders(const std::string& uuid) const {
    auto found = cardFolders_.find(uuid);
    return found == cardFolders_.end() ? std::vector<FolderSelection>{} : found->second;
}

std::vector<SongItem> BackupViewModel::cardSongs(const std::string& uuid) const {
    auto found = cardSongs_.find(uuid);
    return found == cardSongs_.end() ? std::vector<SongItem>{} : found->second;
}

std::optional<std::string> BackupViewModel::cardContentLabel(const std::string& uuid) const {
    if (contentScanTasks_.contains(uuid)) return "Scanning";
    auto summary = cardContentSummary_.find(uuid);
    if (summary != cardContentSummary_.end() && summary->second.empty()) return "No M8 files";
    return std::nullopt;
}

std::optional<ContentCounts> BackupViewModel::cardContentSummary(const std::string& uuid) const {
    auto found = cardContentSummary_.find(uuid);
    return found == cardContentSummary_.end() ? std::nullopt : std::optional(found->second);
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

QVariantMap BackupViewModel::cardContentLabelVariant() const {
    QVariantMap result;
    for (const auto& card : detectedCards_)
        if (auto label = cardContentLabel(card.diskUtilUUID))
            result.insert(text(card.diskUtilUUID), text(*label));
    return result;
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
                                       {"size", folder.size ? QVariant(qint64(*folder.size)) : QVariant()},
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

QStringList BackupViewModel::folderSizesLoadedVariant() const {
    QStringList list;
    for (const auto& uuid : folderSizesLoaded_) list.push_back(text(uuid));
    return list;
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

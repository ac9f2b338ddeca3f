#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backup/BackupOperation.h"
#include "backup/BackupProgressTracker.h"
#include "cards/Lease.h"
#include "cards/VolumeScanner.h"
#include "content/ContentCount.h"
#include "content/ManifestEntry.h"
#include "core/FileDiff.h"
#include "core/NotificationCenter.h"
#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackupFreshness.h"
#include "workflows/BackupInfo.h"
#include "workflows/CardState.h"
#include "workflows/CompletionFeedback.h"
#include "workflows/DiffSummary.h"
#include "workflows/FeatureAccessAdmission.h"
#include "workflows/FolderSelection.h"
#include "workflows/MainThreadPoster.h"
#include "workflows/SongItem.h"

class QTimer;

namespace tapekeep {

class AppSettings;
class SettingsStore;
class CardChangeWatcher;
class MountMonitor;

// The controller of the Backup screen: the detected cards and, for each card (keyed by its volume
// UUID), a state, a log, progress, freshness and cached facts. It starts backups under the card's
// lease, counts down to automatic backups of newly connected cards, and tells whether a card
// differs from its latest backup.
//
// Lives on the GUI thread and is used only there. Services run on background threads and their
// results come back as queued calls; results of superseded work are dropped by generation values.
class BackupViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList detectedCards READ detectedCardsVariant NOTIFY detectedCardsChanged)
    Q_PROPERTY(bool isScanning READ isScanning NOTIFY isScanningChanged)
    Q_PROPERTY(QString scanError READ scanErrorText NOTIFY scanErrorChanged)
    Q_PROPERTY(QVariantMap scannerStatus READ scannerStatusVariant NOTIFY scannerStatusChanged)
    Q_PROPERTY(QVariantMap cardStates READ cardStatesVariant NOTIFY cardStatesChanged)
    Q_PROPERTY(QVariantMap cardLogs READ cardLogsVariant NOTIFY cardLogsChanged)
    Q_PROPERTY(QVariantMap cardStartTime READ cardStartTimeVariant NOTIFY cardStartTimeChanged)
    Q_PROPERTY(QVariantMap cardBackupInfo READ cardBackupInfoVariant NOTIFY cardBackupInfoChanged)
    Q_PROPERTY(QVariantMap cardProgress READ cardProgressVariant NOTIFY cardProgressChanged)
    Q_PROPERTY(QVariantMap cardFilesRemaining READ cardFilesRemainingVariant NOTIFY cardFilesRemainingChanged)
    Q_PROPERTY(QVariantMap cardContentSummary READ cardContentSummaryVariant NOTIFY cardContentSummaryChanged)
    Q_PROPERTY(QVariantMap cardContentScanProgress READ cardContentScanProgressVariant NOTIFY
                   cardContentScanProgressChanged)
    Q_PROPERTY(QVariantMap cardContentLabel READ cardContentLabelVariant NOTIFY cardContentLabelChanged)
    Q_PROPERTY(QVariantMap latestNotes READ latestNotesVariant NOTIFY latestNotesChanged)
    Q_PROPERTY(QVariantMap cardFolders READ cardFoldersVariant NOTIFY cardFoldersChanged)
    Q_PROPERTY(QVariantMap cardSongs READ cardSongsVariant NOTIFY cardSongsChanged)
    Q_PROPERTY(QStringList folderSizesLoaded READ folderSizesLoadedVariant NOTIFY folderSizesLoadedChanged)
    Q_PROPERTY(QVariantMap cardFreshness READ cardFreshnessVariant NOTIFY cardFreshnessChanged)
    Q_PROPERTY(QVariantMap cardDiffSummary READ cardDiffSummaryVariant NOTIFY cardDiffSummaryChanged)
    Q_PROPERTY(QStringList cardDiffLoading READ cardDiffLoadingVariant NOTIFY cardDiffLoadingChanged)
    Q_PROPERTY(
        QVariantMap destinationOverride READ destinationOverrideVariant NOTIFY destinationOverrideChanged)

public:
    // What the controller needs from outside; each has a working default, and tests replace some.
    struct Dependencies {
        // Default: the mount points below volumeRoots, skipping the volumes that the setting
        // "excludedVolumes" names.
        std::function<std::unique_ptr<VolumeScanner>()> makeScanner;
        std::vector<std::filesystem::path> volumeRoots = VolumeScanner::defaultVolumeRoots();
        BackupOperation::RsyncRunner runRsync = BackupOperation::defaultRsyncRunner();
        BackupOperation::Environment environment = BackupOperation::Environment::system();
        std::function<void(const std::filesystem::path& mountPoint, std::stop_token token)> ejectVolume;
        CompletionFeedback* feedback = nullptr;  // not owned; none gives no notification and no sound
        SettingsStore* store = nullptr;          // not owned; where card summaries are cached, if anywhere
        std::optional<std::filesystem::path> baseFolderOverride;  // a front end's --base
        std::optional<std::string> rsyncPathOverride;             // a front end's --rsync
        std::optional<bool> autoBackupOnConnectOverride;          // a front end's --auto
        // A front end's one-call choices (kept versions, verification, parts of the card).
        std::function<void(BackupRequest& request)> adjustRequest;
        bool followMounts = true;       // scan again whenever a volume is mounted or unmounted
        bool watchCards = true;         // follow changes on each detected card
        bool followCardContent = true;  // compare each card with its backup and count its files
        std::chrono::milliseconds flushDelay{250};
        std::chrono::milliseconds freshnessQuietTime{2000};  // after a card's last change report
        std::vector<std::chrono::milliseconds> ejectWaits{
            std::chrono::milliseconds(0), std::chrono::milliseconds(500), std::chrono::milliseconds(1000)};
    };

    BackupViewModel(AppSettings& settings, Dependencies dependencies, QObject* parent = nullptr);
    ~BackupViewModel() override;

    // Subscribes to mounts and unmounts, to changed backups and to card contents that another
    // operation may have changed. Call once at start; a second call replaces the subscriptions.
    void startObserving();

    void scanForCards();
    void prepareBackup(const SDCard& card, const std::optional<std::filesystem::path>& destination = {});
    void cancelConfirmation(const SDCard& card);
    void startBackup(const SDCard& card);
    void cancelRun(const SDCard& card);
    void cancelAllOperations();
    void ejectCard(const SDCard& card);
    void cancelCountdown(const SDCard& card);
    void startDiffSummary(const SDCard& card);
    void appendOutput(const std::string& uuid, const std::string& line);
    // The choices of the options sheet.
    void setFolderSelected(const std::string& uuid, const std::string& name, bool selected);
    void setSongSelected(const std::string& uuid, const std::string& relativePath, bool selected);

    // Typed views of the observable state.
    [[nodiscard]] const std::vector<SDCard>& detectedCards() const { return detectedCards_; }
    [[nodiscard]] bool isScanning() const { return isScanning_; }
    [[nodiscard]] const std::optional<std::string>& scanError() const { return scanError_; }
    [[nodiscard]] const std::optional<VolumeScanner::ScanResult>& scannerStatus() const {
        return scannerStatus_;
    }
    [[nodiscard]] CardState cardState(const std::string& uuid) const;
    [[nodiscard]] std::vector<std::string> cardLog(const std::string& uuid) const;
    [[nodiscard]] std::optional<double> cardProgress(const std::string& uuid) const;
    [[nodiscard]] std::optional<std::int64_t> cardFilesRemaining(const std::string& uuid) const;
    [[nodiscard]] std::optional<BackupFreshness> cardFreshness(const std::string& uuid) const;
    [[nodiscard]] std::optional<BackupInfo> cardBackupInfo(const std::string& uuid) const;
    [[nodiscard]] std::optional<std::string> latestNote(const std::string& uuid) const;
    [[nodiscard]] std::vector<FolderSelection> cardFolders(const std::string& uuid) const;
    [[nodiscard]] std::vector<SongItem> cardSongs(const std::string& uuid) const;
    [[nodiscard]] bool folderSizesLoaded(const std::string& uuid) const {
        return folderSizesLoaded_.contains(uuid);
    }
    // "Scanning" while the card's content is being counted, "No M8 files" when the count found
    // none; nothing otherwise.
    [[nodiscard]] std::optional<std::string> cardContentLabel(const std::string& uuid) const;
    [[nodiscard]] std::optional<ContentCounts> cardContentSummary(const std::string& uuid) const;
    [[nodiscard]] std::vector<FileDiff> cardQuickDiffs(const std::string& uuid) const;
    [[nodiscard]] bool isRunning(const std::string& uuid) const { return runningTasks_.contains(uuid); }
    [[nodiscard]] bool hasCountdown(const std::string& uuid) const { return autoBackupTasks_.contains(uuid); }
    // What the card's last successful run published, for front ends that print it.
    [[nodiscard]] std::optional<BackupOutcome> lastOutcome(const std::string& uuid) const;

    // Property getters for QML.
    [[nodiscard]] QVariantList detectedCardsVariant() const;
    [[nodiscard]] QString scanErrorText() const;
    [[nodiscard]] QVariantMap scannerStatusVariant() const;
    [[nodiscard]] QVariantMap cardStatesVariant() const;
    [[nodiscard]] QVariantMap cardLogsVariant() const;
    [[nodiscard]] QVariantMap cardStartTimeVariant() const;
    [[nodiscard]] QVariantMap cardBackupInfoVariant() const;
    [[nodiscard]] QVariantMap cardProgressVariant() const;
    [[nodiscard]] QVariantMap cardFilesRemainingVariant() const;
    [[nodiscard]] QVariantMap cardContentSummaryVariant() const;
    [[nodiscard]] QVariantMap cardContentScanProgressVariant() const;
    [[nodiscard]] QVariantMap cardContentLabelVariant() const;
    [[nodiscard]] QVariantMap latestNotesVariant() const;
    [[nodiscard]] QVariantMap cardFoldersVariant() const;
    [[nodiscard]] QVariantMap cardSongsVariant() const;
    [[nodiscard]] QStringList folderSizesLoadedVariant() const;
    [[nodiscard]] QVariantMap cardFreshnessVariant() const;
    [[nodiscard]] QVariantMap cardDiffSummaryVariant() const;
    [[nodiscard]] QStringList cardDiffLoadingVariant() const;
    [[nodiscard]] QVariantMap destinationOverrideVariant() const;

signals:
    void detectedCardsChanged();
    void isScanningChanged();
    void scanErrorChanged();
    void scannerStatusChanged();
    void cardStatesChanged();
    void cardLogsChanged();
    void cardStartTimeChanged();
    void cardBackupInfoChanged();
    void cardProgressChanged();
    void cardFilesRemainingChanged();
    void cardContentSummaryChanged();
    void cardContentScanProgressChanged();
    void cardContentLabelChanged();
    void latestNotesChanged();
    void cardFoldersChanged();
    void cardSongsChanged();
    void folderSizesLoadedChanged();
    void cardFreshnessChanged();
    void cardDiffSummaryChanged();
    void cardDiffLoadingChanged();
    void destinationOverrideChanged();
    // Any setting changed: what the screen shows from the settings may need drawing again.
    void settingsChanged();
    // Not properties: moments a front end may wait for.
    void scanFinished();
    void backupFinished(const QString& uuid);
    void ejectFinished(const QString& uuid, const QString& error);

private:
    struct RunResult {
        std::optional<BackupOutcome> outcome;
        std::exception_ptr error;
    };

    // Scanning and the card list (BackupViewModel.cpp).
    void applyScan(const std::string& generation, const VolumeScanner::ScanResult& result);
    void applyScanError(const std::string& generation, const std::string& error);
    void forgetCard(const std::string& uuid);
    void syncWatchers();
    void loadRepositoryFacts(const SDCard& card, const std::filesystem::path& store);
    void forwardSettingsChanges();
    void loadOptions(const SDCard& card);
    void applyOptions(const std::string& uuid, const std::string& generation,
                      std::vector<FolderSelection> folders, std::vector<SongItem> songs);
    void loadFolderSizes(const SDCard& card, const std::string& generation);
    void applyFolderSizes(const std::string& uuid, const std::string& generation,
                          const std::map<std::string, std::int64_t>& sizes);
    void stopOptionsWork(const std::string& uuid);
    void setState(const std::string& uuid, CardState state);
    void onMountsChanged();

    // One run (BackupViewModelRun.cpp).
    void runBackup(const SDCard& card);
    std::optional<std::filesystem::path> takeDestinationOverride(const std::string& uuid);
    BackupRequest requestFor(const SDCard& card,
                             const std::optional<std::filesystem::path>& destination) const;
    void runEnded(const SDCard& card, BackgroundTasks::Id id);
    void startAfterRunEject(const SDCard& card);
    void releaseLease(const std::string& uuid);
    void startRunTask(const SDCard& card, const BackupRequest& request, const Lease& lease);
    void receiveLine(const std::string& uuid, const std::string& line);
    void drainInbox(const std::string& uuid);
    void scheduleFlush(const std::string& uuid);
    void flushOutput(const std::string& uuid);
    void applyEvent(const std::string& uuid, const TransferEvent& event);
    void completeRun(const SDCard& card, const RunResult& result, const std::filesystem::path& baseURL);
    void completeSuccess(const SDCard& card, const BackupOutcome& outcome,
                         const std::filesystem::path& baseURL);
    void completeFailure(const SDCard& card, const std::exception_ptr& error);
    void appendLog(const std::string& uuid, const std::string& line);
    std::optional<std::string> ejectWithRetries(const SDCard& card, std::stop_token token) const;
    void stopCardWorkForEject(const std::string& uuid);
    BackupOperation::VolumeValidator volumeValidator() const;

    // Auto-backup, freshness and content (BackupViewModelFreshness.cpp).
    void armCountdown(const SDCard& card);
    void countdownEnded(const std::string& uuid);
    void refreshFreshness(const SDCard& card);
    void applyComparison(const std::string& uuid, const std::string& generation,
                         const BackupFreshness& freshness, const std::vector<FileDiff>& differences);
    void scanContent(const SDCard& card);
    void setContentScanning(const std::string& uuid, std::optional<BackgroundTasks::Id> task);
    void onCardChanged(const std::string& uuid);
    void onBackupsChanged(const std::string& baseFolder);
    void onCardContentMayHaveChanged(const std::string& uuid);
    void stopCachedWork(const std::string& uuid);
    [[nodiscard]] const SDCard* detectedCard(const std::string& uuid) const;
    [[nodiscard]] std::filesystem::path baseFolder() const;

    // Setters of the per-card maps: the property's signal is emitted only on a real change.
    template <typename Map, typename Value>
    void assign(Map& map, const std::string& uuid, Value value, void (BackupViewModel::*changed)()) {
        auto found = map.find(uuid);
        if (found != map.end() && found->second == value) return;
        map[uuid] = std::move(value);
        emit(this->*changed)();
    }
    // Forgets a card's task when it is still the one that ended, not a later replacement.
    static bool forgetTask(std::map<std::string, BackgroundTasks::Id>& tasks, const std::string& uuid,
                           BackgroundTasks::Id id) {
        auto found = tasks.find(uuid);
        if (found == tasks.end() || found->second != id) return false;
        tasks.erase(found);
        return true;
    }
    template <typename Map>
    void erase(Map& map, const std::string& uuid, void (BackupViewModel::*changed)()) {
        if (map.erase(uuid) > 0) emit(this->*changed)();
    }

    AppSettings& settings_;
    Dependencies dependencies_;
    FeatureAccessAdmission featureAccess_;
    std::shared_ptr<MainThreadPoster> poster_;
    BackgroundTasks tasks_;

    std::vector<SDCard> detectedCards_;
    bool isScanning_ = false;
    std::optional<std::string> scanError_;
    std::optional<VolumeScanner::ScanResult> scannerStatus_;
    std::map<std::string, CardState> cardStates_;
    std::map<std::string, std::vector<std::string>> cardLogs_;
    std::map<std::string, Clock::time_point> cardStartTime_;
    std::map<std::string, BackupInfo> cardBackupInfo_;
    std::map<std::string, double> cardProgress_;
    std::map<std::string, std::int64_t> cardFilesRemaining_;
    std::map<std::string, ContentCounts> cardContentSummary_;
    std::map<std::string, ContentCounts> cardContentScanProgress_;
    std::map<std::string, std::string> latestNotes_;
    std::map<std::string, std::vector<FolderSelection>> cardFolders_;
    std::map<std::string, std::vector<SongItem>> cardSongs_;
    std::set<std::string> folderSizesLoaded_;
    std::map<std::string, BackupFreshness> cardFreshness_;
    std::map<std::string, DiffSummary> cardDiffSummary_;
    std::set<std::string> cardDiffLoading_;
    std::map<std::string, std::filesystem::path> destinationOverride_;
    std::map<std::string, std::vector<FileDiff>> cardQuickDiffs_;
    std::map<std::string, BackupOutcome> lastOutcomes_;

    std::map<std::string, BackgroundTasks::Id> runningTasks_;
    std::map<std::string, BackgroundTasks::Id> autoBackupTasks_;
    std::map<std::string, BackgroundTasks::Id> contentScanTasks_;
    std::map<std::string, BackgroundTasks::Id> freshnessTasks_;
    std::map<std::string, BackgroundTasks::Id> songLoadTasks_;    // the options sheet's folders and songs
    std::map<std::string, BackgroundTasks::Id> folderSizeTasks_;  // the sizes of those folders
    std::map<std::string, std::string> optionsGeneration_;        // the sheet that loads are for
    std::set<std::string> cancelledRuns_;                         // asked to stop: no eject after them
    std::map<std::string, Clock::time_point> contentScanFinishedAt_;
    std::set<std::string> freshnessRerun_;  // changed again while its check ran
    std::map<std::string, std::string> diffGeneration_;
    std::map<std::string, std::unique_ptr<QTimer>> freshnessTimers_;
    std::map<std::string, BackupProgressTracker> progressTrackers_;
    std::map<std::string, std::vector<std::string>> pendingLogLines_;
    std::map<std::string, double> pendingProgress_;
    std::set<std::string> outputFlushScheduled_;
    std::map<std::string, Clock::time_point> cardLastOutputAt_;
    std::map<std::string, Lease> leases_;
    std::map<std::string, std::unique_ptr<CardChangeWatcher>> cardWatchers_;
    std::string scanGeneration_;
    std::optional<std::set<std::string>> armAfterScan_;  // the cards present before a mount
    bool hasScanned_ = false;                            // a scan's cards have been applied

    // Lines from a run's thread wait here until the GUI thread drains them in one queued call.
    std::mutex inboxMutex_;
    std::map<std::string, std::vector<std::string>> inbox_;  // guarded by inboxMutex_

    std::vector<NotificationCenter::Token> observers_;
    std::vector<QMetaObject::Connection> settingsCancellable_;  // every setting's change, forwarded
    std::unique_ptr<MountMonitor> mountMonitor_;
};

}  // namespace tapekeep

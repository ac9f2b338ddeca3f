#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/BackupOperation.h"
#include "cards/VolumeScanner.h"
#include "content/ContentCount.h"
#include "core/FileDiff.h"
#include "core/NotificationCenter.h"
#include "core/SDCard.h"
#include "workflows/AutoBackupCountdown.h"
#include "workflows/BackupFreshness.h"
#include "workflows/BackupInfo.h"
#include "workflows/BackupOptionsSheet.h"
#include "workflows/BackupRunner.h"
#include "workflows/BackupSetFacts.h"
#include "workflows/CardChangeFollower.h"
#include "workflows/CardEjector.h"
#include "workflows/CardState.h"
#include "workflows/CardStateTable.h"
#include "workflows/CompletionFeedback.h"
#include "workflows/ContentSummaries.h"
#include "workflows/DetectedCardList.h"
#include "workflows/FeatureAccessAdmission.h"
#include "workflows/FolderSelection.h"
#include "workflows/FreshnessTracker.h"
#include "workflows/MainThreadPoster.h"
#include "workflows/RunOutputCoalescer.h"
#include "workflows/SongItem.h"

namespace tapekeep {

class AppSettings;
class SettingsStore;
class MountMonitor;

// The controller of the Backup screen: the detected cards and, for each card (keyed by its volume
// UUID), a state, a log, progress, freshness and cached facts. It starts backups under the card's
// lease, counts down to automatic backups of newly connected cards, and tells whether a card
// differs from its latest backup.
//
// The work itself is done by collaborators that the controller owns, one responsibility each: the
// card list, the runs, their output, the options sheet, the ejects, the countdowns, the store's
// facts, the freshness, the content summaries and the following of card changes. The controller
// ties them together, and every observable value of theirs is a property of this one object, so
// that front ends bind to one controller.
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
    // Chooses (or clears) the one-shot destination in the open options sheet, keeping its choices.
    void chooseDestination(const SDCard& card, const std::optional<std::filesystem::path>& destination);
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
    [[nodiscard]] const std::vector<SDCard>& detectedCards() const { return cards_.cards(); }
    [[nodiscard]] bool isScanning() const { return cards_.isScanning(); }
    [[nodiscard]] const std::optional<std::string>& scanError() const { return cards_.scanError(); }
    [[nodiscard]] const std::optional<VolumeScanner::ScanResult>& scannerStatus() const {
        return cards_.scannerStatus();
    }
    [[nodiscard]] CardState cardState(const std::string& uuid) const { return states_.state(uuid); }
    [[nodiscard]] std::vector<std::string> cardLog(const std::string& uuid) const {
        return output_.log(uuid);
    }
    [[nodiscard]] std::optional<double> cardProgress(const std::string& uuid) const {
        return output_.progress(uuid);
    }
    [[nodiscard]] std::optional<std::int64_t> cardFilesRemaining(const std::string& uuid) const {
        return output_.filesRemaining(uuid);
    }
    [[nodiscard]] std::optional<BackupFreshness> cardFreshness(const std::string& uuid) const {
        return freshness_.freshness(uuid);
    }
    [[nodiscard]] std::optional<BackupInfo> cardBackupInfo(const std::string& uuid) const {
        return facts_.info(uuid);
    }
    [[nodiscard]] std::optional<std::string> latestNote(const std::string& uuid) const {
        return facts_.latestNote(uuid);
    }
    [[nodiscard]] std::vector<FolderSelection> cardFolders(const std::string& uuid) const {
        return options_.folders(uuid);
    }
    [[nodiscard]] std::vector<SongItem> cardSongs(const std::string& uuid) const {
        return options_.songs(uuid);
    }
    [[nodiscard]] bool folderSizesLoaded(const std::string& uuid) const { return options_.sizesLoaded(uuid); }
    // "Scanning" while the card's content is being counted, "No M8 files" when the count found
    // none; nothing otherwise.
    [[nodiscard]] std::optional<std::string> cardContentLabel(const std::string& uuid) const {
        return content_.label(uuid);
    }
    [[nodiscard]] std::optional<ContentCounts> cardContentSummary(const std::string& uuid) const {
        return content_.summary(uuid);
    }
    [[nodiscard]] std::vector<FileDiff> cardQuickDiffs(const std::string& uuid) const {
        return freshness_.quickDiffs(uuid);
    }
    [[nodiscard]] std::optional<DiffSummary> cardDiffSummary(const std::string& uuid) const {
        return freshness_.diffSummary(uuid);
    }
    [[nodiscard]] bool isDiffLoading(const std::string& uuid) const { return freshness_.isDiffLoading(uuid); }
    [[nodiscard]] std::optional<Clock::time_point> cardStartTime(const std::string& uuid) const {
        return runner_.startTime(uuid);
    }
    [[nodiscard]] std::optional<std::filesystem::path> destinationOverride(const std::string& uuid) const {
        return options_.destinationOverride(uuid);
    }
    [[nodiscard]] bool isRunning(const std::string& uuid) const { return runner_.isRunning(uuid); }
    [[nodiscard]] bool hasCountdown(const std::string& uuid) const { return countdown_.contains(uuid); }
    // What the card's last successful run published, for front ends that print it.
    [[nodiscard]] std::optional<BackupOutcome> lastOutcome(const std::string& uuid) const {
        return runner_.lastOutcome(uuid);
    }

    // Property getters for QML.
    [[nodiscard]] QVariantList detectedCardsVariant() const { return cards_.cardsVariant(); }
    [[nodiscard]] QString scanErrorText() const { return cards_.scanErrorText(); }
    [[nodiscard]] QVariantMap scannerStatusVariant() const { return cards_.scannerStatusVariant(); }
    [[nodiscard]] QVariantMap cardStatesVariant() const { return states_.variant(); }
    [[nodiscard]] QVariantMap cardLogsVariant() const { return output_.logsVariant(); }
    [[nodiscard]] QVariantMap cardStartTimeVariant() const { return runner_.startTimeVariant(); }
    [[nodiscard]] QVariantMap cardBackupInfoVariant() const { return facts_.infoVariant(); }
    [[nodiscard]] QVariantMap cardProgressVariant() const { return output_.progressVariant(); }
    [[nodiscard]] QVariantMap cardFilesRemainingVariant() const { return output_.filesRemainingVariant(); }
    [[nodiscard]] QVariantMap cardContentSummaryVariant() const { return content_.summaryVariant(); }
    [[nodiscard]] QVariantMap cardContentScanProgressVariant() const {
        return content_.scanProgressVariant();
    }
    [[nodiscard]] QVariantMap cardContentLabelVariant() const;
    [[nodiscard]] QVariantMap latestNotesVariant() const { return facts_.latestNotesVariant(); }
    [[nodiscard]] QVariantMap cardFoldersVariant() const { return options_.foldersVariant(); }
    [[nodiscard]] QVariantMap cardSongsVariant() const { return options_.songsVariant(); }
    [[nodiscard]] QStringList folderSizesLoadedVariant() const { return options_.sizesLoadedVariant(); }
    [[nodiscard]] QVariantMap cardFreshnessVariant() const { return freshness_.freshnessVariant(); }
    [[nodiscard]] QVariantMap cardDiffSummaryVariant() const { return freshness_.diffSummaryVariant(); }
    [[nodiscard]] QStringList cardDiffLoadingVariant() const { return freshness_.diffLoadingVariant(); }
    [[nodiscard]] QVariantMap destinationOverrideVariant() const {
        return options_.destinationOverrideVariant();
    }

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
    void forwardSettingsChanges();
    void forwardCollaboratorSignals();
    void connectCollaborators();

    // Scanning and the card list.
    void forgetCard(const std::string& uuid);
    void cardsApplied();
    void scanFinishedForCountdown();
    void onMountsChanged();

    // Runs and ejects.
    void runBackup(const SDCard& card);
    [[nodiscard]] BackupRunner::Plan planFor(const SDCard& card,
                                             const std::optional<std::filesystem::path>& destination) const;
    void runReleased(const std::string& uuid);
    void countdownElapsed(const std::string& uuid);
    void stopCardWorkForEject(const std::string& uuid);

    // What follows each card's content without being asked.
    void refreshFreshness(const SDCard& card);
    void scanContent(const SDCard& card);
    void onCardChanged(const std::string& uuid);
    void recheckCard(const std::string& uuid);
    void onBackupsChanged(const std::string& baseFolder);
    [[nodiscard]] std::filesystem::path baseFolder() const;

    AppSettings& settings_;
    Dependencies dependencies_;
    FeatureAccessAdmission featureAccess_;
    std::shared_ptr<MainThreadPoster> poster_;  // for the observers of mounts and notifications

    // The collaborators, each destroyed (its tasks stopped) before what it uses. The runner's runs
    // call into the output and the ejector, so it is declared after them.
    CardStateTable states_{[this] { emit cardStatesChanged(); }};
    RunOutputCoalescer output_;
    CardEjector ejector_;
    BackupOptionsSheet options_;
    BackupSetFacts facts_;
    FreshnessTracker freshness_;
    ContentSummaries content_;
    CardChangeFollower changes_;
    AutoBackupCountdown countdown_;
    BackupRunner runner_;
    DetectedCardList cards_;

    std::vector<NotificationCenter::Token> observers_;
    std::vector<QMetaObject::Connection> settingsCancellable_;  // every setting's change, forwarded
    std::unique_ptr<MountMonitor> mountMonitor_;
};

}  // namespace tapekeep

#pragma once

#include <QObject>
#include <QStringList>
#include <QVariant>
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
#include "backup/RsyncLogStore.h"
#include "backup/TransferProgressLine.h"
#include "cards/Lease.h"
#include "cards/VolumeScanner.h"
#include "core/BackupSet.h"
#include "core/BackupVersion.h"
#include "core/FileDiff.h"
#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/FeatureAccessAdmission.h"
#include "workflows/MainThreadPoster.h"
#include "workflows/RestoreChoice.h"
#include "workflows/RestoreOperation.h"
#include "workflows/RestoreStep.h"
#include "workflows/UndoableRestore.h"
#include "workflows/VersionExport.h"

namespace tapekeep {

class AppSettings;

// The controller of the restore wizard: from a target card through a backup set and a version to a
// choice of content, a dry-run preview of what would change, and the run of rsync from the version
// to the card under the card's restore lease. A restore adds and updates; it never deletes on the
// card and never replaces a file that is newer there than in the version.
//
// Lives on the GUI thread and is used only there. Scans, listings and rsync run on background tasks;
// their results come back as queued calls, and generation values drop those that were superseded.
class RestoreViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap step READ stepVariant NOTIFY stepChanged)
    Q_PROPERTY(QVariantList availableTargets READ availableTargetsVariant NOTIFY availableTargetsChanged)
    Q_PROPERTY(QVariantList availableSets READ availableSetsVariant NOTIFY availableSetsChanged)
    Q_PROPERTY(QVariant selectedTarget READ selectedTargetVariant NOTIFY selectedTargetChanged)
    Q_PROPERTY(QVariant selectedSet READ selectedSetVariant NOTIFY selectedSetChanged)
    Q_PROPERTY(QVariant selectedVersion READ selectedVersionVariant NOTIFY selectedVersionChanged)
    Q_PROPERTY(QStringList logLines READ logLinesVariant NOTIFY logLinesChanged)
    Q_PROPERTY(bool isLoadingTargets READ isLoadingTargets NOTIFY isLoadingTargetsChanged)
    Q_PROPERTY(bool isLoadingSets READ isLoadingSets NOTIFY isLoadingSetsChanged)
    Q_PROPERTY(QVariantMap versionNotes READ versionNotesVariant NOTIFY versionNotesChanged)
    Q_PROPERTY(QVariant noteSaveError READ noteSaveErrorVariant NOTIFY noteSaveErrorChanged)
    Q_PROPERTY(QVariantList availableFolders READ availableFoldersVariant NOTIFY availableFoldersChanged)
    Q_PROPERTY(bool folderSizesLoaded READ folderSizesLoaded NOTIFY folderSizesLoadedChanged)
    Q_PROPERTY(QVariantList availableSongs READ availableSongsVariant NOTIFY availableSongsChanged)
    Q_PROPERTY(bool isLoadingSongs READ isLoadingSongs NOTIFY isLoadingSongsChanged)
    Q_PROPERTY(QString songsRestoreMode READ songsRestoreModeText WRITE setSongsRestoreModeText NOTIFY
                   songsRestoreModeChanged)
    Q_PROPERTY(QString restoreMode READ restoreModeText WRITE setRestoreModeText NOTIFY restoreModeChanged)
    Q_PROPERTY(QVariantMap folderChildren READ folderChildrenVariant NOTIFY folderChildrenChanged)
    Q_PROPERTY(QStringList loadingFolderChildren READ loadingFolderChildrenVariant NOTIFY
                   loadingFolderChildrenChanged)
    Q_PROPERTY(QVariant diffResult READ diffResultVariant NOTIFY diffResultChanged)
    Q_PROPERTY(bool isLoadingDiff READ isLoadingDiff NOTIFY isLoadingDiffChanged)
    Q_PROPERTY(QVariant previewError READ previewErrorVariant NOTIFY previewErrorChanged)
    Q_PROPERTY(bool safetyBackupPlanned READ safetyBackupPlanned NOTIFY safetyBackupPlannedChanged)
    Q_PROPERTY(QVariant safetyVersion READ safetyVersionVariant NOTIFY safetyVersionChanged)
    Q_PROPERTY(QVariantMap versionSizes READ versionSizesVariant NOTIFY versionSizesChanged)
    // The same sizes as the user reads them ("1.2 MB"), by version folder name.
    Q_PROPERTY(QVariantMap versionSizeTexts READ versionSizeTextsVariant NOTIFY versionSizesChanged)
    Q_PROPERTY(bool isLoadingVersionSizes READ isLoadingVersionSizes NOTIFY isLoadingVersionSizesChanged)
    Q_PROPERTY(bool isExporting READ isExporting NOTIFY isExportingChanged)
    Q_PROPERTY(double exportProgress READ exportProgress NOTIFY exportProgressChanged)
    Q_PROPERTY(int exportPercent READ exportPercent NOTIFY exportPercentChanged)
    Q_PROPERTY(QVariant progress READ progressVariant NOTIFY progressChanged)
    Q_PROPERTY(QVariant filesRemaining READ filesRemainingVariant NOTIFY progressChanged)

public:
    // What the controller needs from outside; each has a working default, and tests replace some.
    struct Dependencies {
        // Default: the mount points below the default volume roots, skipping the volumes that the
        // setting "excludedVolumes" names.
        std::function<std::unique_ptr<VolumeScanner>()> makeScanner;
        BackupOperation::RsyncRunner runRsync = BackupOperation::defaultRsyncRunner();
        std::function<void(const std::filesystem::path& mountPoint, std::stop_token token)> ejectVolume;
        RsyncLogStore logStore = RsyncLogStore::shared();
        std::optional<std::filesystem::path> baseFolderOverride;  // a front end's --base
        std::optional<std::string> rsyncPathOverride;             // a front end's --rsync
        std::chrono::milliseconds flushDelay{250};
        BackupOperation::Environment environment = BackupOperation::Environment::system();  // safety backups
        VersionExport::Exporter exportFolder = ZipExporter::exportFolder;
    };

    RestoreViewModel(AppSettings& settings, Dependencies dependencies, QObject* parent = nullptr);
    ~RestoreViewModel() override;

    // The wizard's buttons.
    Q_INVOKABLE void loadTargets();
    void selectTarget(const SDCard& card);
    void selectSet(const BackupSet& set);
    void selectVersion(const BackupVersion& version);
    Q_INVOKABLE void loadPreview();
    Q_INVOKABLE void startRestore();
    Q_INVOKABLE void cancelRestore();
    void saveNote(const BackupVersion& version, const std::string& text);
    Q_INVOKABLE void ejectTarget();
    // One page back, from the set to the preview; a preview under way is dropped. Nothing while a
    // run is under way or after it: the last page starts over instead.
    Q_INVOKABLE void goBack();
    // The first page again, with the cards and sets listed afresh; the earlier choices stay marked.
    Q_INVOKABLE void startOver();
    // Undoes the selected target's last restore from its safety version, under the card's restore
    // lease; the step goes to running and then done, as a restore's does.
    Q_INVOKABLE void undoLastRestore();
    // A version as a ZIP archive at destination, on a background task, one export at a time; the
    // log says how it went. From QML the destination is a path or a file URL.
    void exportVersion(const BackupVersion& version, const std::filesystem::path& destination);
    Q_INVOKABLE void exportSelectedVersion(const QString& destination);
    Q_INVOKABLE void exportVersion(int versionIndex, const QString& destination);
    Q_INVOKABLE void cancelExport();

    // The wizard's choices as QML makes them: indexes into availableTargets, availableSets and the
    // selected set's versions; an index out of range does nothing.
    Q_INVOKABLE void selectTarget(int index);
    Q_INVOKABLE void selectSet(int index);
    Q_INVOKABLE void selectVersion(int index);
    Q_INVOKABLE void saveNote(int versionIndex, const QString& text);
    Q_INVOKABLE void chooseFolder(const QString& name, bool selected);
    Q_INVOKABLE void chooseSong(const QString& relativePath, bool selected);
    Q_INVOKABLE void chooseChild(const QString& folderPath, const QString& relativePath, bool selected);
    Q_INVOKABLE void openFolder(const QString& folderPath);

    // The choice of content.
    void setRestoreMode(RestoreMode mode);
    void setSongsRestoreMode(SongsRestoreMode mode);
    void setFolderSelected(const std::string& name, bool selected);
    void setSongSelected(const std::string& relativePath, bool selected);
    void loadFolderChildren(const std::string& folderPath);
    void setChildSelected(const std::string& folderPath, const std::string& relativePath, bool selected);
    Q_INVOKABLE void confirmSelection();

    // Typed views of the observable state.
    [[nodiscard]] const RestoreStep& step() const { return step_; }
    [[nodiscard]] const std::vector<SDCard>& availableTargets() const { return availableTargets_; }
    [[nodiscard]] const std::vector<BackupSet>& availableSets() const { return availableSets_; }
    [[nodiscard]] const std::optional<SDCard>& selectedTarget() const { return selectedTarget_; }
    [[nodiscard]] const std::optional<BackupSet>& selectedSet() const { return selectedSet_; }
    [[nodiscard]] const std::optional<BackupVersion>& selectedVersion() const { return selectedVersion_; }
    [[nodiscard]] const std::vector<std::string>& logLines() const { return logLines_; }
    [[nodiscard]] bool isLoadingTargets() const { return isLoadingTargets_; }
    [[nodiscard]] bool isLoadingSets() const { return isLoadingSets_; }
    [[nodiscard]] const std::map<std::string, std::string>& versionNotes() const { return versionNotes_; }
    [[nodiscard]] const std::optional<std::string>& noteSaveError() const { return noteSaveError_; }
    [[nodiscard]] const std::vector<FolderSelection>& availableFolders() const { return choice_.folders; }
    [[nodiscard]] bool folderSizesLoaded() const { return folderSizesLoaded_; }
    [[nodiscard]] const std::vector<SongItem>& availableSongs() const { return choice_.songs; }
    [[nodiscard]] bool isLoadingSongs() const { return isLoadingSongs_; }
    [[nodiscard]] SongsRestoreMode songsRestoreMode() const { return choice_.songsMode; }
    [[nodiscard]] RestoreMode restoreMode() const { return choice_.mode; }
    [[nodiscard]] const std::map<std::string, std::vector<RestoreSubpathSelection>>& folderChildren() const {
        return choice_.folderChildren;
    }
    [[nodiscard]] const std::set<std::string>& loadingFolderChildren() const {
        return loadingFolderChildren_;
    }
    [[nodiscard]] const std::optional<std::vector<FileDiff>>& diffResult() const { return diffResult_; }
    [[nodiscard]] bool isLoadingDiff() const { return isLoadingDiff_; }
    [[nodiscard]] const std::optional<std::string>& previewError() const { return previewError_; }
    // Whether the previewed restore would back the card up first (the setting is on and the card
    // differs from its latest version); read with the preview.
    [[nodiscard]] bool safetyBackupPlanned() const { return safetyBackupPlanned_; }
    // The version the last run made before its restore, or that its undo put back; absent otherwise.
    [[nodiscard]] const std::optional<std::filesystem::path>& safetyVersion() const { return safetyVersion_; }
    [[nodiscard]] const std::map<std::string, std::int64_t>& versionSizes() const { return versionSizes_; }
    [[nodiscard]] bool isLoadingVersionSizes() const { return isLoadingVersionSizes_; }
    [[nodiscard]] bool hasInitialized() const { return hasInitialized_; }
    [[nodiscard]] bool isRestoring() const { return restoreTask_.has_value(); }
    [[nodiscard]] bool isExporting() const { return versionExport_.isExporting(); }
    [[nodiscard]] double exportProgress() const { return versionExport_.progress(); }
    [[nodiscard]] int exportPercent() const { return versionExport_.percent(); }
    // The share of the run's files that rsync has checked, 0 to 1, from its "to-chk=" counts; absent
    // before the first count, and while it still builds its file list.
    [[nodiscard]] const std::optional<double>& progress() const { return progress_; }
    [[nodiscard]] const std::optional<std::int64_t>& filesRemaining() const { return filesRemaining_; }

    // Property getters for QML.
    [[nodiscard]] QVariantMap stepVariant() const;
    [[nodiscard]] QVariantList availableTargetsVariant() const;
    [[nodiscard]] QVariantList availableSetsVariant() const;
    [[nodiscard]] QVariant selectedTargetVariant() const;
    [[nodiscard]] QVariant selectedSetVariant() const;
    [[nodiscard]] QVariant selectedVersionVariant() const;
    [[nodiscard]] QStringList logLinesVariant() const;
    [[nodiscard]] QVariantMap versionNotesVariant() const;
    [[nodiscard]] QVariant noteSaveErrorVariant() const;
    [[nodiscard]] QVariantList availableFoldersVariant() const;
    [[nodiscard]] QVariantList availableSongsVariant() const;
    [[nodiscard]] QString songsRestoreModeText() const;
    void setSongsRestoreModeText(const QString& mode);
    [[nodiscard]] QString restoreModeText() const;
    void setRestoreModeText(const QString& mode);
    [[nodiscard]] QVariantMap folderChildrenVariant() const;
    [[nodiscard]] QStringList loadingFolderChildrenVariant() const;
    [[nodiscard]] QVariant diffResultVariant() const;
    [[nodiscard]] QVariant previewErrorVariant() const;
    [[nodiscard]] QVariantMap versionSizesVariant() const;
    [[nodiscard]] QVariantMap versionSizeTextsVariant() const;
    [[nodiscard]] QVariant safetyVersionVariant() const;
    [[nodiscard]] QVariant progressVariant() const;
    [[nodiscard]] QVariant filesRemainingVariant() const;

signals:
    void stepChanged();
    void availableTargetsChanged();
    void availableSetsChanged();
    void selectedTargetChanged();
    void selectedSetChanged();
    void selectedVersionChanged();
    void logLinesChanged();
    void isLoadingTargetsChanged();
    void isLoadingSetsChanged();
    void versionNotesChanged();
    void noteSaveErrorChanged();
    void availableFoldersChanged();
    void folderSizesLoadedChanged();
    void availableSongsChanged();
    void isLoadingSongsChanged();
    void songsRestoreModeChanged();
    void restoreModeChanged();
    void folderChildrenChanged();
    void loadingFolderChildrenChanged();
    void diffResultChanged();
    void isLoadingDiffChanged();
    void previewErrorChanged();
    void versionSizesChanged();
    void safetyBackupPlannedChanged();
    void safetyVersionChanged();
    void isLoadingVersionSizesChanged();
    void isExportingChanged();
    void exportProgressChanged();
    void exportPercentChanged();
    void progressChanged();
    // Not properties: moments a front end may wait for.
    void previewFinished();
    void restoreFinished();
    void ejectFinished(const QString& error);  // empty on success
    void exportFinished();

private:
    struct VersionContents {
        std::vector<FolderSelection> folders;
        std::vector<SongItem> songs;
    };
    struct RepositoryFacts {
        std::optional<BackupSet> set;
        std::map<std::string, std::string> notes;
        std::map<std::string, std::int64_t> sizes;
    };
    struct PreviewOutcome {
        std::optional<std::vector<FileDiff>> rows;
        std::string error;
        bool safetyBackup = false;
    };

    void applyTargets(const std::vector<SDCard>& targets);
    void loadSets();
    void applySets(const std::string& generation, std::vector<BackupSet> sets);
    void applyRepositoryFacts(const std::string& generation, RepositoryFacts facts);
    void applyVersionContents(const std::string& generation, VersionContents contents);
    void loadFolderSizes(const std::string& generation);
    void applyFolderSizes(const std::string& generation, const std::map<std::string, std::int64_t>& sizes);
    void stopVersionWork();
    void applyPreview(const std::string& generation, PreviewOutcome outcome);
    struct RunResult {
        RestoreStep step = RestoreStep::succeeded();
        std::optional<std::filesystem::path> safetyVersion;
    };
    bool takeLease();
    void startRestoreTask(const UndoableRestore::Request& request);
    void startRunTask(std::function<RunResult(std::stop_token)> run);
    void completeRestore(const RunResult& result);
    [[nodiscard]] UndoableRestore::Request undoableRequest() const;
    [[nodiscard]] UndoableRestore::Dependencies runDependencies() const;
    void receiveLine(const std::string& line);
    void showProgress(const TransferProgressLine& line);
    void resetProgress();
    [[nodiscard]] const BackupVersion* versionAt(int index) const;
    void exportVersionOrSayWhy(const BackupVersion* version, const QString& destination);
    void drainInbox();
    void scheduleFlush();
    void flushOutput();
    void appendLog(const std::string& line);
    [[nodiscard]] RestoreOperation::Request requestForSelection() const;
    [[nodiscard]] RestoreOperation::Validator validator() const;
    [[nodiscard]] std::filesystem::path baseFolder() const;
    [[nodiscard]] std::string rsyncPath() const;
    void setStep(RestoreStep step);
    void changeChoice(const std::function<void()>& change, void (RestoreViewModel::*changed)());
    [[nodiscard]] bool isChosen(const std::string& folderPath) const;

    // Sets the field; its signal goes out only on a real change.
    template <typename Value>
    void assign(Value& field, Value value, void (RestoreViewModel::*changed)()) {
        if (field == value) return;
        field = std::move(value);
        emit(this->*changed)();
    }
    // For records that are not compared (listings, rows): always a change, unless both are absent.
    template <typename Value>
    void replace(Value& field, Value value, void (RestoreViewModel::*changed)()) {
        field = std::move(value);
        emit(this->*changed)();
    }
    template <typename Value>
    void replace(std::optional<Value>& field, std::optional<Value> value,
                 void (RestoreViewModel::*changed)()) {
        if (!field && !value) return;
        field = std::move(value);
        emit(this->*changed)();
    }
    void cancelTask(std::optional<BackgroundTasks::Id>& task);

    AppSettings& settings_;
    Dependencies dependencies_;
    FeatureAccessAdmission featureAccess_;
    std::shared_ptr<MainThreadPoster> poster_;
    BackgroundTasks tasks_;

    RestoreStep step_;
    std::vector<SDCard> availableTargets_;
    std::vector<BackupSet> availableSets_;
    std::optional<SDCard> selectedTarget_;
    std::optional<BackupSet> selectedSet_;
    std::optional<BackupVersion> selectedVersion_;
    std::vector<std::string> logLines_;
    bool isLoadingTargets_ = false;
    bool isLoadingSets_ = false;
    std::map<std::string, std::string> versionNotes_;  // by version folder name
    std::optional<std::string> noteSaveError_;
    RestoreChoice choice_;  // the folders, songs, children and both modes
    bool folderSizesLoaded_ = false;
    bool isLoadingSongs_ = false;
    std::set<std::string> loadingFolderChildren_;
    std::optional<std::vector<FileDiff>> diffResult_;
    bool isLoadingDiff_ = false;
    std::optional<std::string> previewError_;
    std::map<std::string, std::int64_t> versionSizes_;  // by version folder name
    bool isLoadingVersionSizes_ = false;
    bool safetyBackupPlanned_ = false;
    std::optional<std::filesystem::path> safetyVersion_;
    std::optional<double> progress_;
    std::optional<std::int64_t> filesRemaining_;

    bool hasInitialized_ = false;
    std::optional<BackgroundTasks::Id> restoreTask_;
    std::optional<Lease> heldLease_;  // the card's restore lease, while a run holds it
    std::optional<BackgroundTasks::Id> targetsTask_;
    std::optional<BackgroundTasks::Id> folderSizeTask_;
    std::optional<BackgroundTasks::Id> versionSizeTask_;  // the set's versions, notes and sizes
    std::optional<BackgroundTasks::Id> diffTask_;
    std::optional<BackgroundTasks::Id> songLoadTask_;
    std::string diffGeneration_;
    std::string repositoryGeneration_;  // the set and version lists
    std::string versionGeneration_;     // the chosen version's folders, songs and sizes
    std::optional<std::filesystem::path> repositoryRoot_;
    std::vector<std::string> pendingLogLines_;
    bool outputFlushScheduled_ = false;
    VersionExport versionExport_;

    // Lines from the run's thread wait here until the GUI thread drains them in one queued call.
    std::mutex inboxMutex_;
    std::vector<std::string> inbox_;  // guarded by inboxMutex_
};

}  // namespace tapekeep

#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include <QObject>
#include <QString>

#include "core/SettingsStore.h"

namespace tapekeep {

// Every persisted user preference as one observable object over the settings store that the
// desktop application shares with the CLI. Reading never fails: a key that was never written, or
// holds a value of the wrong type or an unknown raw value, reads as its default. Getters read the
// store afresh, so two instances on one file (or the CLI) see each other's writes; a setter writes
// straight to the store and emits its signal only when the value really changed. A setter refuses
// (logs, keeps the old value) a raw value outside its closed set (SettingsKeys lists them), and a
// write that fails is logged and not notified: settings never throw into the user interface.
//
// Created once at start, on the GUI thread, and used only there; background work gets copies of
// the values it needs.
class AppSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString backupBaseDirPath READ backupBaseDirPath WRITE setBackupBaseDirPath NOTIFY
                   backupBaseDirPathChanged)
    Q_PROPERTY(int keepCount READ keepCount WRITE setKeepCount NOTIFY keepCountChanged)
    Q_PROPERTY(bool rotateBackups READ rotateBackups WRITE setRotateBackups NOTIFY rotateBackupsChanged)
    Q_PROPERTY(QString rsyncPath READ rsyncPath WRITE setRsyncPath NOTIFY rsyncPathChanged)
    Q_PROPERTY(QString appearance READ appearance WRITE setAppearance NOTIFY appearanceChanged)
    Q_PROPERTY(bool verifyAfterBackup READ verifyAfterBackup WRITE setVerifyAfterBackup NOTIFY
                   verifyAfterBackupChanged)
    Q_PROPERTY(bool playSoundOnCompletion READ playSoundOnCompletion WRITE setPlaySoundOnCompletion NOTIFY
                   playSoundOnCompletionChanged)
    Q_PROPERTY(QString completionSoundName READ completionSoundName WRITE setCompletionSoundName NOTIFY
                   completionSoundNameChanged)
    Q_PROPERTY(
        QString excludedVolumes READ excludedVolumes WRITE setExcludedVolumes NOTIFY excludedVolumesChanged)
    Q_PROPERTY(bool notifyOnCompletion READ notifyOnCompletion WRITE setNotifyOnCompletion NOTIFY
                   notifyOnCompletionChanged)
    Q_PROPERTY(bool autoBackupOnConnect READ autoBackupOnConnect WRITE setAutoBackupOnConnect NOTIFY
                   autoBackupOnConnectChanged)
    Q_PROPERTY(int autoBackupDelaySeconds READ autoBackupDelaySeconds WRITE setAutoBackupDelaySeconds NOTIFY
                   autoBackupDelaySecondsChanged)
    Q_PROPERTY(QString backupSetLabelsJSON READ backupSetLabelsJSON WRITE setBackupSetLabelsJSON NOTIFY
                   backupSetLabelsJSONChanged)
    Q_PROPERTY(bool menuBarMode READ menuBarMode WRITE setMenuBarMode NOTIFY menuBarModeChanged)
    Q_PROPERTY(
        bool askToEjectOnQuit READ askToEjectOnQuit WRITE setAskToEjectOnQuit NOTIFY askToEjectOnQuitChanged)
    Q_PROPERTY(QString m8Accent READ m8Accent WRITE setM8Accent NOTIFY m8AccentChanged)
    Q_PROPERTY(QString m8TypeMode READ m8TypeMode WRITE setM8TypeMode NOTIFY m8TypeModeChanged)
    Q_PROPERTY(QString m8TypeScale READ m8TypeScale WRITE setM8TypeScale NOTIFY m8TypeScaleChanged)
    Q_PROPERTY(QString mainTab READ mainTab WRITE setMainTab NOTIFY mainTabChanged)
    Q_PROPERTY(bool launchOnLogin READ launchOnLogin WRITE setLaunchOnLogin NOTIFY launchOnLoginChanged)
    Q_PROPERTY(bool autoEjectOnCompletion READ autoEjectOnCompletion WRITE setAutoEjectOnCompletion NOTIFY
                   autoEjectOnCompletionChanged)
    Q_PROPERTY(QString verifyMismatchActionRaw READ verifyMismatchActionRaw WRITE setVerifyMismatchActionRaw
                   NOTIFY verifyMismatchActionRawChanged)
    Q_PROPERTY(
        bool notifyOnFailure READ notifyOnFailure WRITE setNotifyOnFailure NOTIFY notifyOnFailureChanged)
    Q_PROPERTY(bool backupBeforeRestore READ backupBeforeRestore WRITE setBackupBeforeRestore NOTIFY
                   backupBeforeRestoreChanged)
    Q_PROPERTY(double prereleaseBannerDismissedAt READ prereleaseBannerDismissedAt WRITE
                   setPrereleaseBannerDismissedAt NOTIFY prereleaseBannerDismissedAtChanged)
    Q_PROPERTY(double prereleaseBannerLastShownAt READ prereleaseBannerLastShownAt WRITE
                   setPrereleaseBannerLastShownAt NOTIFY prereleaseBannerLastShownAtChanged)
    Q_PROPERTY(QString storeProblem READ storeProblem NOTIFY storeProblemChanged)

public:
    // Returns the preferred rsync executable, or nothing when no candidate is installed.
    using RsyncFinder = std::function<std::optional<std::string>()>;

    // Runs the start-up repairs, in order: the legacy auto-eject key is carried over, then the
    // rsync path is repaired with findBestRsync. A damaged settings file is not written: the
    // repaired rsync path then holds for this object's life. The store must outlive this object.
    explicit AppSettings(SettingsStore& store, QObject* parent = nullptr);
    AppSettings(SettingsStore& store, RsyncFinder findRsync, QObject* parent = nullptr);

    [[nodiscard]] QString backupBaseDirPath() const;
    [[nodiscard]] int keepCount() const;
    [[nodiscard]] bool rotateBackups() const;
    [[nodiscard]] QString rsyncPath() const;
    [[nodiscard]] QString appearance() const;
    [[nodiscard]] bool verifyAfterBackup() const;
    [[nodiscard]] bool playSoundOnCompletion() const;
    [[nodiscard]] QString completionSoundName() const;
    [[nodiscard]] QString excludedVolumes() const;
    [[nodiscard]] bool notifyOnCompletion() const;
    [[nodiscard]] bool autoBackupOnConnect() const;
    [[nodiscard]] int autoBackupDelaySeconds() const;
    [[nodiscard]] QString backupSetLabelsJSON() const;
    [[nodiscard]] bool menuBarMode() const;
    [[nodiscard]] bool askToEjectOnQuit() const;
    [[nodiscard]] QString m8Accent() const;
    [[nodiscard]] QString m8TypeMode() const;
    [[nodiscard]] QString m8TypeScale() const;
    [[nodiscard]] QString mainTab() const;
    [[nodiscard]] bool launchOnLogin() const;
    [[nodiscard]] bool autoEjectOnCompletion() const;
    [[nodiscard]] QString verifyMismatchActionRaw() const;
    [[nodiscard]] bool notifyOnFailure() const;
    [[nodiscard]] bool backupBeforeRestore() const;
    [[nodiscard]] double prereleaseBannerDismissedAt() const;
    [[nodiscard]] double prereleaseBannerLastShownAt() const;

    void setBackupBaseDirPath(const QString& value);
    void setKeepCount(int value);
    void setRotateBackups(bool value);
    void setRsyncPath(const QString& value);
    void setAppearance(const QString& value);
    void setVerifyAfterBackup(bool value);
    void setPlaySoundOnCompletion(bool value);
    void setCompletionSoundName(const QString& value);
    void setExcludedVolumes(const QString& value);
    void setNotifyOnCompletion(bool value);
    void setAutoBackupOnConnect(bool value);
    void setAutoBackupDelaySeconds(int value);
    void setBackupSetLabelsJSON(const QString& value);
    void setMenuBarMode(bool value);
    void setAskToEjectOnQuit(bool value);
    void setM8Accent(const QString& value);
    void setM8TypeMode(const QString& value);
    void setM8TypeScale(const QString& value);
    void setMainTab(const QString& value);
    void setLaunchOnLogin(bool value);
    void setAutoEjectOnCompletion(bool value);
    void setVerifyMismatchActionRaw(const QString& value);
    void setNotifyOnFailure(bool value);
    void setBackupBeforeRestore(bool value);
    void setPrereleaseBannerDismissedAt(double value);
    void setPrereleaseBannerLastShownAt(double value);

    // What the folder chooser is asked to show.
    struct FolderChoice {
        std::string title;
        std::string message;
        bool canCreateFolders = false;
    };
    // Shows a chooser for one folder; nothing when the user cancels.
    using FolderChooser = std::function<std::optional<std::filesystem::path>(const FolderChoice& choice)>;
    // Asks for the backup folder ("Choose Backup Folder") and stores the choice in backupBaseDirPath.
    std::optional<std::filesystem::path> chooseBaseDirectory(const FolderChooser& choose);

    // The label that the user gave a backup set; an empty label counts as none.
    [[nodiscard]] std::optional<std::string> label(const std::string& folderName) const;
    // Every label; a stored text that isn't a JSON object of strings reads as none.
    [[nodiscard]] std::map<std::string, std::string> labels() const;
    // Replaces all labels; stores "{}" when they cannot be encoded.
    void setLabels(const std::map<std::string, std::string>& labels);

    // Writes or removes the XDG autostart entry according to launchOnLogin. When that fails,
    // launchOnLogin is set to whether the entry now exists, so the switch shows the truth.
    void applyLaunchOnLogin();
    [[nodiscard]] static std::filesystem::path autostartEntry();  // configHome/autostart/tapekeep.desktop

    // Why changes are not being saved, for the window to show: the store's damage text, which names
    // the file, else the failure of the latest write; empty while the file takes writes. Brought up
    // to date after every write and by recheckStore().
    [[nodiscard]] QString storeProblem() const { return damage_.isEmpty() ? writeFailure_ : damage_; }
    // Reads the file again for damage that appeared or went away since the last look.
    Q_INVOKABLE void recheckStore();

    // The store behind these settings, for services that read a key themselves.
    [[nodiscard]] SettingsStore& store() const { return store_; }

Q_SIGNALS:
    void backupBaseDirPathChanged();
    void keepCountChanged();
    void rotateBackupsChanged();
    void rsyncPathChanged();
    void appearanceChanged();
    void verifyAfterBackupChanged();
    void playSoundOnCompletionChanged();
    void completionSoundNameChanged();
    void excludedVolumesChanged();
    void notifyOnCompletionChanged();
    void autoBackupOnConnectChanged();
    void autoBackupDelaySecondsChanged();
    void backupSetLabelsJSONChanged();
    void menuBarModeChanged();
    void askToEjectOnQuitChanged();
    void m8AccentChanged();
    void m8TypeModeChanged();
    void m8TypeScaleChanged();
    void mainTabChanged();
    void launchOnLoginChanged();
    void autoEjectOnCompletionChanged();
    void verifyMismatchActionRawChanged();
    void notifyOnFailureChanged();
    void backupBeforeRestoreChanged();
    void prereleaseBannerDismissedAtChanged();
    void prereleaseBannerLastShownAtChanged();
    void storeProblemChanged();

private:
    void migrateLegacyAutoEject();
    void repairRsyncPath(const RsyncFinder& findRsync);

    [[nodiscard]] QString readString(const char* key) const;
    [[nodiscard]] int readInt(const char* key) const;
    [[nodiscard]] bool readBool(const char* key) const;
    [[nodiscard]] double readDouble(const char* key) const;

    template <typename Value>
    void write(const char* key, const Value& value, void (AppSettings::*changed)());
    bool storeValue(const char* key, const nlohmann::json& value);  // false, logged, when the write fails
    void setStoreProblem(QString damage, QString writeFailure);

    SettingsStore& store_;
    std::optional<QString> unstoredRsyncPath_;  // the repair, when a damaged file could not take it
    QString damage_;                            // the store's damage text at the last look
    QString writeFailure_;                      // why the latest write failed, other than damage
};

}  // namespace tapekeep

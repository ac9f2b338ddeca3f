#pragma once

#include <QObject>

#include <filesystem>
#include <memory>
#include <optional>

namespace tapekeep {

class AppLifecycle;
class AppSettings;
class BackupViewModel;
class BrowseSessionViewModel;
class CanberraSoundPlayer;
class CardListModel;
class DesktopFeedback;
class DesktopNotifier;
class EditManifestStoreBox;
class EditSheets;
class LaunchTasks;
class M8Theme;
class MainWindowFrameKeeper;
class SettingsStore;
class StatusBarController;
class QmlEngineHost;
class RestoreViewModel;
class SamplePreviewViewModel;
class UpdaterController;
class VersionComparisonSheet;

// The desktop application's objects in their start-up order (the single-instance guard comes before,
// in main): the log pruning, the settings with their repairs, the theme, the controllers with the
// shell's own (notifications and sound, the close and quit decisions, the tray icon, the updater),
// and then the window, after whose first appearance the launch tasks run. GUI thread only; one per
// process.
class DesktopApplication : public QObject {
    Q_OBJECT

public:
    struct Options {
        bool demo = false;  // the built-in demo card instead of the mounted volumes
        std::optional<std::filesystem::path> settingsFile;  // default: the user's settings file
    };

    explicit DesktopApplication(Options options, QObject* parent = nullptr);
    ~DesktopApplication() override;

    // Loads the main window. False, with the reason printed, when it could not be loaded.
    bool showWindow();

    [[nodiscard]] AppSettings& settings() { return *settings_; }
    [[nodiscard]] M8Theme& theme() { return *theme_; }
    [[nodiscard]] BackupViewModel& backup() { return *backup_; }
    [[nodiscard]] RestoreViewModel& restore() { return *restore_; }
    [[nodiscard]] BrowseSessionViewModel& browse() { return *browse_; }
    [[nodiscard]] SamplePreviewViewModel& samplePreview() { return *samplePreview_; }
    [[nodiscard]] EditSheets& editSheets() { return *editSheets_; }
    [[nodiscard]] QObject* window() const;
    [[nodiscard]] AppLifecycle& lifecycle() { return *lifecycle_; }

    // Shows the main window and brings it in front of the others: another copy asked for it, or
    // the tray icon did.
    void bringForward();

private:
    void provideToQml(QmlEngineHost& engine);
    void createBrowse();
    void createEditSheets();
    // The backup folder in use: the demo's, or the one the settings name ("" when none).
    [[nodiscard]] std::filesystem::path baseFolder() const;
    void createShell();
    void startShell();

    Options options_;
    std::optional<std::filesystem::path> demoRoot_;
    std::unique_ptr<SettingsStore> store_;
    std::unique_ptr<AppSettings> settings_;
    std::unique_ptr<M8Theme> theme_;
    std::unique_ptr<CanberraSoundPlayer> sounds_;
    std::unique_ptr<DesktopNotifier> notifier_;
    std::unique_ptr<DesktopFeedback> feedback_;  // before the controller that reports to it
    std::unique_ptr<BackupViewModel> backup_;
    std::unique_ptr<CardListModel> cards_;  // the BACKUP screen's tiles
    std::unique_ptr<RestoreViewModel> restore_;
    std::unique_ptr<VersionComparisonSheet> comparisons_;  // the RESTORE screen's comparison sheet
    std::unique_ptr<BrowseSessionViewModel> browse_;
    std::unique_ptr<SamplePreviewViewModel> samplePreview_;
    std::unique_ptr<EditManifestStoreBox> editStores_;  // the edit store of the backup folder in use
    std::unique_ptr<EditSheets> editSheets_;            // the BROWSE screen's edit sheets
    std::unique_ptr<AppLifecycle> lifecycle_;
    std::unique_ptr<UpdaterController> updater_;
    std::unique_ptr<StatusBarController> statusBar_;
    std::unique_ptr<MainWindowFrameKeeper> frameKeeper_;
    std::unique_ptr<LaunchTasks> launchTasks_;
    std::unique_ptr<QmlEngineHost> engine_;
};

}  // namespace tapekeep

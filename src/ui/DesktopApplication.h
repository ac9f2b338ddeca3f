#pragma once

#include <QObject>

#include <filesystem>
#include <memory>
#include <optional>

namespace tapekeep {

class AppSettings;
class BackupViewModel;
class CardListModel;
class M8Theme;
class SettingsStore;
class QmlEngineHost;

// The desktop application's objects in their start-up order: the log pruning, the settings with
// their repairs, the theme, the controllers, and then the window. GUI thread only; one per process.
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
    [[nodiscard]] QObject* window() const;

private:
    void provideToQml(QmlEngineHost& engine);

    Options options_;
    std::optional<std::filesystem::path> demoRoot_;
    std::unique_ptr<SettingsStore> store_;
    std::unique_ptr<AppSettings> settings_;
    std::unique_ptr<M8Theme> theme_;
    std::unique_ptr<BackupViewModel> backup_;
    std::unique_ptr<CardListModel> cards_;  // the BACKUP screen's tiles
    std::unique_ptr<QmlEngineHost> engine_;
};

}  // namespace tapekeep

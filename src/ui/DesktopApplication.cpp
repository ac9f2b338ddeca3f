#include "ui/DesktopApplication.h"

#include <QApplication>
#include <QDBusConnection>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTimer>

#include <iostream>

#include "app/AppSettings.h"
#include "app/LaunchTasks.h"
#include "backup/RsyncLogStore.h"
#include "cards/DemoCard.h"
#include "core/SettingsStore.h"
#include "edits/EditManifestStoreBox.h"
#include "platform/UserFolders.h"
#include "ui/AppLifecycle.h"
#include "ui/CanberraSoundPlayer.h"
#include "ui/CardListModel.h"
#include "ui/DesktopFeedback.h"
#include "ui/DesktopNotifier.h"
#include "ui/EditSheets.h"
#include "ui/M8Theme.h"
#include "ui/MainWindowFrameKeeper.h"
#include "ui/QmlEngineHost.h"
#include "ui/StatusBarController.h"
#include "ui/UpdaterController.h"
#include "ui/VersionComparisonSheet.h"
#include "workflows/BackupViewModel.h"
#include "workflows/BrowseSessionViewModel.h"
#include "workflows/RestoreOperation.h"
#include "workflows/RestoreViewModel.h"
#include "workflows/SamplePreviewViewModel.h"

namespace tapekeep {

namespace {

bool desktopIsDark() {
    const QColor window = QGuiApplication::palette().color(QPalette::Window);
    return window.lightness() < 128;
}

// The demo card alone in demo mode, otherwise the mounted volumes less the excluded ones.
std::function<std::unique_ptr<VolumeScanner>()> scannerFactory(
    const std::optional<std::filesystem::path>& demoRoot, SettingsStore& store) {
    if (!demoRoot)
        return [store = &store] {
            return std::make_unique<VolumeScanner>(VolumeScanner::defaultVolumeRoots(), store);
        };
    return [root = *demoRoot, store = &store] {
        VolumeScanner::Configuration configuration;
        configuration.settings = store;
        configuration.volumesProvider = DemoCard::volumesProvider(root);
        configuration.diskInfoProvider = DemoCard::diskInfoProvider();
        return std::make_unique<VolumeScanner>(std::move(configuration));
    };
}

// Finds a card by UUID with a fresh scan of the volumes, as every check of a card before a write does.
RestoreOperation::Validator cardValidator(const std::optional<std::filesystem::path>& demoRoot,
                                          SettingsStore& store) {
    return [makeScanner = scannerFactory(demoRoot, store)](const std::string& uuid, std::stop_token token) {
        return makeScanner()->validate(uuid, token);
    };
}

BackupViewModel::Dependencies backupDependencies(const std::optional<std::filesystem::path>& demoRoot,
                                                 SettingsStore& store) {
    BackupViewModel::Dependencies dependencies;
    dependencies.store = &store;
    if (demoRoot) {
        dependencies.baseFolderOverride = DemoCard::baseFolder(*demoRoot);
        dependencies.makeScanner = scannerFactory(demoRoot, store);
        dependencies.followMounts = false;
    }
    return dependencies;
}

// The restore wizard offers the cards and the backups that the BACKUP screen shows.
RestoreViewModel::Dependencies restoreDependencies(const BackupViewModel::Dependencies& backup) {
    RestoreViewModel::Dependencies dependencies;
    if (backup.makeScanner) dependencies.makeScanner = backup.makeScanner;
    dependencies.baseFolderOverride = backup.baseFolderOverride;
    return dependencies;
}

}  // namespace

DesktopApplication::DesktopApplication(Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)) {
    RsyncLogStore::shared().prune(30);  // start-up step 2, after the single-instance guard
    if (options_.demo) {
        demoRoot_ = DemoCard::demoRoot();
        DemoCard::ensureCreated(*demoRoot_);
    }
    store_ = std::make_unique<SettingsStore>(options_.settingsFile.value_or(UserFolders::settingsFile()));
    settings_ = std::make_unique<AppSettings>(*store_);
    // The autostart entry follows the switch.
    connect(settings_.get(), &AppSettings::launchOnLoginChanged, settings_.get(),
            &AppSettings::applyLaunchOnLogin);
    theme_ = std::make_unique<M8Theme>(*settings_, desktopIsDark);
    sounds_ = std::make_unique<CanberraSoundPlayer>();
    notifier_ = std::make_unique<DesktopNotifier>(QDBusConnection::sessionBus(),
                                                  [this](const QString& title, const QString& body) {
                                                      if (statusBar_) statusBar_->showMessage(title, body);
                                                  });
    feedback_ = std::make_unique<DesktopFeedback>(DesktopFeedback::Outlets{
        [this](const std::string& title, const std::string& body) {
            notifier_->notify(QString::fromStdString(title), QString::fromStdString(body));
        },
        [this](const std::string& eventId) { sounds_->play(eventId); }});
    auto dependencies = backupDependencies(demoRoot_, *store_);
    dependencies.feedback = feedback_.get();
    restore_ = std::make_unique<RestoreViewModel>(*settings_, restoreDependencies(dependencies));
    backup_ = std::make_unique<BackupViewModel>(*settings_, std::move(dependencies));
    cards_ = std::make_unique<CardListModel>(*backup_);
    comparisons_ = std::make_unique<VersionComparisonSheet>(*restore_, [this] {
        ComparisonViewModel::Dependencies comparison;
        comparison.rsyncPath = settings_->rsyncPath().toStdString();
        return comparison;
    });
    createBrowse();
    createEditSheets();
    createShell();
}

std::filesystem::path DesktopApplication::baseFolder() const {
    if (demoRoot_) return DemoCard::baseFolder(*demoRoot_);
    return settings_->backupBaseDirPath().toStdString();
}

// The BROWSE screen's session reads the backup folder and rsync as they are set at each use, and
// copies back only to the cards the backup controller has detected, checked again by UUID.
void DesktopApplication::createBrowse() {
    BrowseSessionViewModel::Dependencies dependencies;
    dependencies.baseFolder = [this] { return baseFolder(); };
    dependencies.rsyncPath = [this] { return settings_->rsyncPath().toStdString(); };
    dependencies.detectedCards = [this] { return backup_->detectedCards(); };
    dependencies.browserDependencies.copy =
        BrowseCopyOperation::standardDependencies(cardValidator(demoRoot_, *store_));
    browse_ = std::make_unique<BrowseSessionViewModel>(std::move(dependencies));
    samplePreview_ = std::make_unique<SamplePreviewViewModel>(SamplePreviewViewModel::Dependencies{});
    // The sample preview follows the file on show, a song's sample included.
    connect(browse_.get(), &BrowseSessionViewModel::previewChanged, samplePreview_.get(), [this] {
        const auto& node = browse_->previewOverride() ? browse_->previewOverride() : browse_->selectedNode();
        samplePreview_->showFile(node && !node->isDirectory ? std::optional(node->url) : std::nullopt);
    });
    connect(backup_.get(), &BackupViewModel::detectedCardsChanged, browse_.get(),
            &BrowseSessionViewModel::refreshCards);
    // A finished run may have published a version.
    connect(backup_.get(), &BackupViewModel::backupFinished, browse_.get(),
            &BrowseSessionViewModel::loadSets);
}

// The edit sheets take the store of the backup folder as it is at each opening, the detected card
// of the set, and confirm that card by UUID at its mount point before each edit is written.
void DesktopApplication::createEditSheets() {
    editStores_ = std::make_unique<EditManifestStoreBox>(baseFolder());
    EditSheets::Dependencies dependencies;
    dependencies.baseFolder = [this] { return baseFolder(); };
    dependencies.stores = editStores_.get();
    dependencies.detectedCards = [this] { return backup_->detectedCards(); };
    dependencies.rsyncPath = [this] { return settings_->rsyncPath().toStdString(); };
    dependencies.revalidateCard = RestoreOperation::mountedCheck(cardValidator(demoRoot_, *store_));
    editSheets_ = std::make_unique<EditSheets>(std::move(dependencies));
}

DesktopApplication::~DesktopApplication() {
    engine_.reset();  // the window goes before the objects it shows
}

void DesktopApplication::provideToQml(QmlEngineHost& engine) {
    engine.provide("Theme", theme_.get());
    engine.provide("Settings", settings_.get());
    engine.provide("Backup", backup_.get());
    engine.provide("Lifecycle", lifecycle_.get());
    engine.provide("Updater", updater_.get());
    engine.provide("Cards", cards_.get());
    engine.provide("Restore", restore_.get());
    engine.provide("Comparison", comparisons_.get());
    engine.provide("Browse", browse_.get());
    engine.provide("SamplePreview", samplePreview_.get());
    engine.provide("EditSheets", editSheets_.get());
}

// The application ends when the lifecycle says so, not when its last window closes: closing the
// window may hide it (the tray icon staying) or first ask about the running operation or the cards.
void DesktopApplication::createShell() {
    lifecycle_ = std::make_unique<AppLifecycle>(*settings_, *backup_);
    updater_ = std::make_unique<UpdaterController>();
    statusBar_ = std::make_unique<StatusBarController>(*settings_, *backup_, *lifecycle_);
    // Read here, on the GUI thread: the settings are not read from the tasks' thread.
    launchTasks_ =
        std::make_unique<LaunchTasks>(LaunchTasks::all([folder = baseFolder()] { return folder; }));
    QApplication::setQuitOnLastWindowClosed(false);
    connect(lifecycle_.get(), &AppLifecycle::quitApproved, qApp, &QCoreApplication::quit,
            Qt::QueuedConnection);
    connect(statusBar_.get(), &StatusBarController::openMainWindowRequested, this,
            &DesktopApplication::bringForward);
}

// The frame is restored as soon as the window exists. The launch tasks start on the event loop's
// first turn, when the window has been shown.
void DesktopApplication::startShell() {
    if (auto* quickWindow = qobject_cast<QQuickWindow*>(window()))
        frameKeeper_ = std::make_unique<MainWindowFrameKeeper>(*store_, *quickWindow);
    QTimer::singleShot(0, this, [this] { launchTasks_->start(); });
}

void DesktopApplication::bringForward() {
    auto* quickWindow = qobject_cast<QQuickWindow*>(window());
    if (!quickWindow) return;
    quickWindow->show();
    if (quickWindow->windowStates() & Qt::WindowMinimized)
        quickWindow->setWindowStates(quickWindow->windowStates() & ~Qt::WindowMinimized);
    quickWindow->raise();
    quickWindow->requestActivate();
}

bool DesktopApplication::showWindow() {
    engine_ = std::make_unique<QmlEngineHost>();
    provideToQml(*engine_);
    engine_->load(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/Main.qml")));
    if (engine_->rootObjects().isEmpty()) {
        std::cerr << "tapekeep: the main window could not be loaded\n";
        return false;
    }
    startShell();
    backup_->startObserving();
    backup_->scanForCards();
    return true;
}

QObject* DesktopApplication::window() const {
    if (!engine_ || engine_->rootObjects().isEmpty()) return nullptr;
    return engine_->rootObjects().front();
}

}  // namespace tapekeep

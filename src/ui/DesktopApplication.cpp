#include "ui/DesktopApplication.h"

#include <QGuiApplication>
#include <QPalette>
#include <QQmlEngine>

#include <iostream>

#include "app/AppSettings.h"
#include "backup/RsyncLogStore.h"
#include "cards/DemoCard.h"
#include "core/SettingsStore.h"
#include "platform/UserFolders.h"
#include "ui/CardListModel.h"
#include "ui/M8Theme.h"
#include "ui/QmlEngineHost.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep {

namespace {

bool desktopIsDark() {
    const QColor window = QGuiApplication::palette().color(QPalette::Window);
    return window.lightness() < 128;
}

BackupViewModel::Dependencies backupDependencies(const std::optional<std::filesystem::path>& demoRoot,
                                                 SettingsStore& store) {
    BackupViewModel::Dependencies dependencies;
    dependencies.store = &store;
    if (demoRoot) {
        dependencies.baseFolderOverride = DemoCard::baseFolder(*demoRoot);
        dependencies.makeScanner = [root = *demoRoot, store = &store] {
            VolumeScanner::Configuration configuration;
            configuration.settings = store;
            configuration.volumesProvider = DemoCard::volumesProvider(root);
            configuration.diskInfoProvider = DemoCard::diskInfoProvider();
            return std::make_unique<VolumeScanner>(std::move(configuration));
        };
        dependencies.followMounts = false;
    }
    return dependencies;
}

}  // namespace

DesktopApplication::DesktopApplication(Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)) {
    RsyncLogStore::shared().prune(30);
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
    backup_ = std::make_unique<BackupViewModel>(*settings_, backupDependencies(demoRoot_, *store_));
    cards_ = std::make_unique<CardListModel>(*backup_);
}

DesktopApplication::~DesktopApplication() {
    engine_.reset();  // the window goes before the objects it shows
}

void DesktopApplication::provideToQml(QmlEngineHost& engine) {
    engine.provide("Theme", theme_.get());
    engine.provide("Settings", settings_.get());
    engine.provide("Backup", backup_.get());
    engine.provide("Cards", cards_.get());
}

bool DesktopApplication::showWindow() {
    engine_ = std::make_unique<QmlEngineHost>();
    provideToQml(*engine_);
    engine_->load(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/Main.qml")));
    if (engine_->rootObjects().isEmpty()) {
        std::cerr << "tapekeep: the main window could not be loaded\n";
        return false;
    }
    backup_->startObserving();
    backup_->scanForCards();
    return true;
}

QObject* DesktopApplication::window() const {
    if (!engine_ || engine_->rootObjects().isEmpty()) return nullptr;
    return engine_->rootObjects().front();
}

}  // namespace tapekeep

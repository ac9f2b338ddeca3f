#include "QmlControllers.h"

#include <QJSEngine>
#include <QQmlEngine>

#include "app/AppSettings.h"
#include "ui/CardListModel.h"
#include "ui/M8Theme.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep::test {
namespace {

AppSettings* currentSettings = nullptr;
M8Theme* currentTheme = nullptr;
BackupViewModel* currentBackup = nullptr;
CardListModel* currentCards = nullptr;

QObject* keptByCaller(QObject* object) {
    QJSEngine::setObjectOwnership(object, QJSEngine::CppOwnership);
    return object;
}

}  // namespace

void provideControllers(AppSettings* settings, M8Theme* theme) {
    currentSettings = settings;
    currentTheme = theme;
    static const bool registered = [] {
        qmlRegisterSingletonType<AppSettings>(
            "Tapekeep.Controllers", 1, 0, "Settings",
            [](QQmlEngine*, QJSEngine*) -> QObject* { return keptByCaller(currentSettings); });
        qmlRegisterSingletonType<M8Theme>(
            "Tapekeep.Controllers", 1, 0, "Theme",
            [](QQmlEngine*, QJSEngine*) -> QObject* { return keptByCaller(currentTheme); });
        return true;
    }();
    (void)registered;
}

void provideBackupControllers(BackupViewModel* backup, CardListModel* cards) {
    currentBackup = backup;
    currentCards = cards;
    static const bool registered = [] {
        qmlRegisterSingletonType<BackupViewModel>(
            "Tapekeep.Controllers", 1, 0, "Backup",
            [](QQmlEngine*, QJSEngine*) -> QObject* { return keptByCaller(currentBackup); });
        qmlRegisterSingletonType<CardListModel>(
            "Tapekeep.Controllers", 1, 0, "Cards",
            [](QQmlEngine*, QJSEngine*) -> QObject* { return keptByCaller(currentCards); });
        return true;
    }();
    (void)registered;
}

}  // namespace tapekeep::test

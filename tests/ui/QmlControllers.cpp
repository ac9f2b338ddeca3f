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

// The singleton `name` hands out whatever `current` points to when an engine asks; it is
// registered once per type, and each call only changes what it points to.
template <typename Type>
void provide(const char* name, Type*& current, Type* object) {
    current = object;
    static const bool registered = [name, &current] {
        qmlRegisterSingletonType<Type>(
            "Tapekeep.Controllers", 1, 0, name,
            [&current](QQmlEngine*, QJSEngine*) -> QObject* { return keptByCaller(current); });
        return true;
    }();
    (void)registered;
}

}  // namespace

void provideControllers(AppSettings* settings, M8Theme* theme) {
    provide("Settings", currentSettings, settings);
    provide("Theme", currentTheme, theme);
}

void provideBackupControllers(BackupViewModel* backup, CardListModel* cards) {
    provide("Backup", currentBackup, backup);
    provide("Cards", currentCards, cards);
}

}  // namespace tapekeep::test

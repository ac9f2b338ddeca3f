#include "QmlControllers.h"

#include <QJSEngine>
#include <QQmlEngine>

#include "app/AppSettings.h"
#include "ui/M8Theme.h"

namespace tapekeep::test {
namespace {

AppSettings* currentSettings = nullptr;
M8Theme* currentTheme = nullptr;

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

}  // namespace tapekeep::test

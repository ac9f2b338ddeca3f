#include "ui/QmlEngineHost.h"

#include <QSet>

namespace tapekeep {

QmlEngineHost::QmlEngineHost(QObject* parent) : QQmlApplicationEngine(parent) {
    addImportPath(QStringLiteral("qrc:/qt/qml"));
}

bool QmlEngineHost::claimRegistration(const char* name) {
    static QSet<QString> registered;  // GUI thread only
    const QString key = QString::fromLatin1(name);
    if (registered.contains(key)) return false;
    registered.insert(key);
    return true;
}

QObject* QmlEngineHost::lookUp(QQmlEngine* engine, const QString& name) {
    auto* host = qobject_cast<QmlEngineHost*>(engine);
    QObject* object = host != nullptr ? host->objects_.value(name) : nullptr;
    // The application owns these; the engine must never delete them.
    if (object != nullptr) QJSEngine::setObjectOwnership(object, QJSEngine::CppOwnership);
    return object;
}

}  // namespace tapekeep

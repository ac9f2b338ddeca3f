#include "ui/QmlEngineHost.h"

namespace tapekeep {

QmlEngineHost::QmlEngineHost(QObject* parent) : QQmlApplicationEngine(parent) {
    addImportPath(QStringLiteral("qrc:/qt/qml"));
}

}  // namespace tapekeep

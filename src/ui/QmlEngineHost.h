#pragma once

#include <QQmlApplicationEngine>

namespace tapekeep {

// The QML engine with the application's module on its import path.
class QmlEngineHost : public QQmlApplicationEngine {
    Q_OBJECT

public:
    explicit QmlEngineHost(QObject* parent = nullptr);
};

}  // namespace tapekeep

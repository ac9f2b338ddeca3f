#pragma once

#include <QHash>
#include <QQmlApplicationEngine>
#include <QString>

namespace tapekeep {

// The QML engine with the application's module on its import path, and the objects it shows as
// singletons of the module "Tapekeep.Controllers". Each engine carries its own objects, so a process
// may hold more than one application (tests do) without a global instance.
class QmlEngineHost : public QQmlApplicationEngine {
    Q_OBJECT

public:
    explicit QmlEngineHost(QObject* parent = nullptr);

    // Shows `object` (not owned; it must outlive the engine) to QML as the singleton `name`.
    // Call before loading anything.
    template <typename Type>
    void provide(const char* name, Type* object) {
        registerOnce<Type>(name);
        objects_.insert(QString::fromLatin1(name), object);
    }

private:
    template <typename Type>
    static void registerOnce(const char* name) {
        if (!claimRegistration(name)) return;
        qmlRegisterSingletonType<Type>("Tapekeep.Controllers", 1, 0, name,
                                       [key = QString::fromLatin1(name)](QQmlEngine* engine, QJSEngine*) {
                                           return lookUp(engine, key);
                                       });
    }
    static bool claimRegistration(const char* name);  // true the first time a name is seen
    static QObject* lookUp(QQmlEngine* engine, const QString& name);

    QHash<QString, QObject*> objects_;
};

}  // namespace tapekeep

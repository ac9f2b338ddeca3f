#pragma once

#include <QObject>
#include <QString>

namespace tapekeep {

// "Check for Updates…": on Linux the package manager that installed the application updates it, so
// the command only says so. GUI thread only.
class UpdaterController : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QString message READ message CONSTANT)

public:
    using QObject::QObject;

    [[nodiscard]] static QString title();
    [[nodiscard]] static QString message();

    // Asks the window to show title and message.
    Q_INVOKABLE void checkForUpdates();

signals:
    void checked(const QString& title, const QString& message);
};

}  // namespace tapekeep

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>

namespace tapekeep {

// Desktop notifications through the freedesktop notification service on the session bus
// (org.freedesktop.Notifications, Notify). The call is made without waiting; when the bus or the
// service is missing, or the call fails, the notification goes to the fallback instead (the tray
// icon's message, or nothing). Never blocks the GUI thread. GUI thread only.
class DesktopNotifier : public QObject {
    Q_OBJECT

public:
    using Fallback = std::function<void(const QString& title, const QString& body)>;

    static constexpr const char* service = "org.freedesktop.Notifications";
    static constexpr const char* path = "/org/freedesktop/Notifications";

    explicit DesktopNotifier(QDBusConnection bus, Fallback fallback = {}, QObject* parent = nullptr);

    void notify(const QString& title, const QString& body);

signals:
    // The service took the notification, or it went to the fallback.
    void delivered(uint id);
    void fellBack();

private:
    void askCapabilities();
    void useFallback(const QString& title, const QString& body);

    QDBusConnection bus_;
    Fallback fallback_;
    bool bodyIsMarkup_ = true;  // until the service says otherwise; most servers take markup
};

}  // namespace tapekeep

#include "ui/DesktopNotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

namespace tapekeep {

namespace {

constexpr const char* interfaceName = "org.freedesktop.Notifications";

QDBusMessage callTo(const char* method) {
    return QDBusMessage::createMethodCall(QString::fromLatin1(DesktopNotifier::service),
                                          QString::fromLatin1(DesktopNotifier::path),
                                          QString::fromLatin1(interfaceName), QString::fromLatin1(method));
}

}  // namespace

DesktopNotifier::DesktopNotifier(QDBusConnection bus, Fallback fallback, QObject* parent)
    : QObject(parent), bus_(std::move(bus)), fallback_(std::move(fallback)) {
    askCapabilities();
}

// A server that shows the body as markup would take a card name such as "<A&B>" for tags.
void DesktopNotifier::askCapabilities() {
    if (!bus_.isConnected()) return;
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(callTo("GetCapabilities")), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<QStringList> reply = *call;
        if (!reply.isError()) bodyIsMarkup_ = reply.value().contains(QStringLiteral("body-markup"));
        call->deleteLater();
    });
}

void DesktopNotifier::notify(const QString& title, const QString& body) {
    if (!bus_.isConnected()) return useFallback(title, body);
    QDBusMessage message = callTo("Notify");
    message << QStringLiteral("Tapekeep") << uint(0) << QStringLiteral("org.tapekeep.Tapekeep") << title
            << (bodyIsMarkup_ ? body.toHtmlEscaped() : body) << QStringList()
            << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("org.tapekeep.Tapekeep")}}
            << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, title, body](QDBusPendingCallWatcher* call) {
                const QDBusPendingReply<uint> reply = *call;
                call->deleteLater();
                if (reply.isError()) return useFallback(title, body);
                emit delivered(reply.value());
            });
}

void DesktopNotifier::useFallback(const QString& title, const QString& body) {
    if (fallback_) fallback_(title, body);
    emit fellBack();
}

}  // namespace tapekeep

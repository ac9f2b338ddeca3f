#include "ui/DesktopNotifier.h"

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QStandardPaths>

#include <optional>

#include "UiTesting.h"

namespace tapekeep {

namespace {
using test::waitFor;

// A session bus of the test's own, from dbus-daemon.
class PrivateBus {
public:
    PrivateBus() {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        if (program.isEmpty()) return;
        daemon_.start(program, {"--session", "--nofork", "--print-address=1"});
        if (!daemon_.waitForStarted()) return;
        while (!daemon_.canReadLine() && daemon_.waitForReadyRead(30000)) {
        }
        address_ = QString::fromUtf8(daemon_.readLine().trimmed());
    }
    ~PrivateBus() {
        daemon_.kill();
        daemon_.waitForFinished();
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    [[nodiscard]] const QString& address() const { return address_; }
    // A connection of its own, by name.
    [[nodiscard]] QDBusConnection connect(const QString& name) const {
        return QDBusConnection::connectToBus(address_, name);
    }

private:
    QProcess daemon_;
    QString address_;
};

// The notification service as a desktop has it: records each Notify and answers with an id.
class FakeNotificationService : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() == "GetCapabilities") {
            connection.send(message.createReply(QVariant(QStringList{"body", "body-markup"})));
            return true;
        }
        if (message.member() != "Notify") return false;
        received = message.arguments();
        connection.send(message.createReply(QVariant::fromValue(uint(17))));
        return true;
    }
    QVariantList received;
};

class DesktopNotifierTest : public ::testing::Test {
protected:
    ~DesktopNotifierTest() override {
        QDBusConnection::disconnectFromBus(QStringLiteral("notifier-service"));
        QDBusConnection::disconnectFromBus(QStringLiteral("notifier-client"));
    }

    test::ApplicationStarted started;
    PrivateBus bus;
    std::optional<std::pair<QString, QString>> fallenBack;
    DesktopNotifier::Fallback fallback = [this](const QString& title, const QString& body) {
        fallenBack = {title, body};
    };
};

TEST_F(DesktopNotifierTest, TheServiceGetsTheNotificationWithTheBodyAsText) {
    if (bus.address().isEmpty()) GTEST_SKIP() << "no dbus-daemon";
    QDBusConnection serviceSide = bus.connect(QStringLiteral("notifier-service"));
    FakeNotificationService service;
    ASSERT_TRUE(serviceSide.registerVirtualObject(DesktopNotifier::path, &service));
    ASSERT_TRUE(serviceSide.registerService(DesktopNotifier::service));

    DesktopNotifier notifier(bus.connect(QStringLiteral("notifier-client")), fallback);
    std::optional<uint> delivered;
    QObject::connect(&notifier, &DesktopNotifier::delivered, [&](uint id) { delivered = id; });
    notifier.notify("Backup Complete", "<A&B>: Backup successful (3s).");
    ASSERT_TRUE(waitFor([&] { return delivered.has_value(); }));
    EXPECT_EQ(*delivered, 17U);
    EXPECT_FALSE(fallenBack);
    const QVariantList& arguments = service.received;
    ASSERT_EQ(arguments.size(), 8);
    EXPECT_EQ(arguments[0].toString(), "Tapekeep");
    EXPECT_EQ(arguments[3].toString(), "Backup Complete");
    EXPECT_EQ(arguments[4].toString(),
              "&lt;A&amp;B&gt;: Backup successful (3s).");  // the server reads markup
    EXPECT_EQ(arguments[7].toInt(), -1);
}

TEST_F(DesktopNotifierTest, WithoutAServiceTheFallbackGetsIt) {
    if (bus.address().isEmpty()) GTEST_SKIP() << "no dbus-daemon";
    DesktopNotifier notifier(bus.connect(QStringLiteral("notifier-client")), fallback);
    notifier.notify("Backup Failed", "M8: Disk full.");
    ASSERT_TRUE(waitFor([&] { return fallenBack.has_value(); }));
    EXPECT_EQ(*fallenBack, std::make_pair(QString("Backup Failed"), QString("M8: Disk full.")));
}

TEST_F(DesktopNotifierTest, WithoutABusTheFallbackGetsItAtOnce) {
    DesktopNotifier notifier(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                                           QStringLiteral("notifier-client")),
                             fallback);
    notifier.notify("Backup Failed", "M8: Disk full.");
    ASSERT_TRUE(fallenBack);
    EXPECT_EQ(fallenBack->first, "Backup Failed");
}

}  // namespace
}  // namespace tapekeep

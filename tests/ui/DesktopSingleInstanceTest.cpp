// The desktop application itself, started twice: the second copy gives way before it shows anything.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QProcess>

#include <filesystem>

#include "LiveProcesses.h"
#include "TempDir.h"
#include "UiTesting.h"

namespace tapekeep {

namespace {
namespace fs = std::filesystem;

class DesktopSingleInstanceTest : public ::testing::Test {
protected:
    DesktopSingleInstanceTest() {
        test::startApplication();
        fs::create_directories(temp / "run");
        fs::permissions(temp / "run", fs::perms::owner_all);  // as a runtime folder is
    }

    void startCopy(QProcess& process) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("HOME", QString::fromStdString((temp / "home").string()));
        environment.insert("XDG_RUNTIME_DIR", QString::fromStdString((temp / "run").string()));
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME",
                                 "DBUS_SESSION_BUS_ADDRESS", "TAPEKEEP_ALLOW_MULTIPLE_INSTANCES"})
            environment.remove(name);
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(TAPEKEEP_DESKTOP_APP_PATH), {"--demo"});
        ASSERT_TRUE(process.waitForStarted());
    }

    [[nodiscard]] fs::path socketFile() const {
        return temp / "run" / ("tapekeep-" + std::to_string(::geteuid())) / "app.socket";
    }

    test::TempDir temp;
};

TEST_F(DesktopSingleInstanceTest, ASecondCopyOfTheApplicationEndsWithStatusZero) {
    QProcess first;
    startCopy(first);
    ASSERT_TRUE(test::waitUntil([&] { return fs::exists(socketFile()) || first.waitForFinished(10); }));
    ASSERT_EQ(first.state(), QProcess::Running) << first.readAllStandardError().toStdString();

    QProcess second;
    startCopy(second);
    ASSERT_TRUE(second.waitForFinished(60000));
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(second.readAllStandardOutput(),
              "Tapekeep is already running; its window was brought forward.\n");
    EXPECT_EQ(first.state(), QProcess::Running);

    first.kill();
    first.waitForFinished();
}

}  // namespace
}  // namespace tapekeep

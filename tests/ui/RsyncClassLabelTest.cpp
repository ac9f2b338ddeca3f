#include "ui/RsyncClassLabel.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <QCoreApplication>

#include "GuiTestApplication.h"
#include "TempDir.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using test::writeFile;

class RsyncClassLabelTest : public ::testing::Test {
protected:
    bool applicationReady = (test::ensureGuiApplication(), true);
    TempDir temp;
    RsyncClassLabel classLabel;

    // A stand-in rsync that prints one version line.
    QString fakeRsync(const std::string& name, const std::string& versionLine) {
        const fs::path script = temp / name;
        writeFile(script, "#!/bin/sh\nprintf '%s\\n' '" + versionLine + "'\n");
        fs::permissions(script, fs::perms::owner_all);
        return QString::fromStdString(script.string());
    }

    QString labelOf(const QString& path) {
        classLabel.setPath(path);
        EXPECT_TRUE(test::processEventsUntil([this] { return !classLabel.isDetecting(); }));
        return classLabel.label();
    }
};

TEST_F(RsyncClassLabelTest, NamesTheClassOfTheRealRsyncAndOfOtherBuilds) {
    // The system's rsync, as Debian ships it now (3.5).
    EXPECT_EQ(labelOf("/usr/bin/rsync"), QString::fromUtf8("rsync 3.2 \u2013 3.5"));
    EXPECT_EQ(classLabel.problem(), QString());
    EXPECT_TRUE(classLabel.installed().contains("/usr/bin/rsync"));

    EXPECT_EQ(labelOf(fakeRsync("openrsync", "openrsync: protocol version 29")), "openrsync / Samba 2.6.9");
    EXPECT_EQ(labelOf(fakeRsync("samba", "rsync  version 2.6.9  protocol version 29")),
              "openrsync / Samba 2.6.9");
    EXPECT_EQ(labelOf(fakeRsync("old", "rsync  version 3.1.3  protocol version 31")), "rsync 3.1");
    EXPECT_EQ(labelOf(fakeRsync("v32", "rsync  version 3.2.7  protocol version 31")),
              QString::fromUtf8("rsync 3.2 \u2013 3.5"));
    EXPECT_EQ(labelOf(fakeRsync("future", "rsync  version 3.6.0  protocol version 32")), "unsupported");
    EXPECT_EQ(classLabel.problem(), QString());
}

TEST_F(RsyncClassLabelTest, APathThatCannotRunIsUnsupportedWithTheReason) {
    const QString missing = QString::fromStdString((temp / "nothing-here").string());
    EXPECT_EQ(labelOf(missing), "unsupported");
    EXPECT_EQ(classLabel.problem(), "rsync is not executable at " + missing);

    const fs::path failing = temp / "failing";
    writeFile(failing, "#!/bin/sh\nexit 3\n");
    fs::permissions(failing, fs::perms::owner_all);
    EXPECT_EQ(labelOf(QString::fromStdString(failing.string())), "unsupported");
    EXPECT_EQ(classLabel.problem(),
              QString::fromStdString("rsync at " + failing.string() + " exited with code -1"));
}

// The detection runs off the GUI thread: while a stand-in rsync waits on a pipe that nobody
// writes, the GUI thread goes on. A newer path then stops the older run, and only the newer answer
// shows.
TEST_F(RsyncClassLabelTest, ClassifiesInTheBackgroundAndANewerPathStopsTheOlderRun) {
    const fs::path gate = temp / "gate";
    ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
    const fs::path pidFile = temp / "pid";
    const fs::path waiting = temp / "waiting";
    writeFile(waiting, "#!/bin/sh\necho $$ > '" + pidFile.string() + ".part'\nmv '" + pidFile.string() +
                           ".part' '" + pidFile.string() + "'\nread line < '" + gate.string() +
                           "'\nprintf '%s\\n' 'rsync  version 3.1.3  protocol version 31'\n");
    fs::permissions(waiting, fs::perms::owner_all);

    int results = 0;
    QObject::connect(&classLabel, &RsyncClassLabel::resultChanged, [&results] { ++results; });
    classLabel.setPath(QString::fromStdString(waiting.string()));
    EXPECT_TRUE(classLabel.isDetecting());  // setPath returned while the stand-in runs
    ASSERT_TRUE(test::processEventsUntil([&] { return fs::exists(pidFile); }));
    const pid_t standIn = std::stoi(test::readFile(pidFile));
    EXPECT_EQ(::kill(standIn, 0), 0);
    EXPECT_EQ(classLabel.label(), QString());

    EXPECT_EQ(labelOf(fakeRsync("openrsync", "openrsync: protocol version 29")), "openrsync / Samba 2.6.9");
    EXPECT_TRUE(test::processEventsUntil([&] { return ::kill(standIn, 0) != 0; }));  // stopped and reaped
    QCoreApplication::processEvents();
    EXPECT_EQ(results, 1);
    EXPECT_EQ(classLabel.label(), "openrsync / Samba 2.6.9");
}

}  // namespace
}  // namespace tapekeep

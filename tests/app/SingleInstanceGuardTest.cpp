#include "app/SingleInstanceGuard.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QProcess>

#include <chrono>
#include <memory>
#include <optional>

#include "TempDir.h"

namespace tapekeep {

namespace {
namespace fs = std::filesystem;

void startApplication() {
    static int argc = 1;
    static char name[] = "tests_app";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
}

// One copy of the stand-in program, with its own runtime folder and, if given, the exemption
// variable set to a value.
class Copy {
public:
    Copy(const fs::path& runtimeFolder, const std::optional<QString>& exemption = std::nullopt) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), QString::fromStdString(runtimeFolder.string()));
        environment.remove(QString::fromLatin1(SingleInstanceGuard::exemptionVariable));
        if (exemption)
            environment.insert(QString::fromLatin1(SingleInstanceGuard::exemptionVariable), *exemption);
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(TAPEKEEP_SINGLE_INSTANCE_PROBE), {});
    }
    ~Copy() {
        process_.kill();
        process_.waitForFinished();
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    // Whether the copy prints the line before it ends (or before a limit that only keeps a failing
    // test from hanging).
    bool says(const QByteArray& line) {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < giveUp) {
            output_ += process_.readAllStandardOutput();
            if (output_.split('\n').contains(line)) return true;
            if (process_.state() == QProcess::NotRunning) return false;
            process_.waitForReadyRead(1000);
        }
        return false;
    }
    // Ended by itself with status 0, without ever going on.
    bool gaveWay() {
        if (process_.state() != QProcess::NotRunning && !process_.waitForFinished(30000)) return false;
        output_ += process_.readAllStandardOutput();
        return process_.exitStatus() == QProcess::NormalExit && process_.exitCode() == 0 &&
               !output_.split('\n').contains("running");
    }
    bool hasEnded() { return process_.state() == QProcess::NotRunning || process_.waitForFinished(0); }
    // Blocks until the copy has ended or printed something more.
    void waitForNews() {
        if (!process_.waitForReadyRead(200)) process_.waitForFinished(0);
        output_ += process_.readAllStandardOutput();
    }
    [[nodiscard]] bool printed(const QByteArray& line) const { return output_.split('\n').contains(line); }
    [[nodiscard]] std::string report() const {
        return "state " + std::to_string(process_.state()) + ", status " +
               std::to_string(process_.exitCode()) + ", output \"" + output_.toStdString() + "\"";
    }

private:
    QProcess process_;
    QByteArray output_;
};

class SingleInstanceGuardTest : public ::testing::Test {
protected:
    SingleInstanceGuardTest() { startApplication(); }
    test::TempDir temp;
};

TEST_F(SingleInstanceGuardTest, ASecondCopyBringsTheFirstForwardAndEndsWithStatusZero) {
    Copy first(temp.path());
    ASSERT_TRUE(first.says("running"));
    Copy second(temp.path());
    EXPECT_TRUE(second.gaveWay());
    EXPECT_TRUE(first.says("activated"));

    Copy third(temp.path());  // the running copy answers every later one
    EXPECT_TRUE(third.gaveWay());
}

TEST_F(SingleInstanceGuardTest, OnlyTheValueOneExempts) {
    Copy first(temp.path());
    ASSERT_TRUE(first.says("running"));
    Copy exempt(temp.path(), QStringLiteral("1"));
    EXPECT_TRUE(exempt.says("running"));
    Copy other(temp.path(), QStringLiteral("true"));
    EXPECT_TRUE(other.gaveWay());

    const auto environment = [](const char* value) {
        QProcessEnvironment result;
        result.insert(QString::fromLatin1(SingleInstanceGuard::exemptionVariable),
                      QString::fromLatin1(value));
        return result;
    };
    EXPECT_TRUE(SingleInstanceGuard::isExempt(environment("1")));
    for (const char* value : {"true", "yes", "0", "", " 1", "11"})
        EXPECT_FALSE(SingleInstanceGuard::isExempt(environment(value))) << value;
    EXPECT_FALSE(SingleInstanceGuard::isExempt(QProcessEnvironment()));
}

TEST_F(SingleInstanceGuardTest, OfTwoCopiesStartedTogetherExactlyOneSurvives) {
    for (int round = 0; round < 5; ++round) {
        const fs::path folder = temp / ("round" + std::to_string(round));
        fs::create_directories(folder);
        Copy one(folder);
        Copy two(folder);
        while (!one.hasEnded() && !two.hasEnded() && !(one.printed("running") && two.printed("running"))) {
            one.waitForNews();
            two.waitForNews();
        }
        Copy& loser = one.hasEnded() ? one : two;
        Copy& survivor = &loser == &one ? two : one;
        ASSERT_TRUE(loser.gaveWay()) << "round " << round << ": " << loser.report();
        EXPECT_TRUE(survivor.says("running")) << "round " << round;
        ASSERT_TRUE(survivor.says("activated")) << "round " << round;
        EXPECT_FALSE(survivor.hasEnded()) << "round " << round;
    }
}

TEST_F(SingleInstanceGuardTest, TheLockIsLetGoWhenTheCopyEnds) {
    {
        Copy first(temp.path());
        ASSERT_TRUE(first.says("running"));
    }  // killed: the system drops its lock, its socket file stays behind
    Copy next(temp.path());
    EXPECT_TRUE(next.says("running"));
}

}  // namespace
}  // namespace tapekeep

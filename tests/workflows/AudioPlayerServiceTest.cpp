// The preview's player on Qt Multimedia, with real files made by sox: its state follows the player
// from play to the file's end or a stop, one file plays at a time, and a file that cannot play says
// so. Where the machine has no audio backend that plays a file, the tests skip, saying so.

#include "workflows/AudioPlayerService.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include "EventLoop.h"
#include "SoxAudio.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

// Whether Qt Multimedia plays a file on this machine, tried in a child process: without an audio
// device both of Qt 6.4's backends may crash or hang on the first file, which must not take the test
// program with them. Empty when it plays, else why not.
std::string audioBackendMissing(const fs::path& file) {
    static std::string missing = [&]() -> std::string {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20);  // a backend that hangs ends the child, not the test
            AudioPlayerService player;
            player.play(QString::fromStdString(file.string()));
            test::waitFor([&] { return player.isPlaying(); }, std::chrono::seconds(15));
            ::_exit(player.isPlaying() ? 0 : 1);
        }
        int status = 0;
        if (child < 0 || ::waitpid(child, &status, 0) != child) return "cannot start a child process";
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
        if (WIFSIGNALED(status))
            return "Qt Multimedia dies with signal " + std::to_string(WTERMSIG(status)) +
                   " playing a file here";
        return "Qt Multimedia does not start playing a file here";
    }();
    return missing;
}

class AudioPlayerServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::startApplication();
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        test::makeAudio(temp_ / "short.wav", {"-r", "44100", "-c", "2", "-b", "16"}, 0.3);
        if (const auto missing = audioBackendMissing(temp_ / "short.wav"); !missing.empty())
            GTEST_SKIP() << "no audio backend: " << missing;
        test::makeAudio(temp_ / "long.wav", {"-r", "44100", "-c", "2", "-b", "16"}, 20);
        test::makeAudio(temp_ / "other.wav", {"-r", "44100", "-c", "2", "-b", "16"}, 20);
        player_ = std::make_unique<AudioPlayerService>();
        QObject::connect(player_.get(), &AudioPlayerService::playbackFailed,
                         [this](const QString& message) { failure_ = message; });
    }

    // Plays the file and waits until the player plays it; false, with the reason kept, when the
    // machine cannot play it.
    bool startPlaying(const fs::path& file) {
        failure_.clear();
        player_->play(QString::fromStdString(file.string()));
        test::waitFor([&] { return player_->isPlaying() || !failure_.isEmpty(); });
        return player_->isPlaying();
    }

    std::string noBackend() const { return "no audio backend plays a file here: " + failure_.toStdString(); }

    test::TempDir temp_;
    std::unique_ptr<AudioPlayerService> player_;  // after the application
    QString failure_;
};

TEST_F(AudioPlayerServiceTest, PlaysAFileToItsEndThenStandsStill) {
    int playingChanges = 0;
    QObject::connect(player_.get(), &AudioPlayerService::isPlayingChanged, [&] { ++playingChanges; });
    const QString file = QString::fromStdString((temp_ / "short.wav").string());
    if (!startPlaying(temp_ / "short.wav")) GTEST_SKIP() << noBackend();
    EXPECT_EQ(player_->currentURL(), file);
    EXPECT_TRUE(test::waitFor([&] { return player_->playbackDuration() > 0; }));
    EXPECT_NEAR(player_->playbackDuration(), 0.3, 0.05);

    ASSERT_TRUE(test::waitFor([&] { return !player_->isPlaying(); }));
    EXPECT_EQ(player_->currentURL(), QString());
    EXPECT_EQ(player_->playbackTime(), 0.0);
    EXPECT_EQ(playingChanges, 2);
    EXPECT_TRUE(failure_.isEmpty()) << failure_.toStdString();
}

TEST_F(AudioPlayerServiceTest, OneFilePlaysAtATimeAndStopEndsIt) {
    if (!startPlaying(temp_ / "long.wav")) GTEST_SKIP() << noBackend();
    ASSERT_TRUE(test::waitFor([&] { return player_->playbackTime() > 0; }));

    const QString other = QString::fromStdString((temp_ / "other.wav").string());
    player_->toggle(other);  // not the one playing: plays it from its start instead
    EXPECT_EQ(player_->currentURL(), other);
    EXPECT_EQ(player_->playbackTime(), 0.0);
    ASSERT_TRUE(test::waitFor([&] { return player_->isPlaying() || !failure_.isEmpty(); }));
    EXPECT_EQ(player_->currentURL(), other);

    player_->toggle(other);  // the one playing: stops it
    EXPECT_FALSE(player_->isPlaying());
    EXPECT_EQ(player_->currentURL(), QString());
    EXPECT_EQ(player_->playbackTime(), 0.0);
    EXPECT_EQ(player_->playbackDuration(), 0.0);

    player_->stop();  // stopping what is stopped changes nothing
    EXPECT_FALSE(player_->isPlaying());
}

TEST_F(AudioPlayerServiceTest, AFileThatCannotPlaySaysSoAndLeavesThePlayerStopped) {
    test::writeFile(temp_ / "notes.wav", "these are notes, not audio\n");
    player_->play(QString::fromStdString((temp_ / "notes.wav").string()));
    ASSERT_TRUE(test::waitFor([&] { return !failure_.isEmpty(); }));
    EXPECT_FALSE(player_->isPlaying());
    EXPECT_EQ(player_->currentURL(), QString());
}

}  // namespace
}  // namespace tapekeep

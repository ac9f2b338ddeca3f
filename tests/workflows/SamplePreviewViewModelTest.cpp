// The sample preview over real WAV files made by sox: what it shows of a file, that a file chosen
// after another never shows the first one's values, the trimmed copy saved by name, and the song
// list written to the desktop. Playback is left to the player's own tests: this machine may have no
// audio device, and Qt Multimedia cannot be started without one.

#include "workflows/SamplePreviewViewModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <semaphore>

#include "EventLoop.h"
#include "SoxAudio.h"
#include "TempDir.h"
#include "core/TextHash.h"
#include "edits/SampleAnalyzer.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

class SamplePreviewViewModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::startApplication();
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        fs::create_directories(kick_.parent_path());
        test::makeAudio(kick_, {"-r", "44100", "-c", "2", "-b", "16"}, 0.5);
        test::makeAudio(pad_, {"-r", "22050", "-c", "1", "-b", "24"}, 0.25);
    }

    std::unique_ptr<SamplePreviewViewModel> preview(SamplePreviewViewModel::Dependencies dependencies = {}) {
        if (!dependencies.desktopFolder)
            dependencies.desktopFolder = [this]() -> std::optional<fs::path> { return desktop_; };
        auto made = std::make_unique<SamplePreviewViewModel>(std::move(dependencies));
        QObject::connect(made.get(), &SamplePreviewViewModel::analysisEnded, [this] { ++analysesEnded_; });
        QObject::connect(made.get(), &SamplePreviewViewModel::trimSaveFinished, [this] { ++savesFinished_; });
        return made;
    }

    static void waitForAnalysis(const SamplePreviewViewModel& preview) {
        ASSERT_TRUE(test::waitFor([&] { return !preview.isLoading(); }));
    }

    test::TempDir temp_;
    fs::path kick_ = temp_ / "Samples/kick.wav";
    fs::path pad_ = temp_ / "Samples/pad.wav";
    std::optional<fs::path> desktop_;
    int analysesEnded_ = 0;
    int savesFinished_ = 0;
};

TEST_F(SamplePreviewViewModelTest, ASampleShowsWhatTheFileIsAndItsWaveform) {
    auto sample = preview();
    sample->setSampleURLText(QString::fromStdString("file://" + kick_.string()));
    EXPECT_TRUE(sample->isLoading());
    waitForAnalysis(*sample);

    EXPECT_EQ(sample->sample(), kick_);
    EXPECT_EQ(sample->formatNameText(), "WAV");
    EXPECT_EQ(sample->sampleRate(), 44100.0);
    EXPECT_EQ(sample->channelCount(), 2);
    EXPECT_EQ(sample->bitDepthVariant(), QVariant(16));
    EXPECT_DOUBLE_EQ(sample->durationSeconds(), 0.5);
    EXPECT_EQ(sample->fileSizeNumber(), static_cast<double>(fs::file_size(kick_)));
    EXPECT_FALSE(sample->sizeText().isEmpty());
    EXPECT_TRUE(sample->loadErrorText().isEmpty());

    const auto peaks = sample->peaksVariant();
    ASSERT_EQ(peaks.size(), 512);
    const auto loudest =
        std::max_element(peaks.begin(), peaks.end(),
                         [](const QVariant& a, const QVariant& b) { return a.toDouble() < b.toDouble(); });
    EXPECT_DOUBLE_EQ(loudest->toDouble(), 1.0);
    EXPECT_TRUE(
        std::all_of(peaks.begin(), peaks.end(), [](const QVariant& peak) { return peak.toDouble() > 0; }));

    // The whole file is kept until the range is moved, and the range stays inside the file.
    EXPECT_EQ(sample->keptLow(), 0.0);
    EXPECT_DOUBLE_EQ(sample->keptHigh(), 0.5);
    sample->setKeptRange(-1, 9);
    EXPECT_EQ(sample->keptLow(), 0.0);
    EXPECT_DOUBLE_EQ(sample->keptHigh(), 0.5);
    sample->setKeptRange(0.4, 0.1);
    EXPECT_DOUBLE_EQ(sample->keptLow(), 0.4);
    EXPECT_DOUBLE_EQ(sample->keptHigh(), 0.4);
}

TEST_F(SamplePreviewViewModelTest, OnlyAnAudioFileIsShownAndAnUnreadableOneSaysSo) {
    auto sample = preview();
    const auto song = temp_ / "Songs/SET.m8s";
    test::writeFile(song, "not audio");
    sample->showFile(song);
    EXPECT_TRUE(sample->sample().empty());
    EXPECT_FALSE(sample->isLoading());

    const auto broken = temp_ / "Samples/broken.wav";
    test::writeFile(broken, "RIFF but no more");
    sample->showFile(broken);
    waitForAnalysis(*sample);
    EXPECT_EQ(sample->loadErrorText(), "Could not read audio file at broken.wav");
    EXPECT_FALSE(sample->hasMetadata());
    EXPECT_TRUE(sample->peaksVariant().isEmpty());

    sample->showFile(std::nullopt);
    EXPECT_TRUE(sample->sample().empty());
    EXPECT_TRUE(sample->loadErrorText().isEmpty());
}

// The first file's analysis is held until the second file is on show, then finishes with its own
// values: they must never replace the second file's.
TEST_F(SamplePreviewViewModelTest, ASampleChosenBeforeTheLastOneEndedNeverShowsTheOldValues) {
    std::binary_semaphore release(0);
    std::atomic<bool> kickEntered = false;
    SamplePreviewViewModel::Dependencies dependencies;
    dependencies.readMetadata = [&](const fs::path& file, std::stop_token) {
        if (file == kick_) {
            kickEntered = true;
            release.acquire();
        }
        return SampleAnalyzer::metadata(file, {});
    };
    dependencies.readPeaks = [](const fs::path& file, int bins, std::stop_token) {
        return SampleAnalyzer::peaks(file, bins, {});
    };
    auto sample = preview(std::move(dependencies));

    sample->setSample(kick_);
    ASSERT_TRUE(test::waitFor([&] { return kickEntered.load(); }));
    sample->setSample(pad_);
    waitForAnalysis(*sample);
    EXPECT_EQ(sample->sampleRate(), 22050.0);

    release.release();
    ASSERT_TRUE(test::waitFor([&] { return analysesEnded_ == 2; }));
    EXPECT_EQ(sample->sample(), pad_);
    EXPECT_EQ(sample->sampleRate(), 22050.0);
    EXPECT_EQ(sample->channelCount(), 1);
    EXPECT_EQ(sample->bitDepthVariant(), QVariant(24));
    EXPECT_EQ(sample->keptHigh(), sample->durationSeconds());
    EXPECT_NEAR(sample->durationSeconds(), 0.25, 0.001);
}

TEST_F(SamplePreviewViewModelTest, SaveTrimmedWritesTheKeptRangeAsAWavAndNeverOverTheSample) {
    auto sample = preview();
    sample->setSample(kick_);
    EXPECT_EQ(sample->defaultTrimName(), "kick-trim.wav");
    EXPECT_EQ(sample->defaultTrimURL(),
              QUrl::fromLocalFile(QString::fromStdString((temp_ / "Samples/kick-trim.wav").string())));
    EXPECT_EQ(SamplePreviewViewModel::trimPanelTitle(), "Save Trimmed Sample");
    waitForAnalysis(*sample);

    sample->setKeptRange(0.1, 0.3);
    fs::create_directories(temp_ / "Exports");
    sample->saveTrimmedTo(QString::fromStdString("file://" + (temp_ / "Exports/short").string()));
    EXPECT_TRUE(sample->isSavingTrim());
    ASSERT_TRUE(test::waitFor([&] { return savesFinished_ == 1; }));
    EXPECT_FALSE(sample->isSavingTrim());
    EXPECT_TRUE(sample->trimSaveErrorText().isEmpty()) << sample->trimSaveErrorText().toStdString();
    EXPECT_EQ(sample->trimSaveStatusText(), "Saved short.wav");
    const auto written = test::readAudio(temp_ / "Exports/short.wav");
    EXPECT_EQ(written.frames, 13230 - 4410);  // ⌊0.3 × 44100⌋ − ⌊0.1 × 44100⌋
    EXPECT_EQ(written.sampleRate, 44100);
    EXPECT_EQ(written.channels, 2);

    const auto before = test::readFile(kick_);
    sample->saveTrimmed(temp_ / "Samples/kick");  // ".wav" is added, and that is the sample
    EXPECT_EQ(savesFinished_, 2);
    EXPECT_FALSE(sample->isSavingTrim());
    EXPECT_EQ(sample->trimSaveErrorText(),
              "Refusing to overwrite the original sample. Choose a different name.");
    EXPECT_TRUE(sample->trimSaveStatusText().isEmpty());
    EXPECT_EQ(test::readFile(kick_), before);
}

TEST_F(SamplePreviewViewModelTest, TheSongListGoesToTheDesktopUnderTheSamplesHash) {
    desktop_ = temp_ / "Desktop";
    fs::create_directories(*desktop_);
    auto sample = preview();
    sample->setSample(kick_);
    sample->writeSongListOf({"Songs/LIVE.m8s", "Instruments/KICK.m8i", "Songs/Old/DEMO.M8S"});

    const auto file = *desktop_ / ("Tapekeep-songs-using-" + TextHash::hexOf(kick_.string()) + ".txt");
    EXPECT_TRUE(sample->songListErrorText().isEmpty()) << sample->songListErrorText().toStdString();
    EXPECT_EQ(sample->songListStatusText().toStdString(),
              "Saved " + file.filename().string() + " to the Desktop");
    EXPECT_EQ(test::readFile(file),
              "Songs using " + kick_.string() + "\nSongs/LIVE.m8s\nSongs/Old/DEMO.M8S\n");

    desktop_.reset();
    sample->setSample(pad_);
    sample->writeSongListOf({"Songs/LIVE.m8s"});
    EXPECT_EQ(sample->songListErrorText(), "Desktop not available");
    EXPECT_TRUE(sample->songListStatusText().isEmpty());
    EXPECT_EQ(std::distance(fs::directory_iterator(temp_ / "Desktop"), fs::directory_iterator()), 1);
}

}  // namespace
}  // namespace tapekeep

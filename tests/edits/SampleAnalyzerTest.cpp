// Metadata and waveforms of real audio made by sox: what each format reports, peaks against the
// samples read back with libsndfile, silence, and the refusals in the application's words.

#include "edits/SampleAnalyzer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "SoxAudio.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "edits/SampleAnalyzerError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::makeAudio;
using test::readAudio;

class SampleAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
    }

    std::string failureOf(const std::function<void()>& analysis) {
        try {
            analysis();
        } catch (const SampleAnalyzerError& error) {
            return error.description();
        }
        ADD_FAILURE() << "the analysis succeeded";
        return "";
    }

    test::TempDir temp_;
};

TEST_F(SampleAnalyzerTest, MetadataTellsRateChannelsWidthAndDurationOfEachFormat) {
    const struct {
        std::string name;
        std::vector<std::string> format;
        double seconds;
        std::optional<int> bitDepth;
        std::string formatName;
    } cases[] = {
        {"a.wav", {"-r", "48000", "-c", "2", "-b", "24"}, 1.5, 24, "WAV"},
        {"b.WAV", {"-r", "44100", "-c", "1", "-e", "floating-point", "-b", "32"}, 0.5, 32, "WAV"},
        {"c.aif", {"-r", "22050", "-c", "2", "-b", "16"}, 2.0, 16, "AIFF"},
        {"d.flac", {"-r", "44100", "-c", "2", "-b", "24"}, 1.0, 24, "FLAC"},
        {"e.ogg", {"-r", "44100", "-c", "2"}, 1.0, std::nullopt, "OGG"},
        {"f.mp3", {"-r", "44100", "-c", "1"}, 1.0, std::nullopt, "MP3"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        makeAudio(temp_ / c.name, c.format, c.seconds);
        const SampleMetadata metadata = SampleAnalyzer::metadata(temp_ / c.name, {});
        const auto decoded = readAudio(temp_ / c.name);
        EXPECT_EQ(metadata.url, temp_ / c.name);
        EXPECT_EQ(metadata.sampleRate, decoded.sampleRate);
        EXPECT_EQ(metadata.channelCount, decoded.channels);
        EXPECT_EQ(metadata.bitDepth, c.bitDepth);
        EXPECT_EQ(metadata.formatName, c.formatName);
        EXPECT_EQ(metadata.fileSize, fs::file_size(temp_ / c.name));
        EXPECT_TRUE(metadata.modifiedDate.has_value());
        // An MP3's frames are counted by decoding it, not taken from its header's estimate.
        EXPECT_EQ(metadata.frameCount, decoded.frames);
        EXPECT_DOUBLE_EQ(metadata.durationSeconds, double(decoded.frames) / decoded.sampleRate);
    }
}

TEST_F(SampleAnalyzerTest, PeaksAreEachBinsLoudestSampleOverTheLoudestBins) {
    makeAudio(temp_ / "noise.wav", {"-r", "44100", "-c", "2", "-b", "16"}, 3.0);
    const int bins = 7;  // bins that don't divide the frames, across blocks of 32,768
    const SampleWaveform waveform = SampleAnalyzer::peaks(temp_ / "noise.wav", bins, {});
    const auto samples = readAudio(temp_ / "noise.wav");
    std::vector<float> low(bins, 0), high(bins, 0);
    for (std::int64_t frame = 0; frame < samples.frames; ++frame) {
        const auto bin = std::size_t(frame * bins / samples.frames);
        for (int channel = 0; channel < samples.channels; ++channel) {
            const float value =
                float(samples.integers[std::size_t(frame * samples.channels + channel)]) / 2147483648.0f;
            low[bin] = std::min(low[bin], value);
            high[bin] = std::max(high[bin], value);
        }
    }
    float loudest = 0;
    for (int bin = 0; bin < bins; ++bin) loudest = std::max({loudest, -low[bin], high[bin]});
    ASSERT_EQ(waveform.peaks.size(), std::size_t(bins));
    ASSERT_EQ(waveform.ranges.size(), std::size_t(bins));
    for (std::size_t bin = 0; bin < std::size_t(bins); ++bin) {
        SCOPED_TRACE(bin);
        EXPECT_FLOAT_EQ(waveform.ranges[bin].low, low[bin]);
        EXPECT_FLOAT_EQ(waveform.ranges[bin].high, high[bin]);
        EXPECT_FLOAT_EQ(waveform.peaks[bin], std::max(-low[bin], high[bin]) / loudest);
    }
    EXPECT_FLOAT_EQ(*std::ranges::max_element(waveform.peaks), 1.0f);
    EXPECT_DOUBLE_EQ(waveform.durationSeconds, 3.0);
}

TEST_F(SampleAnalyzerTest, SilenceReadsZeroAndMoreBinsThanFramesLeaveTheRestEmpty) {
    makeAudio(temp_ / "silence.wav", {"-r", "8000", "-c", "1", "-b", "16"}, 1.0, {"sine", "440", "vol", "0"});
    const SampleWaveform silence = SampleAnalyzer::peaks(temp_ / "silence.wav", 100, {});
    EXPECT_EQ(silence.peaks, std::vector<float>(100, 0.0f));

    makeAudio(temp_ / "short.wav", {"-r", "8000", "-c", "1", "-b", "16"}, 0.001);  // 8 frames
    const SampleWaveform sparse = SampleAnalyzer::peaks(temp_ / "short.wav", 32, {});
    ASSERT_EQ(sparse.peaks.size(), 32u);
    EXPECT_EQ(std::ranges::count_if(sparse.peaks, [](float peak) { return peak > 0; }), 8);
    EXPECT_TRUE(SampleAnalyzer::peaks(temp_ / "short.wav", 0, {}).peaks.empty());
}

TEST_F(SampleAnalyzerTest, AFileWithoutFramesHasNoPeaksAndNoDuration) {
    test::makeEmptyWav(temp_ / "empty.wav");
    const SampleWaveform waveform = SampleAnalyzer::peaks(temp_ / "empty.wav", 50, {});
    EXPECT_TRUE(waveform.peaks.empty());
    EXPECT_EQ(waveform.durationSeconds, 0);
}

TEST_F(SampleAnalyzerTest, RefusesWhatIsNoAudioAndAFileCutShortInTheApplicationsWords) {
    test::writeFile(temp_ / "notes.wav", "these are notes, not audio\n");
    test::writeFile(temp_ / "zero.wav", "");
    EXPECT_EQ(failureOf([&] { SampleAnalyzer::metadata(temp_ / "notes.wav", {}); }),
              "Could not read audio file at notes.wav");
    EXPECT_EQ(failureOf([&] { SampleAnalyzer::peaks(temp_ / "zero.wav", 10, {}); }),
              "Could not read audio file at zero.wav");

    makeAudio(temp_ / "full.wav", {"-r", "44100", "-c", "2", "-b", "24"}, 2.0);
    const std::string bytes = test::readFile(temp_ / "full.wav");
    test::writeFile(temp_ / "cut.wav", bytes.substr(0, bytes.size() / 2));
    const std::int64_t present = readAudio(temp_ / "cut.wav").frames;
    EXPECT_EQ(SampleAnalyzer::metadata(temp_ / "cut.wav", {}).frameCount, 88200);
    EXPECT_EQ(failureOf([&] { SampleAnalyzer::peaks(temp_ / "cut.wav", 10, {}); }),
              "Audio read ended early (expected 88200 frames, read " + std::to_string(present) + ")");
}

TEST_F(SampleAnalyzerTest, ACancelledAnalysisEndsWithTheCancellation) {
    makeAudio(temp_ / "pad.wav", {"-r", "44100", "-c", "2", "-b", "16"}, 1.0);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(SampleAnalyzer::metadata(temp_ / "pad.wav", stop.get_token()), Cancelled);
    EXPECT_THROW(SampleAnalyzer::peaks(temp_ / "pad.wav", 10, stop.get_token()), Cancelled);
}

}  // namespace
}  // namespace tapekeep

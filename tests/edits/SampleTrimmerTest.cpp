// Trims of real audio made by sox: the output's format for each kind of source, the kept frames
// against the source's read back with libsndfile, the clamping and the refusals in the
// application's words, and that neither a refusal nor a failure leaves a file or touches the source.

#include "edits/SampleTrimmer.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>

#include "FileContent.h"
#include "FileSnapshot.h"
#include "SoxAudio.h"
#include "TempDir.h"
#include "backup/AtomicFileExportError.h"
#include "core/Cancelled.h"
#include "edits/SampleTrimmerError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::AudioSamples;
using test::FileSnapshot;
using test::makeAudio;
using test::readAudio;

class SampleTrimmerTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
    }

    // The text of the error the trim fails with, after checking that it left no file behind.
    std::string failureOf(const fs::path& source, double low, double high, const fs::path& destination = {}) {
        const FileSnapshot before = FileSnapshot::of(source);
        const auto names = test::namesIn(temp_.path());
        try {
            SampleTrimmer::trim(source, destination.empty() ? temp_ / "out.wav" : destination, low, high, {});
        } catch (const SampleTrimmerError& error) {
            EXPECT_EQ(test::namesIn(temp_.path()), names);
            EXPECT_EQ(FileSnapshot::of(source), before);
            return error.description();
        }
        ADD_FAILURE() << "the trim of " << source << " succeeded";
        return "";
    }

    test::TempDir temp_;
};

// ---- formats --------------------------------------------------------------------------------

TEST_F(SampleTrimmerTest, PcmKeepsItsSampleFormatAndAnythingElseBecomes16BitWav) {
    const struct {
        std::string name;
        std::vector<std::string> format;
        int outputSubtype;
    } cases[] = {
        {"int8.wav", {"-r", "22050", "-c", "1", "-b", "8"}, SF_FORMAT_PCM_U8},
        {"int16.wav", {"-r", "44100", "-c", "2", "-b", "16"}, SF_FORMAT_PCM_16},
        {"int24.wav", {"-r", "48000", "-c", "2", "-b", "24"}, SF_FORMAT_PCM_24},
        {"int32.wav", {"-r", "44100", "-c", "1", "-b", "32"}, SF_FORMAT_PCM_32},
        {"float32.wav", {"-r", "44100", "-c", "2", "-e", "floating-point", "-b", "32"}, SF_FORMAT_FLOAT},
        {"float64.wav", {"-r", "96000", "-c", "1", "-e", "floating-point", "-b", "64"}, SF_FORMAT_DOUBLE},
        {"int24.aiff", {"-r", "44100", "-c", "2", "-b", "24"}, SF_FORMAT_PCM_24},
        {"int24.flac", {"-r", "48000", "-c", "2", "-b", "24"}, SF_FORMAT_PCM_16},
        {"mono.mp3", {"-r", "44100", "-c", "1"}, SF_FORMAT_PCM_16},
        {"stereo.ogg", {"-r", "44100", "-c", "2"}, SF_FORMAT_PCM_16},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        makeAudio(temp_ / c.name, c.format, 1.0);
        const fs::path output = temp_ / ("trim-" + c.name + ".wav");
        SampleTrimmer::trim(temp_ / c.name, output, 0.25, 0.5, {});
        const AudioSamples source = readAudio(temp_ / c.name, 0, 1);
        const AudioSamples trimmed = readAudio(output);
        EXPECT_EQ(trimmed.format, SF_FORMAT_WAV | c.outputSubtype);
        EXPECT_EQ(trimmed.sampleRate, source.sampleRate);
        EXPECT_EQ(trimmed.channels, source.channels);
        EXPECT_EQ(trimmed.frames,
                  std::int64_t(0.5 * source.sampleRate) - std::int64_t(0.25 * source.sampleRate));
    }
}

// ---- the kept frames ------------------------------------------------------------------------

TEST_F(SampleTrimmerTest, KeepsTheSourcesFramesOfTheRangeSampleForSample) {
    const struct {
        std::string name;
        std::vector<std::string> format;
    } cases[] = {
        {"int16.wav", {"-r", "44100", "-c", "2", "-b", "16"}},
        {"int24.wav", {"-r", "48000", "-c", "2", "-b", "24"}},
        {"int32.wav", {"-r", "44100", "-c", "1", "-b", "32"}},
        {"float32.wav", {"-r", "44100", "-c", "2", "-e", "floating-point", "-b", "32"}},
        {"float64.wav", {"-r", "8000", "-c", "1", "-e", "floating-point", "-b", "64"}},
        {"int16.flac", {"-r", "44100", "-c", "2", "-b", "16"}},
    };
    // Long enough for several blocks of 32,768 frames, and a range that starts inside the first.
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        makeAudio(temp_ / c.name, c.format, 3.0);
        const fs::path output = temp_ / ("trim-" + c.name + ".wav");
        const std::int64_t frames = SampleTrimmer::trim(temp_ / c.name, output, 0.3, 2.7, {});
        const AudioSamples trimmed = readAudio(output);
        const auto rate = double(trimmed.sampleRate);
        const auto first = std::int64_t(0.3 * rate);
        EXPECT_EQ(frames, std::int64_t(2.7 * rate) - first);
        EXPECT_EQ(trimmed.frames, frames);
        const AudioSamples kept = readAudio(temp_ / c.name, first, frames);
        EXPECT_EQ(trimmed.integers, kept.integers);
        EXPECT_EQ(trimmed.floats, kept.floats);
    }
}

TEST_F(SampleTrimmerTest, AnMp3KeepsItsDecodedFramesWithin16BitRounding) {
    makeAudio(temp_ / "loop.mp3", {"-r", "44100", "-c", "2"}, 2.0);
    const std::int64_t frames = SampleTrimmer::trim(temp_ / "loop.mp3", temp_ / "loop.wav", 0.5, 1.5, {});
    ASSERT_EQ(frames, 44100);
    const AudioSamples trimmed = readAudio(temp_ / "loop.wav");
    const AudioSamples kept = readAudio(temp_ / "loop.mp3", 22050, frames);
    ASSERT_EQ(trimmed.integers.size(), kept.integers.size());
    for (std::size_t i = 0; i < kept.integers.size(); ++i)
        ASSERT_LE(
            std::abs((std::int64_t(trimmed.integers[i]) >> 16) - (std::int64_t(kept.integers[i]) >> 16)), 1)
            << "sample " << i;
}

TEST_F(SampleTrimmerTest, ARangeBeyondBothEndsKeepsTheWholeFile) {
    for (const std::string name : {"whole.wav", "whole.mp3"}) {
        SCOPED_TRACE(name);
        makeAudio(temp_ / name, {"-r", "44100", "-c", "2"}, 1.5);
        const fs::path output = temp_ / (name + "-trim.wav");
        const std::int64_t frames = SampleTrimmer::trim(temp_ / name, output, -1, 1000, {});
        const AudioSamples source = readAudio(temp_ / name);
        EXPECT_EQ(frames, source.frames);
        EXPECT_EQ(readAudio(output).frames, source.frames);
    }
    EXPECT_EQ(readAudio(temp_ / "whole.wav-trim.wav").integers, readAudio(temp_ / "whole.wav").integers);
}

// ---- refusals -------------------------------------------------------------------------------

TEST_F(SampleTrimmerTest, AnEmptyRangeIsRefusedWithTheValuesAsGiven) {
    makeAudio(temp_ / "two.wav", {"-r", "8000", "-c", "1", "-b", "16"}, 2.0);
    EXPECT_EQ(failureOf(temp_ / "two.wav", 0.5, 0.5), "Trim range invalid: 0.50\u20130.50s (file is 2.00s)");
    EXPECT_EQ(failureOf(temp_ / "two.wav", 1.5, 0.5), "Trim range invalid: 1.50\u20130.50s (file is 2.00s)");
    EXPECT_EQ(failureOf(temp_ / "two.wav", 5, 6), "Trim range invalid: 5.00\u20136.00s (file is 2.00s)");
    EXPECT_EQ(failureOf(temp_ / "two.wav", -3, -1), "Trim range invalid: -3.00\u2013-1.00s (file is 2.00s)");
    // 800.08 and 800.4 frames: both ends on frame 800.
    EXPECT_EQ(failureOf(temp_ / "two.wav", 0.10001, 0.10005),
              "Trim range invalid: 0.10\u20130.10s (file is 2.00s)");
}

TEST_F(SampleTrimmerTest, AFileCutShortFailsWhereItsDataEnds) {
    makeAudio(temp_ / "full.wav", {"-r", "44100", "-c", "2", "-b", "24"}, 2.0);
    const std::string bytes = test::readFile(temp_ / "full.wav");
    test::writeFile(temp_ / "cut.wav", bytes.substr(0, bytes.size() / 2));
    // What the cut file still holds, as libsndfile counts it.
    const std::int64_t present = readAudio(temp_ / "cut.wav").frames;
    ASSERT_GT(present, 0);
    EXPECT_EQ(failureOf(temp_ / "cut.wav", 0, 5),
              "Audio read ended early (expected 88200 frames, read " + std::to_string(present) + ")");
    EXPECT_EQ(failureOf(temp_ / "cut.wav", 1.9, 2), "Audio read ended early (expected 4410 frames, read 0)");
}

TEST_F(SampleTrimmerTest, WhatIsNoAudioCannotBeRead) {
    test::writeFile(temp_ / "notes.wav", "these are notes, not audio\n");
    test::writeFile(temp_ / "empty.wav", "");
    EXPECT_EQ(failureOf(temp_ / "notes.wav", 0, 1), "Cannot read notes.wav");
    EXPECT_EQ(failureOf(temp_ / "empty.wav", 0, 1), "Cannot read empty.wav");
    EXPECT_EQ(failureOf(temp_ / "absent.wav", 0, 1), "Cannot read absent.wav");
}

TEST_F(SampleTrimmerTest, AnUnwritableFolderIsNamedByTheDestination) {
    makeAudio(temp_ / "kick.wav", {"-r", "44100", "-c", "1", "-b", "16"}, 0.5);
    EXPECT_EQ(failureOf(temp_ / "kick.wav", 0, 1, temp_ / "none" / "kick-trim.wav"),
              "Cannot write kick-trim.wav");
    EXPECT_FALSE(fs::exists(temp_ / "none"));
}

// ---- the destination appears whole or not at all -----------------------------------------------

TEST_F(SampleTrimmerTest, AFailedOrCancelledTrimLeavesThePreviousDestinationAndTheSourceAlone) {
    makeAudio(temp_ / "pad.wav", {"-r", "44100", "-c", "2", "-b", "24"}, 2.0);
    test::writeFile(temp_ / "pad-trim.wav", "the previous trim");
    const FileSnapshot source = FileSnapshot::of(temp_ / "pad.wav");
    const FileSnapshot previous = FileSnapshot::of(temp_ / "pad-trim.wav");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(SampleTrimmer::trim(temp_ / "pad.wav", temp_ / "pad-trim.wav", 0, 1, stop.get_token()),
                 Cancelled);
    EXPECT_THROW(SampleTrimmer::trim(temp_ / "pad.wav", temp_ / "pad-trim.wav", 1, 1, {}),
                 SampleTrimmerError);
    EXPECT_THROW(SampleTrimmer::trim(temp_ / "pad.wav", temp_ / "pad.wav", 0, 1, {}), AtomicFileExportError);
    EXPECT_EQ(FileSnapshot::of(temp_ / "pad-trim.wav"), previous);
    EXPECT_EQ(FileSnapshot::of(temp_ / "pad.wav"), source);
    EXPECT_EQ(test::namesIn(temp_.path()), (std::vector<std::string>{"pad-trim.wav", "pad.wav"}));

    SampleTrimmer::trim(temp_ / "pad.wav", temp_ / "pad-trim.wav", 0, 1, {});
    EXPECT_EQ(readAudio(temp_ / "pad-trim.wav").frames, 44100);
    EXPECT_EQ(FileSnapshot::of(temp_ / "pad.wav"), source);
    EXPECT_TRUE(test::exportTemporariesBelow(temp_.path()).empty());
}

}  // namespace
}  // namespace tapekeep

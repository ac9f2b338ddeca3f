// sample and trim through the real CLI, on audio made by sox: the JSON and plain answers, the
// refusals in the application's words with their exit codes, and that a trim interrupted mid-write
// leaves neither a temporary file nor a changed destination or source.

#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "FileContent.h"
#include "FileSnapshot.h"
#include "LiveProcesses.h"
#include "SoxAudio.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::CliProcess;
using test::FileSnapshot;
using test::readAudio;

class SampleCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        test::makeAudio(pad_, {"-r", "48000", "-c", "2", "-b", "24"}, 1.5);
    }

    test::CliResult cli(const std::vector<std::string>& arguments) const {
        return test::runCli(home_, arguments);
    }

    test::TempDir temp_;
    fs::path home_ = temp_ / "home";
    fs::path pad_ = temp_ / "pad.wav";
};

// ---- sample -----------------------------------------------------------------------------------

TEST_F(SampleCommandTest, SampleTellsTheMetadataAndWithPeaksTheWaveform) {
    const auto metadata = cli({"--json", "sample", pad_.string()});
    ASSERT_EQ(metadata.status, 0) << metadata.err;
    EXPECT_EQ(
        nlohmann::json::parse(metadata.out),
        (nlohmann::json{
            {"frames", 72000}, {"sampleRate", 48000}, {"channels", 2}, {"bitDepth", 24}, {"duration", 1.5}}));

    const auto waveform = cli({"sample", pad_.string(), "--peaks", "5", "--json"});
    ASSERT_EQ(waveform.status, 0) << waveform.err;
    const auto peaks = nlohmann::json::parse(waveform.out).at("peaks");
    ASSERT_EQ(peaks.size(), 5u);
    for (const auto& peak : peaks) {
        ASSERT_EQ(peak.size(), 2u);
        EXPECT_LT(peak[0].get<double>(), 0);  // white noise swings both ways in every bucket
        EXPECT_GT(peak[1].get<double>(), 0);
        EXPECT_GE(peak[0].get<double>(), -1);
        EXPECT_LE(peak[1].get<double>(), 1);
    }

    test::makeAudio(temp_ / "loop.mp3", {"-r", "44100", "-c", "1"}, 1.0);
    const auto mp3 = cli({"--json", "sample", (temp_ / "loop.mp3").string()});
    ASSERT_EQ(mp3.status, 0) << mp3.err;
    EXPECT_TRUE(nlohmann::json::parse(mp3.out).at("bitDepth").is_null());

    const auto plain = cli({"sample", pad_.string()});
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out,
              "frames: 72000\nsample rate: 48000 Hz\nchannels: 2\nbit depth: 24\nduration: 1.500 s\n");
}

TEST_F(SampleCommandTest, SampleRefusesWhatIsNoAudioAndAWrongCount) {
    test::writeFile(temp_ / "notes.wav", "these are notes, not audio\n");
    const auto notes = cli({"sample", (temp_ / "notes.wav").string()});
    EXPECT_EQ(notes.status, 1);
    EXPECT_EQ(notes.lastErrorLine, "Could not read audio file at notes.wav");
    EXPECT_EQ(cli({"sample", pad_.string(), "--peaks", "0"}).status, 2);
    EXPECT_EQ(cli({"sample"}).status, 2);
}

// ---- trim -------------------------------------------------------------------------------------

TEST_F(SampleCommandTest, TrimWritesANewWavAndSaysWhereAndHowLong) {
    const auto json = cli(
        {"--json", "trim", pad_.string(), (temp_ / "pad-trim.wav").string(), "--from", "0.5", "--to", "1"});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out),
              (nlohmann::json{{"file", (temp_ / "pad-trim.wav").string()}, {"frames", 24000}}));
    EXPECT_EQ(readAudio(temp_ / "pad-trim.wav").integers, readAudio(pad_, 24000, 24000).integers);

    // A name without the extension gets it; -1 and a time past the end keep the whole file.
    const auto plain = cli({"trim", pad_.string(), (temp_ / "whole").string(), "--from=-1", "--to", "99"});
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, (temp_ / "whole.wav").string() + " (72000 frames)\n");
    EXPECT_EQ(readAudio(temp_ / "whole.wav").integers, readAudio(pad_).integers);
}

TEST_F(SampleCommandTest, TrimRefusesInTheApplicationsWordsAndWritesNothing) {
    const std::string bytes = test::readFile(pad_);
    test::writeFile(temp_ / "cut.wav", bytes.substr(0, bytes.size() / 3));
    const std::int64_t present = readAudio(temp_ / "cut.wav").frames;
    const std::string out = (temp_ / "out.wav").string();
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string message;
    } cases[] = {
        {{"trim", pad_.string(), out, "--from", "1", "--to", "1"},
         1,
         "Trim range invalid: 1.00\u20131.00s (file is 1.50s)"},
        {{"trim", pad_.string(), pad_.string(), "--from", "0", "--to", "1"},
         1,
         "Refusing to overwrite the original sample. Choose a different name."},
        {{"trim", (temp_ / "cut.wav").string(), out, "--from", "0", "--to", "2"},
         1,
         "Audio read ended early (expected 72000 frames, read " + std::to_string(present) + ")"},
        {{"trim", (temp_ / "none.wav").string(), out, "--from", "0", "--to", "1"}, 1, "Cannot read none.wav"},
        {{"trim", pad_.string(), out, "--from", "0"},
         2,
         "--to is required. Usage: tapekeep-cli trim SOURCE DEST --from SECONDS --to SECONDS"},
        {{"trim", pad_.string(), out, "--from", "soon", "--to", "1"},
         2,
         "--from takes a number of seconds, not \"soon\"."},
    };
    const auto before = test::treeOf(temp_.path());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        const auto result = cli(c.arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.lastErrorLine, c.message);
    }
    fs::remove_all(home_);
    EXPECT_EQ(test::treeOf(temp_.path()), before);
}

TEST_F(SampleCommandTest, AnInterruptedTrimLeavesThePreviousFileAndTheSourceAlone) {
    test::makeAudio(temp_ / "long.wav", {"-r", "44100", "-c", "2", "-b", "24"}, 5);
    test::writeFile(temp_ / "long-trim.wav", "the previous trim");
    const FileSnapshot source = FileSnapshot::of(temp_ / "long.wav");
    const FileSnapshot previous = FileSnapshot::of(temp_ / "long-trim.wav");
    const fs::path marker = temp_ / "paused";
    CliProcess process(
        home_,
        {"trim", (temp_ / "long.wav").string(), (temp_ / "long-trim.wav").string(), "--from", "0", "--to",
         "5"},
        {{"TAPEKEEP_TEST_PAUSE_AT", "trim-block"}, {"TAPEKEEP_TEST_PAUSE_MARKER", marker.string()}});
    ASSERT_TRUE(test::waitUntil([&] { return fs::exists(marker) || process.hasExited(); }) &&
                fs::exists(marker))
        << process.err();
    EXPECT_EQ(test::exportTemporariesBelow(temp_.path()).size(), 1u);  // the first block is written
    process.signal(SIGINT);
    EXPECT_EQ(process.wait(), 130) << process.err();
    fs::remove(marker);
    EXPECT_TRUE(test::exportTemporariesBelow(temp_.path()).empty());
    EXPECT_EQ(FileSnapshot::of(temp_ / "long-trim.wav"), previous);
    EXPECT_EQ(FileSnapshot::of(temp_ / "long.wav"), source);
}

}  // namespace
}  // namespace tapekeep

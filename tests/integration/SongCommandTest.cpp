// The song command on files that devices wrote, through the real CLI.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

const fs::path fixtures = TAPEKEEP_FIXTURES_DIR;

nlohmann::json songJson(const test::TempDir& home, const std::string& file) {
    const auto result = test::runCli(home.path(), {"--json", "song", (fixtures / file).string()});
    EXPECT_EQ(result.status, 0) << result.err;
    return nlohmann::json::parse(result.out);
}

TEST(SongCommandTest, InstrumentFileGivesItsTypeNameAndSample) {
    test::TempDir home;
    EXPECT_EQ(songJson(home, "FMDUBSTABEQ_4_1.m8i"),
              (nlohmann::json{{"type", "FMSYNTH"}, {"name", "FMDUBSTABEQ"}, {"samplePath", nullptr}}));
}

TEST(SongCommandTest, SongListsItsInstrumentsByTheirDeviceNames) {
    test::TempDir home;
    const auto song = songJson(home, "TEST-FILE.m8s");
    EXPECT_EQ(song.at("name"), "TEST-FILE");
    std::vector<std::string> names;
    for (const auto& instrument : song.at("instruments")) names.push_back(instrument.at("name"));
    EXPECT_EQ(names, (std::vector<std::string>{"WAV", "MAC", "SAMP", "FM", "HYPER", "MIDI", "EXT_INST"}));
    EXPECT_EQ(song.at("instruments").at(2).at("samplePath"), "/Samples/Drums/Hits/TR505/bass drum 505.wav");
}

}  // namespace
}  // namespace tapekeep

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::readFile;
using test::writeFile;

std::map<std::string, std::string> filesBelow(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        files[entry.path().lexically_relative(folder).string()] =
            entry.is_regular_file() ? readFile(entry.path()) : "(folder)";
    return files;
}

// A song with its samples in a store on disk, dragged out through the real CLI into a folder.
class DragExportCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(version_ / "Songs/sub/live.m8s",
                  test::deviceSongWithSamples({"/Samples/Drums/Kick.wav", "../Loops/beat.wav"}));
        writeFile(version_ / "Samples/Drums/Kick.wav", "RIFF kick");
        writeFile(version_ / "Songs/Loops/beat.wav", "RIFF beat");
        writeFile(version_ / "Songs/plain.m8s", test::deviceSongWithSamples({}));
        writeFile(version_ / "Songs/lost.m8s", test::deviceSongWithSamples({"/Samples/gone.wav"}));
        fs::create_directory_symlink(version_.filename(), set_ / "latest");
        fs::create_directories(temporary_);
    }

    test::CliResult dragExport(const std::string& song, const fs::path& destination, bool json = true) const {
        std::vector<std::string> arguments{"--base", (temp_ / "store").string()};
        if (json) arguments.push_back("--json");
        arguments.insert(arguments.end(),
                         {"drag-export", "M8CARD_4C3C645B", "latest", song, destination.string()});
        return test::runCli(temp_ / "home", arguments, {{"TMPDIR", temporary_.string()}});
    }

    // What the command left in the application's drag folder.
    [[nodiscard]] std::map<std::string, std::string> dragLeftovers() const {
        const fs::path drags = temporary_ / ("tapekeep-drag-" + std::to_string(::geteuid()));
        return fs::exists(drags) ? filesBelow(drags) : std::map<std::string, std::string>{};
    }

    test::TempDir temp_;
    const fs::path set_ = temp_ / "store/M8CARD_4C3C645B";
    const fs::path version_ = set_ / "backup-2026-01-01-100000";
    const fs::path temporary_ = temp_ / "tmp";
};

TEST_F(DragExportCommandTest, WritesTheSongAndItsSamplesAtTheirPlaces) {
    const fs::path destination = temp_ / "dest";
    fs::create_directories(destination);
    const auto json = dragExport("Songs/sub/live.m8s", destination);
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(Json::parse(json.out), Json({{"files",
                                            {(destination / "Songs/sub/live.m8s").string(),
                                             (destination / "Samples/Drums/Kick.wav").string(),
                                             (destination / "Songs/Loops/beat.wav").string()}}}));
    for (const auto* path : {"Songs/sub/live.m8s", "Samples/Drums/Kick.wav", "Songs/Loops/beat.wav"})
        EXPECT_TRUE(readFile(destination / path) == readFile(version_ / path)) << path;
    EXPECT_TRUE(dragLeftovers().empty());

    const fs::path plainDestination = temp_ / "plain";
    fs::create_directories(plainDestination);
    const auto plain = dragExport("/Songs/plain.m8s", plainDestination, false);
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, (plainDestination / "Songs/plain.m8s").string() + "\n");
    EXPECT_TRUE(readFile(plainDestination / "Songs/plain.m8s") == readFile(version_ / "Songs/plain.m8s"));
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(plainDestination), {}), 2);
}

TEST_F(DragExportCommandTest, RefusesWithoutTouchingWhatIsInTheFolder) {
    const fs::path destination = temp_ / "dest";
    writeFile(destination / "Samples/Drums/Kick.wav", "mine");
    const auto before = filesBelow(destination);

    const auto taken = dragExport("Songs/sub/live.m8s", destination);
    EXPECT_EQ(taken.status, 1) << taken.err;
    EXPECT_EQ(
        taken.lastErrorLine,
        "Nothing was written: " + (destination / "Samples/Drums/Kick.wav").string() + " already exists.");
    EXPECT_EQ(taken.out, "");
    EXPECT_EQ(filesBelow(destination), before);
    EXPECT_TRUE(dragLeftovers().empty());

    const auto lost = dragExport("Songs/lost.m8s", destination);
    EXPECT_EQ(lost.status, 1) << lost.err;
    EXPECT_EQ(lost.lastErrorLine, "Referenced sample is missing: /Samples/gone.wav");
    EXPECT_EQ(filesBelow(destination), before);
    EXPECT_TRUE(dragLeftovers().empty());

    EXPECT_EQ(dragExport("Songs/none.m8s", destination).lastErrorLine, "Source file not found: none.m8s");
    EXPECT_EQ(dragExport("Songs/sub/live.m8s", temp_ / "nowhere").status, 2);
}

}  // namespace
}  // namespace tapekeep

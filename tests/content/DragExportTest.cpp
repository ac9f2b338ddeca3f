#include "content/DragExport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include "M8Files.h"
#include "TempDir.h"
#include "content/BrowseFileError.h"
#include "core/Cancelled.h"
#include "platform/FileTimes.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::deviceSongWithSamples;
using test::readFile;
using test::writeFile;

// Every file below a folder by its path there, with its contents.
std::map<std::string, std::string> filesBelow(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            files[entry.path().lexically_relative(folder).string()] = readFile(entry.path());
    return files;
}

std::vector<fs::path> entriesOf(const fs::path& folder) {
    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(folder)) entries.push_back(entry.path().filename());
    return entries;
}

class DragExportTest : public testing::Test {
protected:
    DragExportTest() { fs::create_directories(drags); }

    // A song a device wrote, at `path` in the version, naming these samples.
    fs::path song(const std::string& path, const std::vector<std::string>& samplePaths) const {
        writeFile(version / path, deviceSongWithSamples(samplePaths));
        return version / path;
    }

    // The text of the BrowseFileError that preparing the song raises.
    std::string failureOf(const fs::path& songFile) const {
        try {
            const auto offer = DragExport::offerFor(songFile);
            ADD_FAILURE() << "prepared " << DragExport::prepare(songFile, offer.samplePaths, version, drags);
        } catch (const BrowseFileError& error) {
            return error.description();
        }
        return {};
    }

    test::TempDir temp;
    const fs::path version = fs::canonical(temp.path()) / "version";
    const fs::path drags = fs::canonical(temp.path()) / "drags";
};

TEST_F(DragExportTest, TheSongTravelsWithEachSampleOnceAtItsPlaceInTheVersion) {
    const fs::path live = song("Songs/sub/live.m8s",
                               {"../../Samples/Drums/Kick.wav", "/Samples//Drums/Kick.wav",
                                "\\samples\\drums\\KICK.WAV", "Loops/beat.wav", "/Samples/Pads/pad one.wav"});
    writeFile(version / "Samples/Drums/Kick.wav", "kick");
    writeFile(version / "samples/drums/KICK.WAV", "the same sample in another spelling");
    writeFile(version / "Songs/sub/Loops/beat.wav", "beat");
    writeFile(version / "Samples/Pads/pad one.wav", "pad");
    writeFile(version / "Samples/Pads/unused.wav", "not named");

    const auto offer = DragExport::offerFor(live);
    ASSERT_TRUE(offer.needsPreparation());
    EXPECT_EQ(offer.suggestedName(), "live");
    const fs::path prepared = DragExport::prepare(live, offer.samplePaths, version, drags);

    const auto folders = entriesOf(drags);
    ASSERT_EQ(folders.size(), 1u);
    EXPECT_TRUE(folders[0].string().starts_with("m8drag-")) << folders[0];
    EXPECT_EQ(prepared, drags / folders[0] / "Songs/sub/live.m8s");
    auto files = filesBelow(drags / folders[0]);
    EXPECT_TRUE(files["Songs/sub/live.m8s"] == readFile(live)) << "the song's bytes differ";
    files.erase("Songs/sub/live.m8s");
    EXPECT_EQ(files, (std::map<std::string, std::string>{{"Samples/Drums/Kick.wav", "kick"},
                                                         {"Songs/sub/Loops/beat.wav", "beat"},
                                                         {"Samples/Pads/pad one.wav", "pad"}}));
}

TEST_F(DragExportTest, NodesWithoutSamplesAreOfferedAsTheyStand) {
    writeFile(version / "Songs/DEFAULT.m8s", readFile(TAPEKEEP_FIXTURES_DIR "/DEFAULT.m8s"));
    writeFile(version / "Instruments/FM.m8i", readFile(TAPEKEEP_FIXTURES_DIR "/FMDUBSTAB_4_1.m8i"));
    writeFile(version / "Samples/kick.wav", "kick");
    for (const auto& node : {version / "Songs/DEFAULT.m8s", version / "Instruments/FM.m8i",
                             version / "Samples/kick.wav", version / "Samples"}) {
        const auto offer = DragExport::offerFor(node);
        EXPECT_FALSE(offer.needsPreparation()) << node;
        EXPECT_EQ(DragExport::deliver(offer, version, drags), node);
    }
    EXPECT_EQ(DragExport::offerFor(version / "Samples/kick.wav").suggestedName(), "kick.wav");
    EXPECT_TRUE(entriesOf(drags).empty());

    writeFile(version / "Songs/cut.m8s", deviceSongWithSamples({"/Samples/kick.wav"}).substr(0, 90000));
    try {
        DragExport::offerFor(version / "Songs/cut.m8s");
        ADD_FAILURE() << "a cut song was offered";
    } catch (const BrowseFileError& error) {
        EXPECT_EQ(error.description(), "Could not read song or instrument: cut.m8s");
    }
}

TEST_F(DragExportTest, AFailedPreparationLeavesNoFolderBehind) {
    writeFile(version / "Samples/a.wav", "a");
    writeFile(temp / "outside.wav", "not in the backup");
    fs::create_symlink(temp / "outside.wav", version / "Samples/out.wav");

    EXPECT_EQ(failureOf(song("Songs/missing.m8s", {"/Samples/a.wav", "/Samples/gone.wav"})),
              "Referenced sample is missing: /Samples/gone.wav");
    EXPECT_EQ(failureOf(song("Songs/escape.m8s", {"/Samples/a.wav", "/../../etc/passwd"})),
              "Sample path escapes the backup: /../../etc/passwd");
    // A link out of the version is no sample, whichever way it is named.
    EXPECT_EQ(failureOf(song("Songs/link.m8s", {"/Samples/out.wav"})),
              "Sample path escapes the backup: /Samples/out.wav");
    EXPECT_EQ(failureOf(song("Songs/relative.m8s", {"Samples/out.wav"})),
              "Referenced sample is missing: Samples/out.wav");

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(DragExport::prepare(song("Songs/a.m8s", {"/Samples/a.wav"}), {"/Samples/a.wav"}, version,
                                     drags, stop.get_token()),
                 Cancelled);
    EXPECT_TRUE(entriesOf(drags).empty());
}

TEST_F(DragExportTest, SweepRemovesOnlyDragFoldersOlderThanFiveMinutes) {
    writeFile(drags / "m8drag-old/Songs/a.m8s", "song");
    writeFile(temp / "elsewhere/keep.wav", "outside");
    fs::create_directory_symlink(temp / "elsewhere", drags / "m8drag-old/Samples");
    fs::create_directory_symlink(temp / "elsewhere", drags / "m8drag-link");
    writeFile(drags / "other/file", "not a drag");
    const auto created = creationTime(drags / "m8drag-old");
    ASSERT_TRUE(created);

    DragExport::sweep(drags, *created + std::chrono::seconds(299));
    EXPECT_TRUE(fs::exists(drags / "m8drag-old/Songs/a.m8s"));

    DragExport::sweep(drags, *created + std::chrono::seconds(301));
    EXPECT_FALSE(fs::exists(fs::symlink_status(drags / "m8drag-old")));
    EXPECT_TRUE(fs::is_symlink(drags / "m8drag-link"));
    EXPECT_EQ(readFile(temp / "elsewhere/keep.wav"), "outside");
    EXPECT_EQ(readFile(drags / "other/file"), "not a drag");
    DragExport::sweep(temp / "missing", Clock::now());
}

}  // namespace
}  // namespace tapekeep

// Scans of cards laid out in a temporary folder with songs a device wrote: which files the card
// holds, which songs and instruments use which sample, the delta of an edit against that, and the
// failures that leave no scan at all.

#include "edits/EditLiveScan.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "EditRecords.h"
#include "M8Files.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "edits/EditLiveScanError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::deviceSongWithSamples;
using test::writeFile;

class EditLiveScanTest : public ::testing::Test {
protected:
    void song(const std::string& cardPath, const std::vector<std::string>& samples) {
        writeFile(card_ / cardPath.substr(1), deviceSongWithSamples(samples));
    }
    void sample(const std::string& cardPath) { writeFile(card_ / cardPath.substr(1), "RIFF"); }

    std::string failureOf() {
        try {
            EditLiveScan::scan(card_);
        } catch (const std::exception& error) {
            return error.what();
        }
        ADD_FAILURE() << "the scan of " << card_ << " succeeded";
        return "";
    }

    test::TempDir temp_;
    const fs::path card_ = temp_ / "card";
};

TEST_F(EditLiveScanTest, ReferencesCountInAnyLetterCaseAndOnlyForSamplesOnTheCard) {
    sample("/Samples/Kick.wav");
    sample("/Samples/Drums/Snare.wav");
    sample("/Samples/.hidden.wav");
    song("/Songs/A.m8s", {"/samples/KICK.WAV", "/Samples/gone.wav", "   "});
    song("/Songs/Live/B.M8S", {"../Samples/Drums/snare.wav", "Samples/Kick.wav"});
    writeFile(card_ / "Instruments/Pad.m8i", test::instrumentWithSample("/Samples/Drums/SNARE.wav"));

    const auto scan = EditLiveScan::scan(card_);
    EXPECT_EQ(scan.samplePathsByKey, (std::map<std::string, std::string>{
                                         {"/instruments/pad.m8i", "/Instruments/Pad.m8i"},
                                         {"/samples/.hidden.wav", "/Samples/.hidden.wav"},
                                         {"/samples/drums/snare.wav", "/Samples/Drums/Snare.wav"},
                                         {"/samples/kick.wav", "/Samples/Kick.wav"},
                                         {"/songs/a.m8s", "/Songs/A.m8s"},
                                         {"/songs/live/b.m8s", "/Songs/Live/B.M8S"},
                                     }));
    EXPECT_EQ(scan.songReferencesBySampleKey,
              (std::map<std::string, std::set<std::string>>{
                  {"/samples/drums/snare.wav", {"/Instruments/Pad.m8i", "/Songs/Live/B.M8S"}},
                  {"/samples/kick.wav", {"/Songs/A.m8s", "/Songs/Live/B.M8S"}},
              }));
    EXPECT_TRUE(scan.holdsPath("/SAMPLES/.HIDDEN.WAV"));
    EXPECT_TRUE(scan.holdsPath("\\Samples\\Drums\\snare.wav"));
    EXPECT_FALSE(scan.holdsPath("/Samples/gone.wav"));
    EXPECT_FALSE(scan.holdsPath("/Samples/Drums"));
}

TEST_F(EditLiveScanTest, LinksAreNeitherWalkedNorCounted) {
    sample("/Samples/Kick.wav");
    writeFile(temp_ / "outside/Far.wav", "RIFF");
    writeFile(temp_ / "outside/broken.m8s", "M8VERSION");  // read, it would fail the scan
    fs::create_directory_symlink(temp_ / "outside", card_ / "Linked");
    fs::create_symlink(card_ / "Samples/Kick.wav", card_ / "Samples/Alias.wav");
    fs::create_symlink(temp_ / "outside/Far.wav", card_ / "Samples/Far.wav");

    const auto scan = EditLiveScan::scan(card_);
    EXPECT_EQ(scan.samplePathsByKey,
              (std::map<std::string, std::string>{{"/samples/kick.wav", "/Samples/Kick.wav"}}));
    for (const auto* path : {"/Samples/Alias.wav", "/Samples/Far.wav", "/Linked/Far.wav", "/Linked"})
        EXPECT_FALSE(scan.holdsPath(path)) << path;
}

TEST_F(EditLiveScanTest, OneBadSongOrReferenceFailsTheWholeScan) {
    const struct {
        std::string song, content, message;
    } examples[] = {
        {"/Songs/cut.m8s", deviceSongWithSamples({}).substr(0, 90000),
         "Could not read live song metadata: /Songs/cut.m8s"},
        {"/Instruments/cut.m8i", test::instrumentWithSample("").substr(0, 20),
         "Could not read live song metadata: /Instruments/cut.m8i"},
        {"/Songs/escape.m8s", deviceSongWithSamples({"/Samples/Kick.wav", "/../../etc/passwd"}),
         "Could not safely resolve sample reference '/../../etc/passwd' in /Songs/escape.m8s"},
        // Through a link on the card to a place beside it.
        {"/Songs/away.m8s", deviceSongWithSamples({"/Away/Kick.wav"}),
         "Could not safely resolve sample reference '/Away/Kick.wav' in /Songs/away.m8s"},
    };
    for (const auto& example : examples) {
        fs::remove_all(card_);
        sample("/Samples/Kick.wav");
        song("/Songs/good.m8s", {"/Samples/Kick.wav"});
        fs::create_directory_symlink(temp_.path(), card_ / "Away");
        writeFile(card_ / example.song.substr(1), example.content);
        EXPECT_EQ(failureOf(), example.message) << example.song;
    }

    // A Mac's metadata file beside a song is no song, damaged as it looks.
    fs::remove_all(card_);
    sample("/Samples/Kick.wav");
    song("/Songs/good.m8s", {"/Samples/Kick.wav"});
    writeFile(card_ / "Songs/._good.m8s", "Mac OS X        metadata");
    EXPECT_EQ(EditLiveScan::scan(card_).songReferencesBySampleKey.at("/samples/kick.wav"),
              std::set<std::string>{"/Songs/good.m8s"});
}

TEST_F(EditLiveScanTest, ARootThatIsNoFolderOrACancelledScanGivesNoScan) {
    EXPECT_THROW(EditLiveScan::scan(card_), PosixError);
    writeFile(card_, "not a folder");
    EXPECT_THROW(EditLiveScan::scan(card_), PosixError);

    fs::remove(card_);
    sample("/Samples/Kick.wav");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(EditLiveScan::scan(card_, stop.get_token()), Cancelled);
}

class SongDeltaTest : public EditLiveScanTest {
protected:
    SongDeltaTest() {
        sample("/Samples/snare.wav");
        sample("/Samples/SNARE_TRIM.wav");
        song("/Songs/BEAT.m8s", {"/Samples/SNARE.wav"});
        song("/Songs/NEW.m8s", {"/samples/snare.wav"});
        song("/Songs/Quiet.m8s", {});
    }

    SongDelta deltaOf(const EditEntry& edit) { return EditLiveScan::scan(card_).deltaOf(edit); }
};

TEST_F(SongDeltaTest, AnEditAsTheCardStillIsMatches) {
    auto edit = test::overwriteEdit();
    edit.affectedSongs = {"/songs/new.M8S", "/Songs/BEAT.m8s"};
    const auto delta = deltaOf(edit);
    EXPECT_EQ(delta, SongDelta{});
    EXPECT_TRUE(delta.matchesManifest());
}

TEST_F(SongDeltaTest, SongsThatCameOrWentAreListed) {
    auto edit = test::overwriteEdit();
    edit.affectedSongs = {"/Songs/Zed.m8s", "/Songs/BEAT.m8s", "/Songs/Quiet.m8s"};
    SongDelta expected;
    expected.extraSongsOnCard = {"/Songs/NEW.m8s"};
    expected.removedSongs = {"/Songs/Zed.m8s", "/Songs/Quiet.m8s"};
    EXPECT_EQ(deltaOf(edit), expected);
    EXPECT_FALSE(expected.matchesManifest());

    // A new file records no songs, so the source's users all show; it collides with a file of its
    // target's path in any case.
    auto newFile = test::newFileEdit("/samples/snare_trim.wav");
    newFile.sourceRelativePath = "/Samples/Snare.wav";
    expected = {};
    expected.extraSongsOnCard = {"/Songs/BEAT.m8s", "/Songs/NEW.m8s"};
    expected.targetCollision = true;
    EXPECT_EQ(deltaOf(newFile), expected);
}

TEST_F(SongDeltaTest, ASourceGoneFromTheCardIsMissing) {
    auto edit = test::overwriteEdit();
    edit.sourceRelativePath = edit.targetRelativePath = "/Samples/gone.wav";
    edit.affectedSongs = {};
    SongDelta expected;
    expected.missingOnCard = true;
    EXPECT_EQ(deltaOf(edit), expected);
}

}  // namespace
}  // namespace tapekeep

// Staged trims written to a real FAT card by `tapekeep-cli edits … apply`, with the real rsync, under
// the card's lease, each read back; and the same apply killed outright at every step of a new file's
// copy, then run again.

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "FatCard.h"
#include "FileContent.h"
#include "FuseCardTest.h"
#include "LiveProcesses.h"
#include "M8Files.h"
#include "SoxAudio.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::treeOf;
using test::writeFile;
using Json = nlohmann::json;

class EditApplyCardTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        fs::create_directories(card_->mountPath() / "Samples");
        fs::create_directories(card_->mountPath() / "Instruments");
        test::makeAudio(card_->mountPath() / "Samples/kick.wav", {"-r", "44100", "-c", "1", "-b", "16"}, 1.0);
        test::makeAudio(card_->mountPath() / "Samples/snare.wav", {"-r", "44100", "-c", "1", "-b", "16"},
                        1.0);
        writeFile(card_->mountPath() / "Songs/BEAT.m8s", test::songWithSamples({"/Samples/snare.wav"}));
        version_ = backupOk();
        ASSERT_FALSE(version_.empty());
        writeFile(logged_, "#!/bin/sh\necho run >> " + test::shellQuote(rsyncLog_.string()) +
                               "\nexec /usr/bin/rsync \"$@\"\n");
        fs::permissions(logged_, fs::perms::owner_all);
    }

    [[nodiscard]] std::string set() const { return version_.parent_path().filename().string(); }

    std::vector<std::string> editsArguments(const std::vector<std::string>& operands,
                                            const std::vector<std::string>& before = {}) const {
        std::vector<std::string> arguments = before;
        arguments.insert(arguments.end(), {"--json", "edits", set()});
        arguments.insert(arguments.end(), operands.begin(), operands.end());
        return arguments;
    }
    test::CliResult edits(const std::vector<std::string>& operands,
                          const std::vector<std::string>& before = {}) const {
        return cli(editsArguments(operands, before));
    }

    // A trim of the kick as a new file, or of the snare over itself; the edit's id.
    std::string stage(const std::string& target = "/Samples/kick_trim.wav") {
        const bool over = target == "--overwrite";
        std::vector<std::string> operands{"stage",
                                          version_.filename().string(),
                                          over ? "Samples/snare.wav" : "Samples/kick.wav",
                                          "--from",
                                          "0.1",
                                          "--to",
                                          "0.6"};
        if (over)
            operands.push_back("--overwrite");
        else
            operands.insert(operands.end(), {"--as", target});
        const auto result = edits(operands);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.status == 0 ? Json::parse(result.out).at("id").get<std::string>() : "";
    }

    [[nodiscard]] fs::path staged(const std::string& id) const {
        return base_ / ".edits" / set() / "staged" / (id + ".wav");
    }
    [[nodiscard]] fs::path marker(const std::string& id) const {
        return base_ / ".edits" / set() / "commit-pending" / (id + ".json");
    }
    std::string stateOf(const std::string& id) {
        const auto list = edits({"list"});
        EXPECT_EQ(list.status, 0) << list.err;
        const auto listed = Json::parse(list.out);
        for (const auto& edit : listed.at("edits"))
            if (edit.at("id") == id) return edit.at("state").get<std::string>();
        return "gone";
    }
    int rsyncRuns() const {
        return fs::exists(rsyncLog_) ? static_cast<int>(std::ranges::count(readFile(rsyncLog_), '\n')) : 0;
    }

    fs::path version_;
    fs::path logged_ = temp_ / "logged-rsync";
    fs::path rsyncLog_ = temp_ / "rsync-runs";
};

TEST_F(EditApplyCardTest, ANewFileAndAReplacedSampleLandByteForByteAndAreRecorded) {
    const auto trim = stage();
    const auto over = stage("--overwrite");
    const auto trimmed = readFile(staged(trim));  // an applied edit's staged file goes
    const auto replaced = readFile(staged(over));
    const auto result = edits({"apply", "M8CARD"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out), Json({{"results",
                                              {{{"id", trim}, {"applied", true}, {"error", nullptr}},
                                               {{"id", over}, {"applied", true}, {"error", nullptr}}}}}));
    EXPECT_TRUE(readFile(card_->mountPath() / "Samples/kick_trim.wav") == trimmed);
    EXPECT_TRUE(readFile(card_->mountPath() / "Samples/snare.wav") == replaced);
    EXPECT_FALSE(fs::exists(staged(trim)));
    EXPECT_EQ(test::readAudio(card_->mountPath() / "Samples/kick_trim.wav").frames, 22050);
    EXPECT_TRUE(readFile(card_->mountPath() / "Samples/kick.wav") == readFile(version_ / "Samples/kick.wav"));
    EXPECT_EQ(stateOf(trim), "applied");
    EXPECT_FALSE(fs::exists(marker(trim)));
}

TEST_F(EditApplyCardTest, RefusalsLeaveTheCardAsItWasAndSayWhy) {
    const auto trim = stage();
    const auto over = stage("--overwrite");
    writeFile(card_->mountPath() / "Samples/kick_trim.wav", "a file of someone else's");
    fs::remove(card_->mountPath() / "Samples/snare.wav");
    const auto before = treeOf(card_->mountPath());
    const auto result = edits({"apply", "M8CARD"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Json::parse(result.out),
              Json({{"results",
                     {{{"id", trim},
                       {"applied", false},
                       {"error", "invalid path: target already exists on card — rename or discard"}},
                      {{"id", over},
                       {"applied", false},
                       {"error", "invalid path: source sample not present on card"}}}}}));
    EXPECT_EQ(result.lastErrorLine, "invalid path: target already exists on card — rename or discard");
    EXPECT_EQ(treeOf(card_->mountPath()), before);
    EXPECT_EQ(stateOf(trim), "pending");

    // Another target for the new file, and it goes.
    const auto renamed = edits({"rename", trim, "/Samples/Cuts/kick_short.wav"});
    ASSERT_EQ(renamed.status, 0) << renamed.err;
    const auto trimmed = readFile(staged(trim));
    const auto again = edits({"apply", "M8CARD", trim});
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_TRUE(readFile(card_->mountPath() / "Samples/Cuts/kick_short.wav") == trimmed);
    EXPECT_EQ(readFile(card_->mountPath() / "Samples/kick_trim.wav"), "a file of someone else's");

    const auto discarded = edits({"discard", over});
    ASSERT_EQ(discarded.status, 0) << discarded.err;
    EXPECT_EQ(stateOf(over), "gone");
    EXPECT_EQ(edits({"discard", "not-an-edit"}).status, 2);
}

TEST_F(EditApplyCardTest, ARsyncFailureIsRecordedAndTheNextEditStillRuns) {
    const auto first = stage("/Samples/a_trim.wav");
    const auto second = stage("/Samples/b_trim.wav");
    const fs::path failing = temp_ / "failing-rsync";
    writeFile(failing,
              "#!/bin/sh\nfor last; do :; done\ncase \"$last\" in *a_trim.wav) exit 23;; esac\n"
              "exec /usr/bin/rsync \"$@\"\n");
    fs::permissions(failing, fs::perms::owner_all);
    const auto result = edits({"apply", "M8CARD"}, {"--rsync", failing.string()});
    EXPECT_EQ(result.status, 1);
    const auto results = Json::parse(result.out).at("results");
    EXPECT_EQ(results.at(0).at("error"), "rsync failed (exit 23): ");
    EXPECT_EQ(results.at(1).at("applied"), true);
    EXPECT_EQ(result.lastErrorLine, "rsync failed (exit 23): ");
    EXPECT_EQ(stateOf(first), "pending");
    EXPECT_EQ(stateOf(second), "applied");
    EXPECT_FALSE(fs::exists(card_->mountPath() / "Samples/a_trim.wav"));
}

TEST_F(EditApplyCardTest, AnApplyWhileABackupHoldsTheCardIsRefusedInTheQueuesWords) {
    stage();
    expectRefusedWhileABackupHoldsTheCard(
        [&] {
            return edits({"apply", "M8CARD"});
        },
        "Backup or restore is currently running on this card — try again when it finishes.");
    EXPECT_FALSE(fs::exists(card_->mountPath() / "Samples/kick_trim.wav"));
}

// The card taken out and another with the same name put in: the edits of the first card's backups
// never go onto it.
TEST_F(EditApplyCardTest, AnotherCardWithTheSameNameIsRefused) {
    const auto id = stage();
    const auto uuid = card_->uuid();
    card_.reset();
    card_ = std::make_unique<test::FatCard>(temp_ / "other.img", volumes_, "M8CARD");
    ASSERT_NE(card_->uuid(), uuid);
    for (const auto* folder : {"Instruments", "Samples"}) fs::create_directories(card_->mountPath() / folder);
    writeFile(card_->mountPath() / "Songs/OTHER.m8s", test::songWithSamples({}));
    test::makeAudio(card_->mountPath() / "Samples/kick.wav", {"-r", "44100", "-c", "1", "-b", "16"}, 1.0);
    const auto before = treeOf(card_->mountPath());
    const auto result = edits({"apply", "M8CARD"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lastErrorLine, "This backup set belongs to another card (" + uuid + ").");
    EXPECT_EQ(treeOf(card_->mountPath()), before);
    EXPECT_EQ(stateOf(id), "pending");
}

// Each row of what a crash leaves: the run is killed outright at the step, and the next run finishes
// the edit, copying only where the copy had not ended.
TEST_F(EditApplyCardTest, AKillAtAnyStepOfANewFilesCopyIsFinishedByTheNextRun) {
    const struct {
        const char* step;
        bool markerLeft;
        bool targetLeft;
        int copiesNext;  // rsync runs of the next apply
    } rows[] = {
        {"apply-checked", false, false, 1},
        {"apply-marked", true, false, 1},
        {"apply-copied", true, true, 0},
        {"apply-recorded", false, true, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        const std::string target = std::string("/Samples/") + row.step + ".wav";
        const auto id = stage(target);
        const auto trimmed = readFile(staged(id));
        const fs::path pause = temp_ / (std::string("paused-at-") + row.step);
        test::CliProcess doomed(
            home(), cliArguments(editsArguments({"apply", "M8CARD", id})),
            {{"TAPEKEEP_TEST_PAUSE_AT", row.step}, {"TAPEKEEP_TEST_PAUSE_MARKER", pause.string()}});
        ASSERT_TRUE(test::waitUntil([&] { return fs::exists(pause) || doomed.hasExited(); }) &&
                    fs::exists(pause))
            << doomed.err();
        killOutright(doomed);
        EXPECT_EQ(fs::exists(marker(id)), row.markerLeft);
        EXPECT_EQ(fs::exists(card_->mountPath() / target.substr(1)), row.targetLeft);

        fs::remove(rsyncLog_);
        const auto next = edits({"apply", "M8CARD"}, {"--rsync", logged_.string()});
        ASSERT_EQ(next.status, 0) << next.err;
        EXPECT_EQ(rsyncRuns(), row.copiesNext);
        EXPECT_EQ(stateOf(id), "applied");
        EXPECT_TRUE(readFile(card_->mountPath() / target.substr(1)) == trimmed);
        EXPECT_FALSE(fs::exists(marker(id)));
    }
}

// Killed while rsync writes: at most rsync's temporary file is left, and the next run copies again.
TEST_F(EditApplyCardTest, AKillWhileTheCopyRunsLeavesNoPartialTarget) {
    test::makeAudio(card_->mountPath() / "Samples/long.wav", {"-r", "44100", "-c", "2", "-b", "16"}, 30.0);
    ASSERT_FALSE(backupOk().empty());
    const auto result = edits({"stage", "latest", "Samples/long.wav", "--from", "0", "--to", "29", "--as",
                               "/Samples/long_trim.wav"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto id = Json::parse(result.out).at("id").get<std::string>();
    const auto trimmed = readFile(staged(id));
    const fs::path started = temp_ / "rsync-started";
    const fs::path slow = temp_ / "slow-rsync";
    writeFile(slow, "#!/bin/sh\ntouch " + test::shellQuote(started.string()) +
                        "\nexec /usr/bin/rsync --bwlimit=200 \"$@\"\n");
    fs::permissions(slow, fs::perms::owner_all);
    test::CliProcess doomed(home(),
                            cliArguments(editsArguments({"apply", "M8CARD"}, {"--rsync", slow.string()})));
    ASSERT_TRUE(test::waitUntil([&] { return fs::exists(started) || doomed.hasExited(); }) &&
                fs::exists(started))
        << doomed.err();
    killOutright(doomed);
    EXPECT_TRUE(fs::exists(marker(id)));
    EXPECT_FALSE(fs::exists(card_->mountPath() / "Samples/long_trim.wav"));

    const auto next = edits({"apply", "M8CARD"});
    ASSERT_EQ(next.status, 0) << next.err;
    EXPECT_TRUE(readFile(card_->mountPath() / "Samples/long_trim.wav") == trimmed);
    EXPECT_EQ(stateOf(id), "applied");
}

}  // namespace
}  // namespace tapekeep

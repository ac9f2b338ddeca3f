// tapekeep-cli killed outright (SIGKILL) at each step of a backup on a real FAT card, then run again:
// the store never shows a partial version, nothing it started keeps running, and the next run
// clears what the dead one left.

#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "FatCard.h"
#include "FileContent.h"
#include "FuseCardTest.h"
#include "LiveProcesses.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::CliProcess;
using test::pseudoRandomBytes;
using test::sameTree;
using test::writeFile;

class KillSafetyTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", pseudoRandomBytes(12000, 1));
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", pseudoRandomBytes(400, 2));
        writeFile(card_->mountPath() / "Samples/pad.wav", pseudoRandomBytes(200000, 3));
        // An rsync that copies at 20 KB/s, so that it is surely mid-transfer when its parent dies.
        writeFile(slowRsync_, "#!/bin/sh\nexec /usr/bin/rsync --bwlimit=20 \"$@\"\n");
        fs::permissions(slowRsync_, fs::perms::owner_all);
    }

    // `options` go before the command, as --rsync does.
    std::vector<std::string> backupArguments(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"--json"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"backup", "M8CARD", "--keep", "1"});
        return cliArguments(arguments);
    }

    test::CliResult backUp() { return test::runCli(home(), backupArguments()); }

    // The one set folder: the card's.
    fs::path setRoot() const {
        std::vector<fs::path> sets;
        for (const auto& entry : fs::directory_iterator(base_)) sets.push_back(entry.path());
        EXPECT_EQ(sets.size(), 1u);
        return sets.empty() ? base_ : sets.front();
    }

    std::vector<std::string> entries(const std::string& prefix) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(setRoot()))
            if (entry.path().filename().string().starts_with(prefix))
                names.push_back(entry.path().filename().string());
        return names;
    }

    // Every version is a whole copy of the card as it was before or after the change; `latest`
    // names one of them.
    void expectOnlyWholeVersions(const std::string& when) const {
        const auto versions = entries("backup-");
        EXPECT_FALSE(versions.empty()) << when;
        for (const auto& name : versions)
            EXPECT_TRUE(sameTree(setRoot() / name, cardBefore_) ||
                        sameTree(setRoot() / name, card_->mountPath()))
                << when << ": " << name << " is not a whole copy of the card";
        const fs::path latest = setRoot() / "latest";
        ASSERT_TRUE(fs::is_symlink(latest)) << when;
        const std::string target = fs::read_symlink(latest).string();
        EXPECT_NE(std::find(versions.begin(), versions.end(), target), versions.end())
            << when << ": latest names " << target;
    }

    fs::path slowRsync_ = temp_ / "slow-rsync";
    fs::path cardBefore_ = temp_ / "card-before";
};

struct KillPoint {
    const char* step;
    int leftovers;  // what the next run finds to remove: a staging or a `.deleting-*` folder
};

TEST_F(KillSafetyTest, AKillAtAnyStepLeavesOnlyWholeVersionsAndTheNextRunClearsUp) {
    const KillPoint points[] = {{"staging-created", 1}, {"estimate-pass", 1}, {"transfer-pass", 1},
                                {"renamed", 0},         {"latest-swap", 0},   {"rotation", 1}};
    for (const auto& [step, leftovers] : points) {
        SCOPED_TRACE(step);
        const auto first = backUp();
        ASSERT_EQ(first.status, 0) << first.err;
        fs::remove_all(cardBefore_);
        fs::copy(card_->mountPath(), cardBefore_, fs::copy_options::recursive);
        // New content, so that the transfer has real work to do and a new version differs.
        writeFile(card_->mountPath() / "Samples" / ("take " + std::string(step) + ".wav"),
                  pseudoRandomBytes(1'000'000, static_cast<unsigned>(std::string(step).size())));

        const fs::path marker = temp_ / (std::string("paused-at-") + step);
        std::vector<std::string> extra;
        if (std::string(step) == "transfer-pass") extra = {"--rsync", slowRsync_.string()};
        CliProcess doomed(
            home(), backupArguments(extra),
            {{"TAPEKEEP_TEST_PAUSE_AT", step}, {"TAPEKEEP_TEST_PAUSE_MARKER", marker.string()}});
        ASSERT_TRUE(test::waitUntil([&] { return fs::exists(marker) || doomed.hasExited(); }) &&
                    fs::exists(marker))
            << doomed.err();
        killOutright(doomed);
        expectOnlyWholeVersions(std::string("after the kill at ") + step);

        const auto next = backUp();
        ASSERT_EQ(next.status, 0) << next.err;
        if (leftovers > 0)
            EXPECT_NE(next.err.find("Removed " + std::to_string(leftovers) +
                                    " incomplete backup(s) left by earlier failed runs."),
                      std::string::npos)
                << next.err;
        else
            EXPECT_EQ(next.err.find("Removed "), std::string::npos) << next.err;
        EXPECT_TRUE(entries(".incomplete-").empty());
        EXPECT_TRUE(entries(".deleting-").empty());
        EXPECT_TRUE(entries(".latest-").empty());
        expectOnlyWholeVersions(std::string("after the run that followed the kill at ") + step);
        EXPECT_EQ(fs::read_symlink(setRoot() / "latest"),
                  fs::path(nlohmann::json::parse(next.out).at("version").get<std::string>()).filename());
    }
}

// The parent of rsync dies without a chance to clean up. rsync, which would go on for minutes and,
// with its output sent elsewhere, would never meet the broken pipe, is ended with it; its staging
// folder goes with the next run, however young it is.
TEST_F(KillSafetyTest, NoRsyncOutlivesAKilledRunAndItsStagingGoesNextTime) {
    writeFile(card_->mountPath() / "Samples/long take.wav", pseudoRandomBytes(3'000'000, 7));
    const fs::path pidFile = temp_ / "rsync.pid";
    const fs::path reportingRsync = temp_ / "reporting-rsync";
    writeFile(reportingRsync,
              "#!/bin/sh\n"
              "case \" $* \" in *\" --version \"*|*\" -an \"*) exec /usr/bin/rsync \"$@\";; esac\n"
              "echo $$ > " +
                  test::shellQuote(pidFile.string() + ".new") + " && mv " +
                  test::shellQuote(pidFile.string() + ".new") + " " + test::shellQuote(pidFile.string()) +
                  "\nexec /usr/bin/rsync --bwlimit=20 \"$@\" >/dev/null 2>&1\n");
    fs::permissions(reportingRsync, fs::perms::owner_all);
    CliProcess doomed(home(), backupArguments({"--rsync", reportingRsync.string()}));
    ASSERT_TRUE(test::waitUntil([&] { return fs::exists(pidFile) || doomed.hasExited(); }) &&
                fs::exists(pidFile))
        << doomed.err();
    const pid_t rsync = std::stoi(test::readFile(pidFile));
    ASSERT_TRUE(test::isLive(rsync));
    doomed.signal(SIGKILL);
    EXPECT_EQ(doomed.wait(), 128 + SIGKILL);
    EXPECT_TRUE(
        test::waitUntil([&] { return test::liveProcessesMentioning("rsync", temp_.path().string()).empty(); },
                        std::chrono::seconds(60)))
        << "rsync outlived the killed run";
    ASSERT_EQ(entries(".incomplete-").size(), 1u);

    const auto next = backUp();
    ASSERT_EQ(next.status, 0) << next.err;
    EXPECT_NE(next.err.find("Removed 1 incomplete backup(s) left by earlier failed runs."), std::string::npos)
        << next.err;
    EXPECT_TRUE(entries(".incomplete-").empty());
    for (const auto pid : test::liveProcessesMentioning("rsync", temp_.path().string())) ::kill(pid, SIGKILL);
}

}  // namespace
}  // namespace tapekeep

// tapekeep-cli watch --auto on a real FAT card mounted and unmounted through FUSE.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "CliProcess.h"
#include "FatCard.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::CliProcess;
using test::FatCard;
using test::TempDir;
using test::writeFile;
using Json = nlohmann::json;

class WatchAutoBackupTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto reason = FatCard::unavailableReason()) GTEST_SKIP() << "no FUSE card here: " << *reason;
        fs::create_directories(volumes_);
        card_ = std::make_unique<FatCard>(temp_ / "card.img", volumes_, "M8CARD");
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", "song");
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", "bass");
        ASSERT_EQ(test::runCli(home(), {"settings", "set", "autoBackupDelaySeconds", "2"}).status, 0);
    }

    fs::path home() const { return temp_ / "home"; }

    std::unique_ptr<CliProcess> watch() {
        return std::make_unique<CliProcess>(
            home(), std::vector<std::string>{"--volumes-root", volumes_.string(), "--base", base_.string(),
                                             "--json", "watch", "--auto"});
    }

    // The state lines the watcher printed so far.
    static std::vector<Json> lines(const CliProcess& process) {
        std::vector<Json> result;
        std::istringstream text(process.out());
        for (std::string line; std::getline(text, line);)
            if (auto parsed = Json::parse(line, nullptr, false); parsed.is_object()) result.push_back(parsed);
        return result;
    }

    // Waits (generously) until a printed line satisfies the test; false when none did.
    static bool waitForLine(const CliProcess& process, const std::function<bool(const Json&)>& matches,
                            std::chrono::seconds limit = std::chrono::seconds(60)) {
        const auto until = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < until) {
            for (const auto& line : lines(process))
                if (matches(line)) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }

    static std::function<bool(const Json&)> state(const std::string& name) {
        return [name](const Json& line) { return line.at("state") == name; };
    }

    int versionCount() const {
        int count = 0;
        for (const auto& set : fs::directory_iterator(base_))
            for (const auto& entry : fs::directory_iterator(set))
                count += entry.path().filename().string().starts_with("backup-");
        return count;
    }

    TempDir temp_;
    fs::path volumes_ = temp_ / "volumes";
    fs::path base_ = temp_ / "backups";
    std::unique_ptr<FatCard> card_;
};

TEST_F(WatchAutoBackupTest, BacksUpACardMountedAfterTheStartAndFollowsItsChanges) {
    card_->unmount();
    auto watcher = watch();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    card_->mount();
    ASSERT_TRUE(waitForLine(*watcher, state("autoBackupCountdown"))) << watcher->out() << watcher->err();
    ASSERT_TRUE(waitForLine(*watcher, state("success"))) << watcher->out() << watcher->err();
    EXPECT_TRUE(waitForLine(*watcher, [](const Json& line) { return line.at("freshness") == "UP TO DATE"; }))
        << watcher->out();
    fs::remove(card_->mountPath() / "Songs/DEMO.m8s");
    writeFile(card_->mountPath() / "Songs/DEMO.m8s", "song, saved again");
    EXPECT_TRUE(waitForLine(*watcher, [](const Json& line) { return line.at("freshness") == "1 CHANGE"; }))
        << watcher->out() << watcher->err();
    watcher->signal(SIGTERM);
    EXPECT_EQ(watcher->wait(), 0) << watcher->err();
    EXPECT_EQ(versionCount(), 1);
}

TEST_F(WatchAutoBackupTest, LeavesAPresentCardAloneAndCancelsTheCountdownOfAPulledOne) {
    // A longer countdown, so that the card is surely pulled before it ends on a busy machine.
    ASSERT_EQ(test::runCli(home(), {"settings", "set", "autoBackupDelaySeconds", "5"}).status, 0);
    auto watcher = watch();
    ASSERT_TRUE(waitForLine(*watcher, state("idle"))) << watcher->out() << watcher->err();
    std::this_thread::sleep_for(std::chrono::seconds(6));  // longer than the countdown
    card_->unmount();
    card_->mount();
    ASSERT_TRUE(waitForLine(*watcher, state("autoBackupCountdown"))) << watcher->out() << watcher->err();
    card_->unmount();
    std::this_thread::sleep_for(std::chrono::seconds(6));  // past the end of the countdown
    watcher->signal(SIGINT);
    EXPECT_EQ(watcher->wait(), 0) << watcher->err();
    for (const auto& line : lines(*watcher)) EXPECT_NE(line.at("state"), "running") << line.dump();
    EXPECT_EQ(lines(*watcher).back().at("state"), "idle");
    EXPECT_TRUE(!fs::exists(base_) || versionCount() == 0);
}

}  // namespace
}  // namespace tapekeep

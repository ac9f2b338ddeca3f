// tapekeep-cli watch --auto on a real FAT card mounted and unmounted through FUSE.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "CliProcess.h"
#include "FuseCardTest.h"
#include "LiveProcesses.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::CliProcess;
using test::writeFile;
using Json = nlohmann::json;

class WatchAutoBackupTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", "song");
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", "bass");
        ASSERT_EQ(test::runCli(home(), {"settings", "set", "autoBackupDelaySeconds", "2"}).status, 0);
    }

    std::unique_ptr<CliProcess> watch() const { return startCli({"--json", "watch", "--auto"}); }

    // The state lines the watcher printed so far.
    static std::vector<Json> lines(const CliProcess& process) { return test::jsonLinesOf(process.out()); }

    // Waits until a line printed at index `from` or later satisfies the test, and returns its index;
    // nothing when none did within the generous guard, which only keeps a failing test from hanging.
    static std::optional<std::size_t> waitForLine(const CliProcess& process,
                                                  const std::function<bool(const Json&)>& matches,
                                                  std::size_t from = 0) {
        std::optional<std::size_t> found;
        test::waitUntil(
            [&] {
                const auto printed = lines(process);
                for (std::size_t i = from; i < printed.size() && !found; ++i)
                    if (matches(printed[i])) found = i;
                return found.has_value();
            },
            std::chrono::seconds(60));
        return found;
    }

    static std::function<bool(const Json&)> state(const std::string& name) {
        return [name](const Json& line) { return line.at("state") == name; };
    }
    static std::function<bool(const Json&)> freshness(const Json& label) {
        return [label](const Json& line) { return line.at("freshness") == label; };
    }

    // Pulls the card and waits until the watcher has let it go (its freshness is forgotten), so
    // that a mount afterwards is surely a newly connected card to it. From the index of the line that
    // showed the card known, with a freshness; returns the index of the line that showed it gone.
    std::optional<std::size_t> pullCard(const CliProcess& watcher, std::size_t known) {
        card_->unmount();
        return waitForLine(watcher, freshness(nullptr), known + 1);
    }
    std::size_t versionCount() const { return storeEntries("backup-").size(); }
};

TEST_F(WatchAutoBackupTest, BacksUpACardMountedAfterTheStartAndFollowsItsChanges) {
    auto watcher = watch();
    const auto known = waitForLine(*watcher, freshness("NO BACKUP YET"));
    ASSERT_TRUE(known) << watcher->out() << watcher->err();
    const auto gone = pullCard(*watcher, *known);
    ASSERT_TRUE(gone) << watcher->out() << watcher->err();
    card_->mount();
    ASSERT_TRUE(waitForLine(*watcher, state("autoBackupCountdown"), *gone))
        << watcher->out() << watcher->err();
    ASSERT_TRUE(waitForLine(*watcher, state("success"))) << watcher->out() << watcher->err();
    EXPECT_TRUE(waitForLine(*watcher, freshness("UP TO DATE"))) << watcher->out();
    fs::remove(card_->mountPath() / "Songs/DEMO.m8s");
    writeFile(card_->mountPath() / "Songs/DEMO.m8s", "song, saved again");
    EXPECT_TRUE(waitForLine(*watcher, freshness("1 CHANGE"))) << watcher->out() << watcher->err();
    watcher->signal(SIGTERM);
    EXPECT_EQ(watcher->wait(), 0) << watcher->err();
    EXPECT_EQ(versionCount(), 1u);
}

// The countdown is far longer than the test, so that only the pull can end it: the test acts on the
// states the watcher prints, never on how long something takes.
TEST_F(WatchAutoBackupTest, LeavesAPresentCardAloneAndCancelsTheCountdownOfAPulledOne) {
    ASSERT_EQ(test::runCli(home(), {"settings", "set", "autoBackupDelaySeconds", "86400"}).status, 0);
    auto watcher = watch();
    // A present card would be armed by the first scan, before its freshness is known.
    const auto known = waitForLine(*watcher, freshness("NO BACKUP YET"));
    ASSERT_TRUE(known) << watcher->out() << watcher->err();
    const auto early = lines(*watcher);
    for (std::size_t i = 0; i <= *known; ++i)
        EXPECT_EQ(early[i].at("state"), std::string("idle")) << early[i].dump();
    const auto gone = pullCard(*watcher, *known);
    ASSERT_TRUE(gone) << watcher->out() << watcher->err();
    card_->mount();
    const auto countdown = waitForLine(*watcher, state("autoBackupCountdown"), *gone);
    ASSERT_TRUE(countdown) << watcher->out() << watcher->err();
    card_->unmount();
    ASSERT_TRUE(waitForLine(*watcher, state("idle"), *countdown + 1)) << watcher->out() << watcher->err();
    watcher->signal(SIGINT);
    EXPECT_EQ(watcher->wait(), 0) << watcher->err();
    for (const auto& line : lines(*watcher)) EXPECT_NE(line.at("state"), "running") << line.dump();
    EXPECT_EQ(lines(*watcher).back().at("state"), "idle");
    EXPECT_EQ(versionCount(), 0u);
}

}  // namespace
}  // namespace tapekeep

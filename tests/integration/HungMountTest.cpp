// tapekeep-cli beside a mount that stopped answering: a FAT image mounted through FUSE whose fusefat
// process is stopped, so that every access to it blocks in the kernel.

#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "FatCard.h"
#include "FuseCardTest.h"
#include "LiveProcesses.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::CliProcess;
using test::FatCard;
using test::writeFile;
using Json = nlohmann::json;

// Long enough that only a process that would never end runs into it; the commands themselves end
// within a few seconds.
constexpr std::chrono::seconds guard{30};

// How many threads of the process wait for an answer from a FUSE daemon.
int threadsWaitingOnFuse(pid_t process) {
    int count = 0;
    std::error_code error;
    for (const auto& task :
         fs::directory_iterator(fs::path("/proc") / std::to_string(process) / "task", error)) {
        std::string waitingIn;
        try {
            waitingIn = test::readFile(task.path() / "wchan");
        } catch (const std::exception&) {
            continue;  // the thread ended meanwhile
        }
        if (waitingIn == "request_wait_answer" || waitingIn.starts_with("fuse_")) ++count;
    }
    return count;
}

// Waits until the test holds or the process has ended; false when the guard ran out first.
bool waitUntil(const CliProcess& process, const std::function<bool()>& holds) {
    bool held = false;
    test::waitUntil(
        [&] {
            held = holds();
            return held || !fs::exists(fs::path("/proc") / std::to_string(process.pid()) / "task");
        },
        guard);
    return held;
}

// Whether the process has ended as far as it can while the mount is frozen: reaped, or exited with
// a thread still held by the kernel. A FUSE request that the daemon had taken when it stopped cannot
// be interrupted, so the thread waiting for it, and with it the process, is only reaped once the
// daemon runs again. The exit itself is what Tapekeep controls.
bool hasEnded(CliProcess& process) {
    if (process.hasExited()) return true;
    std::string stat;
    try {
        stat = test::readFile(fs::path("/proc") / std::to_string(process.pid()) / "stat");
    } catch (const std::exception&) {
        return false;
    }
    const auto closing = stat.rfind(')');
    return closing != std::string::npos && stat.size() > closing + 2 && stat[closing + 2] == 'Z';
}

struct ThawOnExit {
    FatCard& card;
    ~ThawOnExit() { card.thaw(); }
};

class HungMountTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        prepareVolumes();
        if (IsSkipped()) return;
        // Mounted first, so that every walk of the mounts meets it before the card.
        hung_ = std::make_unique<FatCard>(temp_ / "hung.img", volumes_, "STALLED");
        writeFile(hung_->mountPath() / "Songs/OLD.m8s", "song");
        insertCard();
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", "song");
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", "bass");
        hung_->freeze();
    }

    // Waits until the process has ended, then lets the mount answer so that it can be reaped, and
    // returns its status; nothing when it was still running after the guard. The mount is thawed
    // either way, so that no process of the test is left for the kernel to hold.
    std::optional<int> endedStatus(CliProcess& process) {
        const bool ended = waitUntil(process, [&] { return hasEnded(process); }) || hasEnded(process);
        hung_->thaw();
        if (!ended) return std::nullopt;
        return process.waitAtMost(guard);
    }

    std::unique_ptr<CliProcess> start(const std::vector<std::string>& arguments) const {
        return startCli(arguments, {{"TAPEKEEP_LOG_LEVEL", "debug"}});
    }

    bool stagingLeft() const {
        std::error_code error;
        for (const auto& entry : fs::recursive_directory_iterator(base_, error))
            if (entry.path().filename().string().starts_with(".incomplete-")) return true;
        return false;
    }

    std::unique_ptr<FatCard> hung_;
};

TEST_F(HungMountTest, CardsListsTheGoodCardAndLeavesTheHungMountOut) {
    auto cards = start({"--json", "cards"});
    const auto status = endedStatus(*cards);
    ASSERT_TRUE(status.has_value()) << "cards never returned\n" << cards->err();
    ASSERT_EQ(*status, 0) << cards->err();
    const Json result = Json::parse(cards->out());
    ASSERT_EQ(result.at("cards").size(), 1u) << result.dump();
    EXPECT_EQ(result.at("cards")[0].at("volumeName"), "M8CARD");
    EXPECT_EQ(result.at("cards")[0].at("uuid"), card_->uuid());
    EXPECT_EQ(result.at("examinedCount"), 1);
    EXPECT_NE(cards->err().find("Excluded volume 'STALLED' reason=diskutilTimedOut"), std::string::npos)
        << cards->err();
}

// A signal ends a command with 130 whatever thread is stuck on the hung mount: a scan's probe, the
// identity check of a running backup (through the run's own cancellation path, leaving no
// staging), or the command's main thread itself (through the watchdog).
TEST_F(HungMountTest, ASignalEndsACommandStuckOnTheHungMountWith130) {
    struct Case {
        std::vector<std::string> arguments;
        int signal;
        std::string stuckWhen;  // standard error holds this, besides a thread waiting on the mount
        int stuckThreads;
        std::string lastLine;
    };
    const std::vector<Case> cases{
        {{"cards"}, SIGINT, "", 1, "Cancelled."},
        {{"summary", (volumes_ / "STALLED").string()}, SIGTERM, "", 1, "Cancelled."},
        // Past the scan, whose probe stays stuck, the backup's identity check meets the hung mount.
        {{"backup", "M8CARD"}, SIGINT, "reason=diskutilTimedOut", 2, "Backup was cancelled."},
    };
    for (const auto& [arguments, signal, stuckWhen, stuckThreads, lastLine] : cases) {
        SCOPED_TRACE(arguments.front());
        hung_->freeze();
        auto process = start(arguments);
        // Destroyed before the process, which it would otherwise wait for on a frozen mount.
        const ThawOnExit thawOnExit{*hung_};
        ASSERT_TRUE(waitUntil(*process, [&] {
            return process->err().find(stuckWhen) != std::string::npos &&
                   threadsWaitingOnFuse(process->pid()) >= stuckThreads;
        })) << process->err();
        process->signal(signal);
        const auto status = endedStatus(*process);
        ASSERT_TRUE(status.has_value()) << "still running after the signal\n" << process->err();
        EXPECT_EQ(*status, 130) << process->err();
        EXPECT_EQ(process->lastErrorLine(), lastLine) << process->err();
        EXPECT_FALSE(stagingLeft());
    }
}

}  // namespace
}  // namespace tapekeep

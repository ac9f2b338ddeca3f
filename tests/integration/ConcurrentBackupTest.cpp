// Two processes back up one real FAT card at the same moment: one publishes, the other is refused
// with the words of a second backup in one process, and changes nothing.

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

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

const std::string refusal = "Cannot start backup — backup in progress on this card.";

class ConcurrentBackupTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", std::string(12000, 's'));
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", std::string(400, 'b'));
        writeFile(card_->mountPath() / "Samples/pad.wav", std::string(200000, 'p'));
    }

    // What a reader of the store sees: each set's entries, the target of each link, and every file in
    // every version. A staging folder's content is left out: the held run's rsync may still be writing
    // it. So is the sizes cache, which either process may write while it lists the versions.
    std::vector<std::string> store() const {
        std::vector<std::string> items;
        if (!fs::exists(base_)) return items;
        for (const auto& set : fs::directory_iterator(base_)) {
            for (const auto& entry : fs::directory_iterator(set)) {
                const std::string name = entry.path().filename().string();
                if (name == ".tapekeep-sizes.json") continue;
                std::string item = entry.path().lexically_relative(base_).string();
                if (entry.is_symlink()) item += " -> " + fs::read_symlink(entry.path()).string();
                items.push_back(item);
                if (!name.starts_with("backup-") || entry.is_symlink()) continue;
                for (const auto& file : fs::recursive_directory_iterator(entry.path()))
                    items.push_back(file.path().lexically_relative(base_).string());
            }
        }
        std::sort(items.begin(), items.end());
        return items;
    }

    int count(const std::string& prefix) const { return static_cast<int>(storeEntries(prefix).size()); }
};

// Each round the first process is held by the test hook at one step of its run while the second
// starts; then the first goes on. Even rounds share the card lock folder, as two programs of one
// session do; in odd rounds the second process has a runtime folder of its own, so that only the
// backup set's lock stands between them.
TEST_F(ConcurrentBackupTest, OfTwoSimultaneousBackupsOnePublishesAndTheOtherIsRefused) {
    const char* steps[] = {"staging-created", "estimate-pass", "transfer-pass",
                           "renamed",         "latest-swap",   "rotation"};
    for (int round = 0; round < 20; ++round) {
        const std::string step = steps[round % 6];
        SCOPED_TRACE("round " + std::to_string(round) + ", first held at " + step);
        const fs::path marker = temp_ / ("held-" + std::to_string(round));
        const auto first =
            startCli({"--json", "backup", "M8CARD", "--keep", "2"},
                     {{"TAPEKEEP_TEST_PAUSE_AT", step}, {"TAPEKEEP_TEST_PAUSE_MARKER", marker.string()}});
        ASSERT_TRUE(test::waitUntil([&] { return fs::exists(marker) || first->hasExited(); }) &&
                    fs::exists(marker))
            << first->err();

        const auto before = store();
        std::map<std::string, std::string> environment;
        if (round % 2 == 1) {
            fs::create_directories(temp_ / "other-run");
            fs::permissions(temp_ / "other-run", fs::perms::owner_all);
            environment["XDG_RUNTIME_DIR"] = (temp_ / "other-run").string();
        }
        const auto second = cli({"--json", "backup", "M8CARD", "--keep", "2"}, environment);
        EXPECT_EQ(second.status, 1) << second.err;
        EXPECT_EQ(second.lastErrorLine, refusal) << second.err;
        EXPECT_EQ(second.out, "");
        EXPECT_EQ(store(), before);

        fs::remove(marker);
        ASSERT_EQ(first->wait(), 0) << first->err();
        const fs::path version = Json::parse(first->out()).at("version").get<std::string>();
        EXPECT_TRUE(fs::is_directory(version));
        EXPECT_EQ(fs::read_symlink(version.parent_path() / "latest"), version.filename());
        EXPECT_EQ(count("backup-"), std::min(round + 1, 2));
        EXPECT_EQ(count(".incomplete-"), 0);
        EXPECT_EQ(count(".deleting-"), 0);
    }
}

// The card's lease reaches across processes for every kind of operation, not only through the
// backup set's lock that two backups share: an eject from another process is refused while a backup
// holds the card, and the card stays mounted under it.
TEST_F(ConcurrentBackupTest, AnotherProcessCannotEjectTheCardWhileABackupHoldsIt) {
    const fs::path marker = temp_ / "held";
    const auto backup = startHeldAt("transfer-pass", marker, {"--json", "backup", "M8CARD"});
    ASSERT_TRUE(fs::exists(marker)) << backup->err();

    const auto eject = cli({"eject", "M8CARD"});
    EXPECT_EQ(eject.status, 1) << eject.err;
    EXPECT_EQ(eject.lastErrorLine, "Cannot eject while another operation is running.") << eject.err;
    EXPECT_TRUE(fs::exists(card_->mountPath() / "Songs/DEMO.m8s"));

    fs::remove(marker);
    EXPECT_EQ(backup->wait(), 0) << backup->err();
    EXPECT_EQ(count("backup-"), 1);
}

// Whether the watcher printed a line for the card in that state with that message.
bool printed(const CliProcess& watcher, const std::string& volume, const std::string& state,
             const std::optional<std::string>& message = std::nullopt) {
    for (const auto& line : test::jsonLinesOf(watcher.out()))
        if (line.at("volumeName") == volume && line.at("state") == state &&
            (!message || line.at("message") == *message))
            return true;
    return false;
}

// `watch --auto` backs up a card that arrives while it runs, and a plain `backup` is asked for the
// same card; each way round, one of them backs it up and the other is refused. A second card,
// present from the start, tells when the watcher has looked at the cards for the first time, so
// that M8CARD surely arrives after that.
TEST_F(ConcurrentBackupTest, AWatcherAndABackupCommandNeverBothBackUpTheCard) {
    FatCard other(temp_ / "other.img", volumes_, "OTHER");
    writeFile(other.mountPath() / "Songs/A.m8s", "a");
    writeFile(other.mountPath() / "Instruments/B.m8i", "b");
    ASSERT_EQ(test::runCli(home(), {"settings", "set", "autoBackupDelaySeconds", "2"}).status, 0);
    const fs::path marker = temp_ / "held";
    auto holdAt = [&](const std::string& step) {
        return std::map<std::string, std::string>{{"TAPEKEEP_TEST_PAUSE_AT", step},
                                                  {"TAPEKEEP_TEST_PAUSE_MARKER", marker.string()}};
    };
    auto watchUntilItHasLooked = [&](const std::map<std::string, std::string>& environment) {
        card_->unmount();
        auto watcher = startCli({"--json", "watch", "--auto"}, environment);
        EXPECT_TRUE(test::waitUntil([&] { return printed(*watcher, "OTHER", "idle"); })) << watcher->out();
        card_->mount();
        return watcher;
    };

    {  // the watcher's automatic backup holds the card
        auto watcher = watchUntilItHasLooked(holdAt("transfer-pass"));
        ASSERT_TRUE(test::waitUntil([&] { return fs::exists(marker); })) << watcher->out() << watcher->err();
        const auto refused = cli({"--json", "backup", "M8CARD"});
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.lastErrorLine, refusal) << refused.err;
        fs::remove(marker);
        EXPECT_TRUE(test::waitUntil([&] { return printed(*watcher, "M8CARD", "success"); }))
            << watcher->out() << watcher->err();
        watcher->signal(SIGTERM);
        EXPECT_EQ(watcher->wait(), 0) << watcher->err();
        EXPECT_EQ(count("backup-"), 1);
    }
    {  // a backup command holds the card when the watcher sees it arrive
        const auto command = startCli({"--json", "backup", "M8CARD"}, holdAt("renamed"));
        ASSERT_TRUE(test::waitUntil([&] { return fs::exists(marker) || command->hasExited(); }) &&
                    fs::exists(marker))
            << command->err();
        auto watcher = watchUntilItHasLooked({});
        EXPECT_TRUE(test::waitUntil([&] { return printed(*watcher, "M8CARD", "failed", refusal); }))
            << watcher->out() << watcher->err();
        fs::remove(marker);
        EXPECT_EQ(command->wait(), 0) << command->err();
        watcher->signal(SIGTERM);
        watcher->wait();
        EXPECT_EQ(count("backup-"), 2);
        EXPECT_EQ(count(".incomplete-"), 0);
    }
}

}  // namespace
}  // namespace tapekeep

#include "cards/VolumeScanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>

#include "FatCard.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "core/SettingsStore.h"
#include "core/TimeLimitedCall.h"
#include "platform/ProcessExitError.h"

namespace tapekeep {
namespace {

using std::filesystem::path;

DiskInfo external(const std::string& uuid) {
    return DiskInfo{uuid, false};
}

// What the providers saw; they run on probe threads, several at once, and may outlive a test's
// scope when abandoned, so tests share it through a shared_ptr.
struct ProbeRecord {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> probed;  // volume names in order of call
    int running = 0;
    int mostRunning = 0;
    int stopped = 0;

    void begin(const path& volume) {
        std::lock_guard lock(mutex);
        probed.push_back(volume.filename().string());
        mostRunning = std::max(mostRunning, ++running);
        changed.notify_all();
    }
    void end(bool sawStop) {
        std::lock_guard lock(mutex);
        --running;
        stopped += sawStop ? 1 : 0;
        changed.notify_all();
    }
    std::vector<std::string> probedNames() {
        std::lock_guard lock(mutex);
        return probed;
    }
};

class VolumeScannerTest : public ::testing::Test {
protected:
    path emptyVolume(const std::string& name) {
        std::filesystem::create_directories(folder / name);
        volumes.push_back(folder / name);
        return volumes.back();
    }
    path cardWithFolders(const std::string& name) {
        const path volume = emptyVolume(name);
        std::filesystem::create_directories(volume / "Songs");
        std::filesystem::create_directories(volume / "Instruments");
        return volume;
    }
    path cardWithStartupFile(const std::string& name) {
        const path volume = emptyVolume(name);
        test::writeFile(volume / "System" / "STARTUP.m8s", "M8VERSION");
        return volume;
    }

    // Answers from `disks` by volume name; other volumes fail as a non-zero exit would.
    VolumeScanner::DiskInfoProvider disksByName(std::map<std::string, DiskInfo> disks) {
        return [disks = std::move(disks), record = record](const path& volume, std::stop_token) {
            record->begin(volume);
            record->end(false);
            const auto found = disks.find(volume.filename().string());
            if (found == disks.end()) throw ProcessExitError(1, "Could not find disk: " + volume.string());
            return found->second;
        };
    }

    static std::vector<std::string> namesOf(const std::vector<SDCard>& cards) {
        std::vector<std::string> names;
        for (const auto& card : cards) names.push_back(card.volumeName);
        return names;
    }

    // Reads the exclusion list from `settings`, empty unless a test fills it.
    VolumeScanner scanner(VolumeScanner::DiskInfoProvider diskInfoProvider,
                          std::chrono::duration<double> probeTimeout = std::chrono::seconds(5),
                          int concurrencyLimit = 4) {
        return VolumeScanner(
            VolumeScanner::Configuration{.volumesProvider = [list = volumes] { return list; },
                                         .diskInfoProvider = std::move(diskInfoProvider),
                                         .settings = &settings,
                                         .probeTimeout = probeTimeout,
                                         .concurrencyLimit = concurrencyLimit});
    }

    test::TempDir folder;
    SettingsStore settings{folder / "settings.json"};
    std::vector<path> volumes;
    std::shared_ptr<ProbeRecord> record = std::make_shared<ProbeRecord>();
};

TEST(IsM8CardTest, RecognisesTheStartupFileOrBothFolders) {
    struct Case {
        std::vector<const char*> folders, files;
        bool expected;
    };
    const std::vector<Case> cases{{{}, {"System/STARTUP.m8s"}, true},
                                  {{"System/STARTUP.m8s"}, {}, true},
                                  {{"Songs", "Instruments"}, {}, true},
                                  {{"Songs"}, {"Instruments"}, false},
                                  {{"System", "Samples"}, {"System/OTHER.m8s"}, false}};
    for (const auto& [folders, files, expected] : cases) {
        test::TempDir volume;
        for (const char* name : folders) std::filesystem::create_directories(volume / name);
        for (const char* name : files) test::writeFile(volume / name, "");
        EXPECT_EQ(isM8Card(volume.path()), expected)
            << ::testing::PrintToString(folders) << " " << ::testing::PrintToString(files);
    }
}

TEST(VolumeScannerExclusionListTest, SplitsAtCommasTrimsAndReadsOnlyTheFirst1024Characters) {
    using Names = std::set<std::string>;
    const std::string first(1020, 'x');  // the comma is character 1,021
    std::string accented;                // characters, not bytes: "e" plus a combining accent
    for (int i = 0; i < 1022; ++i) accented += "e\u0301";
    const std::vector<std::pair<std::string, Names>> cases{
        {" Card A ,, B\t,", {"Card A", "B"}},
        {" Line\nBreak ,\t", {"Line\nBreak"}},
        {first + ",Card B", {first, "Car"}},
        {accented + ",Z", {accented, "Z"}},
        {accented + "e\u0301,Z", {accented + "e\u0301"}},
    };
    for (const auto& [setting, expected] : cases)
        EXPECT_EQ(VolumeScanner::parseExclusionList(setting), expected);
}

// Cards of either marker, sorted as a file browser sorts names, beside every way of being left out,
// each logged with its reason; only external volumes with a UUID are examined, and only those
// without the marker count as excluded.
TEST_F(VolumeScannerTest, FindsCardsSortedByNameAndLeavesOutEachKindOfVolumeSayingWhy) {
    const path ten = cardWithFolders("Card 10");
    cardWithStartupFile("Card 2");
    for (const auto& name : VolumeScanner::defaultExcludedNames()) cardWithFolders(name);
    settings.setValue("excludedVolumes", " Mine ,, B\t,");
    for (const char* name : {"Mine", "B", "b", "M8", "Camera", "NoId", "Inside", "Broken"})
        cardWithFolders(name);
    std::filesystem::remove_all(folder / "Camera" / "Songs");
    cardWithStartupFile("NoIdStartup");
    volumes.push_back(folder / "Gone");
    test::writeFile(folder / "Plain file", "");
    volumes.push_back(folder / "Plain file");
    std::map<std::string, DiskInfo> disks{{"Camera", external("C")},     {"NoId", external("")},
                                          {"NoIdStartup", external("")}, {"Inside", {"I", true}},
                                          {"M8", external("M")},         {"b", external("lower")}};
    for (const char* name : {"Mine", "B", "Gone", "Plain file", "Data", "Card 10", "Card 2"})
        disks[name] = external(name);

    Log::setThreshold(Log::Level::debug);
    ::testing::internal::CaptureStderr();
    const auto result = scanner(disksByName(disks)).scan();
    const std::string logged = ::testing::internal::GetCapturedStderr();
    Log::setThreshold(Log::Level::error);

    EXPECT_EQ(namesOf(result.cards), (std::vector<std::string>{"b", "Card 2", "Card 10", "M8"}));
    EXPECT_EQ(result.cards[2], (SDCard{ten, "Card 10", "Card 10"}));
    EXPECT_EQ(result.examinedCount, 5);
    EXPECT_EQ(result.excludedCount, 1);
    auto probed = record->probedNames();
    std::sort(probed.begin(), probed.end());
    EXPECT_EQ(probed, (std::vector<std::string>{"Broken", "Camera", "Card 10", "Card 2", "Inside", "M8",
                                                "NoId", "NoIdStartup", "b"}));
    for (const char* line :
         {"Excluded volume 'Data' reason=defaultExclusion", "Excluded volume 'Mine' reason=userExclusion",
          "Excluded volume 'Gone' reason=notDirectory", "Excluded volume 'Camera' reason=notM8Card",
          "Excluded volume 'NoId' reason=noUUID", "Excluded volume 'Inside' reason=internalDevice",
          "Excluded volume 'Broken' reason=diskutilFailed"})
        EXPECT_NE(logged.find(line), std::string::npos) << line << "\nin:\n" << logged;
}

// A provider that answers only when asked to stop, as a hung tool killed by the runner would.
VolumeScanner::DiskInfoProvider hangingUntilStopped(std::shared_ptr<ProbeRecord> record) {
    return [record](const path& volume, std::stop_token token) -> DiskInfo {
        record->begin(volume);
        sleepFor(std::chrono::hours(1), token);
        record->end(token.stop_requested());
        throw Cancelled();
    };
}

// A door that work blocks on until the test opens it, as a thread blocked in the kernel on a mount
// that stopped answering would; no stop request reaches it. Shared, since the blocked thread may
// outlive the test's scope.
struct Gate {
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;

    void pass() {
        std::unique_lock lock(mutex);
        opened.wait(lock, [this] { return isOpen; });
    }
    void open() {
        std::lock_guard lock(mutex);
        isOpen = true;
        opened.notify_all();
    }
};

// Every part of a probe is under its deadline: the disk's answer, and the marker test on the mount
// point. Only the quick volume has to answer within the (generous) timeout; the others never do.
TEST_F(VolumeScannerTest, AStuckProbeCostsOnlyItsOwnVolume) {
    for (const char* name : {"Stuck", "Stuck too", "Quick"}) cardWithFolders(name);
    const auto isStuck = [](const path& volume) { return volume.filename() != "Quick"; };
    const auto gate = std::make_shared<Gate>();
    struct Case {
        const char* stuckPart;
        VolumeScanner::DiskInfoProvider diskInfoProvider;
        VolumeScanner::CardDetector cardDetector;
    };
    const auto hanging = hangingUntilStopped(record);
    const std::vector<Case> cases{
        {"disk identity",
         [=](const path& volume, std::stop_token token) {
             return isStuck(volume) ? hanging(volume, token) : external("QUICK");
         },
         isM8Card},
        {"marker test", [](const path&, std::stop_token) { return external("QUICK"); },
         [=](const path& volume) {
             if (isStuck(volume)) gate->pass();
             return isM8Card(volume);
         }},
    };
    for (const auto& [stuckPart, diskInfoProvider, cardDetector] : cases) {
        const VolumeScanner scanning(VolumeScanner::Configuration{
            .volumesProvider = [list = volumes] { return list; },
            .diskInfoProvider = diskInfoProvider,
            .cardDetector = cardDetector,
            .probeTimeout = std::chrono::seconds(1),
        });
        const auto result = scanning.scan();
        EXPECT_EQ(namesOf(result.cards), std::vector<std::string>{"Quick"}) << stuckPart;
        EXPECT_EQ(result.examinedCount, 1) << stuckPart;
    }
    EXPECT_EQ(record->probedNames().size(), 2u);
    gate->open();
}

TEST_F(VolumeScannerTest, RunsAtMostTheConcurrencyLimitOfProbesAndEachVolumeOnce) {
    for (int i = 0; i < 9; ++i) cardWithFolders("Card " + std::to_string(i));
    const auto shared = record;
    const auto provider = [shared](const path& volume, std::stop_token token) {
        shared->begin(volume);
        sleepFor(std::chrono::milliseconds(10), token);
        shared->end(false);
        return external(volume.filename().string());
    };
    EXPECT_EQ(scanner(provider, std::chrono::seconds(5), 3).scan().cards.size(), 9u);
    EXPECT_LE(record->mostRunning, 3);
    auto probed = record->probedNames();
    std::sort(probed.begin(), probed.end());
    EXPECT_EQ(std::unique(probed.begin(), probed.end()), probed.end());
    EXPECT_EQ(probed.size(), 9u);
}

// A cancelled scan passes the stop on to its probes and returns without waiting for one that no
// stop reaches.
TEST_F(VolumeScannerTest, CancellingTheScanStopsTheRunningProbesAndLeavesAStuckOneBehind) {
    for (const char* name : {"A", "B", "C", "D", "E"}) cardWithFolders(name);
    const auto gate = std::make_shared<Gate>();
    const auto hanging = hangingUntilStopped(record);
    const auto scanning = std::make_shared<VolumeScanner>(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = [gate, hanging, record = record](const path& volume,
                                                             std::stop_token token) -> DiskInfo {
            if (volume.filename() != "B") return hanging(volume, token);
            record->begin(volume);
            gate->pass();
            record->end(false);
            throw Cancelled();
        },
        .probeTimeout = std::chrono::hours(1),
        .concurrencyLimit = 2,
    });
    const auto cancel = std::make_shared<std::stop_source>();
    std::thread canceller([&] {
        std::unique_lock lock(record->mutex);
        record->changed.wait(lock, [&] { return record->running == 2; });
        cancel->request_stop();
    });
    // Where a scan that waits for the stuck probe fails the test instead of stopping it.
    const auto outcome = callWithTimeLimit(
        [scanning, cancel]() -> std::string {
            try {
                scanning->scan(cancel->get_token());
                return "returned";
            } catch (const Cancelled&) {
                return "cancelled";
            }
        },
        std::chrono::seconds(60));
    canceller.join();
    EXPECT_EQ(outcome, std::optional<std::string>("cancelled"));
    {
        std::unique_lock lock(record->mutex);
        record->changed.wait(lock, [&] { return record->stopped == 1; });  // A saw its stop
    }
    auto probed = record->probedNames();
    std::sort(probed.begin(), probed.end());
    EXPECT_EQ(probed, (std::vector<std::string>{"A", "B"}));
    gate->open();
}

TEST_F(VolumeScannerTest, CancelledProbesAndListingErrorsEndTheScan) {
    cardWithFolders("Fine");
    cardWithFolders("Cancelling");
    EXPECT_THROW(scanner([](const path& volume, std::stop_token) {
                     if (volume.filename() == "Cancelling") throw Cancelled();
                     return external("F");
                 }).scan(),
                 Cancelled);
    VolumeScanner failing(VolumeScanner::Configuration{
        .volumesProvider = []() -> std::vector<path> { throw PosixError(EACCES, "cannot list volumes"); },
        .diskInfoProvider = disksByName({}),
    });
    EXPECT_THROW(failing.scan(), PosixError);
    EXPECT_EQ(failing.validate("WANTED"), ValidateResult::scanFailed());
    EXPECT_TRUE(record->probedNames().empty());
}

// The disk's answer has no timeout in validate: it may take longer than probeTimeout, which bounds
// only the touch of the mount point (given plenty of time here).
TEST_F(VolumeScannerTest, ValidateFindsTheCardByUuidAloneWithoutTimeout) {
    cardWithFolders("Other");
    const path data = emptyVolume("Data");  // excluded by name, no marker, internal
    const auto answers = disksByName({{"Other", external("OTHER")}, {"Data", {"WANTED", true}}});
    settings.setValue("excludedVolumes", "Other,Data");
    const auto timeout = std::chrono::milliseconds(500);
    const auto slow = scanner(
        [answers, timeout](const path& volume, std::stop_token token) {
            if (volume.filename() == "Data") sleepFor(2 * timeout, token);
            return answers(volume, token);
        },
        timeout);
    EXPECT_EQ(slow.validate("WANTED"), ValidateResult::found(SDCard{data, "Data", "WANTED"}));
    EXPECT_EQ(slow.validate(""), ValidateResult::notFound());
}

TEST_F(VolumeScannerTest, ValidateTellsAGoneCardFromAnUnanswerableQuestion) {
    EXPECT_EQ(scanner(disksByName({})).validate("WANTED"), ValidateResult::notFound());  // nothing to probe
    cardWithFolders("First");
    cardWithFolders("Second");
    volumes.push_back(folder / "Missing");  // skipped, not an attempt
    const std::vector<std::pair<std::map<std::string, DiskInfo>, ValidateResult>> cases{
        {{}, ValidateResult::scanFailed()},
        {{{"Second", external("ANOTHER")}}, ValidateResult::notFound()},
        {{{"First", external("")}}, ValidateResult::notFound()},
        {{{"Second", external("WANTED")}},
         ValidateResult::found(SDCard{folder / "Second", "Second", "WANTED"})},
    };
    for (const auto& [answers, expected] : cases)
        EXPECT_EQ(scanner(disksByName(answers)).validate("WANTED"), expected) << answers.size();
    EXPECT_THROW(
        scanner([](const path&, std::stop_token) -> DiskInfo { throw Cancelled(); }).validate("WANTED"),
        Cancelled);
}

TEST(VolumeScannerSystemTest, FindsAndValidatesARealCardMountedBelowAVolumeRoot) {
    if (auto reason = test::FatCard::unavailableReason()) GTEST_SKIP() << *reason;
    test::TempDir folder;
    test::FatCard card(folder / "card.img", folder / "media" / "user", "M8CARD");
    std::filesystem::create_directories(card.mountPath() / "Songs");
    std::filesystem::create_directories(card.mountPath() / "Instruments");
    const VolumeScanner scanner({folder / "media"}, nullptr);

    const auto result = scanner.scan();
    const SDCard expected{card.mountPath(), "M8CARD", card.uuid()};
    EXPECT_EQ(result.cards, std::vector<SDCard>{expected});
    EXPECT_EQ(result.examinedCount, 1);
    EXPECT_EQ(scanner.validate(card.uuid()), ValidateResult::found(expected));

    std::filesystem::create_directory_symlink(folder / "media", folder / "linked media");
    EXPECT_EQ(VolumeScanner({folder / "linked media"}, nullptr).scan().cards, std::vector<SDCard>{expected});

    card.unmount();
    EXPECT_EQ(scanner.validate(card.uuid()), ValidateResult::notFound());
}

// A mount that stopped answering (its FUSE daemon is stopped) costs a scan its time limit and
// nothing more, even when it is a volume root itself; validate goes on past it.
TEST(VolumeScannerSystemTest, GoesOnPastAMountThatStoppedAnswering) {
    if (auto reason = test::FatCard::unavailableReason()) GTEST_SKIP() << *reason;
    test::TempDir folder;
    test::FatCard hung(folder / "hung.img", folder / "media", "STALLED");
    test::FatCard card(folder / "card.img", folder / "media", "M8CARD");
    std::filesystem::create_directories(card.mountPath() / "Songs");
    std::filesystem::create_directories(card.mountPath() / "Instruments");
    hung.freeze();
    const auto scanner = std::make_shared<VolumeScanner>(VolumeScanner::Configuration{
        .volumeRoots = {folder / "media", hung.mountPath()}, .probeTimeout = std::chrono::seconds(1)});

    // Where a hang fails the test instead of stopping it.
    const auto answers = callWithTimeLimit(
        [scanner, uuid = card.uuid()] {
            return std::make_tuple(scanner->scan(), scanner->validate(uuid), scanner->validate("ELSEWHERE"));
        },
        std::chrono::seconds(60));
    ASSERT_TRUE(answers.has_value()) << "the scanner hung on the stopped mount";
    const auto& [result, found, elsewhere] = *answers;
    const SDCard expected{card.mountPath(), "M8CARD", card.uuid()};
    EXPECT_EQ(result.cards, std::vector<SDCard>{expected});
    EXPECT_EQ(result.examinedCount, 1);
    EXPECT_EQ(found, ValidateResult::found(expected));
    EXPECT_EQ(elsewhere, ValidateResult::notFound());
}

}  // namespace
}  // namespace tapekeep

#include "cards/VolumeScanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <map>
#include <memory>
#include <mutex>

#include "FatCard.h"
#include "TempDir.h"
#include "backup/ProcessExitError.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "core/SettingsStore.h"

namespace tapekeep {
namespace {

using std::filesystem::path;

DiskInfo external(const std::string& uuid) { return DiskInfo{uuid, false}; }

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

    VolumeScanner scanner(VolumeScanner::DiskInfoProvider diskInfoProvider, SettingsStore* settings = nullptr) {
        return VolumeScanner(VolumeScanner::Configuration{
            .volumesProvider = [list = volumes] { return list; },
            .diskInfoProvider = std::move(diskInfoProvider),
            .settings = settings,
        });
    }

    static std::vector<std::string> namesOf(const std::vector<SDCard>& cards) {
        std::vector<std::string> names;
        for (const auto& card : cards) names.push_back(card.volumeName);
        return names;
    }

    test::TempDir folder;
    std::vector<path> volumes;
    std::shared_ptr<ProbeRecord> record = std::make_shared<ProbeRecord>();
};

TEST(IsM8CardTest, RecognisesTheStartupFileOrBothFolders) {
    struct Case {
        const char* name;
        std::vector<const char*> folders;
        std::vector<const char*> files;
        bool expected;
    };
    const std::vector<Case> cases{
        {"startup file", {}, {"System/STARTUP.m8s"}, true},
        {"startup folder counts too", {"System/STARTUP.m8s"}, {}, true},
        {"both folders, empty", {"Songs", "Instruments"}, {}, true},
        {"songs only", {"Songs"}, {}, false},
        {"instruments is a file", {"Songs"}, {"Instruments"}, false},
        {"system folder without startup file", {"System", "Samples"}, {"System/OTHER.m8s"}, false},
        {"empty volume", {}, {}, false},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        test::TempDir volume;
        for (const char* folder : testCase.folders) std::filesystem::create_directories(volume / folder);
        for (const char* file : testCase.files) test::writeFile(volume / file, "");
        EXPECT_EQ(isM8Card(volume.path()), testCase.expected);
    }
}

TEST(VolumeScannerExclusionListTest, SplitsAtCommasAndTrimsSpacesAndTabs) {
    EXPECT_EQ(VolumeScanner::parseExclusionList(" Card A ,, B\t,"), (std::set<std::string>{"Card A", "B"}));
    EXPECT_EQ(VolumeScanner::parseExclusionList(" Line\nBreak ,\t"), (std::set<std::string>{"Line\nBreak"}));
    EXPECT_TRUE(VolumeScanner::parseExclusionList("").empty());
    EXPECT_TRUE(VolumeScanner::parseExclusionList(" ,\t, ").empty());
}

TEST(VolumeScannerExclusionListTest, ReadsOnlyTheFirst1024Characters) {
    const std::string first(1020, 'x');  // the comma is character 1,021
    EXPECT_EQ(VolumeScanner::parseExclusionList(first + ",Card B"), (std::set<std::string>{first, "Car"}));
    EXPECT_EQ(VolumeScanner::parseExclusionList(std::string(1024, 'y') + ",Late"),
              (std::set<std::string>{std::string(1024, 'y')}));

    // Characters, not bytes: 1,022 accented letters written as "e" plus a combining accent, then ",Z".
    std::string accented;
    for (int i = 0; i < 1022; ++i) accented += "e\u0301";
    EXPECT_EQ(VolumeScanner::parseExclusionList(accented + ",Z"), (std::set<std::string>{accented, "Z"}));
    EXPECT_EQ(VolumeScanner::parseExclusionList(accented + "e\u0301,Z"),
              (std::set<std::string>{accented + "e\u0301"}));
}

TEST_F(VolumeScannerTest, FindsCardsOfEitherMarkerSortedAsAFileBrowserSortsNames) {
    const path ten = cardWithFolders("Card 10");
    cardWithStartupFile("Card 2");
    cardWithFolders("card 3");
    const auto result =
        scanner(disksByName({{"Card 10", external("U10")}, {"Card 2", external("U2")}, {"card 3", external("U3")}}))
            .scan();
    EXPECT_EQ(namesOf(result.cards), (std::vector<std::string>{"Card 2", "card 3", "Card 10"}));
    EXPECT_EQ(result.cards.back(), (SDCard{ten, "Card 10", "U10"}));
    EXPECT_EQ(result.examinedCount, 3);
    EXPECT_EQ(result.excludedCount, 0);
}

TEST_F(VolumeScannerTest, NeverProbesTheSystemsOwnVolumes) {
    for (const auto& name : VolumeScanner::defaultExcludedNames()) cardWithFolders(name);
    const auto result = scanner(disksByName({{"Data", external("DATA-UUID")}})).scan();
    EXPECT_TRUE(result.cards.empty());
    EXPECT_EQ(result.examinedCount, 0);
    EXPECT_TRUE(record->probedNames().empty());
    EXPECT_EQ(VolumeScanner::defaultExcludedNames().size(), 7u);
}

TEST_F(VolumeScannerTest, NeverProbesNamesTheUserExcludedExactly) {
    test::TempDir settingsFolder;
    SettingsStore settings(settingsFolder / "settings.json");
    settings.setValue("excludedVolumes", " Card A ,, B\t,");
    for (const char* name : {"Card A", "B", "b", "Card"}) cardWithFolders(name);
    const auto result = scanner(disksByName({{"Card A", external("1")},
                                             {"B", external("2")},
                                             {"b", external("3")},
                                             {"Card", external("4")}}),
                                &settings)
                            .scan();
    EXPECT_EQ(namesOf(result.cards), (std::vector<std::string>{"b", "Card"}));
    auto probed = record->probedNames();
    std::sort(probed.begin(), probed.end());
    EXPECT_EQ(probed, (std::vector<std::string>{"Card", "b"}));
}

TEST_F(VolumeScannerTest, SkipsMissingVolumesAndFilesWithoutCountingThem) {
    volumes.push_back(folder / "Gone");
    test::writeFile(folder / "Plain file", "");
    volumes.push_back(folder / "Plain file");
    const auto result = scanner(disksByName({{"Gone", external("1")}, {"Plain file", external("2")}})).scan();
    EXPECT_TRUE(result.cards.empty());
    EXPECT_EQ(result.examinedCount, 0);
    EXPECT_TRUE(record->probedNames().empty());
}

TEST_F(VolumeScannerTest, AVolumeWithoutUuidIsNoCardEvenWithAStartupFile) {
    cardWithStartupFile("NoId");
    int detectorCalls = 0;
    VolumeScanner noUuid(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = disksByName({{"NoId", external("")}}),
        .cardDetector =
            [&](const path& volume) {
                ++detectorCalls;
                return isM8Card(volume);
            },
    });
    const auto result = noUuid.scan();
    EXPECT_TRUE(result.cards.empty());
    EXPECT_EQ(result.examinedCount, 0);
    EXPECT_EQ(detectorCalls, 0);
}

TEST_F(VolumeScannerTest, AnInternalDiskIsNoCardAndCountsNowhere) {
    cardWithFolders("Inside");
    const auto result = scanner(disksByName({{"Inside", DiskInfo{"INTERNAL-UUID", true}}})).scan();
    EXPECT_TRUE(result.cards.empty());
    EXPECT_EQ(result.examinedCount, 0);
    EXPECT_EQ(result.excludedCount, 0);
}

TEST_F(VolumeScannerTest, AnExternalVolumeWithoutMarkerIsExaminedAndExcluded) {
    emptyVolume("Camera");
    cardWithFolders("M8");
    const auto result = scanner(disksByName({{"Camera", external("C")}, {"M8", external("M")}})).scan();
    EXPECT_EQ(namesOf(result.cards), std::vector<std::string>{"M8"});
    EXPECT_EQ(result.examinedCount, 2);
    EXPECT_EQ(result.excludedCount, 1);
}

TEST_F(VolumeScannerTest, AFailingProbeLeavesOutOnlyItsVolume) {
    cardWithFolders("Broken");
    cardWithFolders("Fine");
    const auto result = scanner(disksByName({{"Fine", external("F")}})).scan();
    EXPECT_EQ(namesOf(result.cards), std::vector<std::string>{"Fine"});
    EXPECT_EQ(result.examinedCount, 1);
    EXPECT_EQ(result.excludedCount, 0);
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

TEST_F(VolumeScannerTest, ProbesThatAllTimeOutLeaveNoCardsAndZeroCounts) {
    for (const char* name : {"One", "Two", "Three", "Four", "Five"}) cardWithFolders(name);
    VolumeScanner stuck(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = hangingUntilStopped(record),
        .probeTimeout = std::chrono::milliseconds(20),
    });
    const auto result = stuck.scan();
    EXPECT_TRUE(result.cards.empty());
    EXPECT_EQ(result.examinedCount, 0);
    EXPECT_EQ(result.excludedCount, 0);
    EXPECT_EQ(record->probedNames().size(), 5u);
}

TEST_F(VolumeScannerTest, AStuckProbeCostsOnlyItsOwnVolume) {
    cardWithFolders("Stuck");
    cardWithFolders("Quick");
    const auto hanging = hangingUntilStopped(record);
    VolumeScanner mixed(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = [hanging](const path& volume, std::stop_token token) {
            return volume.filename() == "Stuck" ? hanging(volume, token) : external("QUICK");
        },
        .probeTimeout = std::chrono::milliseconds(20),
    });
    EXPECT_EQ(namesOf(mixed.scan().cards), std::vector<std::string>{"Quick"});
}

TEST_F(VolumeScannerTest, RunsAtMostTheConcurrencyLimitOfProbesAndEachVolumeOnce) {
    for (int i = 0; i < 9; ++i) cardWithFolders("Card " + std::to_string(i));
    const auto shared = record;
    VolumeScanner limited(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = [shared](const path& volume, std::stop_token token) {
            shared->begin(volume);
            sleepFor(std::chrono::milliseconds(10), token);
            shared->end(false);
            return external(volume.filename().string());
        },
        .concurrencyLimit = 3,
    });
    EXPECT_EQ(limited.scan().cards.size(), 9u);
    EXPECT_LE(record->mostRunning, 3);
    auto probed = record->probedNames();
    std::sort(probed.begin(), probed.end());
    EXPECT_EQ(std::unique(probed.begin(), probed.end()), probed.end());
    EXPECT_EQ(probed.size(), 9u);
}

TEST_F(VolumeScannerTest, OneProbeAtATimeGoesInListOrder) {
    for (const char* name : {"Zulu", "Alpha", "Mike"}) cardWithFolders(name);
    VolumeScanner serial(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = disksByName({{"Zulu", external("Z")}, {"Alpha", external("A")}, {"Mike", external("M")}}),
        .concurrencyLimit = 1,
    });
    serial.scan();
    EXPECT_EQ(record->probedNames(), (std::vector<std::string>{"Zulu", "Alpha", "Mike"}));
}

TEST_F(VolumeScannerTest, CancellingTheScanStopsTheRunningProbesWaitsForThemAndThrows) {
    for (const char* name : {"A", "B", "C", "D", "E"}) cardWithFolders(name);
    VolumeScanner scanning(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = hangingUntilStopped(record),
        .probeTimeout = std::chrono::hours(1),
        .concurrencyLimit = 2,
    });
    std::stop_source cancel;
    auto scan = std::async(std::launch::async, [&] { return scanning.scan(cancel.get_token()); });
    {
        std::unique_lock lock(record->mutex);
        record->changed.wait(lock, [&] { return record->running == 2; });
    }
    cancel.request_stop();
    EXPECT_THROW(scan.get(), Cancelled);
    EXPECT_EQ(record->stopped, 2);  // both had ended when the scan returned
    EXPECT_EQ(record->probedNames().size(), 2u);
}

TEST_F(VolumeScannerTest, AProbeThatThrowsCancelledEndsTheScan) {
    cardWithFolders("Fine");
    cardWithFolders("Cancelling");
    VolumeScanner scanning(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = [](const path& volume, std::stop_token) {
            if (volume.filename() == "Cancelling") throw Cancelled();
            return external("F");
        },
    });
    EXPECT_THROW(scanning.scan(), Cancelled);
}

TEST_F(VolumeScannerTest, AListingErrorFailsTheScanBeforeAnyProbe) {
    VolumeScanner failing(VolumeScanner::Configuration{
        .volumesProvider = []() -> std::vector<path> { throw PosixError(EACCES, "cannot list volumes"); },
        .diskInfoProvider = disksByName({}),
    });
    EXPECT_THROW(failing.scan(), PosixError);
    std::stop_source cancelled;
    cancelled.request_stop();
    EXPECT_THROW(failing.scan(cancelled.get_token()), Cancelled);
    EXPECT_TRUE(record->probedNames().empty());
}

TEST_F(VolumeScannerTest, LogsWhyEachVolumeIsLeftOut) {
    test::TempDir settingsFolder;
    SettingsStore settings(settingsFolder / "settings.json");
    settings.setValue("excludedVolumes", "Mine");
    for (const char* name : {"Data", "Mine", "Camera", "NoId", "Inside", "Broken"}) cardWithFolders(name);
    std::filesystem::remove_all(folder / "Camera" / "Songs");
    volumes.push_back(folder / "Gone");
    const auto provider = disksByName({{"Camera", external("C")}, {"NoId", external("")}, {"Inside", {"I", true}}});

    Log::setThreshold(Log::Level::debug);
    ::testing::internal::CaptureStderr();
    scanner(provider, &settings).scan();
    const std::string logged = ::testing::internal::GetCapturedStderr();
    Log::setThreshold(Log::Level::error);

    for (const char* line : {"Excluded volume 'Data' reason=defaultExclusion",
                             "Excluded volume 'Mine' reason=userExclusion", "Excluded volume 'Gone' reason=notDirectory",
                             "Excluded volume 'Camera' reason=notM8Card", "Excluded volume 'NoId' reason=noUUID",
                             "Excluded volume 'Inside' reason=internalDevice",
                             "Excluded volume 'Broken' reason=diskutilFailed"})
        EXPECT_NE(logged.find(line), std::string::npos) << line << "\nin:\n" << logged;
}

TEST_F(VolumeScannerTest, ValidateOfAnEmptyUuidIsNotFoundWithoutListing) {
    int listings = 0;
    VolumeScanner counting(VolumeScanner::Configuration{
        .volumesProvider =
            [&] {
                ++listings;
                return volumes;
            },
        .diskInfoProvider = disksByName({}),
    });
    EXPECT_EQ(counting.validate(""), ValidateResult::notFound());
    EXPECT_EQ(listings, 0);
}

TEST_F(VolumeScannerTest, ValidateFindsTheCardByUuidAloneWithoutTimeout) {
    cardWithFolders("Other");
    const path data = emptyVolume("Data");  // excluded by name, no marker, internal
    const auto answers = disksByName({{"Other", external("OTHER")}, {"Data", {"WANTED", true}}});
    test::TempDir settingsFolder;
    SettingsStore settings(settingsFolder / "settings.json");
    settings.setValue("excludedVolumes", "Other,Data");
    VolumeScanner slow(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = [answers](const path& volume, std::stop_token token) {
            sleepFor(std::chrono::milliseconds(30), token);
            return answers(volume, token);
        },
        .settings = &settings,
        .probeTimeout = std::chrono::milliseconds(1),
    });
    EXPECT_EQ(slow.validate("WANTED"), ValidateResult::found(SDCard{data, "Data", "WANTED"}));
}

TEST_F(VolumeScannerTest, ValidateTellsAGoneCardFromAnUnanswerableQuestion) {
    struct Case {
        const char* name;
        std::map<std::string, DiskInfo> answers;  // by volume; the others fail
        ValidateResult expected;
    };
    cardWithFolders("First");
    cardWithFolders("Second");
    volumes.push_back(folder / "Missing");  // skipped, not an attempt
    const std::vector<Case> cases{
        {"every probe fails", {}, ValidateResult::scanFailed()},
        {"one answers with another uuid", {{"Second", external("ANOTHER")}}, ValidateResult::notFound()},
        {"one answers with no uuid", {{"First", external("")}}, ValidateResult::notFound()},
        {"the second has it", {{"Second", external("WANTED")}},
         ValidateResult::found(SDCard{folder / "Second", "Second", "WANTED"})},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        EXPECT_EQ(scanner(disksByName(testCase.answers)).validate("WANTED"), testCase.expected);
    }
}

TEST_F(VolumeScannerTest, ValidateWithNothingToProbeIsNotFound) {
    volumes.push_back(folder / "Missing");
    EXPECT_EQ(scanner(disksByName({})).validate("WANTED"), ValidateResult::notFound());
    volumes.clear();
    EXPECT_EQ(scanner(disksByName({})).validate("WANTED"), ValidateResult::notFound());
}

TEST_F(VolumeScannerTest, ValidateReportsAListingFailureAsScanFailed) {
    VolumeScanner failing(VolumeScanner::Configuration{
        .volumesProvider = []() -> std::vector<path> { throw PosixError(EIO, "mount table unreadable"); },
        .diskInfoProvider = disksByName({}),
    });
    EXPECT_EQ(failing.validate("WANTED"), ValidateResult::scanFailed());
}

TEST_F(VolumeScannerTest, ValidatePassesCancellationOn) {
    cardWithFolders("Card");
    VolumeScanner cancelling(VolumeScanner::Configuration{
        .volumesProvider = [list = volumes] { return list; },
        .diskInfoProvider = [](const path&, std::stop_token) -> DiskInfo { throw Cancelled(); },
    });
    EXPECT_THROW(cancelling.validate("WANTED"), Cancelled);
    std::stop_source cancelled;
    cancelled.request_stop();
    EXPECT_THROW(scanner(disksByName({{"Card", external("WANTED")}})).validate("WANTED", cancelled.get_token()),
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

}  // namespace
}  // namespace tapekeep

#include "workflows/BackupOptionsSheet.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <thread>

#include "EventLoop.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

const SDCard card{"/media/CARD", "CARD", "76FA-7D45-0000-0001"};

FolderSelection folder(const std::string& name) {
    return FolderSelection{name, name, std::nullopt, true, name, false};
}
SongItem song(const std::string& relativePath) {
    return SongItem{relativePath, fs::path(relativePath).stem().string(), relativePath, 8, false, {}};
}

std::vector<std::string> names(const std::vector<FolderSelection>& folders) {
    std::vector<std::string> result;
    for (const auto& each : folders) result.push_back(each.name);
    return result;
}

// Set when the thread that made it ends: by then everything that thread posted is queued.
struct ThreadEndMark {
    std::atomic<bool>* ended;
    ~ThreadEndMark() { *ended = true; }
};

class BackupOptionsSheetTest : public ::testing::Test {
protected:
    BackupOptionsSheetTest() { test::startApplication(); }

    // Lists what listings says for each load in turn; the sizes are the folder's name length.
    BackupOptionsSheet::Reader reader() {
        return {[this](const fs::path&, std::stop_token) {
                    const int load = loads++;
                    if (load == 0 && holdFirstLoad) {
                        static thread_local ThreadEndMark mark{&firstLoadEnded};
                        while (holdFirstLoad) std::this_thread::sleep_for(1ms);  // past its last check
                    }
                    return listings.at(std::min<std::size_t>(load, listings.size() - 1));
                },
                [](const fs::path& folder, std::stop_token) {
                    return static_cast<std::int64_t>(folder.filename().string().size());
                }};
    }

    void openAndLoad() {
        sheet.open(card, std::nullopt);
        ASSERT_TRUE(test::waitFor([&] { return sheet.sizesLoaded(card.diskUtilUUID); }));
    }

    std::vector<CardOptionsListing> listings{{{folder("Instruments"), folder("Samples"), folder("Songs")},
                                              {song("Songs/a.m8s"), song("Songs/b.m8s")}}};
    std::atomic<int> loads{0};
    std::atomic<bool> holdFirstLoad{false}, firstLoadEnded{false};
    BackupOptionsSheet sheet{reader()};
};

TEST_F(BackupOptionsSheetTest, WhatALoadOfAnEarlierOpeningDeliversIsDropped) {
    listings = {{{folder("Old")}, {}}, {{folder("New")}, {}}};
    holdFirstLoad = true;
    sheet.open(card, std::nullopt);
    ASSERT_TRUE(test::waitFor([&] { return loads == 1; }));
    openAndLoad();  // opened anew while the first load still reads
    ASSERT_EQ(names(sheet.folders(card.diskUtilUUID)), std::vector<std::string>{"New"});

    holdFirstLoad = false;  // the first load delivers after all
    ASSERT_TRUE(test::waitFor([&] { return firstLoadEnded.load(); }));
    QCoreApplication::processEvents();

    EXPECT_EQ(names(sheet.folders(card.diskUtilUUID)), std::vector<std::string>{"New"});
    EXPECT_EQ(sheet.folders(card.diskUtilUUID).front().size, 3);
}

TEST_F(BackupOptionsSheetTest, TheChoiceIsTheWholeCardUnlessOnlyPartOfItIsChosen) {
    struct Case {
        std::string name;
        std::vector<std::string> leftOutFolders, chosenSongs;
        BackupChoice choice;
        bool anythingChosen;
    };
    const std::vector<Case> cases = {
        {"as loaded", {}, {}, {{}, {}, {}, false}, true},
        {"a folder left out", {"Samples"}, {}, {{}, {"Instruments", "Songs"}, {}, true}, true},
        {"a song chosen",
         {},
         {"Songs/b.m8s"},
         {{}, {"Instruments", "Samples", "Songs"}, {"Songs/b.m8s"}, true},
         true},
        {"only a song",
         {"Instruments", "Samples", "Songs"},
         {"Songs/a.m8s"},
         {{}, {}, {"Songs/a.m8s"}, true},
         true},
        {"nothing", {"Instruments", "Samples", "Songs"}, {}, {{}, {}, {}, true}, false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        openAndLoad();
        for (const auto& name : test.leftOutFolders) sheet.setFolderSelected(card.diskUtilUUID, name, false);
        for (const auto& path : test.chosenSongs) sheet.setSongSelected(card.diskUtilUUID, path, true);
        const BackupChoice choice = sheet.choice(card.diskUtilUUID);
        EXPECT_EQ(choice.selectedFolders, test.choice.selectedFolders);
        EXPECT_EQ(choice.selectedSongs, test.choice.selectedSongs);
        EXPECT_EQ(choice.selective, test.choice.selective);
        EXPECT_EQ(sheet.hasSelection(card.diskUtilUUID), test.anythingChosen);
    }
}

TEST_F(BackupOptionsSheetTest, AOneShotDestinationServesOneRun) {
    sheet.open(card, fs::path("/media/THUMB"));
    EXPECT_EQ(sheet.takeDestinationOverride(card.diskUtilUUID), fs::path("/media/THUMB"));
    EXPECT_EQ(sheet.takeDestinationOverride(card.diskUtilUUID), std::nullopt);
    EXPECT_TRUE(sheet.destinationOverrideVariant().isEmpty());
}

}  // namespace
}  // namespace tapekeep

#include "ui/MainWindowFrameKeeper.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>

#include "TempDir.h"
#include "UiTesting.h"
#include "app/MainWindowFrame.h"
#include "core/SettingsStore.h"

namespace tapekeep {

namespace {
using namespace std::chrono_literals;
using test::waitFor;

class MainWindowFrameKeeperTest : public ::testing::Test {
protected:
    [[nodiscard]] QRect defaultFrame() const {
        return *MainWindowFrame::defaultFrame(QGuiApplication::primaryScreen()->availableGeometry());
    }
    [[nodiscard]] std::string stored() const { return store.string(MainWindowFrame::settingsKey); }

    test::ApplicationStarted started;
    test::TempDir temp;
    SettingsStore store{temp / "settings.json"};
    QWindow window;
};

TEST_F(MainWindowFrameKeeperTest, TheStoredFrameIsRestored) {
    store.setValue(MainWindowFrame::settingsKey, "40 30 1000 700");
    MainWindowFrameKeeper keeper(store, window);
    EXPECT_EQ(window.geometry(), QRect(40, 30, 1000, 700));
}

TEST_F(MainWindowFrameKeeperTest, AnUnreadableOrMissingFrameGivesTheDefault) {
    for (const nlohmann::json& value :
         {nlohmann::json("40 30 wide 700"), nlohmann::json(1180), nlohmann::json()}) {
        if (value.is_null())
            store.removeValue(MainWindowFrame::settingsKey);
        else
            store.setValue(MainWindowFrame::settingsKey, value);
        QWindow fresh;
        MainWindowFrameKeeper keeper(store, fresh);
        EXPECT_EQ(fresh.geometry(), defaultFrame()) << value.dump();
    }
}

TEST_F(MainWindowFrameKeeperTest, AFrameOffEveryScreenGivesTheDefault) {
    store.setValue(MainWindowFrame::settingsKey, "90000 90000 1000 700");
    MainWindowFrameKeeper keeper(store, window);
    EXPECT_EQ(window.geometry(), defaultFrame());
}

TEST_F(MainWindowFrameKeeperTest, TheFrameIsWrittenOnceTheWindowHasStoppedChanging) {
    MainWindowFrameKeeper keeper(store, window, 20ms);
    int writes = 0;
    QObject::connect(&keeper, &MainWindowFrameKeeper::saved, [&] { ++writes; });
    window.setGeometry(10, 20, 1000, 700);
    window.setGeometry(15, 25, 1010, 710);
    ASSERT_TRUE(waitFor([&] { return writes > 0; }));
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(stored(), "15 25 1010 710");

    {  // a change still waiting is written when the keeper goes
        MainWindowFrameKeeper second(store, window, 1h);
        window.setGeometry(35, 45, 1030, 730);
    }
    EXPECT_EQ(stored(), "35 45 1030 730");
}

}  // namespace
}  // namespace tapekeep

// The BROWSE screen's QML over a real session and a backup folder on disk, in a window of its own.

#include <gtest/gtest.h>

#include <QQuickItem>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "GuiTestApplication.h"
#include "M8Files.h"
#include "QuickScreen.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "core/SettingsStore.h"
#include "ui/M8Theme.h"
#include "workflows/BrowseSessionViewModel.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::processEventsUntil;

// A song named "LIVESET" at 128 beats a minute whose first samplers use these paths.
std::string songAt128(const std::vector<std::string>& samplePaths) {
    std::string bytes = test::songWithSamples(samplePaths);
    const auto tempo = std::bit_cast<std::uint32_t>(128.0F);
    for (int byte = 0; byte < 4; ++byte) bytes[143 + byte] = static_cast<char>((tempo >> (8 * byte)) & 0xFF);
    bytes.replace(148, 7, "LIVESET");
    return bytes;
}

// One set of two versions: the newer holds a song with one sample present and one missing, and
// 501 samples named alike.
class BrowseTabTest : public ::testing::Test {
protected:
    BrowseTabTest() {
        test::writeFile(older / "Songs/OLD.m8s", test::songWithSamples({}));
        test::writeFile(newer / "Songs/LIVESET.m8s",
                        songAt128({"/Samples/kick000.wav", "/Samples/gone.wav"}));
        for (int number = 0; number <= 500; ++number) {
            char name[16];
            std::snprintf(name, sizeof name, "kick%03d.wav", number);
            test::writeFile(newer / "Samples" / name, "RIFF");
        }
        fs::create_directory_symlink(newer.filename(), newer.parent_path() / "latest");

        BrowseSessionViewModel::Dependencies dependencies;
        dependencies.baseFolder = [this] { return base; };
        dependencies.rsyncPath = [] { return std::string("/usr/bin/rsync"); };
        dependencies.detectedCards = [this] { return cards; };
        session = std::make_unique<BrowseSessionViewModel>(std::move(dependencies));
        screen->provide("Theme", &theme);
        screen->provide("Browse", session.get());
    }
    void TearDown() override { screen.reset(); }

    QQuickItem* showTab() {
        QQuickItem* root = screen->load(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/BrowseTab.qml")));
        EXPECT_NE(root, nullptr) << screen->errors().toStdString();
        return root;
    }
    // Waits for the item of that name to be shown, and gives it laid out where it is drawn.
    QQuickItem* shown(const QString& name, QQuickItem* within = nullptr) {
        QQuickItem* found = nullptr;
        processEventsUntil([&] {
            found = screen->find(name, within);
            return found != nullptr && found->isVisible();
        });
        EXPECT_NE(found, nullptr) << name.toStdString();
        if (found != nullptr) found->window()->grabWindow();  // a drawing lays the positioners out
        return found;
    }
    std::string textOf(const QString& name, QQuickItem* within = nullptr) const {
        QQuickItem* item = screen->find(name, within);
        return item == nullptr ? std::string() : item->property("text").toString().toStdString();
    }
    // Shows the tab with the newer version open at its top.
    void openNewer() {
        ASSERT_NE(showTab(), nullptr);
        screen->click(shown("set_M8_1234ABCD"));
        screen->click(shown("version_" + QString::fromStdString(newer.filename().string())));
        ASSERT_NE(shown("entry_Songs"), nullptr);
    }

    bool applicationReady = (test::ensureGuiApplication(), true);
    test::TempDir temp;
    fs::path base = temp / "base";
    fs::path older = base / "M8_1234ABCD/backup-2026-01-01-100000";
    fs::path newer = base / "M8_1234ABCD/backup-2026-02-01-100000";
    std::vector<SDCard> cards;
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    M8Theme theme{settings, [] { return true; }};
    std::unique_ptr<BrowseSessionViewModel> session;
    std::unique_ptr<test::QuickScreen> screen = std::make_unique<test::QuickScreen>();
};

TEST_F(BrowseTabTest, AVersionOpensAtItsTopAndTheBreadcrumbWalksIntoAFolderAndBack) {
    ASSERT_NE(showTab(), nullptr);
    QQuickItem* set = shown("set_M8_1234ABCD");
    EXPECT_EQ(screen->find("version_backup-2026-02-01-100000"), nullptr);  // closed until opened
    screen->pressKey(set, Qt::Key_Return);
    QQuickItem* newest = shown("version_backup-2026-02-01-100000");
    QQuickItem* oldest = shown("version_backup-2026-01-01-100000");
    EXPECT_LT(newest->mapToScene({0, 0}).y(), oldest->mapToScene({0, 0}).y()) << "newest first";
    EXPECT_TRUE(screen->find("latestMark", newest)->isVisible());
    EXPECT_FALSE(screen->find("latestMark", oldest)->isVisible());

    screen->pressKey(newest, Qt::Key_Return);
    ASSERT_NE(shown("entry_Songs"), nullptr);
    ASSERT_NE(shown("entry_Samples"), nullptr);
    EXPECT_EQ(textOf("entrySize", screen->find("entry_Songs")), "");

    screen->click(screen->find("entry_Songs"));
    ASSERT_NE(shown("entry_LIVESET.m8s"), nullptr);
    EXPECT_EQ(textOf("crumbText", shown("crumb_1")), "Songs");
    EXPECT_EQ(textOf("entrySize", screen->find("entry_LIVESET.m8s")), "108 KB");

    screen->click(screen->find("crumb_0"));
    ASSERT_NE(shown("entry_Samples"), nullptr);
    EXPECT_EQ(screen->find("crumb_1"), nullptr);
    EXPECT_TRUE(session->path().empty());
}

TEST_F(BrowseTabTest, TypedTextShowsItsHitsAfterThePauseAndSaysWhenThereAreMoreThanShown) {
    openNewer();
    QQuickItem* input = shown("searchInput");
    input->forceActiveFocus();
    screen->typeText("kick");
    QQuickItem* hits = shown("searchHits");
    ASSERT_TRUE(processEventsUntil([&] { return hits->property("count").toInt() == 500; }))
        << hits->property("count").toInt();
    EXPECT_EQ(textOf("truncatedNote"), "Showing 500 of more");
    EXPECT_TRUE(shown("truncatedNote")->isVisible());
    EXPECT_FALSE(screen->find("folderEntries")->isVisible());

    screen->typeText("499");
    ASSERT_TRUE(processEventsUntil([&] { return hits->property("count").toInt() == 1; }));
    EXPECT_FALSE(screen->find("truncatedNote")->isVisible());
    screen->click(shown("hit_Samples/kick499.wav"));
    EXPECT_EQ(textOf("previewName"), "kick499.wav");
    EXPECT_EQ(textOf("crumbText", shown("crumb_1")), "Samples");
    EXPECT_TRUE(processEventsUntil([&] { return textOf("usageLabel") == "UNUSED"; })) << textOf("usageLabel");
}

TEST_F(BrowseTabTest, ASongShowsItsTempoAndInstrumentsWithTheMissingSampleMarked) {
    openNewer();
    screen->click(screen->find("entry_Songs"));
    screen->click(shown("entry_LIVESET.m8s"));
    ASSERT_TRUE(processEventsUntil([&] { return textOf("songTempo") == "128.0 BPM"; }))
        << textOf("songTempo");
    EXPECT_EQ(textOf("songName"), "LIVESET");
    QQuickItem* present = shown("instrument_0");
    QQuickItem* missing = shown("instrument_1");
    EXPECT_EQ(textOf("sampleMark", present), "\u2713");
    EXPECT_EQ(textOf("sampleMark", missing), "\u2715 MISSING");

    QQuickItem* copy = shown("copyToCardButton");
    EXPECT_FALSE(copy->isEnabled()) << "the set's card is not mounted";
    cards.push_back(SDCard{temp / "card", "M8", "0000-1234ABCD"});
    session->refreshCards();
    EXPECT_TRUE(copy->isEnabled());

    // The sample a path names is shown in place of the song, which comes back after.
    screen->click(screen->find("samplePath", present));
    EXPECT_EQ(textOf("previewName"), "kick000.wav");
    EXPECT_TRUE(processEventsUntil([&] { return textOf("usageLabel") == "1 song"; })) << textOf("usageLabel");
    screen->click(shown("backToSongButton"));
    EXPECT_EQ(textOf("previewName"), "LIVESET.m8s");
}

// A song is dragged out with its samples, so one whose sample is gone says so instead.
TEST_F(BrowseTabTest, HoldingASongWhoseSampleIsMissingSaysWhyItCannotBeDraggedOut) {
    openNewer();
    screen->click(screen->find("entry_Songs"));
    QQuickItem* song = shown("entry_LIVESET.m8s");
    screen->press(song);
    EXPECT_TRUE(processEventsUntil([&] {
        return textOf("dragProblem") == "Referenced sample is missing: /Samples/gone.wav";
    })) << textOf("dragProblem");
    screen->release(song);
    screen->click(screen->find("crumb_0"));
    EXPECT_EQ(textOf("dragProblem"), "");
}

}  // namespace
}  // namespace tapekeep

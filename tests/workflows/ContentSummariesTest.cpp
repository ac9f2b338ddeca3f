#include "workflows/ContentSummaries.h"

#include <gtest/gtest.h>

#include "EventLoop.h"
#include "FakeVolumes.h"
#include "TempDir.h"
#include "content/M8ContentScanner.h"
#include "core/SettingsStore.h"

namespace tapekeep {
namespace {

class ContentSummariesTest : public ::testing::Test {
protected:
    ContentSummariesTest() {
        test::startApplication();
        QObject::connect(&summaries, &ContentSummaries::summaryChanged, [this] {
            shown.push_back(summaries.summary(card.diskUtilUUID).value_or(ContentCounts{}));
        });
    }

    bool scanning() const { return summaries.label(card.diskUtilUUID) == "Scanning"; }

    test::TempDir temp;
    SettingsStore store{temp / "settings.json"};
    test::FakeVolumes volumes;
    const SDCard card = volumes.addCard(temp / "volumes/CARD", "76FA-7D45-0000-0001");
    ContentSummaries summaries{volumes.factory(), &store};
    std::vector<ContentCounts> shown;
};

TEST_F(ContentSummariesTest, TheRememberedCountsShowWhileTheCardIsCountedAnew) {
    const ContentCounts remembered{{"Songs", 7}, {"Instruments", 3}};
    M8ContentScanner::storeSummary(remembered, card.diskUtilUUID, store);
    summaries.scan(card);
    EXPECT_TRUE(scanning());
    ASSERT_TRUE(test::waitFor([&] { return !scanning(); }));

    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown.front(), remembered);
    EXPECT_EQ(shown.back(), (ContentCounts{{"Songs", 1}, {"Instruments", 1}, {"Wavs", 1}}));
    EXPECT_EQ(M8ContentScanner::cachedSummary(card.diskUtilUUID, store), shown.back());
    EXPECT_EQ(summaries.label(card.diskUtilUUID), std::nullopt);
}

// What was read where the card was may be the folder left behind: it is neither shown nor remembered.
TEST_F(ContentSummariesTest, ACardPulledWhileItWasCountedLeavesNoCounts) {
    volumes.answerOnly(1);  // the look-up before the count finds the card, the one after does not
    summaries.scan(card);
    ASSERT_TRUE(test::waitFor([&] { return !scanning(); }));

    EXPECT_TRUE(shown.empty());
    EXPECT_EQ(summaries.summary(card.diskUtilUUID), std::nullopt);
    EXPECT_EQ(M8ContentScanner::cachedSummary(card.diskUtilUUID, store), std::nullopt);
}

}  // namespace
}  // namespace tapekeep

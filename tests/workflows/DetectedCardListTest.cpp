#include "workflows/DetectedCardList.h"

#include <gtest/gtest.h>

#include <set>

#include "EventLoop.h"
#include "FakeVolumes.h"
#include "Printers.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

class DetectedCardListTest : public ::testing::Test {
protected:
    DetectedCardListTest() {
        test::startApplication();
        QObject::connect(&list, &DetectedCardList::cardLeft,
                         [this](const std::string& uuid) { left.push_back(uuid); });
    }

    void scan() {
        list.scan();
        ASSERT_TRUE(test::waitFor([&] { return !list.isScanning(); }));
    }

    test::TempDir temp;
    test::FakeVolumes volumes;
    std::set<std::string> backingUp;
    DetectedCardList list{volumes.factory(),
                          [this](const std::string& uuid) { return backingUp.contains(uuid); }};
    std::vector<std::string> left;
};

TEST_F(DetectedCardListTest, ACardBeingBackedUpStaysListedWhenTheVolumesNoLongerShowIt) {
    const SDCard alpha = volumes.addCard(temp / "volumes/ALPHA", "76FA-7D45-0000-000A");
    const SDCard bravo = volumes.addCard(temp / "volumes/BRAVO", "76FA-7D45-0000-000B");
    scan();
    ASSERT_EQ(list.cards(), (std::vector{alpha, bravo}));

    backingUp.insert(alpha.diskUtilUUID);
    volumes.remove(alpha.mountPath);
    volumes.remove(bravo.mountPath);
    scan();
    EXPECT_EQ(list.cards(), std::vector{alpha});
    EXPECT_EQ(left, std::vector{bravo.diskUtilUUID});

    backingUp.clear();  // its run has ended
    scan();
    EXPECT_TRUE(list.cards().empty());
    EXPECT_EQ(left, (std::vector{bravo.diskUtilUUID, alpha.diskUtilUUID}));
}

TEST_F(DetectedCardListTest, TheStatusTellsOfVolumesExaminedOnlyWhileNoCardIsFound) {
    fs::create_directories(temp / "volumes/THUMB/Photos");
    volumes.add(temp / "volumes/THUMB", "1234-ABCD");  // an external disk that is not a card
    scan();
    ASSERT_TRUE(list.scannerStatus().has_value());
    EXPECT_EQ(list.scannerStatus()->examinedCount, 1);
    EXPECT_EQ(list.scannerStatus()->excludedCount, 1);

    volumes.addCard(temp / "volumes/CARD", "76FA-7D45-0000-0001");
    scan();
    EXPECT_EQ(list.cards().size(), 1u);
    EXPECT_FALSE(list.scannerStatus().has_value());
    EXPECT_TRUE(list.scannerStatusVariant().isEmpty());
}

}  // namespace
}  // namespace tapekeep

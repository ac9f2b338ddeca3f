#include "workflows/BackupBrowserViewModel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include "CardLocks.h"
#include "EventLoop.h"
#include "M8Files.h"
#include "TempDir.h"
#include "cards/OperationLock.h"
#include "core/Error.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

const FileNode* findNode(const std::vector<FileNode>& nodes, const std::string& relative) {
    const auto slash = relative.find('/');
    const auto name = relative.substr(0, slash);
    for (const auto& node : nodes) {
        if (node.name != name) continue;
        if (slash == std::string::npos) return &node;
        return node.children ? findNode(*node.children, relative.substr(slash + 1)) : nullptr;
    }
    return nullptr;
}

// A version on disk with songs and samples, a card folder beside it, and a browser over the
// version whose copies use the real operation with the card's lock, but no volume check.
class BackupBrowserViewModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::startApplication();
        test::keepCardLocksIn(temp_ / "locks");
        test::writeFile(
            version_ / "Songs/KIT.m8s",
            test::songWithSamples({"/Samples/kick.wav", "/Samples/gone.wav", "../../../../etc/passwd"}));
        test::writeFile(version_ / "Songs/OTHER.m8s", test::songWithSamples({"/Samples/snare.wav"}));
        test::writeFile(version_ / "Songs/BROKEN.m8s", "not a song");
        test::writeFile(version_ / "Samples/kick.wav", "RIFF kick");
        test::writeFile(version_ / "Samples/snare.wav", "RIFF snare");
        test::writeFile(version_ / "Samples/spare.wav", "RIFF spare");
        fs::create_directories(card_.mountPath);
    }

    std::unique_ptr<BackupBrowserViewModel> browser(BackupBrowserViewModel::Dependencies dependencies = {}) {
        dependencies.copy.validateVolume = [](const SDCard&, std::stop_token) {};
        dependencies.copy.run = [this](const std::string&, const std::vector<std::string>& arguments,
                                       const BrowseCopyOperation::LineHandler&, std::stop_token) {
            ++runs_;
            if (holdRun_) runRelease_.acquire();
            fs::create_directories(fs::path(arguments.back()).parent_path());
            fs::copy_file(arguments[arguments.size() - 2], arguments.back(),
                          fs::copy_options::overwrite_existing);
            return 0;
        };
        dependencies.copy.verifyContents = [](const fs::path&, const fs::path&, std::stop_token) {};
        dependencies.copy.acquire = [](const VolumeUUID& uuid) {
            return OperationLock::shared().acquire(uuid, OperationKind::browse);
        };
        dependencies.copy.release = [](const Lease& lease) { OperationLock::shared().release(lease); };
        auto made = std::make_unique<BackupBrowserViewModel>(version_, "rsync", std::move(dependencies));
        QObject::connect(made.get(), &BackupBrowserViewModel::copyStatusChanged, [this, raw = made.get()] {
            statuses_.push_back(raw->copyStatus().value_or("(none)"));
        });
        made->loadTree();
        EXPECT_TRUE(test::waitFor([&] { return made->isTreeLoaded(); }));
        return made;
    }

    FileNode node(const BackupBrowserViewModel& browser, const std::string& relative) {
        const auto* found = findNode(*browser.rootNodes(), relative);
        EXPECT_NE(found, nullptr) << relative;
        return found ? *found : FileNode{};
    }

    test::TempDir temp_;
    fs::path version_ = temp_ / "M8_1234/backup-2026-01-01-100000";
    SDCard card_{temp_ / "card", "M8", "1234-ABCD"};
    std::atomic<int> runs_ = 0;
    bool holdRun_ = false;
    std::counting_semaphore<8> runRelease_{0};
    std::vector<std::string> statuses_;
};

TEST_F(BackupBrowserViewModelTest, ASongShowsWhichOfItsSamplesExistAndAnEscapingPathIsMerelyMissing) {
    auto browse = browser();
    browse->select(node(*browse, "Songs/KIT.m8s"));
    ASSERT_TRUE(test::waitFor([&] { return browse->songMetadata().has_value(); }));
    EXPECT_EQ(browse->songMetadata()->samplePaths.size(), 3u);
    EXPECT_EQ(browse->sampleExistence(), (std::map<std::string, bool>{{"/Samples/kick.wav", true},
                                                                      {"/Samples/gone.wav", false},
                                                                      {"../../../../etc/passwd", false}}));
    EXPECT_FALSE(browse->metadataError());
    const auto shown = browse->songMetadataVariant().toMap();
    EXPECT_EQ(shown["instruments"].toList().at(0).toMap()["present"], QVariant(true));
}

TEST_F(BackupBrowserViewModelTest, AnUnreadableSongShowsNoMetadataButItsError) {
    auto browse = browser();
    browse->select(node(*browse, "Songs/BROKEN.m8s"));
    ASSERT_TRUE(test::waitFor([&] { return browse->metadataError().has_value(); }));
    EXPECT_FALSE(browse->songMetadata());
    EXPECT_EQ(*browse->metadataError(), "Could not read song or instrument: BROKEN.m8s");
}

TEST_F(BackupBrowserViewModelTest, ASlowSongChosenBeforeAnotherNeverShowsItsResult) {
    std::binary_semaphore firstRelease{0};
    std::atomic<bool> firstEntered = false;
    BackupBrowserViewModel::Dependencies dependencies;
    dependencies.loadMetadata = [&](const fs::path& file, std::stop_token) {
        if (file.filename() == "KIT.m8s") {
            firstEntered = true;
            firstRelease.acquire();  // ignores its cancellation, as a parse that cannot stop midway
        }
        return BackupBrowserViewModel::metadataOf(file);
    };
    auto browse = browser(std::move(dependencies));
    std::vector<std::size_t> shownSampleCounts;
    QObject::connect(browse.get(), &BackupBrowserViewModel::metadataChanged, [&] {
        if (browse->songMetadata()) shownSampleCounts.push_back(browse->songMetadata()->samplePaths.size());
    });
    browse->select(node(*browse, "Songs/KIT.m8s"));
    ASSERT_TRUE(test::waitFor([&] { return firstEntered.load(); }));
    browse->select(node(*browse, "Songs/OTHER.m8s"));
    ASSERT_TRUE(test::waitFor([&] { return browse->songMetadata().has_value(); }));
    firstRelease.release();
    browse.reset();  // waits for the first load to end; its result must have been dropped
    EXPECT_EQ(shownSampleCounts, std::vector<std::size_t>{1});
}

TEST_F(BackupBrowserViewModelTest, TheUsageIndexIsBuiltOnceForTheFirstSampleAndAFailureIsShown) {
    std::atomic<int> builds = 0;
    std::atomic<bool> failNext = true;
    BackupBrowserViewModel::Dependencies dependencies;
    dependencies.buildUsageIndex = [&](const fs::path& root, std::stop_token token) {
        ++builds;
        if (failNext.exchange(false)) throw Error("Could not read song or instrument: BROKEN.m8s");
        return BrowseFileService::sampleUsageIndex(root, token);
    };
    auto browse = browser(std::move(dependencies));
    browse->select(node(*browse, "Samples/kick.wav"));
    ASSERT_TRUE(test::waitFor([&] { return !browse->isBuildingSampleIndex(); }));
    EXPECT_FALSE(browse->sampleIndexBuilt());
    EXPECT_EQ(browse->sampleIndexError().value_or(""), "Could not read song or instrument: BROKEN.m8s");

    // The index is all or nothing: an unreadable song or an escaping reference ends it.
    fs::remove(version_ / "Songs/BROKEN.m8s");
    test::writeFile(version_ / "Songs/KIT.m8s", test::songWithSamples({"/Samples/kick.wav"}));
    browse->buildSampleIndex();
    ASSERT_TRUE(test::waitFor([&] { return browse->sampleIndexBuilt(); }));
    EXPECT_FALSE(browse->sampleIndexError());
    EXPECT_EQ(browse->selectedUsageLabel(), "1 song");
    EXPECT_EQ(browse->selectedUsersVariant(), QStringList{"Songs/KIT.m8s"});

    browse->select(node(*browse, "Samples/spare.wav"));
    browse->buildSampleIndex();
    EXPECT_EQ(browse->selectedUsageLabel(), "");
    EXPECT_EQ(builds, 2);
}

TEST_F(BackupBrowserViewModelTest, ACopyGoesBackToItsPlaceAndItsStatusClearsUnlessANewCopyStarted) {
    BackupBrowserViewModel::Dependencies dependencies;
    dependencies.copyStatusLifetime = 0ms;
    auto browse = browser(std::move(dependencies));
    bool startedSecond = false;
    QObject::connect(browse.get(), &BackupBrowserViewModel::isCopyingChanged, [&] {
        if (browse->isCopying() || startedSecond) return;
        startedSecond = true;
        holdRun_ = true;
        browse->copyToCard(node(*browse, "Samples/snare.wav"), card_);
    });
    browse->copyToCard(node(*browse, "Samples/kick.wav"), card_);
    ASSERT_TRUE(test::waitFor([&] { return runs_ == 2; }));
    // The clearing of the first status would have run by now had the second copy not stopped it.
    ASSERT_TRUE(test::waitFor([&] { return statuses_.size() >= 3; }));
    runRelease_.release();
    ASSERT_TRUE(test::waitFor([&] { return !browse->copyStatus() && !browse->isCopying(); }));
    EXPECT_EQ(statuses_,
              (std::vector<std::string>{"Copying kick.wav", "Copied kick.wav successfully!",
                                        "Copying snare.wav", "Copied snare.wav successfully!", "(none)"}));
    EXPECT_EQ(test::readFile(card_.mountPath / "Samples/kick.wav"), "RIFF kick");
}

TEST_F(BackupBrowserViewModelTest, ACopyIsRefusedWhileAnotherHoldsTheCardOrOneRunsOrTheCardHasNoUUID) {
    auto browse = browser();
    const auto backup =
        OperationLock::shared().acquire(VolumeUUID{card_.diskUtilUUID}, OperationKind::backup);
    browse->copyToCard(node(*browse, "Samples/kick.wav"), card_);
    ASSERT_TRUE(test::waitFor([&] { return !browse->isCopying(); }));
    OperationLock::shared().release(backup);
    EXPECT_EQ(browse->copyStatus().value_or(""), "Busy — backup in progress on this SD card");
    EXPECT_EQ(runs_, 0);
    EXPECT_FALSE(fs::exists(card_.mountPath / "Samples"));

    browse->copyToCard(node(*browse, "Samples/kick.wav"), SDCard{card_.mountPath, "M8", ""});
    EXPECT_EQ(browse->copyStatus().value_or(""), "Cannot copy — missing volume UUID");

    holdRun_ = true;
    browse->copyToCard(node(*browse, "Samples/kick.wav"), card_);
    browse->copyToCard(node(*browse, "Samples/snare.wav"), card_);
    EXPECT_EQ(browse->copyStatus().value_or(""), "A copy is already in progress.");
    browse->cancelCopy();
    runRelease_.release();
    ASSERT_TRUE(test::waitFor([&] { return !browse->isCopying(); }));
    EXPECT_EQ(browse->copyStatus().value_or(""), "Copy cancelled.");
    EXPECT_TRUE(OperationLock::shared().activeVolumeUUIDs().empty());
}

TEST_F(BackupBrowserViewModelTest, ASongDraggedOutTakesItsSamplesAndAMissingOneFailsTheDragInItsWords) {
    BackupBrowserViewModel::Dependencies dependencies;
    dependencies.dragFolder = [this] { return temp_ / "drags"; };
    fs::create_directories(temp_ / "drags");
    auto browse = browser(std::move(dependencies));
    std::vector<std::pair<QString, QString>> ends;
    QObject::connect(
        browse.get(), &BackupBrowserViewModel::dragReady,
        [&](const QString& path, const QUrl& url) { ends.emplace_back(path, url.toLocalFile()); });
    QObject::connect(
        browse.get(), &BackupBrowserViewModel::dragFailed,
        [&](const QString& path, const QString& message) { ends.emplace_back(path, "failed: " + message); });

    const auto other = QString::fromStdString((version_ / "Songs/OTHER.m8s").string());
    browse->prepareDrag(other);
    ASSERT_TRUE(test::waitFor([&] { return ends.size() == 1; }));
    const fs::path handed = ends[0].second.toStdString();
    EXPECT_EQ(ends[0].first, other);
    EXPECT_EQ(handed.filename(), "OTHER.m8s");
    EXPECT_EQ(test::readFile(handed.parent_path().parent_path() / "Samples/snare.wav"), "RIFF snare");

    test::writeFile(version_ / "Songs/LOST.m8s",
                    test::songWithSamples({"/Samples/kick.wav", "/Samples/gone.wav"}));
    const auto lost = QString::fromStdString((version_ / "Songs/LOST.m8s").string());
    browse->prepareDrag(lost);
    ASSERT_TRUE(test::waitFor([&] { return ends.size() == 2; }));
    EXPECT_EQ(ends[1].first, lost);
    EXPECT_EQ(ends[1].second.toStdString(), "failed: Referenced sample is missing: /Samples/gone.wav");
    std::size_t dragFolders = 0;
    for (const auto& entry : fs::directory_iterator(temp_ / "drags")) dragFolders += entry.is_directory();
    EXPECT_EQ(dragFolders, 1u);  // the first drag's, which the receiver may still be reading

    const auto outside = QString::fromStdString((temp_ / "card").string());
    browse->prepareDrag(outside);
    ASSERT_TRUE(test::waitFor([&] { return ends.size() == 3; }));
    EXPECT_EQ(ends[2].second.toStdString(), "failed: The selected file is outside this backup version.");
}

}  // namespace
}  // namespace tapekeep

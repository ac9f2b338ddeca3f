#include "workflows/BrowseSessionViewModel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

#include "EventLoop.h"
#include "M8Files.h"
#include "TempDir.h"
#include "content/FileTreeLoader.h"
#include "core/Uuid.h"
#include "edits/EditManifestStore.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Paths = std::vector<std::string>;
using namespace std::chrono_literals;

std::vector<FileNode> filesAtTheTop(const Paths& names) {
    std::vector<FileNode> nodes;
    for (const auto& name : names) {
        FileNode node;
        node.url = fs::path("/version") / name;
        node.name = name;
        node.fileSize = 4;
        nodes.push_back(std::move(node));
    }
    return nodes;
}

Paths pathsOf(const std::vector<BrowseSearchHit>& hits) {
    Paths paths;
    for (const auto& hit : hits) paths.push_back(hit.relativePath());
    return paths;
}

// A session over a tree, whose searches are counted and may be held back.
class BrowseSessionViewModelTest : public ::testing::Test {
protected:
    void SetUp() override { test::startApplication(); }

    std::unique_ptr<BrowseSessionViewModel> session(std::chrono::milliseconds debounce = 200ms) {
        BrowseSessionViewModel::Dependencies dependencies;
        dependencies.debounce = debounce;
        dependencies.search = [this](const std::vector<FileNode>& roots, std::string_view query,
                                     BrowseSearchFilter filter, const UnusedSampleLookup* unused,
                                     std::stop_token token) {
            if (searches_++ == 0 && holdFirstSearch_) {
                firstSearchEntered_ = true;
                firstSearchRelease_.acquire();
                firstSearchCancelled_ = token.stop_requested() ? 1 : 0;
                // A search that ends just as it is cancelled, and so delivers a result.
                return BrowseSearch::search(roots, query, filter, unused, {});
            }
            return BrowseSearch::search(roots, query, filter, unused, token);
        };
        dependencies.browserDependencies.loadTree = [this](const fs::path& version, std::stop_token) {
            if (holdTree_) treeRelease_.acquire();
            std::lock_guard guard(treesLock_);
            return trees_.at(version);
        };
        dependencies.browserDependencies.buildUsageIndex = [this](const fs::path& version,
                                                                  std::stop_token token) {
            ++indexBuilds_;
            return BrowseFileService::sampleUsageIndex(version, token);
        };
        auto made = std::make_unique<BrowseSessionViewModel>(std::move(dependencies));
        QObject::connect(made.get(), &BrowseSessionViewModel::searchResultsPublished,
                         [this, raw = made.get()] { published_.push_back(pathsOf(raw->searchHits())); });
        return made;
    }

    // Opens the version whose tree is given, and waits until the browser has loaded it.
    void open(BrowseSessionViewModel& browse, const fs::path& version, std::vector<FileNode> roots) {
        {
            std::lock_guard guard(treesLock_);
            trees_[version] = std::move(roots);
        }
        const BackupVersion listed{version, version.filename().string(), std::nullopt, true};
        browse.select(BrowseVersionSelection{
            version, "rsync", BackupSet{version.parent_path(), "M8_1234", "M8", {listed}}, listed});
        ASSERT_TRUE(test::waitFor([&] { return browse.browser()->isTreeLoaded(); }));
    }

    bool waitForPublications(std::size_t count) {
        return test::waitFor([&] { return published_.size() >= count; });
    }

    std::atomic<int> searches_ = 0;
    std::atomic<int> indexBuilds_ = 0;
    std::mutex treesLock_;
    bool holdTree_ = false;
    std::binary_semaphore treeRelease_{0};
    std::map<fs::path, std::vector<FileNode>> trees_;
    bool holdFirstSearch_ = false;
    std::atomic<bool> firstSearchEntered_ = false;
    std::binary_semaphore firstSearchRelease_{0};
    std::atomic<int> firstSearchCancelled_ = -1;  // unknown until it was released
    std::vector<Paths> published_;
};

TEST_F(BrowseSessionViewModelTest, TypingSeveralLettersRunsOneSearchAfterTheLast) {
    auto browse = session();
    open(*browse, "/version", filesAtTheTop({"kick.wav", "kit.m8s", "snare.wav"}));
    for (const auto* typed : {"k", "ki", "kic", "kick"}) browse->setSearchQuery(typed);
    EXPECT_EQ(searches_, 0);
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(searches_, 1);
    EXPECT_EQ(published_, std::vector<Paths>{{"kick.wav"}});
    EXPECT_TRUE(browse->isSearchActive());
}

TEST_F(BrowseSessionViewModelTest, AQueryTypedWhileTheTreeLoadsIsAnsweredOverTheLoadedTree) {
    holdTree_ = true;
    auto browse = session(0ms);
    trees_["/version"] = filesAtTheTop({"kick.wav", "snare.wav"});
    const BackupVersion listed{"/version", "version", std::nullopt, true};
    browse->select(
        BrowseVersionSelection{"/version", "rsync", BackupSet{"/", "M8_1234", "M8", {listed}}, listed});
    browse->setSearchQuery("kick");
    for (int turn = 0; turn < 5; ++turn) QCoreApplication::processEvents();  // the debounce has run out
    treeRelease_.release();
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(published_, std::vector<Paths>{{"kick.wav"}});
}

TEST_F(BrowseSessionViewModelTest, AResultOvertakenByANewQueryIsNeverShown) {
    holdFirstSearch_ = true;
    auto browse = session();
    open(*browse, "/version", filesAtTheTop({"kick.wav", "snare.wav"}));
    browse->setSearchQuery("kick");
    const bool entered = test::waitFor([&] { return firstSearchEntered_.load(); });
    browse->setSearchQuery("snare");
    firstSearchRelease_.release();
    ASSERT_TRUE(entered);
    ASSERT_TRUE(test::waitFor([&] { return !browse->searchHits().empty(); }));
    EXPECT_EQ(published_, std::vector<Paths>{{"snare.wav"}});
    ASSERT_TRUE(test::waitFor([&] { return firstSearchCancelled_ != -1; }));
    EXPECT_EQ(firstSearchCancelled_, 1);
}

TEST_F(BrowseSessionViewModelTest, BlankQueryClearsTheHitsAndTheCutAndANewTreeClearsThemToo) {
    Paths kicks;
    for (int at = 0; at < 501; ++at) kicks.push_back("kick" + std::to_string(1000 + at) + ".wav");
    auto browse = session(0ms);
    open(*browse, "/version", filesAtTheTop(kicks));
    browse->setSearchQuery("kick");
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(browse->searchHits().size(), 500u);
    EXPECT_TRUE(browse->searchTruncated());

    browse->setSearchQuery(" \t ");
    ASSERT_TRUE(waitForPublications(2));
    EXPECT_TRUE(browse->searchHits().empty());
    EXPECT_FALSE(browse->searchTruncated());
    EXPECT_FALSE(browse->isSearchActive());

    browse->setSearchFilter(BrowseSearchFilter::samples);
    ASSERT_TRUE(waitForPublications(3));
    EXPECT_TRUE(browse->searchTruncated());
    int cleared = 0;
    QObject::connect(browse.get(), &BrowseSessionViewModel::searchTruncatedChanged, [&] { ++cleared; });
    open(*browse, "/other", filesAtTheTop({"kick.wav"}));
    EXPECT_TRUE(browse->searchHits().empty());
    EXPECT_FALSE(browse->searchTruncated());
    EXPECT_EQ(cleared, 1);
}

TEST_F(BrowseSessionViewModelTest, UnusedBuildsTheUsageIndexOncePerTree) {
    test::TempDir temp;
    const fs::path version = temp / "backup-2026-01-01-100000";
    test::writeFile(version / "Songs/SONG.m8s", test::songWithSamples({"/Samples/used.wav"}));
    for (const auto* file :
         {"Samples/used.wav", "Samples/spare.wav", "Samples/spare one.wav", "Renders/spare.wav"})
        test::writeFile(version / file, "RIFF");
    auto browse = session(0ms);
    open(*browse, version, loadFileTree(version));

    browse->setSearchFilterText("unused");
    ASSERT_TRUE(waitForPublications(1));
    browse->setSearchQueryText("one");
    ASSERT_TRUE(waitForPublications(2));
    EXPECT_EQ(published_, (std::vector<Paths>{{"Samples/spare one.wav", "Samples/spare.wav"},
                                              {"Samples/spare one.wav"}}));
    EXPECT_EQ(indexBuilds_, 1);

    // Another version has an index of its own, and the search on show runs again over its tree.
    const fs::path other = temp / "backup-2026-01-02-100000";
    fs::copy(version, other, fs::copy_options::recursive);
    fs::remove(other / "Samples/spare one.wav");
    test::writeFile(other / "Samples/one more.wav", "RIFF");
    open(*browse, other, loadFileTree(other));
    ASSERT_TRUE(waitForPublications(3));
    EXPECT_EQ(published_.back(), Paths{"Samples/one more.wav"});
    EXPECT_EQ(indexBuilds_, 2);
}

TEST_F(BrowseSessionViewModelTest, ScreenReadsTheFilterByRawValueAndEachHitAsAMap) {
    auto browse = session(0ms);
    open(*browse, "/version", filesAtTheTop({"kick.wav"}));
    browse->setSearchFilterText("samples");
    EXPECT_EQ(browse->searchFilter(), BrowseSearchFilter::samples);
    browse->setSearchFilterText("Songs");
    EXPECT_EQ(browse->searchFilterText(), "samples");
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(
        browse->searchHitsVariant(),
        (QVariantList{QVariantMap{
            {"name", "kick.wav"}, {"relativeFolder", ""}, {"path", "kick.wav"}, {"isDirectory", false}}}));
}

// A base folder on disk with one set of two versions, browsed through the real tree walk.
class BrowseSessionOnDiskTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::startApplication();
        test::writeFile(older_ / "Songs/OLD.m8s", test::songWithSamples({}));
        test::writeFile(newer_ / "Songs/Live/SET.m8s", test::songWithSamples({"/samples/loops/PAD.wav"}));
        test::writeFile(newer_ / "Samples/Loops/pad.wav", "RIFF pad");
        test::writeFile(newer_ / "Samples/Drums/Kick1.wav", "RIFF other");
        BrowseSessionViewModel::Dependencies dependencies;
        dependencies.debounce = 0ms;
        dependencies.baseFolder = [this] { return base_; };
        dependencies.rsyncPath = [] { return std::string("/usr/bin/rsync"); };
        dependencies.detectedCards = [this] { return cards_; };
        session_ = std::make_unique<BrowseSessionViewModel>(std::move(dependencies));
        QObject::connect(session_.get(), &BrowseSessionViewModel::searchResultsPublished,
                         [this] { ++published_; });
        session_->loadSets();
        ASSERT_TRUE(test::waitFor([&] { return !session_->isLoadingSets(); }));
    }

    void openNewer() {
        session_->selectVersion("M8_1234ABCD", "backup-2026-02-01-100000");
        ASSERT_NE(session_->browser(), nullptr);
        ASSERT_TRUE(test::waitFor([&] { return session_->browser()->isTreeLoaded(); }));
    }

    std::vector<std::string> pathNames() const {
        std::vector<std::string> names;
        for (const auto& folder : session_->path()) names.push_back(folder.name);
        return names;
    }

    test::TempDir temp_;
    fs::path base_ = temp_ / "base";
    fs::path older_ = base_ / "M8_1234ABCD/backup-2026-01-01-100000";
    fs::path newer_ = base_ / "M8_1234ABCD/backup-2026-02-01-100000";
    std::vector<SDCard> cards_;
    int published_ = 0;
    std::unique_ptr<BrowseSessionViewModel> session_;
};

TEST_F(BrowseSessionOnDiskTest, AVersionOpensAtItsTopAndFoldersAreWalkedDownAndBackUp) {
    ASSERT_EQ(session_->availableSets().size(), 1u);
    EXPECT_EQ(session_->availableSets()[0].versions.size(), 2u);
    session_->toggleSet("M8_1234ABCD");
    EXPECT_EQ(session_->openSetIDsVariant(), QStringList{"M8_1234ABCD"});
    session_->toggleSet("M8_1234ABCD");
    EXPECT_TRUE(session_->openSetIDsVariant().isEmpty());

    openNewer();
    const auto* browser = session_->browser();
    EXPECT_EQ(session_->selection()->rsyncPath, "/usr/bin/rsync");
    EXPECT_EQ(session_->folderEntries().size(), 2u);
    session_->activateEntry("Songs");
    session_->activateEntry("Live");
    EXPECT_EQ(pathNames(), (std::vector<std::string>{"Songs", "Live"}));
    EXPECT_EQ(session_->pathVariant()[0].toMap()["sizeText"].toString(), "");  // a folder has no size to show
    EXPECT_EQ(session_->folderEntriesVariant()[0].toMap()["sizeText"].toString(), "108 KB");
    session_->activateEntry("SET.m8s");
    EXPECT_EQ(session_->selectedNode()->name, "SET.m8s");
    ASSERT_TRUE(test::waitFor([&] { return browser->songMetadata().has_value(); }));

    // The device wrote the path in other letters than the card's file system keeps.
    session_->previewSample("/samples/loops/PAD.wav");
    ASSERT_TRUE(session_->previewOverride().has_value());
    EXPECT_TRUE(session_->hasPreviewOverride());
    EXPECT_EQ(session_->previewOverride()->url, newer_ / "Samples/Loops/pad.wav");
    session_->clearPreviewOverride();
    EXPECT_FALSE(session_->hasPreviewOverride());
    EXPECT_EQ(session_->previewNodeVariant()["name"], "SET.m8s");

    session_->goToDepth(1);
    EXPECT_EQ(pathNames(), std::vector<std::string>{"Songs"});
    EXPECT_FALSE(session_->selectedNode());

    // The same version again changes nothing; another makes a new browser at its top.
    session_->selectVersion("M8_1234ABCD", "backup-2026-02-01-100000");
    EXPECT_EQ(session_->browser(), browser);
    EXPECT_EQ(pathNames().size(), 1u);
    session_->selectVersion("M8_1234ABCD", "backup-2026-01-01-100000");
    EXPECT_NE(session_->browser(), browser);
    EXPECT_TRUE(session_->path().empty());
}

TEST_F(BrowseSessionOnDiskTest, OpeningAHitShowsItsFolderAndAHitWhoseFolderIsGoneChangesNothing) {
    openNewer();
    session_->setSearchQuery("drums kick");
    ASSERT_TRUE(test::waitFor([&] { return published_ == 1; }));
    ASSERT_EQ(session_->searchHits().size(), 1u);
    const auto hit = session_->searchHits()[0];
    EXPECT_EQ(hit.relativePath(), "Samples/Drums/Kick1.wav");
    session_->openHitAt(0);
    EXPECT_EQ(pathNames(), (std::vector<std::string>{"Samples", "Drums"}));
    EXPECT_EQ(session_->selectedNode()->url, newer_ / "Samples/Drums/Kick1.wav");

    session_->setSearchQuery("drums");
    ASSERT_TRUE(test::waitFor([&] { return published_ == 2; }));
    ASSERT_TRUE(session_->searchHits()[0].node.isDirectory);
    session_->openHitAt(0);  // a folder: shown, not previewed
    EXPECT_EQ(pathNames(), (std::vector<std::string>{"Samples", "Drums"}));
    EXPECT_FALSE(session_->selectedNode());

    auto gone = hit;
    gone.relativeFolder = "Samples/Percussion";
    session_->goToDepth(0);
    session_->openHit(gone);
    EXPECT_TRUE(session_->path().empty());
    EXPECT_FALSE(session_->selectedNode());
}

TEST_F(BrowseSessionOnDiskTest, ACopyIsOfferedOnlyWhileTheCardTheSetCameFromIsMounted) {
    openNewer();
    EXPECT_FALSE(session_->canCopyToCard());
    cards_ = {SDCard{temp_ / "other", "M8", "FFFF-0000"}, SDCard{temp_ / "card", "M8", "1234-ABCD"}};
    session_->refreshCards();
    ASSERT_TRUE(session_->canCopyToCard());
    EXPECT_EQ(session_->cardOfSelection()->mountPath, temp_ / "card");
}

// A pending trim of a sample of the given version, as staging makes one.
EditEntry pendingTrim(const std::string& version, const std::string& source) {
    EditEntry edit;
    edit.id = makeUuid();
    edit.createdAt = TimePoint(std::chrono::seconds(1'738'324'800));
    edit.sourceVersionFolder = version;
    edit.sourceRelativePath = source;
    edit.targetRelativePath = source.substr(0, source.size() - 4) + "_trim.wav";
    edit.stagedFileName = edit.id + ".wav";
    edit.parameters.sampleTrim = {0.25, 1.5, 2.0};
    return edit;
}

TEST_F(BrowseSessionOnDiskTest, PendingEditsAreCountedPerSetAndVersionAsTheStoreChanges) {
    int changes = 0;
    QObject::connect(session_.get(), &BrowseSessionViewModel::pendingEditsChanged, [&] { ++changes; });
    EXPECT_TRUE(session_->pendingEditCountsVariant().isEmpty());

    const std::string set = "M8_1234ABCD";
    const std::string newer = "backup-2026-02-01-100000";
    const std::string older = "backup-2026-01-01-100000";
    EditManifestStore store(base_);
    const auto stage = [&](const EditEntry& edit) {
        const auto rendered = temp_ / ("rendered-" + edit.id + ".wav");
        test::writeFile(rendered, "RIFF trimmed");
        store.addEdit(edit, rendered, set);
    };
    const auto padTrim = pendingTrim(newer, "/Samples/Loops/pad.wav");
    stage(padTrim);
    stage(pendingTrim(newer, "/Samples/Loops/pad.wav"));
    stage(pendingTrim(older, "/Samples/kick.wav"));
    // Each change is counted afresh; the last count holds all three edits.
    ASSERT_TRUE(test::waitFor([&] {
        return session_->pendingEdits().perSet.count(set) && session_->pendingEdits().perSet.at(set) == 3;
    }));

    EXPECT_EQ(session_->pendingEditCountsVariant(), (QVariantMap{{"M8_1234ABCD", 3}}));
    EXPECT_EQ(session_->pendingEditPerVersionVariant(),
              (QVariantMap{{"M8_1234ABCD",
                            QVariantMap{{"backup-2026-02-01-100000", 2}, {"backup-2026-01-01-100000", 1}}}}));
    EXPECT_EQ(session_->pendingFilesPerVersionVariant(),
              (QVariantMap{{"M8_1234ABCD",
                            QVariantMap{{"backup-2026-02-01-100000", QStringList{"/Samples/Loops/pad.wav"}},
                                        {"backup-2026-01-01-100000", QStringList{"/Samples/kick.wav"}}}}}));

    const int before = changes;
    store.discardEdit(padTrim.id, set);
    ASSERT_TRUE(test::waitFor([&] { return changes > before; }));
    EXPECT_EQ(session_->pendingEditPerVersionVariant(),
              (QVariantMap{{"M8_1234ABCD",
                            QVariantMap{{"backup-2026-02-01-100000", 1}, {"backup-2026-01-01-100000", 1}}}}));
}

}  // namespace
}  // namespace tapekeep
